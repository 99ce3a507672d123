#ifndef SQLDB_TESTS_UNSAFE_DISK_H
#define SQLDB_TESTS_UNSAFE_DISK_H

// A virtual file system in memory that behaves as a disk with a volatile cache: what was not synced when the power
// fails may be there, or not, or in part. Its name is "unsafe-disk", and it becomes the default VFS.

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "faults/default_vfs.h"

namespace faults {

class UnsafeDisk {
 public:
  // All that happens on the disk follows from `seed`, what SQLite takes for random included.
  explicit UnsafeDisk(unsigned seed);
  ~UnsafeDisk();
  UnsafeDisk(const UnsafeDisk&) = delete;
  UnsafeDisk& operator=(const UnsafeDisk&) = delete;

  // The power fails at the n-th write, sync, truncation, deletion or creation from now on; that one and everything
  // later fails with an I/O error, and only that one may still have some effect. 0: never.
  void FailPowerAt(int n);
  // The power fails now, between two operations.
  void FailPower() { fHasPower = false; }
  bool HasPower() const { return fHasPower; }
  // Operations that FailPowerAt counts, since the last FailPowerAt.
  int Operations() const { return fOperations; }
  // The power comes back: of every change that was not synced it is left to chance whether it is there; a write may be
  // cut off.
  void Recover();

  struct Change {
    std::int64_t offset;  // of a write; the new size of a truncation
    std::vector<char> data;
    bool isTruncation;
  };
  struct File {
    std::vector<char> synced;     // what is surely on the disk
    std::vector<Change> pending;  // what may be
    std::vector<char> current;    // what a program sees
  };

  // For the VFS itself.
  // Returns false when the power fails at this operation.
  bool Operate();
  // The file that a program sees under this name, null for none.
  std::shared_ptr<File> Find(const std::string& name) const;
  // Creates a name, gives it to another file, or, with null, deletes it. Until the folder is synced, a loss of power
  // may undo that.
  void Link(const std::string& name, std::shared_ptr<File> file);
  void SyncFolder();
  unsigned Random() { return static_cast<unsigned>(fRandom()); }

 private:
  void RecoverFile(File& file);

  const DefaultVfs fVfs;
  // What each name stood for since the folder was synced, null for nothing. The last one is what a program sees, and
  // after a loss of power it can be any of them.
  std::map<std::string, std::vector<std::shared_ptr<File>>> fFolder;
  std::mt19937 fRandom;
  int fCountdown = 0;
  int fOperations = 0;
  bool fHasPower = true;
};

}  // namespace faults

#endif  // SQLDB_TESTS_UNSAFE_DISK_H
