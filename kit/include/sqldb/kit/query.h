#ifndef SQLDB_KIT_QUERY_H
#define SQLDB_KIT_QUERY_H

// The rows of a query, one after the other, as typed values.

#include <cstddef>
#include <iterator>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/type.h"

namespace sqldb::kit {

namespace detail {

/// Throws Error unless the statement yields `wanted` columns.
SQLDB_EXPORT void CheckColumns(const Lease& lease, int wanted);
/// Throws the Error of a query that was to yield just one row.
[[noreturn]] SQLDB_EXPORT void ThrowNotOneRow(const Lease& lease, bool isThereOne);

template <typename T>
constexpr bool kIsReference = std::is_reference_v<T> || std::is_pointer_v<T> || std::is_same_v<T, std::string_view>;

/// How many T make a row: one is given as it is, several as a tuple.
template <typename... T>
struct RowOf {
  using type = std::tuple<T...>;
  static void Load(sqlite3_stmt* statement, type& row) { Load(statement, row, std::index_sequence_for<T...>()); }

 private:
  template <std::size_t... I>
  static void Load(sqlite3_stmt* statement, type& row, std::index_sequence<I...>) {
    (Codec<T>::Load(ColumnOf(statement, static_cast<int>(I)), std::get<I>(row)), ...);
  }
};
template <typename T>
struct RowOf<T> {
  using type = T;
  static void Load(sqlite3_stmt* statement, T& row) { Codec<T>::Load(ColumnOf(statement, 0), row); }
};

}  // namespace detail

/// A running query. Each row is read when the iterator comes to it, into the same object; copy what is to stay. Can be
/// moved, also while it is iterated over.
///
/// While it stands on a row, other connections may have to wait: read on, or destroy it.
template <typename... T>
class [[nodiscard]] Rows {
  static_assert(sizeof...(T) > 0, "Say what a row is: Query<std::string, double>(...).");
  static_assert(!(detail::kIsReference<T> || ...),
                "A row has values of its own: std::string rather than std::string_view or a pointer.");

 public:
  /// T, or a tuple of all T.
  using value_type = typename detail::RowOf<T...>::type;

  /// See Database::Query. Throws Error if the statement yields another number of columns.
  explicit Rows(detail::Lease lease) : fLease(std::move(lease)) {
    detail::CheckColumns(fLease, static_cast<int>(sizeof...(T)));
  }
  Rows(Rows&&) = default;

  /// Behind the last row.
  struct End {};

  /// Reads one row after the other.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Rows::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    /// Valid until the iterator is advanced.
    reference operator*() const { return *fRows->fRow; }
    pointer operator->() const { return &*fRows->fRow; }
    Iterator& operator++() {
      fRows->Advance();
      return *this;
    }
    void operator++(int) { fRows->Advance(); }

    friend bool operator==(const Iterator& a, End) { return a.IsAtEnd(); }
    friend bool operator!=(const Iterator& a, End) { return !a.IsAtEnd(); }

   private:
    friend class Rows;
    explicit Iterator(Rows* rows) : fRows(rows) {}

    bool IsAtEnd() const { return !fRows->fRow; }

    Rows* fRows;
  };

  /// Runs the query, a second time anew, and reads its first row. Throws Error here and while rows are read, also what
  /// a Type throws; the iterator is then at the end.
  Iterator begin() {
    fLease.Reset();
    Advance();
    return Iterator(this);
  }
  End end() const { return End(); }

  /// The first row; none if there is no row.
  std::optional<value_type> First() {
    begin();
    return std::move(fRow);
  }

  /// The only row. Throws Error if there is none, or more than one.
  value_type One() {
    begin();
    if (!fRow) detail::ThrowNotOneRow(fLease, false);
    value_type row = std::move(*fRow);
    if (fLease.Step()) detail::ThrowNotOneRow(fLease, true);
    return row;
  }

  /// All rows, in order.
  std::vector<value_type> All() {
    std::vector<value_type> all;
    fLease.Reset();
    while (fLease.Step()) detail::RowOf<T...>::Load(fLease.Statement(), all.emplace_back());
    return all;
  }

 private:
  void Advance() {
    if (!fLease.Step()) {
      fRow.reset();
      return;
    }
    try {
      detail::RowOf<T...>::Load(fLease.Statement(), fRow ? *fRow : fRow.emplace());
    } catch (...) {
      fRow.reset();
      fLease.Reset();
      throw;
    }
  }

  detail::Lease fLease;
  std::optional<value_type> fRow;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_QUERY_H
