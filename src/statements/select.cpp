#include "sqldb/select.h"

#include <string>
#include <utility>

#include "sqldb/column.h"
#include "sqldb/cursor.h"
#include "sqldb/table.h"
#include "statements/names.h"
#include "terms/where.h"
#include "text_stream.h"

namespace sqldb {

SQLSelectClass::SQLSelectClass(SQLDatabase* database, boost::shared_ptr<SQLTableClass> table, std::uint32_t limit)
    : fDatabase(database), fTable(std::move(table)), fLimit(limit), fDatabaseLifetime(database->fLifetime) {
  fDatabase->fSelects.push_back(this);
}

SQLSelectClass::~SQLSelectClass() {
  delete fCallback;
  if (!fDatabaseLifetime.expired()) fDatabase->RemoveSelect(this);
}

boost::shared_ptr<SQLSelectClass> SQLDatabase::NewSelect(boost::shared_ptr<SQLTableClass> table, std::uint32_t limit) {
  return boost::shared_ptr<SQLSelectClass>(new SQLSelectClass(this, std::move(table), limit));
}

// All of the text behind the result columns.
void SQLSelectClass::PrintSource(TextStream& text) const {
  text.Add(" FROM ").Add(fTable->fName);
  PrintWhere(text, fTerm);
  const char* separator = " ORDER BY ";
  for (const OrderItem& item : fOrder) {
    text.Add(separator).Add(item.fColumn->fName).Add(item.fAscending != 0 ? "" : " DESC");
    separator = ", ";
  }
  if (fLimit != 0) {
    text.Add(" LIMIT ").Add(std::to_string(fLimit));
  } else if (fOffset != 0) {
    text.Add(" LIMIT -1");  // SQLite needs a limit before an offset
  }
  if (fOffset != 0) text.Add(" OFFSET ").Add(std::to_string(fOffset));
}

void SQLSelectClass::SetupSelect(boost::shared_ptr<SQLCursorBase> cursor) {
  TextLoan text(fTable->fText);
  text->Add("SELECT");
  if (fDistinct) text->Add(" DISTINCT");
  PrintNames(*text, fColumns);
  PrintSource(*text);
  std::string query = text->Text();

  cursor->fIsShared = true;
  fCallback = new SelectCallback(cursor);
  cursor->fColumns = fColumns;
  fQuery = std::move(query);
}

void SQLSelectClass::PrepareSelect(boost::shared_ptr<SQLCursorBase> cursor) {
  SetupSelect(cursor);
  cursor->PrepareToQuery(fQuery);
}

void SQLSelectClass::PerformSelect(boost::shared_ptr<SQLCursorBase> cursor) {
  SetupSelect(cursor);
  // A copy: ProcessRow may set this select up again.
  const std::string query = fQuery;
  cursor->SendQuery(query, fCallback, nullptr);
}

boost::shared_ptr<SQLSelectClass>& operator<<(boost::shared_ptr<SQLSelectClass>& select,
                                              boost::shared_ptr<SQLColumnBase> column) {
  // So that most selects allocate once for their columns.
  if (select->fColumns.empty()) select->fColumns.reserve(8);
  select->fColumns.push_back(std::move(column));
  return select;
}

}  // namespace sqldb

SelectCallback::SelectCallback(boost::shared_ptr<sqldb::SQLCursorBase> cursor) : fCursor(std::move(cursor)) {}

SelectCallback::~SelectCallback() = default;

bool SelectCallback::ProcessRow(sqlite3_stmt* statement) { return fCursor->ProcessRow(statement); }
