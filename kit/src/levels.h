#ifndef SQLDB_KIT_SRC_LEVELS_H
#define SQLDB_KIT_SRC_LEVELS_H

// The levels of the transaction of one connection, and the statements that begin and end them.

#include <cstdint>

#include <sqlite3.h>

#include "database/connection_record.h"
#include "sqldb/database.h"

namespace sqldb::kit::detail {

// Nothing is bound to them, and none runs twice at a time: so they need no lease, and their number is fixed.
class ControlStatements {
 public:
  enum Kind {
    kBeginDeferred,
    kBeginImmediate,
    kBeginExclusive,
    kCommit,
    kRollback,
    kSavepoint,
    kRelease,
    kRollbackTo,
    kKinds
  };

  ControlStatements() = default;
  ~ControlStatements() { LetGo(); }
  ControlStatements(const ControlStatements&) = delete;
  ControlStatements& operator=(const ControlStatements&) = delete;

  static const char* TextOf(Kind kind) noexcept;

  bool Has(Kind kind) const noexcept { return fStatements[kind] != nullptr; }
  // Compiles it unless it is there. Throws Error.
  void Provide(sqlite3* connection, Kind kind) {
    if (!Has(kind)) Compile(connection, kind);
  }
  // Returns SQLite's result code, SQLITE_DONE for success. The connection has the message.
  // REQUIRES: it was provided.
  int Run(Kind kind) noexcept {
    const int result = sqlite3_step(fStatements[kind]);
    sqlite3_reset(fStatements[kind]);
    return result;
  }
  void LetGo() noexcept;

 private:
  void Compile(sqlite3* connection, Kind kind);

  sqlite3_stmt* fStatements[kKinds] = {};
};

// True when SQLite has no transaction open: none was begun, or SQLite has rolled it back by itself.
inline bool IsOver(const SQLDatabase& core) noexcept { return sqlite3_get_autocommit(core.fConnection) != 0; }

// What the connection says of the statement that returned `result`.
[[noreturn]] void ThrowFailure(const SQLDatabase& core, int result, ControlStatements::Kind kind);
// Throws the Error that says that SQLite has rolled back.
[[noreturn]] void ThrowRolledBack();

// The hooks by which nothing is committed while a level is open, but by its end: after SQLite has rolled back by
// itself, each write would be committed alone, and so would a transaction that SQL of the program's own begins then.
// Set by the function after them, which throws Error if the program has set others.
int MayNotCommit(void* database) noexcept;
void NoteRollback(void* database) noexcept;
[[noreturn]] void RefuseHook();
inline void SetHooks(SQLDatabase& core) {
  const void* const atCommit = sqlite3_commit_hook(core.fConnection, &MayNotCommit, &core);
  const void* const atRollback = sqlite3_rollback_hook(core.fConnection, &NoteRollback, &core);
  if (atCommit != &core || atRollback != &core) RefuseHook();
}
// The same for the first Database of a core's database, which has none yet.
void SetFirstHooks(SQLDatabase& core);
void RemoveHooks(SQLDatabase& core) noexcept;

// What a connection knows of its transaction beside what the core counts.
class Levels {
 public:
  // Before the kit runs a statement that writes: throws Error if the transaction is not there any more in which it
  // would write, or rolls back the one that is still there.
  void BeforeWrite(SQLDatabase& core) {
    if (core.fTransactionDepth > 0) {
      if (IsOver(core)) ThrowRolledBack();
    } else if (fOwesRollback) {
      FinishRollback(core);
    }
  }

  // Begins SQLite's transaction, with all that its end needs. Throws Error.
  void Begin(SQLDatabase& core, ControlStatements::Kind kind) {
    if (!fStatements.Has(kind) || !core.fTransactionOK || fOwesRollback) MakeReady(core, kind);
    SetHooks(core);
    const int result = fStatements.Run(kind);
    if (result != SQLITE_DONE) ThrowFailure(core, result, kind);
    core.fTransactionDepth = 1;
    ConnectionRecord::Of(core).fIsBegunByKit = true;
    fOutermost = 1;
    fSavepoints = 0;
    ++fNumber;
  }
  // Rolls SQLite's transaction back, if it is there. All levels have ended.
  void RollBack(SQLDatabase& core) noexcept;
  // Rolls back what the kit began on the connection, which is about to end, and lets go of the statements.
  void End(SQLDatabase& core) noexcept;

  ControlStatements fStatements;
  // The outermost of the levels that are the kit's; 0 if there is none.
  std::int32_t fOutermost = 0;
  // How many savepoints are open.
  std::int32_t fSavepoints = 0;
  // Of the transaction; tells one that the kit has begun from the next.
  std::uint64_t fNumber = 0;

 private:
  void MakeReady(SQLDatabase& core, ControlStatements::Kind kind);
  void FinishRollback(SQLDatabase& core);

  // A rollback was refused, so that the transaction is still open.
  bool fOwesRollback = false;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_LEVELS_H
