#include "sqldb/encoding.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/naive_encoding.h"
#include "terms/byte_blocks.h"

namespace {

using support::Byte;
using support::Bytes;
using support::Coder;
using support::ComplaintAbout;
using support::ComplaintAboutDecoding;
using support::Decode;
using support::DecodeInPlace;
using support::EscapesByOffset;
using support::ExactBlock;
using support::kCoders;
using support::kUntouched;
using support::Minus;
using support::NeedsEscape;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

int EncodedLength(const Bytes& input) {
  const ExactBlock in(input);
  return sqlite_encode_binary(in.Get(), static_cast<int>(input.size()), nullptr);
}

// With the terminating zero; written into a block that holds just that.
Bytes Encode(const Bytes& input) {
  const ExactBlock in(input);
  const int n = static_cast<int>(input.size());
  const ExactBlock out(static_cast<std::size_t>(sqlite_encode_binary(in.Get(), n, nullptr)) + 1);
  sqlite_encode_binary(in.Get(), n, out.Get());
  return out.All();
}

#define EXPECT_ENCODES(input) EXPECT_EQ(ComplaintAbout(input), "") << ::testing::PrintToString(input)
#define EXPECT_DECODES(text) EXPECT_EQ(ComplaintAboutDecoding(text), "") << ::testing::PrintToString(text)

template <typename NextByte>
Bytes Generate(std::size_t length, NextByte nextByte) {
  Bytes bytes(length);
  std::generate(bytes.begin(), bytes.end(), nextByte);
  return bytes;
}

// A fixed seed: the same bytes in every run.
class RandomBytes {
 public:
  explicit RandomBytes(unsigned seed) : fEngine(seed) {}
  // Of the values below `values`.
  Byte operator()(unsigned values) { return static_cast<Byte>(fEngine() % values); }

 private:
  std::mt19937 fEngine;
};

Bytes EveryValueOnce() {
  Bytes bytes(256);
  std::iota(bytes.begin(), bytes.end(), Byte{0});
  return bytes;
}

constexpr std::size_t kLongest = 600;

TEST(EncodingTest, UniformlyRandomBytesOfEveryLength) {
  RandomBytes random(1);
  for (std::size_t length = 0; length <= kLongest; ++length) {
    EXPECT_ENCODES(Generate(length, [&] { return random(256); }));
  }
}

TEST(EncodingTest, FewDifferentBytesOfEveryLength) {
  RandomBytes random(2);
  for (std::size_t length = 0; length <= kLongest; ++length) {
    const Byte first = random(256);
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>(first + random(48)); }));
  }
}

TEST(EncodingTest, SkewedBytesOfEveryLength) {
  RandomBytes random(3);
  for (std::size_t length = 0; length <= kLongest; ++length) {
    // The product of two draws crowds near zero, but no value is impossible.
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>(random(256) * random(256) / 255); }));
  }
}

TEST(EncodingTest, EqualBytesOfEveryValueAndEveryLength) {
  for (std::size_t length = 1; length <= kLongest; ++length) {
    // Each length sees every 31st value, each value every 31st length.
    for (std::size_t value = length % 31; value < 256; value += 31)
      EXPECT_ENCODES(Bytes(length, static_cast<Byte>(value)));
  }
}

TEST(EncodingTest, AllValuesOccurringAtEveryLength) {
  RandomBytes random(4);
  for (std::size_t extra = 0; extra <= kLongest - 256; ++extra) {
    Bytes bytes = EveryValueOnce();
    const Bytes more = Generate(extra, [&] { return random(256); });
    bytes.insert(bytes.end(), more.begin(), more.end());
    std::shuffle(bytes.begin(), bytes.end(), std::mt19937(static_cast<unsigned>(extra)));
    EXPECT_ENCODES(bytes);
  }
}

TEST(EncodingTest, EverySingleByte) {
  for (unsigned byte = 0; byte < 256; ++byte) EXPECT_ENCODES(Bytes{static_cast<Byte>(byte)});
}

