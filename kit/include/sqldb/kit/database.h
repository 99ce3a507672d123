#ifndef SQLDB_KIT_DATABASE_H
#define SQLDB_KIT_DATABASE_H

// A database file, and everything that is done with it: any SQL, with typed parameters and typed rows.
//
//   Database database("parts.db");
//   database.Execute("INSERT INTO parts VALUES (?, ?)", 1, "bolt");
//   for (const auto& [name, price] : database.Query<std::string, double>("SELECT name, price FROM parts")) ...
//   auto dearest = database.First<std::string>("SELECT name FROM parts ORDER BY price DESC");
//
// The statements that it compiles it keeps, for the next use of the same text. What a call leaves behind, it leaves
// nowhere: a statement is reset when the call ends, by return or by exception.
//
// A database and what was made from it are used by one thread at a time. What outlives it, or its closing, can be
// destroyed; every use throws Error.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/statement.h"

namespace boost {
template <typename T>
class shared_ptr;
}

namespace sqldb {

class SQLDatabase;

namespace kit {

/// How a file is opened.
enum class Access {
  /// To read and write; made if it is missing.
  kReadWriteCreate,
  /// To read and write. A missing file is an error.
  kReadWrite,
  /// To read and write; made. A file that is there is an error, and stays as it is. With a VFS or a URI, two programs
  /// that do this at the same time may both succeed.
  kCreate,
  /// To read. A missing file is an error, and stays missing.
  kReadOnly,
};

/// How much of what is written reaches the disk before a transaction has ended; SQLite's words.
enum class Synchronous {
  /// As SQLite was built; mostly kFull.
  kAsBuilt,
  /// Leaves it to the system. A loss of power may corrupt the file.
  kOff,
  /// In WAL mode, a loss of power may undo the last transactions; otherwise it may, seldom, corrupt the file.
  kNormal,
  /// A loss of power undoes and corrupts nothing.
  kFull,
  /// The same, and the end of the journal as well.
  kExtra,
};

/// How a database is opened and used. What is named here is done in this order.
struct Options {
  /// What may be done with the file.
  Access access = Access::kReadWriteCreate;
  /// Whether the path may be a URI, "file:items.db?mode=ro".
  bool isUri = false;
  /// Whether SQLite locks the connection in each of its calls. Not needed as long as one thread at a time uses it.
  bool isSerialized = false;
  /// The layer through which SQLite reaches the file; empty for its own.
  std::string vfs;
  /// With which the file is encrypted; empty for none. Opening fails if SQLite is built without encryption.
  std::string key;
  /// How long a statement waits for a busy file, in milliseconds; 0: not at all.
  int busyTimeout = 5000;
  /// The file of a run-time extension of SQLite that the connection loads; empty for none. SQL itself can load none.
  std::string module;
  /// Whether the file is put into WAL mode, in which readers and a writer do not wait for each other. Opening fails if
  /// it cannot be. If false, it stays in the mode that it has.
  bool wal = false;
  /// What reaches the disk, and when.
  Synchronous synchronous = Synchronous::kAsBuilt;
  /// Whether references between tables are enforced.
  bool foreignKeys = true;
  /// SQL to send then, such as further PRAGMA; empty for none.
  std::string setUp;
  /// How many compiled statements are kept, of 2 to 3 kB each.
  std::size_t keptStatements = 100;
};

/// An open database. Can be moved.
class SQLDB_EXPORT Database {
 public:
  /// Opens the file at `path`, and reads it to see that it is a database. Throws Error, which names the file and the
  /// reason; nothing is then left open. A database whose encoding is UTF-16 is refused: it could not keep the bytes of
  /// every text.
  explicit Database(const std::string& path, const Options& options = {});
  /// Shares an open database of the core. Its options stay as they are.
  explicit Database(boost::shared_ptr<SQLDatabase> core);
  /// The other one is then only to be destroyed or assigned to. What was made from it goes on.
  Database(Database&&) noexcept = default;
  /// Closes this one before.
  Database& operator=(Database&& other) noexcept;
  /// Close.
  ~Database();

  /// Runs one statement and returns the number of rows that it inserted, updated or deleted; 0 for all that does none
  /// of these. Rows that it yields are passed over. The values are for its parameters, in order, or all of them Named.
  /// Throws Error.
  template <typename... P>
  std::int64_t Execute(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Run(sql, arguments.all, arguments.kCount);
  }

  /// Runs all statements of the text, one after the other. Throws Error; what the statements before have done stays
  /// done, so put them into a transaction.
  void ExecuteScript(std::string_view sql);

  /// The rows of one statement, each a T, or a tuple of all T. See Rows.
  template <typename... T, typename... P>
  Rows<T...> Query(std::string_view sql, const P&... values) & {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(Begin(sql, arguments.all, arguments.kCount, detail::Values::kTemporary));
  }
  /// A temporary database ends before the first row is read.
  template <typename... T, typename... P>
  Rows<T...> Query(std::string_view sql, const P&... values) && = delete;

  /// The first row; none if there is no row.
  template <typename... T, typename... P>
  std::optional<typename Rows<T...>::value_type> First(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadFirst<typename Rows<T...>::value_type>(reader);
  }

  /// The only row. Throws Error if there is none, or more than one.
  template <typename... T, typename... P>
  typename Rows<T...>::value_type One(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadOne<typename Rows<T...>::value_type>(reader);
  }

  /// All rows, in order.
  template <typename... T, typename... P>
  std::vector<typename Rows<T...>::value_type> All(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadAll<typename Rows<T...>::value_type>(reader);
  }

  /// Compiles a statement, to be used often.
  Statement Prepare(std::string_view sql);

  /// For the kit's own classes. Throws Error once it has been moved.
  const detail::ConnectionPointer& Connection() const {
    if (fConnection.Get() == nullptr) ThrowMoved();
    return fConnection;
  }

  /// The database of the core. Throws Error after Close.
  SQLDatabase& Core() const;

  /// Lets go of all statements, those of running queries too, and closes the connection, unless others share the core's
  /// database. Once more does nothing.
  void Close() noexcept;

 private:
  [[noreturn]] static void ThrowMoved();
  std::int64_t Run(std::string_view sql, const detail::Argument* arguments, std::size_t count);
  detail::Lease Begin(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                      detail::Values values);
  // Of a query that ends with the call.
  detail::RowReader Reader(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                           const detail::RowShape& shape);

  detail::ConnectionPointer fConnection;
};

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_DATABASE_H
