#ifndef SQLDB_KIT_COLUMN_H
#define SQLDB_KIT_COLUMN_H

// Columns of every type that Type knows.

#include <string>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "sqldb/column.h"
#include "sqldb/kit/types.h"

namespace sqldb::kit {

/// What a column is besides its type. It is NOT NULL unless its type is std::optional.
struct ColumnOptions {
  /// The rows are told apart by it.
  bool isPrimaryKey = false;
  /// No two rows have the same value.
  bool isUnique = false;
  /// Empty for SQLite's own, BINARY.
  std::string collation;
};

/// A column whose values are of type T. AssignTo assigns to a T that lives at the destination.
/// REQUIRES: the destination is a T, aligned as such.
template <typename T>
class Column : public SQLColumnBase {
 public:
  /// `name` is written into SQL as it stands.
  explicit Column(const std::string& name, const ColumnOptions& options = {})
      : SQLColumnBase(nullptr, name, Type<T>::kSql, sizeof(T), kIsOptional<T>, options.isUnique, options.isPrimaryKey,
                      options.collation) {}

  void AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const override {
    Type<T>::Read(statement, columnIndex, *static_cast<T*>(destination));
  }

  std::string IAmAKindOf() const override { return "Column"; }
};

namespace detail {

/// All that an order or an assignment asks of a column.
inline boost::shared_ptr<SQLColumnBase> OnlyNamed(const std::string& name) {
  return boost::make_shared<SQLColumnBase>(nullptr, name, "", 0, true, false, false, "");
}

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_COLUMN_H
