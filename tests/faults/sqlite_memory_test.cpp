// SQLite's memory runs out at every single allocation of every scenario, of opening a file, of waiting for a busy one
// and of reading answers; the long transaction, which does the same 600 times over, is sampled.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "faults/faulty_vfs.h"
#include "faults/kit_faults.h"
#include "faults/scenarios.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"

namespace {

using faults::ContentsOf;
using faults::Outcome;
using faults::Scenario;
using support::CallRecorder;

sqlite3_mem_methods realMethods;

// What fails: one request for memory.
class MemoryFaults : public faults::Faults {
 public:
  void Arm(int n, bool persistent) override {
    fCount = 0;
    fFailing = n;
    fPersists = persistent;
    fHasFailed = false;
    fIsArmed = true;
  }
  void Disarm() override { fIsArmed = false; }
  void Pause(bool isPaused) override { fIsPaused = isPaused; }
  int Count() const override { return fCount; }
  bool HasFailed() const override { return fHasFailed; }

  bool Fails() {
    if (!fIsArmed || fIsPaused) return false;
    ++fCount;
    if (fFailing == 0 || (fPersists ? fCount < fFailing : fCount != fFailing)) return false;
    fHasFailed = true;
    return true;
  }

 private:
  bool fIsArmed = false;
  bool fIsPaused = false;
  bool fPersists = false;
  bool fHasFailed = false;
  int fCount = 0;
  int fFailing = 0;
};

MemoryFaults memory;

void* Allocate(int size) { return memory.Fails() ? nullptr : realMethods.xMalloc(size); }
void* Reallocate(void* block, int size) { return memory.Fails() ? nullptr : realMethods.xRealloc(block, size); }

// SQLite takes another allocator only before its first use.
const int configured = [] {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMethods);
  static sqlite3_mem_methods methods;
  methods = realMethods;
  methods.xMalloc = Allocate;
  methods.xRealloc = Reallocate;
  return sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
}();

// What the test does itself in the middle of the work, spared from failing.
void Undisturbed(const std::function<void()>& action) {
  memory.Pause(true);
  action();
  memory.Pause(false);
}

using Cursor = sqldb::SQLStepCursor<std::uint32_t>;

boost::shared_ptr<Cursor> SelectQuantities(sqldb::SQLDatabase& database, const char* order) {
  const auto items = database.NewTable("items");
  auto select = database.NewSelect(items, 0);
  const auto quantity = support::MakeColumn("qty");
  select << quantity;
  if (*order != '\0') select->fOrder = {{support::MakeColumn(order), 1}};
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  const auto cursor = boost::make_shared<Cursor>(&database, offsets);
  select->PrepareSelect(cursor);
  return cursor;
}

std::uint64_t SumOf(Cursor& cursor) {
  std::uint64_t sum = 0;
  std::uint32_t quantity = 0;
  while (cursor.Step(quantity) == 0) sum += quantity;
  return sum;
}

class SumCallback : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt* statement) override {
    fSum += static_cast<std::uint64_t>(sqlite3_column_int64(statement, 0));
    return true;
  }
  std::uint64_t fSum = 0;
};

// Every answer that the library gives, as a text.
std::string Answers(sqldb::SQLDatabase& database) {
  const auto items = database.NewTable("items");
  std::string answers = std::to_string(items->CountRecords(support::MakeTerm(" qty > 2")));
  answers += items->HasTerm(support::MakeTerm(" id = 7")) ? " yes" : " no";
  answers += items->HasTerm(support::MakeTerm(" id = 7000")) ? " yes" : " no";
  answers += " " + std::to_string(SumOf(*SelectQuantities(database, "qty")));
  SumCallback sum;
  database.SendQuery("SELECT qty FROM items GROUP BY id % 50", &sum, nullptr);
  answers += " " + std::to_string(sum.fSum);
  database.fExplainLevel = 1;
  support::ClogCapture log;
  database.ExplainQuery("SELECT qty FROM items ORDER BY qty; SELECT count(*) FROM log GROUP BY qty");
  return answers + " " + log.Text();
}

class SQLiteMemory : public ::testing::Test {
 protected:
  struct Result {
    Outcome outcome;
    std::string contents;
  };

  SQLiteMemory() {
    faults::MakeStock(fStock);
    fBefore = ContentsOf(fStock);
  }

  // Works on a fresh copy of the stock, the database already open unless `opens`.
  Result Run(const Scenario& scenario, bool opens, int nth, bool persistent) {
    faults::CopyDatabase(fStock, fPath);
    const sqlite3_int64 usedBefore = sqlite3_memory_used();
    Outcome outcome = Outcome::kDone;
    {
      CallRecorder recorder;
      fRecorder = &recorder;
      sqldb::SQLDatabase database(fPath, false);
      if (!opens) database.Open();
      memory.Arm(nth, persistent);
      outcome = faults::OutcomeOf([&] {
        if (opens) database.Open();
        scenario.run(database);
      });
      memory.Disarm();
      const CallRecorder::Pause pause;
      for (const support::Call& open : recorder.CallsOf("open")) {
        // The handle of a failed open is left to nobody else; there is none when not even that could be allocated.
        if (open.out == nullptr) continue;
        auto* const handle = static_cast<sqlite3*>(const_cast<void*>(open.out));
        support::FinalizeLeftovers(handle);
        if (sqlite3_close(handle) != SQLITE_OK) ++fRefused;
      }
      database.fIsOpen = false;
      fRecorder = nullptr;
    }
    if (sqlite3_memory_used() != usedBefore) ++fLeaks;
    return {outcome, ContentsOf(fPath)};
  }

