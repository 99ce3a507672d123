#include "sqldb/delete.h"

#include <utility>

#include "sqldb/database.h"
#include "sqldb/table.h"
#include "terms/where.h"
#include "text_stream.h"

namespace sqldb {

SQLDeleteClass::SQLDeleteClass(SQLDatabase* database, SQLTableClass& table, boost::shared_ptr<SQLTermBase> term)
    : fDatabase(database), fTable(&table), fTerm(std::move(term)), fTableLifetime(table.fLifetime) {}

SQLDeleteClass::~SQLDeleteClass() = default;

void SQLDeleteClass::SetUpDelete() {
  ThrowIf(fTableLifetime.expired());
  TextLoan text(fTable->fText);
  text->Add("DELETE FROM ").Add(fTable->fName);
  PrintWhere(*text, fTerm);
  text->CopyTo(fQuery);
}

void SQLDeleteClass::PerformDelete() {
  SetUpDelete();
  // What the term printed may have let the table go.
  ThrowIf(fTableLifetime.expired());
  fTable->SendQuery(fQuery, nullptr, nullptr);
}

}  // namespace sqldb
