// The disk fails or fills up at every single operation of every scenario.

#include <cstdio>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "faults/scenarios.h"
#include "support/fixtures.h"

namespace {

using faults::ContentsOf;
using faults::Outcome;
using faults::Scenario;

class IoFaults : public ::testing::Test {
 protected:
  IoFaults() {
    faults::MakeStock(fStock);
    fBefore = ContentsOf(fStock);
  }

  // Runs the scenario on a copy of the stock, its n-th file operation failing.
  // Returns false when it has fewer operations.
  bool FailOnce(const Scenario& scenario, int n, int code, bool persistent, const std::string& after) {
    faults::CopyDatabase(fStock, fPath);
    Outcome outcome = Outcome::kDone;
    {
      sqldb::SQLDatabase database(fPath, false);
      database.Open();
      // A small cache makes SQLite touch the file more often.
      database.SendQuery("PRAGMA cache_size = 2", nullptr, nullptr);
      fVfs.FailAt(n, code, persistent);
      outcome = faults::OutcomeOf([&] { scenario.run(database); });
      fVfs.Disarm();
      support::FinalizeLeftovers(database.fConnection);
      EXPECT_EQ(sqlite3_close(database.fConnection), SQLITE_OK);
      database.fIsOpen = false;
    }
    if (!fVfs.HasFailed()) return false;
    ++fPoints;
    const std::string what = scenario.name + ", operation " + std::to_string(n) + ", code " + std::to_string(code);
    EXPECT_TRUE(outcome == Outcome::kDone || outcome == Outcome::kRuntimeError) << what;
    const std::string contents = ContentsOf(fPath);
    if (contents.rfind("damaged", 0) == 0) ++fDamaged;
    if (contents != fBefore && contents != after) ++fPartial;
    if (outcome == Outcome::kDone && contents != after) ++fLost;
    return true;
  }

  support::TemporaryFolder fFolder;
  const std::string fStock = fFolder.Path("stock.db");
  const std::string fPath = fFolder.Path("work.db");
  faults::FaultyVfs fVfs;
  std::string fBefore;
  int fPoints = 0;
  int fDamaged = 0;
  int fPartial = 0;
  int fLost = 0;
};

TEST_F(IoFaults, EveryOperationOfEveryScenarioFailsWithoutHarm) {
  for (const Scenario& scenario : faults::Scenarios()) {
    faults::CopyDatabase(fStock, fPath);
    {
      sqldb::SQLDatabase database(fPath, false);
      database.Open();
      scenario.run(database);
    }
    const std::string after = ContentsOf(fPath);
    for (const int code : {SQLITE_IOERR, SQLITE_FULL}) {
      for (const bool persistent : {false, true}) {
        for (int n = 1; FailOnce(scenario, n, code, persistent, after); ++n) {
        }
      }
    }
  }
  std::printf("I/O faults: %d points, %d damaged, %d partial, %d acknowledged but lost\n", fPoints, fDamaged, fPartial,
              fLost);
  EXPECT_GE(fPoints, 2000);
  EXPECT_EQ(fDamaged, 0);
  EXPECT_EQ(fPartial, 0);
  EXPECT_EQ(fLost, 0);
}

}  // namespace
