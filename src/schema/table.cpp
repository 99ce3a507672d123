#include "sqldb/table.h"

#include <algorithm>
#include <utility>

#include <boost/make_shared.hpp>

#include "sqldb/column.h"
#include "sqldb/database.h"
#include "text_stream.h"

namespace sqldb {

namespace {

// Takes the entry that holds `statement` off the list, if there is one.
template <typename Statement>
void Forget(std::vector<boost::shared_ptr<Statement>>& list, const Statement* statement) {
  const auto found = std::find_if(list.begin(), list.end(), [statement](const boost::shared_ptr<Statement>& entry) {
    return entry.get() == statement;
  });
  if (found == list.end()) return;
  // Moved out first: the statement, if this was its last owner, comes back to the list from its destructor.
  const boost::shared_ptr<Statement> entry = std::move(*found);
  list.erase(found);
}

}  // namespace

SQLTableClass::SQLTableClass(SQLDatabase& database, const std::string& name)
    : fDatabase(database),
      fName(name),
      fDatabaseLifetime(database.fLifetime),
      fText(boost::make_shared<TextStream>()),
      fLifetime(boost::make_shared<bool>()) {}

SQLTableClass::~SQLTableClass() {
  // Statements that the lists let go of must leave the lists alone.
  fDestroying = true;
}

void SQLTableClass::Initialize() { fCreated = true; }

bool SQLTableClass::IsWritable() const { return !Database().fReadOnly; }

void SQLTableClass::SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding) {
  Database().SendQuery(sql, callback, binding);
}

void SQLTableClass::AddColumn(boost::shared_ptr<SQLColumnBase> column) {
  column->fSerial = fNextSerial;
  fColumns[column->fName] = column;
  ++fNextSerial;
}

bool SQLTableClass::HasColumn(const std::string& name) const { return fColumns.count(name) != 0; }

boost::shared_ptr<SQLColumnBase> SQLTableClass::GetColumn(const std::string& name) {
  const auto found = fColumns.find(name);
  ThrowIf(found == fColumns.end());
  return found->second;
}

void SQLTableClass::Create() {
  std::vector<boost::shared_ptr<SQLColumnBase>> columns;
  std::for_each(fColumns.begin(), fColumns.end(), PushColumn(columns));
  std::sort(columns.begin(), columns.end(), LessSerial);

  TextLoan loan(fText);
  TextStream& text = *loan;
  text.Add("CREATE TABLE ").Add(fName).Add(" (");
  std::for_each(columns.begin(), columns.end(), AddColumnDefToQuery(text));
  text.Add(" );");
  SendQuery(text.Text(), nullptr, nullptr);
  fCreated = true;
}

void SQLTableClass::Drop() {
  SendQuery("DROP TABLE " + fName + ";", nullptr, nullptr);
  fCreated = false;
}

void SQLTableClass::CreateIndexForColumn(const std::string& columnName) {
  SendQuery("CREATE INDEX " + fName + "_" + columnName + " on " + fName + " (" + columnName + ");", nullptr, nullptr);
}

void SQLTableClass::RemoveInsert(SQLInsertClass* statement) {
  if (!fDestroying) Forget(fInserts, statement);
}

void SQLTableClass::RemoveUpdate(SQLUpdateClass* statement) {
  if (!fDestroying) Forget(fUpdates, statement);
}

SQLDatabase& SQLTableClass::Database() const {
  ThrowIf(fDatabaseLifetime.expired());
  return fDatabase;
}

}  // namespace sqldb

TableNameIs::TableNameIs(const std::string& name) : fName(name) {}

bool TableNameIs::operator()(const boost::shared_ptr<sqldb::SQLTableClass>& table) const {
  return table->fName == fName;
}

TableClassIs::TableClassIs(sqldb::SQLTableClass* table) : fTable(table) {}

bool TableClassIs::operator()(const boost::shared_ptr<sqldb::SQLTableClass>& table) const {
  return table.get() == fTable;
}
