#ifndef SQLDB_UPDATE_H
#define SQLDB_UPDATE_H

// An update changes columns of the rows of one table that match a term.
//
// Order of calls: SQLTableClass::NewUpdate, fill `fColumns` and `fValues` in matching order, assign `fTerm`,
// PerformUpdate.

#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/export.h"

namespace sqldb {

class SQLColumnBase;
class SQLTableClass;
class SQLTermBase;
class SQLValueBase;

/// One UPDATE statement. Its values are printed and never bound.
class SQLDB_EXPORT SQLUpdateClass {
 public:
  /// A statement on `table` without columns, values and term; see SQLTableClass::NewUpdate.
  explicit SQLUpdateClass(SQLTableClass& table);

  /// Leaves the table's list, if the table still lives.
  ~SQLUpdateClass();

  SQLUpdateClass(const SQLUpdateClass&) = delete;
  SQLUpdateClass& operator=(const SQLUpdateClass&) = delete;

  /// Builds the text, sends it, and erases `fValues` if `clearValues` is true. " WHERE" is always written and the
  /// term always printed, whatever its NotEmpty says: to change every row, use a term that prints a condition which
  /// is always true. Never waits for a busy file. Throws SQLite's message, or "Condition is not met." once the table
  /// or its database is destroyed, be it by what is printed; the values are then kept.
  /// REQUIRES: `fTerm` is not null, `fValues` has an entry for every column, and no entry is null.
  void PerformUpdate(bool clearValues);

  /// The table that is updated; not owned.
  SQLTableClass& fTable;
  /// The columns to set, in the order of the statement.
  std::vector<boost::shared_ptr<SQLColumnBase>> fColumns;
  /// One value for each column, in the same order.
  std::vector<boost::shared_ptr<SQLValueBase>> fValues;
  /// Which rows; null until assigned.
  boost::shared_ptr<SQLTermBase> fTerm;

 private:
  boost::weak_ptr<void> fTableLifetime;
};

}  // namespace sqldb

#endif  // SQLDB_UPDATE_H
