#ifndef SQLDB_SRC_DATABASE_CONNECTION_RECORD_H
#define SQLDB_SRC_DATABASE_CONNECTION_RECORD_H

// What a database tells the kit, and nobody else: that its connection is about to end, and which statements a failure
// left behind. Also what the objects of the kit that serve the same database share. Not installed: the kit is built
// together with the library.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "sqldb/database.h"

struct sqlite3_stmt;

namespace sqldb {

// Is told once, before the connection is closed, or replaced by another one, or the database destroyed, and leaves the
// list before that.
// REQUIRES: leaves the list, too, before it ends itself.
struct ConnectionWatcher {
  explicit ConnectionWatcher(void (*tell)(ConnectionWatcher&) noexcept) : fTell(tell) {}
  ConnectionWatcher(const ConnectionWatcher&) = delete;
  ConnectionWatcher& operator=(const ConnectionWatcher&) = delete;

  // Throws nothing, and destroys neither the database nor another watcher.
  void (*const fTell)(ConnectionWatcher& self) noexcept;
  ConnectionWatcher* fNext = nullptr;
  ConnectionWatcher* fPrevious = nullptr;
};

// One for each database.
class ConnectionRecord {
 public:
  // A statement that the library compiled and a failure left unfinalized.
  struct Leftover {
    sqlite3_stmt* fStatement;
    // Later ones have higher numbers.
    std::uint64_t fNumber;
    // Whether it was its step that failed, so that its end has something to tell.
    bool fHasFailed;
  };

  ConnectionRecord() { fLeftovers.reserve(kFewest); }
  ConnectionRecord(const ConnectionRecord&) = delete;
  ConnectionRecord& operator=(const ConnectionRecord&) = delete;

  static ConnectionRecord& Of(const SQLDatabase& database) { return *database.fRecord; }

  void Join(ConnectionWatcher& watcher) noexcept {
    watcher.fNext = fWatchers;
    if (fWatchers != nullptr) fWatchers->fPrevious = &watcher;
    fWatchers = &watcher;
  }
  void Leave(ConnectionWatcher& watcher) noexcept {
    (watcher.fPrevious != nullptr ? watcher.fPrevious->fNext : fWatchers) = watcher.fNext;
    if (watcher.fNext != nullptr) watcher.fNext->fPrevious = watcher.fPrevious;
    watcher.fNext = watcher.fPrevious = nullptr;
  }
  bool IsWatched() const noexcept { return fWatchers != nullptr; }
  void TellOfTheEnd() noexcept {
    while (fWatchers != nullptr) {
      ConnectionWatcher& watcher = *fWatchers;
      Leave(watcher);
      watcher.fTell(watcher);
    }
  }

  // Whether the kit has begun the transaction of the levels that are open.
  bool fIsBegunByKit = false;
  // The earliest first. Whoever finalizes one takes it off before.
  std::vector<Leftover> fLeftovers;
  // That of the next one.
  std::uint64_t fNextNumber = 0;

 private:
  friend class SentStatement;

  static constexpr std::size_t kFewest = 8;

  ConnectionWatcher* fWatchers = nullptr;
  // How many statements are being sent, each of which may be left behind.
  std::size_t fBeingSent = 0;
};

// The statement that a function of the library has compiled, until it is finalized. If it is not, since an exception
// passes, it is recorded, for which there is room from the beginning.
class SentStatement {
 public:
  // Throws nothing but std::bad_alloc.
  explicit SentStatement(SQLDatabase& database)
      : fDatabase(database), fConnection(database.fConnection), fRecord(ConnectionRecord::Of(database)) {
    if (fRecord.fLeftovers.size() + fRecord.fBeingSent >= fRecord.fLeftovers.capacity()) MakeRoom();
    ++fRecord.fBeingSent;
  }
  ~SentStatement() {
    --fRecord.fBeingSent;
    if (fStatement != nullptr) Record();
  }
  SentStatement(const SentStatement&) = delete;
  SentStatement& operator=(const SentStatement&) = delete;

  // Null unless there is one to finalize.
  sqlite3_stmt* fStatement = nullptr;
  bool fHasFailed = false;

 private:
  void MakeRoom();
  void Record() noexcept;

  const SQLDatabase& fDatabase;
  const sqlite3* const fConnection;
  ConnectionRecord& fRecord;
};

}  // namespace sqldb

#endif  // SQLDB_SRC_DATABASE_CONNECTION_RECORD_H
