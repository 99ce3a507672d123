#include "engine.h"

#include <string>

#include <sqlite3.h>

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

void RequireEngine(int version, const char* what) {
  if (sqlite3_libversion_number() >= version) return;
  const std::string needed = std::to_string(version / 1000000) + "." + std::to_string(version / 1000 % 1000);
  throw Error(std::string(what) + " needs SQLite " + needed + "; this is " + sqlite3_libversion() + ".", SQLITE_MISUSE);
}

}  // namespace sqldb::kit::detail
