#ifndef SQLDB_KIT_STATEMENT_H
#define SQLDB_KIT_STATEMENT_H

// A statement that is compiled once and used often, with other values each time:
//
//   Statement find = database.Prepare("SELECT name FROM parts WHERE id = :id");
//   for (const std::int64_t id : ids) Use(find.One<std::string>(Named(":id", id)));
//
//   Statement add = database.Prepare("INSERT INTO squares VALUES (?, ?)");
//   InTransaction(database, [&] {
//     for (int i = 1; i <= 100; ++i) add.Execute(i, i * i);
//   });
//
// Database keeps its statements too, and finds them by their text. To hold one saves only that search, in a loop that
// does little else.
//
// Order of calls: Database::Prepare, then any number of uses, one after the other.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/query.h"

namespace sqldb::kit {

/// A compiled statement of a Database. Its calls are those of Database, without the text, and throw what those throw:
/// each use gives all values anew, and after a failure the next one works. A change of the schema does not matter; the
/// statement compiles itself again.
///
/// One use at a time: while a range made by Query is there, or one of its iterators, and while a call is under way (a
/// Type or a function of the program may make another), each further use throws Error, with the code 21, and what is
/// under way goes on. A range that is not used any more ends with its block; All takes the rows at once:
///
///     Statement all = database.Prepare("SELECT id, name FROM parts WHERE price < ?");
///     for (const auto& [id, name] : all.Query<std::int64_t, std::string>(1.0)) Use(id, name);  // ends with the loop
///     const auto cheap = all.All<std::int64_t, std::string>(0.5);
///
/// Can be moved, and may outlive the database or its closing: every use throws Error then. It does not count among the
/// statements that Options::keptStatements allows, and is let go of by nobody else.
class SQLDB_EXPORT Statement {
 public:
  /// For the kit; see Database::Prepare.
  explicit Statement(detail::Lease lease) noexcept : fLease(std::move(lease)), fHold(fLease) {}
  /// The other one is then only to be destroyed or assigned to; its uses throw Error.
  Statement(Statement&&) = default;
  /// The same. A range of the statement that was here goes on.
  Statement& operator=(Statement&& other) noexcept {
    Statement taken(std::move(other));
    std::swap(fLease, taken.fLease);
    std::swap(fHold, taken.fHold);
    return *this;
  }
  /// A range that is still there goes on, and takes the compiled statement with it when it ends.
  ~Statement() = default;

  /// Runs it to its end, and returns how many rows it inserted, updated or deleted; 0 for all that does none of these.
  /// Rows that it yields are passed over. The values are used where they are, without a copy.
  template <typename... P>
  std::int64_t Execute(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Run(arguments.all, arguments.kCount);
  }

  /// Its rows, each a T, or a tuple of all T. It runs when the range begins; one that writes has run when this returns,
  /// and is free for its next use. The values are copied. The range may outlive the statement.
  template <typename... T, typename... P>
  Rows<T...> Query(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>(), detail::Values::kTemporary));
  }

  /// The first row; none if there is no row. If it reads it goes no further, if it writes it runs to its end.
  template <typename... T, typename... P>
  std::optional<typename Rows<T...>::value_type> First(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadFirst<typename Rows<T...>::value_type>(reader);
  }

  /// The only row. Throws Error if there is none, or more than one; what it has written stays then.
  template <typename... T, typename... P>
  typename Rows<T...>::value_type One(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadOne<typename Rows<T...>::value_type>(reader);
  }

  /// All rows, in order; an empty vector if there is none.
  template <typename... T, typename... P>
  std::vector<typename Rows<T...>::value_type> All(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadAll<typename Rows<T...>::value_type>(reader);
  }

 private:
  std::int64_t Run(const detail::Argument* arguments, std::size_t count) const;
  // `values` is kLasting for a query that ends with the call.
  detail::RowReader Reader(const detail::Argument* arguments, std::size_t count, const detail::RowShape& shape,
                           detail::Values values = detail::Values::kLasting) const;

  detail::Lease fLease;
  // Ends before the lease.
  detail::Hold fHold;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_STATEMENT_H
