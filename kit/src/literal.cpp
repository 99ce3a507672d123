#include "literal.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace sqldb::kit::detail {

namespace {

std::string HexDigits(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  digits.reserve(2 * bytes.size());
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0xF];
  }
  return digits;
}

// SQLite does not round every decimal to the nearest double. It does so for integers, and for up to 15 digits with up
// to four decimals: they are an integer divided by a power of ten, both exact, which is rounded once in double
// arithmetic, and in wider arithmetic so that the second rounding does no harm. The others are products or quotients of
// an integer and powers of two up to 2^62, all of which are exact.
std::string PositiveLiteral(double value) {
  if (std::isinf(value)) return "9e999";
  char buffer[64];
  const std::to_chars_result shortest = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
  if (shortest.ec == std::errc() && value < 9007199254740992.0) {
    std::string text(buffer, shortest.ptr);
    const std::size_t point = text.find('.');
    if (point == std::string::npos) return text + ".0";
    const std::size_t digits = text.size() - 1;
    if (digits <= 15 && digits - point <= 4) return text;
  }

  int exponent = 0;
  const auto mantissa = static_cast<std::int64_t>(std::ldexp(std::frexp(value, &exponent), 53));
  exponent -= 53;
  std::string literal = "(" + std::to_string(mantissa) + "*1.0";
  const char operation = exponent < 0 ? '/' : '*';
  int left = std::abs(exponent);
  for (; left >= 62; left -= 62) (literal += operation) += "4611686018427387904.0";
  (literal += operation) += std::to_string(std::int64_t{1} << left) + ".0";
  return literal + ")";
}

std::string RealLiteral(double value) {
  return std::signbit(value) ? "-" + PositiveLiteral(-value) : PositiveLiteral(value);
}

// Between quotes, with quotes inside doubled. SQLite ends a text at a zero byte, so those go by way of a blob. A
// CAST has an affinity, which a literal has not, and loses it by the plus.
std::string TextLiteral(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return "+CAST(x'" + HexDigits(text) + "' AS TEXT)";
  std::string literal = "'";
  for (const char character : text) {
    if (character == '\'') literal += '\'';
    literal += character;
  }
  return literal + "'";
}

std::string BlobLiteral(std::string_view bytes) { return "x'" + HexDigits(bytes) + "'"; }

}  // namespace

void LiteralWriter::TakeNull() { fSql += "NULL"; }

void LiteralWriter::TakeInteger(std::int64_t value) { fSql += std::to_string(value); }

void LiteralWriter::TakeReal(double value) { fSql += RealLiteral(value); }

void LiteralWriter::TakeText(std::string_view text) { fSql += TextLiteral(text); }

void LiteralWriter::TakeBlob(std::string_view bytes) { fSql += BlobLiteral(bytes); }

}  // namespace sqldb::kit::detail
