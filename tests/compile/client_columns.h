#ifndef SQLDB_TESTS_CLIENT_COLUMNS_H
#define SQLDB_TESTS_CLIENT_COLUMNS_H

// Columns as an application defines them in a header that several of its files include.

#include <cstdint>
#include <cstring>
#include <string>

#include <sqlite3.h>

#include "sqldb/sqldb.h"

template <>
struct ColumnTraits<double> {
  static std::string SQLColumnTypeString() { return "REAL"; }
};

template <>
struct ColumnTraits<std::int64_t> {
  static std::string SQLColumnTypeString() { return "BIGINT"; }
};

template <>
struct ColumnTraits<std::string> {
  static std::string SQLColumnTypeString() { return "TEXT"; }
};

namespace client {

template <typename T>
using Column = sqldb::SQLColumnClass<T, sizeof(T), ColumnTraits<T>>;

// The record that rows are stepped into.
struct Item {
  std::int64_t id;
  double price;
  std::string name;
  std::uint32_t quantity;
};

template <typename T>
boost::shared_ptr<sqldb::SQLColumnBase> MakeColumn(const std::string& name) {
  return boost::shared_ptr<sqldb::SQLColumnBase>(new Column<T>(nullptr, name, true, false, false, ""));
}

}  // namespace client

template <>
inline void client::Column<double>::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const double value = sqlite3_column_double(statement, columnIndex);
  std::memcpy(destination, &value, sizeof value);
}

template <>
inline void client::Column<std::int64_t>::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const std::int64_t value = sqlite3_column_int64(statement, columnIndex);
  std::memcpy(destination, &value, sizeof value);
}

// The destination is a live string, so it is assigned to.
template <>
inline void client::Column<std::string>::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const unsigned char* const text = sqlite3_column_text(statement, columnIndex);
  *static_cast<std::string*>(destination) = text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

namespace client {

// A database in memory with two items.
class Shop {
 public:
  Shop();

  // Steps through the items by id, from a select that the other file makes.
  sqldb::SQLStepCursor<Item>* PrepareAll(boost::shared_ptr<sqldb::SQLCursorBase>& cursor);

  sqldb::SQLDatabase fDatabase{":memory:", false};
  boost::shared_ptr<sqldb::SQLTableClass> fItems;

 private:
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
};

}  // namespace client

#endif  // SQLDB_TESTS_CLIENT_COLUMNS_H
