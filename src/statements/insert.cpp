#include "sqldb/insert.h"

#include <algorithm>

#include "sqldb/table.h"
#include "sqldb/value.h"
#include "statements/names.h"
#include "text_stream.h"

namespace sqldb {

namespace {

// Makes `stream` write into another buffer while it lives, with its own formatting, and afterwards gives it back the
// buffer and the formatting that it had. Failures are then forgotten.
class Redirection {
 public:
  Redirection(std::ostream& stream, std::streambuf* buffer)
      : fStream(stream),
        fLocale(stream.getloc()),
        fExceptions(stream.exceptions()),
        fFlags(stream.flags()),
        fWidth(stream.width()),
        fPrecision(stream.precision()),
        fFill(stream.fill()),
        fTie(stream.tie()),
        fBuffer(stream.rdbuf(buffer)) {}
  ~Redirection() {
    fStream.rdbuf(fBuffer);
    fStream.exceptions(fExceptions);
    fStream.flags(fFlags);
    fStream.width(fWidth);
    fStream.precision(fPrecision);
    fStream.fill(fFill);
    fStream.tie(fTie);
    ImbueIfOther(fStream, fLocale);
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  std::ostream& fStream;
  const std::locale fLocale;
  const std::ios::iostate fExceptions;
  const std::ios::fmtflags fFlags;
  const std::streamsize fWidth;
  const std::streamsize fPrecision;
  const char fFill;
  std::ostream* const fTie;
  std::streambuf* const fBuffer;
};

}  // namespace

// Opened at its end, so that what is written to it after a str() call is appended.
SQLInsertClass::SQLInsertClass(SQLTableClass& table)
    : fTable(table), fVerb("INSERT"), fQuery(std::ios::ate), fTableLifetime(table.fLifetime) {
  MakeExact(fQuery);
}

SQLInsertClass::~SQLInsertClass() {
  if (!fTableLifetime.expired()) fTable.RemoveInsert(this);
}

// Into a text aside: one that is cut short by a failure must not stay in fQuery.
void SQLInsertClass::PrintStatement(TextStream& text) {
  text.Add(fQuery.str()).Add(fVerb).Add(" INTO ").Add(fTable.fName).Add(" (");
  PrintNames(text, fColumns);
  text.Add(" ) VALUES (");
  {
    // The values are printed with the formatting that the application gave to fQuery.
    const Redirection redirection(fQuery, text.rdbuf());
    std::for_each(fValues.begin(), fValues.end(), AddValueToQuery(&fQuery));
    ThrowOnLoss(fQuery);
  }
  text.Add(" )");
}

void SQLInsertClass::SetupInsert() {
  ThrowIf(fTableLifetime.expired());
  TextLoan text(fTable.fText);
  PrintStatement(*text);
  fQuery.str(text->Text());
}

void SQLInsertClass::PerformInsert(bool clearValues) {
  ThrowIf(fTableLifetime.expired());
  TextLoan text(fTable.fText);
  PrintStatement(*text);
  // What the values printed may have let the table go.
  ThrowIf(fTableLifetime.expired());
  const std::string& query = text->Text();
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
