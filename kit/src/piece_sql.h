#ifndef SQLDB_KIT_SRC_PIECE_SQL_H
#define SQLDB_KIT_SRC_PIECE_SQL_H

// From the tokens and values of a Piece to SQL, and to what is bound.

#include <string>

#include <sqlite3.h>

#include "sqldb/kit/lease.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit::detail {

// Appends the tokens as SQL, with a question mark for each parameter.
void WriteSql(std::string& sql, const Words& text);
// Appends the tokens as SQL, with literals for `values`.
void WriteLiterals(std::string& sql, const Words& text, const Words& values);

// Binds the values to the parameters from `first` on, and returns the one after them. Throws Error.
// REQUIRES: `values` outlives the execution.
int BindValues(sqlite3_stmt* statement, int first, const Words& values);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_PIECE_SQL_H
