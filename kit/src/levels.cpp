#include "levels.h"

#include "compile.h"
#include "database/connection_record.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

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

void ThrowFailure(const SQLDatabase& core, int result, ControlStatements::Kind kind) {
  ThrowError(core.fConnection, result, ControlStatements::TextOf(kind));
}

void ThrowRolledBack() { throw Error("SQLite has rolled the transaction back.", SQLITE_ABORT_ROLLBACK); }

void Levels::FinishRollback(SQLDatabase& core) {
  fStatements.Provide(core.fConnection, ControlStatements::kRollback);
  const int result = fStatements.Run(ControlStatements::kRollback);
  if (!IsOver(core)) ThrowFailure(core, result, ControlStatements::kRollback);
  core.fTransactionOK = true;
  fOwesRollback = false;
}

void Levels::MakeReady(SQLDatabase& core, ControlStatements::Kind kind) {
  if (!core.fTransactionOK || fOwesRollback) FinishRollback(core);
  // What begins it last: where that is, the others are.
  for (const auto needed : {ControlStatements::kRollback, ControlStatements::kCommit, kind}) {
    fStatements.Provide(core.fConnection, needed);
  }
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

// Called by SQLite before anything is committed; what is not 0 makes it roll back instead. The end of the outermost
// level has lowered the depth by then.
int MayNotCommit(void* database) noexcept {
  const auto& core = *static_cast<const SQLDatabase*>(database);
  if (core.fTransactionDepth > 0) return 1;
  ConnectionRecord::Of(core).fIsBegunByKit = false;
  return 0;
}

// Called by SQLite after each rollback. That of the outermost level has lowered the depth by then; any other one is a
// veto, as that of a level inside is. Levels that the core began end by its own rules.
void NoteRollback(void* database) noexcept {
  auto& core = *static_cast<SQLDatabase*>(database);
  bool& isBegunByKit = ConnectionRecord::Of(core).fIsBegunByKit;
  if (core.fTransactionDepth <= 0) {
    isBegunByKit = false;
  } else if (isBegunByKit) {
    core.fTransactionOK = false;
  }
}

void RefuseHook() {
  throw Error("The program has set a commit or rollback hook, and the kit needs it.", SQLITE_MISUSE);
}

void SetFirstHooks(SQLDatabase& core) {
  const void* const atCommit = sqlite3_commit_hook(core.fConnection, &MayNotCommit, &core);
  const void* const atRollback = sqlite3_rollback_hook(core.fConnection, &NoteRollback, &core);
  if (atCommit == nullptr && atRollback == nullptr) return;
  RemoveHooks(core);
  RefuseHook();
}

void RemoveHooks(SQLDatabase& core) noexcept {
  sqlite3_commit_hook(core.fConnection, nullptr, nullptr);
  sqlite3_rollback_hook(core.fConnection, nullptr, nullptr);
}

}  // namespace sqldb::kit::detail
