#include "sqldb/kit/assignment.h"

#include <cmath>
#include <string>

namespace sqldb::kit::detail {

namespace {

[[noreturn]] void ThrowCannotHold(const char* column, const char* what) {
  ThrowUnfit(("column " + std::string(column) + " cannot hold such a " + what).c_str());
}

[[noreturn]] void ThrowCannotHoldNumber(const char* column) { ThrowCannotHold(column, "number"); }

}  // namespace

void CheckInteger(const char* column, std::int64_t value, std::int64_t least, std::int64_t most) {
  if (value < least || value > most) ThrowCannotHoldNumber(column);
}

void CheckInteger(const char* column, double value, std::int64_t least, std::int64_t most) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  const bool isInteger = value >= -kTwoTo63 && value < kTwoTo63 && value == std::trunc(value);
  if (!isInteger) ThrowCannotHoldNumber(column);
  CheckInteger(column, static_cast<std::int64_t>(value), least, most);
}

void CheckDouble(const char* column, std::int64_t value) {
  if (!IsDouble(value)) ThrowCannotHoldNumber(column);
}

void CheckFloat(const char* column, double value) {
  if (!IsFloat(value)) ThrowCannotHoldNumber(column);
}

void CheckText(const char* column, std::size_t size, std::size_t most) {
  if (size > most) ThrowCannotHold(column, "text");
}

}  // namespace sqldb::kit::detail
