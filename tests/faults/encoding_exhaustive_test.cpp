// The encoding, for every input of three bytes, every length up to 600, and as many bytes as an int can count.

#include "sqldb/encoding.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
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
    return expected.size() == kEncoded &&
           std::all_of(std::begin(support::kCoders), std::end(support::kCoders), [&](const support::Coder& coder) {
             return coder.encode(fIn.Get(), 3, nullptr) == kEncoded - 1 &&
                    coder.encode(fIn.Get(), 3, fOut.Get()) == kEncoded - 1 && Holds(fOut, expected) &&
                    coder.decode(fOut.Get(), fDecoded.Get()) == 3 && Holds(fDecoded, fInput) &&
                    coder.decode(fOut.Get(), fOut.Get()) == 3 && Holds(fOut, fInput);
           });
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

// Three blocks of 32 bytes, which are what the coders handle at a time.
constexpr std::size_t kThreeBlocks = 96;

// All values as often as makes `offset` the best one, if the bytes that precede them need no more than `escapes`
// escapes with it: without the three that it forbids.
Bytes AllowedValues(int offset, int escapes) {
  Bytes bytes;
  for (int i = 0; i <= escapes; ++i) {
    for (int value = 0; value < kValues; ++value) {
      if (!support::NeedsEscape(support::Minus(value, offset))) bytes.push_back(static_cast<Byte>(value));
    }
  }
  return bytes;
}

TEST(EncodingExhaustive, EveryPairOfEscapesInThreeBlocks) {
  constexpr int kOffset = 0x43;
  Comparison comparison;
  ForEachValue([&](Byte first) {
    if (first >= kThreeBlocks) return;
    for (std::size_t second = first; second < kThreeBlocks; ++second) {
      for (const int one : support::kForbidden) {
        for (const int other : support::kForbidden) {
          Bytes input(kThreeBlocks, 0x80);
          input[first] = static_cast<Byte>(one + kOffset);
          input[second] = static_cast<Byte>(other + kOffset);
          Bytes most = AllowedValues(kOffset, 2);
          // At the beginning and at the end.
          most.insert(most.begin(), input.begin(), input.end());
          comparison.Look(most);
          std::rotate(most.begin(), most.begin() + kThreeBlocks, most.end());
          comparison.Look(most);
        }
      }
    }
  });
  std::printf("encoding: %d inputs with one or two escapes, %d differences\n", comparison.Inputs(),
              comparison.Differences());
  EXPECT_EQ(comparison.Inputs(), static_cast<int>(kThreeBlocks * (kThreeBlocks + 1) / 2) * 9 * 2);
  EXPECT_EQ(comparison.Differences(), 0);
}

TEST(EncodingExhaustive, EveryValueAtEveryPlaceOfThreeBlocks) {
  constexpr int kOffset = 0xD9;
  Comparison comparison;
  ForEachValue([&](Byte value) {
    for (std::size_t place = 0; place < kThreeBlocks; ++place) {
      Bytes input(kThreeBlocks, 0x80);
      input[place] = value;
      // Without an escape, whatever the value.
      comparison.Look(input);
      // With one, if the value is forbidden.
      const Bytes most = AllowedValues(kOffset, 1);
      input.insert(input.end(), most.begin(), most.end());
      input.push_back(static_cast<Byte>(kOffset));
      comparison.Look(input);
    }
  });
  std::printf("encoding: %d inputs with any value at any place, %d differences\n", comparison.Inputs(),
              comparison.Differences());
  EXPECT_EQ(comparison.Inputs(), kValues * static_cast<int>(kThreeBlocks) * 2);
  EXPECT_EQ(comparison.Differences(), 0);
}

TEST(EncodingExhaustive, RandomLengthsOfEveryDensity) {
  constexpr int kInputs = 40;
  constexpr unsigned kLongest = 9000;
  Comparison comparison;
  // Among the values from 0 to the given one, with one more at times: from zeros to random bytes.
  ForEachValue([&](Byte value) {
    std::mt19937 random(value);
    for (int i = 0; i < kInputs; ++i) {
      Bytes input(random() % kLongest);
      const unsigned rare = 1 + static_cast<unsigned>(random() % 1000);
      for (Byte& byte : input) {
        byte = static_cast<Byte>(random() % (random() % rare == 0 ? unsigned{kValues} : 1U + value));
      }
      comparison.Look(input);
    }
  });
  std::printf("encoding: %d inputs of 0 to %u bytes, %d differences\n", comparison.Inputs(), kLongest,
              comparison.Differences());
  EXPECT_EQ(comparison.Inputs(), kValues * kInputs);
  EXPECT_EQ(comparison.Differences(), 0);
}

// Looks at strings to decode, which no encoder may have made, and counts those that differ from the model.
class DecodingComparison {
 public:
  void Look(const Bytes& text) {
    ++fTexts;
    const std::string complaint = support::ComplaintAboutDecoding(text);
    if (complaint.empty()) return;
    if (++fDifferences == 1) {
      std::printf("decoding: first difference: %s: %s\n", ::testing::PrintToString(text).c_str(), complaint.c_str());
    }
  }

  int Texts() const { return fTexts; }
  int Differences() const { return fDifferences; }

 private:
  std::atomic<int> fTexts{0};
  std::atomic<int> fDifferences{0};
};

TEST(EncodingExhaustive, EveryPairOfEscapesInEveryStringOfThreeBlocks) {
  DecodingComparison comparison;
  ForEachValue([&](Byte first) {
    for (std::size_t length = first + std::size_t{1}; length <= kThreeBlocks; ++length) {
      for (std::size_t second = first; second < length; ++second) {
        Bytes text(1 + length, 'x');
        text[1 + first] = 0x01;
        text[1 + second] = 0x01;
        text.push_back(0);
        comparison.Look(text);
      }
    }
  });
  std::printf("decoding: %d strings with one or two escapes, %d differences\n", comparison.Texts(),
              comparison.Differences());
  EXPECT_EQ(comparison.Texts(), static_cast<int>(kThreeBlocks * (kThreeBlocks + 1) * (kThreeBlocks + 2) / 6));
  EXPECT_EQ(comparison.Differences(), 0);
}

TEST(EncodingExhaustive, RandomStringsOfEveryDensityOfEscapes) {
  constexpr int kTexts = 40;
  constexpr unsigned kLongest = 9000;
  DecodingComparison comparison;
  ForEachValue([&](Byte values) {
    std::mt19937 random(values);
    for (int i = 0; i < kTexts; ++i) {
      Bytes text(1 + random() % kLongest);
      // From 1, the escape, to the given value.
      for (Byte& byte : text) byte = static_cast<Byte>(1 + random() % (values == 0 ? 1U : values));
      text.push_back(0);
      comparison.Look(text);
    }
  });
  std::printf("decoding: %d strings of 1 to %u bytes, %d differences\n", comparison.Texts(), kLongest,
              comparison.Differences());
  EXPECT_EQ(comparison.Texts(), kValues * kTexts);
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
