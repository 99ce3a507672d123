#include "sqldb/table.h"

#include <utility>

#include "sqldb/column.h"
#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/delete.h"
#include "sqldb/select.h"
#include "sqldb/term.h"

namespace sqldb {

namespace {

using IntegerColumn = SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;
using IntegerCursor = SQLStepCursor<std::uint32_t>;

// A select of one integer expression over a table, of which only the first row is wanted.
class RecordQuery {
 public:
  RecordQuery(SQLDatabase& database, SQLTableClass& table, const char* expression, std::uint32_t limit)
      : fSelect(database.NewSelect(database.GetTableFromTableClass(&table), limit)) {
    OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    fCursor.reset(new IntegerCursor(&database, offsets));
    fSelect << boost::shared_ptr<SQLColumnBase>(new IntegerColumn(nullptr, expression, true, false, false, ""));
  }

  void SetTerm(const boost::shared_ptr<SQLTermBase>& term) { fSelect->fTerm = term; }

  // Fetches the first row's value. Returns false, `value` untouched, if there is no row.
  bool Fetch(std::uint32_t& value) {
    fSelect->PrepareSelect(fCursor);
    return fCursor->Step(value) == 0;
  }

 private:
  // Declared in this order, so that the select is destroyed first and the cursor after it.
  boost::shared_ptr<IntegerCursor> fCursor;
  boost::shared_ptr<SQLSelectClass> fSelect;
};

}  // namespace

std::uint32_t SQLTableClass::CountRecords(boost::shared_ptr<SQLTermBase> term) {
  RecordQuery query(Database(), *this, "COUNT(ROWID)", 0);
  if (term && term->NotEmpty()) query.SetTerm(term);
  std::uint32_t count = 0;
  query.Fetch(count);
  return count;
}

bool SQLTableClass::HasTerm(boost::shared_ptr<SQLTermBase> term) {
  RecordQuery query(Database(), *this, "ROWID", 1);
  query.SetTerm(term);
  std::uint32_t rowId = 0;
  return query.Fetch(rowId);
}

void SQLTableClass::DeleteRecords(boost::shared_ptr<SQLTermBase> term) { NewDelete(std::move(term))->PerformDelete(); }

}  // namespace sqldb
