#ifndef SQLDB_KIT_TYPE_H
#define SQLDB_KIT_TYPE_H

// How a C++ type is stored: Type<T> names what SQLite stores for it, and converts in both directions. The same two
// functions serve columns, parameters and literals.
//
//   enum class Kind { kBolt, kNut };
//   template <>
//   struct sqldb::kit::Type<Kind> {
//     using Stored = std::string;
//     static std::string Store(Kind kind) { return kind == Kind::kBolt ? "bolt" : "nut"; }
//     static Kind Load(const std::string& stored) { return stored == "bolt" ? Kind::kBolt : Kind::kNut; }
//   };
//
// What is there already:
//
//   bool                     INTEGER  0 or 1
//   integers                 INTEGER  not char and wchar_t, which are characters
//   float, double            REAL     infinities are kept; NaN, which SQLite would store as NULL, is refused
//   std::string              TEXT     any bytes, zero bytes included
//   char[N], array<char, N>  TEXT     up to N bytes, which end at the first zero byte, as in C
//   Blob                     BLOB
//   EncodedBytes             TEXT     in the encoding of sqldb/encoding.h
//   std::optional<T>         as T     no value is NULL
//
// A value is converted if nothing is lost, otherwise ConversionError is thrown: 2.0 can be read into an integer, 1.5
// and "2" cannot; an integer into a double, and a real into a float, if that holds it exactly; NULL into a
// std::optional only.

#include <string>
#include <vector>

#include "sqldb/export.h"

namespace sqldb::kit {

/// The bytes of a BLOB.
using Blob = std::vector<unsigned char>;

/// Bytes that are stored as text, by sqlite_encode_binary, for a file whose other readers expect that. A Blob takes
/// less room and less time.
struct EncodedBytes {
  /// As they are, not encoded.
  std::vector<unsigned char> bytes;

  /// The same bytes.
  friend bool operator==(const EncodedBytes& a, const EncodedBytes& b) { return a.bytes == b.bytes; }
  /// Other bytes.
  friend bool operator!=(const EncodedBytes& a, const EncodedBytes& b) { return !(a == b); }
};

/// How values of type T are stored. Specialised by the program, in the namespace sqldb::kit or by its qualified name,
/// before the first use of T in a description, a parameter or a row:
///
///     using Stored = ...                 std::int64_t, double, std::string or Blob, or a type that has a Type itself
///     static Stored Store(const T&)
///     static T Load(const Stored&)
///
/// What the two functions throw passes through the operation that they are part of; a ConversionError of Store gets the
/// name of the column that it was for. They may use the database that the operation is of. REQUIRES: they do not close
/// it.
template <typename T, typename = void>
struct Type;

/// Throws std::length_error for more than 2,000,000,000 bytes.
template <>
struct SQLDB_EXPORT Type<EncodedBytes> {
  /// The encoding.
  using Stored = std::string;
  /// The bytes encoded.
  static std::string Store(const EncodedBytes& value);
  /// The bytes that the text stands for.
  static EncodedBytes Load(const std::string& stored);
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TYPE_H
