#ifndef SQLDB_KIT_SRC_COMPILE_H
#define SQLDB_KIT_SRC_COMPILE_H

// From a text to statements, and from what SQLite reports to what the kit throws.

#include <string>
#include <string_view>

#include <sqlite3.h>

namespace sqldb::kit::detail {

// Whether it may stand in a name without quotes.
bool IsOfName(char character);

// Throws Error if SQLite could not take so long a text.
void CheckSize(std::string_view sql);

// Whether there is nothing but blanks and comments, which may stand behind a statement.
bool IsEmptySql(std::string_view sql);

// A PRAGMA: its name, and what stands behind it, each as it is written; both empty for other statements.
struct Pragma {
  std::string_view name;
  std::string_view value;

  // Names are compared as SQLite does.
  bool IsNamed(std::string_view other) const;
};
Pragma PragmaOf(std::string_view sql);

// The first statement of `sql`, which is then its text alone; null if that is only a semicolon or a comment. Throws
// Error. REQUIRES: a zero byte follows `sql`.
sqlite3_stmt* CompileFirst(sqlite3* connection, std::string_view& sql);

// The statement of `sql`, to be kept. Throws Error, among others if there is none, or if there are several.
sqlite3_stmt* CompileOne(sqlite3* connection, std::string_view sql);

// What the connection reported last, as the class of Error that it is.
[[noreturn]] void ThrowError(sqlite3* connection, int code, std::string_view sql);
// The class of Error that the code stands for.
[[noreturn]] void ThrowAsItIs(const std::string& message, int code, std::string_view sql);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_COMPILE_H