TEST(EncodingTest, PairsOfBytes) {
  for (unsigned first = 0; first < 256; ++first) {
    // Each value sees every fifth one; the exhaustive test sees all.
    for (unsigned second = first % 5; second < 256; second += 5) {
      EXPECT_ENCODES((Bytes{static_cast<Byte>(first), static_cast<Byte>(second)}));
    }
  }
}

TEST(EncodingTest, AMillionBytes) {
  RandomBytes random(5);
  EXPECT_ENCODES(Generate(1000000, [&] { return random(256); }));
}

// How many bytes the coder looks at before it guesses an offset, at how many at a time to confirm it, and how many it
// decodes at a time. What it does must not depend on them.
constexpr std::size_t kBeginning = 1024;
constexpr std::size_t kLook = 2048;
constexpr std::size_t kStretch = 4096;

TEST(EncodingTest, LongInputsOfFewValues) {
  RandomBytes random(6);
  for (const std::size_t length : {kBeginning - 1, kBeginning, kBeginning + 1, kBeginning + 31, kBeginning + 32,
                                   kStretch - 1, kStretch, kStretch + 1, 2 * kStretch, 3 * kStretch + 5}) {
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>('a' + random(26)); }));
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>(0xF0 + random(16)); }));
    EXPECT_ENCODES(Generate(length, [&] { return random(250); }));
  }
}

// The letters alone take offset 1. One byte more spoils it for another one, and many different ones spoil all.
TEST(EncodingTest, WhatTheBeginningSuggestsIsTakenBackWhereverTheRestForbidsIt) {
  constexpr std::size_t kLength = 4200;
  std::vector<std::size_t> positions(34);
  std::iota(positions.begin(), positions.end(), kBeginning - 1);
  for (std::size_t position = kBeginning + 100; position < kLength; position += 97) positions.push_back(position);
  for (std::size_t position = kBeginning + kLook - 2; position <= kBeginning + kLook + 2; ++position) {
    positions.push_back(position);
  }
  for (std::size_t fromEnd = 1; fromEnd <= 34; ++fromEnd) positions.push_back(kLength - fromEnd);
  for (const std::size_t position : positions) {
    for (const Byte spoiler : {Byte{0x01}, Byte{0x02}, Byte{0x28}}) {
      Bytes input(kLength, 'a');
      input[position] = spoiler;
      EXPECT_ENCODES(input);
    }
  }
  Bytes input(kLength, 'a');
  const Bytes all = EveryValueOnce();
  std::copy(all.begin(), all.end(), input.end() - 256);
  EXPECT_ENCODES(input);
}

TEST(EncodingTest, OneGuessAfterAnotherIsTakenBack) {
  // Each block spoils the offset that the ones before it leave, until there are too many to go on guessing, or no
  // offset is left.
  for (const std::size_t distance : {32U, 33U, 100U, 1000U}) {
    for (const std::size_t spoilers : {1U, 2U, 3U, 30U, 256U}) {
      Bytes input(kBeginning + distance * spoilers, 'a');
      for (std::size_t i = 0; i < spoilers; ++i) input[kBeginning + distance * i] = static_cast<Byte>(1 + i);
      EXPECT_ENCODES(input);
    }
  }
}

TEST(EncodingTest, NoGuessIsMadeWhereTheBeginningLeavesNoOffset) {
  // Every value, or every second one: each offset forbids one of two neighbours.
  for (const std::size_t step : {1U, 2U}) {
    Bytes input(3 * kBeginning, 'a');
    for (std::size_t i = 0; i < kBeginning; ++i) input[i] = static_cast<Byte>(step * i);
    EXPECT_ENCODES(input);
  }
}

// All values except the three that `offset` turns into forbidden ones.
Bytes ValuesAllowedBy(int offset) {
  Bytes bytes;
  for (int byte = 0; byte < 256; ++byte) {
    if (!NeedsEscape(Minus(byte, offset))) bytes.push_back(static_cast<Byte>(byte));
  }
  return bytes;
}

