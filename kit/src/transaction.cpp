#include "sqldb/kit/transaction.h"

#include "compile.h"
#include "connection.h"
#include "sqldb/kit/database.h"

namespace sqldb::kit {

namespace {

using detail::ControlStatements;
using detail::IsOver;
using detail::Levels;
using detail::ThrowFailure;

constexpr ControlStatements::Kind KindOf(Begin begin) { return static_cast<ControlStatements::Kind>(begin); }

static_assert(KindOf(Begin::kDeferred) == ControlStatements::kBeginDeferred);
static_assert(KindOf(Begin::kImmediate) == ControlStatements::kBeginImmediate);
static_assert(KindOf(Begin::kExclusive) == ControlStatements::kBeginExclusive);

}  // namespace

Transaction::Transaction(Database& database, Begin begin) : Transaction(database.Connection(), begin) {}

Transaction::Transaction(const detail::ConnectionPointer& connection, Begin begin) : fConnection(connection.Get()) {
  SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  if (core.fTransactionDepth > 0) {
    if (IsOver(core)) detail::ThrowRolledBack();
    core.BeginTransaction();
    fLevel = core.fTransactionDepth;
    if (levels.fOutermost == 0 || levels.fOutermost > fLevel) levels.fOutermost = fLevel;
    fSavepoints = levels.fSavepoints;
  } else {
    const detail::Working working(*fConnection);
    levels.Begin(core, KindOf(begin));
    fLevel = 1;
  }
  fNumber = levels.fNumber;
  fConnection->AddUser();
}

Transaction::~Transaction() {
  if (!fHasEnded) RollBack();
  fConnection->RemoveUser();
}

void Transaction::Commit() {
  SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  const bool isOpen = !fHasEnded && levels.fNumber == fNumber && core.fTransactionDepth == fLevel;
  if (!isOpen || (levels.fSavepoints != fSavepoints && !IsOver(core))) {
    throw Error("The transaction has ended already, or a part of it has not.", SQLITE_MISUSE);
  }
  if (fLevel > 1) {
    CommitInner(core);
    return;
  }
  const ControlStatements::Kind kind = core.fTransactionOK ? ControlStatements::kCommit : ControlStatements::kRollback;
  // By which the hook knows that the level has ended.
  core.fTransactionDepth = 0;
  int result;
  {
    const detail::Working working(*fConnection);
    result = levels.fStatements.Run(kind);
  }
  if (result != SQLITE_DONE && !IsOver(core)) {
    core.fTransactionDepth = 1;
    ThrowFailure(core, result, kind);
  }
  core.fTransactionOK = true;
  ConnectionRecord::Of(core).fIsBegunByKit = false;
  levels.fOutermost = 0;
  fHasEnded = true;
  // There was none to end.
  if (result == SQLITE_ERROR) detail::ThrowRolledBack();
  if (kind == ControlStatements::kRollback) {
    throw Error("The transaction was rolled back, because a part of it was.", SQLITE_ABORT_ROLLBACK);
  }
  if (result != SQLITE_DONE) ThrowFailure(core, result, kind);
}

void Transaction::CommitInner(SQLDatabase& core) {
  if (IsOver(core)) {
    RollBack();
    detail::ThrowRolledBack();
  }
  core.EndTransaction(true, false);
  Levels& levels = fConnection->fLevels;
  if (levels.fOutermost == fLevel) levels.fOutermost = 0;
  fHasEnded = true;
}

void Transaction::RollBack() noexcept {
  // The end of the connection has rolled back.
  if (!fConnection->IsOpen()) return;
  fHasEnded = true;
  SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  if (levels.fOutermost == fLevel) levels.fOutermost = 0;
  if (levels.fNumber != fNumber || core.fTransactionDepth < fLevel) return;
  if (fLevel == 1) {
    levels.RollBack(core);
  } else {
    core.fTransactionDepth = fLevel - 1;
    core.fTransactionOK = false;
  }
}

Savepoint::Savepoint(Database& database) : Savepoint(database.Connection()) {}

Savepoint::Savepoint(const detail::ConnectionPointer& connection) : fConnection(connection) {
  const SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  if (core.fTransactionDepth <= 0) {
    throw Error("A savepoint is a part of a transaction, and none is open.", SQLITE_MISUSE);
  }
  if (IsOver(core)) detail::ThrowRolledBack();
  for (const auto needed :
       {ControlStatements::kSavepoint, ControlStatements::kRelease, ControlStatements::kRollbackTo}) {
    levels.fStatements.Provide(core.fConnection, needed);
  }
  const int result = levels.fStatements.Run(ControlStatements::kSavepoint);
  if (result != SQLITE_DONE) ThrowFailure(core, result, ControlStatements::kSavepoint);
  fLevel = ++levels.fSavepoints;
  fNumber = levels.fNumber;
  fDepth = core.fTransactionDepth;
  fWasOK = core.fTransactionOK;
}

bool Savepoint::IsOpen() const noexcept {
  const Levels& levels = fConnection->fLevels;
  return !fHasEnded && levels.fNumber == fNumber && levels.fSavepoints >= fLevel;
}

void Savepoint::Release() {
  const SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  if (!IsOpen() || levels.fSavepoints != fLevel || core.fTransactionDepth != fDepth) {
    throw Error("The savepoint has ended already, or a part of it has not.", SQLITE_MISUSE);
  }
  if (IsOver(core)) {
    fHasEnded = true;
    --levels.fSavepoints;
    detail::ThrowRolledBack();
  }
  const int result = levels.fStatements.Run(ControlStatements::kRelease);
  if (result != SQLITE_DONE) ThrowFailure(core, result, ControlStatements::kRelease);
  fHasEnded = true;
  --levels.fSavepoints;
}

Savepoint::~Savepoint() {
  if (!fConnection->IsOpen() || !IsOpen()) return;
  SQLDatabase& core = fConnection->Core();
  Levels& levels = fConnection->fLevels;
  if (core.fTransactionDepth >= fDepth && !IsOver(core)) {
    core.fTransactionDepth = fDepth;
    core.fTransactionOK = Undo() && fWasOK;
  }
  levels.fSavepoints = fLevel - 1;
}

// Those inside it as well.
bool Savepoint::Undo() noexcept {
  ControlStatements& statements = fConnection->fLevels.fStatements;
  bool isUndone = true;
  for (std::int32_t level = fConnection->fLevels.fSavepoints; level >= fLevel; --level) {
    if (statements.Run(ControlStatements::kRollbackTo) != SQLITE_DONE) isUndone = false;
    if (statements.Run(ControlStatements::kRelease) != SQLITE_DONE) isUndone = false;
  }
  return isUndone;
}

}  // namespace sqldb::kit
