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
  TextStream text;
  text << "UPDATE " << fTable.fName << " SET";
  for (std::size_t i = 0; i < fColumns.size(); ++i) {
    if (i != 0) text << ",";
    text << " " << fColumns[i]->fName << " = ";
    AddValueToUpdate(text, fValues[i]);
  }
  // Without asking NotEmpty, unlike a select or a delete: an update that lost its condition must fail instead of
  // changing every row.
  text << " WHERE";
  fTerm->Print(text);
  fTable.SendQuery(text.Text(), nullptr, nullptr);
  if (clearValues) fValues.clear();
}

}  // namespace sqldb