// What `offset` turns into bytes that need an escape where `forbidden` says so, followed by what makes it the best one.
Bytes WithEscapes(const std::vector<int>& forbidden, int offset) {
  Bytes bytes(forbidden.size());
  std::transform(forbidden.begin(), forbidden.end(), bytes.begin(), [&](int shifted) {
    // Any value but a forbidden one stands for no escape.
    return static_cast<Byte>((NeedsEscape(shifted) ? shifted : 0x80) + offset);
  });
  const Bytes allowed = ValuesAllowedBy(offset);
  const auto escapes = std::count_if(forbidden.begin(), forbidden.end(), NeedsEscape);
  for (std::ptrdiff_t i = 0; i <= escapes; ++i) bytes.insert(bytes.end(), allowed.begin(), allowed.end());
  return bytes;
}

constexpr int kNoEscape = 0x80;

TEST(EncodingTest, EscapesAreWrittenWhereverTheyAreDue) {
  constexpr std::size_t kLength = 67;
  for (std::size_t position = 0; position < kLength; ++position) {
    for (const int first : support::kForbidden) {
      std::vector<int> forbidden(kLength, kNoEscape);
      forbidden[position] = first;
      EXPECT_ENCODES(WithEscapes(forbidden, 0x43));
      // A second one, next to it, in the same block of bytes or in the next one.
      for (const std::size_t distance : {1U, 2U, 31U, 32U}) {
        std::vector<int> two = forbidden;
        two[(position + distance) % kLength] = 0x27 - first;
        EXPECT_ENCODES(WithEscapes(two, 0x43));
      }
    }
  }
}

TEST(EncodingTest, EscapesAtTheEndAreWritten) {
  // What makes the offset the best one comes first.
  for (std::size_t length = 1; length <= 70; length += 3) {
    for (std::size_t position = 0; position < length; ++position) {
      std::vector<int> forbidden(length, kNoEscape);
      forbidden[position] = 0x01;
      Bytes input = WithEscapes(forbidden, 0x99);
      std::rotate(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(length), input.end());
      EXPECT_ENCODES(input);
    }
  }
}

TEST(EncodingTest, EscapesLieAsCloseAsTheyMay) {
  RandomBytes random(7);
  for (unsigned density = 1; density <= 8; ++density) {
    for (std::size_t length = 60; length <= 140; length += 20) {
      std::vector<int> forbidden(length);
      for (int& shifted : forbidden) shifted = random(8) < density ? support::kForbidden[random(3)] : kNoEscape;
      EXPECT_ENCODES(WithEscapes(forbidden, 0xFE));
    }
  }
}

TEST(EncodingTest, AnEmptyInputBecomesTheLetterX) {
  const ExactBlock out(2);
  EXPECT_EQ(sqlite_encode_binary(ExactBlock(0).Get(), 0, out.Get()), 1);
  EXPECT_THAT(out.All(), ElementsAre('x', 0x00));
}

TEST(EncodingTest, ANegativeCountStandsForAnEmptyInput) {
  for (const int n : {-1, -2, -256, INT_MIN}) {
    const ExactBlock out(2);
    EXPECT_EQ(sqlite_encode_binary(nullptr, n, out.Get()), 1) << n;
    EXPECT_THAT(out.All(), ElementsAre('x', 0x00)) << n;
  }
}

TEST(EncodingTest, TheLengthOfAnEmptyInputIsOneWithoutABufferToo) {
  EXPECT_EQ(sqlite_encode_binary(nullptr, 0, nullptr), 1);
  EXPECT_EQ(sqlite_encode_binary(nullptr, -1, nullptr), 1);
}

TEST(EncodingTest, AZeroByteTakesOffsetOneAndNoEscape) {
  EXPECT_THAT(Encode({0x00}), ElementsAre(0x01, 0xFF, 0x00));
  EXPECT_EQ(EncodedLength({0x00}), 2);
}

TEST(EncodingTest, TheOffsetIsTheSmallestOneWithoutEscapes) {
  // 1 to 4 each turn their own value into a zero byte.
  EXPECT_THAT(Encode({1, 2, 3, 4}), ElementsAre(5, 0xFC, 0xFD, 0xFE, 0xFF, 0x00));
  // 1 turns 2 into an escape byte.
  EXPECT_THAT(Encode({2}), ElementsAre(3, 0xFF, 0x00));
  // 1 turns 0x28 into a quote.
  EXPECT_THAT(Encode({0x28}), ElementsAre(2, 0x26, 0x00));
}

