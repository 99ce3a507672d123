#ifndef SQLDB_KIT_SRC_RECORD_VALUES_H
#define SQLDB_KIT_SRC_RECORD_VALUES_H

// The fields of a record, from the columns of a row and to parameters.

#include <cstdint>
#include <optional>
#include <string>

#include <sqlite3.h>

#include "sqldb/kit/record.h"

namespace sqldb::kit::detail {

// Not inlined: what guards the stack of a function that makes a string would cost each field of each record.
void EmplaceText(std::optional<std::string>& text, const char* begin, std::size_t size);

inline void* MemberOf(void* record, const FieldEntry& field) { return static_cast<char*>(record) + field.offset; }

inline void Assign(std::string& text, const char* begin, std::size_t size) { text.assign(begin, size); }

inline void Assign(std::optional<std::string>& text, const char* begin, std::size_t size) {
  text ? Assign(*text, begin, size) : EmplaceText(text, begin, size);
}

[[noreturn]] void ThrowNoMemory();

// Reads a text. Returns true.
template <typename Text>
inline bool LoadTextAtOnce(sqlite3_value* source, void* record, const FieldEntry& field) {
  const auto* const begin = reinterpret_cast<const char*>(sqlite3_value_text(source));
  if (begin == nullptr) ThrowNoMemory();
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(source));
  Assign(*static_cast<Text*>(MemberOf(record, field)), begin, size);
  return true;
}

// Reads the most frequent types. Returns false for all else, and for what does not fit at once; nothing is read then.
// Calls nothing that would cost each field what only few need, and looks at the field anew rather than to keep what it
// says beside all else in a register.
inline bool LoadAtOnce(sqlite3_stmt* statement, int column, const FieldEntry& field, void* record) {
  if (field.shortcut == Shortcut::kInt64) {
    sqlite3_value* const source = sqlite3_column_value(statement, column);
    if (sqlite3_value_type(source) != SQLITE_INTEGER) return false;
    *static_cast<std::int64_t*>(MemberOf(record, field)) = sqlite3_value_int64(source);
    return true;
  }
  if (field.shortcut == Shortcut::kString) {
    sqlite3_value* const source = sqlite3_column_value(statement, column);
    return sqlite3_value_type(source) == SQLITE_TEXT && LoadTextAtOnce<std::string>(source, record, field);
  }
  if (field.shortcut == Shortcut::kDouble) {
    sqlite3_value* const source = sqlite3_column_value(statement, column);
    if (sqlite3_value_type(source) != SQLITE_FLOAT) return false;
    *static_cast<double*>(MemberOf(record, field)) = sqlite3_value_double(source);
    return true;
  }
  if (field.shortcut == Shortcut::kNone) return false;
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  const int type = sqlite3_value_type(source);
  if (type == SQLITE_TEXT) return LoadTextAtOnce<std::optional<std::string>>(source, record, field);
  if (type != SQLITE_NULL) return false;
  static_cast<std::optional<std::string>*>(MemberOf(record, field))->reset();
  return true;
}

inline void LoadField(sqlite3_stmt* statement, int column, const FieldEntry& field, void* record) {
  if (!LoadAtOnce(statement, column, field, record)) field.load(statement, column, MemberOf(record, field));
}

// Loads the fields from the columns, in their order. A part of what reads row after row, and so without a call.
[[gnu::always_inline]] inline void LoadRecord(sqlite3_stmt* statement, const RecordLayout& layout, void* record) {
  const FieldEntry* const end = layout.fields + layout.count;
  int column = 0;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++column) {
    LoadField(statement, column, *field, record);
  }
}

// Binds the fields to the parameters, in their order. REQUIRES: the record stays until the statement has run.
void BindRecord(sqlite3_stmt* statement, const RecordLayout& layout, const void* record);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_RECORD_VALUES_H
