#include "sqldb/insert.h"

#include <algorithm>

#include "sqldb/table.h"
#include "sqldb/value.h"
#include "statements/names.h"
#include "text_stream.h"

namespace sqldb {

// Opened at its end, so that what is written to it after a str() call is appended.
SQLInsertClass::SQLInsertClass(SQLTableClass& table)
    : fTable(table), fVerb("INSERT"), fQuery(std::ios::ate), fTableLifetime(table.fLifetime) {
  MakeExact(fQuery);
}

SQLInsertClass::~SQLInsertClass() {
  if (!fTableLifetime.expired()) fTable.RemoveInsert(this);
}

std::string SQLInsertClass::BuildText() const {
  ThrowIf(fTableLifetime.expired());
  // Built aside: a text cut short by a failure must not stay in fQuery.
  TextStream text;
  text.copyfmt(fQuery);
  text << fQuery.str() << fVerb << " INTO " << fTable.fName << " (";
  PrintNames(text, fColumns);
  text << " ) VALUES (";
  std::for_each(fValues.begin(), fValues.end(), AddValueToQuery(&text));
  text << " )";
  return text.Text();
}

void SQLInsertClass::SetupInsert() { fQuery.str(BuildText()); }

void SQLInsertClass::PerformInsert(bool clearValues) {
  const std::string query = BuildText();
  fQuery.str(query);
  SQLInsertBindingCallback binding(this);
  fTable.SendQuery(query, nullptr, &binding);
  fQuery.str("");
  if (clearValues) fValues.clear();
}

SQLReplaceClass::SQLReplaceClass(SQLTableClass& table) : SQLInsertClass(table) { fVerb = "REPLACE"; }

SQLReplaceClass::~SQLReplaceClass() = default;

void SQLReplaceClass::PerformReplace(bool clearValues) { PerformInsert(clearValues); }

}  // namespace sqldb

SQLInsertBindingCallback::SQLInsertBindingCallback(sqldb::SQLInsertClass* insert) : fInsert(insert) {}

SQLInsertBindingCallback::~SQLInsertBindingCallback() = default;

void SQLInsertBindingCallback::BindingOpportunity(sqlite3_stmt* statement) const {
  const std::vector<boost::shared_ptr<sqldb::SQLValueBase>> values = fInsert->fValues;
  std::for_each(values.begin(), values.end(), PresentBindingOpportunity(statement));
}

AddValueToQuery::AddValueToQuery(std::ostream* stream) : fStream(stream) {}

void AddValueToQuery::operator()(boost::shared_ptr<sqldb::SQLValueBase> value) {
  if (!fFirst) *fStream << ",";
  value->Print(*fStream);
  fFirst = false;
}

PresentBindingOpportunity::PresentBindingOpportunity(sqlite3_stmt* statement) : fStatement(statement) {}

void PresentBindingOpportunity::operator()(boost::shared_ptr<sqldb::SQLValueBase> value) const {
  value->BindingOpportunity(fStatement);
}
