#include "sqldb/kit/error.h"

namespace sqldb::kit {

namespace {

constexpr std::string_view kBeforeSql = ", in: ";

// What keeps the text may keep it as C does, and end it at a zero byte.
constexpr std::string_view kInsteadOfZero = "\xEF\xBF\xBD";

std::string Shown(std::string_view text) {
  std::string shown(text);
  for (std::size_t zero = shown.find('\0'); zero != std::string::npos; zero = shown.find('\0', zero)) {
    shown.replace(zero, 1, kInsteadOfZero);
  }
  return shown;
}

std::string WithSql(std::string_view message, std::string_view sql) {
  std::string text = Shown(message);
  if (!sql.empty()) text.append(kBeforeSql).append(Shown(sql));
  return text;
}

}  // namespace

Error::Error(std::string_view message, int code, std::string_view sql)
    : std::runtime_error(WithSql(message, sql)), fExtendedCode(code), fMessageSize(Shown(message).size()) {}

std::string_view Error::Sql() const noexcept {
  const std::string_view rest(what() + fMessageSize);
  return rest.empty() ? rest : rest.substr(kBeforeSql.size());
}

ConstraintError::~ConstraintError() = default;
BusyError::~BusyError() = default;
ConversionError::~ConversionError() = default;

}  // namespace sqldb::kit
