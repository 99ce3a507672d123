#include "sqldb/kit/record.h"

#include <sqlite3.h>

namespace sqldb::kit::detail {

void LoadRecord(sqlite3_stmt* statement, int column, const RecordLayout& layout, void* record) {
  char* const begin = static_cast<char*>(record);
  const FieldEntry* const end = layout.fields + layout.count;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++column) {
    const Source source{sqlite3_column_value(statement, column), statement, column};
    void* const member = begin + field->offset;
    switch (field->shortcut) {
      case Shortcut::kInt64:
        *static_cast<std::int64_t*>(member) = ReadInteger(source);
        break;
      case Shortcut::kDouble:
        *static_cast<double*>(member) = ReadReal(source);
        break;
      case Shortcut::kString:
        *static_cast<std::string*>(member) = ReadText(source);
        break;
      case Shortcut::kNone:
        field->load(source, member);
        break;
    }
  }
}

void BindRecord(const Target& first, const RecordLayout& layout, const void* record) {
  const char* const begin = static_cast<const char*>(record);
  Target target = first;
  const FieldEntry* const end = layout.fields + layout.count;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++target.parameter) {
    field->bind(target, begin + field->offset);
  }
}

}  // namespace sqldb::kit::detail
