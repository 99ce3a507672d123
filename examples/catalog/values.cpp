#include "values.h"

#include <stdexcept>

#include <sqlite3.h>

#include "literals.h"

namespace catalog {

namespace {

void Check(int result, sqlite3_stmt* statement) {
  if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(statement)));
}

}  // namespace

void BoundInteger::BindingOpportunity(sqlite3_stmt* statement) const {
  const int index = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
  if (index != 0) Check(sqlite3_bind_int64(statement, index, fValue), statement);
}

void BoundText::BindingOpportunity(sqlite3_stmt* statement) const {
  const int index = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
  if (index == 0) return;
  Check(sqlite3_bind_text64(statement, index, fText.data(), fText.size(), SQLITE_STATIC, SQLITE_UTF8), statement);
}

std::ostream& LiteralText::Print(std::ostream& stream) const { return stream << Quoted(fText); }

}  // namespace catalog
