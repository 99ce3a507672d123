#ifndef SQLDB_DELETE_H
#define SQLDB_DELETE_H

// A delete removes the rows of one table that match a term.
//
// Order of calls: SQLTableClass::NewDelete, then PerformDelete any number of times. SQLTableClass::DeleteRecords does
// both at once.

#include <string>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/export.h"

namespace sqldb {

class SQLDatabase;
class SQLTableClass;
class SQLTermBase;

/// One DELETE statement.
class SQLDB_EXPORT SQLDeleteClass {
 public:
  /// A delete from `table` of the rows for which `term` holds, of all if it is null or empty; see
  /// SQLTableClass::NewDelete.
  SQLDeleteClass(SQLDatabase* database, SQLTableClass& table, boost::shared_ptr<SQLTermBase> term);
  ~SQLDeleteClass();

  SQLDeleteClass(const SQLDeleteClass&) = delete;
  SQLDeleteClass& operator=(const SQLDeleteClass&) = delete;

  /// Builds `fQuery` from the current term. Throws "Condition is not met." once the table is destroyed.
  void SetUpDelete();

  /// SetUpDelete, then sends the text. Never waits for a busy file. Throws SQLite's message, or "Condition is not
  /// met." once the table or its database is destroyed, be it by what the term does while it is printed.
  void PerformDelete();

  /// The database of the table; not owned.
  SQLDatabase* fDatabase;
  /// The table whose rows are deleted; not owned.
  SQLTableClass* fTable;
  /// Which rows; null or empty means ALL of them.
  boost::shared_ptr<SQLTermBase> fTerm;
  /// The text built by the latest SetUpDelete.
  std::string fQuery;

 private:
  boost::weak_ptr<void> fTableLifetime;
};

}  // namespace sqldb

#endif  // SQLDB_DELETE_H
