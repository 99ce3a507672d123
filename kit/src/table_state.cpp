#include "table_state.h"

#include <memory>

#include <sqlite3.h>

#include "engine.h"

namespace sqldb::kit::detail {

namespace {

bool IsKey(const FieldEntry& field) { return field.isKey; }
bool IsNoKey(const FieldEntry& field) { return !field.isKey; }
bool IsAny(const FieldEntry&) { return true; }

// Appends what `write` makes of each field that `isWanted`, with its number from 1.
template <typename Wanted, typename Write>
void List(std::string& sql, const RecordLayout& layout, const char* separator, Wanted isWanted, Write write) {
  const char* before = "";
  for (int i = 0; i < layout.count; ++i) {
    const FieldEntry& field = layout.fields[i];
    if (!isWanted(field)) continue;
    sql += before;
    before = separator;
    write(field, i + 1);
  }
}

template <typename Wanted>
void ListNames(std::string& sql, const RecordLayout& layout, Wanted isWanted) {
  List(sql, layout, ", ", isWanted, [&](const FieldEntry& field, int) { sql += field.name; });
}

// A record is bound with all its fields, each to its own number.
template <typename Wanted>
void ListNumbered(std::string& sql, const RecordLayout& layout, const char* separator, Wanted isWanted) {
  List(sql, layout, separator, isWanted, [&](const FieldEntry& field, int number) {
    sql.append(field.name).append(" = ?").append(std::to_string(number));
  });
}

std::string WhereKey(const RecordLayout& layout) {
  std::string sql = " WHERE ";
  List(sql, layout, " AND ", IsKey, [&](const FieldEntry& field, int) { sql.append(field.name).append(" = ?"); });
  return sql;
}

std::string InsertSql(const char* verb, const TableState& table) {
  std::string sql = verb;
  sql.append(" INTO ").append(table.name).append(" (");
  ListNames(sql, table.layout, IsAny);
  sql += ") VALUES (";
  List(sql, table.layout, ", ", IsAny, [&](const FieldEntry&, int) { sql += '?'; });
  return sql + ")";
}

std::string UpsertSql(const TableState& table) {
  RequireEngine(3024000, "Upsert");
  std::string sql = InsertSql("INSERT", table) + " ON CONFLICT (";
  ListNames(sql, table.layout, IsKey);
  sql += ") DO ";
  if (table.layout.count == table.layout.keyCount) return sql + "NOTHING";
  sql += "UPDATE SET ";
  List(sql, table.layout, ", ", IsNoKey,
       [&](const FieldEntry& field, int) { sql.append(field.name).append(" = excluded.").append(field.name); });
  return sql;
}

std::string UpdateSql(const TableState& table) {
  std::string sql = "UPDATE " + table.name + " SET ";
  // Where there is nothing but a key, the row stays as it is, and is counted.
  const bool hasOnlyKey = table.layout.count == table.layout.keyCount;
  ListNumbered(sql, table.layout, ", ", hasOnlyKey ? IsKey : IsNoKey);
  sql += " WHERE ";
  ListNumbered(sql, table.layout, " AND ", IsKey);
  return sql;
}

void AddColumnDefinition(std::string& sql, const FieldEntry& field, bool isOnlyKey) {
  sql.append(field.name).append(" ").append(field.sql);
  if (isOnlyKey) sql += " PRIMARY KEY";
  if (!field.canBeNull) sql += " NOT NULL";
  if (field.isUnique) sql += " UNIQUE";
  if (field.collation != nullptr) sql.append(" COLLATE ").append(field.collation);
}

}  // namespace

std::string TableState::Sql(Fixed which) const {
  switch (which) {
    case kFind:
      return SelectSql(false) + WhereKey(layout);
    case kInsert:
      return InsertSql("INSERT", *this);
    case kInsertOrIgnore:
      return InsertSql("INSERT OR IGNORE", *this);
    case kUpsert:
      return UpsertSql(*this);
    case kReplace:
      return InsertSql("REPLACE", *this);
    case kUpdate:
      return UpdateSql(*this);
    default:
      return "DELETE FROM " + name + WhereKey(layout);
  }
}

std::string TableState::CreateSql(bool onlyIfMissing) const {
  std::string sql = onlyIfMissing ? "CREATE TABLE IF NOT EXISTS " : "CREATE TABLE ";
  sql.append(name).append(" (");
  List(sql, layout, ", ", IsAny,
       [&](const FieldEntry& field, int) { AddColumnDefinition(sql, field, field.isKey && layout.keyCount == 1); });
  if (layout.keyCount > 1) {
    sql += ", PRIMARY KEY (";
    ListNames(sql, layout, IsKey);
    sql += ')';
  }
  return sql + ")";
}

std::string TableState::SelectSql(bool isDistinct) const {
  std::string sql = isDistinct ? "SELECT DISTINCT " : "SELECT ";
  ListNames(sql, layout, IsAny);
  return sql.append(" FROM ").append(name);
}

std::string TableState::CheckSql() const {
  std::string sql = "SELECT ";
  List(sql, layout, ", ", IsAny,
       [&](const FieldEntry& field, int) { sql.append(name).append(".").append(field.name); });
  return sql.append(" FROM ").append(name);
}

TableStates::~TableStates() {
  while (fFirst != nullptr) {
    const std::unique_ptr<TableState> state(fFirst);
    fFirst = state->next;
  }
}

TableState& TableStates::Use(const RecordLayout& layout, std::string_view name) {
  for (TableState* state = fFirst; state != nullptr; state = state->next) {
    if (&state->layout != &layout || state->name != name) continue;
    if (state->users++ == 0) --fIdle;
    MoveToFront(*state);
    return *state;
  }
  auto made = std::make_unique<TableState>(layout, name);
  made->users = 1;
  made->next = fFirst;
  fFirst = made.get();
  return *made.release();
}

void TableStates::Release(TableState& state) noexcept {
  if (--state.users > 0) return;
  MoveToFront(state);
  if (++fIdle > kMostIdle) DiscardOldestIdle();
}

TableState*& TableStates::Link(const TableState& state) noexcept {
  TableState** link = &fFirst;
  while (*link != &state) link = &(*link)->next;
  return *link;
}

void TableStates::MoveToFront(TableState& state) noexcept {
  Link(state) = state.next;
  state.next = fFirst;
  fFirst = &state;
}

void TableStates::DiscardOldestIdle() noexcept {
  TableState* oldest = nullptr;
  for (TableState* state = fFirst; state != nullptr; state = state->next) {
    if (state->users == 0) oldest = state;
  }
  fStatements.Forget(oldest);
  Link(*oldest) = oldest->next;
  delete oldest;
  --fIdle;
}

}  // namespace sqldb::kit::detail