TEST(EncodingTest, TheQuoteIsNeverAnOffset) {
  // Offsets 1 to 0x26 all meet themselves, and 0x27 would need no escape at all, if it were allowed.
  Bytes bytes(0x26);
  std::iota(bytes.begin(), bytes.end(), Byte{1});
  ASSERT_EQ(EscapesByOffset(bytes)[0x27], 0);
  const Bytes encoded = Encode(bytes);
  EXPECT_EQ(encoded[0], 0x28);
  EXPECT_EQ(encoded.size(), bytes.size() + 2);
}

TEST(EncodingTest, TheQuoteIsNoOffsetEvenWhereItAloneNeedsNoEscape) {
  const Bytes bytes = ValuesAllowedBy(0x27);
  const Bytes encoded = Encode(bytes);
  EXPECT_NE(encoded[0], 0x27);
  EXPECT_GT(encoded.size(), bytes.size() + 2);
  EXPECT_ENCODES(bytes);
}

TEST(EncodingTest, TheLastOffsetIsFoundWhenOnlyItNeedsNoEscape) {
  const Bytes bytes = ValuesAllowedBy(0xFF);
  const Bytes encoded = Encode(bytes);
  EXPECT_EQ(encoded[0], 0xFF);
  EXPECT_EQ(encoded.size(), bytes.size() + 2);
}

TEST(EncodingTest, EveryOffsetButTheQuoteIsChosenWhereItAloneNeedsNoEscape) {
  for (int offset = 1; offset <= 255; ++offset) {
    if (offset == 0x27) continue;
    EXPECT_EQ(Encode(ValuesAllowedBy(offset))[0], offset);
  }
}

TEST(EncodingTest, OnATieTheSmallestOffsetIsTaken) {
  // Every value once: three escapes whatever the offset.
  const Bytes encoded = Encode(EveryValueOnce());
  EXPECT_EQ(encoded[0], 1);
  EXPECT_EQ(encoded.size(), 1 + 256 + 3 + 1U);
}

TEST(EncodingTest, ASmallerSumBeatsASmallerOffset) {
  // Every value twice, but 0x43, 0x44 and 0x6A once: only offset 0x43 needs three escapes.
  Bytes bytes = EveryValueOnce();
  for (unsigned byte = 0; byte < 256; ++byte) {
    if (byte != 0x43 && byte != 0x44 && byte != 0x6A) bytes.push_back(static_cast<Byte>(byte));
  }
  const Bytes encoded = Encode(bytes);
  EXPECT_EQ(encoded[0], 0x43);
  EXPECT_EQ(encoded.size(), 1 + bytes.size() + 3 + 1);
}

TEST(EncodingTest, TheThreeForbiddenBytesAreEscaped) {
  // With offset 1: 1, 2 and 0x28 become 0x00, 0x01 and 0x27.
  const Bytes encoded = Encode(EveryValueOnce());
  EXPECT_THAT(Bytes(encoded.begin(), encoded.begin() + 7), ElementsAre(0x01, 0xFF, 0x01, 0x01, 0x01, 0x02, 0x02));
  EXPECT_THAT(Bytes(encoded.begin() + 0x2A, encoded.begin() + 0x2E), ElementsAre(0x26, 0x01, 0x28, 0x28));
}

TEST(DecodingTest, TheEncodedEmptyInputGivesNothingAndWritesNothing) {
  EXPECT_THAT(Decode({'x', 0x00}), IsEmpty());
  ExactBlock block(Bytes{'x', 0x00, kUntouched});
  EXPECT_EQ(sqlite_decode_binary(block.Get(), block.Get() + 2), 0);
  EXPECT_THAT(block.All(), ElementsAre('x', 0x00, kUntouched));
}

