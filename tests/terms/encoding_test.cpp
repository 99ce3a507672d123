#include "sqldb/encoding.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/naive_encoding.h"

namespace {

using support::Byte;
using support::Bytes;
using support::ComplaintAbout;
using support::Decode;
using support::DecodeInPlace;
using support::EscapesByOffset;
using support::ExactBlock;
using support::kUntouched;
using support::Minus;
using support::ModelEncoding;
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

TEST(EncodingTest, EveryPairOfBytes) {
  for (unsigned first = 0; first < 256; ++first) {
    for (unsigned second = 0; second < 256; ++second) {
      EXPECT_ENCODES((Bytes{static_cast<Byte>(first), static_cast<Byte>(second)}));
    }
  }
}

TEST(EncodingTest, AMillionBytes) {
  RandomBytes random(5);
  EXPECT_ENCODES(Generate(1000000, [&] { return random(256); }));
}

// How many bytes the coder handles at a time. What it does must not depend on it.
constexpr std::size_t kStretch = 4096;

TEST(EncodingTest, LongInputsOfFewValues) {
  RandomBytes random(6);
  for (const std::size_t length : {kStretch - 1, kStretch, kStretch + 1, 2 * kStretch, 3 * kStretch + 5}) {
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>('a' + random(26)); }));
    EXPECT_ENCODES(Generate(length, [&] { return static_cast<Byte>(0xF0 + random(16)); }));
    EXPECT_ENCODES(Generate(length, [&] { return random(250); }));
  }
}

// The letters alone take offset 1. One byte more spoils it for another one, and many different ones spoil all.
TEST(EncodingTest, WhatTheBeginningSuggestsIsTakenBackWhereverTheRestForbidsIt) {
  for (const std::size_t position : {kStretch - 1, kStretch, kStretch + 1, 2 * kStretch - 1, 2 * kStretch, 9999ul}) {
    for (const Byte spoiler : {Byte{0x01}, Byte{0x02}, Byte{0x28}}) {
      Bytes input(10000, 'a');
      input[position] = spoiler;
      EXPECT_ENCODES(input);
    }
  }
  Bytes input(10000, 'a');
  const Bytes all = EveryValueOnce();
  std::copy(all.begin(), all.end(), input.end() - 256);
  EXPECT_ENCODES(input);
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
  Bytes bytes;
  for (unsigned byte = 0; byte < 256; ++byte) {
    if (!NeedsEscape(Minus(static_cast<int>(byte), 0x27))) bytes.push_back(static_cast<Byte>(byte));
  }
  const Bytes encoded = Encode(bytes);
  EXPECT_NE(encoded[0], 0x27);
  EXPECT_GT(encoded.size(), bytes.size() + 2);
  EXPECT_ENCODES(bytes);
}

TEST(EncodingTest, TheLastOffsetIsFoundWhenOnlyItNeedsNoEscape) {
  Bytes bytes;
  for (unsigned byte = 0; byte < 256; ++byte) {
    if (!NeedsEscape(Minus(static_cast<int>(byte), 0xFF))) bytes.push_back(static_cast<Byte>(byte));
  }
  const Bytes encoded = Encode(bytes);
  EXPECT_EQ(encoded[0], 0xFF);
  EXPECT_EQ(encoded.size(), bytes.size() + 2);
}

TEST(EncodingTest, EveryOffsetButTheQuoteIsChosenWhereItAloneNeedsNoEscape) {
  for (int offset = 1; offset <= 255; ++offset) {
    if (offset == 0x27) continue;
    Bytes bytes;
    for (int byte = 0; byte < 256; ++byte) {
      if (!NeedsEscape(Minus(byte, offset))) bytes.push_back(static_cast<Byte>(byte));
    }
    EXPECT_EQ(Encode(bytes)[0], offset);
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
  EXPECT_THAT(Decode({0x00}), IsEmpty());
  EXPECT_THAT(Decode({0x00, 0x41}), IsEmpty());
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

TEST(DecodingTest, EscapesAreUndoneWhereverTheyLie) {
  for (std::size_t before = kStretch - 3; before <= kStretch + 3; ++before) {
    for (const std::size_t after : {std::size_t{0}, std::size_t{1}, kStretch, 2 * kStretch}) {
      Bytes text{0x30};
      text.insert(text.end(), before, 'x');
      text.insert(text.end(), {0x01, 0x05, 0x01, 0x01});
      text.insert(text.end(), after, 'y');
      text.push_back(0);
      Bytes expected(before, 'x' + 0x30);
      expected.insert(expected.end(), {0x34, 0x30});
      expected.insert(expected.end(), after, 'y' + 0x30);
      ASSERT_EQ(Decode(text), expected) << before << " " << after;
      ASSERT_EQ(DecodeInPlace(text), expected) << before << " " << after;
    }
    Bytes text{0x30};
    text.insert(text.end(), before, 'x');
    text.insert(text.end(), {0x01, 0x00});
    Bytes expected(before, 'x' + 0x30);
    expected.push_back(0x2F);
    ASSERT_EQ(Decode(text), expected) << before;
  }
}

TEST(DecodingTest, MalformedStringsDecodeInPlaceToTheSame) {
  for (unsigned first = 1; first < 256; ++first) {
    for (unsigned second = 1; second < 256; ++second) {
      const Bytes text{0x30, static_cast<Byte>(first), static_cast<Byte>(second), 0x01, 0x00};
      ASSERT_EQ(DecodeInPlace(text), Decode(text)) << first << " " << second;
    }
  }
}

}  // namespace
