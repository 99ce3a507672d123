// The disk fails, at every single operation, while a hot journal is being rolled back.

#include <cstdio>
#include <filesystem>

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
    CopyWithJournal(fFolder.Path("alive.db"), fHot);
    database.EndTransaction(false, true);
  }

  static void CopyWithJournal(const std::string& from, const std::string& to) {
    for (const char* suffix : {"", "-journal"}) {
      std::filesystem::copy_file(from + suffix, to + suffix, std::filesystem::copy_options::overwrite_existing);
    }
  }

  // Returns false when the recovery has fewer than n operations.
  bool FailOnce(int n, int code, bool persistent) {
    CopyWithJournal(fHot, fPath);
    {
      SQLDatabase database(fPath, false);
      database.Open();
      const auto ledger = database.NewTable("ledger");
      fVfs.FailAt(n, code, persistent);
      const faults::Outcome outcome = faults::OutcomeOf([&] { ledger->CountRecords(nullptr); });
      EXPECT_TRUE(outcome == faults::Outcome::kDone || outcome == faults::Outcome::kRuntimeError);
      fVfs.Disarm();
    }
    if (!fVfs.HasFailed()) return false;
    const faults::Verdict verdict = faults::Inspect(fPath);
    fTally.Add(verdict, kCommitted);
    EXPECT_EQ(verdict.committed, kCommitted);
    return true;
  }

  static constexpr int kCommitted = 5;

  support::TemporaryFolder fFolder;
  const std::string fHot = fFolder.Path("hot.db");
  const std::string fPath = fFolder.Path("work.db");
  faults::FaultyVfs fVfs;
  faults::Tally fTally;
};

TEST_F(RecoveryFaults, NoFailureSpoilsTheNextAttempt) {
  ASSERT_GT(std::filesystem::file_size(fHot + "-journal"), 0u);
  for (const int code : {SQLITE_IOERR, SQLITE_FULL}) {
    for (const bool persistent : {false, true}) {
      for (int n = 1; FailOnce(n, code, persistent); ++n) {
      }
    }
  }
  std::printf("faults in recovery: %s\n", fTally.Text().c_str());
  EXPECT_GE(fTally.rounds, 200);
  EXPECT_EQ(fTally.corrupt, 0);
}

}  // namespace
