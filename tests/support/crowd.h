#ifndef SQLDB_TESTS_CROWD_H
#define SQLDB_TESTS_CROWD_H

// Several threads at once.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace support {

// Calls `work(i)` in a thread of its own for every `i` below `threads`, `rounds` times. Each round begins at the same
// moment in all of them, so that they get into each other's way on a busy machine too. Waits for their end.
template <typename Work>
void InCrowd(int threads, int rounds, Work work) {
  std::atomic<int> arrived(0);
  std::vector<std::thread> crowd;
  for (int i = 0; i < threads; ++i) {
    crowd.emplace_back([&arrived, &work, threads, rounds, i] {
      for (int round = 1; round <= rounds; ++round) {
        ++arrived;
        while (arrived < round * threads) std::this_thread::yield();
        work(i);
      }
    });
  }
  for (std::thread& thread : crowd) thread.join();
}

// The numbers that `draw` returns to four threads, 200,000 in all, in order.
template <typename Draw>
auto DrawnInCrowd(Draw draw) -> std::vector<decltype(draw())> {
  constexpr std::size_t kThreads = 4;
  constexpr int kRounds = 500;
  constexpr int kDraws = 100;
  std::vector<decltype(draw())> drawn[kThreads];
  InCrowd(kThreads, kRounds, [&](int thread) {
    for (int i = 0; i < kDraws; ++i) drawn[thread].push_back(draw());
  });
  for (std::size_t i = 1; i < kThreads; ++i) drawn[0].insert(drawn[0].end(), drawn[i].begin(), drawn[i].end());
  std::sort(drawn[0].begin(), drawn[0].end());
  return drawn[0];
}

}  // namespace support

#endif  // SQLDB_TESTS_CROWD_H
