#include "sqldb/encoding.h"

#include <cstddef>

namespace {

constexpr unsigned char kEscape = 0x01;
constexpr unsigned char kQuote = 0x27;

bool MustBeEscaped(unsigned char shifted) { return shifted <= kEscape || shifted == kQuote; }

// The offset that needs the fewest escapes, the smallest one on a tie, and how many it needs.
struct Offset {
  unsigned char value;
  std::size_t escapes;
};

Offset ChooseOffset(const unsigned char* in, std::size_t size) {
  std::size_t counts[256] = {};
  for (std::size_t i = 0; i < size; ++i) ++counts[in[i]];

  Offset best{0, size};
  for (unsigned offset = 1; offset <= 255 && best.escapes != 0; ++offset) {
    if (offset == kQuote) continue;
    const std::size_t escapes = counts[offset] + counts[(offset + kEscape) % 256] + counts[(offset + kQuote) % 256];
    if (escapes < best.escapes) best = Offset{static_cast<unsigned char>(offset), escapes};
  }
  return best;
}

}  // namespace

int sqlite_encode_binary(const unsigned char* in, int n, unsigned char* out) {
  if (n <= 0) {
    if (out != nullptr) {
      out[0] = 'x';
      out[1] = 0;
    }
    return 1;
  }
  const auto size = static_cast<std::size_t>(n);
  const Offset offset = ChooseOffset(in, size);
  if (out == nullptr) return static_cast<int>(size + offset.escapes + 1);

  unsigned char* end = out;
  *end++ = offset.value;
  for (std::size_t i = 0; i < size; ++i) {
    auto shifted = static_cast<unsigned char>(in[i] - offset.value);
    if (MustBeEscaped(shifted)) {
      *end++ = kEscape;
      ++shifted;
    }
    *end++ = shifted;
  }
  *end = 0;
  return static_cast<int>(end - out);
}

int sqlite_decode_binary(const unsigned char* in, unsigned char* out) {
  const unsigned char offset = in[0];
  if (offset == 0) return 0;
  unsigned char* end = out;
  for (const unsigned char* position = in + 1; *position != 0; ++position) {
    unsigned char shifted = *position;
    if (shifted == kEscape) {
      // An escape right before the terminator takes the terminator for its byte, and is the last one.
      const unsigned char escaped = position[1];
      if (escaped != 0) ++position;
      shifted = static_cast<unsigned char>(escaped - 1);
    }
    *end++ = static_cast<unsigned char>(shifted + offset);
  }
  return static_cast<int>(end - out);
}
