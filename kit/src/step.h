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

// As one of the kit's own statements, which may wait. Returns SQLite's result.
inline int StepAsOwn(const KeptStatement& kept) {
  const Working working(*kept.connection);
  return sqlite3_step(kept.statement);
}

// Runs to the next row. Returns false if there is none left. Throws Error; the statement is then reset.
// REQUIRES: the connection has not let go of it.
inline bool StepOnce(KeptStatement& kept) {
  if (kept.isWriting) kept.connection->fLevels.BeforeWrite(kept.connection->Core());
  const int result = StepAsOwn(kept);
  kept.isRunning = result == SQLITE_ROW;
  kept.isUsed = true;
  kept.isOld = true;
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) ThrowFailedStep(kept, result);
  return false;
}

// Runs a statement that writes from its beginning to its end, and resets it. It may yield rows even so, which are
// passed over: PRAGMA count_changes. Throws Error; the statement is then reset, too.
// REQUIRES: the connection has not let go of it, and it was not stepped since it was reset.
inline void RunToEnd(KeptStatement& kept) {
  kept.connection->fLevels.BeforeWrite(kept.connection->Core());
  for (;;) {
    const int result = StepAsOwn(kept);
    if (result == SQLITE_DONE) break;
    if (result != SQLITE_ROW) ThrowFailedStep(kept, result);
  }
  sqlite3_reset(kept.statement);
}

// The use of a lent statement for one operation: a Lease that does not leave the library, and costs a call less at each
// end.
class Loan {
 public:
  explicit Loan(KeptStatement& lent) noexcept : fKept(lent) {}
  ~Loan() { StatementStore::GiveBack(fKept); }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  sqlite3_stmt* Statement() const noexcept { return fKept.statement; }
  KeptStatement& Kept() const noexcept { return fKept; }
  // See StepOnce.
  bool Step() const { return StepOnce(fKept); }
  // See RunToEnd.
  void Finish() const { RunToEnd(fKept); }

 private:
  KeptStatement& fKept;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_STEP_H
