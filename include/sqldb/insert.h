#ifndef SQLDB_INSERT_H
#define SQLDB_INSERT_H

// An insert writes one row into one table per execution; a replace is the same with the verb REPLACE.
//
// Order of calls: SQLTableClass::NewInsert (or NewReplace), fill `fColumns` and `fValues` in matching order,
// PerformInsert(true), fill `fValues` for the next row, and so on. Or keep values whose contents can be set anew, and
// call PerformInsert(false) for every row.

#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/database.h"
#include "sqldb/export.h"

namespace sqldb {

class SQLColumnBase;
class SQLTableClass;
class SQLValueBase;
class TextStream;

/// One INSERT statement. The lists are checked neither for their lengths nor for being empty; SQLite refuses what is
/// wrong.
///
/// Once the table is destroyed, every operation throws "Condition is not met." and leaves `fQuery` as it is; so does
/// PerformInsert when a value destroys the table while it is printed. Once only the database is, PerformInsert throws
/// that, with the text kept as after any failed send. REQUIRES: no entry of the lists is null.
class SQLDB_EXPORT SQLInsertClass {
 public:
  /// A statement on `table` without columns and values; see SQLTableClass::NewInsert.
  explicit SQLInsertClass(SQLTableClass& table);

  /// Leaves the table's list, if the table still lives.
  virtual ~SQLInsertClass();

  SQLInsertClass(const SQLInsertClass&) = delete;
  SQLInsertClass& operator=(const SQLInsertClass&) = delete;

  /// Appends the statement's text to `fQuery`. If a value's Print throws, `fQuery` is as it was before.
  void SetupInsert();

  /// Builds the text, sends it with every value offered its binding, empties `fQuery`, and erases `fValues` if
  /// `clearValues` is true. Never waits for a busy file.
  ///
  /// Throws SQLite's message, or what a value's Print or BindingOpportunity throws. The values are then kept, and
  /// unless a Print threw, so is the text in `fQuery`: the next call sends it again with its own text right behind
  /// it, which SQLite refuses unless the application wrote a semicolon in between. To give the failed statement up
  /// instead, call fQuery.str("").
  void PerformInsert(bool clearValues);

  /// The table that is written to; not owned.
  SQLTableClass& fTable;
  /// "INSERT", or "REPLACE" in a SQLReplaceClass.
  std::string fVerb;
  /// The text from SetupInsert until a send succeeds. Values are printed with its formatting.
  std::ostringstream fQuery;
  /// The columns to fill, in the order of the statement.
  std::vector<boost::shared_ptr<SQLColumnBase>> fColumns;
  /// One value for each column, in the same order.
  std::vector<boost::shared_ptr<SQLValueBase>> fValues;

 private:
  void PrintStatement(TextStream& text);

  boost::weak_ptr<void> fTableLifetime;
};

/// One REPLACE statement: a row that collides on a unique key is replaced.
class SQLDB_EXPORT SQLReplaceClass : public SQLInsertClass {
 public:
  /// A statement on `table` without columns and values; see SQLTableClass::NewReplace.
  explicit SQLReplaceClass(SQLTableClass& table);
  ~SQLReplaceClass() override;

  /// PerformInsert, under its own name.
  void PerformReplace(bool clearValues);
};

}  // namespace sqldb

/// Presents the values of an insert to each statement compiled from its text.
class SQLDB_EXPORT SQLInsertBindingCallback : public sqldb::BindingCallback {
 public:
  /// REQUIRES: `insert` outlives the object.
  explicit SQLInsertBindingCallback(sqldb::SQLInsertClass* insert);
  ~SQLInsertBindingCallback() override;

  /// Calls each value's BindingOpportunity, in order. Walks a copy of the list, which binding code may change.
  void BindingOpportunity(sqlite3_stmt* statement) const override;

  /// The insert; not owned.
  sqldb::SQLInsertClass* fInsert;
};

/// Prints values, one a call, with "," before all but the first.
class SQLDB_EXPORT AddValueToQuery {
 public:
  /// REQUIRES: `stream` outlives the object.
  explicit AddValueToQuery(std::ostream* stream);
  /// Prints one value.
  void operator()(boost::shared_ptr<sqldb::SQLValueBase> value);

  /// Where to; not owned.
  std::ostream* fStream;
  /// False once one has been printed.
  bool fFirst = true;
};

/// Offers a statement to values, one a call.
class SQLDB_EXPORT PresentBindingOpportunity {
 public:
  /// REQUIRES: `statement` outlives the object.
  explicit PresentBindingOpportunity(sqlite3_stmt* statement);
  /// Calls the value's BindingOpportunity.
  void operator()(boost::shared_ptr<sqldb::SQLValueBase> value) const;

  /// The statement; not owned.
  sqlite3_stmt* fStatement;
};

#endif  // SQLDB_INSERT_H
