#ifndef CATALOG_TRANSACTION_H
#define CATALOG_TRANSACTION_H

// Runs a piece of work in a transaction, all or nothing, and clears up after a failure.

#include <stdexcept>
#include <string>

#include <sqlite3.h>

#include "sqldb/database.h"

namespace catalog {

/// Finalizes the statements that failed queries left behind in the connection, except those of live cursors. Left
/// alone, a write that met a lock keeps the connection from ever committing or closing. Returns SQLite's message for
/// the last one that had failed, which is more telling than what the query threw; empty if none had.
std::string FinalizeLeftovers(sqldb::SQLDatabase& database);

/// Rolls back whatever transaction is open, at any depth.
void RollBackEverything(sqldb::SQLDatabase& database);

enum class Ending { kCommit, kRollBack };

/// Calls `work` in a transaction, which may be within another. What it throws rolls back every level at once and is
/// thrown on, as SQLite's own words for it if there are any.
template <typename Work>
void InTransaction(sqldb::SQLDatabase& database, Work work, Ending ending = Ending::kCommit) {
  try {
    database.BeginTransaction();
    work();
    database.EndTransaction(ending == Ending::kCommit, false);
  } catch (...) {
    const std::string reason = FinalizeLeftovers(database);
    RollBackEverything(database);
    if (reason.empty()) throw;
    throw std::runtime_error(reason);
  }
}

}  // namespace catalog

#endif  // CATALOG_TRANSACTION_H