  void FailEverywhere(const Scenario& scenario, bool opens) {
    const Result undisturbed = Run(scenario, opens, 0, false);
    ASSERT_EQ(undisturbed.outcome, Outcome::kDone) << scenario.name;
    const int count = memory.Count();
    if (count > kMostPoints) fSampled.push_back(scenario.name);
    int points = 0;
    for (const bool persistent : {false, true}) {
      for (const int n : faults::Points(count, kMostPoints)) {
        const Result result = Run(scenario, opens, n, persistent);
        if (!memory.HasFailed()) continue;
        ++points;
        const std::string what = scenario.name + ", allocation " + std::to_string(n);
        if (result.outcome == Outcome::kOther) ++fStrangers;
        if (result.contents.rfind("damaged", 0) == 0) ++fDamaged;
        const bool isDone = result.contents == undisturbed.contents;
        if (!isDone && result.contents != fBefore) {
          ++fPartial;
          ADD_FAILURE() << what << " did a part";
        }
        if (result.outcome == Outcome::kDone && !isDone) {
          ++fLost;
          ADD_FAILURE() << what << " was lost";
        }
        if (result.outcome == Outcome::kDone) ++fSurvived;
      }
    }
    std::printf("%s: %d points for %d allocations\n", scenario.name.c_str(), points, count);
    EXPECT_GT(points, 0) << scenario.name;
    fPoints += points;
  }

  // A reading that does not fail gives the right answers.
  Scenario ReadAnswers() {
    return {"answers", [this](sqldb::SQLDatabase& database) {
              const std::string answers = Answers(database);
              Undisturbed([&] {
                if (fAnswers.empty()) fAnswers = answers;
                if (answers != fAnswers) ++fWrong;
              });
            }};
  }

  // The file is busy for three waits of a cursor.
  Scenario WaitForTheFile() {
    return {"busy cursor", [this](sqldb::SQLDatabase& database) {
              const auto cursor = SelectQuantities(database, "");
              support::OtherConnection* other = nullptr;
              Undisturbed([&] {
                other = new support::OtherConnection(fPath);
                other->Run("BEGIN EXCLUSIVE");
              });
              fRecorder->fAfterCall = [&](const support::Call& call) {
                if (call.function != "usleep" || fRecorder->Count("usleep") != 3) return;
                Undisturbed([&] { other->Run("ROLLBACK"); });
              };
              const auto letGo = [&] {
                fRecorder->fAfterCall = nullptr;
                Undisturbed([&] { delete other; });
              };
              try {
                SumOf(*cursor);
              } catch (...) {
                letGo();
                throw;
              }
              letGo();
            }};
  }

  static constexpr int kMostPoints = 600;

  // Never told to fail: it spares the waits for a real disk.
  faults::FaultyVfs fVfs;
  support::TemporaryFolder fFolder;
  const std::string fStock = fFolder.Path("stock.db");
  const std::string fPath = fFolder.Path("work.db");
  CallRecorder* fRecorder = nullptr;
  std::string fBefore;
  std::string fAnswers;
  std::vector<std::string> fSampled;
  int fPoints = 0;
  int fSurvived = 0;
  int fLeaks = 0;
  int fRefused = 0;
  int fStrangers = 0;
  int fDamaged = 0;
  int fPartial = 0;
  int fLost = 0;
  int fWrong = 0;
};

TEST_F(SQLiteMemory, EveryAllocationOfEveryScenarioFailsWithoutHarm) {
  ASSERT_EQ(configured, SQLITE_OK);
  for (const Scenario& scenario : faults::Scenarios()) FailEverywhere(scenario, false);
  FailEverywhere({"open", [](sqldb::SQLDatabase&) {}}, true);
  FailEverywhere(ReadAnswers(), false);
  FailEverywhere(WaitForTheFile(), false);
  std::printf(
      "SQLite's memory: %d points (%d without effect), %d leaked, %d closes refused, %d foreign exceptions, "
      "%d damaged, %d partial, %d acknowledged but lost, %d wrong answers\n",
      fPoints, fSurvived, fLeaks, fRefused, fStrangers, fDamaged, fPartial, fLost, fWrong);
  EXPECT_THAT(fSampled, ::testing::ElementsAre("long transaction"));
  EXPECT_GE(fPoints, 7000);
  EXPECT_EQ(fLeaks, 0);
  EXPECT_EQ(fRefused, 0);
  EXPECT_EQ(fStrangers, 0);
  EXPECT_EQ(fDamaged, 0);
  EXPECT_EQ(fPartial, 0);
  EXPECT_EQ(fLost, 0);
  EXPECT_EQ(fWrong, 0);
}

TEST(KitSQLiteMemory, EveryAllocationOfEveryScenarioFailsWithoutHarm) {
  ASSERT_EQ(configured, SQLITE_OK);
  const faults::FaultyVfs quickDisk;
  faults::KitFaults kit(memory, 150, 15);
  kit.FailEverywhere();
  kit.ExpectHarmless("SQLite's memory", 4500, 50);
}

}  // namespace
