#include "sqldb/encoding.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>  // strnlen too, by POSIX

namespace {

constexpr unsigned char kEscape = 0x01;
constexpr unsigned char kQuote = 0x27;

// How much is handled at a time, so that it stays in the fastest cache.
constexpr std::size_t kStretch = 4096;

// 1 or 0, without a branch, so that the compiler can look at many bytes at once.
constexpr unsigned char MustBeEscaped(unsigned char shifted) {
  return static_cast<unsigned char>(static_cast<unsigned char>(shifted <= kEscape) |
                                    static_cast<unsigned char>(shifted == kQuote));
}

// Adds `shift` to each byte. `out` does not overlap `in`.
void Shift(const unsigned char* in, std::size_t size, unsigned char shift, unsigned char* out) {
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<unsigned char>(in[i] + shift);
}

unsigned char* Put(const unsigned char* begin, const unsigned char* end, unsigned char* out) {
  std::memcpy(out, begin, static_cast<std::size_t>(end - begin));
  return out + (end - begin);
}

// The first byte `value` in [begin, end), or `end`.
const unsigned char* Find(const unsigned char* begin, const unsigned char* end, unsigned char value) {
  const void* const found = std::memchr(begin, value, static_cast<std::size_t>(end - begin));
  return found != nullptr ? static_cast<const unsigned char*>(found) : end;
}

// ---------------------------------------------------------------------------------------------------------------------
// Encoding

// How many escapes an offset needs for one byte value or one table of counts: that of the three values that it shifts
// to a forbidden one.
template <typename Count>
Count EscapesOf(const Count (&counts)[256], unsigned offset) {
  return static_cast<Count>(counts[offset] + counts[(offset + kEscape) % 256] + counts[(offset + kQuote) % 256]);
}

// The offset that needs the fewest escapes, the smallest one on a tie, and how many it needs.
struct Offset {
  unsigned char value;
  std::size_t escapes;
};

template <typename Count>
Offset BestOffset(const Count (&counts)[256], std::size_t size) {
  Offset best{0, size};
  for (unsigned offset = 1; offset <= 255 && best.escapes != 0; ++offset) {
    if (offset == kQuote) continue;
    const std::size_t escapes = EscapesOf(counts, offset);
    if (escapes < best.escapes) best = Offset{static_cast<unsigned char>(offset), escapes};
  }
  return best;
}

bool NeedsNoEscape(const unsigned char* in, std::size_t size, unsigned char offset) {
  while (size > 0) {
    const std::size_t stretch = std::min(size, kStretch);
    unsigned char anyForbidden = 0;
    for (std::size_t i = 0; i < stretch; ++i) {
      anyForbidden |= MustBeEscaped(static_cast<unsigned char>(in[i] - offset));
    }
    if (anyForbidden != 0) return false;
    in += stretch;
    size -= stretch;
  }
  return true;
}

Offset ChooseOffset(const unsigned char* in, std::size_t size) {
  // Text uses few byte values, nearly all of which occur in its beginning. An offset that needs no escape there and,
  // as is quickly seen, none in the rest is the smallest such one.
  unsigned char occurs[256] = {};
  const std::size_t beginning = std::min(size, kStretch);
  for (std::size_t i = 0; i < beginning; ++i) occurs[in[i]] = 1;
  const Offset guess = BestOffset(occurs, size);
  if (guess.escapes == 0 && NeedsNoEscape(in + beginning, size - beginning, guess.value)) return guess;

  // Several tables, since to count the same value twice running takes longer.
  constexpr std::size_t kTables = 4;
  std::uint32_t tables[kTables][256] = {};
  std::size_t i = 0;
  for (; i + kTables <= size; i += kTables) {
    for (std::size_t table = 0; table < kTables; ++table) ++tables[table][in[i + table]];
  }
  for (; i < size; ++i) ++tables[0][in[i]];
  std::size_t counts[256];
  for (std::size_t value = 0; value < 256; ++value) {
    counts[value] = std::size_t{tables[0][value]} + tables[1][value] + tables[2][value] + tables[3][value];
  }
  return BestOffset(counts, size);
}

unsigned char* ShiftAndEscape(const unsigned char* in, std::size_t size, unsigned char offset, unsigned char* out) {
  unsigned char shifted[kStretch];
  unsigned char forbidden[kStretch];
  while (size > 0) {
    const std::size_t stretch = std::min(size, kStretch);
    for (std::size_t i = 0; i < stretch; ++i) {
      shifted[i] = static_cast<unsigned char>(in[i] - offset);
      forbidden[i] = MustBeEscaped(shifted[i]);
    }
    std::size_t begin = 0;
    while (true) {
      const auto end = static_cast<std::size_t>(Find(forbidden + begin, forbidden + stretch, 1) - forbidden);
      out = Put(shifted + begin, shifted + end, out);
      if (end == stretch) break;
      *out++ = kEscape;
      *out++ = static_cast<unsigned char>(shifted[end] + 1);
      begin = end + 1;
    }
    in += stretch;
    size -= stretch;
  }
  return out;
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
  const std::size_t length = 1 + size + offset.escapes;
  if (out != nullptr) {
    out[0] = offset.value;
    if (offset.escapes == 0) {
      Shift(in, size, static_cast<unsigned char>(-offset.value), out + 1);
    } else {
      ShiftAndEscape(in, size, offset.value, out + 1);
    }
    out[length] = 0;
  }
  return static_cast<int>(length);
}

// ---------------------------------------------------------------------------------------------------------------------
// Decoding

int sqlite_decode_binary(const unsigned char* in, unsigned char* out) {
  const unsigned char offset = in[0];
  if (offset == 0) return 0;
  unsigned char shifted[kStretch];
  unsigned char* end = out;
  const unsigned char* position = in + 1;
  // A stretch ends where the terminator is, and is empty at the terminator.
  while (const std::size_t stretch = strnlen(reinterpret_cast<const char*>(position), kStretch)) {
    // The whole of it first: `out` may be `in`, and then what was read is overwritten.
    Shift(position, stretch, offset, shifted);
    const unsigned char* const begin = position;
    const unsigned char* const limit = begin + stretch;
    while (position < limit) {
      const unsigned char* const escape = Find(position, limit, kEscape);
      end = Put(shifted + (position - begin), shifted + (escape - begin), end);
      position = escape;
      if (escape == limit) break;

      // An escape right before the terminator takes the terminator for its byte, and is the last one.
      const unsigned char escaped = escape[1];
      *end++ = static_cast<unsigned char>(escaped - 1 + offset);
      if (escaped == 0) return static_cast<int>(end - out);
      position = escape + 2;
    }
  }
  return static_cast<int>(end - out);
}
