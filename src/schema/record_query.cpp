#include "sqldb/table.h"

#include <utility>

#include <sqlite3.h>

#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/delete.h"
#include "sqldb/select.h"
#include "sqldb/term.h"
#include "text_stream.h"

namespace sqldb {

namespace {

// Fetches one integer.
class IntegerCursor : public SQLStepCursorBase {
 public:
  explicit IntegerCursor(SQLDatabase* database) : SQLStepCursorBase(database, OffsetSpec()) {}

  // Quiet: whatever finalizing reports, the step has reported before.
  ~IntegerCursor() override {
    if (fFinalized) return;
    sqlite3_finalize(fStatement);
    fFinalized = true;
  }

  // Returns false, `value` untouched, if there is no row.
  bool Fetch(std::uint32_t& value) {
    if (!Advance()) return false;
    value = static_cast<std::uint32_t>(sqlite3_column_int(fStatement, 0));
    return true;
  }
};

}  // namespace

// A select of one integer expression over a table, of which only the first row is wanted. With nothing on the heap,
// since an application may make as many of these as of all other queries together.
class SQLTableClass::RecordQuery {
 public:
  RecordQuery(const boost::shared_ptr<SQLTableClass>& table, std::uint32_t limit)
      : fCursor(&table->fDatabase), fSelect(&table->fDatabase, table, limit) {}

  void SetTerm(const boost::shared_ptr<SQLTermBase>& term) { fSelect.fTerm = term; }

  // Returns false, `value` untouched, if there is no row.
  bool Fetch(const char* expression, std::uint32_t& value) {
    TextLoan text(fSelect.fTable->fText);
    text->Add("SELECT ").Add(expression);
    fSelect.PrintSource(*text);
    fCursor.PrepareToQuery(text->Text());
    return fCursor.Fetch(value);
  }

 private:
  // Declared in this order, so that the select is destroyed first and the cursor after it.
  IntegerCursor fCursor;
  SQLSelectClass fSelect;
};

std::uint32_t SQLTableClass::CountRecords(boost::shared_ptr<SQLTermBase> term) {
  RecordQuery query(Database().GetTableFromTableClass(this), 0);
  if (term && term->NotEmpty()) query.SetTerm(term);
  std::uint32_t count = 0;
  query.Fetch("COUNT(ROWID)", count);
  return count;
}

bool SQLTableClass::HasTerm(boost::shared_ptr<SQLTermBase> term) {
  RecordQuery query(Database().GetTableFromTableClass(this), 1);
  query.SetTerm(term);
  std::uint32_t rowId = 0;
  return query.Fetch("ROWID", rowId);
}

void SQLTableClass::DeleteRecords(boost::shared_ptr<SQLTermBase> term) {
  SQLDeleteClass(&fDatabase, *this, std::move(term)).PerformDelete();
}

}  // namespace sqldb
