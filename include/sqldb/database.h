#ifndef SQLDB_DATABASE_H
#define SQLDB_DATABASE_H

// One SQLDatabase stands for one SQLite 3 database file and the one connection kept to it. Everything else reaches
// SQLite through it.
//
// Order of calls: construct, Open, make tables and selects, work, Close or destroy.
//
// A database and everything made from it are used by one thread at a time; nothing is locked. Different databases may
// be used by different threads at the same time, on one file too. What all databases share is safe: the two counters
// from which cursors and values draw their numbers advance atomically, and SQLEmptyTerm::EmptyTerm never changes. A
// column, term or value that several threads use at the same time is not changed meanwhile.
// REQUIRES: for several threads, SQLite is built for them: sqlite3_threadsafe() is not 0.

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "sqldb/export.h"

struct sqlite3;
struct sqlite3_stmt;

namespace sqldb {

class ConnectionRecord;
class SQLCursorBase;
class SQLSelectClass;
class SQLTableClass;
struct Spares;

/// Consumes the rows of a query. Passed as a bare pointer for the duration of one call, never kept or deleted.
class SQLDB_EXPORT QueryCallback {
 public:
  virtual ~QueryCallback();

  /// Called once per row while `statement` stands on it; read the row with SQLite's column functions. Returns true to
  /// ask for the next row, false to end the whole query text. What it throws passes through the query unchanged; the
  /// statement is then not finalized.
  /// REQUIRES: neither finalizes `statement` nor destroys the database.
  virtual bool ProcessRow(sqlite3_stmt* statement) = 0;
};

/// Binds parameters. Passed as a bare pointer for the duration of one call, never kept or deleted.
class SQLDB_EXPORT BindingCallback {
 public:
  virtual ~BindingCallback();

  /// Called once per compiled statement of the text, before its first step. Must cope with a statement that has none
  /// of its parameters, and with a null one (a tail of blanks or a comment compiles to none). What it throws passes
  /// through the query unchanged; the statement is then not finalized.
  /// REQUIRES: neither finalizes `statement` nor destroys the database.
  virtual void BindingOpportunity(sqlite3_stmt* statement) const = 0;
};

/// A database file, its connection, and the registries of what was made on it.
///
/// Every failure of the library is a thrown std::runtime_error; beside it only std::bad_alloc passes, and what the
/// application's own callbacks, cursors, terms, values and columns throw. A failure that SQLite reports carries the
/// text of sqlite3_errmsg and nothing else. After a failed step that is mostly "SQL logic error": the telling text
/// exists only once the statement is finalized. A database without a connection (never opened, or closed) fails with
/// "out of memory", which is SQLite's text for that.
///
/// Tables, selects and cursors may outlive their database, but only to be destroyed: whatever else would reach it
/// throws "Condition is not met.".
class SQLDB_EXPORT SQLDatabase {
 public:
  /// Remembers `path` (a file name as sqlite3_open takes it) and `readOnly`. Opens nothing.
  SQLDatabase(const std::string& path, bool readOnly);

  /// Closes the connection if it is open, then lets go of the tables. Throws nothing. Statements left behind by a
  /// failed query, or held by a living cursor, make SQLite refuse the close; the connection then stays allocated.
  ~SQLDatabase();

  SQLDatabase(const SQLDatabase&) = delete;
  SQLDatabase& operator=(const SQLDatabase&) = delete;

  /// Opens the file, creating it if it is missing. An earlier connection is replaced without being closed. Throws
  /// "Error encountered: N.\n" with SQLite's result code N; the object is then unchanged, and the handle that SQLite
  /// may have made is left behind.
  void Create();
  /// The same as Create.
  void Open();
  /// The same as Create.
  void CommonOpen();

  /// Closes the connection and reports nothing. SQLite refuses while a statement is not finalized: `fIsOpen` is false
  /// all the same, the connection still works, and a later Close may succeed.
  ///
  /// An open transaction is rolled back by SQLite, and its levels go on being counted: after the next Open,
  /// BeginTransaction would send nothing, and each write stand alone. So end all levels before, or set
  /// `fTransactionDepth` to 0 and `fTransactionOK` to true after.
  void Close();

