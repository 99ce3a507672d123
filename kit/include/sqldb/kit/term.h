#ifndef SQLDB_KIT_TERM_H
#define SQLDB_KIT_TERM_H

// Conditions, built at run time from typed columns and values:
//
//   constexpr Column price(&Part::price);
//   constexpr Column name(&Part::name);
//   Term term = price < 1.0 && (Like(name, "bolt%") || IsNull(note));
//   parts.Delete(term);
//
//   price < 1.0, 1.0 < price, name == label        comparisons, on either side; == != < <= > >=
//   IsNull(note), Is(note, optionalNote)           what NULL is, to which nothing compares
//   Between(price, 1, 2), In(name, names)          ranges and sets
//   Like(name, "bolt%")                            patterns
//   RowOf(day, id) > RowOf(lastDay, lastId)        rows of columns, compared from left to right
//   a && b, a || b, !a                             combinations
//   Where("notes MATCH ?", words)                  all else, as SQL of the program's own
//
// A term carries its values, which become parameters: none of them is ever read as SQL. An empty term vanishes from a
// combination, so that a filter which the user left out needs no case of its own. Any number of operands works, but
// combinations of combinations go only as deep as SQLite's parser: some forty levels of a few operands, ten of a
// hundred each.
//
// Columns are constants. Terms are values, of which copies may be used by different threads: to copy one is cheap, and
// a chain that grows (`term = term && ...`) is not copied.

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "sqldb/export.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/operand.h"
#include "sqldb/kit/piece.h"

namespace boost {
template <typename T>
class shared_ptr;
}

namespace sqldb {

class SQLTermBase;

namespace kit {

/// A condition on the rows of a table, or none. A filter that a user may leave out in part begins with none:
///
///   Term term;
///   if (dearest) term = term && price <= *dearest;
///   if (!names.empty()) term = term && In(name, names);
///   for (const Part& part : parts.Select(term)) ...
///
/// A term belongs to no table: what it names is looked up when an operation compiles it, and what is missing there is
/// that operation's Error. It keeps copies of its values, so that it may outlive all that it was built from.
class SQLDB_EXPORT Term {
 public:
  /// None: it holds for every row, and vanishes from a combination.
  Term() = default;
  /// For the kit: one that is made of Parts, and needs no parentheses where it stands beside AND, OR and NOT.
  static Term OfParts() noexcept {
    Term term;
    term.fShape = Shape::kOne;
    return term;
  }

  /// Whether it is none. An update and a delete refuse such a one; EveryRow says that all rows are meant.
  bool IsEmpty() const noexcept { return fShape == Shape::kNone; }

  /// As the core takes it, with its values as literals; for none SQLEmptyTerm::EmptyTerm, which means every row, and
  /// which an update of the core refuses.
  boost::shared_ptr<SQLTermBase> Core() const;

