#include "sqldb/kit/record.h"

namespace sqldb::kit::detail {

void LoadRecord(sqlite3_stmt* statement, int column, const RecordLayout& layout, void* record) {
  char* const begin = static_cast<char*>(record);
  const FieldEntry* const end = layout.fields + layout.count;
  for (const FieldEntry* field = layout.fields; field != end; ++field, ++column) {
    field->load(statement, column, begin + field->offset);
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
