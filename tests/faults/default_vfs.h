#ifndef SQLDB_TESTS_DEFAULT_VFS_H
#define SQLDB_TESTS_DEFAULT_VFS_H

// What the virtual file systems of the tests have in common.

#include <sqlite3.h>

namespace faults {

// SQLite's table of the functions of a file, the static ones of `File`. Version 1: neither write-ahead log nor memory
// mapping, so that every access comes by there.
template <typename File>
constexpr sqlite3_io_methods kMethodsOf = {1,
                                           File::Close,
                                           File::Read,
                                           File::Write,
                                           File::Truncate,
                                           File::Sync,
                                           File::FileSize,
                                           File::Lock,
                                           File::Unlock,
                                           File::CheckReservedLock,
                                           File::FileControl,
                                           File::SectorSize,
                                           File::DeviceCharacteristics,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr,
                                           nullptr};

// A copy of the default VFS that takes its place.
class DefaultVfs {
 public:
  // `change` gives it the functions and the size of its files. One lives at a time.
  template <typename Change>
  DefaultVfs(const char* name, Change change) : fOriginal(sqlite3_vfs_find(nullptr)), fVfs(*fOriginal) {
    fVfs.iVersion = 1;
    fVfs.zName = name;
    change(fVfs);
    sqlite3_vfs_register(&fVfs, 1);
  }
  ~DefaultVfs() {
    sqlite3_vfs_unregister(&fVfs);
    sqlite3_vfs_register(fOriginal, 1);
  }
  DefaultVfs(const DefaultVfs&) = delete;
  DefaultVfs& operator=(const DefaultVfs&) = delete;

 private:
  sqlite3_vfs* const fOriginal;
  sqlite3_vfs fVfs;
};

}  // namespace faults

#endif  // SQLDB_TESTS_DEFAULT_VFS_H