TEST(DecodingTest, NoTerminatorIsWritten) {
  const ExactBlock in(Bytes{0x01, 0xFF, 0x10, 0x00});
  const ExactBlock out(4);
  EXPECT_EQ(sqlite_decode_binary(in.Get(), out.Get()), 2);
  EXPECT_THAT(out.All(), ElementsAre(0x00, 0x11, kUntouched, kUntouched));
}

TEST(DecodingTest, AnEmptyStringGivesNothingAndNothingPastItIsRead) {
  for (const Coder& coder : kCoders) {
    EXPECT_THAT(Decode({0x00}, coder), IsEmpty()) << coder.name;
    EXPECT_THAT(Decode({0x00, 0x41}, coder), IsEmpty()) << coder.name;
  }
}

TEST(DecodingTest, OffsetOneIsNotTakenForAnEscape) {
  EXPECT_THAT(Decode({0x01, 0x02, 0x00}), ElementsAre(0x03));
  EXPECT_THAT(Decode({0x01, 0x01, 0x01, 0x00}), ElementsAre(0x01));
}

TEST(DecodingTest, EveryOffsetIsAddedBack) {
  for (unsigned offset = 1; offset < 256; ++offset) {
    for (unsigned byte = 2; byte < 256; ++byte) {
      const Bytes decoded = Decode({static_cast<Byte>(offset), static_cast<Byte>(byte), 0x00});
      ASSERT_EQ(decoded, Bytes{static_cast<Byte>((byte + offset) % 256)}) << offset << " " << byte;
    }
  }
}

TEST(DecodingTest, EveryByteAfterAnEscapeIsTakenMinusOne) {
  for (unsigned offset = 1; offset < 256; ++offset) {
    for (unsigned escaped = 1; escaped < 256; ++escaped) {
      const Bytes decoded = Decode({static_cast<Byte>(offset), 0x01, static_cast<Byte>(escaped), 0x10, 0x00});
      const Bytes expected{static_cast<Byte>((escaped - 1 + offset) % 256), static_cast<Byte>((0x10 + offset) % 256)};
      ASSERT_EQ(decoded, expected) << offset << " " << escaped;
    }
  }
}

TEST(DecodingTest, AnEscapeBeforeTheTerminatorGivesTheOffsetMinusOneAndEndsThere) {
  for (unsigned offset = 1; offset < 256; ++offset) {
    const Byte last = static_cast<Byte>((offset + 0xFF) % 256);
    ASSERT_EQ(Decode({static_cast<Byte>(offset), 0x01, 0x00}), Bytes{last});
    ASSERT_EQ(Decode({static_cast<Byte>(offset), 0x50, 0x01, 0x00}),
              (Bytes{static_cast<Byte>((0x50 + offset) % 256), last}));
    ASSERT_EQ(Decode({static_cast<Byte>(offset), 0x01, 0x01, 0x01, 0x00}), (Bytes{static_cast<Byte>(offset), last}));
  }
}

TEST(DecodingTest, NothingPastTheTerminatorIsReadAfterAnEscape) {
  const ExactBlock in(Bytes{0x05, 0x01, 0x00, 0x41, 0x42, 0x00});
  const ExactBlock out(5);
  EXPECT_EQ(sqlite_decode_binary(in.Get(), out.Get()), 1);
  EXPECT_THAT(out.All(), ElementsAre(0x04, kUntouched, kUntouched, kUntouched, kUntouched));
}

// `before` and `after` bytes around `middle`, with the terminating zero.
Bytes Surrounded(std::size_t before, const Bytes& middle, std::size_t after) {
  Bytes text{0x30};
  text.insert(text.end(), before, 'x');
  text.insert(text.end(), middle.begin(), middle.end());
  text.insert(text.end(), after, 'y');
  text.push_back(0);
  return text;
}

