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
#include "sqldb/kit/type.h"

namespace sqldb::kit {

namespace detail {

/// A part of a row: a scalar, a struct, or a std::optional of a struct.
struct RowPiece {
  /// Null for a scalar.
  const RecordLayout* layout;
  /// Null for a struct; otherwise the only field of a record that is the scalar.
  const FieldEntry* scalar;
  /// For a std::optional of a struct: makes one and returns its address, or leaves none if it is not there.
  void* (*emplace)(void* optional, bool isThere);
};

/// What a row is made of, without its type.
struct RowShape {
  const RowPiece* pieces;
  int count;
  /// Of all pieces.
  int columnCount;
  /// The only piece, unless that is a std::optional of a struct, as a record: a scalar is one with one field. Otherwise
  /// null.
  const RecordLayout* only;
  /// Whether there is a struct, which finds its columns by their names.
  bool isNamed;
};

/// How the columns of a result come to the parts of a row.
enum class ColumnOrder {
  /// In the order of the pieces and their fields. They are just those.
  kAsWritten,
  /// By the names of the fields. Throws Error if a column is missing or there twice, or if there are too few or too
  /// many.
  kByName,
};

/// Steps through the rows of a statement and reads them, without their type. Copies share the statement and so go on
/// together; one that was made without a statement is at the end.
class SQLDB_EXPORT RowReader {
 public:
  RowReader() = default;
  /// Runs nothing yet. Throws Error.
  /// REQUIRES: `shape` lives forever.
  RowReader(Lease lease, const RowShape& shape, ColumnOrder order);

  /// Runs the statement from its beginning. Returns whether there is a row. Throws Error; nothing is then running.
  bool First();
  /// Goes on to the next row. Returns false if there is none left, also if the statement has been run to its end, or
  /// stopped, by way of a copy. Throws Error; nothing is then running.
  bool Next();
  /// Next, and Load if there is a row.
  bool LoadNext(void* const* places);
  /// First, and Load if there is a row.
  bool LoadFirst(void* const* places);
  /// Reads the row into the pieces at `places`. What it throws stops the statement before.
  void Load(void* const* places);
  /// Runs it from its beginning to its end, and reads each row into the pieces of what `append` adds to `rows`.
  /// REQUIRES: `places` has room for as many as there are pieces.
  void LoadAll(void* rows, void (*append)(void* rows, void** places), void** places);
  /// Goes on to the end of a statement that writes, and stops one that reads.
  void Finish();
  /// Throws the Error of a query that was to yield just one row.
  [[noreturn]] void ThrowNotOneRow(bool isThereOne) const;

  bool IsWriting() const noexcept { return fLease.IsWriting(); }

