#ifndef SQLDB_KIT_QUERY_H
#define SQLDB_KIT_QUERY_H

// The rows of a query, one after the other, as typed values.
//
//   for (const auto& [name, price] : database.Query<std::string, double>("SELECT name, price FROM parts")) ...
//   for (const Part& part : database.Query<Part>("SELECT * FROM parts WHERE price < ?", 1.0)) ...
//   for (const auto& [part, kind] : database.Query<Part, std::optional<Kind>>(
//            "SELECT " + Columns<Part>("p") + ", " + Columns<Kind>("k") +
//            " FROM parts p LEFT JOIN kinds k ON k.id = p.kind")) ...
//
// What a row is made of takes the columns of the result from left to right: a scalar takes one, a described struct as
// many as it has fields, among which it finds its own by their names, in any order. A struct that is alone in its row
// finds its columns among all, and leaves out those that it does not know. A std::optional of a struct is empty where
// all its columns are NULL, as they are in a LEFT JOIN that finds nothing.

#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/record.h"
#include "sqldb/kit/row_reader.h"

namespace sqldb::kit {

namespace detail {

/// A row that is kept. Not all vectors have elements of their own type, but those of this do.
template <typename Row>
struct KeptRow {
  Row row;
};

/// Reads one row after the other: those of a running statement, each when it comes to it, into an object of its own; or
/// those that are kept already. A copy goes on together with the original. It has the statement on lease, so it stays
/// valid when the range that it is from is moved or ends.
template <typename Row>
class RowIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Row;
  using difference_type = std::ptrdiff_t;
  using pointer = const Row*;
  using reference = const Row&;

  /// What `*it++` still has of the row before: an input iterator has one row only, which the next one replaces.
  class Previous {
   public:
    /// Takes the row over.
    explicit Previous(Row&& previousRow) : fRow(std::move(previousRow)) {}
    /// Once.
    Row operator*() && { return std::move(fRow); }

   private:
    Row fRow;
  };

  /// Behind the last row.
  RowIterator() = default;
  /// Runs the statement from its beginning, and reads its first row. Throws as ++ does.
  explicit RowIterator(RowReader rowReader) : fReader(std::move(rowReader)), fRow(std::in_place) {
    fIsOnRow = fReader.LoadFirst(Places<Row>(*fRow).all);
  }
  /// Over rows that are there, and stay there.
  RowIterator(KeptRow<Row>* firstRow, KeptRow<Row>* behindLastRow) : fKept(firstRow), fKeptEnd(behindLastRow) {}

  /// Valid until the iterator is advanced. REQUIRES: it is not at the end.
  reference operator*() const { return fKept != fKeptEnd ? fKept->row : *fRow; }
  /// The same.
  pointer operator->() const { return &**this; }

  /// Reads the next row into the same object; at the end it stays there. Throws Error, and what a Type throws; the
  /// iterator is then at the end, and the statement has been stopped.
  RowIterator& operator++() {
    if (fKept != fKeptEnd) {
      ++fKept;
    } else if (fIsOnRow) {
      // Also if the next one fails.
      fIsOnRow = false;
      fIsOnRow = fReader.LoadNext(Places<Row>(*fRow).all);
    }
    return *this;
  }
  /// The same. The row before is moved into what it returns; one that the range keeps is copied, if it can be.
  Previous operator++(int) {
    if (fKept != fKeptEnd) return Previous(Taken((fKept++)->row));
    Previous previous(std::move(*fRow));
    // Members that are not read have what a new one gives them.
    fRow.emplace();
    ++*this;
    return previous;
  }

  /// Whether both are at the end, or neither is: what a loop asks, and all that an input iterator can tell.
  friend bool operator==(const RowIterator& a, const RowIterator& b) { return a.IsAtEnd() == b.IsAtEnd(); }
  friend bool operator!=(const RowIterator& a, const RowIterator& b) { return a.IsAtEnd() != b.IsAtEnd(); }

 private:
  static Row Taken(Row& kept) {
    if constexpr (std::is_copy_constructible_v<Row>) {
      return kept;
    } else {
      return std::move(kept);
    }
  }

  bool IsAtEnd() const { return !fIsOnRow && fKept == fKeptEnd; }

