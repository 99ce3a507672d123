#include "sqldb/cursor.h"

#include "counter.h"
#include "database/spares.h"
#include "sqldb/column.h"
#include "sqldb/database.h"

namespace sqldb {

std::int32_t SQLCursorBase::sfCursorSerialNumber = 0;

SQLCursorBase::SQLCursorBase(SQLDatabase* database)
    : fDatabase(database), fSerialNumber(Draw(sfCursorSerialNumber)), fDatabaseLifetime(database->fLifetime) {
  fDatabase->fCursors.push_back(this);
}

SQLCursorBase::~SQLCursorBase() noexcept(false) {
  if (!IsOrphan()) fDatabase->RemoveCursor(this);
  // What releases the last owner of a column may destroy the database.
  fColumns.clear();
  if (!IsOrphan()) fDatabase->fSpares->fColumnsOfCursor.TakeBack(fColumns);
}

bool SQLCursorBase::ProcessRow(sqlite3_stmt*) { return false; }

void SQLCursorBase::PrepareToQuery(const std::string&) {}

void SQLCursorBase::SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding) {
  ThrowIf(IsOrphan());
  fDatabase->SendQuery(sql, callback, binding);
}

sqlite3* SQLCursorBase::Connection() const {
  ThrowIf(IsOrphan());
  return fDatabase->Connection();
}

void SQLCursorBase::ThrowMessage() const {
  ThrowIf(IsOrphan());
  fDatabase->ThrowMessageOf(fDatabase->fConnection);
}

}  // namespace sqldb
