#ifndef SQLDB_KIT_TERM_H
#define SQLDB_KIT_TERM_H

// Conditions, orders and assignments, built at run time from typed columns and values:
//
//   constexpr Column price(&Part::price);
//   constexpr Column name(&Part::name);
//   Term term = price < 1.0 && (Like(name, "bolt%") || IsNull(note));
//   parts.Delete(term);
//
// A term carries its values, which become parameters: none of them is ever read as SQL. An empty term vanishes from a
// combination, so that a filter which the user left out needs no case of its own. Any number of operands works.
//
// Columns are constants. Terms are values, of which copies may be used by different threads: to copy one is cheap, and
// a chain that grows (`term = term && ...`) is not copied.

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sqldb/export.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/piece.h"
#include "sqldb/kit/type.h"

namespace boost {
template <typename T>
class shared_ptr;
}

namespace sqldb {

class SQLTermBase;

namespace kit {

/// A condition, or none.
class SQLDB_EXPORT Term {
 public:
  /// None.
  Term() = default;
  /// For the kit: one that is made of Parts, and needs no parentheses where it stands beside AND, OR and NOT.
  static Term OfParts() noexcept {
    Term term;
    term.fShape = Shape::kOne;
    return term;
  }

  /// Whether it is none.
  bool IsEmpty() const noexcept { return fShape == Shape::kNone; }

  /// As the core takes it, with its values as literals; for none SQLEmptyTerm::EmptyTerm, which means every row, and
  /// which an update of the core refuses.
  boost::shared_ptr<SQLTermBase> Core() const;

  /// Both; an empty one vanishes.
  friend Term operator&&(const Term& a, const Term& b) { return Combine(a, b, Shape::kAnd); }
  /// One at least; an empty one vanishes.
  friend Term operator||(const Term& a, const Term& b) { return Combine(a, b, Shape::kOr); }
  /// Not so; none if `a` is empty. As in SQL, neither `a` nor `!a` holds where `a` compares with NULL.
  friend Term operator!(const Term& a) { return Negate(a); }

  /// For the kit.
  const detail::Piece& Parts() const noexcept { return fParts; }
  /// The same.
  detail::Piece& Parts() noexcept { return fParts; }

 private:
  enum class Shape : unsigned char { kNone, kOne, kNot, kAnd, kOr };

  static Term Combine(const Term& a, const Term& b, Shape shape);
  static Term Negate(const Term& a);
  // One with which a row of operands begins.
  Term(const Term& first, Shape shape);
  bool IsOtherRow(Shape shape) const;

  detail::Piece fParts;
  Shape fShape = Shape::kNone;
  // Of what a kNot negates.
  Shape fNegated = Shape::kNone;
};

/// A condition that the program wrote, with a value for each question mark: `Where("notes MATCH ?", words)`. Throws
/// Error for a value too few or too many. REQUIRES: `sql` is a condition, never input.
template <typename... P>
Term Where(std::string_view sql, const P&... values) {
  const detail::Arguments<P...> arguments(values...);
  Term term = Term::OfParts();
  term.Parts().AddSql(sql, arguments.all, arguments.kCount);
  return term;
}

/// Every row: what an update or a delete without a condition has to say.
SQLDB_EXPORT Term EveryRow();

/// One entry of an order.
class Order {
 public:
  /// For the kit.
  explicit Order(detail::Piece parts) : fParts(static_cast<detail::Piece&&>(parts)) {}
  /// The same.
  const detail::Piece& Parts() const { return fParts; }

 private:
  detail::Piece fParts;
};

/// One entry of the SET list of an update; see Set.
class Assignment {
 public:
  /// For the kit.
  explicit Assignment(detail::Piece parts) : fParts(static_cast<detail::Piece&&>(parts)) {}
  /// The same.
  const detail::Piece& Parts() const { return fParts; }

