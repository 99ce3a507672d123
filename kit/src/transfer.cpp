#include "sqldb/kit/transfer.h"

#include <string_view>

#include <sqlite3.h>

namespace sqldb::kit::detail {

namespace {

// The text of a value that is one; otherwise what ReadText throws.
std::string_view TextOf(sqlite3_stmt* statement, int column, sqlite3_value* source) {
  if (sqlite3_value_type(source) == SQLITE_TEXT) {
    if (const unsigned char* const text = sqlite3_value_text(source)) {
      return std::string_view(reinterpret_cast<const char*>(text),
                              static_cast<std::size_t>(sqlite3_value_bytes(source)));
    }
  }
  return ReadText(Source{source, statement, column});
}

}  // namespace

void LoadInt64(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  *static_cast<std::int64_t*>(value) = sqlite3_value_type(source) == SQLITE_INTEGER
                                           ? sqlite3_value_int64(source)
                                           : ReadInteger(Source{source, statement, column});
}

void LoadDouble(sqlite3_stmt* statement, int column, void* value) {
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  *static_cast<double*>(value) = sqlite3_value_type(source) == SQLITE_FLOAT
                                     ? sqlite3_value_double(source)
                                     : ReadReal(Source{source, statement, column});
}

void LoadString(sqlite3_stmt* statement, int column, void* value) {
  *static_cast<std::string*>(value) = TextOf(statement, column, sqlite3_column_value(statement, column));
}

void LoadOptionalString(sqlite3_stmt* statement, int column, void* value) {
  auto& text = *static_cast<std::optional<std::string>*>(value);
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  if (sqlite3_value_type(source) == SQLITE_NULL) {
    text.reset();
  } else if (text) {
    *text = TextOf(statement, column, source);
  } else {
    text.emplace(TextOf(statement, column, source));
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
