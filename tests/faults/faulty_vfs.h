#ifndef SQLDB_TESTS_FAULTY_VFS_H
#define SQLDB_TESTS_FAULTY_VFS_H

// A virtual file system for SQLite that hands everything to the operating system's until told to fail.
//
//   FaultyVfs vfs;                       // becomes the default VFS
//   vfs.FailAt(n, SQLITE_IOERR, false);  // the n-th operation from now on fails, once
//   ... work ...
//   if (!vfs.HasFailed()) ...            // there were fewer than n operations

#include <string>

#include "faults/default_vfs.h"

namespace faults {

class FaultyVfs {
 public:
  FaultyVfs();

  // The n-th operation from now (1 for the next, 0 for none) fails with `code`, and every one after it too if
  // `persistent`. SQLITE_FULL strikes writes only; SQLITE_IOERR becomes the extended code of the operation.
  void FailAt(int n, int code, bool persistent);
  // No more failures.
  void Disarm();
  // While paused, operations neither count nor fail.
  void Pause(bool isPaused);
  // True when an operation has failed since FailAt.
  bool HasFailed() const;
  // How many operations there were since FailAt that could have failed with its code.
  int Operations() const;

 private:
  DefaultVfs fVfs;
};

// Copies a database file with its journal, if there is one: what the process would leave behind if it died now. Does
// not go through the virtual file system.
void CopyWithJournal(const std::string& from, const std::string& to);

}  // namespace faults

#endif  // SQLDB_TESTS_FAULTY_VFS_H
