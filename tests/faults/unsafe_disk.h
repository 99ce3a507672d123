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

namespace faults {

class UnsafeDisk {
 public:
  explicit UnsafeDisk(unsigned seed);
  ~UnsafeDisk();
  UnsafeDisk(const UnsafeDisk&) = delete;
  UnsafeDisk& operator=(const UnsafeDisk&) = delete;

  // The power fails at the n-th write, sync, truncation or deletion from now on; that one and everything later fails
  // with an I/O error. 0: never.
  void FailPowerAt(int n);
  bool HasPower() const { return fHasPower; }
  // Operations that FailPowerAt counts, since the last FailPowerAt.
  int Operations() const { return fOperations; }
  // The power comes back: every change that was not synced is kept, dropped or, a write, cut off, at random.
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
    bool isDeleted = false;       // deleted, but the folder not synced since
  };

  // For the VFS itself.
  bool Operate();
  std::map<std::string, std::shared_ptr<File>> fFiles;

 private:
  std::mt19937 fRandom;
  int fCountdown = 0;
  int fOperations = 0;
  bool fHasPower = true;
};

}  // namespace faults

#endif  // SQLDB_TESTS_UNSAFE_DISK_H
