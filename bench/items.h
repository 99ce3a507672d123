#ifndef SQLDB_BENCH_ITEMS_H
#define SQLDB_BENCH_ITEMS_H

// The table that all layers work on, in memory, and how the two layers that every measurement has reach it: SQLite's
// calls made by hand, and sqldb with the value and term classes that an application brings.

#include <cstdint>
#include <ostream>
#include <string>

#include <sqlite3.h>
#include <boost/shared_ptr.hpp>

#include "sqldb/sqldb.h"

namespace bench {

// One row.
struct Item {
  std::uint32_t id;
  std::uint32_t quantity;
  std::uint32_t price;
  std::uint32_t stock;
};

constexpr char kCreateItems[] =
    "CREATE TABLE items (id INTEGER PRIMARY KEY, quantity INTEGER, price INTEGER, stock INTEGER)";
// Ids from 1 to kItems.
constexpr char kFillItems[] =
    "INSERT INTO items WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 1000) "
    "SELECT i, i * 7 % 100, i * 13 % 1000, i FROM n";
constexpr char kEmptyItems[] = "DELETE FROM items";
constexpr std::uint32_t kItems = 1000;

// Statements in a Run; rows in a Run of a scan are kItems times kScans.
constexpr std::uint32_t kStatements = 1000;
constexpr std::uint32_t kScans = 10;

// Stops the program: what is measured must not fail.
[[noreturn]] void Fail(const std::string& what);

// A connection of SQLite's own interface, with the table, in a transaction.
class RawItems {
 public:
  RawItems();
  ~RawItems();
  RawItems(const RawItems&) = delete;
  RawItems& operator=(const RawItems&) = delete;

  void Send(const char* sql);
  // Compiles `sql` as the library does.
  sqlite3_stmt* Prepare(const char* sql);
  // Steps to the end of a statement without result, and finalizes it.
  void Finish(sqlite3_stmt* statement);
  std::int64_t Changes() const { return sqlite3_total_changes64(connection); }

  sqlite3* connection = nullptr;
};

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

// The same with sqldb.
class SqldbItems {
 public:
  SqldbItems();

  void Send(const char* sql) { database.SendQuery(sql, nullptr, nullptr); }
  std::int64_t Changes() const { return sqlite3_total_changes64(database.fConnection); }
  // Where the columns of an Item go.
  static sqldb::OffsetSpec Offsets();

  sqldb::SQLDatabase database;
  boost::shared_ptr<sqldb::SQLTableClass> table;
  boost::shared_ptr<sqldb::SQLColumnBase> id;
  boost::shared_ptr<sqldb::SQLColumnBase> quantity;
  boost::shared_ptr<sqldb::SQLColumnBase> price;
  boost::shared_ptr<sqldb::SQLColumnBase> stock;
};

// A number bound to a parameter of its own.
class Number : public sqldb::SQLValueBase {
 public:
  explicit Number(std::uint32_t number) : fNumber(number) { RememberParameterName(); }
  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, GetParameterName().c_str()), fNumber);
  }

  std::uint32_t fNumber;
};

// A number printed into the text, as an update needs it.
class Literal : public sqldb::SQLValueBase {
 public:
  explicit Literal(std::uint32_t number) : fNumber(number) {}
  std::ostream& Print(std::ostream& stream) const override { return stream << fNumber; }

  std::uint32_t fNumber;
};

// The row with one id.
class IdIs : public sqldb::SQLTermBase {
 public:
  explicit IdIs(std::uint32_t id) : fId(id) {}
  std::ostream& Print(std::ostream& out) const override { return out << " id = " << fId; }
  bool NotEmpty() const override { return true; }

  std::uint32_t fId;
};

}  // namespace bench

#endif  // SQLDB_BENCH_ITEMS_H
