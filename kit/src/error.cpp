#include "sqldb/kit/error.h"

#include <algorithm>

namespace sqldb::kit {

namespace {

constexpr std::string_view kBeforeSql = ", in: ";

std::string WithSql(std::string_view message, std::string_view sql) {
  std::string text(message);
  if (!sql.empty()) text.append(kBeforeSql).append(sql);
  // What keeps the text may keep it as C does.
  std::replace(text.begin(), text.end(), '\0', '?');
  return text;
}

}  // namespace

Error::Error(std::string_view message, int code, std::string_view sql)
    : std::runtime_error(WithSql(message, sql)), fExtendedCode(code), fMessageSize(message.size()) {}

std::string_view Error::Sql() const noexcept {
  const std::string_view rest(what() + fMessageSize);
  return rest.empty() ? rest : rest.substr(kBeforeSql.size());
}

ConstraintError::~ConstraintError() = default;
BusyError::~BusyError() = default;
ConversionError::~ConversionError() = default;

}  // namespace sqldb::kit