TEST(DecodingTest, EscapesAreUndoneWhereverTheyLie) {
  std::vector<std::size_t> lengths(70);
  std::iota(lengths.begin(), lengths.end(), std::size_t{0});
  for (std::size_t length = kStretch - 3; length <= kStretch + 3; ++length) lengths.push_back(length);
  for (const std::size_t before : lengths) {
    for (const std::size_t after :
         {std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{32}, std::size_t{66}, kStretch, 2 * kStretch}) {
      EXPECT_DECODES(Surrounded(before, {0x01, 0x05}, after));
      EXPECT_DECODES(Surrounded(before, {0x01, 0x05, 0x01, 0x01}, after));
      EXPECT_DECODES(Surrounded(before, {0x01, 0x05, 'z', 0x01, 0x28}, after));
    }
    EXPECT_DECODES(Surrounded(before, {0x01}, 0));
    EXPECT_DECODES(Surrounded(before, {0x01, 0x01, 'z', 0x01}, 0));
  }
}

TEST(DecodingTest, EscapesOfEscapesAreUndoneInPairs) {
  for (std::size_t before = 0; before <= 33; ++before) {
    for (std::size_t escapes = 1; escapes <= 66; ++escapes) {
      EXPECT_DECODES(Surrounded(before, Bytes(escapes, 0x01), 0));
      EXPECT_DECODES(Surrounded(before, Bytes(escapes, 0x01), 70));
    }
  }
}

TEST(DecodingTest, EscapesLieAsCloseAsTheyMay) {
  RandomBytes random(8);
  for (unsigned values = 2; values <= 64; values *= 2) {
    for (std::size_t length = 1; length <= 3 * kStretch; length = 2 * length + 1) {
      // Of few values, so that one in `values` is an escape.
      EXPECT_DECODES(Surrounded(0, Generate(length, [&] { return static_cast<Byte>(1 + random(values)); }), 0));
    }
  }
}

TEST(DecodingTest, StringsOfTwoBytesAndAnEscapeAreDecoded) {
  for (unsigned first = 1; first < 256; ++first) {
    for (unsigned second = first % 3; second < 256; second += 3) {
      if (second == 0) continue;
      EXPECT_DECODES((Bytes{0x30, static_cast<Byte>(first), static_cast<Byte>(second), 0x01, 0x00}));
    }
  }
}

TEST(DecodingTest, OnlyTheDecodedBytesAreWrittenAndOnlyTheStringIsRead) {
  for (const Coder& coder : kCoders) {
    for (std::size_t before = 0; before <= 140; ++before) {
      const Bytes text = Surrounded(before, {0x01, 0x05}, 70);
      const Bytes expected = support::ModelDecoding(text);
      const ExactBlock in(text);
      // What the string may become at most, though it becomes one byte less.
      const ExactBlock out(text.size() - 2);
      const int decoded = coder.decode(in.Get(), out.Get());
      EXPECT_EQ(out.First(static_cast<std::size_t>(decoded)), expected) << coder.name;
      EXPECT_EQ(in.All(), text) << coder.name;
    }
  }
}

