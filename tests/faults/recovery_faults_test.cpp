// The disk fails, at every single operation, while a hot journal is being rolled back.

#include <cstdint>
#include <cstdio>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "faults/ledger.h"
#include "faults/scenarios.h"
#include "support/fixtures.h"

namespace {

using sqldb::SQLDatabase;

class RecoveryFaults : public ::testing::Test {
 protected:
  // Leaves a database in `fHot` in whose last transaction the process seems to have died.
  RecoveryFaults() {
    SQLDatabase database(fFolder.Path("alive.db"), false);
    database.Open();
    faults::MakeLedger(database);
    for (int stamp = 1; stamp <= kCommitted; ++stamp) faults::Transact(database, stamp);
    database.BeginTransaction();
    faults::Transact(database, kCommitted + 1);
    faults::CopyWithJournal(fFolder.Path("alive.db"), fHot);
    database.EndTransaction(false, true);
  }

  // Returns false when the recovery has fewer than n operations.
  bool FailOnce(int n, int code, bool persistent) {
    faults::CopyWithJournal(fHot, fPath);
    {
      SQLDatabase database(fPath, false);
      database.Open();
      const auto ledger = database.NewTable("ledger");
      fVfs.FailAt(n, code, persistent);
      Count(*ledger);
      faults::CopyWithJournal(fPath, fAbandoned);
      fVfs.Disarm();
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
  bool Count(sqldb::SQLTableClass& ledger) {
    std::uint32_t rows = 0;
    const faults::Outcome outcome = faults::OutcomeOf([&] { rows = ledger.CountRecords(nullptr); });
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
  int fAnswers = 0;
  int fWrongAnswers = 0;
};

TEST_F(RecoveryFaults, NoFailureSpoilsTheNextAttempt) {
  ASSERT_TRUE(faults::HasHotJournal(fHot));
  for (const int code : {SQLITE_IOERR, SQLITE_FULL}) {
    for (const bool persistent : {false, true}) {
      for (int n = 1; FailOnce(n, code, persistent); ++n) {
      }
    }
  }
  std::printf("faults in recovery: %s, %d answers, %d of them wrong\n", fTally.Text().c_str(), fAnswers, fWrongAnswers);
  EXPECT_GE(fTally.rounds, 1000);
  EXPECT_EQ(fTally.corrupt, 0);
  EXPECT_EQ(fWrongAnswers, 0);
}

}  // namespace
