#ifndef SQLDB_TABLE_H
#define SQLDB_TABLE_H

// A table declares its columns, creates, drops and indexes itself in the database file, answers the commonest
// questions about its rows, and makes the statements that write to it.
//
// Order of calls: SQLDatabase::NewTable, AddColumn for each column, Create (a new table) or Initialize (one that the
// file has already), work.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/export.h"

namespace sqldb {

class BindingCallback;
class QueryCallback;
class SQLColumnBase;
class SQLDatabase;
class SQLDeleteClass;
class SQLInsertClass;
class SQLReplaceClass;
class SQLTermBase;
class SQLUpdateClass;
class TextStream;

/// One table of one database. Names are written into SQL unquoted and unchecked: they are code, never input.
///
/// What sends SQL throws SQLite's message, or "Condition is not met." once the database is destroyed; IsWritable too
/// throws the latter.
class SQLDB_EXPORT SQLTableClass {
 public:
  /// A table that is not registered, and for which CountRecords and HasTerm therefore throw; see
  /// SQLDatabase::NewTable.
  SQLTableClass(SQLDatabase& database, const std::string& name);

  /// Sends nothing: the table stays in the file.
  ~SQLTableClass();

  SQLTableClass(const SQLTableClass&) = delete;
  SQLTableClass& operator=(const SQLTableClass&) = delete;

  /// Declares that the file has the table already. Sends nothing.
  void Initialize();

  /// False if the database was constructed as read-only. Only reported: no write is blocked.
  bool IsWritable() const;

  /// SQLDatabase::SendQuery.
  void SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding);

  /// Files the column under its name and ranks it last in CREATE TABLE. A column already filed under that name is
  /// replaced. The column's `fTable` is not looked at. After 65,536 columns the ranks start again at 0.
  /// REQUIRES: `column` is not null, and its name does not change while it is filed.
  void AddColumn(boost::shared_ptr<SQLColumnBase> column);

  /// True when a column is filed under exactly this name.
  bool HasColumn(const std::string& name) const;

  /// The column filed under exactly this name. Throws "Condition is not met." if there is none.
  boost::shared_ptr<SQLColumnBase> GetColumn(const std::string& name);

  /// Sends CREATE TABLE with the columns in the order of AddColumn. On failure `fCreated` keeps its value.
  void Create();

  /// Sends DROP TABLE. The columns stay filed, so that Create works again. On failure `fCreated` keeps its value.
  void Drop();

  /// Sends CREATE INDEX for the index TABLE_COLUMN. The name is not looked up among the columns.
  void CreateIndexForColumn(const std::string& columnName);

  /// Deletes the rows for which `term` holds; ALL of them if it is null or empty. Never waits for a busy file. A term
  /// that lets go of the table's last owner while it is printed makes it throw "Condition is not met.", with nothing
  /// deleted.
  void DeleteRecords(boost::shared_ptr<SQLTermBase> term);

  /// How many rows `term` holds for; all of them if it is null or empty. Counts beyond 32 bits are not supported.
  /// Waits for a busy file as SQLStepCursor::Step does. Throws "Condition is not met." if the table is not registered
  /// with its database.
  std::uint32_t CountRecords(boost::shared_ptr<SQLTermBase> term);

  /// True when `term` holds for at least one row; null or empty, when there is any row. Waits and throws as
  /// CountRecords does.
  bool HasTerm(boost::shared_ptr<SQLTermBase> term);

  /// A new insert on this table, owned by the caller and filed nowhere. It may outlive the table, but only to be
  /// destroyed.
  boost::shared_ptr<SQLInsertClass> NewInsert();
  /// A new replace, owned in the same way.
  boost::shared_ptr<SQLReplaceClass> NewReplace();
  /// A new update, owned in the same way.
  boost::shared_ptr<SQLUpdateClass> NewUpdate();
  /// A new delete of the rows for which `term` holds, owned in the same way.
  boost::shared_ptr<SQLDeleteClass> NewDelete(boost::shared_ptr<SQLTermBase> term);

  /// Called by the destructor of an insert to leave the list below. Does nothing if it is not listed or the table is
  /// being destroyed.
  void RemoveInsert(SQLInsertClass* statement);
  /// The same for an update.
  void RemoveUpdate(SQLUpdateClass* statement);

  /// The database the table lives in; not owned.
  SQLDatabase& fDatabase;
  /// The name as written into SQL.
  std::string fName;
  /// True after Create or Initialize, false before and after Drop. Nothing tests it.
  bool fCreated = false;
  /// The columns by name.
  std::map<std::string, boost::shared_ptr<SQLColumnBase>> fColumns;
  /// Inserts that the application filed here; they live until RemoveInsert or the table's end. The library adds none.
  std::vector<boost::shared_ptr<SQLInsertClass>> fInserts;
  /// The same for updates.
  std::vector<boost::shared_ptr<SQLUpdateClass>> fUpdates;
  /// The rank that the next column gets; wraps to 0 after 65,535.
  std::uint16_t fNextSerial = 0;
  /// Set as the first act of the destructor.
  bool fDestroying = false;

 private:
  friend class SQLDeleteClass;
  friend class SQLInsertClass;
  friend class SQLSelectClass;
  friend class SQLUpdateClass;

  SQLDatabase& Database() const;

  boost::weak_ptr<void> fDatabaseLifetime;
  // Where the texts of the table's statements are built.
  boost::shared_ptr<TextStream> fText;
  // What hangs on the table watches this.
  boost::shared_ptr<void> fLifetime;
};

}  // namespace sqldb

/// Finds a table by its exact name.
class SQLDB_EXPORT TableNameIs {
 public:
  /// Looks for `name`.
  explicit TableNameIs(const std::string& name);
  /// True if the table has the name.
  bool operator()(const boost::shared_ptr<sqldb::SQLTableClass>& table) const;

  /// The name looked for.
  std::string fName;
};

/// Finds the shared pointer that holds a table object.
class SQLDB_EXPORT TableClassIs {
 public:
  /// Looks for `table`.
  explicit TableClassIs(sqldb::SQLTableClass* table);
  /// True if the pointer holds the table.
  bool operator()(const boost::shared_ptr<sqldb::SQLTableClass>& table) const;

  /// The table looked for; not owned.
  sqldb::SQLTableClass* fTable;
};

#endif  // SQLDB_TABLE_H
