#ifndef SQLDB_KIT_COLUMN_H
#define SQLDB_KIT_COLUMN_H

// What stands in conditions, orders and assignments beside values: columns, and SQL of the program's own. What is made
// of them is in term.h.
//
//   constexpr Column price(&Part::price);
//   constexpr Column name(&Part::name);
//   const Sql<double> average("(SELECT AVG(price) FROM parts)");
//   parts.Select(price > average).OrderBy(Descending(price)).OrderBy(name).All();
//   parts.Update(price > average, Set(price, Sql<double>("price * ?", 0.9)));
//
// Columns are constants, which any thread may use, and their names are literals of the program: no input becomes one.

#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/piece.h"
#include "sqldb/kit/record.h"

namespace sqldb::kit {

namespace detail {

/// Throws Error with the code 21. Where a column is a constant the compiler stops here instead, and shows this name.
[[noreturn]] SQLDB_EXPORT void ThisMemberIsNotDescribed();

/// The name of the field if it is of this member, null otherwise. Members of other types cannot be compared, and are
/// others.
template <typename T, typename Owner, typename Record, typename U>
constexpr const char* NameIfSame(const Field<Record, U>& field, T Owner::*member) {
  if constexpr (std::is_same_v<T Owner::*, U Record::*>) {
    return field.Member() == member ? field.Name() : nullptr;
  } else {
    return nullptr;
  }
}

/// The name that the description of a struct has for this member; it lives forever. Of two fields with the same member
/// the first one counts.
template <typename Described, typename Owner, typename T>
constexpr const char* NameOf(T Owner::*member) {
  static_assert(kIsDescribed<Described>,
                "Describe the struct: give it a static constexpr Description, or specialise sqldb::kit::Described.");
  constexpr auto description = kit::Described<Described>::Description();
  const char* name = nullptr;
  std::apply(
      [&](const auto&... allFields) {
        ((name = name != nullptr ? name : NameIfSame<T, Owner>(allFields, member)), ...);
      },
      description.fields);
  if (name == nullptr) ThisMemberIsNotDescribed();
  return name;
}

}  // namespace detail

/// The column of a described member, of type T: `constexpr Column price(&Part::price);`. The member says with what it
/// may be compared, and what it may be set to; a std::optional is compared as what it may have.
///
///     price < 1.0, 1.0 < price, price == other, IsNull(note), In(id, ids)   terms
///     OrderBy(price), OrderBy(Descending(price))                            orders
///     Set(price, 2.0), Set(price, other), Set(note, std::nullopt)           assignments
///
/// It has the column's name and nothing else: it belongs to no database, costs nothing to copy, and serves every table
/// that has such a column, also where another struct describes that: `customerId == 1` means the id of whatever table
/// it is used for. Whether a table has it, SQLite says when it compiles the statement: "no such column: price".
template <typename T>
class Column {
 public:
  /// Takes the name from the description, which has to come before. A member that it does not have does not compile,
  /// where the column is constexpr, and throws Error with the code 21 otherwise. For a member of a base class see
  /// ColumnOf.
  template <typename Record>
  constexpr explicit Column(T Record::*memberOfRecord) : fName(detail::NameOf<Record>(memberOfRecord)) {}

  /// The same column of the table or alias `table`, `id.Of("p")` for p.id, where the name alone could be another one's.
  /// This one stays as it is.
  /// REQUIRES: `table` is a literal: terms and statements know it by its address.
  template <std::size_t N>
  constexpr Column Of(const char (&table)[N]) const {
    Column column = *this;
    column.fQualifier = table;
    return column;
  }
  /// An array that may change is no literal.
  template <std::size_t N>
  Column Of(char (&table)[N]) const = delete;

  /// As the description has it, with its quotes if there are any. Lives forever.
  constexpr const char* Name() const { return fName; }
  /// The table or alias that it is of; null for none.
  constexpr const char* Qualifier() const { return fQualifier; }

 private:
  template <typename Record, typename Base, typename U>
  friend constexpr Column<U> ColumnOf(U Base::*member);
  constexpr explicit Column(const char* columnName) : fName(columnName) {}

  const char* fName;
  const char* fQualifier = nullptr;
};

/// The type is the member's, so that it need not be named.
template <typename Record, typename T>
Column(T Record::*) -> Column<T>;

/// The column of a member that Record has from a base class, which C++ takes for a member of that:
///
///     struct Thing { std::int64_t id = 0; };  // need not be described
///     struct Tool : Thing {
///       static constexpr auto Description() { return Describe("tools", Key("id", &Tool::id)); }
///     };
///     constexpr Column id = ColumnOf<Tool>(&Tool::id);
///
/// A member that Record's description does not have fails as it does for Column.
template <typename Record, typename Base, typename T>
constexpr Column<T> ColumnOf(T Base::*member) {
  return Column<T>(detail::NameOf<Record>(member));
}

/// An SQL expression that the program wrote, whose values are of type T, with a value for each question mark:
/// `Sql<double>("price * ?", 1.1)`. It stands where a column can, as one operand: it is put into parentheses, and a
/// comment ends with it. T only says with what it may be compared, and what may be set to it; nothing is converted.
///
/// A value, with a copy of the text and of the values. Question marks in texts, quoted names and comments are none.
template <typename T>
class Sql {
 public:
  /// Throws Error with the code 21 for a value too few or too many, for a value that is Named, and for parameters that
  /// are no plain question marks (?1, :name); ConversionError for a value that cannot be stored. What is wrong with the
  /// SQL itself is told when it is used.
  /// REQUIRES: `sqlExpression` is SQL, never input.
  template <typename... P>
  explicit Sql(std::string_view sqlExpression, const P&... values) {
    const detail::Arguments<P...> arguments(values...);
    fParts.AddSql(sqlExpression, arguments.all, arguments.kCount);
  }

  /// For the kit.
  const detail::Piece& Parts() const { return fParts; }

 private:
  detail::Piece fParts;
};

/// Several columns or values side by side, compared from left to right; RowOf makes it. Only one whose parts are of the
/// same kinds can be compared with it.
template <typename... T>
class RowValue {
 public:
  /// For the kit.
  explicit RowValue(detail::Piece partsOfRow) : fParts(static_cast<detail::Piece&&>(partsOfRow)) {}
  /// The same.
  const detail::Piece& Parts() const { return fParts; }

 private:
  detail::Piece fParts;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_COLUMN_H