 private:
  detail::Piece fParts;
};

namespace detail {

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

/// What stands in a comparison: a value, unless it is one of the kit's own.
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
template <typename T>
struct Operand<std::optional<T>> : Operand<T> {
  static constexpr bool kCanCompare = false;
  static void Add(Piece& piece, const std::optional<T>& value) { piece.AddValue(ArgumentOf(value)); }
};
template <>
struct Operand<std::nullopt_t> {
  static constexpr bool kIsExpression = false;
  static constexpr bool kCanCompare = false;
  using Type = void;
  static void Add(Piece& piece, const std::nullopt_t& value) { piece.AddValue(ArgumentOf(value)); }
};
template <typename T>
struct Operand<Column<T>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = typename ComparedAs<T>::type;
  static void Add(Piece& piece, const Column<T>& column) { piece.AddColumn(column.Qualifier(), column.Name()); }
};
template <typename T>
struct Operand<Sql<T>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = typename ComparedAs<T>::type;
  static void Add(Piece& piece, const Sql<T>& sql) { piece.Add(sql.Parts()); }
};
template <typename... T>
struct Operand<RowValue<T...>> {
  static constexpr bool kIsExpression = true;
  static constexpr bool kCanCompare = true;
  using Type = std::tuple<T...>;
  static void Add(Piece& piece, const RowValue<T...>& row) { piece.Add(row.Parts()); }
};

/// What stands on the left of IN and LIKE, and in an order.
template <typename A>
constexpr void RequireExpression() {
  static_assert(Operand<A>::kIsExpression, "This is of a column or an Sql: a value is the same in every row.");
}

template <typename A, typename B>
constexpr void RequireComparable() {
  constexpr bool canCompare = Operand<A>::kCanCompare && Operand<B>::kCanCompare;
  static_assert(canCompare,
                "Nothing compares with NULL: use IsNull(column), or Is(column, value) with a std::optional.");
  static_assert(!canCompare || std::is_same_v<typename Operand<A>::Type, typename Operand<B>::Type>,
                "Compare numbers with numbers, texts with texts, and all else with its own type.");
}

template <typename A, typename B>
using EnableComparison = std::enable_if_t<Operand<A>::kIsExpression || Operand<B>::kIsExpression, int>;

template <typename A, typename B>
void AddTogether(Piece& piece, const A& a, const char* between, const B& b) {
  Operand<A>::Add(piece, a);
  piece.AddStatic(between);
  Operand<B>::Add(piece, b);
}
/// A column with a number. REQUIRES: `piece` is empty.
template <typename T, typename B, std::enable_if_t<!std::is_void_v<NumberOf<B>>, int> = 0>
void AddTogether(Piece& piece, const Column<T>& a, const char* between, const B& b) {
  if (a.Qualifier() == nullptr) {
    piece.AddComparison(a.Name(), between, static_cast<NumberOf<B>>(b));
  } else {
    AddTogether<Column<T>, B>(piece, a, between, b);
  }
}

template <typename A, typename B>
Term Together(const A& a, const char* between, const B& b) {
  Term term = Term::OfParts();
  AddTogether(term.Parts(), a, between, b);
  return term;
}

template <typename A, typename B>
Term Compare(const A& a, const char* operation, const B& b) {
  RequireComparable<A, B>();
  return Together(a, operation, b);
}

}  // namespace detail

/// @{
/// Compares a column, an Sql or a RowOf with a value or with one another, on either side. NULL compares to nothing:
/// neither `price < 1.0` nor `price >= 1.0` holds for a row without a price.
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator==(const A& a, const B& b) {
  return detail::Compare(a, " = ", b);
}
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator!=(const A& a, const B& b) {
  return detail::Compare(a, " <> ", b);
}
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator<(const A& a, const B& b) {
  return detail::Compare(a, " < ", b);
}
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator<=(const A& a, const B& b) {
  return detail::Compare(a, " <= ", b);
}
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator>(const A& a, const B& b) {
  return detail::Compare(a, " > ", b);
}
template <typename A, typename B, detail::EnableComparison<A, B> = 0>
Term operator>=(const A& a, const B& b) {
  return detail::Compare(a, " >= ", b);
}
/// @}

