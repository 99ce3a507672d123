#include "sqldb/kit/table.h"

#include <algorithm>
#include <string>

#include "connection.h"

namespace sqldb::kit::detail {

namespace {

// Writes a list of what `write` makes of each field that `wanted` is true for.
template <typename Wanted, typename Write>
void List(std::string& sql, const RecordLayout& layout, const char* separator, Wanted wanted, Write write) {
  bool isFirst = true;
  for (const FieldEntry* field = layout.fields; field != layout.fields + layout.count; ++field) {
    if (!wanted(*field)) continue;
    if (!isFirst) sql += separator;
    isFirst = false;
    write(*field);
  }
}

bool IsKey(const FieldEntry& field) { return field.isKey; }
bool IsNoKey(const FieldEntry& field) { return !field.isKey; }
bool IsAny(const FieldEntry&) { return true; }

}  // namespace

// The statements of one table on one connection. Each is a slot, which is filled at the first use.
struct TableState {
  enum Slot { kFind, kInsert, kInsertOrIgnore, kUpsert, kReplace, kUpdate, kDelete, kSlots };

  std::string name;
  const RecordLayout* layout;
  std::string sql[kSlots];

  std::string Build(Slot slot) const;
  const std::string& Sql(Slot slot) {
    if (sql[slot].empty()) sql[slot] = Build(slot);
    return sql[slot];
  }

 private:
  void Names(std::string& text) const {
    List(text, *layout, ", ", IsAny, [&](const FieldEntry& field) { text += field.name; });
  }
  void WhereKey(std::string& text) const {
    text += " WHERE ";
    List(text, *layout, " AND ", IsKey, [&](const FieldEntry& field) { text.append(field.name).append(" = ?"); });
  }
  std::string InsertInto(const char* verb) const {
    std::string text = verb;
    text.append(" INTO ").append(name).append(" (");
    Names(text);
    text += ") VALUES (";
    List(text, *layout, ", ", IsAny, [&](const FieldEntry&) { text += '?'; });
    text += ')';
    return text;
  }
};

std::string TableState::Build(Slot slot) const {
  std::string text;
  switch (slot) {
    case kFind:
      text = "SELECT ";
      Names(text);
      text.append(" FROM ").append(name);
      WhereKey(text);
      return text;
    case kInsert:
      return InsertInto("INSERT");
    case kInsertOrIgnore:
      return InsertInto("INSERT OR IGNORE");
    case kReplace:
      return InsertInto("REPLACE");
    case kUpsert:
      text = InsertInto("INSERT") + " ON CONFLICT (";
      List(text, *layout, ", ", IsKey, [&](const FieldEntry& field) { text += field.name; });
      text += ") DO ";
      if (layout->count == layout->keyCount) return text + "NOTHING";
      text += "UPDATE SET ";
      List(text, *layout, ", ", IsNoKey,
           [&](const FieldEntry& field) { text.append(field.name).append(" = excluded.").append(field.name); });
      return text;
    case kUpdate:
      text.append("UPDATE ").append(name).append(" SET ");
      // By number, so that a record is bound as it is.
      for (int i = 0, written = 0; i < layout->count; ++i) {
        if (layout->fields[i].isKey) continue;
        if (written++ > 0) text += ", ";
        text.append(layout->fields[i].name).append(" = ?").append(std::to_string(i + 1));
      }
      text += " WHERE ";
      for (int i = 0, written = 0; i < layout->count; ++i) {
        if (!layout->fields[i].isKey) continue;
        if (written++ > 0) text += " AND ";
        text.append(layout->fields[i].name).append(" = ?").append(std::to_string(i + 1));
      }
      return text;
    case kDelete:
      text.append("DELETE FROM ").append(name);
      WhereKey(text);
      return text;
    case kSlots:
      break;
  }
  return text;
}

}  // namespace sqldb::kit::detail
