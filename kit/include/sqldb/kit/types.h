#ifndef SQLDB_KIT_TYPES_H
#define SQLDB_KIT_TYPES_H

// How a C++ type is stored in a column: Type<T> says which SQL type it has, and reads, binds and prints its values.
//
//   bool, integers           INTEGER   outside 64 bits, or outside T when read: std::range_error
//   float, double            REAL      infinities are kept; NaN, which SQLite would store as NULL: std::domain_error
//   std::string              TEXT      any bytes, zero bytes included; the database's encoding must be UTF-8 for those
//                                      that are not UTF-8 text
//   char[N], array<char, N>  TEXT      up to N bytes, filled up with zero bytes; longer when read: std::length_error
//   Blob                     BLOB
//   EncodedBytes             TEXT      the encoding of sqldb/encoding.h; more than 2,000,000,000: std::length_error
//   std::optional<T>         as T      no value is NULL
//
// Characters are no numbers: std::int8_t is stored, but neither char nor wchar_t.
//
// std::bad_alloc is thrown when SQLite has no memory for a text.
//
// For a type of your own, specialise Type in the same form. A NULL that is read into a type other than std::optional is
// what SQLite converts it to: 0, or empty.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <sqlite3.h>

#include "sqldb/encoding.h"
#include "sqldb/kit/requirements.h"

namespace sqldb::kit {

/// The bytes of a BLOB.
using Blob = std::vector<unsigned char>;

/// Bytes that are stored as text, by sqlite_encode_binary.
struct EncodedBytes {
  /// As they are, not encoded.
  std::vector<unsigned char> bytes;

  /// The same bytes.
  friend bool operator==(const EncodedBytes& a, const EncodedBytes& b) { return a.bytes == b.bytes; }
  /// Other bytes.
  friend bool operator!=(const EncodedBytes& a, const EncodedBytes& b) { return !(a == b); }
};

/// How values of type T are stored:
///
///   static constexpr const char* kSql                              the SQL type
///   static void Read(sqlite3_stmt*, int column, T& value)          column from 0
///   static int Bind(sqlite3_stmt*, int parameter, const T& value)  parameter from 1; returns SQLite's result code
///   static std::string Literal(const T& value)                     SQL that evaluates to exactly this value
template <typename T, typename = void>
struct Type;

namespace detail {

template <typename T, typename... Others>
constexpr bool kIsOneOf = (std::is_same_v<T, Others> || ...);

template <typename T>
constexpr bool kIsInteger = kIsOneOf<T, signed char, unsigned char, short, unsigned short, int, unsigned, long,
                                     unsigned long, long long, unsigned long long>;

// All with a sign do, since none is wider.
template <typename Integer>
bool FitsInt64(Integer value) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  return std::is_signed_v<Integer> || static_cast<std::uint64_t>(value) <= kLargest;
}

template <typename Integer>
std::int64_t ToInt64(Integer value) {
  if (!FitsInt64(value)) throw std::range_error("An integer does not fit into 64 bits with a sign.");
  return static_cast<std::int64_t>(value);
}

inline std::string HexDigits(const unsigned char* bytes, std::size_t size) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  digits.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    digits += kDigits[bytes[i] >> 4];
    digits += kDigits[bytes[i] & 0xF];
  }
  return digits;
}

// Between quotes, with quotes inside doubled. SQLite ends a text at a zero byte, so those go by way of a blob.
inline std::string TextLiteral(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) {
    return "CAST(x'" + HexDigits(reinterpret_cast<const unsigned char*>(text.data()), text.size()) + "' AS TEXT)";
  }
  std::string literal = "'";
  for (const char character : text) {
    if (character == '\'') literal += '\'';
    literal += character;
  }
  return literal + "'";
}

