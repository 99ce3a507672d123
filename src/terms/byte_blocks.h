#ifndef SQLDB_SRC_TERMS_BYTE_BLOCKS_H
#define SQLDB_SRC_TERMS_BYTE_BLOCKS_H

// Thirty-two bytes at a time, with what the encoding does to them. PortableBlock suits every processor. Sse2Block and
// NeonBlock do the same by instructions that every processor compiled for has, so that nothing is decided at run time.
// NativeBlock is the fastest of them.
//
// All have the same functions:
//   kSize          32
//   Load(bytes)    the kSize bytes at any address
//   Store(bytes)   to any address
//   Plus(shift)    each byte plus `shift`, modulo 256
//   EqualTo(value) which bytes are `value`
//   Forbidden()    which bytes are forbidden in encoded text: the zero byte, the escape and the quote
//   Watch          sees many blocks; its Forbidden() is not 0 if one of them had a forbidden byte

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__) && !defined(__AARCH64EB__)
#include <arm_neon.h>
#endif

namespace sqldb {

constexpr unsigned char kEscape = 0x01;
constexpr unsigned char kQuote = 0x27;

// Bit i tells of byte i, in the order of memory.
using BlockMask = std::uint32_t;

// In words of eight bytes, between which no carry passes.
class PortableBlock {
 public:
  static constexpr std::size_t kSize = 32;

  static PortableBlock Load(const unsigned char* bytes) {
    PortableBlock block;
    std::memcpy(block.fWords, bytes, kSize);
    return block;
  }

  void Store(unsigned char* bytes) const { std::memcpy(bytes, fWords, kSize); }

  PortableBlock Plus(unsigned char shift) const {
    const std::uint64_t shifts = shift * kOnes;
    PortableBlock sum;
    sum.fWords[0] = Sum(fWords[0], shifts);
    sum.fWords[1] = Sum(fWords[1], shifts);
    sum.fWords[2] = Sum(fWords[2], shifts);
    sum.fWords[3] = Sum(fWords[3], shifts);
    return sum;
  }

  BlockMask EqualTo(unsigned char value) const {
    const std::uint64_t values = value * kOnes;
    return ~Mask(NonZero(fWords[0] ^ values), NonZero(fWords[1] ^ values), NonZero(fWords[2] ^ values),
                 NonZero(fWords[3] ^ values));
  }

  BlockMask Forbidden() const {
    return ~Mask(Allowed(fWords[0]), Allowed(fWords[1]), Allowed(fWords[2]), Allowed(fWords[3]));
  }

  class Watch {
   public:
    void See(const PortableBlock& block) {
      fAllowed &=
          Allowed(block.fWords[0]) & Allowed(block.fWords[1]) & Allowed(block.fWords[2]) & Allowed(block.fWords[3]);
    }
    std::uint64_t Forbidden() const { return ~fAllowed & kHigh; }

   private:
    std::uint64_t fAllowed = kHigh;
  };

 private:
  static constexpr std::uint64_t kOnes = 0x0101010101010101;
  static constexpr std::uint64_t kLow = 0x7F * kOnes;
  static constexpr std::uint64_t kHigh = 0x80 * kOnes;
  // Multiplying the lowest bit of each byte by this gathers them in the highest byte, the first in memory lowest.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  static constexpr std::uint64_t kGather = 0x8040201008040201;
#else
  static constexpr std::uint64_t kGather = 0x0102040810204080;
#endif

  static std::uint64_t Sum(std::uint64_t a, std::uint64_t b) { return ((a & kLow) + (b & kLow)) ^ ((a ^ b) & kHigh); }

  // The highest bit of each byte that is not zero. The lower ones say nothing, as in what follows.
  static std::uint64_t NonZero(std::uint64_t word) { return ((word & kLow) + kLow) | word; }

  // Neither 0 nor the escape, which differ in the lowest bit only, nor the quote.
  static std::uint64_t Allowed(std::uint64_t word) {
    return NonZero(word & ~(kEscape * kOnes)) & NonZero(word ^ (kQuote * kOnes));
  }

  static BlockMask Gathered(std::uint64_t word) {
    return static_cast<BlockMask>((((word & kHigh) >> 7) * kGather) >> 56);
  }

  static BlockMask Mask(std::uint64_t first, std::uint64_t second, std::uint64_t third, std::uint64_t fourth) {
    return Gathered(first) | Gathered(second) << 8 | Gathered(third) << 16 | Gathered(fourth) << 24;
  }

  std::uint64_t fWords[4];
};

#if defined(__SSE2__)

class Sse2Block {
 public:
  static constexpr std::size_t kSize = 32;

  static Sse2Block Load(const unsigned char* bytes) {
    const auto* const halves = reinterpret_cast<const __m128i*>(bytes);
    return Sse2Block(_mm_loadu_si128(halves), _mm_loadu_si128(halves + 1));
  }

  void Store(unsigned char* bytes) const {
    auto* const halves = reinterpret_cast<__m128i*>(bytes);
    _mm_storeu_si128(halves, fFirst);
    _mm_storeu_si128(halves + 1, fSecond);
  }

  Sse2Block Plus(unsigned char shift) const {
    const __m128i shifts = Repeated(shift);
    return Sse2Block(_mm_add_epi8(fFirst, shifts), _mm_add_epi8(fSecond, shifts));
  }

