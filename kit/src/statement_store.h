#ifndef SQLDB_KIT_SRC_STATEMENT_STORE_H
#define SQLDB_KIT_SRC_STATEMENT_STORE_H

// The compiled statements of one connection. One that is lent is in use; what is idle never stands on a row.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>

#include "sqldb/kit/words.h"

namespace sqldb::kit::detail {

// What a statement is found by: its text; or the table that it belongs to, what it does there, and the rest of its
// text, which may be in two parts.
struct StatementKey {
  std::string_view text;
  const void* owner = nullptr;
  int kind = 0;
  std::string_view secondPart = {};
};

struct RowShape;

// Which columns of a result make a row, found by their names.
struct ColumnMap {
  // Null: not looked for yet.
  const RowShape* shape = nullptr;
  // How often the statement had compiled itself anew by then.
  int compilations = 0;
  // One for each column of the shape; none if they are in its order.
  std::vector<int> columns;
};

class Connection;

// A compiled statement, lent or idle. Whoever has it on lease may go on to hold it after the connection has let go.
struct KeptStatement {
  // How long it stays once it is idle.
  enum class Stay : unsigned char {
    // Not at all.
    kNone,
    // It can be found by its key.
    kByKey,
    // It has a place of its own.
    kInSlot,
  };

  // Null once the connection has let go of it.
  sqlite3_stmt* statement = nullptr;
  // Lives at least as long as a lease.
  Connection* connection = nullptr;
  // How many leases share it; 0: idle.
  int users = 0;
  // How many of them only hold it.
  int holders = 0;
  int parameterCount = 0;
  bool isWriting = false;
  // Whether it stands on a row.
  bool isRunning = false;
  // Whether it was stepped and not reset.
  bool isUsed = false;
  // Of one that reads: whether it was stepped since it was compiled. What it yields may be other columns by now.
  bool isOld = false;
  Stay stay = Stay::kNone;
  int kind = 0;
  const void* owner = nullptr;
  std::uint64_t hash = 0;
  // Of its execution, where they are not with the caller.
  Words values;
  Words moreValues;
  // Both parts of its key, and where the second one begins.
  std::string key;
  std::size_t secondPart = 0;
  // Empty if it is the key.
  std::string sql;
  ColumnMap map;
  // Null again when it goes.
  KeptStatement** slot = nullptr;
  KeptStatement* nextOfBucket = nullptr;
  // All of the connection's, from the one that was given back last.
  KeptStatement* older = nullptr;
  KeptStatement* newer = nullptr;

  void Reset() noexcept {
    isRunning = false;
    isUsed = false;
    sqlite3_reset(statement);
  }
  const std::string& Sql() const { return sql.empty() ? key : sql; }
};

// Finds them by their key, and lets go of the one whose last use is longest ago.
class StatementStore {
 public:
  // REQUIRES: `connection` is that which it is of.
  StatementStore(Connection& connection, std::size_t most)
      : fConnection(connection), fBuckets(kFewestBuckets), fMost(most) {}
  ~StatementStore() { LetGo(); }
  StatementStore(const StatementStore&) = delete;
  StatementStore& operator=(const StatementStore&) = delete;

  // The idle statement of this key, lent from now on; null if there is none.
  KeptStatement* Find(const StatementKey& key) noexcept;
  // The same of a text alone.
  KeptStatement* Find(std::string_view text) noexcept;
  // Lends one that is idle. Inline, as GiveBack is, in connection.h.
  KeptStatement& Lend(KeptStatement& idle) noexcept;
  // Compiles `sql`. To be found by `key` later, unless there is another one that is. Throws Error.
  KeptStatement& Compile(sqlite3* handle, const StatementKey& key, std::string sql);
  // Compiles `sql` for a place of its own, unless that is taken. Throws Error.
  KeptStatement& Compile(sqlite3* handle, KeptStatement*& slot, const void* owner, std::string sql);
  // Compiles `sql` for one use. Throws Error. `told` is what an Error says of it, if that is not to have its values.
  KeptStatement& CompileOnce(sqlite3* handle, std::string sql, std::string told = {});

  // Ends one lease. The end of the last one resets the statement and keeps it for the next use, at the cost of the one
  // whose last use is longest ago.
  static void GiveBack(KeptStatement& kept) noexcept;
  // Finalizes those of an owner, and those that are lent when they are given back.
  void Forget(const void* owner) noexcept;
  // Finalizes all of them. Those that are lent can still be given back.
  void LetGo() noexcept;

 private:
  static constexpr std::size_t kFewestBuckets = 64;
  static constexpr int kAddressBits = 4;

  KeptStatement*& Bucket(std::uint64_t hash) { return fBuckets[static_cast<std::size_t>(hash) & fMask]; }
  KeptStatement* Find(std::uint64_t hash, const StatementKey& key) noexcept;
  KeptStatement* FindByHash(std::string_view text) noexcept;
  std::unique_ptr<KeptStatement> Compiled(sqlite3* handle, std::string sql) const;
  KeptStatement& Enter(std::unique_ptr<KeptStatement> made) noexcept;
  // GiveBack of one that is not the last to have been given back, or that does not stay.
  static void GiveBackWithMore(KeptStatement& kept) noexcept;
  void TakeBack(KeptStatement& kept) noexcept;
  // So that a bucket has about one statement.
  void Spread();
  void Leave(KeptStatement& kept) noexcept;
  // From then on it is gone as soon as it is idle.
  void Hide(KeptStatement& kept) noexcept;
  // In the order of the last uses.
  void Link(KeptStatement& kept) noexcept;
  void Unlink(KeptStatement& kept) noexcept;
  void Discard(KeptStatement& kept) noexcept;

  Connection& fConnection;
  std::vector<KeptStatement*> fBuckets;
  // Their number, a power of two, less one.
  std::size_t fMask = kFewestBuckets - 1;
  // What was found last for a text at an address of these bits: most texts are literals of the program, and what
  // stands where one stood before is compared with it, rather than hashed.
  std::array<KeptStatement*, 1 << kAddressBits> fByAddress = {};
  KeptStatement* fNewest = nullptr;
  KeptStatement* fOldest = nullptr;
  std::size_t fCount = 0;
  // Those that nobody uses: what is held or in use is not at the cost of what is kept.
  std::size_t fIdle = 0;
  std::size_t fMost;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_STATEMENT_STORE_H
