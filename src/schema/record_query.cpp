#include "sqldb/table.h"

#include <memory>
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

// Where the one result goes: to the start of the record. Never destroyed, so that the program's last destructors find
// it.
const OffsetSpec& StartOfRecord() {
  static const OffsetSpec& offsets = *[] {
    auto spec = std::make_unique<OffsetSpec>();
    spec->PushOffset(0, 0);
    return spec.release();
  }();
  return offsets;
}

// Makes the result column for what `expression` gives, and the cursor that fetches it.
boost::shared_ptr<IntegerCursor> Ask(boost::shared_ptr<SQLSelectClass>& select, const char* expression,
                                     ObjectMemory& memory) {
  const ObjectAllocator<IntegerCursor, ObjectMemory::kCursor> forCursor(memory);
  const ObjectAllocator<IntegerColumn, ObjectMemory::kColumn> forColumn(memory);
  auto cursor = boost::allocate_shared<IntegerCursor>(forCursor, select->fDatabase, StartOfRecord());
  select << boost::allocate_shared<IntegerColumn>(forColumn, nullptr, expression, true, false, false, "");
  return cursor;
}

}  // namespace

std::uint32_t SQLTableClass::CountRecords(boost::shared_ptr<SQLTermBase> term) {
  SQLDatabase& database = Database();
  boost::shared_ptr<IntegerCursor> cursor;  // released after the select
  auto select = database.NewSelect(database.GetTableFromTableClass(this), 0);
  cursor = Ask(select, "COUNT(ROWID)", database.fSpares->fObjects);
  if (term && term->NotEmpty()) select->fTerm = std::move(term);
  select->PrepareSelect(cursor);
  std::uint32_t count = 0;
  cursor->Step(count);
  return count;
}

bool SQLTableClass::HasTerm(boost::shared_ptr<SQLTermBase> term) {
  SQLDatabase& database = Database();
  boost::shared_ptr<IntegerCursor> cursor;  // released after the select
  auto select = database.NewSelect(database.GetTableFromTableClass(this), 1);
  cursor = Ask(select, "ROWID", database.fSpares->fObjects);
  select->fTerm = std::move(term);
  select->PrepareSelect(cursor);
  std::uint32_t rowId = 0;
  return cursor->Step(rowId) == 0;
}

void SQLTableClass::DeleteRecords(boost::shared_ptr<SQLTermBase> term) {
  SQLDeleteClass(&fDatabase, *this, std::move(term)).PerformDelete();
}

}  // namespace sqldb
