#ifndef SQLDB_KIT_COLUMN_H
#define SQLDB_KIT_COLUMN_H

// What stands in conditions, orders and assignments beside values: columns, and SQL of the program's own.
//
//   constexpr Column price(&Part::price);
//   price < Sql<double>("AVG(price) * ?", 0.5)

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

/// Throws Error. Where a column is a constant the compiler stops here instead, and shows this name.
[[noreturn]] SQLDB_EXPORT void ThisMemberIsNotDescribed();

template <typename T, typename Owner, typename Record, typename U>
constexpr const char* NameIfSame(const Field<Record, U>& field, T Owner::*member) {
  if constexpr (std::is_same_v<T Owner::*, U Record::*>) {
    return field.Member() == member ? field.Name() : nullptr;
  } else {
    return nullptr;
  }
}

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

/// The column of a described member, of type T: `constexpr Column price(&Part::price);`.
template <typename T>
class Column {
 public:
  /// Takes the name from the description. A member that it does not have does not compile, where the column is
  /// constexpr, and throws Error otherwise.
  template <typename Record>
  constexpr explicit Column(T Record::*memberOfRecord) : fName(detail::NameOf<Record>(memberOfRecord)) {}

  /// The same column of the table or alias `table`, in a join. REQUIRES: `table` is a literal.
  template <std::size_t N>
  constexpr Column Of(const char (&table)[N]) const {
    Column column = *this;
    column.fQualifier = table;
    return column;
  }
  /// An array does not stay as it is.
  template <std::size_t N>
  Column Of(char (&table)[N]) const = delete;

  /// As the description has it.
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

/// Of the member's type.
template <typename Record, typename T>
Column(T Record::*) -> Column<T>;

/// The column of a member that Record has from a base class: `ColumnOf<Tool>(&Tool::id)`.
template <typename Record, typename Base, typename T>
constexpr Column<T> ColumnOf(T Base::*member) {
  return Column<T>(detail::NameOf<Record>(member));
}

/// An SQL expression that the program wrote, whose values are of type T, with a value for each question mark:
/// `Sql<double>("price * ?", 1.1)`. It stands where a column can.
template <typename T>
class Sql {
 public:
  /// Throws Error for a value too few or too many.
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

/// Several columns or values side by side; see RowOf.
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
