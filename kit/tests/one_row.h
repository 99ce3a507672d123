#ifndef SQLDB_KIT_TESTS_ONE_ROW_H
#define SQLDB_KIT_TESTS_ONE_ROW_H

// A statement that yields one row, and what SQLite itself says of a connection.

#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "sqldb/kit/types.h"

namespace support {

// The row of `sql` on `connection`. Any failure fails the test.
class OneRow {
 public:
  OneRow(sqlite3* connection, const std::string& sql) {
    const int result = sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &fStatement, nullptr);
    EXPECT_EQ(result, SQLITE_OK) << sql << ": " << sqlite3_errmsg(connection);
  }
  ~OneRow() { sqlite3_finalize(fStatement); }
  OneRow(const OneRow&) = delete;
  OneRow& operator=(const OneRow&) = delete;

  template <typename T>
  void Bind(int parameter, const T& value) {
    EXPECT_EQ(sqldb::kit::Type<T>::Bind(fStatement, parameter, value), SQLITE_OK);
  }

  void Step() { EXPECT_EQ(sqlite3_step(fStatement), SQLITE_ROW); }

  // From 0, as the columns of SQLite.
  template <typename T>
  void ReadInto(T& value, int column = 0) {
    sqldb::kit::Type<T>::Read(fStatement, column, value);
  }
  template <typename T>
  T Read(int column = 0) {
    T value{};
    ReadInto(value, column);
    return value;
  }

 private:
  sqlite3_stmt* fStatement = nullptr;
};

// How many statements `connection` holds.
inline int StatementsOf(sqlite3* connection) {
  int count = 0;
  for (auto* statement = sqlite3_next_stmt(connection, nullptr); statement != nullptr;
       statement = sqlite3_next_stmt(connection, statement)) {
    ++count;
  }
  return count;
}

}  // namespace support

#endif  // SQLDB_KIT_TESTS_ONE_ROW_H
