#include "sqldb/value.h"

#include <cstdio>
#include <ostream>

#include "wrapping.h"

namespace sqldb {

std::int32_t SQLValueBase::gLastNamedParameterSequence = 0;

SQLValueBase::SQLValueBase() = default;

SQLValueBase::~SQLValueBase() = default;

std::ostream& SQLValueBase::Print(std::ostream& stream) const { return stream; }

void SQLValueBase::BindingOpportunity(sqlite3_stmt*) const {}

void SQLValueBase::RememberParameterName() {
  gLastNamedParameterSequence = WrappingAdd(gLastNamedParameterSequence, 1);
  // 0 means that there is no name.
  if (gLastNamedParameterSequence == 0) gLastNamedParameterSequence = 1;
  fParameterNumber = gLastNamedParameterSequence;
}

std::string SQLValueBase::GetParameterName() const {
  if (fParameterNumber == 0) return std::string();
  char name[255];
  std::snprintf(name, sizeof name, ":%ld", static_cast<long>(fParameterNumber));
  return name;
}

}  // namespace sqldb

std::ostream& AddValueToUpdate(std::ostream& stream, boost::shared_ptr<sqldb::SQLValueBase> value) {
  stream << " ";
  return value->Print(stream);
}
