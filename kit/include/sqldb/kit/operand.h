#ifndef SQLDB_KIT_OPERAND_H
#define SQLDB_KIT_OPERAND_H

// What may stand in a condition, an order or an assignment, and beside what: columns, SQL and values, each of which
// goes into a Piece in its own way.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "sqldb/kit/codec.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit::detail {

/// What a type is compared as: any number with any number, any text with any text, all else with itself.
template <typename T>
struct ComparedAs {
  using type = std::conditional_t<kIsInteger<T> || kIsOneOf<T, float, double>, double, T>;
};
template <typename T>
struct ComparedAs<std::optional<T>> : ComparedAs<T> {};
template <std::size_t N>
struct ComparedAs<char[N]> : ComparedAs<std::string> {};
template <std::size_t N>
struct ComparedAs<std::array<char, N>> : ComparedAs<std::string> {};
template <>
struct ComparedAs<std::string_view> : ComparedAs<std::string> {};
template <>
struct ComparedAs<const char*> : ComparedAs<std::string> {};
template <>
struct ComparedAs<char*> : ComparedAs<std::string> {};

/// As what a number goes into a Piece without a call for its type; void for all else.
template <typename T>
using NumberOf = std::conditional_t<kIsInteger<T> && (std::is_signed_v<T> || sizeof(T) < sizeof(std::int64_t)),
                                    std::int64_t, std::conditional_t<std::is_same_v<T, double>, double, void>>;

/// What stands in a comparison: a value, unless it is one of the kit's own, which the specialisations are for. Each has
///
///     kIsExpression  whether it may differ from row to row, as a column and an Sql do
///     kCanCompare    whether it may stand in a comparison; std::nullopt and a value in a std::optional may not
///     Type           what it is compared as, see ComparedAs
///     Add            appends it to a Piece: a value as a parameter, of which the Piece keeps a copy
template <typename T>
struct Operand {
  static constexpr bool kIsExpression = false;
  static constexpr bool kCanCompare = true;
  using Type = typename ComparedAs<T>::type;
  static void Add(Piece& piece, const T& value) {
    if constexpr (std::is_same_v<NumberOf<T>, std::int64_t>) {
      piece.AddInteger(value);
    } else if constexpr (std::is_same_v<NumberOf<T>, double>) {
      piece.AddReal(value);
    } else {
      piece.AddValue(ArgumentOf(value));
    }
  }
};
/// A value that may be NULL: for Is and Set, as nothing compares with NULL.
template <typename T>
struct Operand<std::optional<T>> : Operand<T> {
  static constexpr bool kCanCompare = false;
  static void Add(Piece& piece, const std::optional<T>& value) { piece.AddValue(ArgumentOf(value)); }
};
/// NULL itself: for Set.
template <>
struct Operand<std::nullopt_t> {
  static constexpr bool kIsExpression = false;
  static constexpr bool kCanCompare = false;
  using Type = void;
  static void Add(Piece& piece, const std::nullopt_t& value) { piece.AddValue(ArgumentOf(value)); }
};
/// A column, by its name, compared as what its member may have.
template <typename T>
struct Operand<Column<T>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = typename ComparedAs<T>::type;
  static void Add(Piece& piece, const Column<T>& column) { piece.AddColumn(column.Qualifier(), column.Name()); }
};
/// SQL of the program's own, with its values, compared as what it says that it yields.
template <typename T>
struct Operand<Sql<T>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = typename ComparedAs<T>::type;
  static void Add(Piece& piece, const Sql<T>& sql) { piece.Add(sql.Parts()); }
};
/// Several side by side, compared with as many of the same kinds.
template <typename... T>
struct Operand<RowValue<T...>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = std::tuple<T...>;
  static void Add(Piece& piece, const RowValue<T...>& row) { piece.Add(row.Parts()); }
};

/// What stands on the left of IN and LIKE, and in an order. Does not compile for a value, which is most often a side
/// that was mistaken for the other.
template <typename A>
constexpr void RequireExpression() {
  static_assert(Operand<A>::kIsExpression, "This is of a column or an Sql: a value is the same in every row.");
}

/// Does not compile for std::nullopt or a value in a std::optional, which IsNull and Is are for, nor for sides of which
/// one is a number and the other a text: SQLite would compare them without a word, and find nothing.
template <typename A, typename B>
constexpr void RequireComparable() {
  constexpr bool canCompare = Operand<A>::kCanCompare && Operand<B>::kCanCompare;
  static_assert(canCompare,
                "Nothing compares with NULL: use IsNull(column), or Is(column, value) with a std::optional.");
  static_assert(!canCompare || std::is_same_v<typename Operand<A>::Type, typename Operand<B>::Type>,
                "Compare numbers with numbers, texts with texts, and all else with its own type.");
}

/// Leaves all comparisons alone that have nothing of the kit on either side.
template <typename A, typename B>
using EnableComparison = std::enable_if_t<Operand<A>::kIsExpression || Operand<B>::kIsExpression, int>;

/// Whether a column whose member is a T can be given a V: one that compares with it. NULL, and a value that may be
/// NULL, goes into a std::optional only. Whether a number fits is looked at when it is there, by CheckHolds.
template <typename T, typename V>
constexpr bool kCanHold = std::is_same_v<typename Operand<T>::Type, typename Operand<V>::Type>;
template <typename T, typename V>
inline constexpr bool kCanHold<std::optional<T>, V> = kCanHold<T, V>;
template <typename T, typename V>
inline constexpr bool kCanHold<std::optional<T>, std::optional<V>> = kCanHold<T, V>;
template <typename T>
inline constexpr bool kCanHold<std::optional<T>, std::nullopt_t> = true;
template <typename T>
inline constexpr bool kCanHold<T, std::nullopt_t> = false;
template <typename T, typename V>
inline constexpr bool kCanHold<T, std::optional<V>> = false;

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_OPERAND_H