  BlockMask EqualTo(unsigned char value) const {
    const __m128i values = Repeated(value);
    return Mask(_mm_cmpeq_epi8(fFirst, values), _mm_cmpeq_epi8(fSecond, values));
  }

  BlockMask Forbidden() const { return Mask(Forbidden(fFirst), Forbidden(fSecond)); }

  class Watch {
   public:
    void See(const Sse2Block& block) {
      fLeast = Least(fLeast, block.fFirst, block.fSecond);
      const __m128i quotes = Repeated(kQuote);
      fLeastFromQuote =
          Least(fLeastFromQuote, _mm_xor_si128(block.fFirst, quotes), _mm_xor_si128(block.fSecond, quotes));
    }
    std::uint64_t Forbidden() const {
      const __m128i atMostEscape = _mm_cmpeq_epi8(_mm_min_epu8(fLeast, Repeated(kEscape)), fLeast);
      return Mask(atMostEscape, _mm_cmpeq_epi8(fLeastFromQuote, Repeated(0)));
    }

   private:
    static __m128i Least(__m128i a, __m128i b, __m128i c) { return _mm_min_epu8(a, _mm_min_epu8(b, c)); }

    // Of the bytes seen at each place.
    __m128i fLeast = Repeated(0xFF);
    __m128i fLeastFromQuote = Repeated(0xFF);
  };

 private:
  Sse2Block(__m128i first, __m128i second) : fFirst(first), fSecond(second) {}

  static __m128i Repeated(unsigned char value) { return _mm_set1_epi8(static_cast<char>(value)); }

  static __m128i Forbidden(__m128i bytes) {
    const __m128i atMostEscape = _mm_cmpeq_epi8(_mm_min_epu8(bytes, Repeated(kEscape)), bytes);
    return _mm_or_si128(atMostEscape, _mm_cmpeq_epi8(bytes, Repeated(kQuote)));
  }

  static BlockMask Mask(__m128i first, __m128i second) {
    return static_cast<BlockMask>(_mm_movemask_epi8(first)) | static_cast<BlockMask>(_mm_movemask_epi8(second)) << 16;
  }

  __m128i fFirst;
  __m128i fSecond;
};

using NativeBlock = Sse2Block;

#elif defined(__aarch64__) && !defined(__AARCH64EB__)

class NeonBlock {
 public:
  static constexpr std::size_t kSize = 32;

  static NeonBlock Load(const unsigned char* bytes) { return NeonBlock(vld1q_u8(bytes), vld1q_u8(bytes + 16)); }

  void Store(unsigned char* bytes) const {
    vst1q_u8(bytes, fFirst);
    vst1q_u8(bytes + 16, fSecond);
  }

  NeonBlock Plus(unsigned char shift) const {
    const uint8x16_t shifts = vdupq_n_u8(shift);
    return NeonBlock(vaddq_u8(fFirst, shifts), vaddq_u8(fSecond, shifts));
  }

  BlockMask EqualTo(unsigned char value) const {
    const uint8x16_t values = vdupq_n_u8(value);
    return Mask(vceqq_u8(fFirst, values), vceqq_u8(fSecond, values));
  }

  BlockMask Forbidden() const { return Mask(Forbidden(fFirst), Forbidden(fSecond)); }

  class Watch {
   public:
    void See(const NeonBlock& block) {
      fLeast = Least(fLeast, block.fFirst, block.fSecond);
      const uint8x16_t quotes = vdupq_n_u8(kQuote);
      fLeastFromQuote = Least(fLeastFromQuote, veorq_u8(block.fFirst, quotes), veorq_u8(block.fSecond, quotes));
    }
    std::uint64_t Forbidden() const {
      return vmaxvq_u8(vorrq_u8(vcleq_u8(fLeast, vdupq_n_u8(kEscape)), vceqzq_u8(fLeastFromQuote)));
    }

   private:
    static uint8x16_t Least(uint8x16_t a, uint8x16_t b, uint8x16_t c) { return vminq_u8(a, vminq_u8(b, c)); }

    // Of the bytes seen at each place.
    uint8x16_t fLeast = vdupq_n_u8(0xFF);
    uint8x16_t fLeastFromQuote = vdupq_n_u8(0xFF);
  };

 private:
  NeonBlock(uint8x16_t first, uint8x16_t second) : fFirst(first), fSecond(second) {}

  static uint8x16_t Forbidden(uint8x16_t bytes) {
    return vorrq_u8(vcleq_u8(bytes, vdupq_n_u8(kEscape)), vceqq_u8(bytes, vdupq_n_u8(kQuote)));
  }

  // Leaves each byte the bit that it has among eight, and adds neighbours until eight share one byte.
  static BlockMask Mask(uint8x16_t first, uint8x16_t second) {
    const uint8x16_t bits = vreinterpretq_u8_u64(vdupq_n_u64(0x8040201008040201));
    uint8x16_t sums = vpaddq_u8(vandq_u8(first, bits), vandq_u8(second, bits));
    sums = vpaddq_u8(sums, sums);
    sums = vpaddq_u8(sums, sums);
    return vgetq_lane_u32(vreinterpretq_u32_u8(sums), 0);
  }

  uint8x16_t fFirst;
  uint8x16_t fSecond;
};

using NativeBlock = NeonBlock;

#else

using NativeBlock = PortableBlock;

#endif

}  // namespace sqldb

#endif  // SQLDB_SRC_TERMS_BYTE_BLOCKS_H