/// Columns or values side by side, compared from left to right. To go on where a page ended:
/// `RowOf(day, id) > RowOf(last.day, last.id)`.
template <typename... T>
RowValue<typename detail::Operand<T>::Type...> RowOf(const T&... parts) {
  static_assert(sizeof...(T) > 1, "A row has two parts at least.");
  static_assert((detail::Operand<T>::kCanCompare && ...), "Nothing compares with NULL.");
  detail::Piece piece;
  const char* separator = "(";
  ((piece.AddStatic(separator), detail::Operand<T>::Add(piece, parts), separator = ", "), ...);
  piece.AddStatic(")");
  return RowValue<typename detail::Operand<T>::Type...>(static_cast<detail::Piece&&>(piece));
}

/// Holds for the rows without a value.
template <typename A>
Term IsNull(const A& expression) {
  detail::RequireExpression<A>();
  Term term = Term::OfParts();
  detail::Operand<A>::Add(term.Parts(), expression);
  term.Parts().AddStatic(" IS NULL");
  return term;
}

/// Holds for the rows that have just this value, or none if `value` is empty.
template <typename A, typename T>
Term Is(const A& expression, const std::optional<T>& value) {
  detail::RequireExpression<A>();
  static_assert(std::is_same_v<typename detail::Operand<A>::Type, typename detail::Operand<T>::Type>,
                "Compare numbers with numbers, texts with texts, and all else with its own type.");
  return detail::Together(expression, " IS ", value);
}

/// Both bounds included.
template <typename A, typename B, typename C>
Term Between(const A& expression, const B& low, const C& high) {
  detail::RequireComparable<A, C>();
  Term term = detail::Compare(expression, " BETWEEN ", low);
  term.Parts().AddStatic(" AND ");
  detail::Operand<C>::Add(term.Parts(), high);
  return term;
}

/// Holds for the rows whose value is one of `values`, a range of them: for none, if there are none. Any number works;
/// each number makes a statement of its own.
template <typename A, typename Values>
Term In(const A& expression, const Values& values) {
  detail::RequireExpression<A>();
  Term term = Term::OfParts();
  detail::Piece& piece = term.Parts();
  detail::Operand<A>::Add(piece, expression);
  const char* separator = " IN (";
  piece.AddStatic(separator);
  separator = "";
  for (const auto& value : values) {
    using Value = std::decay_t<decltype(value)>;
    detail::RequireComparable<A, Value>();
    piece.AddStatic(separator);
    detail::Operand<Value>::Add(piece, value);
    separator = ", ";
  }
  piece.AddStatic(")");
  return term;
}
/// The same: `In(name, {"bolt", "nut"})`.
template <typename A, typename T>
Term In(const A& expression, std::initializer_list<T> values) {
  return In<A, std::initializer_list<T>>(expression, values);
}

namespace detail {

SQLDB_EXPORT void AddLike(Piece& expression, std::string_view pattern, std::optional<char> escape);

}  // namespace detail

/// SQL's LIKE: % stands for any text, _ for one character, without regard to the case of ASCII letters. With `escape`,
/// that character before a % or _ makes it stand for itself; see EscapedForLike. An index serves a pattern that begins
/// with neither. SQLite takes texts for this up to their first zero byte; a pattern with one throws Error.
template <typename A>
Term Like(const A& expression, std::string_view pattern, std::optional<char> escape = std::nullopt) {
  detail::RequireExpression<A>();
  static_assert(std::is_same_v<typename detail::Operand<A>::Type, std::string>, "LIKE is for texts.");
  Term term = Term::OfParts();
  detail::Operand<A>::Add(term.Parts(), expression);
  detail::AddLike(term.Parts(), pattern, escape);
  return term;
}

/// `text` with `escape` before every character that LIKE would take for more than itself.
SQLDB_EXPORT std::string EscapedForLike(std::string_view text, char escape);