  /// Holds where both do. An empty one vanishes; of two empty ones the result is empty. Both sides are always
  /// evaluated, since neither is a bool.
  friend Term operator&&(const Term& a, const Term& b) { return Combine(a, b, Shape::kAnd); }
  /// Holds where one does at least. An empty one vanishes, too: it is a filter that was left out, not one that every
  /// row passes.
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

/// A condition that the program wrote, with a value for each question mark: `Where("notes MATCH ?", words)`. It stands
/// in parentheses of its own, whatever it is combined with. A question mark in a text, a quoted name or a comment is
/// none of its parameters. The values are copied.
///
/// Throws Error for a value too few or too many, and for a parameter of another form, such as ?1 or :name.
/// REQUIRES: `sql` is a condition, never input.
template <typename... P>
Term Where(std::string_view sql, const P&... values) {
  const detail::Arguments<P...> arguments(values...);
  Term term = Term::OfParts();
  term.Parts().AddSql(sql, arguments.all, arguments.kCount);
  return term;
}

/// Every row: what an update or a delete without a condition has to say.
SQLDB_EXPORT Term EveryRow();

namespace detail {

/// Appends one side, what stands between them, which stays, and the other side.
template <typename A, typename B>
void AddTogether(Piece& piece, const A& a, const char* between, const B& b) {
  Operand<A>::Add(piece, a);
  piece.AddStatic(between);
  Operand<B>::Add(piece, b);
}
/// A column with a number, the most frequent of all, in one call. REQUIRES: `piece` is empty.
template <typename T, typename B, std::enable_if_t<!std::is_void_v<NumberOf<B>>, int> = 0>
void AddTogether(Piece& piece, const Column<T>& a, const char* between, const B& b) {
  if (a.Qualifier() == nullptr) {
    piece.AddComparison(a.Name(), between, static_cast<NumberOf<B>>(b));
  } else {
    AddTogether<Column<T>, B>(piece, a, between, b);
  }
}

/// The same as a term.
template <typename A, typename B>
Term Together(const A& a, const char* between, const B& b) {
  Term term = Term::OfParts();
  AddTogether(term.Parts(), a, between, b);
  return term;
}

/// The same, if the two sides can be compared; it does not compile otherwise.
template <typename A, typename B>
Term Compare(const A& a, const char* operation, const B& b) {
  RequireComparable<A, B>();
  return Together(a, operation, b);
}

}  // namespace detail

/// @{
/// Compares a column, an Sql or a RowOf with a value or with one another, on either side. NULL compares to nothing:
/// neither `price < 1.0` nor `price >= 1.0` holds for a row without a price, and a std::optional on one side does not
/// compile: see Is.
///
/// Numbers are compared with numbers, also if one is an integer and the other is not, and texts with texts, by the
/// collation of the column, by their bytes unless that has one; other sides do not compile. An Sql has the collation
/// that SQLite finds for it. Throws ConversionError for NaN and for what is beyond 64 bits with a sign, what a Type
/// throws, and std::bad_alloc.
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

/// Columns or values side by side, two at least, compared from left to right: the first parts that differ decide. To go
/// on where a page ended: `RowOf(day, id) > RowOf(last.day, last.id)`. Where a NULL is
/// among the parts that decide, it holds for no row.
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

/// Holds for the rows in which the expression is NULL. `!IsNull(note)` holds for all others. An index serves it.
template <typename A>
Term IsNull(const A& expression) {
  detail::RequireExpression<A>();
  Term term = Term::OfParts();
  detail::Operand<A>::Add(term.Parts(), expression);
  term.Parts().AddStatic(" IS NULL");
  return term;
}

/// Holds for the rows that have just this value, or that have none if `value` is empty: the comparison for an optional
/// filter value, where == does not compile. Never NULL itself: `!Is(note, text)` holds for rows without a note, which
/// `note != *text` does not.
template <typename A, typename T>
Term Is(const A& expression, const std::optional<T>& value) {
  detail::RequireExpression<A>();
  static_assert(std::is_same_v<typename detail::Operand<A>::Type, typename detail::Operand<T>::Type>,
                "Compare numbers with numbers, texts with texts, and all else with its own type.");
  return detail::Together(expression, " IS ", value);
}

/// Holds for the rows whose value is neither less than `low` nor greater than `high`: both bounds are included. It
/// holds for none if `low` is greater than `high`, or where the value is NULL. Each of the three may
/// be a column: `Between(today, from, until)`.
template <typename A, typename B, typename C>
Term Between(const A& expression, const B& low, const C& high) {
  detail::RequireComparable<A, C>();
  Term term = detail::Compare(expression, " BETWEEN ", low);
  term.Parts().AddStatic(" AND ");
  detail::Operand<C>::Add(term.Parts(), high);
  return term;
}

/// Holds for the rows whose value is one of `values`, a range of them: for none, if there are none. The values are
/// copied. Any number works; each number makes a statement of its own, so where the number changes all the time a query
/// with a List compiles less. NULL is in no set and cannot be a value of one: a range of optionals does not compile.
template <typename A, typename Values>
Term In(const A& expression, const Values& values) {
  detail::RequireExpression<A>();
  Term term = Term::OfParts();
  detail::Piece& piece = term.Parts();
  detail::Operand<A>::Add(piece, expression);
  const char* separator = " IN (";
  piece.AddStatic(separator);
  separator = "";
  for (const auto& given : values) {
    using Value = typename detail::ElementOf<Values, decltype(given)>::Type;
    const Value& value = given;
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

/// Appends LIKE, the pattern as a parameter, and the escape. Throws Error for a zero byte in the pattern or the escape.
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

/// `text` with `escape` before every character that LIKE would take for more than itself: %, _ and the escape. To find
/// what a user typed, whatever that is:
///
///     Like(name, "%" + EscapedForLike(typed, '\\') + "%", '\\')
SQLDB_EXPORT std::string EscapedForLike(std::string_view text, char escape);

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_TERM_H
