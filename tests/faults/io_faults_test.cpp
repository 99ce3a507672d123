// The disk fails or fills up at every single operation of opening a file, making one, and every scenario.

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "faults/kit_faults.h"
#include "faults/scenarios.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"

namespace {

using faults::ContentsOf;
using faults::Outcome;
using faults::Scenario;
using sqldb::SQLDatabase;

const char* const kOpening = "opening a file";
const char* const kNewFile = "making a file";

void FillNewFile(SQLDatabase& database) {
  database.BeginTransaction();
  const auto table = database.NewTable("fresh");
  table->AddColumn(support::MakeColumn("id"));
  table->Create();
  database.SendQuery("INSERT INTO fresh VALUES (1), (2)", nullptr, nullptr);
  database.EndTransaction(true, false);
}

// The scenarios work on an opened file; opening it is a part of all of them.
std::vector<Scenario> AllScenarios() {
  std::vector<Scenario> scenarios = {{kOpening, [](SQLDatabase&) {}}, {kNewFile, FillNewFile}};
  scenarios.insert(scenarios.end(), faults::Scenarios().begin(), faults::Scenarios().end());
  return scenarios;
}

// A failed open leaves a handle behind, which would count as a leak.
void Open(SQLDatabase& database) {
  support::CallRecorder recorder;
  try {
    database.Open();
  } catch (...) {
    sqlite3_close(static_cast<sqlite3*>(const_cast<void*>(recorder.Calls().front().out)));
    throw;
  }
}

class IoFaults : public ::testing::Test {
 protected:
  IoFaults() {
    faults::MakeStock(fStock);
    // A small cache makes SQLite touch the file more often. The file says so, since asking the connection for one would
    // read the schema before it is to be read.
    support::OtherConnection(fStock).Run("PRAGMA default_cache_size = 2");
  }

  void PutFile(const Scenario& scenario) {
    faults::RemoveDatabase(fPath);
    if (scenario.name != kNewFile) faults::CopyDatabase(fStock, fPath);
  }

  // Opens a copy of the stock and runs the scenario, the n-th file operation failing.
  // Returns false when there are fewer operations.
  bool FailOnce(const Scenario& scenario, int n, int code, bool persistent) {
    PutFile(scenario);
    bool isInOpen = true;
    Outcome outcome = Outcome::kDone;
    {
      SQLDatabase database(fPath, false);
      fVfs.FailAt(n, code, persistent);
      outcome = faults::OutcomeOf([&] {
        Open(database);
        isInOpen = fVfs.HasFailed();
        scenario.run(database);
      });
      faults::CopyWithJournal(fPath, fAbandoned);
      fVfs.Disarm();
      if (database.fIsOpen) {
        support::FinalizeLeftovers(database.fConnection);
        EXPECT_EQ(sqlite3_close(database.fConnection), SQLITE_OK);
        database.fIsOpen = false;
      }
    }
    if (!fVfs.HasFailed()) return false;
    ++fPoints;
    ++fPointsOf[isInOpen && scenario.name != kNewFile ? kOpening : scenario.name];
    EXPECT_TRUE(outcome == Outcome::kDone || outcome == Outcome::kRuntimeError)
        << scenario.name << ", operation " << n << ", code " << code;
    Judge(fPath, outcome);
    Judge(fAbandoned, outcome);
    return true;
  }

  void Judge(const std::string& path, Outcome outcome) {
    const std::string contents = ContentsOf(path);
    if (contents.rfind("damaged", 0) == 0) ++fDamaged;
    if (contents != fBefore && contents != fAfter) ++fPartial;
    if (outcome == Outcome::kDone && contents != fAfter) ++fLost;
  }

  support::TemporaryFolder fFolder;
  const std::string fStock = fFolder.Path("stock.db");
  const std::string fPath = fFolder.Path("work.db");
  const std::string fAbandoned = fFolder.Path("abandoned.db");
  faults::FaultyVfs fVfs;
  std::string fBefore;
  std::string fAfter;
  std::map<std::string, int> fPointsOf;
  int fPoints = 0;
  int fDamaged = 0;
  int fPartial = 0;
  int fLost = 0;
};

TEST_F(IoFaults, EveryOperationOfEveryScenarioFailsWithoutHarm) {
  const std::vector<Scenario> scenarios = AllScenarios();
  for (const Scenario& scenario : scenarios) {
    PutFile(scenario);
    fBefore = ContentsOf(fPath);
    {
      SQLDatabase database(fPath, false);
      database.Open();
      scenario.run(database);
    }
    fAfter = ContentsOf(fPath);
    for (const int code : {SQLITE_IOERR, SQLITE_FULL}) {
      for (const bool persistent : {false, true}) {
        for (int n = 1; FailOnce(scenario, n, code, persistent); ++n) {
        }
      }
    }
  }
  int missing = 0;
  for (const Scenario& scenario : scenarios) {
    EXPECT_GT(fPointsOf[scenario.name], 0) << scenario.name;
    if (fPointsOf[scenario.name] == 0) ++missing;
  }
  std::printf(
      "I/O faults: %d points, %zu scenarios, %d of them without a point; with the files as they were left at once: %d "
      "damaged, %d partial, %d acknowledged but lost\n",
      fPoints, scenarios.size(), missing, fDamaged, fPartial, fLost);
  EXPECT_GE(fPoints, 2300);
  EXPECT_EQ(fDamaged, 0);
  EXPECT_EQ(fPartial, 0);
  EXPECT_EQ(fLost, 0);
}

// A file system that fails with one code.
class DiskFaults : public faults::Faults {
 public:
  explicit DiskFaults(int code) : fCode(code) {}

  void Arm(int n, bool persistent) override { fVfs.FailAt(n, fCode, persistent); }
  void Disarm() override {
    fOperations = fVfs.Operations();
    fVfs.Disarm();
  }
  void Pause(bool isPaused) override { fVfs.Pause(isPaused); }
  int Count() const override { return fOperations; }
  bool HasFailed() const override { return fVfs.HasFailed(); }

 private:
  faults::FaultyVfs fVfs;
  const int fCode;
  int fOperations = 0;
};

TEST(KitIoFaults, TheDiskFailsWithoutHarm) {
  DiskFaults disk(SQLITE_IOERR);
  faults::KitFaults kit(disk, 90, 30);
  kit.FailEverywhere();
  kit.ExpectHarmless("I/O faults", 2500, 50);
}

TEST(KitIoFaults, TheDiskFillsUpWithoutHarm) {
  DiskFaults disk(SQLITE_FULL);
  faults::KitFaults kit(disk, 90, 30);
  kit.FailEverywhere();
  kit.ExpectHarmless("full disk", 900, 33);
}

}  // namespace
