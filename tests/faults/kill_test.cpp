// A process is killed at a random moment of its nested transactions.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults/ledger.h"
#include "support/fixtures.h"

namespace {

using faults::Tally;
using sqldb::SQLDatabase;

using Setting = std::function<void(SQLDatabase&)>;

constexpr int kKills = 200;
constexpr int kHotJournals = 150;
constexpr int kMaxTransactions = 1000000;

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

[[noreturn]] void TransactForEver(const std::string& path, const Setting& setting, volatile int& acknowledged) {
  try {
    SQLDatabase database(path, false);
    database.Open();
    faults::ShrinkCache(database);
    setting(database);
    for (int stamp = acknowledged + 1; stamp < kMaxTransactions; ++stamp) {
      faults::Transact(database, stamp);
      acknowledged = stamp;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "the process to be killed failed: %s\n", error.what());
  }
  std::_Exit(1);
}

void KillAgainAndAgain(const char* name, const Setting& setting) {
  support::TemporaryFolder folder;
  const std::string path = folder.Path("work.db");
  std::mt19937 random(1);
  std::uniform_int_distribution<useconds_t> delay(500, 15000);  // microseconds
  SharedNumber acknowledged;
  Tally tally;
  int hotJournals = 0;
  for (int i = 0; i < kKills; ++i) {
    // A new file now and then: the ledger's transactions grow with it.
    if (i % 5 == 0) {
      std::filesystem::remove(path);
      SQLDatabase database(path, false);
      database.Open();
      faults::MakeLedger(database);
      *acknowledged = 0;
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) TransactForEver(path, setting, *acknowledged);
    usleep(delay(random));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the process ended before it was killed";

    std::error_code none;
    if (std::filesystem::file_size(path + "-journal", none) > 0 && !none) ++hotJournals;
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

TEST(Kill, DefaultSynchronizationLosesNothing) {
  KillAgainAndAgain("default", [](SQLDatabase&) {});
}

TEST(Kill, NormalSynchronizationLosesNothing) {
  KillAgainAndAgain("SetSynchronizationLevel(true)", [](SQLDatabase& db) { db.SetSynchronizationLevel(true); });
}

TEST(Kill, WithoutSynchronizationNothingIsLostEither) {
  KillAgainAndAgain("SetSynchronizationLevel(false)", [](SQLDatabase& db) { db.SetSynchronizationLevel(false); });
}

}  // namespace
