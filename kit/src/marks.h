#ifndef SQLDB_KIT_SRC_MARKS_H
#define SQLDB_KIT_SRC_MARKS_H

// What the text of a Piece has instead of SQL, and how it becomes SQL.

#include <cstddef>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "sqldb/kit/lease.h"

namespace sqldb::kit::detail {

// No SQL has these characters.
constexpr char kParameterMark = '\x01';
constexpr char kAndMark = '\x02';
constexpr char kOrMark = '\x03';
constexpr char kOpenMark = '\x04';
constexpr char kCloseMark = '\x05';

// Appends the text as SQL, with a question mark for each parameter.
void WriteSql(std::string& sql, std::string_view text);
// Appends the text as SQL, with literals for `values`.
void WriteLiterals(std::string& sql, std::string_view text, std::string_view values);

// Binds the values to the parameters from `first` on, and returns the one after them. Throws Error.
int BindValues(sqlite3_stmt* statement, int first, std::string_view values, Values lifetime);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_MARKS_H
