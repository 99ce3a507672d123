#ifndef SQLDB_KIT_TRANSFER_H
#define SQLDB_KIT_TRANSFER_H

// How a value goes to SQLite and comes from it when only its address is known: two functions for each type.

#include <cstdint>
#include <optional>
#include <string>

#include "sqldb/export.h"
#include "sqldb/kit/codec.h"

namespace sqldb::kit::detail {

/// Reads a column into the value at this address, which is of the type that the function is for. Throws ConversionError
/// for what does not fit, std::bad_alloc, and what a Type throws.
using Loader = void (*)(sqlite3_stmt* statement, int column, void* value);
/// Hands the value at this address, which is of the type that the function is for, to its target. Throws what
/// Codec::Bind throws.
using Binder = void (*)(const Target& target, const void* value);

/// The Loader of any type that is stored.
template <typename T>
void LoadAny(sqlite3_stmt* statement, int column, void* value) {
  Codec<T>::Load(ColumnOf(statement, column), *static_cast<T*>(value));
}

/// The Binder of the same.
template <typename T>
void BindAny(const Target& target, const void* value) {
  Codec<T>::Bind(target, *static_cast<const T*>(value));
}

// Those of the most frequent types, compiled once, and so with one address in all libraries and programs: by that they
// are recognised where a call can be saved.
SQLDB_EXPORT void LoadInt64(sqlite3_stmt* statement, int column, void* value);
SQLDB_EXPORT void LoadDouble(sqlite3_stmt* statement, int column, void* value);
SQLDB_EXPORT void LoadString(sqlite3_stmt* statement, int column, void* value);
SQLDB_EXPORT void LoadOptionalString(sqlite3_stmt* statement, int column, void* value);
SQLDB_EXPORT void LoadInt(sqlite3_stmt* statement, int column, void* value);
SQLDB_EXPORT void BindInt(const Target& target, const void* value);
SQLDB_EXPORT void BindInt64(const Target& target, const void* value);
SQLDB_EXPORT void BindString(const Target& target, const void* value);
SQLDB_EXPORT void BindOptionalString(const Target& target, const void* value);

/// What is read and bound without a call by its address. In an order in which few comparisons find each.
enum class Shortcut : unsigned char { kInt64, kDouble, kString, kOptionalString, kNone };

/// How values of type T are read and bound: through its Codec, unless it is one of the most frequent types. A layout
/// keeps the two addresses for each field, so that compiled code can walk a record without its type.
template <typename T>
struct Transfer {
  static constexpr Shortcut kShortcut = Shortcut::kNone;
  static constexpr Loader kLoad = &LoadAny<T>;
  static constexpr Binder kBind = &BindAny<T>;
};
template <>
struct Transfer<int> {
  static constexpr Shortcut kShortcut = Shortcut::kNone;
  static constexpr Loader kLoad = &LoadInt;
  static constexpr Binder kBind = &BindInt;
};
template <>
struct Transfer<std::int64_t> {
  static constexpr Shortcut kShortcut = Shortcut::kInt64;
  static constexpr Loader kLoad = &LoadInt64;
  static constexpr Binder kBind = &BindInt64;
};
template <>
struct Transfer<double> {
  static constexpr Shortcut kShortcut = Shortcut::kDouble;
  static constexpr Loader kLoad = &LoadDouble;
  static constexpr Binder kBind = &BindAny<double>;
};
template <>
struct Transfer<std::string> {
  static constexpr Shortcut kShortcut = Shortcut::kString;
  static constexpr Loader kLoad = &LoadString;
  static constexpr Binder kBind = &BindString;
};
template <>
struct Transfer<std::optional<std::string>> {
  static constexpr Shortcut kShortcut = Shortcut::kOptionalString;
  static constexpr Loader kLoad = &LoadOptionalString;
  static constexpr Binder kBind = &BindOptionalString;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_TRANSFER_H
