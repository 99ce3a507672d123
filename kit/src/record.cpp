#include "sqldb/kit/record.h"

#include <optional>
#include <string>

#include <sqlite3.h>

namespace sqldb::kit::detail {

namespace {

// Reads the most frequent types. Returns false for all else, and for what does not fit at once; nothing is read then.
// Calls nothing that would cost each field what only few need.
inline bool LoadAtOnce(sqlite3_stmt* statement, int column, Shortcut shortcut, void* member) {
  if (shortcut == Shortcut::kNone) return false;
  sqlite3_value* const source = sqlite3_column_value(statement, column);
  const int type = sqlite3_value_type(source);
  if (shortcut == Shortcut::kInt64) {
    if (type != SQLITE_INTEGER) return false;
    *static_cast<std::int64_t*>(member) = sqlite3_value_int64(source);
    return true;
  }
  if (shortcut == Shortcut::kDouble) {
    if (type != SQLITE_FLOAT) return false;
    *static_cast<double*>(member) = sqlite3_value_double(source);
    return true;
  }
  const bool isOptional = shortcut == Shortcut::kOptionalString;
  if (isOptional && type == SQLITE_NULL) {
    static_cast<std::optional<std::string>*>(member)->reset();
    return true;
  }
  if (type != SQLITE_TEXT) return false;
  const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(source));
  if (text == nullptr) return false;
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(source));
  if (!isOptional) {
    static_cast<std::string*>(member)->assign(text, size);
  } else if (auto& target = *static_cast<std::optional<std::string>*>(member)) {
    target->assign(text, size);
  } else {
    target.emplace(text, size);
  }
  return true;
}

// The same for binding. A real number that is none cannot be bound at once.
inline bool BindAtOnce(const Target& target, Shortcut shortcut, const void* member) {
  int result = SQLITE_OK;
  if (shortcut == Shortcut::kInt64) {
    result = sqlite3_bind_int64(target.statement, target.parameter, *static_cast<const std::int64_t*>(member));
  } else if (shortcut == Shortcut::kDouble) {
    const double value = *static_cast<const double*>(member);
    if (value != value) return false;
    result = sqlite3_bind_double(target.statement, target.parameter, value);
  } else if (shortcut == Shortcut::kString) {
    const auto& text = *static_cast<const std::string*>(member);
    result =
        sqlite3_bind_text64(target.statement, target.parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
  } else {
    return false;
  }
  return result == SQLITE_OK;
}

}  // namespace

void LoadRecord(sqlite3_stmt* statement, int column, const RecordLayout& layout, void* record) {
  char* const begin = static_cast<char*>(record);
  const FieldEntry* const end = layout.fields + layout.count;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++column) {
    void* const member = begin + field->offset;
    if (!LoadAtOnce(statement, column, field->shortcut, member)) field->load(statement, column, member);
  }
}

void BindRecord(const Target& first, const RecordLayout& layout, const void* record) {
  const char* const begin = static_cast<const char*>(record);
  Target target = first;
  const FieldEntry* const end = layout.fields + layout.count;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++target.parameter) {
    const void* const member = begin + field->offset;
    // A second time for its error.
    if (!BindAtOnce(target, field->shortcut, member)) field->bind(target, member);
  }
}

}  // namespace sqldb::kit::detail
