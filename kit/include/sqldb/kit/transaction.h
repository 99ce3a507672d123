#ifndef SQLDB_KIT_TRANSACTION_H
#define SQLDB_KIT_TRANSACTION_H

// A transaction that is rolled back unless it is committed.
//
//   sqldb::kit::Transaction transaction(database);
//   insert->PerformInsert(true);
//   log->PerformInsert(true);
//   transaction.Commit();
//
// It repeats nothing: see retry.h for work on a file that others write to.

#include <cstdint>

#include <sqlite3.h>

#include "sqldb/database.h"
#include "sqldb/kit/failure.h"

namespace sqldb::kit {

namespace detail {

/// True when SQLite has no transaction open: none was begun, or SQLite has rolled it back by itself.
inline bool IsOver(const SQLDatabase& database) {
  sqlite3* const connection = ConnectionOf(database);
  return connection == nullptr || sqlite3_get_autocommit(connection) != 0;
}

/// Rolls back all levels, unless SQLite has done so by itself. Throws Error if the transaction is still open then; its
/// veto stands.
inline void FinishRollback(SQLDatabase& database) {
  if (!IsOver(database)) {
    try {
      Run(database, [&] { database.EndTransaction(false, true); });
    } catch (const Error&) {
      if (!IsOver(database)) throw;
    }
  }
  database.fTransactionOK = true;
}

}  // namespace detail

/// When a transaction takes the write lock, of which there is one per file.
enum class WriteLock {
  /// With its first write, which may then find the file busy: in vain, if the transaction has read before and another
  /// one does the same.
  kWhenNeeded,
  /// When it begins. Then only the beginning and the COMMIT can find the file busy.
  kAtOnce
};

/// One level of a database's transaction; the outermost is SQLite's. Levels count together with the database's own
/// BeginTransaction and EndTransaction, and end in the reverse order of their beginning.
class Transaction {
 public:
  /// Begins a transaction or, inside one, another level of it, for which `lock` means nothing. Throws Error; the
  /// database is then as before. It does so inside a transaction that SQLite has rolled back by itself, and inside one
  /// that the application began with a query of its own ("BEGIN").
  ///
  /// A rollback that failed before is made up for first.
  /// REQUIRES: `database` outlives the object.
  explicit Transaction(SQLDatabase& database, WriteLock lock = WriteLock::kWhenNeeded) : fDatabase(database) {
    if (database.fTransactionDepth > 0) {
      if (detail::IsOver(database)) throw RolledBackBySQLite();
      database.BeginTransaction();
    } else {
      Begin(lock);
    }
    fLevel = database.fTransactionDepth;
  }

  /// Rolls the level back unless it was committed, along with the levels inside it that have not ended. Throws
  /// nothing: should SQLite refuse even a ROLLBACK and keep the transaction open, the next Transaction repeats it.
  ~Transaction() { RollBack(); }

  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Ends the level. The end of the outermost commits what was written, or if a level inside was rolled back, rolls
  /// all back and throws an Error with the code SQLITE_ABORT_ROLLBACK. It throws that, too, if SQLite has rolled the
  /// transaction back by itself, which it does when the disk is full, for instance.
  ///
  /// On any other failure of SQLite throws Error, and if the transaction is still open, the level is, too: Commit may
  /// be called again, which helps if the file was busy. Throws an Error with SQLITE_MISUSE, and does nothing, if the
  /// level has ended or one inside it has not.
  void Commit() {
    if (fHasEnded || fDatabase.fTransactionDepth != fLevel) {
      throw Error("The transaction has ended already, or a part of it has not.", SQLITE_MISUSE);
    }
    if (detail::IsOver(fDatabase)) {
      RollBack();
      throw RolledBackBySQLite();
    }
    const bool isVetoed = fLevel == 1 && !fDatabase.fTransactionOK;
    try {
      Run(fDatabase, [this] { fDatabase.EndTransaction(true, false); });
    } catch (...) {
      // The database object holds every failed end for an end.
      fDatabase.fTransactionDepth = fLevel;
      if (detail::IsOver(fDatabase)) RollBack();
      throw;
    }
    fHasEnded = true;
    if (isVetoed) {
      throw Error("The transaction was rolled back, because a part of it was.", SQLITE_ABORT_ROLLBACK);
    }
  }

 private:
  static Error RolledBackBySQLite() { return Error("SQLite has rolled the transaction back.", SQLITE_ABORT_ROLLBACK); }

  void Begin(WriteLock lock) {
    if (!fDatabase.fTransactionOK) detail::FinishRollback(fDatabase);
    // Below zero, nothing would be sent.
    fDatabase.fTransactionDepth = 0;
    if (lock == WriteLock::kWhenNeeded) {
      Run(fDatabase, [this] { fDatabase.BeginTransaction(); });
    } else {
      Run(fDatabase, [this] { fDatabase.SendQuery("BEGIN IMMEDIATE TRANSACTION", nullptr, nullptr); });
      fDatabase.fTransactionDepth = 1;
    }
  }

  void RollBack() noexcept {
    if (fHasEnded || fDatabase.fTransactionDepth < fLevel) return;
    fHasEnded = true;
    fDatabase.fTransactionDepth = fLevel - 1;
    fDatabase.fTransactionOK = false;
    if (fLevel > 1) return;
    try {
      detail::FinishRollback(fDatabase);
    } catch (...) {
      // The veto stands, by which the next Transaction knows.
    }
  }

  SQLDatabase& fDatabase;
  std::int32_t fLevel = 0;
  bool fHasEnded = false;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TRANSACTION_H
