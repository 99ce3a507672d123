#include "sqldb/database.h"

#include <algorithm>
#include <utility>

#include "sqldb/table.h"

namespace sqldb {

namespace {

// Takes the first entry that `isWanted` off the list, or the last entry if there is none.
template <typename List, typename Predicate>
void TakeOff(List& list, Predicate isWanted) {
  if (list.empty()) return;
  const auto found = std::find_if(list.begin(), list.end() - 1, isWanted);
  // Taken out first: what the entry's release destroys may come back to the list.
  typename List::value_type entry{};
  std::swap(entry, *found);
  list.erase(found);
}

template <typename Predicate>
boost::shared_ptr<SQLTableClass> Find(const std::vector<boost::shared_ptr<SQLTableClass>>& tables,
                                      const Predicate& isWanted) {
  const auto found = std::find_if(tables.begin(), tables.end(), isWanted);
  ThrowIf(found == tables.end());
  return *found;
}

}  // namespace

boost::shared_ptr<SQLTableClass> SQLDatabase::NewTable(const std::string& name) {
  boost::shared_ptr<SQLTableClass> table(new SQLTableClass(*this, name));
  fTables.push_back(table);
  return table;
}

boost::shared_ptr<SQLTableClass> SQLDatabase::GetTable(const std::string& name) {
  return Find(fTables, TableNameIs(name));
}

boost::shared_ptr<SQLTableClass> SQLDatabase::GetTableFromTableClass(SQLTableClass* table) {
  return Find(fTables, TableClassIs(table));
}

void SQLDatabase::DropTable(boost::shared_ptr<SQLTableClass> table) {
  table->Drop();
  TakeOff(fTables, TableClassIs(table.get()));
}

void SQLDatabase::RemoveSelect(SQLSelectClass* select) {
  if (fDestroying) return;
  TakeOff(fSelects, [select](const SQLSelectClass* entry) { return entry == select; });
}

void SQLDatabase::RemoveCursor(SQLCursorBase* cursor) {
  if (fDestroying) return;
  TakeOff(fCursors, [cursor](const SQLCursorBase* entry) { return entry == cursor; });
}

}  // namespace sqldb