 private:
  Lease fLease;
  const RowShape* fShape = nullptr;
  ColumnOrder fOrder = ColumnOrder::kAsWritten;
};

template <typename T>
constexpr bool kIsOptionalStruct = false;
template <typename T>
inline constexpr bool kIsOptionalStruct<std::optional<T>> = kIsDescribed<T>;

template <typename Struct>
void* EmplaceStruct(void* optional, bool isThere) {
  auto& place = *static_cast<std::optional<Struct>*>(optional);
  if (isThere) return place ? &*place : &place.emplace();
  place.reset();
  return nullptr;
}

/// A record that is nothing but a T.
template <typename T>
const RecordLayout& LayoutOfScalar() {
  static const FieldEntry field{"",
                                nullptr,
                                Codec<T>::kSql,
                                Transfer<T>::kLoad,
                                Transfer<T>::kBind,
                                0,
                                Transfer<T>::kShortcut,
                                Codec<T>::kCanBeNull,
                                false,
                                false};
  static const RecordLayout layout{nullptr, &field, 1, 0};
  return layout;
}

template <typename T>
RowPiece PieceOf() {
  if constexpr (kIsDescribed<T>) {
    return RowPiece{&LayoutOf<T>(), nullptr, nullptr};
  } else if constexpr (kIsOptionalStruct<T>) {
    using Struct = typename T::value_type;
    return RowPiece{&LayoutOf<Struct>(), nullptr, &EmplaceStruct<Struct>};
  } else {
    return RowPiece{nullptr, LayoutOfScalar<T>().fields, nullptr};
  }
}

/// See RowShape.
template <typename T, typename... Others>
const RecordLayout* OnlyOf() {
  if constexpr (sizeof...(Others) > 0 || kIsOptionalStruct<T>) {
    return nullptr;
  } else if constexpr (kIsDescribed<T>) {
    return &LayoutOf<T>();
  } else {
    return &LayoutOfScalar<T>();
  }
}

inline int ColumnCountOf(const RowPiece& piece) { return piece.layout != nullptr ? piece.layout->count : 1; }

/// The shape of a row of all T.
template <typename... T>
const RowShape& ShapeOf() {
  static const RowPiece pieces[] = {PieceOf<T>()...};
  static const RowShape shape = [] {
    int columnCount = 0;
    for (const RowPiece& pieceOfRow : pieces) columnCount += ColumnCountOf(pieceOfRow);
    const bool isNamed = ((kIsDescribed<T> || kIsOptionalStruct<T>) || ...);
    return RowShape{pieces, static_cast<int>(sizeof...(T)), columnCount, OnlyOf<T...>(), isNamed};
  }();
  return shape;
}

/// Where the pieces of a row are.
template <typename Row>
struct Places {
  explicit Places(Row& wholeRow) : all{&wholeRow} {}

  void* all[1];
};
template <typename... T>
struct Places<std::tuple<T...>> {
  explicit Places(std::tuple<T...>& wholeRow) : Places(wholeRow, std::index_sequence_for<T...>()) {}

  void* all[sizeof...(T)];

 private:
  template <std::size_t... I>
  Places(std::tuple<T...>& wholeRow, std::index_sequence<I...>) : all{&std::get<I>(wholeRow)...} {}
};

/// Reads the row on which the statement stands.
template <typename Row>
void LoadRow(RowReader& reader, Row& row) {
  reader.Load(Places<Row>(row).all);
}

/// Appends an empty row to the std::vector<Row> at `rows`, and says where its pieces are.
template <typename Row>
void AppendRow(void* rows, void** places) {
  const Places<Row> placesOfRow(static_cast<std::vector<Row>*>(rows)->emplace_back());
  for (void* const place : placesOfRow.all) *places++ = place;
}

/// Runs it from its beginning and reads the first row; none if there is no row.
template <typename Row>
std::optional<Row> ReadFirst(RowReader& reader) {
  std::optional<Row> row;
  if (reader.First()) {
    LoadRow(reader, row.emplace());
    reader.Finish();
  }
  return row;
}

/// The same with the only row. Throws Error if there is none, or more than one.
template <typename Row>
Row ReadOne(RowReader& reader) {
  Row row{};
  if (!reader.LoadFirst(Places<Row>(row).all)) reader.ThrowNotOneRow(false);
  if (reader.Next()) reader.ThrowNotOneRow(true);
  return row;
}

/// The same with all rows.
template <typename Row>
std::vector<Row> ReadAll(RowReader& reader) {
  std::vector<Row> rows;
  if constexpr (std::is_same_v<Row, bool>) {
    // Whose elements have no address.
    bool row = false;
    void* const place = &row;
    for (bool isThere = reader.LoadFirst(&place); isThere; isThere = reader.LoadNext(&place)) rows.push_back(row);
  } else {
    void* places[sizeof(Places<Row>) / sizeof(void*)];
    reader.LoadAll(&rows, &AppendRow<Row>, places);
  }
  return rows;
}

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

  /// What `*it++` still has of the row before.
  class Previous {
   public:
    explicit Previous(Row&& previousRow) : fRow(std::move(previousRow)) {}
    Row operator*() && { return std::move(fRow); }

   private:
    Row fRow;
  };

