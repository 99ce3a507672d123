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
  /// To read. A missing file is an error, and stays missing.
  kReadOnly,
};

/// How a database is opened and used.
struct Options {
  /// What may be done with the file.
  Access access = Access::kReadWriteCreate;
  /// Whether the path may be a URI, "file:items.db?mode=ro".
  bool isUri = false;
  /// The layer through which SQLite reaches the file; empty for its own.
  std::string vfs;
  /// Whether references between tables are enforced.
  bool foreignKeys = true;
  /// Whether the file is put into WAL mode, in which readers and a writer do not wait for each other.
  bool wal = false;
  /// How long a statement waits for a busy file, in milliseconds; 0: not at all.
  int busyTimeout = 5000;
  /// How many compiled statements are kept, of 2 to 3 kB each.
  std::size_t keptStatements = 100;
};

/// An open database. Can be moved.
class SQLDB_EXPORT Database {
 public:
  /// Opens the file at `path`. Throws Error, which names the file and the reason; nothing is then left open.
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
    return Rows<T...>(Begin(sql, arguments.all, arguments.kCount, detail::Values::kLasting)).First();
  }

  /// The only row. Throws Error if there is none, or more than one.
  template <typename... T, typename... P>
  typename Rows<T...>::value_type One(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(Begin(sql, arguments.all, arguments.kCount, detail::Values::kLasting)).One();
  }

  /// All rows, in order.
  template <typename... T, typename... P>
  std::vector<typename Rows<T...>::value_type> All(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(Begin(sql, arguments.all, arguments.kCount, detail::Values::kLasting)).All();
  }

  /// The database of the core. Throws Error after Close.
  SQLDatabase& Core() const;

  /// Lets go of all statements, those of running queries too, and closes the connection, unless others share the core's
  /// database. Once more does nothing.
  void Close() noexcept;

 private:
  // Throws Error once it has been moved.
  detail::Connection& Connected() const;
  std::int64_t Run(std::string_view sql, const detail::Argument* arguments, std::size_t count);
  detail::Lease Begin(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                      detail::Values values);

  detail::ConnectionPointer fConnection;
};

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_DATABASE_H
