// The power fails at a random moment of a run of transactions, and what was not synced is undone at random.

#include <cstdio>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/ledger.h"
#include "faults/unsafe_disk.h"
#include "support/fixtures.h"

namespace {

using faults::Tally;
using faults::UnsafeDisk;
using sqldb::SQLDatabase;

using Setting = std::function<void(SQLDatabase&)>;

constexpr int kTransactions = 6;
constexpr int kRounds = 500;

// Runs transactions until the power fails, which it does at operation `failure` (0: never). Returns the number of
// transactions that were acknowledged.
int RunUntilPowerFails(UnsafeDisk& disk, const Setting& setting, int failure) {
  int acknowledged = 0;
  SQLDatabase database("work.db", false);
  database.Open();
  faults::MakeLedger(database);
  setting(database);
  disk.FailPowerAt(failure);
  try {
    for (; acknowledged < kTransactions; ++acknowledged) faults::Transact(database, acknowledged + 1);
  } catch (const std::runtime_error&) {
    support::FinalizeLeftovers(database.fConnection);
  }
  return acknowledged;
}

Tally Rounds(const char* name, const Setting& setting) {
  int operations = 0;
  {
    UnsafeDisk disk(0);
    RunUntilPowerFails(disk, setting, 0);
    operations = disk.Operations();
  }
  Tally tally;
  for (unsigned seed = 1; seed <= kRounds; ++seed) {
    std::mt19937 random(seed);
    UnsafeDisk disk(seed);
    const int failure = std::uniform_int_distribution<int>(1, operations)(random);
    const int acknowledged = RunUntilPowerFails(disk, setting, failure);
    disk.Recover();
    tally.Add(faults::Inspect("work.db"), acknowledged);
  }
  std::printf("power loss, %s: %s\n", name, tally.Text().c_str());
  return tally;
}

void ExpectSafe(const Tally& tally) {
  EXPECT_GE(tally.rounds, 500);
  EXPECT_EQ(tally.corrupt, 0);
  EXPECT_EQ(tally.partial, 0);
}

TEST(PowerLoss, DefaultSynchronizationKeepsEveryAcknowledgedTransaction) {
  const Tally tally = Rounds("default", [](SQLDatabase&) {});
  ExpectSafe(tally);
  EXPECT_EQ(tally.lost, 0);
}

TEST(PowerLoss, NormalSynchronizationKeepsTheFileWhole) {
  ExpectSafe(Rounds("SetSynchronizationLevel(true)", [](SQLDatabase& db) { db.SetSynchronizationLevel(true); }));
}

// Documented as unprotected; and the proof that this disk does damage what is not synced.
TEST(PowerLoss, WithoutSynchronizationFilesAreDamaged) {
  const Tally tally =
      Rounds("SetSynchronizationLevel(false)", [](SQLDatabase& db) { db.SetSynchronizationLevel(false); });
  EXPECT_GT(tally.corrupt + tally.partial + tally.lost, 0);
}

}  // namespace
