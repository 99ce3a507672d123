#ifndef SQLDB_KIT_SRC_CONNECTION_H
#define SQLDB_KIT_SRC_CONNECTION_H

// What the kit keeps for one connection: the core's database, and the compiled statements.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>
#include <boost/shared_ptr.hpp>

#include "sqldb/database.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/lease.h"

namespace sqldb::kit::detail {

// A compiled statement, lent or idle. Whoever has it on lease may go on to hold it after the connection has let go.
struct KeptStatement {
  // Null once the connection has let go of it.
  sqlite3_stmt* statement = nullptr;
  std::uint64_t hash = 0;
  std::string sql;
  int parameterCount = 0;
  int columnCount = 0;
  bool isWriting = false;
  bool isLent = false;
  // Whether it can be found by its text. A second statement of one text cannot.
  bool isFound = false;
  KeptStatement* nextOfBucket = nullptr;
  // All of the connection's, from the one that was given back last.
  KeptStatement* older = nullptr;
  KeptStatement* newer = nullptr;
};

// The statements of one connection, found by their text.
class StatementStore {
 public:
  explicit StatementStore(std::size_t most) : fBuckets(kFewestBuckets), fMost(most) {}
  ~StatementStore() { LetGo(); }
  StatementStore(const StatementStore&) = delete;
  StatementStore& operator=(const StatementStore&) = delete;

  // An idle statement of just this text, or a new one; lent from now on. Throws Error.
  KeptStatement& Take(sqlite3* connection, std::string_view sql);
  // Resets it and keeps it for the next use, at the cost of the one whose last use is longest ago.
  void GiveBack(KeptStatement& kept) noexcept;
  // Finalizes all of them. Those that are lent can still be given back.
  void LetGo() noexcept;

  std::size_t Count() const { return fCount; }

 private:
  static constexpr std::size_t kFewestBuckets = 64;

  KeptStatement*& Bucket(std::uint64_t hash) { return fBuckets[hash & (fBuckets.size() - 1)]; }
  KeptStatement* Find(std::uint64_t hash, std::string_view sql);
  void Enter(KeptStatement& kept) noexcept;
  void Leave(KeptStatement& kept) noexcept;
  // In the order of the last uses.
  void Link(KeptStatement& kept) noexcept;
  void Unlink(KeptStatement& kept) noexcept;
  void Spread();

  std::vector<KeptStatement*> fBuckets;
  KeptStatement* fNewest = nullptr;
  KeptStatement* fOldest = nullptr;
  std::size_t fCount = 0;
  std::size_t fMost;
};

// The state of one connection. Lives as long as anything that was made from it; the core's database may end before.
class Connection {
 public:
  Connection(boost::shared_ptr<SQLDatabase> core, std::size_t mostKept);

  ~Connection() { Close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Throw Error once it is closed.
  SQLDatabase& Core() const;
  sqlite3* Handle() const;

  // Milliseconds. Only while a statement of the kit is stepped.
  void WaitFor(int busyTimeout);
  void RunScript(std::string_view sql);
  // The core's database, too, unless others share it.
  void Close() noexcept;

  StatementStore fStatements;
  // While a statement of the kit is stepped, which alone waits for a busy file.
  bool fIsStepping = false;

 private:
  friend class ConnectionPointer;

  static int Wait(void* connection, int tries);

  boost::shared_ptr<SQLDatabase> fCore;
  std::size_t fUsers = 0;
  int fBusyTimeout = 0;
};

// What the connection reported last, as the class of Error that it is.
[[noreturn]] void ThrowError(sqlite3* connection, int code, std::string_view sql);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_CONNECTION_H
