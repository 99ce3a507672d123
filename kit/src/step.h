#ifndef SQLDB_KIT_SRC_STEP_H
#define SQLDB_KIT_SRC_STEP_H

#include <sqlite3.h>

#include "connection.h"
#include "statement_store.h"

namespace sqldb::kit::detail {

// Throws the Error of a statement whose database has been closed.
[[noreturn]] void ThrowLetGo(const KeptStatement& kept);
// Throws the Error of a step, and resets the statement.
[[noreturn]] void ThrowFailedStep(KeptStatement& kept, int result);

// Runs to the next row. Returns false if there is none left. Throws Error; the statement is then reset.
// REQUIRES: the connection has not let go of it.
inline bool StepOnce(KeptStatement& kept) {
  if (kept.isWriting) kept.connection->fLevels.BeforeWrite(kept.connection->Core());
  int result;
  {
    const Working working(*kept.connection);
    result = sqlite3_step(kept.statement);
  }
  kept.isRunning = result == SQLITE_ROW;
  kept.isUsed = true;
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) ThrowFailedStep(kept, result);
  return false;
}

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_STEP_H
