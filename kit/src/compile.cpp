#include "compile.h"

#include <algorithm>
#include <new>

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

bool IsEmptySql(std::string_view sql) {
  while (!sql.empty()) {
    if (sql[0] == ' ' || sql[0] == '\t' || sql[0] == '\n' || sql[0] == '\r' || sql[0] == '\f' || sql[0] == ';') {
      sql.remove_prefix(1);
    } else if (sql.substr(0, 2) == "--") {
      sql.remove_prefix(std::min(sql.find('\n'), sql.size()));
    } else if (sql.substr(0, 2) == "/*") {
      const std::size_t end = sql.find("*/", 2);
      sql.remove_prefix(end == std::string_view::npos ? sql.size() : end + 2);
    } else {
      return false;
    }
  }
  return true;
}

sqlite3_stmt* CompileOne(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  const auto size = static_cast<int>(sql.size());
#ifdef SQLITE_PREPARE_PERSISTENT
  const int result = sqlite3_prepare_v3(connection, sql.data(), size, SQLITE_PREPARE_PERSISTENT, &statement, &tail);
#else
  const int result = sqlite3_prepare_v2(connection, sql.data(), size, &statement, &tail);
#endif
  if (result != SQLITE_OK) ThrowError(connection, result, sql);
  if (statement == nullptr) throw Error("There is no statement in the text.", SQLITE_MISUSE, sql);
  if (!IsEmptySql(sql.substr(static_cast<std::size_t>(tail - sql.data())))) {
    sqlite3_finalize(statement);
    throw Error("There are several statements in the text; ExecuteScript runs them all.", SQLITE_MISUSE, sql);
  }
  return statement;
}

void ThrowError(sqlite3* connection, int code, std::string_view sql) {
  const int extended = sqlite3_extended_errcode(connection);
  if ((extended & 0xFF) == (code & 0xFF)) code = extended;
  const char* const message = sqlite3_errmsg(connection);
  switch (code & 0xFF) {
    case SQLITE_NOMEM:
      throw std::bad_alloc();
    case SQLITE_CONSTRAINT:
      throw ConstraintError(message, code, sql);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw BusyError(message, code, sql);
    default:
      throw Error(message, code, sql);
  }
}

}  // namespace sqldb::kit::detail
