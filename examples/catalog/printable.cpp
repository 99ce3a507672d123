#include "printable.h"

#include <cstddef>
#include <cstdint>

namespace catalog {

namespace {

unsigned char ByteAt(const std::string& text, std::size_t position) {
  return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
}

// Those that turn the direction in which what follows is shown, so that a name looks like another one.
bool IsBidirectionalControl(std::uint32_t code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

// How many bytes the character at `start` has; 0 if none begins there, or one that moves the terminal's cursor or
// changes how the others are shown.
std::size_t CharacterLength(const std::string& text, std::size_t start) {
  const unsigned char first = ByteAt(text, start);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return 0;
  std::uint32_t code = first & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = ByteAt(text, start + i);
    if ((next & 0xC0) != 0x80) return 0;
    code = (code << 6) | (next & 0x3Fu);
  }
  const bool isOverlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool isControl = code < 0xA0;
  const bool isSeparator = code == 0x2028 || code == 0x2029;
  const bool isShown = !isControl && !isSeparator && !IsBidirectionalControl(code);
  return isOverlong || isSurrogate || !isShown || code > 0x10FFFF ? 0 : length;
}

std::string Escaped(unsigned char byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  switch (byte) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\r':
      return "\\r";
    default:
      return std::string("\\x") + kDigits[byte / 16] + kDigits[byte % 16];
  }
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string printable;
  std::size_t position = 0;
  while (position < text.size()) {
    const std::size_t length = CharacterLength(text, position);
    if (length == 0) {
      printable += Escaped(ByteAt(text, position++));
      continue;
    }
    if (text[position] == '\\') printable += '\\';
    printable.append(text, position, length);
    position += length;
  }
  return printable;
}

}  // namespace catalog
