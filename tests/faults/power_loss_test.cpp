// The power fails at a random moment of a run of transactions, and what was not synced is undone at random.

#include <cstdio>
#include <functional>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/ledger.h"
#include "faults/unsafe_disk.h"

namespace {

using faults::Layer;
using faults::Ledger;
using faults::Tally;
using faults::UnsafeDisk;

using Setting = std::function<void(Ledger&)>;

constexpr int kTransactions = 6;
constexpr int kRounds = 500;

// When the power fails: at an operation of the disk, or between two, after a transaction was acknowledged. 0: not so.
struct Moment {
  int operation = 0;
  int transaction = 0;
};

// Runs transactions until the power fails, and returns the number of those that were acknowledged.
int RunUntilPowerFails(UnsafeDisk& disk, Layer layer, const Setting& setting, const Moment& moment) {
  int acknowledged = 0;
  const auto ledger = Ledger::Open(layer, "work.db");
  ledger->Make();
  // The table has been there for long.
  disk.SyncFolder();
  setting(*ledger);
  disk.FailPowerAt(moment.operation);
  try {
    while (acknowledged < kTransactions && disk.HasPower()) {
      ledger->Transact(acknowledged + 1);
      ++acknowledged;
      if (acknowledged == moment.transaction) disk.FailPower();
    }
  } catch (const std::runtime_error&) {
    ledger->PutInOrder();
  }
  return acknowledged;
}

// Half of the rounds fail at any operation, half right after a commit: that moment is a single one among hundreds.
Tally Rounds(const char* name, Layer layer, const Setting& setting) {
  int operations = 0;
  {
    UnsafeDisk disk(0);
    RunUntilPowerFails(disk, layer, setting, {});
    operations = disk.Operations();
  }
  Tally tally;
  for (unsigned seed = 1; seed <= kRounds; ++seed) {
    std::mt19937 random(seed);
    UnsafeDisk disk(seed);
    const auto anyOf = [&](int count) { return 1 + static_cast<int>(random() % static_cast<unsigned>(count)); };
    const Moment moment = seed % 2 == 0 ? Moment{anyOf(operations), 0} : Moment{0, anyOf(kTransactions)};
    const int acknowledged = RunUntilPowerFails(disk, layer, setting, moment);
    if (disk.HasPower()) continue;
    disk.Recover();
    tally.Add(faults::Inspect("work.db"), acknowledged);
  }
  std::printf("power loss, %s: %s, %d of them more than the last transaction\n", name, tally.Text().c_str(),
              tally.lostSeveral);
  return tally;
}

void ExpectWhole(const Tally& tally) {
  EXPECT_EQ(tally.rounds, kRounds);
  EXPECT_EQ(tally.corrupt, 0);
  EXPECT_EQ(tally.partial, 0);
}

// SQLite deletes the journal to commit, but does not sync the folder: the journal can be there again, and undo the last
// transaction. The next one syncs the folder before it changes the file.
void ExpectWholeButForTheLast(const Tally& tally) {
  ExpectWhole(tally);
  EXPECT_EQ(tally.lostSeveral, 0);
  // The proof that the power failed in that moment.
  EXPECT_GE(tally.lost, kRounds / 10);
}

void DoNothing(Ledger&) {}

TEST(PowerLoss, DefaultSynchronizationLosesAtMostTheLastTransaction) {
  ExpectWholeButForTheLast(Rounds("default", Layer::kCore, DoNothing));
  ExpectWholeButForTheLast(Rounds("default, the kit", Layer::kKit, DoNothing));
}

TEST(PowerLoss, NormalSynchronizationLosesAtMostTheLastTransaction) {
  const auto normal = [](Ledger& ledger) { ledger.Synchronize(true); };
  ExpectWholeButForTheLast(Rounds("SetSynchronizationLevel(true)", Layer::kCore, normal));
  ExpectWholeButForTheLast(Rounds("NORMAL, the kit", Layer::kKit, normal));
}

TEST(PowerLoss, ExtraSynchronizationKeepsEveryAcknowledgedTransaction) {
  for (const Layer layer : {Layer::kCore, Layer::kKit}) {
    const Tally tally = Rounds(layer == Layer::kCore ? "EXTRA" : "EXTRA, the kit", layer,
                               [](Ledger& ledger) { ledger.Send("PRAGMA synchronous = EXTRA"); });
    ExpectWhole(tally);
    EXPECT_EQ(tally.lost, 0);
  }
}

// Documented as unprotected; and the proof that this disk does damage what is not synced.
TEST(PowerLoss, WithoutSynchronizationFilesAreDamaged) {
  const Tally tally =
      Rounds("SetSynchronizationLevel(false)", Layer::kCore, [](Ledger& ledger) { ledger.Synchronize(false); });
  EXPECT_EQ(tally.rounds, kRounds);
  EXPECT_GT(tally.corrupt, 0);
}

}  // namespace
