// An SQLite extension that offers the default VFS under the name "other".

#include <sqlite3ext.h>

SQLITE_EXTENSION_INIT1

extern "C" int sqlite3_extension_init(sqlite3*, char** error, const sqlite3_api_routines* api) {
  SQLITE_EXTENSION_INIT2(api)
  static sqlite3_vfs other;
  sqlite3_vfs* const common = sqlite3_vfs_find(nullptr);
  if (common == nullptr) {
    *error = sqlite3_mprintf("no VFS");
    return SQLITE_ERROR;
  }
  other = *common;
  other.zName = "other";
  other.pNext = nullptr;
  return sqlite3_vfs_register(&other, 0);
}
