#ifndef CATALOG_COLUMNS_H
#define CATALOG_COLUMNS_H

// The column types that the library leaves to its users: sizes beyond 4 GiB need 64 bits, and names are text. A type
// needs two things: what SQL calls it, and how a result value gets into a variable of it.

#include <cstdint>
#include <cstring>
#include <string>

#include <sqlite3.h>
#include <boost/shared_ptr.hpp>

#include "sqldb/column.h"

template <>
struct ColumnTraits<std::int64_t> {
  static std::string SQLColumnTypeString() { return "INTEGER"; }
};

template <>
struct ColumnTraits<std::string> {
  static std::string SQLColumnTypeString() { return "TEXT"; }
};

namespace catalog {

using Column = boost::shared_ptr<sqldb::SQLColumnBase>;
using IntegerColumn = sqldb::SQLColumnClass<std::int64_t, sizeof(std::int64_t), ColumnTraits<std::int64_t>>;
using TextColumn = sqldb::SQLColumnClass<std::string, sizeof(std::string), ColumnTraits<std::string>>;

}  // namespace catalog

template <>
inline void catalog::IntegerColumn::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const std::int64_t value = sqlite3_column_int64(statement, columnIndex);
  std::memcpy(destination, &value, sizeof value);
}

// The destination is a live std::string. Its length is taken from SQLite: text may hold any bytes.
template <>
inline void catalog::TextColumn::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, columnIndex));
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, columnIndex));
  static_cast<std::string*>(destination)->assign(text != nullptr ? text : "", text != nullptr ? length : 0);
}

#endif  // CATALOG_COLUMNS_H
