// The disk fails, at every single operation, while a hot journal is being rolled back.

#include <cstdint>
#include <cstdio>
#include <memory>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "faults/ledger.h"
#include "faults/scenarios.h"
#include "support/fixtures.h"

namespace {

using faults::Layer;
using faults::Ledger;

class RecoveryFaults : public ::testing::TestWithParam<Layer> {
 protected:
  // Leaves a database in `fHot` in whose last transaction the process seems to have died.
  RecoveryFaults() {
    const auto ledger = Ledger::Open(GetParam(), fFolder.Path("alive.db"));
    ledger->Make();
    for (int stamp = 1; stamp <= kCommitted; ++stamp) ledger->Transact(stamp);
    ledger->RollBack(kCommitted + 1, [&] { faults::CopyWithJournal(fFolder.Path("alive.db"), fHot); });
  }

  // Returns false when the recovery has fewer than n operations.
  bool FailOnce(int n, int code, bool persistent) {
    faults::CopyWithJournal(fHot, fPath);
    {
      std::unique_ptr<Ledger> ledger;
      const auto open = [&] { ledger = Ledger::Open(GetParam(), fPath); };
      // The core reads nothing of the file when it opens it, and the kit its first page.
      if (GetParam() == Layer::kCore) open();
      fVfs.FailAt(n, code, persistent);
      if (ledger == nullptr && faults::OutcomeOf(open) == faults::Outcome::kRuntimeError) ++fUnopened;
      if (ledger != nullptr) Count(*ledger);
      faults::CopyWithJournal(fPath, fAbandoned);
      fVfs.Disarm();
      if (ledger == nullptr) open();
      EXPECT_TRUE(Count(*ledger)) << "operation " << n << ", code " << code;
    }
    if (!fVfs.HasFailed()) return false;
    EXPECT_EQ(faults::Inspect(fPath).committed, kCommitted);
    // The next attempt may be that of another process.
    const faults::Verdict verdict = faults::Inspect(fAbandoned);
    fTally.Add(verdict, kCommitted);
    EXPECT_EQ(verdict.committed, kCommitted);
    return true;
  }

  // Returns false when counting throws. What it answers otherwise has to be right.
  bool Count(Ledger& ledger) {
    int rows = 0;
    const faults::Outcome outcome = faults::OutcomeOf([&] { rows = ledger.Count(); });
    EXPECT_TRUE(outcome == faults::Outcome::kDone || outcome == faults::Outcome::kRuntimeError);
    if (outcome != faults::Outcome::kDone) return false;
    ++fAnswers;
    if (rows != kCommitted * faults::kRowsEach) ++fWrongAnswers;
    return true;
  }

  static constexpr int kCommitted = 5;

  support::TemporaryFolder fFolder;
  const std::string fHot = fFolder.Path("hot.db");
  const std::string fPath = fFolder.Path("work.db");
  const std::string fAbandoned = fFolder.Path("abandoned.db");
  faults::FaultyVfs fVfs;
  faults::Tally fTally;
  int fUnopened = 0;
  int fAnswers = 0;
  int fWrongAnswers = 0;
};

TEST_P(RecoveryFaults, NoFailureSpoilsTheNextAttempt) {
  ASSERT_TRUE(faults::HasHotJournal(fHot));
  for (const int code : {SQLITE_IOERR, SQLITE_FULL}) {
    for (const bool persistent : {false, true}) {
      for (int n = 1; FailOnce(n, code, persistent); ++n) {
      }
    }
  }
  std::printf("faults in recovery%s: %s, %d answers, %d of them wrong, %d attempts to open refused\n",
              GetParam() == Layer::kKit ? ", the kit" : "", fTally.Text().c_str(), fAnswers, fWrongAnswers, fUnopened);
  EXPECT_GE(fTally.rounds, 1000);
  EXPECT_EQ(fTally.corrupt, 0);
  EXPECT_EQ(fWrongAnswers, 0);
}

INSTANTIATE_TEST_SUITE_P(Layers, RecoveryFaults, ::testing::Values(Layer::kCore, Layer::kKit));

}  // namespace
