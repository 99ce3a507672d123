#ifndef SQLDB_KIT_SRC_ENGINE_H
#define SQLDB_KIT_SRC_ENGINE_H

namespace sqldb::kit::detail {

// Throws Error unless the SQLite that the program runs with has at least this version, such as 3024000. `what` needs
// it.
void RequireEngine(int version, const char* what);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_ENGINE_H