  RowReader fReader;
  // None in an iterator that was made at the end.
  std::optional<Row> fRow;
  bool fIsOnRow = false;
  KeptRow<Row>* fKept = nullptr;
  KeptRow<Row>* fKeptEnd = nullptr;
};

/// What a row of all T is: a tuple of them, or the only one.
template <typename... T>
struct RowOf {
  using type = std::tuple<T...>;
};
template <typename T>
struct RowOf<T> {
  using type = T;
};

/// "p.id, p.name", or "id, name" without an alias. Throws std::bad_alloc.
SQLDB_EXPORT std::string NamesOf(const RecordLayout& layout, std::string_view alias);

}  // namespace detail

/// The columns of a struct for a SELECT, in the order of its fields: Columns<Part>("p") is "p.id, p.name, p.price", and
/// Columns<Part>() is "id, name, price". With them a query names what it reads, and goes on to work when the table gets
/// further columns. The names are as the description has them, with their quotes. REQUIRES: `alias` is SQL, never
/// input.
template <typename Struct>
std::string Columns(std::string_view alias = {}) {
  return detail::NamesOf(detail::LayoutOf<Struct>(), alias);
}

/// A query with its values, of which nothing has run before begin():
///
///   auto rows = database.Query<std::string, double>("SELECT name, price FROM parts WHERE price < ?", 1.0);
///   for (const auto& [name, price] : rows) ...
///
/// begin() runs it and reads its first row, and runs it anew when called again; the iterators made before are then not
/// to be used any more. Each further row is read when the iterator comes to it, into the same object: copy what is to
/// stay. Can be moved, also while it is iterated over.
///
/// It may outlive its Database object, and what it was given as values, which it keeps. Once the database is closed,
/// begin() and ++ throw Error.
///
/// A query that writes (INSERT ... RETURNING) has run to its end when Query returns; its rows are kept, and begin()
/// gives those. Its iterators are valid as long as the range; those of all other queries may outlive it.
///
/// While a query stands on a row, other connections may have to wait, and in WAL mode a write of this connection may
/// fail with SQLITE_BUSY_SNAPSHOT: read on, destroy all iterators, or take All.
template <typename... T>
class [[nodiscard]] Rows {
  static_assert(sizeof...(T) > 0, "Say what a row is made of: Query<std::string, double>(...).");
  static_assert(!((std::is_reference_v<T> || std::is_const_v<T> || std::is_array_v<T>) || ...),
                "A row has values of its own: neither references nor arrays, nor what is const.");
  static_assert((std::is_default_constructible_v<T> && ...),
                "What a row is made of is made first and read then: it needs a constructor without arguments.");

 public:
  /// T, or a tuple of all T.
  using value_type = typename detail::RowOf<T...>::type;
  /// An input iterator, in C++20 too.
  using iterator = detail::RowIterator<value_type>;

  /// See Database::Query. Throws Error.
  explicit Rows(detail::RowReader&& readerOfQuery) : fReader(std::move(readerOfQuery)), fIsKept(fReader.IsWriting()) {
    if (!fIsKept) {
      fHold = fReader.HoldLease();
      return;
    }
    for (bool isThere = fReader.First(); isThere; isThere = fReader.Next()) {
      detail::LoadRow(fReader, fKept.emplace_back().row);
    }
    fReader = detail::RowReader();
  }
  /// The other one is then only to be destroyed or assigned to.
  Rows(Rows&&) noexcept = default;
  /// The same.
  Rows& operator=(Rows&& other) noexcept {
    Rows taken(std::move(other));
    std::swap(fReader, taken.fReader);
    std::swap(fHold, taken.fHold);
    std::swap(fIsKept, taken.fIsKept);
    std::swap(fKept, taken.fKept);
    return *this;
  }
  ~Rows() = default;

  /// Runs the query from its beginning; of one that writes it gives the rows that are kept.
  ///
  /// Throws Error, here and while rows are read, among others for a column that a struct looks for and that is missing
  /// or there twice; ConversionError, which names the column, for a value that does not fit; and what a Type throws.
  /// The iterator is then at the end.
  iterator begin() { return fIsKept ? iterator(fKept.data(), fKept.data() + fKept.size()) : iterator(fReader); }
  /// Behind the last row.
  iterator end() const { return iterator(); }

 private:
  detail::RowReader fReader;
  // Ends before the lease of the reader. Iterators have leases of their own.
  detail::Hold fHold;
  bool fIsKept;
  std::vector<detail::KeptRow<value_type>> fKept;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_QUERY_H
