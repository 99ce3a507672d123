#ifndef SQLDB_KIT_SRC_COMPILE_H
#define SQLDB_KIT_SRC_COMPILE_H

// From a text to statements, and from what SQLite reports to what the kit throws.

#include <string_view>

#include <sqlite3.h>

namespace sqldb::kit::detail {

// Whether there is nothing but blanks and comments, which may stand behind a statement.
bool IsEmptySql(std::string_view sql);

// The statement of `sql`, to be kept. Throws Error, among others if there is none, or if there are several.
sqlite3_stmt* CompileOne(sqlite3* connection, std::string_view sql);

// What the connection reported last, as the class of Error that it is.
[[noreturn]] void ThrowError(sqlite3* connection, int code, std::string_view sql);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_COMPILE_H
