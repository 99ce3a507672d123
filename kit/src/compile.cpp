#include "compile.h"

#include <algorithm>
#include <limits>
#include <new>

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

bool IsOfName(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' ||
         byte >= 0x80;
}

namespace {

// What follows blanks and comments.
std::string_view WithoutBlanks(std::string_view sql) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  while (!sql.empty()) {
    if (sql[0] == ' ' || sql[0] == '\t' || sql[0] == '\n' || sql[0] == '\r' || sql[0] == '\f') {
      sql.remove_prefix(1);
    } else if (sql.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
      sql.remove_prefix(kByteOrderMark.size());
    } else if (sql.substr(0, 2) == "--") {
      sql.remove_prefix(std::min(sql.find('\n'), sql.size()));
    } else if (sql.substr(0, 2) == "/*") {
      const std::size_t end = sql.find("*/", 2);
      sql.remove_prefix(end == std::string_view::npos ? sql.size() : end + 2);
    } else {
      break;
    }
  }
  return sql;
}

// What comes after a name that is not quoted.
constexpr char kAfterAName[] = " \t\n\r\f-/.=(;\"'`[";

// Takes a name, quoted or not, off the beginning.
std::string_view TakeName(std::string_view& sql) {
  sql = WithoutBlanks(sql);
  std::size_t begin = 0;
  std::size_t end = 0;
  if (!sql.empty() && std::string_view("\"'`[").find(sql[0]) != std::string_view::npos) {
    begin = 1;
    end = std::min(sql.find(sql[0] == '[' ? ']' : sql[0], 1), sql.size());
  } else {
    end = std::min(sql.find_first_of(kAfterAName), sql.size());
  }
  const std::string_view name = sql.substr(begin, end - begin);
  sql.remove_prefix(std::min(end + begin, sql.size()));
  sql = WithoutBlanks(sql);
  return name;
}

bool AreEqual(std::string_view a, std::string_view b) {
  return a.size() == b.size() && sqlite3_strnicmp(a.data(), b.data(), static_cast<int>(a.size())) == 0;
}

constexpr char kZeroByte[] = "There is a zero byte in the text.";

int SizeOf(std::string_view sql) {
  CheckSize(sql);
  return static_cast<int>(sql.size());
}

// What SQLite's words leave to the reader to find out.
const char* AdviceFor(sqlite3* connection, int code) {
  if (code == SQLITE_BUSY_SNAPSHOT) {
    return sqlite3_get_autocommit(connection) != 0
               ? ": a range is open that was begun before another connection wrote; end it before writing, or take its"
                 " rows with All()"
               : ": the transaction has read before another connection wrote; end it, and begin the next one to write"
                 " at once";
  }
  if (code == SQLITE_LOCKED) return ": a range may be open; end it, or take its rows with All()";
  return "";
}

}  // namespace

void CheckSize(std::string_view sql) {
  if (sql.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw Error("The text is longer than SQLite takes.", SQLITE_TOOBIG);
  }
}

bool IsEmptySql(std::string_view sql) {
  sql = WithoutBlanks(sql);
  while (!sql.empty() && sql[0] == ';') sql = WithoutBlanks(sql.substr(1));
  return sql.empty();
}

bool Pragma::IsNamed(std::string_view other) const { return AreEqual(name, other); }

Pragma PragmaOf(std::string_view sql) {
  sql = WithoutBlanks(sql);
  while (!sql.empty() && sql[0] == ';') sql = WithoutBlanks(sql.substr(1));
  std::string_view name = TakeName(sql);
  // Which obeys most of them as well.
  if (AreEqual(name, "EXPLAIN")) {
    name = TakeName(sql);
    if (AreEqual(name, "QUERY")) {
      TakeName(sql);
      name = TakeName(sql);
    }
  }
  if (!AreEqual(name, "PRAGMA")) return Pragma{};
  name = TakeName(sql);
  if (!sql.empty() && sql[0] == '.') {
    sql.remove_prefix(1);
    name = TakeName(sql);
  }
  return Pragma{name, sql.substr(0, sql.find(';'))};
}

sqlite3_stmt* CompileFirst(sqlite3* connection, std::string_view& sql) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  // With the zero byte: SQLite would copy a text without one, and so all that is left of a script for each statement.
  const int result = sqlite3_prepare_v2(connection, sql.data(), SizeOf(sql) + 1, &statement, &tail);
  if (result != SQLITE_OK) ThrowError(connection, result, sql);
  sql = sql.substr(0, static_cast<std::size_t>(tail - sql.data()));
  if (sql.empty()) throw Error(kZeroByte, SQLITE_MISUSE);
  return statement;
}

sqlite3_stmt* CompileOne(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
#ifdef SQLITE_PREPARE_PERSISTENT
  const int result =
      sqlite3_prepare_v3(connection, sql.data(), SizeOf(sql), SQLITE_PREPARE_PERSISTENT, &statement, &tail);
#else
  const int result = sqlite3_prepare_v2(connection, sql.data(), SizeOf(sql), &statement, &tail);
#endif
  if (result != SQLITE_OK) ThrowError(connection, result, sql);
  if (statement == nullptr) throw Error("There is no statement in the text.", SQLITE_MISUSE, sql);
  const std::string_view rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
  if (!IsEmptySql(rest)) {
    sqlite3_finalize(statement);
    // Which SQLite takes for the end.
    if (rest.find('\0') != std::string_view::npos) throw Error(kZeroByte, SQLITE_MISUSE, sql);
    throw Error("There are several statements in the text; ExecuteScript runs them all.", SQLITE_MISUSE, sql);
  }
  return statement;
}

void ThrowError(sqlite3* connection, int code, std::string_view sql) {
  const int extended = sqlite3_extended_errcode(connection);
  if ((extended & 0xFF) == (code & 0xFF)) code = extended;
  ThrowAsItIs(std::string(sqlite3_errmsg(connection)) + AdviceFor(connection, code), code, sql);
}

void ThrowAsItIs(const std::string& message, int code, std::string_view sql) {
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