TEST(DecodingTest, BytesBehindTheDecodedOnesStayAsTheyAre) {
  std::mt19937 random(1);
  for (const Coder& coder : kCoders) {
    for (std::size_t size = 1; size <= 400; ++size) {
      Bytes text{0x05};
      // Escapes in one byte of two to one of sixteen.
      for (std::size_t i = 0; i < size; ++i) {
        text.push_back(random() % (2 + size % 15) == 0 ? 0x01 : static_cast<unsigned char>(2 + random() % 200));
      }
      text.push_back(0x07);
      text.push_back(0x00);
      Bytes out(text.size(), 0xEE);
      const int decoded = coder.decode(text.data(), out.data());
      ASSERT_EQ(Bytes(out.begin() + decoded, out.end()), Bytes(out.size() - static_cast<std::size_t>(decoded), 0xEE))
          << coder.name << " " << size;
    }
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// What the coder is made of

template <typename Block>
class ByteBlocksTest : public ::testing::Test {
 protected:
  static constexpr std::size_t kSize = Block::kSize;

  static Block Load(const Bytes& bytes) { return Block::Load(ExactBlock(bytes).Get()); }
  static Bytes Stored(const Block& block) {
    const ExactBlock bytes(kSize);
    block.Store(bytes.Get());
    return bytes.All();
  }
  // Every byte value follows on every other, so that whatever passes from one to the next is seen.
  static Bytes Mixed(unsigned value, std::size_t position) {
    Bytes bytes(kSize);
    for (std::size_t i = 0; i < kSize; ++i) bytes[i] = static_cast<Byte>(value + (i - position) * (2 * position + 1));
    return bytes;
  }
  template <typename Holds>
  static sqldb::BlockMask MaskOf(const Bytes& bytes, Holds holds) {
    sqldb::BlockMask mask = 0;
    for (std::size_t i = 0; i < kSize; ++i) mask |= sqldb::BlockMask{holds(bytes[i])} << i;
    return mask;
  }
};

using Blocks = ::testing::Types<sqldb::PortableBlock, sqldb::NativeBlock>;
struct BlockName {
  template <typename Block>
  static std::string GetName(int) {
    return std::is_same_v<Block, sqldb::PortableBlock> ? "Portable" : "Native";
  }
};
TYPED_TEST_SUITE(ByteBlocksTest, Blocks, BlockName);

TYPED_TEST(ByteBlocksTest, OneForbiddenByteAmongManyBlocksIsSeen) {
  for (unsigned value = 0; value < 256; ++value) {
    for (std::size_t position = 0; position < 3 * this->kSize; ++position) {
      for (const Byte others : {Byte{0x02}, Byte{0x26}, Byte{0x28}, Byte{0xFF}}) {
        Bytes bytes(3 * this->kSize, others);
        bytes[position] = static_cast<Byte>(value);
        typename TypeParam::Watch watch;
        EXPECT_EQ(watch.Forbidden(), 0U);
        for (std::size_t i = 0; i < bytes.size(); i += this->kSize) watch.See(TypeParam::Load(&bytes[i]));
        ASSERT_EQ(watch.Forbidden() != 0, NeedsEscape(static_cast<int>(value))) << value << " " << position;
      }
    }
  }
}

TYPED_TEST(ByteBlocksTest, WhatIsLoadedIsStoredFromAndToAnyAddress) {
  const Bytes bytes = this->Mixed(1, 3);
  for (std::size_t from = 0; from < this->kSize; ++from) {
    for (std::size_t to = 0; to < this->kSize; ++to) {
      Bytes in(from + this->kSize);
      std::copy(bytes.begin(), bytes.end(), in.begin() + static_cast<std::ptrdiff_t>(from));
      Bytes out(to + this->kSize);
      TypeParam::Load(&in[from]).Store(&out[to]);
      EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), &out[to])) << from << " " << to;
    }
  }
}

TYPED_TEST(ByteBlocksTest, EachByteIsShiftedByItself) {
  for (unsigned value = 0; value < 256; ++value) {
    for (unsigned shift = 0; shift < 256; ++shift) {
      Bytes bytes = this->Mixed(value, shift % this->kSize);
      const TypeParam shifted = this->Load(bytes).Plus(static_cast<Byte>(shift));
      for (Byte& byte : bytes) byte = static_cast<Byte>(byte + shift);
      ASSERT_EQ(this->Stored(shifted), bytes) << value << " " << shift;
    }
  }
}

TYPED_TEST(ByteBlocksTest, EqualAndForbiddenBytesAreFoundWhereTheyAre) {
  for (unsigned value = 0; value < 256; ++value) {
    for (std::size_t position = 0; position < this->kSize; ++position) {
      // Beside zeros, beside its neighbours, and beside many.
      Bytes lonely(this->kSize);
      lonely[position] = static_cast<Byte>(value);
      Bytes close(this->kSize, static_cast<Byte>(value + 1));
      close[position] = static_cast<Byte>(value);
      for (const Bytes& bytes : {lonely, close, this->Mixed(value, position)}) {
        const TypeParam block = this->Load(bytes);
        ASSERT_EQ(block.EqualTo(static_cast<Byte>(value)),
                  this->MaskOf(bytes, [&](Byte byte) { return byte == value; }))
            << value << " " << position;
        ASSERT_EQ(block.Forbidden(), this->MaskOf(bytes, [](Byte byte) { return NeedsEscape(byte); }))
            << value << " " << position;
      }
    }
  }
}

}  // namespace
