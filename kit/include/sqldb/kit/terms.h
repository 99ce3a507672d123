#ifndef SQLDB_KIT_TERMS_H
#define SQLDB_KIT_TERMS_H

// Conditions, built at run time from typed columns and values:
//
//   const ColumnName<double> price("price");
//   const ColumnName<std::string> name("name");
//   Term term = price < 1.0 && (Like(name, "bolt%") || IsNull(name));
//   table->DeleteRecords(term);
//
// Values become literals, so that no input reaches SQL unquoted. Every operand is in parentheses. An empty term
// vanishes from a combination: a filter that the user left out needs no case of its own.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "sqldb/kit/types.h"
#include "sqldb/kit/values.h"
#include "sqldb/term.h"

namespace sqldb::kit {

namespace detail {

class TextTerm : public SQLTermBase {
 public:
  explicit TextTerm(std::string text) : fText(std::move(text)) {}

  std::ostream& Print(std::ostream& out) const override { return out << ' ' << fText; }
  bool NotEmpty() const override { return true; }

 private:
  std::string fText;
};

}  // namespace detail

/// A condition, or none. Converts to what selects, deletes, updates and the record queries take; one without a
/// condition to SQLEmptyTerm::EmptyTerm, which means every row, and which an update refuses.
class Term {
 public:
  /// None.
  Term() = default;
  /// A condition that the program wrote.
  explicit Term(TrustedSql sql) : fText(std::move(sql.text)) {}

  /// True for none.
  bool IsEmpty() const { return fText.empty(); }

  /// The condition without a leading blank.
  const std::string& Text() const { return fText; }

  /// As the core takes it.
  operator boost::shared_ptr<SQLTermBase>() const {
    if (IsEmpty()) return SQLEmptyTerm::EmptyTerm;
    return boost::make_shared<detail::TextTerm>(fText);
  }

  /// Both; an empty one vanishes.
  friend Term operator&&(const Term& a, const Term& b) { return Combine(a, " AND ", b); }
  /// One at least; an empty one vanishes.
  friend Term operator||(const Term& a, const Term& b) { return Combine(a, " OR ", b); }
  /// Not so; none if `a` is empty.
  friend Term operator!(const Term& a) { return a.IsEmpty() ? a : Term(TrustedSql{"NOT (" + a.fText + ")"}); }

 private:
  static Term Combine(const Term& a, const char* operation, const Term& b) {
    if (a.IsEmpty()) return b;
    if (b.IsEmpty()) return a;
    return Term(TrustedSql{"(" + a.fText + ")" + operation + "(" + b.fText + ")"});
  }

  std::string fText;
};

/// Says in the code what a term is for.
inline Term Where(Term term) { return term; }

/// What a column of characters is compared with: a text of any length.
class Characters {
 public:
  /// Any bytes.
  Characters(std::string text) : fText(std::move(text)) {}
  /// Up to the zero bytes at their end, as they are stored.
  template <std::size_t N>
  Characters(const char (&characters)[N]) : fText(detail::Unfilled(characters, N)) {}
  /// The same.
  template <std::size_t N>
  Characters(const std::array<char, N>& characters) : fText(detail::Unfilled(characters.data(), N)) {}

  /// The text.
  operator const std::string&() const { return fText; }

 private:
  std::string fText;
};

template <>
struct Type<Characters> : Type<std::string> {};

/// What a column of integers is compared with: a number of any type, as it is. Throws std::range_error for an integer
/// outside 64 bits with a sign, and std::domain_error for NaN.
class Number {
 public:
  /// Takes enumerations, too.
  template <typename T, typename = std::enable_if_t<std::is_scalar_v<T> && std::is_convertible_v<T, std::int64_t>>>
  Number(T number) {
    if constexpr (std::is_floating_point_v<T>) {
      fLiteral = detail::RealLiteral(static_cast<double>(number));
    } else if constexpr (detail::kIsInteger<T>) {
      fLiteral = Type<T>::Literal(number);
    } else {
      fLiteral = Type<std::int64_t>::Literal(number);
    }
  }

  /// The number in SQL.
  const std::string& Literal() const { return fLiteral; }

 private:
  std::string fLiteral;
};

template <>
struct Type<Number> {
  static std::string Literal(const Number& number) { return number.Literal(); }
};

namespace detail {

template <typename T, typename = void>
struct OperandOf {
  using type = T;
};
template <typename T>
struct OperandOf<std::optional<T>> : OperandOf<T> {};
// Not T, so that no number is taken for another.
template <typename T>
struct OperandOf<T, std::enable_if_t<kIsInteger<T>>> {
  using type = Number;
};
template <std::size_t N>
struct OperandOf<char[N]> {
  using type = Characters;
};
template <std::size_t N>
struct OperandOf<std::array<char, N>> {
  using type = Characters;
};

/// What a column of type T is compared with: never NULL.
template <typename T>
using Operand = typename OperandOf<T>::type;

}  // namespace detail

/// The name of a column, or any SQL expression, whose values are of type T. Terms put all but a name in parentheses.
template <typename T>
class ColumnName {
 public:
  /// REQUIRES: `name` is SQL, never input.
  explicit ColumnName(std::string name) : fName(std::move(name)) {}

