// The encoding, for every input of three bytes, every length up to 600, and as many bytes as an int can count.

#include "sqldb/encoding.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "support/naive_encoding.h"

namespace {

using support::Byte;
using support::Bytes;

constexpr int kValues = 256;

// Looks at inputs and counts those that differ from the model.
class Comparison {
 public:
  void Look(const Bytes& input) {
    ++fInputs;
    const std::string complaint = support::ComplaintAbout(input);
    if (complaint.empty()) return;
    if (++fDifferences == 1) {
      std::printf("encoding: first difference: %s: %s\n", ::testing::PrintToString(input).c_str(), complaint.c_str());
    }
  }

  int Inputs() const { return fInputs; }
  int Differences() const { return fDifferences; }

 private:
  std::atomic<int> fInputs{0};
  std::atomic<int> fDifferences{0};
};

// Calls `action` for each byte value, on all processors.
void ForEachValue(const std::function<void(Byte)>& action) {
  std::atomic<int> next{0};
  std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int value = next++; value < kValues; value = next++) action(static_cast<Byte>(value));
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// What three bytes are encoded to and decoded from: blocks of exactly the size needed. There is always an offset
// without escapes, so that the encoded form has the offset, three bytes and the terminating zero.
class ThreeBytes {
 public:
  bool AreEncodedRight(Byte first, Byte second, Byte third) {
    fInput = {first, second, third};
    std::copy(fInput.begin(), fInput.end(), fIn.Get());
    const Bytes expected = support::ModelEncoding(fInput);
    return expected.size() == kEncoded && sqlite_encode_binary(fIn.Get(), 3, nullptr) == kEncoded - 1 &&
           sqlite_encode_binary(fIn.Get(), 3, fOut.Get()) == kEncoded - 1 && Holds(fOut, expected) &&
           sqlite_decode_binary(fOut.Get(), fDecoded.Get()) == 3 && Holds(fDecoded, fInput) &&
           sqlite_decode_binary(fOut.Get(), fOut.Get()) == 3 && Holds(fOut, fInput);
  }

 private:
  static constexpr int kEncoded = 5;

  static bool Holds(const support::ExactBlock& block, const Bytes& bytes) {
    return std::equal(bytes.begin(), bytes.end(), block.Get());
  }

  Bytes fInput;
  support::ExactBlock fIn{3};
  support::ExactBlock fOut{kEncoded};
  support::ExactBlock fDecoded{3};
};

TEST(EncodingExhaustive, EveryInputOfThreeBytes) {
  std::atomic<int> inputs{0};
  std::atomic<int> differences{0};
  ForEachValue([&](Byte first) {
    ThreeBytes bytes;
    for (int second = 0; second < kValues; ++second) {
      for (int third = 0; third < kValues; ++third) {
        ++inputs;
        if (!bytes.AreEncodedRight(first, static_cast<Byte>(second), static_cast<Byte>(third))) ++differences;
      }
    }
  });
  std::printf("encoding: %d inputs of three bytes, %d differences\n", inputs.load(), differences.load());
  EXPECT_EQ(inputs, 16777216);
  EXPECT_EQ(differences, 0);
}

TEST(EncodingExhaustive, EveryLengthUpToSixHundred) {
  constexpr std::size_t kLongest = 600;
  constexpr std::size_t kStep = 8;
  Comparison comparison;
  // For each length and every eighth value: only that value, values from there on, and random ones up to it.
  ForEachValue([&](Byte value) {
    std::mt19937 random(value);
    for (std::size_t length = value % kStep; length <= kLongest; length += kStep) {
      Bytes input(length, value);
      comparison.Look(input);
      for (std::size_t i = 0; i < length; ++i) input[i] = static_cast<Byte>(value + i);
      comparison.Look(input);
      for (std::size_t i = 0; i < length; ++i) input[i] = static_cast<Byte>(random() % (1U + value));
      comparison.Look(input);
    }
  });
  std::printf("encoding: %d inputs of 0 to %zu bytes, %d differences\n", comparison.Inputs(), kLongest,
              comparison.Differences());
  EXPECT_EQ(comparison.Inputs(), static_cast<int>(kLongest + 1) * kValues / static_cast<int>(kStep) * 3);
  EXPECT_EQ(comparison.Differences(), 0);
}

// Memory that is filled with zeros and takes no room until it is written to.
class LargeBlock {
 public:
  explicit LargeBlock(std::size_t size)
      : fSize(size), fMemory(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
  ~LargeBlock() {
    if (IsThere()) munmap(fMemory, fSize);
  }
  LargeBlock(const LargeBlock&) = delete;
  LargeBlock& operator=(const LargeBlock&) = delete;

  bool IsThere() const { return fMemory != MAP_FAILED; }
  Byte* Get() const { return static_cast<Byte*>(fMemory); }

 private:
  std::size_t fSize;
  void* fMemory;
};

TEST(EncodingExhaustive, TheLargestLengthThatAnIntHolds) {
  constexpr int kCount = INT_MAX - 1;
  const LargeBlock in(kCount);
  ASSERT_TRUE(in.IsThere()) << "2 GiB are needed";
  // Zeros need no escape: one byte more, for the offset.
  const int length = sqlite_encode_binary(in.Get(), kCount, nullptr);
  std::printf("encoding: %d equal bytes take %d\n", kCount, length);
  EXPECT_EQ(length, INT_MAX);
}

TEST(EncodingExhaustive, AllValuesAlikeUpToTheLargestCountThatAlwaysFits) {
  constexpr int kRounds = 2122000000 / kValues;
  constexpr int kCount = kRounds * kValues;
  Bytes round;
  for (int value = 0; value < kValues; ++value) round.push_back(static_cast<Byte>(value));
  // The offset, the bytes with their escapes, and the terminating zero.
  const Bytes encodedRound = support::ModelEncoding(round);
  const std::size_t expectedRound = encodedRound.size() - 2;
  const std::size_t expected = 1 + kRounds * expectedRound;

  const LargeBlock in(kCount);
  const LargeBlock out(expected + 1);
  ASSERT_TRUE(in.IsThere() && out.IsThere()) << "4 GiB are needed";
  for (int i = 0; i < kRounds; ++i) std::memcpy(in.Get() + std::size_t{kValues} * i, round.data(), kValues);

  const int length = sqlite_encode_binary(in.Get(), kCount, nullptr);
  const int written = sqlite_encode_binary(in.Get(), kCount, out.Get());
  std::printf("encoding: %d bytes of all values take %d, written %d\n", kCount, length, written);
  ASSERT_EQ(static_cast<std::size_t>(length), expected);
  ASSERT_EQ(written, length);
  EXPECT_EQ(out.Get()[0], encodedRound[0]);
  int differences = 0;
  for (int i = 0; i < kRounds; ++i) {
    const Byte* const encoded = out.Get() + 1 + expectedRound * i;
    if (std::memcmp(encoded, encodedRound.data() + 1, expectedRound) != 0) ++differences;
  }
  EXPECT_EQ(differences, 0);
  EXPECT_EQ(out.Get()[expected], 0);

  ASSERT_EQ(sqlite_decode_binary(out.Get(), out.Get()), kCount);
  EXPECT_EQ(std::memcmp(out.Get(), in.Get(), kCount), 0);
}

}  // namespace