// SQLite does not round every decimal to the nearest double. It does so for integers, and for up to 15 digits with up
// to four decimals: they are an integer divided by a power of ten, both exact, which is rounded once in double
// arithmetic, and in wider arithmetic so that the second rounding does no harm. The others are products or quotients of
// an integer and powers of two up to 2^62, all of which are exact.
inline std::string RealLiteral(double value) {
  if (std::isnan(value)) throw std::domain_error("NaN cannot be stored.");
  if (std::isinf(value)) return value > 0 ? "9e999" : "-9e999";
  char buffer[64];
  const std::to_chars_result shortest = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
  if (shortest.ec == std::errc() && std::fabs(value) < 9007199254740992.0) {
    std::string text(buffer, shortest.ptr);
    const std::size_t point = text.find('.');
    if (point == std::string::npos) return text + ".0";
    const std::size_t digits = text.size() - (value < 0 ? 2 : 1);
    if (digits <= 15 && text.size() - point - 1 <= 4) return text;
  }

  int exponent = 0;
  const auto mantissa = static_cast<std::int64_t>(std::ldexp(std::frexp(value, &exponent), 53));
  exponent -= 53;
  std::string literal = "(" + std::to_string(mantissa) + "*1.0";
  const char operation = exponent < 0 ? '/' : '*';
  int left = std::abs(exponent);
  for (; left >= 62; left -= 62) (literal += operation) += "4611686018427387904.0";
  if (left > 0) (literal += operation) += std::to_string(std::int64_t{1} << left) + ".0";
  return literal + ")";
}

inline std::string_view TextOf(sqlite3_stmt* statement, int column) {
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return std::string_view();
  const unsigned char* const text = sqlite3_column_text(statement, column);
  if (text == nullptr) throw std::bad_alloc();
  const int size = sqlite3_column_bytes(statement, column);
  return std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
}

inline int BindText(sqlite3_stmt* statement, int parameter, std::string_view text) {
  // Without characters there may be no pointer either, which would bind NULL.
  return sqlite3_bind_text64(statement, parameter, text.empty() ? "" : text.data(), text.size(), SQLITE_TRANSIENT,
                             SQLITE_UTF8);
}

// What a character array holds: all up to the zero bytes at its end.
inline std::string_view Unfilled(const char* characters, std::size_t size) {
  while (size > 0 && characters[size - 1] == '\0') --size;
  return std::string_view(characters, size);
}

inline void Fill(char* characters, std::size_t size, std::string_view text) {
  if (text.size() > size) throw std::length_error("A text is longer than the characters that it is read into.");
  // An array of none may have no address, which GCC warns of.
  if (size == 0) return;
  std::fill(std::copy(text.begin(), text.end(), characters), characters + size, '\0');
}

/// So many that their encoding, too, is counted by an int.
inline int EncodableSize(std::size_t size) {
  constexpr std::size_t kMost = 2000000000;
  if (size > kMost) throw std::length_error("More bytes than a text can hold.");
  return static_cast<int>(size);
}

}  // namespace detail

template <typename T>
struct Type<T, std::enable_if_t<detail::kIsInteger<T>>> {
  static constexpr const char* kSql = "INTEGER";
  static void Read(sqlite3_stmt* statement, int column, T& value) {
    const std::int64_t stored = sqlite3_column_int64(statement, column);
    const auto read = static_cast<T>(stored);
    if (!detail::FitsInt64(read) || static_cast<std::int64_t>(read) != stored) {
      throw std::range_error("An integer does not fit into what it is read into.");
    }
    value = read;
  }
  static int Bind(sqlite3_stmt* statement, int parameter, T value) {
    return sqlite3_bind_int64(statement, parameter, detail::ToInt64(value));
  }
  static std::string Literal(T value) { return std::to_string(detail::ToInt64(value)); }
};

template <>
struct Type<bool> {
  static constexpr const char* kSql = "INTEGER";
  static void Read(sqlite3_stmt* statement, int column, bool& value) {
    value = sqlite3_column_int64(statement, column) != 0;
  }
  static int Bind(sqlite3_stmt* statement, int parameter, bool value) {
    return sqlite3_bind_int(statement, parameter, value ? 1 : 0);
  }
  static std::string Literal(bool value) { return value ? "1" : "0"; }
};

template <typename T>
struct Type<T, std::enable_if_t<std::is_same_v<T, double> || std::is_same_v<T, float>>> {
  static constexpr const char* kSql = "REAL";
  static void Read(sqlite3_stmt* statement, int column, T& value) {
    value = static_cast<T>(sqlite3_column_double(statement, column));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, T value) {
    if (std::isnan(value)) throw std::domain_error("NaN cannot be stored.");
    return sqlite3_bind_double(statement, parameter, static_cast<double>(value));
  }
  static std::string Literal(T value) { return detail::RealLiteral(static_cast<double>(value)); }
};

