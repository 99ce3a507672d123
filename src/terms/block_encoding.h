#ifndef SQLDB_SRC_TERMS_BLOCK_ENCODING_H
#define SQLDB_SRC_TERMS_BLOCK_ENCODING_H

// The encoding of include/sqldb/encoding.h, written once for every kind of block.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>  // strnlen too, by POSIX

#include "terms/byte_blocks.h"

namespace sqldb {

// ---------------------------------------------------------------------------------------------------------------------
// Choosing the offset

// How often each byte value occurs.
class ByteCounts {
 public:
  void Add(const unsigned char* bytes, std::size_t size) {
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes + i, 8);
      // Each table has its turn, since to count the same value twice running takes longer.
      ++fTables[0][word & 0xFF];
      ++fTables[1][word >> 8 & 0xFF];
      ++fTables[2][word >> 16 & 0xFF];
      ++fTables[3][word >> 24 & 0xFF];
      ++fTables[0][word >> 32 & 0xFF];
      ++fTables[1][word >> 40 & 0xFF];
      ++fTables[2][word >> 48 & 0xFF];
      ++fTables[3][word >> 56];
    }
    for (; i < size; ++i) ++fTables[0][bytes[i]];
  }

  void GetTotals(std::uint32_t (&totals)[256]) const {
    for (std::size_t value = 0; value < 256; ++value) {
      totals[value] = fTables[0][value] + fTables[1][value] + fTables[2][value] + fTables[3][value];
    }
  }

 private:
  std::uint32_t fTables[4][256] = {};
};

struct Offset {
  unsigned value;
  std::size_t escapes;
};

// The offset that needs the fewest escapes, the smallest one on a tie, and how many it needs: as often as the three
// values occur that it shifts to forbidden ones.
inline Offset BestOffset(const std::uint32_t (&totals)[256]) {
  // Once round the corner, so that the compiler takes many at once.
  std::uint32_t around[256 + kQuote];
  std::copy(totals, totals + 256, around);
  std::copy(totals, totals + kQuote, around + 256);
  std::uint32_t escapes[256];
  for (unsigned offset = 0; offset < 256; ++offset) {
    escapes[offset] = around[offset] + around[offset + kEscape] + around[offset + kQuote];
  }
  // These are no offsets.
  escapes[0] = UINT32_MAX;
  escapes[kQuote] = UINT32_MAX;
  std::uint32_t least = UINT32_MAX;
  for (const std::uint32_t number : escapes) least = std::min(least, number);
  return Offset{static_cast<unsigned>(std::find(escapes, escapes + 256, least) - escapes), least};
}

// The smallest offset from `first` on that needs no escape, or 256.
template <typename Count>
unsigned FreeOffset(const Count (&counts)[256], unsigned first) {
  unsigned offset = first;
  for (; offset < 256; ++offset) {
    if (offset == kQuote) continue;
    if ((counts[offset] | counts[(offset + kEscape) % 256] | counts[(offset + kQuote) % 256]) == 0) break;
  }
  return offset;
}

constexpr unsigned char ShiftOf(unsigned offset) { return static_cast<unsigned char>(256 - offset); }

// Whether a byte needs an escape: not 0 if one does.
template <typename Block>
std::uint64_t Forbidden(const unsigned char* in, std::size_t size, unsigned char shift) {
  typename Block::Watch watch;
  std::size_t i = 0;
  for (; i + Block::kSize <= size; i += Block::kSize) watch.See(Block::Load(in + i).Plus(shift));
  // The rest, filled up with a byte that was there.
  unsigned char last[Block::kSize];
  std::memset(last, in[0], Block::kSize);
  std::memcpy(last, in + i, size - i);
  watch.See(Block::Load(last).Plus(shift));
  return watch.Forbidden();
}

