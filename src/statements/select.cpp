#include "sqldb/select.h"

#include <string>
#include <utility>

#include <boost/make_shared.hpp>

#include "database/spares.h"
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
  fDatabase->fSpares->fColumnsOfSelect.Lend(fColumns);
}

SQLSelectClass::~SQLSelectClass() {
  delete fCallback;
  if (fDatabaseLifetime.expired()) return;
  fDatabase->RemoveSelect(this);
  Spares& spares = *fDatabase->fSpares;
  spares.fText.TakeBack(fQuery);
  // In the order in which the members go; what they release may destroy the database.
  fOrder.clear();
  fTerm.reset();
  fColumns.clear();
  if (!fDatabaseLifetime.expired()) spares.fColumnsOfSelect.TakeBack(fColumns);
}

boost::shared_ptr<SQLSelectClass> SQLDatabase::NewSelect(boost::shared_ptr<SQLTableClass> table, std::uint32_t limit) {
  // A class that may be constructed, for the allocation of the object together with its counts.
  struct Select : SQLSelectClass {
    Select(SQLDatabase* database, boost::shared_ptr<SQLTableClass>&& table, std::uint32_t limit)
        : SQLSelectClass(database, std::move(table), limit) {}
  };
  const ObjectAllocator<Select, ObjectMemory::kSelect> allocator(fSpares->fObjects);
  return boost::allocate_shared<Select>(allocator, this, std::move(table), limit);
}

void SQLSelectClass::SetupSelect(boost::shared_ptr<SQLCursorBase> cursor) { SetUp(cursor); }

void SQLSelectClass::SetUp(const boost::shared_ptr<SQLCursorBase>& cursor) {
  TextLoan loan(fTable->fText);
  TextStream& text = *loan;
  text.Add("SELECT");
  if (fDistinct) text.Add(" DISTINCT");
  PrintNames(text, fColumns);
  text.Add(" FROM ").Add(fTable->fName);
  PrintWhere(text, fTerm);
  const char* separator = " ORDER BY ";
  for (const OrderItem& item : fOrder) {
    text.Add(separator).Add(item.fColumn->fName).Add(item.fAscending != 0 ? "" : " DESC");
    separator = ", ";
  }
  if (fLimit != 0) {
    text.Add(" LIMIT ").Add(fLimit);
  } else if (fOffset != 0) {
    text.Add(" LIMIT -1");  // SQLite needs a limit before an offset
  }
  if (fOffset != 0) text.Add(" OFFSET ").Add(fOffset);

  Spares* const spares = fDatabaseLifetime.expired() ? nullptr : fDatabase->fSpares.get();
  if (spares != nullptr && fQuery.empty()) spares->fText.Lend(fQuery);
  text.CopyTo(fQuery);
  cursor->fIsShared = true;
  fCallback = new SelectCallback(cursor);
  if (spares != nullptr && cursor->fColumns.empty()) spares->fColumnsOfCursor.Lend(cursor->fColumns);
  cursor->fColumns = fColumns;
}

void SQLSelectClass::PrepareSelect(boost::shared_ptr<SQLCursorBase> cursor) {
  SetUp(cursor);
  cursor->PrepareToQuery(fQuery);
}

void SQLSelectClass::PerformSelect(boost::shared_ptr<SQLCursorBase> cursor) {
  SetUp(cursor);
  // A copy: ProcessRow may set this select up again.
  const std::string query = fQuery;
  cursor->SendQuery(query, fCallback, nullptr);
}

boost::shared_ptr<SQLSelectClass>& operator<<(boost::shared_ptr<SQLSelectClass>& select,
                                              boost::shared_ptr<SQLColumnBase> column) {
  select->fColumns.push_back(std::move(column));
  return select;
}

}  // namespace sqldb

SelectCallback::SelectCallback(boost::shared_ptr<sqldb::SQLCursorBase> cursor) : fCursor(std::move(cursor)) {}

SelectCallback::~SelectCallback() = default;

bool SelectCallback::ProcessRow(sqlite3_stmt* statement) { return fCursor->ProcessRow(statement); }
