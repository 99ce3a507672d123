#include "transaction.h"

#include <algorithm>

#include "sqldb/cursor.h"

namespace catalog {

namespace {

bool BelongsToCursor(const sqldb::SQLDatabase& database, const sqlite3_stmt* statement) {
  return std::any_of(database.fCursors.begin(), database.fCursors.end(), [statement](sqldb::SQLCursorBase* cursor) {
    const auto* const stepping = dynamic_cast<const sqldb::SQLStepCursorBase*>(cursor);
    return stepping != nullptr && !stepping->fFinalized && stepping->fStatement == statement;
  });
}

}  // namespace

std::string FinalizeLeftovers(sqldb::SQLDatabase& database) {
  std::string reason;
  sqlite3_stmt* statement = sqlite3_next_stmt(database.fConnection, nullptr);
  while (statement != nullptr) {
    sqlite3_stmt* const next = sqlite3_next_stmt(database.fConnection, statement);
    if (!BelongsToCursor(database, statement) && sqlite3_finalize(statement) != SQLITE_OK) {
      reason = sqlite3_errmsg(database.fConnection);
    }
    statement = next;
  }
  return reason;
}

void RollBackEverything(sqldb::SQLDatabase& database) {
  if (sqlite3_get_autocommit(database.fConnection) == 0) {
    database.EndTransaction(false, true);
  } else {
    // SQLite has rolled back by itself, as it does when the disk is full, or never began.
    database.fTransactionDepth = 0;
    database.fTransactionOK = true;
  }
}

}  // namespace catalog
