#include "levels.h"

#include "compile.h"
#include "database/connection_record.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

// Called by SQLite before anything is committed; what is not 0 makes it roll back instead. An end of the levels has
// lowered the depth by then.
int MayNotCommit(void* database) {
  const auto& core = *static_cast<const SQLDatabase*>(database);
  bool& wasRolledBack = ConnectionRecord::Of(core).fWasRolledBack;
  if (core.fTransactionDepth <= 0) wasRolledBack = false;
  return wasRolledBack ? 1 : 0;
}

void NoteRollback(void* database) {
  const auto& core = *static_cast<const SQLDatabase*>(database);
  ConnectionRecord::Of(core).fWasRolledBack = core.fTransactionDepth > 0;
}

}  // namespace

const char* ControlStatements::TextOf(Kind kind) noexcept {
  static constexpr const char* kTexts[kKinds] = {"BEGIN",    "BEGIN IMMEDIATE", "BEGIN EXCLUSIVE", "COMMIT",
                                                 "ROLLBACK", "SAVEPOINT kit",   "RELEASE kit",     "ROLLBACK TO kit"};
  return kTexts[kind];
}

void ControlStatements::Compile(sqlite3* connection, Kind kind) {
  fStatements[kind] = CompileOne(connection, TextOf(kind));
}

void ControlStatements::LetGo() noexcept {
  for (sqlite3_stmt*& statement : fStatements) {
    sqlite3_finalize(statement);
    statement = nullptr;
  }
}

void ThrowRolledBack() { throw Error("SQLite has rolled the transaction back.", SQLITE_ABORT_ROLLBACK); }

void Levels::FinishRollback(SQLDatabase& core) {
  if (!IsOver(core)) {
    fStatements.Provide(core.fConnection, ControlStatements::kRollback);
    const int result = fStatements.Run(ControlStatements::kRollback);
    if (!IsOver(core)) ThrowError(core.fConnection, result, ControlStatements::TextOf(ControlStatements::kRollback));
  }
  core.fTransactionOK = true;
  fOwesRollback = false;
}

void Levels::Begin(SQLDatabase& core, ControlStatements::Kind kind) {
  sqlite3* const connection = core.fConnection;
  // Below zero, the core would count on.
  core.fTransactionDepth = 0;
  if (!core.fTransactionOK || fOwesRollback) FinishRollback(core);
  SetHooks(core);
  for (const auto needed : {kind, ControlStatements::kCommit, ControlStatements::kRollback}) {
    fStatements.Provide(connection, needed);
  }
  const int result = fStatements.Run(kind);
  if (result != SQLITE_DONE) ThrowError(connection, result, ControlStatements::TextOf(kind));
  ConnectionRecord::Of(core).fWasRolledBack = false;
  core.fTransactionDepth = 1;
  fSavepoints = 0;
  ++fNumber;
}

void Levels::RollBack(SQLDatabase& core) noexcept {
  core.fTransactionDepth = 0;
  fOutermost = 0;
  if (!IsOver(core)) fStatements.Run(ControlStatements::kRollback);
  fOwesRollback = !IsOver(core);
  core.fTransactionOK = !fOwesRollback;
}

void Levels::End(SQLDatabase& core) noexcept {
  if (fOutermost == 1 && core.fTransactionDepth > 0) {
    RollBack(core);
  } else if (fOutermost > 1 && core.fTransactionDepth >= fOutermost) {
    core.fTransactionDepth = fOutermost - 1;
    core.fTransactionOK = false;
  }
  fStatements.LetGo();
}

void SetHooks(SQLDatabase& core) {
  sqlite3* const connection = core.fConnection;
  const void* const mine = &core;
  const void* const committing = sqlite3_commit_hook(connection, &MayNotCommit, &core);
  const void* const rollingBack = sqlite3_rollback_hook(connection, &NoteRollback, &core);
  if (committing == mine && rollingBack == mine) return;
  if (!ConnectionRecord::Of(core).IsWatched()) {
    if (committing == nullptr && rollingBack == nullptr) return;
    RemoveHooks(core);
  }
  throw Error("The program has set a commit or rollback hook, and the kit needs both.", SQLITE_MISUSE);
}

void RemoveHooks(SQLDatabase& core) noexcept {
  sqlite3_commit_hook(core.fConnection, nullptr, nullptr);
  sqlite3_rollback_hook(core.fConnection, nullptr, nullptr);
}

}  // namespace sqldb::kit::detail
