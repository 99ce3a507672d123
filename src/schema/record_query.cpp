#include "sqldb/table.h"

#include <utility>

#include <boost/make_shared.hpp>

#include "database/spares.h"
#include "schema/integer_column.h"
#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/delete.h"
#include "sqldb/select.h"
#include "sqldb/term.h"

namespace sqldb {

namespace {

using IntegerCursor = SQLStepCursor<std::uint32_t>;

// Lets the select ask for what `expression` gives, and returns the cursor that fetches it to the start of a record.
boost::shared_ptr<IntegerCursor> Ask(boost::shared_ptr<SQLSelectClass>& select, const char* expression,
                                     Spares& spares) {
  OffsetSpec offsets;
  spares.fOffsets.Lend(offsets.fItems);
  offsets.PushOffset(0, 0);
  const ObjectAllocator<IntegerCursor, ObjectMemory::kCursor> forCursor(spares.fObjects);
  auto cursor = boost::allocate_shared<IntegerCursor>(forCursor, select->fDatabase, std::move(offsets));
  const ObjectAllocator<IntegerColumn, ObjectMemory::kColumn> forColumn(spares.fObjects);
  select << boost::allocate_shared<IntegerColumn>(forColumn, nullptr, expression, true, false, false, "");
  return cursor;
}

}  // namespace

std::uint32_t SQLTableClass::CountRecords(boost::shared_ptr<SQLTermBase> term) {
  SQLDatabase& database = Database();
  boost::shared_ptr<IntegerCursor> cursor;  // released after the select
  auto select = database.NewSelect(database.GetTableFromTableClass(this), 0);
  cursor = Ask(select, "COUNT(ROWID)", *database.fSpares);
  if (term && term->NotEmpty()) select->fTerm = term;
  select->PrepareSelect(cursor);
  std::uint32_t count = 0;
  cursor->Step(count);
  return count;
}

bool SQLTableClass::HasTerm(boost::shared_ptr<SQLTermBase> term) {
  SQLDatabase& database = Database();
  boost::shared_ptr<IntegerCursor> cursor;  // released after the select
  auto select = database.NewSelect(database.GetTableFromTableClass(this), 1);
  cursor = Ask(select, "ROWID", *database.fSpares);
  select->fTerm = term;
  select->PrepareSelect(cursor);
  std::uint32_t rowId = 0;
  return cursor->Step(rowId) == 0;
}

void SQLTableClass::DeleteRecords(boost::shared_ptr<SQLTermBase> term) {
  SQLDeleteClass(&fDatabase, *this, std::move(term)).PerformDelete();
}

}  // namespace sqldb
