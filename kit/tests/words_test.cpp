#include "sqldb/kit/words.h"

#include <cstdint>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "kit_test.h"
#include "support/allocations.h"

namespace {

using sqldb::kit::detail::Words;
using ::testing::ElementsAreArray;

std::vector<std::uint64_t> ContentOf(const Words& words) { return {words.begin(), words.end()}; }

// The numbers from 0.
std::vector<std::uint64_t> Numbers(std::size_t count) {
  std::vector<std::uint64_t> numbers;
  for (std::size_t i = 0; i < count; ++i) numbers.push_back(i);
  return numbers;
}

Words WordsOf(const std::vector<std::uint64_t>& numbers) {
  Words words;
  for (const std::uint64_t number : numbers) words.Add(number);
  return words;
}

TEST(Words, KeepWhatIsAddedInPlaceAndBeyond) {
  for (std::size_t count = 0; count < 100; ++count) {
    EXPECT_THAT(ContentOf(WordsOf(Numbers(count))), ElementsAreArray(Numbers(count)));
    for (std::size_t more = 0; more < 40; ++more) {
      Words words = WordsOf(Numbers(count));
      words.Add(WordsOf(Numbers(more)));
      std::vector<std::uint64_t> expected = Numbers(count);
      for (std::size_t i = 0; i < more; ++i) expected.push_back(i);
      EXPECT_EQ(ContentOf(words), expected);
      EXPECT_EQ(words.Size(), count + more);
    }
  }
}

TEST(Words, CanBeAddedToThemselves) {
  for (const std::size_t count : {0U, 1U, 8U, 9U, 24U, 25U, 40U, 64U}) {
    Words words = WordsOf(Numbers(count));
    words.Add(words);
    std::vector<std::uint64_t> expected = Numbers(count);
    for (std::size_t i = 0; i < count; ++i) expected.push_back(i);
    EXPECT_EQ(ContentOf(words), expected);
  }
}

TEST(Words, CopiesGoOnInTheirOwnWays) {
  for (const std::size_t count : {3U, 24U, 25U, 100U}) {
    const Words trunk = WordsOf(Numbers(count));
    Words first = trunk;
    Words second = trunk;
    for (std::uint64_t i = 0; i < 50; ++i) {
      first.Add(1000 + i);
      second.Add(2000 + i);
    }
    EXPECT_EQ(ContentOf(trunk), Numbers(count));
    for (std::size_t i = 0; i < 50; ++i) {
      EXPECT_EQ(first.begin()[count + i], 1000 + i);
      EXPECT_EQ(second.begin()[count + i], 2000 + i);
    }
    first = second;
    EXPECT_EQ(ContentOf(first), ContentOf(second));
    second = trunk;
    EXPECT_EQ(ContentOf(second), Numbers(count));
    const Words& same = first;
    first = same;
    EXPECT_EQ(first.Size(), count + 50);
    const Words moved = std::move(first);
    EXPECT_EQ(moved.Size(), count + 50);
  }
}

TEST(Words, AChainThatGrowsIsNotCopied) {
  Words chain;
  const support::AllocationCount count;
  for (std::uint64_t i = 0; i < 100000; ++i) {
    Words longer = chain;
    longer.Add(i);
    chain = longer;
  }
  EXPECT_LE(count.Count(), 20U);
  EXPECT_EQ(ContentOf(chain), Numbers(100000));
}

TEST(Words, ThatFindNoMemoryAreAsBefore) {
  for (const std::size_t count : {0U, 24U, 25U, 50U}) {
    const Words words = WordsOf(Numbers(count));
    Words grown = words;
    std::vector<std::uint64_t> expected = Numbers(count);
    expected.reserve(1000);
    {
      const support::AllocationFailure failure(1);
      for (std::uint64_t i = 0; i < 200; ++i) {
        try {
          grown.Add(i);
        } catch (const std::bad_alloc&) {
          break;
        }
        expected.push_back(i);
      }
      EXPECT_TRUE(failure.Happened());
    }
    EXPECT_EQ(ContentOf(grown), expected);
    grown.Add(7);
    EXPECT_EQ(grown.Size(), expected.size() + 1);
    EXPECT_EQ(ContentOf(words), Numbers(count));
  }
}

// Copies share memory, and serve different threads all the same.
TEST(Words, CopiesServeDifferentThreads) {
  const Words trunk = WordsOf(Numbers(100));
  std::vector<std::thread> threads;
  for (std::uint64_t number = 1; number <= 4; ++number) {
    threads.emplace_back([copy = trunk, number] {
      for (int round = 0; round < 2000; ++round) {
        Words words = copy;
        for (std::uint64_t i = 0; i < 20; ++i) words.Add(number);
        for (std::size_t i = 100; i < 120; ++i) ASSERT_EQ(words.begin()[i], number);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ContentOf(trunk), Numbers(100));
}

}  // namespace
