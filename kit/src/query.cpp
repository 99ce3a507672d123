#include "sqldb/kit/query.h"

namespace sqldb::kit::detail {

std::string NamesOf(const RecordLayout& layout, std::string_view alias) {
  std::string names;
  for (const FieldEntry* field = layout.fields; field != layout.fields + layout.count; ++field) {
    if (!names.empty()) names += ", ";
    if (!alias.empty()) names.append(alias).append(".");
    names += field->name;
  }
  return names;
}

}  // namespace sqldb::kit::detail
