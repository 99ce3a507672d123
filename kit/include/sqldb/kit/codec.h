#ifndef SQLDB_KIT_CODEC_H
#define SQLDB_KIT_CODEC_H

// From a Type to what SQLite stores: how each C++ type comes out of a column and goes into a parameter, a literal or a
// list in the end. A Type names what it is stored as, which may have a Type again; a Codec goes that way to its end.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "sqldb/export.h"
#include "sqldb/kit/type.h"

struct sqlite3_stmt;

namespace sqldb::kit::detail {

/// Whether T is one of the others.
template <typename T, typename... Others>
constexpr bool kIsOneOf = (std::is_same_v<T, Others> || ...);

/// Whether T is a number without a fraction: not bool, and not a character.
template <typename T>
constexpr bool kIsInteger = kIsOneOf<T, signed char, unsigned char, short, unsigned short, int, unsigned, long,
                                     unsigned long, long long, unsigned long long>;

/// A value that SQLite has: a column of a row, or an argument of a function.
struct Source {
  /// An sqlite3_value, which not every version of SQLite declares in the same way.
  void* value;
  /// For the message of a ConversionError: whose column it is, from 0. Null: it is the argument of a function.
  sqlite3_stmt* statement;
  int column;
};

class ValueSink;

/// Where a value goes that is to be stored: a parameter of a statement, or what keeps values for later.
struct Target {
  /// Null: it goes to `sink`.
  sqlite3_stmt* statement;
  /// From 1.
  int parameter;
  /// Whether a text or blob stays where it is until it is bound anew, so that SQLite need not copy it.
  bool isLasting;
  ValueSink* sink = nullptr;
};

/// Takes values without a statement: for a term, which keeps them, a text, which has them as literals, or the result of
/// a function. What a view shows ends with the call.
class SQLDB_EXPORT ValueSink {
 public:
  // All throw std::bad_alloc, and what they are a part of is then to be thrown away.

  virtual void TakeNull() = 0;
  virtual void TakeInteger(std::int64_t value) = 0;
  virtual void TakeReal(double value) = 0;
  virtual void TakeText(std::string_view text) = 0;
  virtual void TakeBlob(std::string_view bytes) = 0;