  /// Behind the last row.
  RowIterator() = default;
  /// Runs the statement from its beginning, and reads its first row.
  explicit RowIterator(RowReader rowReader) : fReader(std::move(rowReader)) {
    if (fReader.First()) LoadRow(fReader, fRow.emplace());
  }
  /// Over rows that are there, and stay there.
  RowIterator(const KeptRow<Row>* firstRow, const KeptRow<Row>* behindLastRow)
      : fKept(firstRow), fKeptEnd(behindLastRow) {}

  /// Valid until the iterator is advanced.
  reference operator*() const { return fKept != fKeptEnd ? fKept->row : *fRow; }
  pointer operator->() const { return &**this; }

  /// Throws Error, and what a Type throws; the iterator is then at the end.
  RowIterator& operator++() {
    if (fKept != fKeptEnd) {
      ++fKept;
    } else if (fRow) {
      Advance();
    }
    return *this;
  }
  Previous operator++(int) {
    Previous previous(fKept != fKeptEnd ? Row(fKept->row) : std::move(*fRow));
    ++*this;
    return previous;
  }

  /// Whether both are at the end, or neither is.
  friend bool operator==(const RowIterator& a, const RowIterator& b) { return a.IsAtEnd() == b.IsAtEnd(); }
  friend bool operator!=(const RowIterator& a, const RowIterator& b) { return a.IsAtEnd() != b.IsAtEnd(); }

 private:
  bool IsAtEnd() const { return !fRow && fKept == fKeptEnd; }

  void Advance() {
    bool isThere = false;
    try {
      isThere = fReader.LoadNext(Places<Row>(*fRow).all);
    } catch (...) {
      fRow.reset();
      throw;
    }
    if (!isThere) fRow.reset();
  }

  RowReader fReader;
  std::optional<Row> fRow;
  const KeptRow<Row>* fKept = nullptr;
  const KeptRow<Row>* fKeptEnd = nullptr;
};

template <typename... T>
struct RowOf {
  using type = std::tuple<T...>;
};
template <typename T>
struct RowOf<T> {
  using type = T;
};

/// "p.id, p.name", or "id, name" without an alias.
SQLDB_EXPORT std::string NamesOf(const RecordLayout& layout, std::string_view alias);

}  // namespace detail

/// The columns of a struct for a SELECT, in the order of its fields: Columns<Part>("p") is "p.id, p.name, p.price".
/// REQUIRES: `alias` is SQL, never input.
template <typename Struct>
std::string Columns(std::string_view alias = {}) {
  return detail::NamesOf(detail::LayoutOf<Struct>(), alias);
}

/// A query with its values. begin() runs it and reads its first row, and runs it anew when called again; the iterators
/// made before are then not to be used any more. Each further row is read when the iterator comes to it, into the same
/// object: copy what is to stay. Can be moved, also while it is iterated over.
///
/// A query that writes (INSERT ... RETURNING) has run to its end when Query returns; its rows are kept, and begin()
/// gives those.
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
  explicit Rows(detail::Lease leaseOfQuery)
      : fReader(std::move(leaseOfQuery), detail::ShapeOf<T...>(), detail::ColumnOrder::kByName),
        fIsKept(fReader.IsWriting()) {
    if (!fIsKept) return;
    for (bool isThere = fReader.First(); isThere; isThere = fReader.Next()) {
      detail::LoadRow(fReader, fKept.emplace_back().row);
    }
    fReader = detail::RowReader();
  }
  /// The other one is then only to be destroyed or assigned to.
  Rows(Rows&&) noexcept = default;
  /// The same.
  Rows& operator=(Rows&&) noexcept = default;

  /// Throws Error, here and while rows are read, and what a Type throws; the iterator is then at the end.
  iterator begin() { return fIsKept ? iterator(fKept.data(), fKept.data() + fKept.size()) : iterator(fReader); }
  /// Behind the last row.
  iterator end() const { return iterator(); }

 private:
  detail::RowReader fReader;
  bool fIsKept;
  std::vector<detail::KeptRow<value_type>> fKept;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_QUERY_H
