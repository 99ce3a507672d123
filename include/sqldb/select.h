#ifndef SQLDB_SELECT_H
#define SQLDB_SELECT_H

// A select builds the text of one SELECT over one table and runs it through a cursor.
//
// Order of calls: SQLDatabase::NewSelect, add columns with <<, assign the public members, then PrepareSelect (and
// step the cursor) or PerformSelect (the cursor's ProcessRow gets every row). Either may be repeated, with a new
// cursor, at the price that SetupSelect names.

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/database.h"
#include "sqldb/export.h"

namespace sqldb {

class SQLColumnBase;
class SQLCursorBase;
class SQLTableClass;
class SQLTermBase;

/// One entry of an ORDER BY list.
struct OrderItem {
  /// What to sort by.
  boost::shared_ptr<SQLColumnBase> fColumn;
  /// Zero: descending.
  std::uint8_t fAscending = 1;
};

/// One SELECT statement. Made by SQLDatabase::NewSelect and listed in the database's `fSelects` while it lives.
///
/// Checks nothing: a text that SQLite refuses is reported by the cursor.
class SQLDB_EXPORT SQLSelectClass {
 public:
  /// Deletes the callback, which lets go of the cursor, and leaves the database's list, if the database still lives.
  ~SQLSelectClass();

  SQLSelectClass(const SQLSelectClass&) = delete;
  SQLSelectClass& operator=(const SQLSelectClass&) = delete;

  /// Builds `fQuery`, makes a new `fCallback` for the cursor, and gives the cursor the result columns. The select
  /// keeps the cursor alive until it is destroyed, and a step cursor its statement, which makes SQLite refuse a Close
  /// so long.
  ///
  /// An earlier callback is deliberately not deleted, because a query may still be running on it: it, its cursor and
  /// that cursor's statement stay for the rest of the process. So make a new select rather than prepare one twice.
  /// REQUIRES: `cursor`, `fTable` and the entries of `fColumns` and `fOrder` are not null.
  void SetupSelect(boost::shared_ptr<SQLCursorBase> cursor);

  /// SetupSelect, then the cursor's PrepareToQuery. Throws what that throws.
  void PrepareSelect(boost::shared_ptr<SQLCursorBase> cursor);

  /// SetupSelect, then the cursor's SendQuery: every row goes to the cursor's ProcessRow until that returns false.
  /// Never waits for a busy file. Throws what SendQuery and ProcessRow throw. ProcessRow may run this select again,
  /// with another cursor.
  /// REQUIRES: the select lives until the call returns.
  void PerformSelect(boost::shared_ptr<SQLCursorBase> cursor);

  /// The database whose list holds the select; not owned.
  SQLDatabase* fDatabase;
  /// The table after FROM.
  boost::shared_ptr<SQLTableClass> fTable;
  /// The result columns, in order. A column's name may be any expression.
  std::vector<boost::shared_ptr<SQLColumnBase>> fColumns;
  /// The condition; null or empty for every row.
  boost::shared_ptr<SQLTermBase> fTerm;
  /// The ORDER BY list; empty for no order.
  std::vector<OrderItem> fOrder;
  /// True: SELECT DISTINCT.
  bool fDistinct = false;
  /// The callback of the latest SetupSelect; owned.
  QueryCallback* fCallback = nullptr;
  /// The largest number of rows; 0 for no limit.
  std::uint32_t fLimit;
  /// The number of rows to skip; 0 for none.
  std::uint32_t fOffset = 0;
  /// The text built by the latest SetupSelect.
  std::string fQuery;

 private:
  friend class SQLDatabase;

  SQLSelectClass(SQLDatabase* database, boost::shared_ptr<SQLTableClass> table, std::uint32_t limit);

  void SetUp(const boost::shared_ptr<SQLCursorBase>& cursor);

  boost::weak_ptr<void> fDatabaseLifetime;
};

/// Appends a result column and returns `select`, so that calls chain.
SQLDB_EXPORT boost::shared_ptr<SQLSelectClass>& operator<<(boost::shared_ptr<SQLSelectClass>& select,
                                                           boost::shared_ptr<SQLColumnBase> column);

}  // namespace sqldb

/// Forwards each row to a cursor's ProcessRow, and shares the cursor's ownership.
class SQLDB_EXPORT SelectCallback : public sqldb::QueryCallback {
 public:
  /// Shares `cursor`.
  explicit SelectCallback(boost::shared_ptr<sqldb::SQLCursorBase> cursor);
  ~SelectCallback() override;

  /// Returns what the cursor's ProcessRow returns.
  bool ProcessRow(sqlite3_stmt* statement) override;

  /// What the rows go to.
  boost::shared_ptr<sqldb::SQLCursorBase> fCursor;
};

#endif  // SQLDB_SELECT_H
