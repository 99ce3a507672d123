#include "literals.h"

namespace catalog {

namespace {

std::string Hexadecimal(const std::string& text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    digits += kDigits[byte / 16];
    digits += kDigits[byte % 16];
  }
  return digits;
}

}  // namespace

std::string Quoted(const std::string& text) {
  if (text.find('\0') != std::string::npos) return "CAST(X'" + Hexadecimal(text) + "' AS TEXT)";
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') quoted += '\'';
    quoted += c;
  }
  return quoted + "'";
}

}  // namespace catalog
