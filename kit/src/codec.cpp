#include "sqldb/kit/codec.h"

#include <algorithm>
#include <cmath>
#include <new>

#include <sqlite3.h>

#include "binding.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

// By which 2^63 is compared exactly.
constexpr double kTwoTo63 = 9223372036854775808.0;

sqlite3_value* ValueOf(const Source& source) { return static_cast<sqlite3_value*>(source.value); }

const char* NameOfClass(int type) {
  switch (type) {
    case SQLITE_INTEGER:
      return "an integer";
    case SQLITE_FLOAT:
      return "a real number";
    case SQLITE_TEXT:
      return "a text";
    case SQLITE_BLOB:
      return "a blob";
    default:
      return "NULL";
  }
}

[[noreturn]] void ThrowOtherClass(const Source& source, const char* wanted) {
  const std::string why =
      std::string(NameOfClass(sqlite3_value_type(ValueOf(source)))) + ", which cannot be read as " + wanted;
  ThrowUnfit(source, why.c_str());
}

void Check(const Target& target, int result) { CheckBound(target.statement, result); }

// Without bytes there may be no pointer either, which would bind NULL.
const char* BeginOf(std::string_view bytes) { return bytes.data() != nullptr ? bytes.data() : ""; }

sqlite3_destructor_type Lifetime(const Target& target) { return target.isLasting ? SQLITE_STATIC : SQLITE_TRANSIENT; }

}  // namespace

void ThrowNotBound(sqlite3_stmt* statement, int result) {
  if (result == SQLITE_NOMEM) throw std::bad_alloc();
  throw Error(sqlite3_errstr(result), result, sqlite3_sql(statement));
}

void ThrowUnfit(const char* why) { throw ConversionError(why, SQLITE_MISMATCH); }

void ThrowUnfit(const Source& source, const char* why) {
  if (source.statement == nullptr) {
    throw ConversionError("argument " + std::to_string(source.column + 1) + " has " + why, SQLITE_MISMATCH);
  }
  std::string message = "column ";
  if (const char* const name = sqlite3_column_name(source.statement, source.column)) message += name;
  message.append(" has ").append(why);
  throw ConversionError(message, SQLITE_MISMATCH, sqlite3_sql(source.statement));
}

Source ColumnOf(sqlite3_stmt* statement, int column) noexcept {
  return Source{sqlite3_column_value(statement, column), statement, column};
}

bool IsNull(const Source& source) noexcept { return sqlite3_value_type(ValueOf(source)) == SQLITE_NULL; }

std::int64_t ReadInteger(const Source& source) {
  const int type = sqlite3_value_type(ValueOf(source));
  if (type == SQLITE_INTEGER) return sqlite3_value_int64(ValueOf(source));
  if (type != SQLITE_FLOAT) ThrowOtherClass(source, "an integer");
  const double real = sqlite3_value_double(ValueOf(source));
  if (!(real >= -kTwoTo63 && real < kTwoTo63) || real != std::trunc(real)) {
    ThrowUnfit(source, "a real number that is no integer of 64 bits");
  }
  return static_cast<std::int64_t>(real);
}

double ReadReal(const Source& source) {
  const int type = sqlite3_value_type(ValueOf(source));
  if (type == SQLITE_FLOAT) return sqlite3_value_double(ValueOf(source));
  if (type != SQLITE_INTEGER) ThrowOtherClass(source, "a real number");
  const std::int64_t integer = sqlite3_value_int64(ValueOf(source));
  if (!IsDouble(integer)) ThrowUnfit(source, "an integer that no double holds exactly");
  return static_cast<double>(integer);
}

// As integers: some processors compute with more digits than a double has.
bool IsDouble(std::int64_t value) noexcept {
  constexpr std::uint64_t kTwoTo53 = 9007199254740992;
  auto odd = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  while (odd > kTwoTo53 && odd % 2 == 0) odd /= 2;
  return odd <= kTwoTo53;
}

// What is beyond the largest float becomes infinity, which is another value.
static_assert(std::numeric_limits<float>::is_iec559);

bool IsFloat(double value) noexcept { return static_cast<double>(static_cast<float>(value)) == value; }

float ReadFloat(const Source& source) {
  const double real = ReadReal(source);
  if (!IsFloat(real)) ThrowUnfit(source, "a real number that no float holds exactly");
  return static_cast<float>(real);
}

std::string_view ReadText(const Source& source) {
  if (sqlite3_value_type(ValueOf(source)) != SQLITE_TEXT) ThrowOtherClass(source, "a text");
  const unsigned char* const text = sqlite3_value_text(ValueOf(source));
  if (text == nullptr) throw std::bad_alloc();
  const int size = sqlite3_value_bytes(ValueOf(source));
  return std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
}

std::string_view ReadBlob(const Source& source) {
  if (sqlite3_value_type(ValueOf(source)) != SQLITE_BLOB) ThrowOtherClass(source, "a blob");
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(ValueOf(source)));
  const void* const bytes = sqlite3_value_blob(ValueOf(source));
  if (bytes == nullptr && size != 0) throw std::bad_alloc();
  return std::string_view(static_cast<const char*>(bytes), size);
}

void BindNull(const Target& target) {
  if (target.statement == nullptr) return target.sink->TakeNull();
  Check(target, sqlite3_bind_null(target.statement, target.parameter));
}

void BindInteger(const Target& target, std::int64_t value) {
  if (target.statement == nullptr) return target.sink->TakeInteger(value);
  Check(target, sqlite3_bind_int64(target.statement, target.parameter, value));
}

void BindReal(const Target& target, double value) {
  if (std::isnan(value)) ThrowUnfit("NaN cannot be stored.");
  if (target.statement == nullptr) return target.sink->TakeReal(value);
  Check(target, sqlite3_bind_double(target.statement, target.parameter, value));
}

void BindText(const Target& target, std::string_view text) {
  if (target.statement == nullptr) return target.sink->TakeText(text);
  Check(target, sqlite3_bind_text64(target.statement, target.parameter, BeginOf(text), text.size(), Lifetime(target),
                                    SQLITE_UTF8));
}

void BindBlob(const Target& target, std::string_view bytes) {
  if (target.statement == nullptr) return target.sink->TakeBlob(bytes);
  Check(target,
        sqlite3_bind_blob64(target.statement, target.parameter, BeginOf(bytes), bytes.size(), Lifetime(target)));
}

std::string_view UpToZero(const char* characters, std::size_t size) noexcept {
  const char* const end = std::find(characters, characters + size, '\0');
  return std::string_view(characters, static_cast<std::size_t>(end - characters));
}

void FillWithText(const Source& source, char* characters, std::size_t size) {
  const std::string_view text = ReadText(source);
  if (text.size() > size) ThrowUnfit(source, "a text that is longer than the characters that it is read into");
  if (text.find('\0') != std::string_view::npos) {
    ThrowUnfit(source, "a text with a zero byte, at which the characters that it is read into would end");
  }
  // An array of none may have no address, which GCC warns of.
  if (size == 0) return;
  std::fill(std::copy(text.begin(), text.end(), characters), characters + size, '\0');
}

}  // namespace sqldb::kit::detail
