#ifndef SQLDB_KIT_ROW_READER_H
#define SQLDB_KIT_ROW_READER_H

// Reads the rows of a statement without their type: what a row is made of is plain data, which compiled code walks. The
// templates around it know where the pieces of one row are, and no more.

#include <cstddef>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/record.h"

namespace sqldb::kit::detail {

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

/// Steps through the rows of a statement and reads them, without their type. Copies share the statement and so go on
/// together; one that was made without a statement is at the end.
class SQLDB_EXPORT RowReader {
 public:
  /// At the end.
  RowReader() = default;
  /// Of a query of the program's own: a struct finds its columns by the names of its fields. Runs nothing yet. Throws
  /// Error if a column is missing or there twice, or if there are too few or too many.
  /// REQUIRES: `shape` lives forever.
  RowReader(Lease&& lease, const RowShape& shape);
  /// Of a query that the kit wrote: the columns are the fields of the record, in their order.
  /// REQUIRES: `layout` lives forever.
  RowReader(Lease&& lease, const RecordLayout& layout) noexcept;

  /// Runs the statement from its beginning. Returns whether there is a row. Throws Error; nothing is then running.
  bool First();
  /// Goes on to the next row. Returns false if there is none left, also if the statement has been run to its end, or
  /// stopped, by way of a copy. Throws Error; nothing is then running.
  bool Next();
  /// Next, and Load if there is a row. Returns false if there is none left.
  bool LoadNext(void* const* places);
  /// First, and Load if there is a row. Returns false if there is none.
  bool LoadFirst(void* const* places);
  /// The same, and goes on to the end of a statement that writes.
  bool LoadFirstAndFinish(void* const* places);
  /// Runs it from its beginning to its end, and reads its only row. Throws Error if there is none, or more than one.
  void LoadOnly(void* const* places);
  /// Reads the row into the pieces at `places`, as many as a row is made of. Throws ConversionError, and what a Type
  /// throws; the statement has been stopped before.
  /// REQUIRES: the statement stands on a row.
  void Load(void* const* places);
  /// Runs it from its beginning to its end, and reads each row into the pieces of what `append` adds to `rows`.
  /// REQUIRES: `places` has room for as many as there are pieces.
  void LoadAll(void* rows, void (*append)(void* rows, void** places), void** places);
  /// Whether the statement writes; see Rows.
  bool IsWriting() const noexcept { return fLease.IsWriting(); }
  /// That its lease only holds the statement, while copies of the reader step it.
  Hold HoldLease() const noexcept { return Hold(fLease); }

 private:
  void Finish();

  Lease fLease;
  // Null for a query that the kit wrote.
  const RowShape* fShape = nullptr;
  // See RowShape::only.
  const RecordLayout* fOnly = nullptr;
};

/// Whether T is a std::optional of a described struct, which a join may leave empty.
template <typename T>
constexpr bool kIsOptionalStruct = false;
template <typename T>
inline constexpr bool kIsOptionalStruct<std::optional<T>> = kIsDescribed<T>;

/// RowPiece::emplace of a std::optional<Struct>. A struct that is there already is read into.
template <typename Struct>
void* EmplaceStruct(void* optional, bool isThere) {
  auto& place = *static_cast<std::optional<Struct>*>(optional);
  if (isThere) return place ? &*place : &place.emplace();
  place.reset();
  return nullptr;
}

/// A record that is nothing but a T, as a struct of one field would be. Lives forever.
template <typename T>
const RecordLayout& LayoutOfScalar() {
  static constexpr FieldEntry kField{"",
                                     nullptr,
                                     Codec<T>::kSql,
                                     Transfer<T>::kLoad,
                                     Transfer<T>::kBind,
                                     0,
                                     Transfer<T>::kShortcut,
                                     Codec<T>::kCanBeNull,
                                     false,
                                     false};
  static constexpr RecordLayout kLayout{nullptr, &kField, 1, 0};
  return kLayout;
}

/// The part of a row that a T is.
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

/// RowShape::only of a row of these.
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

/// How many columns of a result it takes.
inline int ColumnCountOf(const RowPiece& piece) { return piece.layout != nullptr ? piece.layout->count : 1; }

/// A RowShape with the pieces that it points to.
template <typename... T>
struct ShapeStorage {
  static int ColumnCount(const RowPiece (&pieces)[sizeof...(T)]) {
    int count = 0;
    for (const RowPiece& piece : pieces) count += ColumnCountOf(piece);
    return count;
  }

  const RowPiece pieces[sizeof...(T)] = {PieceOf<T>()...};
  const RowShape shape{pieces, static_cast<int>(sizeof...(T)), ColumnCount(pieces), OnlyOf<T...>(),
                       ((kIsDescribed<T> || kIsOptionalStruct<T>) || ...)};
};

/// The shape of a row of all T. Made at its first use, by whatever thread, and lives forever, so that its address
/// stands for it: a statement remembers which columns it has found for which shape.
template <typename... T>
const RowShape& ShapeOf() {
  static const ShapeStorage<T...> storage;
  return storage.shape;
}

/// Where the pieces of a row are: of a tuple its elements, of all else the row itself. Valid as long as the row stays
/// where it is.
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

/// Reads the row on which the statement stands. Throws what RowReader::Load throws.
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

/// Runs it from its beginning and reads the first row; none if there is no row. One that writes is run to its end.
template <typename Row>
std::optional<Row> ReadFirst(RowReader& reader) {
  std::optional<Row> row(std::in_place);
  if (!reader.LoadFirstAndFinish(Places<Row>(*row).all)) row.reset();
  return row;
}

/// The same with the only row. Throws Error if there is none, or more than one.
template <typename Row>
Row ReadOne(RowReader& reader) {
  Row row{};
  reader.LoadOnly(Places<Row>(row).all);
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

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_ROW_READER_H
