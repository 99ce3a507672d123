#ifndef CATALOG_MODULE_H
#define CATALOG_MODULE_H

// Libraries that add something to SQLite itself, such as a VFS: another place to keep files in.

#include <string>

#include "sqldb/database.h"

namespace catalog {

/// An SQLite extension library, loaded into the process for as long as the object lives. What it registers for all
/// connections can be used from then on, a VFS by its name in a URI.
class Module {
 public:
  /// Throws Failure with SQLite's reason if it cannot be loaded.
  explicit Module(const std::string& path);

 private:
  // Has no other use: a library may be let go of with the connection that has loaded it.
  sqldb::SQLDatabase fDatabase{":memory:", false};
};

}  // namespace catalog

#endif  // CATALOG_MODULE_H