  /// Registers a collating sequence for UTF-8 text on the open connection; a later connection must be given it again.
  /// `compare` gets a null pointer, the first string's length in bytes and its text (not zero-terminated), then the
  /// second's, and returns less than, equal to or more than 0. A null `compare` removes the sequence. Returns
  /// SQLite's result code, 0 for success; 21 without a connection. Throws nothing.
  /// REQUIRES: `compare` throws nothing and stays callable for as long as the connection is open.
  int AddCollation(const std::string& name, int (*compare)(void*, int, const void*, int, const void*));

  /// Runs the statements of `sql` one after the other; an empty text does nothing. Each is compiled, offered to
  /// `binding`, stepped and finalized before the next is compiled. `callback` gets every row until it returns false,
  /// which ends the whole text; without one, a statement is stepped once and its first row dropped. Either may be
  /// null.
  ///
  /// Never waits: a busy or locked file is an error like any other. Throws SQLite's message. What was done before the
  /// failure stays done. A statement that failed to step, or whose `callback` or `binding` threw, stays allocated:
  /// Close is then refused. If it found the file busy or `callback` threw, the connection also keeps the lock of what
  /// it runs next, so that no other connection can commit, and if it was a write, commits nothing outside a transaction
  /// from then on, without a further error, until the application finalizes it (ReleaseLeftovers of the kit does;
  /// without the kit, sqlite3_next_stmt on `fConnection` finds it; spare those of living cursors, and those that
  /// SQLite's modules such as full-text search keep there). Do so at once: outside a transaction, finalizing a write
  /// that found the file busy undoes what was written since.
  ///
  /// After another connection has changed the schema, the next statement fails with "SQL logic error" and does nothing;
  /// finalizing it gives SQLITE_SCHEMA, and sent once more it works.
  ///
  /// A blank, a comment or a zero byte after the last semicolon starts a statement that cannot be stepped, hence an
  /// error.
  /// REQUIRES: `sql` stays unchanged during the call.
  void SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding);

  /// Sends "BEGIN TRANSACTION", or, inside a transaction, only counts one more level. Throws SQLite's message; the
  /// depth is then unchanged.
  void BeginTransaction();

  /// Ends one level, or all of them with `endAll`. The end of the outermost level sends "COMMIT TRANSACTION", or
  /// "ROLLBACK TRANSACTION" once any level ended with `commit` false. Throws SQLite's message; the depth is by then 0
  /// already, the SQLite transaction may still be open, and after a failed rollback the next transaction will be
  /// rolled back too.
  ///
  /// SQLite itself ends the transaction on some failures, a full disk among them. Nothing tells the database object:
  /// end all levels then with `commit` false, ignore SQLite's complaint, and set `fTransactionOK` to true.
  /// REQUIRES: a level to end. Without one, `endAll` sends its COMMIT or ROLLBACK all the same, of which SQLite
  /// complains; a single end lowers the depth to -1, and the next BeginTransaction sends nothing.
  void EndTransaction(bool commit, bool endAll);

  /// Sends "PRAGMA synchronous = NORMAL" (`sync` true) or "PRAGMA synchronous = OFF". OFF survives the death of the
  /// process, but a loss of power may corrupt the file. Throws SQLite's message, always so inside a transaction.
  void SetSynchronizationLevel(bool sync);

  /// Asks SQLite to explain every statement of `sql` and writes the names of the operations it would run to
  /// std::clog, as `fExplainLevel` says. Runs nothing. Throws SQLite's message; nothing is then explained. As in
  /// SendQuery, anything after the last semicolon is one more statement.
  ///
  /// std::clog is one for the whole process. Each text is written to it by one insertion, so that those of several
  /// threads do not mix.
  /// REQUIRES: no other thread exchanges the buffer of std::clog meanwhile. If it is not the one that it has from the
  /// start, and several threads write to it, it may be written to by several threads at once.
  void ExplainQuery(const std::string& sql);

