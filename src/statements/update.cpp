#include "sqldb/update.h"

#include <cstddef>

#include "sqldb/column.h"
#include "sqldb/database.h"
#include "sqldb/table.h"
#include "sqldb/term.h"
#include "sqldb/value.h"
#include "text_stream.h"

namespace sqldb {

SQLUpdateClass::SQLUpdateClass(SQLTableClass& table) : fTable(table), fTableLifetime(table.fLifetime) {}

SQLUpdateClass::~SQLUpdateClass() {
  if (!fTableLifetime.expired()) fTable.RemoveUpdate(this);
}

void SQLUpdateClass::PerformUpdate(bool clearValues) {
  ThrowIf(fTableLifetime.expired());
  TextLoan loan(fTable.fText);
  TextStream& text = *loan;
  text.Add("UPDATE ").Add(fTable.fName).Add(" SET");
  for (std::size_t i = 0; i < fColumns.size(); ++i) {
    if (i != 0) text.Add(",");
    text.Add(" ").Add(fColumns[i]->fName).Add(" =  ");  // the second blank as AddValueToUpdate writes it
    fValues[i]->Print(text);
  }
  // Without asking NotEmpty, unlike a select or a delete: an update that lost its condition must fail instead of
  // changing every row.
  text.Add(" WHERE");
  fTerm->Print(text);
  // What was printed may have let the table go.
  ThrowIf(fTableLifetime.expired());
  fTable.SendQuery(text.Text(), nullptr, nullptr);
  if (clearValues) fValues.clear();
}

}  // namespace sqldb