 protected:
  ~ValueSink() = default;
};

/// The value of a column, from 0. REQUIRES: the statement stands on a row. Valid until it is stepped or reset.
SQLDB_EXPORT Source ColumnOf(sqlite3_stmt* statement, int column) noexcept;

// These read what SQLite has as it is, or throw ConversionError: NULL is never 0 nor empty, and a text never a number.
// std::bad_alloc if SQLite has no memory for a text or blob.

/// Never throws: what a Codec of a std::optional asks first.
SQLDB_EXPORT bool IsNull(const Source& source) noexcept;
/// A real number, too, if it is an integer of 64 bits.
SQLDB_EXPORT std::int64_t ReadInteger(const Source& source);
/// An integer, too, if a double holds it exactly.
SQLDB_EXPORT double ReadReal(const Source& source);
/// Whether a double holds it exactly.
SQLDB_EXPORT bool IsDouble(std::int64_t value) noexcept;
/// Whether a float holds it exactly; infinity, too.
SQLDB_EXPORT bool IsFloat(double value) noexcept;
/// What ReadReal reads, if a float holds it exactly.
SQLDB_EXPORT float ReadFloat(const Source& source);
/// Valid until the statement is stepped or reset.
SQLDB_EXPORT std::string_view ReadText(const Source& source);
/// The same.
SQLDB_EXPORT std::string_view ReadBlob(const Source& source);

// These hand a value to its target. Throw std::bad_alloc if SQLite has no memory for it, Error if it is larger than
// SQLite takes, and ConversionError for NaN.

SQLDB_EXPORT void BindNull(const Target& target);
SQLDB_EXPORT void BindInteger(const Target& target, std::int64_t value);
SQLDB_EXPORT void BindReal(const Target& target, double value);
SQLDB_EXPORT void BindText(const Target& target, std::string_view text);
SQLDB_EXPORT void BindBlob(const Target& target, std::string_view bytes);

/// Throws the ConversionError that says what is in the column or argument; `why` it does not fit: "a text that ...".
[[noreturn]] SQLDB_EXPORT void ThrowUnfit(const Source& source, const char* why);
/// The same for a value that is to be stored: it has no column yet, and `why` is the whole sentence.
[[noreturn]] SQLDB_EXPORT void ThrowUnfit(const char* why);

/// Whether there is a Type of T.
template <typename T, typename = void>
constexpr bool kHasType = false;
template <typename T>
inline constexpr bool kHasType<T, std::void_t<decltype(Type<T>::Store(std::declval<const T&>()))>> = true;

template <typename T>
constexpr bool kIsCharacter = kIsOneOf<T, char, wchar_t, char16_t, char32_t>;

/// Whether T is a std::optional.
template <typename T>
constexpr bool kIsOptional = false;
template <typename T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

/// What a value of type T comes to in the end:
///
///     kSql        the type of its column in SQL: "INTEGER"
///     kCanBeNull  whether the column may be NULL
///     Load        reads a column into a value. What it throws leaves the value as it was, or valid at least
///     Bind        hands a value to its target, as NULL only where it may be
///
/// This one is of those that are not stored.
template <typename T, typename = void>
struct Codec {
  static_assert(!kIsCharacter<T>,
                "A character is not stored: use std::string or char[N] for texts, std::int8_t for small numbers.");
  static_assert(!std::is_same_v<T, std::string_view> && !std::is_pointer_v<T>,
                "Views and pointers are not stored: use what owns its value, such as std::string.");
  static_assert(kIsCharacter<T> || std::is_same_v<T, std::string_view> || std::is_pointer_v<T>,
                "This type is not stored: specialise sqldb::kit::Type for it, which says what it is stored as. A struct"
                " is a row if it has a static constexpr Description.");
  static constexpr const char* kSql = "";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source&, T&) {}
  static void Bind(const Target&, const T&) {}
};

/// By way of its Type: what that stores has a Codec of its own, or a Type again. A value that is stored ends with the
/// call that stores it, so SQLite copies it.
template <typename T>
struct Codec<T, std::enable_if_t<kHasType<T>>> {
  using Stored = std::decay_t<decltype(Type<T>::Store(std::declval<const T&>()))>;
  using Inner = Codec<Stored>;
  static constexpr const char* kSql = Inner::kSql;
  static constexpr bool kCanBeNull = Inner::kCanBeNull;

  static void Load(const Source& source, T& value) {
    Stored stored{};
    Inner::Load(source, stored);
    value = Type<T>::Load(stored);
  }
  static void Bind(Target target, const T& value) {
    // What it is stored as ends with this call.
    target.isLasting = false;
    Inner::Bind(target, Type<T>::Store(value));
  }
};

/// Any integer, which is read if it fits, and stored if it fits into 64 bits with a sign.
template <typename T>
struct Codec<T, std::enable_if_t<kIsInteger<T>>> {
  static constexpr const char* kSql = "INTEGER";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, T& value) {
    const std::int64_t stored = ReadInteger(source);
    const auto read = static_cast<T>(stored);
    if (!Fits(read) || static_cast<std::int64_t>(read) != stored) {
      ThrowUnfit(source, "an integer that does not fit into what it is read into");
    }
    value = read;
  }
  static void Bind(const Target& target, T value) { BindInteger(target, Checked(value)); }

 private:
  // All with a sign do, since none is wider.
  static constexpr bool Fits(T value) {
    return std::is_signed_v<T> ||
           static_cast<std::uint64_t>(value) <= std::uint64_t{std::numeric_limits<std::int64_t>::max()};
  }
  static std::int64_t Checked(T value) {
    if (!Fits(value)) ThrowUnfit("An integer does not fit into 64 bits with a sign.");
    return static_cast<std::int64_t>(value);
  }
};

