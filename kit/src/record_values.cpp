#include "record_values.h"

#include <new>
#include <string>

#include "binding.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

inline int BindTextAtOnce(sqlite3_stmt* statement, int parameter, const std::string& text) {
  return sqlite3_bind_text64(statement, parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

// Binds the most frequent types. Returns false for all else; nothing is bound then.
inline bool BindAtOnce(sqlite3_stmt* statement, int parameter, Shortcut shortcut, const void* member) {
  int result = SQLITE_OK;
  switch (shortcut) {
    case Shortcut::kInt64:
      result = sqlite3_bind_int64(statement, parameter, *static_cast<const std::int64_t*>(member));
      break;
    case Shortcut::kDouble: {
      const double value = *static_cast<const double*>(member);
      if (value != value) return false;
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
      return false;
  }
  CheckBound(statement, result);
  return true;
}

[[noreturn]] void ThrowNotStored(const FieldEntry& field, const ConversionError& error) {
  throw ConversionError("column " + std::string(field.name) + ": " + std::string(error.Message()),
                        error.ExtendedCode());
}

}  // namespace

void ThrowNoMemory() { throw std::bad_alloc(); }

void EmplaceText(std::optional<std::string>& text, const char* begin, std::size_t size) { text.emplace(begin, size); }

void BindRecord(sqlite3_stmt* statement, const RecordLayout& layout, const void* record) {
  const char* const begin = static_cast<const char*>(record);
  for (int i = 0; i < layout.count; ++i) {
    const FieldEntry& field = layout.fields[i];
    const void* const member = begin + field.offset;
    if (BindAtOnce(statement, i + 1, field.shortcut, member)) continue;
    try {
      field.bind(Target{statement, i + 1, true}, member);
    } catch (const ConversionError& error) {
      ThrowNotStored(field, error);
    }
  }
}

}  // namespace sqldb::kit::detail
