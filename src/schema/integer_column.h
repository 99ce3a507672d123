#ifndef SQLDB_SRC_SCHEMA_INTEGER_COLUMN_H
#define SQLDB_SRC_SCHEMA_INTEGER_COLUMN_H

#include <cstdint>

#include <sqlite3.h>

#include "sqldb/column.h"

namespace sqldb {

// The one type of column that the library brings.
using IntegerColumn = SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

// What it reads.
inline std::uint32_t IntegerOf(sqlite3_stmt* statement, int columnIndex) {
  return static_cast<std::uint32_t>(sqlite3_column_int(statement, columnIndex));
}

}  // namespace sqldb

#endif  // SQLDB_SRC_SCHEMA_INTEGER_COLUMN_H
