#ifndef SQLDB_COLUMN_H
#define SQLDB_COLUMN_H

// A column describes itself in CREATE TABLE and copies a result value into client memory. SQLColumnBase holds
// everything but the value's type, which SQLColumnClass adds.
//
// The library provides 32-bit unsigned integers. For another type T, specialise ColumnTraits<T> and define AssignTo
// by explicit specialisation, both before the first use of the column:
//
//   template <> struct ColumnTraits<double> {
//     static std::string SQLColumnTypeString() { return "REAL"; }
//   };
//   using RealColumn = sqldb::SQLColumnClass<double, sizeof(double), ColumnTraits<double>>;
//   template <> inline void RealColumn::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
//     const double value = sqlite3_column_double(statement, columnIndex);
//     std::memcpy(destination, &value, sizeof value);
//   }

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "sqldb/export.h"

struct sqlite3_stmt;

namespace sqldb {

class SQLTableClass;

/// One column of a table, or one result expression of a select.
class SQLDB_EXPORT SQLColumnBase {
 public:
  /// Stores the arguments; checks none. `sqlType` and `collation` are written into SQL as they stand.
  SQLColumnBase(SQLTableClass* table, const std::string& name, std::string sqlType, std::uint32_t size, bool canBeNull,
                bool isUnique, bool isPrimaryKey, const std::string& collation);
  virtual ~SQLColumnBase();

  /// Copies result column `columnIndex` (from 0) of the current row to `destination`. The base does nothing.
  /// REQUIRES: changes neither the columns nor the offsets of the cursor that calls it.
  virtual void AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const;

  /// The name of the object's class, here "SQLColumnBase".
  virtual std::string IAmAKindOf() const;

  /// The definition without the name: the type, then " NOT NULL", " UNIQUE", " PRIMARY KEY" and " COLLATE NAME" as
  /// they apply.
  std::string GetSpecAsString() const;

  /// The table the column belongs to; not owned, never followed, may be null.
  SQLTableClass* fTable;
  /// The name as written into SQL, unquoted.
  std::string fName;
  /// The SQL type, for instance "INTEGER".
  std::string fSqlType;
  /// The collation; empty for none.
  std::string fCollation;
  /// False writes " NOT NULL".
  bool fCanBeNull;
  /// True writes " UNIQUE".
  bool fIsUnique;
  /// True writes " PRIMARY KEY".
  bool fIsPrimaryKey;
  /// Size of one client value, in bytes. For the application; the library does not read it.
  std::uint32_t fSize;
  /// Rank among the table's columns in CREATE TABLE, set by SQLTableClass::AddColumn; 0 before.
  std::uint16_t fSerial = 0;
};

}  // namespace sqldb

/// Says which SQL type stands for T. There is none for types that nobody defined.
template <typename T>
struct ColumnTraits;

/// The one type that the library brings.
template <>
struct SQLDB_EXPORT ColumnTraits<std::uint32_t> {
  /// What the column's definition says: "INTEGER".
  static std::string SQLColumnTypeString();
};

namespace sqldb {

/// A column whose values are of type T, each `Size` bytes in client memory.
template <typename T, std::uint32_t Size, typename Traits>
class SQLDB_EXPORT SQLColumnClass : public SQLColumnBase {
 public:
  /// Remembers what SQLColumnBase does, with the SQL type that Traits say.
  SQLColumnClass(SQLTableClass* table, const std::string& name, bool canBeNull, bool isUnique, bool isPrimaryKey,
                 const std::string& collation)
      : SQLColumnBase(table, name, Traits::SQLColumnTypeString(), Size, canBeNull, isUnique, isPrimaryKey, collation) {}

  /// Stores the result value as a T at `destination`.
  void AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const override;

  std::string IAmAKindOf() const override { return "SQLColumnClass"; }
};

template <typename T, std::uint32_t Size, typename Traits>
void SQLColumnClass<T, Size, Traits>::AssignTo(void*, sqlite3_stmt*, int) const {
  static_assert(sizeof(T) == 0,
                "Define how this column reads its value, before its first use: template <> void "
                "sqldb::SQLColumnClass<T, Size, Traits>::AssignTo(void* destination, sqlite3_stmt* statement, "
                "int columnIndex) const { ... }");
}

/// Reads with sqlite3_column_int and stores 4 bytes, which need not be aligned: NULL as 0, a negative integer as its
/// two's complement.
template <>
SQLDB_EXPORT void SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>::AssignTo(void* destination,
                                                                                          sqlite3_stmt* statement,
                                                                                          int columnIndex) const;

extern template class SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

}  // namespace sqldb

/// Writes column definitions, one a call: " NAME DEFINITION", and "," before all but the first.
class SQLDB_EXPORT AddColumnDefToQuery {
 public:
  /// REQUIRES: `stream` outlives the object.
  explicit AddColumnDefToQuery(std::ostream& stream);
  /// Writes one definition.
  void operator()(boost::shared_ptr<sqldb::SQLColumnBase> column);

  /// Where to; not owned.
  std::ostream& fStream;
  /// False once one has been written.
  bool fFirst = true;
};

/// Appends the column of each entry of a table's column map to a list.
class SQLDB_EXPORT PushColumn {
 public:
  /// REQUIRES: `columns` outlives the object.
  explicit PushColumn(std::vector<boost::shared_ptr<sqldb::SQLColumnBase>>& columns);
  /// Appends one column.
  void operator()(const std::pair<const std::string, boost::shared_ptr<sqldb::SQLColumnBase>>& entry);

  /// The list; not owned.
  std::vector<boost::shared_ptr<sqldb::SQLColumnBase>>& fColumns;
};

/// True when `a` comes before `b` in CREATE TABLE.
SQLDB_EXPORT bool LessSerial(boost::shared_ptr<sqldb::SQLColumnBase> a, boost::shared_ptr<sqldb::SQLColumnBase> b);

#endif  // SQLDB_COLUMN_H