// An offset that needs no escape in [in, rest), whose values are counted in `totals`, is the smallest one of all if it
// needs none in [rest, end) either. Tries one after another, but not for longer than it takes to look at all bytes once
// more. Returns 256 if it found none; then `totals` have more values than are there.
template <typename Block>
unsigned ConfirmedOffset(const unsigned char* in, const unsigned char* rest, const unsigned char* end,
                         std::uint32_t (&totals)[256]) {
  constexpr std::size_t kStretch = 64 * Block::kSize;
  const auto size = static_cast<std::size_t>(end - in);
  unsigned offset = FreeOffset(totals, 1);
  std::size_t spent = 0;
  const unsigned char* next = rest;
  while (offset < 256 && spent < size) {
    if (next == end) return offset;
    const std::size_t stretch = std::min(kStretch, static_cast<std::size_t>(end - next));
    if (Forbidden<Block>(next, stretch, ShiftOf(offset)) == 0) {
      next += stretch;
      continue;
    }
    spent += static_cast<std::size_t>(next - in) + stretch;
    std::for_each(next, next + stretch, [&](unsigned char byte) { ++totals[byte]; });
    offset = FreeOffset(totals, offset);
    next = rest;
  }
  return 256;
}

template <typename Block>
Offset ChooseOffset(const unsigned char* in, std::size_t size) {
  // Each byte rules out three of the 254 offsets at most.
  constexpr std::size_t kFew = 84;
  if (size <= kFew) {
    unsigned char occurs[256] = {};
    for (std::size_t i = 0; i < size; ++i) occurs[in[i]] = 1;
    return Offset{FreeOffset(occurs, 1), 0};
  }

  // Text uses few values, nearly all of which occur in its beginning. Of most values together there is hardly an offset
  // that forbids none.
  constexpr std::size_t kBeginning = 1024;
  constexpr std::ptrdiff_t kMost = 224;
  const std::size_t beginning = std::min(size, kBeginning);
  ByteCounts counts;
  counts.Add(in, beginning);
  std::uint32_t totals[256];
  counts.GetTotals(totals);
  if (256 - std::count(totals, totals + 256, 0U) <= kMost) {
    const unsigned offset = ConfirmedOffset<Block>(in, in + beginning, in + size, totals);
    if (offset < 256) return Offset{offset, 0};
  }
  counts.Add(in + beginning, size - beginning);
  counts.GetTotals(totals);
  return BestOffset(totals);
}

// ---------------------------------------------------------------------------------------------------------------------
// Encoding

// Adds `shift` to each byte. `out` may be `in`, or lie before it.
template <typename Block>
void Shift(const unsigned char* in, std::size_t size, unsigned char shift, unsigned char* out) {
#pragma GCC unroll 2
  for (; size >= Block::kSize; size -= Block::kSize) {
    Block::Load(in).Plus(shift).Store(out);
    in += Block::kSize;
    out += Block::kSize;
  }
  for (; size > 0; --size) *out++ = static_cast<unsigned char>(*in++ + shift);
}

// The position of the lowest bit, 32 if there is none.
inline std::size_t LowestBit(std::uint64_t mask) {
  return static_cast<std::size_t>(__builtin_ctzll(mask | std::uint64_t{1} << 32));
}

// REQUIRES: `out` holds what all bytes become, and one byte more.
template <typename Block>
void ShiftAndEscape(const unsigned char* in, std::size_t size, unsigned char shift, unsigned char* out) {
  for (; size > 2 * Block::kSize; size -= Block::kSize) {
    const Block shifted = Block::Load(in).Plus(shift);
    shifted.Store(out);
    BlockMask forbidden = shifted.Forbidden();
    const std::size_t any = forbidden != 0;
    // For each forbidden byte, writes its escape and then what comes after it once more, always a whole block: what is
    // too much is overwritten by the next one. Done once even where no byte is forbidden, as if the first one after the
    // block were: that takes less than a branch that goes either way.
    do {
      const std::size_t first = LowestBit(forbidden);
      const unsigned char* const from = in + first;
      unsigned char* const to = out + first;
      to[0] = kEscape;
      to[1] = static_cast<unsigned char>(*from + shift + 1);
      Block::Load(from + 1).Plus(shift).Store(to + 2);
      forbidden &= forbidden - 1;
      out += any;
    } while (forbidden != 0);
    in += Block::kSize;
    out += Block::kSize;
  }
  for (; size > 0; --size) {
    auto shifted = static_cast<unsigned char>(*in++ + shift);
    if (shifted <= kEscape || shifted == kQuote) {
      *out++ = kEscape;
      ++shifted;
    }
    *out++ = shifted;
  }
}

