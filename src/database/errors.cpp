#include "sqldb/database.h"

#include <stdexcept>
#include <string>

#include <sqlite3.h>

void ThrowError(int code) { throw std::runtime_error("Error encountered: " + std::to_string(code) + ".\n"); }

void ThrowIf(bool condition) {
  if (condition) throw std::runtime_error("Condition is not met.");
}

namespace sqldb {

void SQLDatabase::ThrowMessageOf(sqlite3* connection) const {
  throw std::runtime_error(sqlite3_errmsg(Unclosed(connection)));
}

}  // namespace sqldb