/// From the smallest value to the largest, NULL first.
template <typename A>
Order Ascending(const A& expression) {
  detail::RequireExpression<A>();
  detail::Piece piece;
  detail::Operand<A>::Add(piece, expression);
  return Order(static_cast<detail::Piece&&>(piece));
}
/// From the largest value to the smallest, NULL last.
template <typename A>
Order Descending(const A& expression) {
  detail::RequireExpression<A>();
  detail::Piece piece;
  detail::Operand<A>::Add(piece, expression);
  piece.AddStatic(" DESC");
  return Order(static_cast<detail::Piece&&>(piece));
}

namespace detail {

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

/// These throw the ConversionError of a value that could not be read into the member of the column again.
SQLDB_EXPORT void CheckInteger(const char* column, std::int64_t value, std::int64_t least, std::int64_t most);
SQLDB_EXPORT void CheckInteger(const char* column, double value, std::int64_t least, std::int64_t most);
SQLDB_EXPORT void CheckDouble(const char* column, std::int64_t value);
SQLDB_EXPORT void CheckFloat(const char* column, double value);
SQLDB_EXPORT void CheckText(const char* column, std::size_t size, std::size_t most);

template <typename T>
constexpr std::size_t kMostCharacters = 0;
template <std::size_t N>
inline constexpr std::size_t kMostCharacters<char[N]> = N;
template <std::size_t N>
inline constexpr std::size_t kMostCharacters<std::array<char, N>> = N;

template <typename V>
std::size_t TextSize(const V& text) {
  if constexpr (kMostCharacters<V> != 0) {
    return Unfilled(std::data(text), kMostCharacters<V>).size();
  } else {
    return std::string_view(text).size();
  }
}

/// The same for a value of any type.
template <typename T, typename V>
void CheckHolds(const char* column, const V& value) {
  if constexpr (Operand<V>::kIsExpression || std::is_same_v<T, V> || std::is_same_v<V, std::nullopt_t>) {
    return;
  } else if constexpr (kIsOptional<V>) {
    if (value) CheckHolds<T>(column, *value);
  } else if constexpr (kIsOptional<T>) {
    CheckHolds<typename T::value_type>(column, value);
  } else if constexpr (kMostCharacters<T> != 0) {
    CheckText(column, TextSize(value), kMostCharacters<T>);
  } else if constexpr (kIsInteger<T>) {
    using Given = std::conditional_t<std::is_floating_point_v<V>, double, std::int64_t>;
    constexpr bool isLarge = !std::is_signed_v<T> && sizeof(T) == sizeof(std::int64_t);
    constexpr auto most =
        isLarge ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(std::numeric_limits<T>::max());
    CheckInteger(column, static_cast<Given>(value), static_cast<std::int64_t>(std::numeric_limits<T>::min()), most);
  } else if constexpr (kIsOneOf<T, float, double> && kIsInteger<V>) {
    CheckDouble(column, static_cast<std::int64_t>(value));
    if constexpr (std::is_same_v<T, float>) CheckFloat(column, static_cast<double>(value));
  } else if constexpr (std::is_same_v<T, float>) {
    CheckFloat(column, value);
  }
}

}  // namespace detail

/// Gives a column a value, or what another column or an Sql yields: `Set(price, Sql<double>("price * ?", 1.1))`.
/// std::nullopt is NULL, for a member that is std::optional. Throws ConversionError for a number or text that the
/// member could not hold: the row could not be read any more.
template <typename T, typename V>
Assignment Set(const Column<T>& column, const V& value) {
  static_assert(detail::kCanHold<T, V>, "The member of this column cannot have such a value.");
  detail::Piece piece;
  piece.AddStatic(column.Name());
  piece.AddStatic(" = ");
  detail::Operand<V>::Add(piece, value);
  detail::CheckHolds<T>(column.Name(), value);
  return Assignment(static_cast<detail::Piece&&>(piece));
}

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_TERM_H