  /// Makes a table object named `name` and registers it; names are not compared. Sends no SQL: call the table's
  /// Create, or Initialize if the file has the table already. The database shares the ownership.
  boost::shared_ptr<SQLTableClass> NewTable(const std::string& name);

  /// The first registered table with exactly this name. Throws "Condition is not met." if there is none.
  boost::shared_ptr<SQLTableClass> GetTable(const std::string& name);

  /// The registered pointer to `table`. Throws "Condition is not met." if it is not registered: made without
  /// NewTable, or dropped.
  boost::shared_ptr<SQLTableClass> GetTableFromTableClass(SQLTableClass* table);

  /// Drops the table from the file, then from the registry. Throws SQLite's message; the table then stays registered.
  /// REQUIRES: `table` is not null and is registered here. Otherwise DROP TABLE goes to the table's own database, and
  /// the table registered last is let go instead.
  void DropTable(boost::shared_ptr<SQLTableClass> table);

  /// A new select over `table` that delivers at most `limit` rows, 0 meaning all. The caller owns it.
  boost::shared_ptr<SQLSelectClass> NewSelect(boost::shared_ptr<SQLTableClass> table, std::uint32_t limit);

  /// Called by the destructor of a select to leave the list below. Does nothing while the database is being destroyed.
  /// REQUIRES: the object is listed. Otherwise the last entry is taken off instead.
  void RemoveSelect(SQLSelectClass* select);
  /// The same for a cursor.
  void RemoveCursor(SQLCursorBase* cursor);

  /// The connection, for SQLite's own functions; null until the first open. Stale after a Close.
  sqlite3* fConnection = nullptr;
  /// The file name given to the constructor.
  std::string fPath;
  /// The tables made by NewTable, in that order.
  std::vector<boost::shared_ptr<SQLTableClass>> fTables;
  /// The live selects, in order of construction; not owned.
  std::vector<SQLSelectClass*> fSelects;
  /// The live cursors, in order of construction; not owned.
  std::vector<SQLCursorBase*> fCursors;
  /// How many BeginTransaction calls are not yet matched by an EndTransaction; negative after more ends than begins.
  std::int32_t fTransactionDepth = 0;
  /// False once a level asked for a rollback, until a ROLLBACK has gone through.
  bool fTransactionOK = true;
  /// True between a successful open and Close.
  bool fIsOpen = false;
  /// Set as the first act of the destructor.
  bool fDestroying = false;
  /// The constructor's flag. Only reported, by SQLTableClass::IsWritable; it restricts nothing.
  bool fReadOnly;
  /// Non-zero: ExplainQuery writes a line about its failure to std::clog before it throws. Default 0.
  std::uint8_t fLogErrors = 0;
  /// 0, the default: ExplainQuery does nothing. 1: it writes every explanation. Any other value: it writes those in
  /// which SQLite sorts, for want of an index that yields the order.
  std::uint8_t fExplainLevel = 0;

 private:
  friend class ConnectionRecord;
  friend class SQLCursorBase;
  friend class SQLSelectClass;
  friend class SQLStepCursorBase;
  friend class SQLTableClass;

  // What to give to SQLite for `connection`: null once a Close of it was accepted.
  sqlite3* Unclosed(sqlite3* connection) const { return connection == fClosedConnection ? nullptr : connection; }
  sqlite3* Connection() const { return Unclosed(fConnection); }
  [[noreturn]] void ThrowMessageOf(sqlite3* connection) const;
  [[noreturn]] void ThrowExplainError(sqlite3* connection, const char* ending) const;

  sqlite3* fClosedConnection = nullptr;
  boost::shared_ptr<Spares> fSpares;
  boost::shared_ptr<ConnectionRecord> fRecord;
  // What hangs on the database watches this.
  boost::shared_ptr<void> fLifetime;
};

}  // namespace sqldb

/// Throws std::runtime_error "Error encountered: N.\n", with `code` in decimal for N.
[[noreturn]] SQLDB_EXPORT void ThrowError(int code);

/// Throws std::runtime_error "Condition is not met." if `condition` is true.
SQLDB_EXPORT void ThrowIf(bool condition);

#endif  // SQLDB_DATABASE_H