/// 0 or 1, and nothing else.
template <>
struct Codec<bool> {
  static constexpr const char* kSql = "INTEGER";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, bool& value) {
    const std::int64_t stored = ReadInteger(source);
    if (stored != 0 && stored != 1) ThrowUnfit(source, "an integer that is neither 0 nor 1");
    value = stored != 0;
  }
  static void Bind(const Target& target, bool value) { BindInteger(target, value ? 1 : 0); }
};

template <>
struct Codec<double> {
  static constexpr const char* kSql = "REAL";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, double& value) { value = ReadReal(source); }
  static void Bind(const Target& target, double value) { BindReal(target, value); }
};

/// Stored as the double that it is; read if no digit is lost.
template <>
struct Codec<float> {
  static constexpr const char* kSql = "REAL";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, float& value) { value = ReadFloat(source); }
  static void Bind(const Target& target, float value) { BindReal(target, static_cast<double>(value)); }
};

/// Any bytes, zero bytes too. Whether they are UTF-8 is not looked at, as SQLite does not.
template <>
struct Codec<std::string> {
  static constexpr const char* kSql = "TEXT";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, std::string& value) { value = ReadText(source); }
  static void Bind(const Target& target, const std::string& value) { BindText(target, value); }
};

/// The characters up to the first zero byte, or all of them: what of an array of them is stored, as C has it. A view.
SQLDB_EXPORT std::string_view UpToZero(const char* characters, std::size_t size) noexcept;
/// Reads a text into an array, and fills the rest with zero bytes: with all full, none stands at the end. Throws
/// ConversionError for a text that is longer, or has a zero byte, which would end it.
SQLDB_EXPORT void FillWithText(const Source& source, char* characters, std::size_t size);

/// Arrays of characters, in C and in C++.
template <typename Characters, std::size_t kSize>
struct CharactersCodec {
  static constexpr const char* kSql = "TEXT";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, Characters& value) { FillWithText(source, std::data(value), kSize); }
  static void Bind(const Target& target, const Characters& value) {
    BindText(target, UpToZero(std::data(value), kSize));
  }
};
template <std::size_t N>
struct Codec<char[N]> : CharactersCodec<char[N], N> {};
template <std::size_t N>
struct Codec<std::array<char, N>> : CharactersCodec<std::array<char, N>, N> {};

/// A view of them.
inline std::string_view Bytes(const Blob& blob) {
  return std::string_view(reinterpret_cast<const char*>(blob.data()), blob.size());
}

/// Bytes. An empty Blob is stored as one without bytes, not as NULL.
template <>
struct Codec<Blob> {
  static constexpr const char* kSql = "BLOB";
  static constexpr bool kCanBeNull = false;

  static void Load(const Source& source, Blob& value) {
    const std::string_view bytes = ReadBlob(source);
    value.assign(bytes.begin(), bytes.end());
  }
  static void Bind(const Target& target, const Blob& value) { BindBlob(target, Bytes(value)); }
};

/// NULL where it is empty. A value that is there is read into, so that its memory serves again.
template <typename T>
struct Codec<std::optional<T>> {
  static_assert(!kIsOptional<T>, "NULL says once that there is no value: use one std::optional.");
  static constexpr const char* kSql = Codec<T>::kSql;
  static constexpr bool kCanBeNull = true;

  static void Load(const Source& source, std::optional<T>& value) {
    if (IsNull(source)) {
      value.reset();
    } else {
      Codec<T>::Load(source, value ? *value : value.emplace());
    }
  }
  static void Bind(const Target& target, const std::optional<T>& value) {
    value ? Codec<T>::Bind(target, *value) : BindNull(target);
  }
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_CODEC_H
