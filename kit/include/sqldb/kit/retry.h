#ifndef SQLDB_KIT_RETRY_H
#define SQLDB_KIT_RETRY_H

// Work on a file that other connections write to: what finds the file busy is repeated after a pause.
//
//   sqldb::kit::InTransaction(database, [&] {
//     insert->PerformInsert(true);
//     log->PerformInsert(true);
//   });

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>

#include <sqlite3.h>

#include "sqldb/database.h"
#include "sqldb/kit/failure.h"
#include "sqldb/kit/transaction.h"

namespace sqldb::kit {

/// How long to go on while the file is busy. Whichever limit is reached first ends it.
/// REQUIRES: no figure is negative, and no time is longer than a year.
struct Patience {
  /// How often something is tried in all, the first time included.
  int attempts = 10000;
  /// How long all pauses together may be; by default a minute, as long as a step cursor waits.
  std::chrono::milliseconds total{60000};
  /// The first pause, and what the pauses grow to: each may be twice as long as the one before. Between half of that
  /// and all of it, at random, so that those who wait for one another do not stay in step.
  std::chrono::microseconds firstPause{200};
  /// See firstPause.
  std::chrono::microseconds longestPause{20000};
  /// Waits for the time given. What it throws ends the trying, and passes through. Empty: the thread sleeps.
  std::function<void(std::chrono::microseconds)> pause;
};

namespace detail {

/// Between half of `longest` and all of it.
inline std::chrono::microseconds RandomPause(std::chrono::microseconds longest) {
  std::uint64_t random = 0;
  sqlite3_randomness(static_cast<int>(sizeof random), &random);
  const auto most = static_cast<std::uint64_t>(longest.count());
  const std::uint64_t least = most / 2;
  return std::chrono::microseconds(static_cast<std::int64_t>(least + random % (most - least + 1)));
}

/// A Patience as it is used up.
class Waiting {
 public:
  explicit Waiting(const Patience& patience)
      : fPatience(patience), fLeft(patience.total), fPause(std::min(patience.firstPause, patience.longestPause)) {}

  /// Pauses before another try. Returns false at once if there is to be none.
  bool Pause() {
    if (++fTries >= fPatience.attempts || fLeft.count() <= 0) return false;
    const std::chrono::microseconds pause = std::min(RandomPause(fPause), fLeft);
    fLeft -= pause;
    fPause = fPause < fPatience.longestPause / 2 ? fPause * 2 : fPatience.longestPause;
    if (fPatience.pause) {
      fPatience.pause(pause);
    } else {
      std::this_thread::sleep_for(pause);
    }
    return true;
  }

 private:
  const Patience& fPatience;
  std::chrono::microseconds fLeft;
  std::chrono::microseconds fPause;
  int fTries = 0;
};

/// Not so when a COMMIT is refused on account of this connection's own statements, which has the same code.
inline bool IsFileBusy(const Error& error) {
  return error.Code() == SQLITE_BUSY && error.what() == std::string(sqlite3_errstr(SQLITE_BUSY));
}

inline bool IsInTransaction(const SQLDatabase& database) { return database.fTransactionDepth > 0 || !IsOver(database); }

/// How often something is repeated because the schema has changed. Several processes that set up one file may change it
/// several times in a row; an action that changes it under its own statement always does.
constexpr int kSchemaChanges = 10;

template <typename Action>
auto RetryWhileBusy(SQLDatabase& database, Action action, Waiting& waiting) -> decltype(action()) {
  int schemaChanges = 0;
  while (true) {
    try {
      return kit::Run(database, std::ref(action));
    } catch (const Error& error) {
      if (IsInTransaction(database)) throw;
      if (error.Code() == SQLITE_SCHEMA && schemaChanges < kSchemaChanges) {
        ++schemaChanges;
      } else if (!IsFileBusy(error) || !waiting.Pause()) {
        throw;
      }
    }
  }
}

/// Repeats the COMMIT alone: what was written stays, and the lock that it has keeps new readers out.
inline void CommitWhileBusy(Transaction& transaction, Waiting& waiting) {
  while (true) {
    try {
      transaction.Commit();
      return;
    } catch (const Error& error) {
      if (!IsFileBusy(error) || !waiting.Pause()) throw;
    }
  }
}

}  // namespace detail

/// Calls `action` with Run until it does not find the file busy, with growing pauses, and returns what it returns.
/// What a failed try left behind is finalized before the pause, so that nothing that is written later is lost. Throws
/// the Error of the last try when `patience` ends; any other failure at once. Repeats up to ten times, and at once,
/// after SQLITE_SCHEMA: another connection has changed the schema since this one read it.
///
/// Repeats nothing inside a transaction, but throws at once: another transaction may be waiting for a lock that this
/// one holds, and goes on waiting as long as this one is open. What has to be rolled back and repeated is the whole
/// transaction, as InTransaction does it.
/// REQUIRES: `action` begins anew each time. If it writes several times outside a transaction, a repetition repeats
/// also what has been written. And an insert that failed sends its text once more (SQLInsertClass::PerformInsert):
/// `action` makes it, or empties its `fQuery`.
template <typename Action>
auto RetryWhileBusy(SQLDatabase& database, Action action, const Patience& patience = {}) -> decltype(action()) {
  detail::Waiting waiting(patience);
  return detail::RetryWhileBusy(database, std::ref(action), waiting);
}

/// Calls `action` in a transaction that holds the write lock from its beginning, commits, and returns what `action`
/// returned. What `action` throws rolls all back. To begin and to COMMIT are repeated while the file is busy, within
/// one `patience` for both; should `action` find a file busy nevertheless (another one, for instance), all is rolled
/// back and repeated. So `action` may be called several times, but is done once. Throws the
/// Error of the last try when `patience` ends; nothing is then written.
///
/// Inside a transaction calls `action` once, as another level of it; see RetryWhileBusy. Work that only reads does not
/// need the write lock: a Transaction is enough for it.
/// REQUIRES: `action` begins anew each time, as for RetryWhileBusy, and does not return an rvalue reference.
template <typename Action>
auto InTransaction(SQLDatabase& database, Action action, const Patience& patience = {}) -> decltype(action()) {
  detail::Waiting waiting(patience);
  const auto tryOnce = [&]() -> decltype(action()) {
    Transaction transaction(database, WriteLock::kAtOnce);
    if constexpr (std::is_void_v<decltype(action())>) {
      kit::Run(database, std::ref(action));
      detail::CommitWhileBusy(transaction, waiting);
    } else {
      decltype(action()) result = kit::Run(database, std::ref(action));
      detail::CommitWhileBusy(transaction, waiting);
      return result;
    }
  };
  return detail::RetryWhileBusy(database, tryOnce, waiting);
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_RETRY_H
