#ifndef SQLDB_KIT_TRANSACTION_H
#define SQLDB_KIT_TRANSACTION_H

// Transactions, which are rolled back unless they are committed.
//
//   std::int64_t key = InTransaction(database, [&] {
//     log.Insert(entry);
//     return parts.Insert(part);
//   });
//
// The same by hand, with a part that may fail alone:
//
//   Transaction transaction(database);
//   try {
//     Savepoint savepoint(database);
//     parts.Insert(part);
//     savepoint.Release();
//   } catch (const ConstraintError&) {
//     // What was written since the savepoint is undone.
//   }
//   transaction.Commit();
//
// Some failures make SQLite roll back the whole transaction by itself: a full disk, an input or output that fails, no
// memory, ON CONFLICT ROLLBACK, RAISE(ROLLBACK). Until the level that is open then has ended, nothing is written any
// more, neither by the kit, which throws an Error with SQLITE_ABORT_ROLLBACK at the first attempt, nor by the core or
// whatever else uses the connection: inside a level nothing is committed but by its end. A COMMIT of the program's own
// is refused there, too, and rolls back.
//
// What SQL of the program's own begins in its place is rolled back with the level.
//
// For that the kit needs SQLite's commit and rollback hooks. A program that sets its own instead is refused the next
// transaction; the kit's are then in their place again, since SQLite tells nobody what the program's were. A Database
// is not made of an open database of the core that has one either, and takes it off; one that was set with a null
// pointer as its data cannot be told from none, and is lost.

#include <cstdint>
#include <type_traits>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"

namespace sqldb {

class SQLDatabase;

namespace kit {

class Database;

/// When a transaction takes the write lock, of which there is one for each file. It waits for it as long as the
/// database was told to.
enum class Begin {
  /// With its first write. If it has read before, waiting may not help, and that write throws BusyError at once.
  kDeferred,
  /// When it begins.
  kImmediate,
  /// When it begins, and nobody else reads; in WAL mode the same as kImmediate.
  kExclusive,
};

/// One level of the transaction of a database; the outermost is SQLite's. Levels count together with those of the core,
/// SQLDatabase::BeginTransaction and EndTransaction, and end in the reverse order of their beginning.
///
/// The end of the connection, by Database::Close or by the core, rolls back; then Commit throws, and the destructor
/// does nothing.
class SQLDB_EXPORT Transaction {
 public:
  /// Begins a transaction or, inside one, another level of it, for which `begin` means nothing. Throws Error; nothing
  /// has begun then. It does so inside a transaction that SQLite has rolled back by itself, and inside one that the
  /// program began with SQL of its own.
  ///
  /// A rollback that SQLite refused before is made up for first.
  explicit Transaction(Database& database, Begin begin = Begin::kImmediate);
  /// The same, for the kit.
  Transaction(const detail::ConnectionPointer& connection, Begin begin);

  /// Rolls the level back unless it was committed, along with the levels inside it that have not ended; an inner level
  /// takes all of the transaction with it when that ends. Throws nothing, and allocates nothing unless SQLite has to
  /// compile its ROLLBACK anew. Should SQLite refuse that, it is repeated before the kit writes anything else.
  ~Transaction();

  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Ends the level. The end of the outermost commits what was written, or if a level inside was rolled back, rolls
  /// all back and throws an Error with SQLITE_ABORT_ROLLBACK. It throws that, too, if SQLite has rolled the transaction
  /// back by itself.
  ///
  /// Throws Error on any other failure, and if the transaction is still open, the level is, too: Commit may be called
  /// again, which helps if the file was busy. Throws an Error with SQLITE_MISUSE, and does nothing, if the level has
  /// ended, or a level or a savepoint inside it has not.
  void Commit();

 private:
  void CommitInner(SQLDatabase& core);
  void RollBack() noexcept;

  // A user of it, counted without the calls of a ConnectionPointer, which would be felt here.
  detail::Connection* const fConnection;
  std::uint64_t fNumber = 0;
  std::int32_t fLevel = 0;
  std::int32_t fSavepoints = 0;
  bool fHasEnded = false;
};

/// A part of a transaction that is undone alone unless it is released. Ends before the level that it began in, and
/// after the savepoints and levels that began in it.
class SQLDB_EXPORT Savepoint {
 public:
  /// Throws Error; an Error with SQLITE_MISUSE if no level of a transaction is open, and one with SQLITE_ABORT_ROLLBACK
  /// if SQLite has rolled it back by itself.
  explicit Savepoint(Database& database);
  /// The same, for the kit.
  explicit Savepoint(const detail::ConnectionPointer& connection);

  /// Undoes what was written since the beginning, unless it was released; the transaction goes on. A level that began
  /// inside, and was rolled back, is done with that. Throws nothing: should SQLite refuse to undo, the transaction as
  /// a whole is rolled back when it ends.
  ~Savepoint();

  Savepoint(const Savepoint&) = delete;
  Savepoint& operator=(const Savepoint&) = delete;

  /// Keeps what was written, as a part of the transaction. Throws Error, and is then still open; an Error with
  /// SQLITE_ABORT_ROLLBACK, and is not, if SQLite has rolled the transaction back by itself. Throws an Error with
  /// SQLITE_MISUSE, and does nothing, if it has ended, or a savepoint or a level inside it has not.
  void Release();

 private:
  bool IsOpen() const noexcept;
  bool Undo() noexcept;

  detail::ConnectionPointer fConnection;
  std::uint64_t fNumber = 0;
  std::int32_t fDepth = 0;
  std::int32_t fLevel = 0;
  bool fWasOK = true;
  bool fHasEnded = false;
};

/// Calls `action` inside a transaction, commits, and returns what `action` returned. If it throws, all that it wrote is
/// rolled back. Repeats nothing.
template <typename Action>
auto InTransaction(Database& database, Action&& action, Begin begin = Begin::kImmediate) -> decltype(action()) {
  Transaction transaction(database, begin);
  if constexpr (std::is_void_v<decltype(action())>) {
    action();
    transaction.Commit();
  } else {
    decltype(action()) result = action();
    transaction.Commit();
    return result;
  }
}

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_TRANSACTION_H
