// A process is killed at a random moment of its nested transactions.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults/ledger.h"
#include "faults/scenarios.h"
#include "support/fixtures.h"

namespace {

using faults::Layer;
using faults::Ledger;
using faults::Tally;

using Setting = std::function<void(Ledger&)>;

constexpr int kKills = 200;
constexpr int kHotJournals = 150;
// How often to go on for the sake of the hot journals.
constexpr int kMostKills = 600;
// Where the disk is slow, so that the test does not take for ever.
constexpr useconds_t kLongestDelay = 50000;
constexpr int kMaxTransactions = 1000000;
// What a new file starts with, so that most of a transaction's time comes after the first change to the file.
constexpr int kFirstTransactions = 4;

// A number that outlives the process that writes it, unlike a file's contents still on their way.
class SharedNumber {
 public:
  SharedNumber()
      : fNumber(static_cast<volatile int*>(
            mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedNumber() { munmap(const_cast<int*>(fNumber), sizeof(int)); }
  SharedNumber(const SharedNumber&) = delete;
  SharedNumber& operator=(const SharedNumber&) = delete;

  volatile int& operator*() { return *fNumber; }

 private:
  volatile int* fNumber;
};

// Makes the ledger with its first transactions. Returns how long the last of them took, in microseconds.
useconds_t MakeFile(const std::string& path, Layer layer, const Setting& setting) {
  using Clock = std::chrono::steady_clock;
  faults::RemoveDatabase(path);
  const auto ledger = Ledger::Open(layer, path);
  ledger->Make();
  setting(*ledger);
  Clock::time_point start;
  for (int stamp = 1; stamp <= kFirstTransactions; ++stamp) {
    start = Clock::now();
    ledger->Transact(stamp);
  }
  return static_cast<useconds_t>(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
}

[[noreturn]] void TransactForEver(const std::string& path, Layer layer, const Setting& setting, volatile int& isReady,
                                  volatile int& acknowledged) {
  try {
    const auto ledger = Ledger::Open(layer, path);
    ledger->ShrinkCache();
    setting(*ledger);
    isReady = 1;
    for (int stamp = acknowledged + 1; stamp < kMaxTransactions; ++stamp) {
      ledger->Transact(stamp);
      acknowledged = stamp;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "the process to be killed failed: %s\n", error.what());
  }
  std::_Exit(1);
}

void KillAgainAndAgain(const char* name, Layer layer, const Setting& setting) {
  support::TemporaryFolder folder;
  const std::string path = folder.Path("work.db");
  std::mt19937 random(1);
  SharedNumber isReady;
  SharedNumber acknowledged;
  Tally tally;
  int hotJournals = 0;
  useconds_t duration = 0;
  for (int i = 0; i < kKills || (hotJournals < kHotJournals && i < kMostKills); ++i) {
    // A new file now and then: the ledger's transactions grow with it.
    if (i % 5 == 0) {
      duration = MakeFile(path, layer, setting);
      *acknowledged = kFirstTransactions;
    }
    *isReady = 0;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) TransactForEver(path, layer, setting, *isReady, *acknowledged);
    while (*isReady == 0 && waitpid(child, nullptr, WNOHANG) == 0) usleep(100);
    usleep(std::uniform_int_distribution<useconds_t>(0, std::min(2 * duration, kLongestDelay))(random));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the process ended before it was killed";

    if (faults::HasHotJournal(path)) ++hotJournals;
    const faults::Verdict verdict = faults::Inspect(path);
    tally.Add(verdict, *acknowledged);
    // A transaction may have been committed without having been acknowledged any more.
    if (verdict.committed > 0) *acknowledged = verdict.committed;
  }
  std::printf("kills, %s: %s, %d hot journals\n", name, tally.Text().c_str(), hotJournals);
  EXPECT_GE(tally.rounds, kKills);
  EXPECT_GE(hotJournals, kHotJournals);
  EXPECT_EQ(tally.corrupt, 0);
  EXPECT_EQ(tally.partial, 0);
  EXPECT_EQ(tally.lost, 0);
}

void DoNothing(Ledger&) {}

TEST(Kill, DefaultSynchronizationLosesNothing) {
  KillAgainAndAgain("default", Layer::kCore, DoNothing);
  KillAgainAndAgain("default, the kit", Layer::kKit, DoNothing);
}

TEST(Kill, NormalSynchronizationLosesNothing) {
  KillAgainAndAgain("SetSynchronizationLevel(true)", Layer::kCore, [](Ledger& ledger) { ledger.Synchronize(true); });
}

TEST(Kill, WithoutSynchronizationNothingIsLostEither) {
  KillAgainAndAgain("SetSynchronizationLevel(false)", Layer::kCore, [](Ledger& ledger) { ledger.Synchronize(false); });
}

TEST(Kill, InWalModeNothingIsLost) { KillAgainAndAgain("WAL, the kit", Layer::kKitInWalMode, DoNothing); }

}  // namespace
