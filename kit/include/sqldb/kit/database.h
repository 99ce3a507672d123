#ifndef SQLDB_KIT_DATABASE_H
#define SQLDB_KIT_DATABASE_H

// A database file, and everything that is done with it: any SQL, with typed parameters and typed rows.
//
//   Database database("parts.db");
//   database.Execute("INSERT INTO parts VALUES (?, ?)", 1, "bolt");
//   for (const auto& [name, price] : database.Query<std::string, double>("SELECT name, price FROM parts")) ...
//   auto dearest = database.First<std::string>("SELECT name FROM parts ORDER BY price DESC");
//
// Order of calls: open, make tables and statements and use them in any order, Close or destroy.
//
// The statements that it compiles it keeps, for the next use of the same text. What a call leaves behind, it leaves
// nowhere: a statement is reset when the call ends, by return or by exception. So a text that is always the same, with
// values, costs less than one that is put together each time.
//
// A database and what was made from it are used by one thread at a time; nothing is locked. Different databases may be
// used by different threads at the same time, on one file too. What outlives a database, or its closing, can be
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

/// How a file is opened. ":memory:" is a database in memory, and an empty path one in a temporary file; both are always
/// new, and end with the connection.
enum class Access {
  /// To read and write; made if it is missing.
  kReadWriteCreate,
  /// To read and write. A missing file is an error.
  kReadWrite,
  /// To read and write; made. A file that is there is an error, and stays as it is. With a VFS or a URI, two programs
  /// that do this at the same time may both succeed.
  kCreate,
  /// To read. A missing file is an error, and stays missing. What writes throws Error with the code 8.
  kReadOnly,
};

/// How much of what is written reaches the disk before a transaction has ended; SQLite's words. The death of the
/// process loses nothing that was committed, at any level.
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

/// How a database is opened and used. What is named here is done in this order. Where one of these fails, the database
/// is not opened.
///
///     Options options;
///     options.wal = true;
///     options.setUp = "PRAGMA cache_size = -64000; PRAGMA temp_store = 2";
///     Database database("parts.db", options);
struct Options {
  /// What may be done with the file.
  Access access = Access::kReadWriteCreate;
  /// Whether the path may be a URI, "file:items.db?mode=ro". If false, a path that begins so is the name of a file.
  bool isUri = false;
  /// Whether SQLite locks the connection in each of its calls. Not needed as long as one thread at a time uses it. It
  /// does not make the kit's objects fit for several: it is for a program that calls SQLite itself from another thread.
  bool isSerialized = false;
  /// The layer through which SQLite reaches the file, by its name; empty for the one that is SQLite's default.
  std::string vfs;
  /// With which the file is encrypted; empty for none. Opening fails if SQLite is built without encryption, and with
  /// the code 26 if the file has another key. It is sent before anything else, and no message has it.
  std::string key;
  /// How long a statement waits for a busy file, in milliseconds; 0: not at all. Opening and COMMIT wait as well, the
  /// statements of the core do not. What waiting cannot cure is thrown at once. Unless it is 0, the kit refuses PRAGMA
  /// busy_timeout, which would end the waiting.
  int busyTimeout = 5000;
  /// The file of a run-time extension of SQLite that the connection loads, by the entry point that SQLite finds in it;
  /// empty for none. SQL itself can load none.
  std::string module;
  /// Whether the file is put into WAL mode, in which readers and a writer do not wait for each other. Opening fails if
  /// it cannot be, as in memory. The file stays in this mode, for all who open it: if false, it keeps the mode that it
  /// has.
  bool wal = false;
  /// What reaches the disk, and when. Of this connection alone.
  Synchronous synchronous = Synchronous::kAsBuilt;
  /// Whether references between tables are enforced. Of this connection alone.
  bool foreignKeys = true;
  /// SQL to send then, such as further PRAGMA, as ExecuteScript sends it; empty for none.
  std::string setUp;
  /// How many compiled statements are kept, of 2 to 3 kB each; 0: none, so that each use compiles its own. More may be
  /// in use at the same time. Beyond the number, the one whose last use is longest ago goes.
  std::size_t keptStatements = 100;
};

