#ifndef SQLDB_KIT_ASSIGNMENT_H
#define SQLDB_KIT_ASSIGNMENT_H

// What an update by a term gives to the columns of the rows:
//
//   parts.Update(price < 1.0, Set(price, Sql<double>("price * ?", 1.1)), Set(note, std::nullopt));
//
// All right sides see the row as it was before, so that two columns can be exchanged:
//
//   parts.Update(id == 7, Set(name, label), Set(label, name));
//
// Those of which a program knows at run time alone go into a std::vector<Assignment>.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "sqldb/export.h"
#include "sqldb/kit/codec.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/operand.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit {

/// One entry of the SET list of an update, which Set makes. A value, with a copy of what it assigns: it may outlive
/// that, may be used in any number of updates, and copies of it by different threads. It belongs to no table; whether a
/// table has such a column, SQLite says when the update is compiled.
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

// These throw the ConversionError of a value that could not be read into the member of the column again, which names
// the column. Nothing has been sent to SQLite by then.

/// For an integer member, whose bounds are both included.
SQLDB_EXPORT void CheckInteger(const char* column, std::int64_t value, std::int64_t least, std::int64_t most);
/// The same for a real number, which is to be an integer as well: a column of that kind would make it one.
SQLDB_EXPORT void CheckInteger(const char* column, double value, std::int64_t least, std::int64_t most);
/// For a double member: an integer that it holds exactly.
SQLDB_EXPORT void CheckDouble(const char* column, std::int64_t value);
/// For a float member: a real number that it holds exactly.
SQLDB_EXPORT void CheckFloat(const char* column, double value);
/// For an array of characters: a text of `size` bytes, of which it has room for `most`.
SQLDB_EXPORT void CheckText(const char* column, std::size_t size, std::size_t most);

/// How many bytes an array of characters has room for; 0 for all else.
template <typename T>
constexpr std::size_t kMostCharacters = 0;
template <std::size_t N>
inline constexpr std::size_t kMostCharacters<char[N]> = N;
template <std::size_t N>
inline constexpr std::size_t kMostCharacters<std::array<char, N>> = N;

/// In bytes; of an array up to its zero byte.
template <typename V>
std::size_t TextSize(const V& text) {
  if constexpr (kMostCharacters<V> != 0) {
    return UpToZero(std::data(text), kMostCharacters<V>).size();
  } else {
    return std::string_view(text).size();
  }
}

/// The same for a value of any type, which is assigned to a member of type T. What an expression yields is known to
/// SQLite alone, and is not looked at; nor is a value of the member's own type, and NULL.
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

/// Gives a column a value, or what another column or an Sql yields:
///
///     Set(price, 2.5)                             a value, which becomes a parameter and is copied
///     Set(price, Sql<double>("price * ?", 1.1))   what an expression yields, for each row
///     Set(name, label)                            what another column of the row has
///     Set(note, std::nullopt)                     NULL, for a member that is std::optional
///
/// A value of another kind than the member's (a text for a number, NULL where there is no std::optional) does not
/// compile. Throws ConversionError for a number or text that the member could not hold, since the row could not be read
/// any more; what a Type throws; and std::bad_alloc. The qualifier of a column is left out, as SQL has it here.
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

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_ASSIGNMENT_H
