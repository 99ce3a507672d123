#include "sqldb/value.h"

#include <charconv>
#include <ostream>

#include "counter.h"

namespace sqldb {

std::int32_t SQLValueBase::gLastNamedParameterSequence = 0;

SQLValueBase::SQLValueBase() = default;

SQLValueBase::~SQLValueBase() = default;

std::ostream& SQLValueBase::Print(std::ostream& stream) const { return stream; }

void SQLValueBase::BindingOpportunity(sqlite3_stmt*) const {}

void SQLValueBase::RememberParameterName() {
  // 0 means that there is no name.
  do {
    fParameterNumber = Draw(gLastNamedParameterSequence);
  } while (fParameterNumber == 0);
}

std::string SQLValueBase::GetParameterName() const {
  if (fParameterNumber == 0) return std::string();
  char name[12] = ":";  // the longest is ":-2147483648"
  const std::to_chars_result end = std::to_chars(name + 1, name + sizeof name, fParameterNumber);
  return std::string(name, end.ptr);
}

}  // namespace sqldb

std::ostream& AddValueToUpdate(std::ostream& stream, boost::shared_ptr<sqldb::SQLValueBase> value) {
  stream << " ";
  return value->Print(stream);
}