template <>
struct Type<std::string> {
  static constexpr const char* kSql = "TEXT";
  static void Read(sqlite3_stmt* statement, int column, std::string& value) {
    value = detail::TextOf(statement, column);
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const std::string& value) {
    return detail::BindText(statement, parameter, value);
  }
  static std::string Literal(const std::string& value) { return detail::TextLiteral(value); }
};

template <std::size_t N>
struct Type<char[N]> {
  static constexpr const char* kSql = "TEXT";
  static void Read(sqlite3_stmt* statement, int column, char (&value)[N]) {
    detail::Fill(value, N, detail::TextOf(statement, column));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const char (&value)[N]) {
    return detail::BindText(statement, parameter, detail::Unfilled(value, N));
  }
  static std::string Literal(const char (&value)[N]) { return detail::TextLiteral(detail::Unfilled(value, N)); }
};

template <std::size_t N>
struct Type<std::array<char, N>> {
  static constexpr const char* kSql = "TEXT";
  static void Read(sqlite3_stmt* statement, int column, std::array<char, N>& value) {
    detail::Fill(value.data(), N, detail::TextOf(statement, column));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const std::array<char, N>& value) {
    return detail::BindText(statement, parameter, detail::Unfilled(value.data(), N));
  }
  static std::string Literal(const std::array<char, N>& value) {
    return detail::TextLiteral(detail::Unfilled(value.data(), N));
  }
};

template <>
struct Type<Blob> {
  static constexpr const char* kSql = "BLOB";
  static void Read(sqlite3_stmt* statement, int column, Blob& value) {
    const auto* const bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
    // There is no pointer for want of bytes or of memory.
    if (bytes == nullptr && sqlite3_errcode(sqlite3_db_handle(statement)) == SQLITE_NOMEM) throw std::bad_alloc();
    value.assign(bytes, bytes + sqlite3_column_bytes(statement, column));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const Blob& value) {
    // Without bytes there may be no pointer either, which would bind NULL.
    if (value.empty()) return sqlite3_bind_zeroblob(statement, parameter, 0);
    return sqlite3_bind_blob64(statement, parameter, value.data(), value.size(), SQLITE_TRANSIENT);
  }
  static std::string Literal(const Blob& value) { return "x'" + detail::HexDigits(value.data(), value.size()) + "'"; }
};

template <>
struct Type<EncodedBytes> {
  static constexpr const char* kSql = "TEXT";
  static void Read(sqlite3_stmt* statement, int column, EncodedBytes& value) {
    std::string text(detail::TextOf(statement, column));
    value.bytes.resize(text.size());
    const int size = sqlite_decode_binary(reinterpret_cast<const unsigned char*>(text.c_str()), value.bytes.data());
    value.bytes.resize(static_cast<std::size_t>(size));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const EncodedBytes& value) {
    return detail::BindText(statement, parameter, Encode(value.bytes));
  }
  // The encoding has neither quotes nor zero bytes.
  static std::string Literal(const EncodedBytes& value) { return "'" + Encode(value.bytes) + "'"; }

 private:
  static std::string Encode(const std::vector<unsigned char>& bytes) {
    const int size = detail::EncodableSize(bytes.size());
    std::string text(static_cast<std::size_t>(sqlite_encode_binary(bytes.data(), size, nullptr)) + 1, '\0');
    sqlite_encode_binary(bytes.data(), size, reinterpret_cast<unsigned char*>(text.data()));
    text.pop_back();
    return text;
  }
};

template <typename T>
struct Type<std::optional<T>> {
  static constexpr const char* kSql = Type<T>::kSql;
  static void Read(sqlite3_stmt* statement, int column, std::optional<T>& value) {
    if (sqlite3_column_type(statement, column) == SQLITE_NULL) {
      value.reset();
    } else {
      Type<T>::Read(statement, column, value.emplace());
    }
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const std::optional<T>& value) {
    return value ? Type<T>::Bind(statement, parameter, *value) : sqlite3_bind_null(statement, parameter);
  }
  static std::string Literal(const std::optional<T>& value) { return value ? Type<T>::Literal(*value) : "NULL"; }
};

/// The type without std::optional.
template <typename T>
struct WithoutOptional {
  /// T.
  using type = T;
};
/// The type inside.
template <typename T>
struct WithoutOptional<std::optional<T>> {
  /// T.
  using type = T;
};

/// Whether NULL is told apart.
template <typename T>
constexpr bool kIsOptional = !std::is_same_v<T, typename WithoutOptional<T>::type>;

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TYPES_H