/// An open database, its connection and the statements kept for it. Can be moved.
///
/// SQL is one statement, but for ExecuteScript; a semicolon, blanks and comments may follow. An Error with the code 21
/// is thrown, and nothing is done, for none, for several, and for a PRAGMA that would take away what the database
/// relies on: busy_timeout (Options::busyTimeout), and an encoding other than UTF-8.
///
/// Where values are taken, there is one for each parameter, in order, or all of them are Named:
///
///     database.Execute("INSERT INTO parts VALUES (?, ?)", 1, "bolt");
///     database.Execute("UPDATE parts SET price = :price WHERE id = :id", Named(":id", 1), Named(":price", 0.25));
///
/// A value is of a type that type.h knows or that has a Type, a std::optional of one, std::nullopt for NULL, a
/// std::string_view, a text that ends with a zero byte, or a List. None is ever read as SQL. Too few, too many or an
/// unknown name is an Error with the code 21, and what cannot be stored a ConversionError; nothing is done then.
///
/// Where T is asked for, a row is a T or, for several, a std::tuple of them: each a type as above, a described struct,
/// or a std::optional of one of these. They take the columns from left to right; a struct that is alone finds its own
/// among all, see query.h. Columns too few, too many or without a struct's names are an Error with the code 21, and
/// nothing is done. What is read and does not fit throws ConversionError: nothing is converted with a loss.
class SQLDB_EXPORT Database {
 public:
  /// Opens the file at `path`, and reads it to see that it is a database. Throws Error, which names the file and the
  /// reason; nothing is then left open. A database whose encoding is UTF-16 is refused: it could not keep the bytes of
  /// every text.
  explicit Database(const std::string& path, const Options& options = {});
  /// Shares an open database of the core, which lives at least until Close. Its connection stays as it is: of Options
  /// only the default of keptStatements holds, and statements wait only if the program has told SQLite so. Several
  /// Databases may share one; they count its transactions together. Throws Error if it is null or not open, if its
  /// encoding is UTF-16, or if the program has set a commit or rollback hook, see transaction.h.
  explicit Database(boost::shared_ptr<SQLDatabase> core);
  /// The other one is then only to be destroyed or assigned to; other uses throw Error. What was made from it goes on.
  Database(Database&&) noexcept = default;
  /// Closes this one before.
  Database& operator=(Database&& other) noexcept;
  /// As Close does it.
  ~Database();

  /// Runs one statement to its end and returns the number of rows that it inserted, updated or deleted; 0 for all that
  /// does none of these. Rows that triggers and references change are not counted, rows that it yields are passed over.
  /// Throws Error; the statement has then done nothing.
  template <typename... P>
  std::int64_t Execute(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Run(sql, arguments.all, arguments.kCount);
  }

  /// Runs all statements of the text, one after the other; none if there is none. They take no values: their parameters
  /// are NULL. They are not kept. Throws Error, whose Sql begins with the one that failed; what those before it have
  /// done stays done, so put them into a transaction.
  void ExecuteScript(std::string_view sql);

  /// The rows of one statement. Throws Error for what is wrong with the text, the values and the columns; the query
  /// runs when the range begins, and again each time that it does. Values are copied, so that temporaries serve. The
  /// range may outlive the call, and a move of the database.
  ///
  /// What writes (INSERT ... RETURNING) has run to its end when this returns, and the range has its rows.
  template <typename... T, typename... P>
  Rows<T...> Query(std::string_view sql, const P&... values) & {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(
        Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>(), detail::Values::kTemporary));
  }
  /// A temporary database ends before the first row is read.
  template <typename... T, typename... P>
  Rows<T...> Query(std::string_view sql, const P&... values) && = delete;

  /// The first row; none if there is no row. A query that reads goes no further, one that writes to its end. Throws
  /// Error.
  template <typename... T, typename... P>
  std::optional<typename Rows<T...>::value_type> First(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadFirst<typename Rows<T...>::value_type>(reader);
  }

  /// The only row. Throws Error, also if there is none, or more than one; what a query that writes has done stays done
  /// then.
  template <typename... T, typename... P>
  typename Rows<T...>::value_type One(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadOne<typename Rows<T...>::value_type>(reader);
  }

  /// All rows, in order; an empty vector if there is none. Throws Error.
  template <typename... T, typename... P>
  std::vector<typename Rows<T...>::value_type> All(std::string_view sql, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(sql, arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadAll<typename Rows<T...>::value_type>(reader);
  }

  /// Compiles a statement, to be used often. It belongs to the caller alone, beside those that are kept: each call
  /// makes one of its own. Throws Error.
  Statement Prepare(std::string_view sql);

  /// For the kit's own classes. Throws Error once it has been moved.
  const detail::ConnectionPointer& Connection() const {
    if (fConnection.Get() == nullptr) ThrowMoved();
    return fConnection;
  }

  /// The database of the core, for its objects and, by fConnection, for SQLite's own functions. What is called there
  /// does not wait, and throws what the core throws. It is there until Close, longer if others share it. Throws Error
  /// after Close.
  /// REQUIRES: the program finalizes and steps no statement that it has not compiled itself, sets no commit or
  /// rollback hook and, unless Options::busyTimeout is 0, no busy handler.
  SQLDatabase& Core() const;

  /// Lets go of all statements, those of running queries too, and closes the connection, unless others share the core's
  /// database. A transaction of the kit that is open is rolled back. What was made from the database throws Error from
  /// now on. Once more does nothing.
  /// REQUIRES: no SQL function that one of its statements has called is running.
  void Close() noexcept;

 private:
  [[noreturn]] static void ThrowMoved();
  std::int64_t Run(std::string_view sql, const detail::Argument* arguments, std::size_t count);
  // `values` is kLasting for a query that ends with the call.
  detail::RowReader Reader(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                           const detail::RowShape& shape, detail::Values values = detail::Values::kLasting);

  detail::ConnectionPointer fConnection;
};

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_DATABASE_H