template <typename Block>
int EncodeBinary(const unsigned char* in, int n, unsigned char* out) {
  if (n <= 0) {
    if (out != nullptr) {
      out[0] = 'x';
      out[1] = 0;
    }
    return 1;
  }
  const auto size = static_cast<std::size_t>(n);
  const Offset offset = ChooseOffset<Block>(in, size);
  const std::size_t length = 1 + size + offset.escapes;
  if (out != nullptr) {
    out[0] = static_cast<unsigned char>(offset.value);
    if (offset.escapes == 0) {
      Shift<Block>(in, size, ShiftOf(offset.value), out + 1);
    } else {
      ShiftAndEscape<Block>(in, size, ShiftOf(offset.value), out + 1);
    }
    out[length] = 0;
  }
  return static_cast<int>(length);
}

// ---------------------------------------------------------------------------------------------------------------------
// Decoding

// Decodes the `size` bytes at `in`, and the byte after them if the last one escapes it. Returns how many it decoded,
// and moves `out` behind what they became. REQUIRES: `out` holds `size` bytes and does not overlap `in`.
template <typename Block>
std::size_t DecodeStretch(const unsigned char* in, std::size_t size, unsigned char offset, unsigned char*& out) {
  const unsigned char* next = in;
  const unsigned char* const end = in + size;
  // What a block writes beyond what its bytes become, those after it overwrite: each becomes half a byte at least.
  while (static_cast<std::size_t>(end - next) > 3 * Block::kSize) {
    const Block block = Block::Load(next);
    block.Plus(offset).Store(out);
    // As in ShiftAndEscape.
    std::uint64_t escapes = block.EqualTo(kEscape);
    const std::size_t any = escapes != 0;
    std::size_t undone = 0;
    std::size_t first = 0;
    do {
      first = LowestBit(escapes);
      unsigned char* const to = out + first - undone;
      *to = static_cast<unsigned char>(next[first + 1] - 1 + offset);
      Block::Load(next + first + 2).Plus(offset).Store(to + 1);
      undone += any;
      // What is escaped is no escape, even if it looks like one.
      escapes &= ~(std::uint64_t{3} << first);
    } while (escapes != 0);
    next += Block::kSize;
    out += Block::kSize - undone;
    // The block's last byte escaped the first one of the next. To compute by how much to go on takes longer than to
    // foresee that it is this hardly ever.
    if (__builtin_expect(first == Block::kSize - 1, 0)) {
      ++next;
      ++out;
    }
  }
  while (next < end) {
    const int byte = *next++;
    *out++ = static_cast<unsigned char>((byte == kEscape ? *next++ - 1 : byte) + offset);
  }
  return static_cast<std::size_t>(next - in);
}

template <typename Block>
int DecodeBinary(const unsigned char* in, unsigned char* out) {
  const unsigned char offset = *in;
  if (offset == 0) return 0;
  ++in;

  constexpr std::size_t kStretch = 4096;
  unsigned char copy[kStretch + 1];
  unsigned char* position = out;
  while (const std::size_t size = strnlen(reinterpret_cast<const char*>(in), kStretch)) {
    const void* const escape = std::memchr(in, kEscape, size);
    const std::size_t plain =
        escape != nullptr ? static_cast<std::size_t>(static_cast<const unsigned char*>(escape) - in) : size;
    Shift<Block>(in, plain, offset, position);
    in += plain;
    position += plain;
    if (plain == size) continue;

    // `out` may be `in`, and blocks written to it would destroy what comes next.
    std::memcpy(copy, in, size - plain + 1);
    const std::size_t decoded = DecodeStretch<Block>(copy, size - plain, offset, position);
    // An escape right before the terminator took the terminator for its byte.
    if (copy[decoded - 1] == 0) break;
    in += decoded;
  }
  return static_cast<int>(position - out);
}

}  // namespace sqldb

#endif  // SQLDB_SRC_TERMS_BLOCK_ENCODING_H
