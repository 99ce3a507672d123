#ifndef SQLDB_KIT_STATEMENT_H
#define SQLDB_KIT_STATEMENT_H

// A statement that is compiled once and used often, with other values each time:
//
//   Statement find = database.Prepare("SELECT name FROM parts WHERE id = :id");
//   for (const std::int64_t id : ids) Use(find.One<std::string>(Named(":id", id)));
//
// Database keeps its statements too, and finds them by their text. To hold one saves only that search.

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

/// A compiled statement of a Database. Its calls are those of Database, without the text, and throw what those throw.
///
/// One use at a time: while a range made by Query is there, or one of its iterators, and while a call is under way (a
/// Type or a function of the program may make another), each further use throws Error, with the code 21. Can be moved.
class SQLDB_EXPORT Statement {
 public:
  /// See Database::Prepare.
  explicit Statement(detail::Lease lease) noexcept : fLease(std::move(lease)) { fLease.Hold(true); }
  /// The other one is then only to be destroyed or assigned to.
  Statement(Statement&&) = default;
  /// The same.
  Statement& operator=(Statement&& other) noexcept {
    Statement taken(std::move(other));
    std::swap(fLease, taken.fLease);
    return *this;
  }
  /// A range that is still there goes on.
  ~Statement() {
    if (fLease.IsThere()) fLease.Hold(false);
  }

  /// Runs it to its end, and returns how many rows it inserted, updated or deleted.
  template <typename... P>
  std::int64_t Execute(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Begin(arguments.all, arguments.kCount, detail::Values::kLasting).Finish();
  }

  /// Its rows, each a T, or a tuple of all T. The range may outlive the statement.
  template <typename... T, typename... P>
  Rows<T...> Query(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    return Rows<T...>(Begin(arguments.all, arguments.kCount, detail::Values::kTemporary));
  }

  /// The first row; none if there is no row.
  template <typename... T, typename... P>
  std::optional<typename Rows<T...>::value_type> First(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadFirst<typename Rows<T...>::value_type>(reader);
  }

  /// The only row. Throws Error if there is none, or more than one.
  template <typename... T, typename... P>
  typename Rows<T...>::value_type One(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadOne<typename Rows<T...>::value_type>(reader);
  }

  /// All rows, in order.
  template <typename... T, typename... P>
  std::vector<typename Rows<T...>::value_type> All(const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    detail::RowReader reader = Reader(arguments.all, arguments.kCount, detail::ShapeOf<T...>());
    return detail::ReadAll<typename Rows<T...>::value_type>(reader);
  }

 private:
  // Takes it for one use, and binds the values. Throws Error.
  detail::Lease Begin(const detail::Argument* arguments, std::size_t count, detail::Values values) const;
  detail::RowReader Reader(const detail::Argument* arguments, std::size_t count, const detail::RowShape& shape) const;

  detail::Lease fLease;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_STATEMENT_H
