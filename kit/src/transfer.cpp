#include "sqldb/kit/transfer.h"

#include <cstddef>

#include <sqlite3.h>

#include "load_other.h"

namespace sqldb::kit::detail {

namespace {

// The text of a value that is one; null otherwise.
const char* TextOf(sqlite3_value* source) {
  if (sqlite3_value_type(source) != SQLITE_TEXT) return nullptr;
  return reinterpret_cast<const char*>(sqlite3_value_text(source));
}

std::size_t SizeOf(sqlite3_value* source) { return static_cast<std::size_t>(sqlite3_value_bytes(source)); }

}  // namespace

// What fits at once is read here; the rest, and what does not fit, is left to LoadOther.

void LoadInt64(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  if (sqlite3_value_type(source) != SQLITE_INTEGER) return LoadOther<std::int64_t>(statement, column, value);
  *static_cast<std::int64_t*>(value) = sqlite3_value_int64(source);
}

void LoadDouble(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  if (sqlite3_value_type(source) != SQLITE_FLOAT) return LoadOther<double>(statement, column, value);
  *static_cast<double*>(value) = sqlite3_value_double(source);
}

void LoadString(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  const char* const text = TextOf(source);
  if (text == nullptr) return LoadOther<std::string>(statement, column, value);
  static_cast<std::string*>(value)->assign(text, SizeOf(source));
}

void LoadOptionalString(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  auto& target = *static_cast<std::optional<std::string>*>(value);
  if (sqlite3_value_type(source) == SQLITE_NULL) return target.reset();
  const char* const text = TextOf(source);
  if (text == nullptr) return LoadOther<std::optional<std::string>>(statement, column, value);
  if (target) {
    target->assign(text, SizeOf(source));
  } else {
    target.emplace(text, SizeOf(source));
  }
}

void BindInt64(const Target& target, const void* value) {
  BindInteger(target, *static_cast<const std::int64_t*>(value));
}

void BindString(const Target& target, const void* value) { BindText(target, *static_cast<const std::string*>(value)); }

void BindOptionalString(const Target& target, const void* value) {
  const auto& text = *static_cast<const std::optional<std::string>*>(value);
  text ? BindText(target, *text) : BindNull(target);
}

}  // namespace sqldb::kit::detail
