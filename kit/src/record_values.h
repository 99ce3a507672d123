#ifndef SQLDB_KIT_SRC_RECORD_VALUES_H
#define SQLDB_KIT_SRC_RECORD_VALUES_H

// The fields of a record, from the columns of a row and to parameters.

#include <cstdint>
#include <optional>
#include <string>

#include <sqlite3.h>

#include "binding.h"
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
  switch (field.shortcut) {
    case Shortcut::kInt64: {
      sqlite3_value* const source = sqlite3_column_value(statement, column);
      if (sqlite3_value_type(source) != SQLITE_INTEGER) return false;
      *static_cast<std::int64_t*>(MemberOf(record, field)) = sqlite3_value_int64(source);
      return true;
    }
    case Shortcut::kDouble: {
      sqlite3_value* const source = sqlite3_column_value(statement, column);
      if (sqlite3_value_type(source) != SQLITE_FLOAT) return false;
      *static_cast<double*>(MemberOf(record, field)) = sqlite3_value_double(source);
      return true;
    }
    case Shortcut::kString: {
      sqlite3_value* const source = sqlite3_column_value(statement, column);
      return sqlite3_value_type(source) == SQLITE_TEXT && LoadTextAtOnce<std::string>(source, record, field);
    }
    case Shortcut::kOptionalString: {
      sqlite3_value* const source = sqlite3_column_value(statement, column);
      const int type = sqlite3_value_type(source);
      if (type == SQLITE_TEXT) return LoadTextAtOnce<std::optional<std::string>>(source, record, field);
      if (type != SQLITE_NULL) return false;
      static_cast<std::optional<std::string>*>(MemberOf(record, field))->reset();
      return true;
    }
    default:
      break;
  }
  return false;
}

inline void LoadField(sqlite3_stmt* statement, int column, const FieldEntry& field, void* record) {
  if (!LoadAtOnce(statement, column, field, record)) field.load(statement, column, MemberOf(record, field));
}

// Loads the fields from the columns, in their order. A part of what reads row after row, and so without a call.
[[gnu::always_inline]] inline void LoadRecord(sqlite3_stmt* statement, const RecordLayout& layout, void* record) {
  const FieldEntry* field = layout.fields;
  for (int column = 0; column != layout.count; ++column, ++field) LoadField(statement, column, *field, record);
}

// Binds a value of any type. A ConversionError then names the column.
void BindByCodec(sqlite3_stmt* statement, int parameter, const FieldEntry& field, const void* member);

inline int BindTextAtOnce(sqlite3_stmt* statement, int parameter, const std::string& text) {
  return sqlite3_bind_text64(statement, parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

inline void BindField(sqlite3_stmt* statement, int parameter, const FieldEntry& field, const void* member) {
  int result = SQLITE_OK;
  switch (field.shortcut) {
    case Shortcut::kInt64:
      result = sqlite3_bind_int64(statement, parameter, *static_cast<const std::int64_t*>(member));
      break;
    case Shortcut::kDouble: {
      const double value = *static_cast<const double*>(member);
      // SQLite would store NaN as NULL.
      if (value != value) return BindByCodec(statement, parameter, field, member);
      result = sqlite3_bind_double(statement, parameter, value);
      break;
    }
    case Shortcut::kString:
      result = BindTextAtOnce(statement, parameter, *static_cast<const std::string*>(member));
      break;
    case Shortcut::kOptionalString: {
      const auto& text = *static_cast<const std::optional<std::string>*>(member);
      result = text ? BindTextAtOnce(statement, parameter, *text) : sqlite3_bind_null(statement, parameter);
      break;
    }
    default:
      return BindByCodec(statement, parameter, field, member);
  }
  CheckBound(statement, result);
}

// Binds the fields to the parameters, in their order. A part of what writes record after record, and so without a call.
// REQUIRES: the record stays until the statement has run.
[[gnu::always_inline]] inline void BindRecord(sqlite3_stmt* statement, const RecordLayout& layout, const void* record) {
  const FieldEntry* field = layout.fields;
  for (int parameter = 1; parameter <= layout.count; ++parameter, ++field) {
    BindField(statement, parameter, *field, static_cast<const char*>(record) + field->offset);
  }
}

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_RECORD_VALUES_H