  /// As it was given.
  const std::string& Name() const { return fName; }

 private:
  std::string fName;
};

namespace detail {

/// A name as it is, any other expression in parentheses: whatever it is made of then stays together.
inline std::string Grouped(const std::string& expression) {
  const auto isOfName = [](unsigned char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') || character == '_' || character == '.' || character >= 0x80;
  };
  return std::all_of(expression.begin(), expression.end(), isOfName) ? expression : "(" + expression + ")";
}

inline Term Compare(const std::string& left, const char* operation, const std::string& right) {
  return Term(TrustedSql{Grouped(left) + operation + right});
}

template <typename T>
Term CompareWith(const ColumnName<T>& column, const char* operation, const Operand<T>& value) {
  return Compare(column.Name(), operation, Type<Operand<T>>::Literal(value));
}

}  // namespace detail

/// @{
/// Compares a column with a value or with another column. NULL compares to nothing: neither `price < 1.0` nor
/// `price >= 1.0` holds for a row without a price.
template <typename T>
Term operator==(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " = ", value);
}
template <typename T>
Term operator!=(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " <> ", value);
}
template <typename T>
Term operator<(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " < ", value);
}
template <typename T>
Term operator<=(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " <= ", value);
}
template <typename T>
Term operator>(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " > ", value);
}
template <typename T>
Term operator>=(const ColumnName<T>& column, const detail::Operand<T>& value) {
  return detail::CompareWith(column, " >= ", value);
}

template <typename T, typename U>
Term operator==(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " = ", detail::Grouped(b.Name()));
}
template <typename T, typename U>
Term operator!=(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " <> ", detail::Grouped(b.Name()));
}
template <typename T, typename U>
Term operator<(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " < ", detail::Grouped(b.Name()));
}
template <typename T, typename U>
Term operator<=(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " <= ", detail::Grouped(b.Name()));
}
template <typename T, typename U>
Term operator>(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " > ", detail::Grouped(b.Name()));
}
template <typename T, typename U>
Term operator>=(const ColumnName<T>& a, const ColumnName<U>& b) {
  return detail::Compare(a.Name(), " >= ", detail::Grouped(b.Name()));
}
/// @}

/// Holds for the rows without a value.
template <typename T>
Term IsNull(const ColumnName<T>& column) {
  return Term(TrustedSql{detail::Grouped(column.Name()) + " IS NULL"});
}

/// SQL's LIKE: % stands for any text, _ for one character, without regard to the case of ASCII letters. With `escape`,
/// that character before a % or _ makes it stand for itself; see EscapedForLike.
template <typename T>
Term Like(const ColumnName<T>& column, const std::string& pattern, std::optional<char> escape = std::nullopt) {
  std::string text = detail::Grouped(column.Name()) + " LIKE " + Type<std::string>::Literal(pattern);
  if (escape) text += " ESCAPE " + Type<std::string>::Literal(std::string(1, *escape));
  return Term(TrustedSql{std::move(text)});
}

/// `text` with `escape` before every character that LIKE would take for more than itself.
inline std::string EscapedForLike(std::string_view text, char escape) {
  std::string escaped;
  for (const char character : text) {
    if (character == '%' || character == '_' || character == escape) escaped += escape;
    escaped += character;
  }
  return escaped;
}

/// Holds for the rows whose value is one of `values`, In(name, {"bolt", "nut"}): for none, if there are none.
template <typename T, typename Values = std::vector<detail::Operand<T>>>
Term In(const ColumnName<T>& column, const Values& values) {
  std::string list;
  for (const auto& value : values) {
    const detail::Operand<T>& operand = value;
    if (!list.empty()) list += ", ";
    list += Type<detail::Operand<T>>::Literal(operand);
  }
  return Term(TrustedSql{detail::Grouped(column.Name()) + " IN (" + list + ")"});
}

/// Both bounds included.
template <typename T>
Term Between(const ColumnName<T>& column, const detail::Operand<T>& low, const detail::Operand<T>& high) {
  using Literals = Type<detail::Operand<T>>;
  return Term(TrustedSql{detail::Grouped(column.Name()) + " BETWEEN " + Literals::Literal(low) + " AND " +
                         Literals::Literal(high)});
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TERMS_H
