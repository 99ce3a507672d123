#ifndef SQLDB_KIT_SRC_CONNECTION_H
#define SQLDB_KIT_SRC_CONNECTION_H

// What the kit keeps for one connection: the core's database, and the compiled statements.

// Before anything else complains about it.
#include <sqlite3.h>
#if SQLITE_VERSION_NUMBER < 3015000
#error "sqldb::kit needs SQLite 3.15 or newer."
#endif

#include <cstddef>
#include <string>
#include <string_view>

#include <boost/shared_ptr.hpp>

#include "database/connection_record.h"
#include "levels.h"
#include "sqldb/database.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/lease.h"
#include "statement_store.h"
#include "table_state.h"

namespace sqldb::kit::detail {

// The state of one connection. Lives as long as anything that was made from it; the core's database may end before.
class Connection : private ConnectionWatcher {
 public:
  // Throws Error if the program has set a hook of its own; see MayNotCommit.
  Connection(boost::shared_ptr<SQLDatabase> core, std::size_t mostKept);

  ~Connection() { Close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Throw Error once it is closed.
  SQLDatabase& Core() const {
    if (!IsOpen()) ThrowNotOpen();
    return *fCore;
  }
  sqlite3* Handle() const { return Core().fConnection; }
  // Whether neither it nor the core's database has been closed.
  bool IsOpen() const noexcept { return fIsWatching; }

  // Milliseconds. Only while one of its statements is at work.
  void WaitFor(int busyTimeout);
  void RunScript(std::string_view sql);
  // The last row's first value, which REQUIRES: is not NULL; empty if there is no row. The statement is not kept.
  std::string Ask(std::string_view sql);
  // Throws Error for a PRAGMA that would take away what the connection relies on.
  void CheckPragma(std::string_view sql) const;
  // What the connection `handle` says of a step of `sql`.
  [[noreturn]] void ThrowStepError(sqlite3* handle, int result, std::string_view sql) const;
  // Lends the statement of `sql`, which it compiles if none is idle. Throws Error.
  KeptStatement& Lend(std::string_view sql) {
    KeptStatement* const kept = fStatements.Find(sql);
    return kept != nullptr ? *kept : Compile(sql);
  }
  // The core's database, too, unless others share it.
  void Close() noexcept;

  // Whoever uses the state keeps it alive; the last one deletes it.
  void AddUser() noexcept { ++fUsers; }
  void RemoveUser() noexcept {
    if (--fUsers == 0) delete this;
  }

  StatementStore fStatements;
  TableStates fTables{fStatements};
  Levels fLevels;
  // See Working.
  bool fIsWorking = false;

 private:
  [[noreturn]] static void ThrowNotOpen();
  KeptStatement& Compile(std::string_view sql);
  static int Wait(void* connection, int tries);
  // Runs the first statement of the text, and hands each row to `take`. Returns the rest of the text.
  template <typename Take>
  std::string_view RunFirst(std::string_view sql, Take take);
  // The core's database is about to close.
  static void End(ConnectionWatcher& self) noexcept;
  void LetGo() noexcept;

  boost::shared_ptr<SQLDatabase> fCore;
  // From the beginning to the end of the connection.
  bool fIsWatching = false;
  std::size_t fUsers = 0;
  int fBusyTimeout = 0;
  // For the lock that is waited for now, in milliseconds.
  int fWaited = 0;
};

inline KeptStatement& StatementStore::Lend(KeptStatement& idle) noexcept {
  idle.users = 1;
  --fIdle;
  fConnection.AddUser();
  return idle;
}

inline void StatementStore::GiveBack(KeptStatement& kept) noexcept {
  if (kept.users > 1) {
    if (--kept.users == kept.holders && kept.isUsed) kept.Reset();
    return;
  }
  StatementStore& store = kept.connection->fStatements;
  const bool isSimple = &kept == store.fNewest && store.fIdle < store.fMost;
  if (!isSimple || kept.stay == KeptStatement::Stay::kNone) return GiveBackWithMore(kept);
  if (kept.isUsed) kept.Reset();
  kept.users = 0;
  ++store.fIdle;
  kept.connection->RemoveUser();
}

// The time in which a statement of the kit is compiled or stepped, and waits for a busy file.
class Working {
 public:
  explicit Working(Connection& connection) noexcept : fIsWorking(connection.fIsWorking), fBefore(fIsWorking) {
    fIsWorking = true;
  }
  ~Working() { fIsWorking = fBefore; }
  Working(const Working&) = delete;
  Working& operator=(const Working&) = delete;

 private:
  bool& fIsWorking;
  const bool fBefore;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_CONNECTION_H
