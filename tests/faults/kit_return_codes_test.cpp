// Every call of SQLite that the kit makes in its scenarios returns every code that SQLite has for a failure: what is
// thrown says so, nothing is left behind, and the same objects do the same work a moment later.

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "faults/kit_scenarios.h"
#include "faults/scenarios.h"
#include "sqldb/sqldb.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"

namespace {

using faults::KitScenario;
using faults::KitWork;
using faults::Outcome;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using support::Call;
using support::CallRecorder;

constexpr int kCodes = 26;
// Of one function in one scenario: those that repeat the same are sampled.
constexpr int kMostCalls = 3;

std::string MessageFor(int code) { return "no such table: of_code_" + std::to_string(code); }

// Gives the connection a text of its own for the failure.
void Complain(sqlite3* connection, int code) {
  sqlite3_stmt* none = nullptr;
  const std::string sql = "SELECT * FROM of_code_" + std::to_string(code);
  sqlite3_prepare(connection, sql.c_str(), -1, &none, nullptr);
}

// What went out of a scenario.
struct Thrown {
  Outcome outcome = Outcome::kDone;
  bool isBusy = false;
  bool isConstraint = false;
  int code = 0;
  std::string message;
};

Thrown ThrownBy(const std::function<void()>& action) {
  Thrown thrown;
  thrown.outcome = faults::OutcomeOf([&] {
    try {
      action();
    } catch (const sqldb::kit::Error& error) {
      thrown.isBusy = dynamic_cast<const BusyError*>(&error) != nullptr;
      thrown.isConstraint = dynamic_cast<const ConstraintError*>(&error) != nullptr;
      thrown.code = error.Code();
      thrown.message = error.Message();
      throw;
    }
  });
  return thrown;
}

// One call of one function, which returns a code that it would not.
class ForcedCall {
 public:
  // `number` from 0, in what follows.
  ForcedCall(CallRecorder& recorder, std::string function, int number, int code)
      : fRecorder(recorder), fFunction(std::move(function)), fNumber(number), fCode(code) {
    recorder.Force(fFunction, code, 1, number);
    recorder.fAfterCall = [this](const Call& call) { Look(call); };
  }
  ~ForcedCall() { fRecorder.fAfterCall = nullptr; }
  ForcedCall(const ForcedCall&) = delete;
  ForcedCall& operator=(const ForcedCall&) = delete;

  bool Happened() const { return fSeen > fNumber; }
  // Whether it was to undo something, in a destructor: there is nobody to be told.
  bool Undoes() const { return fSql.rfind("ROLLBACK", 0) == 0 || fSql.rfind("RELEASE", 0) == 0; }
  // Whether it was to read a row of what had been written before the first of them.
  bool Returns() const { return fNumber > 0 && fSql.find("RETURNING") != std::string::npos; }

 private:
  void Look(const Call& call) {
    if (call.function != fFunction || fSeen++ != fNumber) return;
    auto* const handle = const_cast<void*>(call.handle);
    if (fFunction == "step") {
      auto* const statement = static_cast<sqlite3_stmt*>(handle);
      fSql = sqlite3_sql(statement);
      Complain(sqlite3_db_handle(statement), fCode);
    } else if (fFunction == "prepare_v2" || fFunction == "prepare_v3") {
      Complain(static_cast<sqlite3*>(handle), fCode);
    }
  }

  CallRecorder& fRecorder;
  const std::string fFunction;
  const int fNumber;
  const int fCode;
  int fSeen = 0;
  std::string fSql;
};

// What it says about a failure that is as its code says.
void ExpectThrown(const Thrown& thrown, const std::string& function, int code) {
  if (code == SQLITE_NOMEM) {
    EXPECT_EQ(thrown.outcome, Outcome::kBadAlloc);
    return;
  }
  EXPECT_EQ(thrown.outcome, Outcome::kRuntimeError);
  EXPECT_EQ(thrown.code, code);
  // What only these can fail with, and with a text of the connection's.
  if (function != "step" && function != "prepare_v2" && function != "prepare_v3") return;
  EXPECT_EQ(thrown.isBusy, code == SQLITE_BUSY || code == SQLITE_LOCKED);
  EXPECT_EQ(thrown.isConstraint, code == SQLITE_CONSTRAINT);
  EXPECT_NE(thrown.message.find(MessageFor(code)), std::string::npos) << thrown.message;
}

// The numbers of calls of each function.
using Counts = std::map<std::string, int>;

Counts CountsOf(const CallRecorder& recorder, const std::vector<std::string>& functions) {
  Counts counts;
  for (const std::string& function : functions) counts[function] = static_cast<int>(recorder.Count(function));
  return counts;
}

// Its failure is not told: what it was to do is done, or is nobody's concern.
bool IsSilent(const std::string& function) { return function == "reset" || function == "finalize"; }

// Scenarios that catch failures themselves, and so may take the forced one for the one that they wait for.
bool HandlesFailures(const KitScenario& scenario) {
  const std::vector<std::string> names = {"refused writes", "rollback by SQLite", "rolled back level"};
  return std::count(names.begin(), names.end(), scenario.name) != 0;
}

// By which it learns that the file is missing, as it is to be.
bool IsAwaited(const KitScenario& scenario, const std::string& function, int number, int code) {
  return scenario.name == "make a file" && function == "open_v2" && number == 0 && code == SQLITE_CANTOPEN;
}

class KitReturnCodes : public ::testing::Test {
 protected:
  static sqlite3* ConnectionOf(const KitWork& work) { return work.database->Core().fConnection; }

  static void Fill(KitWork& work) {
    work.path = ":memory:";
    faults::OpenDatabase(work);
    support::RowsOf(ConnectionOf(work), faults::kStockSql);
  }

  void ReturnEverything(const KitScenario& scenario) {
    Counts counts;
    {
      KitWork work;
      Fill(work);
      fBefore = faults::ContentsOf(ConnectionOf(work));
      const CallRecorder recorder;
      scenario.run(work);
      counts = CountsOf(recorder, {"prepare_v2", "prepare_v3", "bind", "step", "reset", "finalize"});
      fAfter = faults::ContentsOf(ConnectionOf(work));
    }
    for (const auto& [function, count] : counts) {
      for (const int number : faults::Points(count, kMostCalls)) {
        ++fSites;
        for (int code = 1; code <= kCodes; ++code) {
          // That is what it waits for.
          if (HandlesFailures(scenario) && code == SQLITE_CONSTRAINT) continue;
          Return(scenario, function, number - 1, code);
        }
      }
    }
  }

  void Return(const KitScenario& scenario, const std::string& function, int number, int code) {
    SCOPED_TRACE(scenario.name + ", " + function + " after " + std::to_string(number) + ", code " +
                 std::to_string(code));
    KitWork work;
    Fill(work);
    CallRecorder recorder;
    bool undoes = false;
    bool returns = false;
    Thrown thrown;
    {
      const ForcedCall forced(recorder, function, number, code);
      thrown = ThrownBy([&] { scenario.run(work); });
      EXPECT_TRUE(forced.Happened());
      undoes = forced.Undoes();
      returns = forced.Returns();
    }
    ++fCases;
    const CallRecorder::Pause pause;
    if (IsSilent(function)) {
      EXPECT_EQ(thrown.outcome, Outcome::kDone);
    } else if (!undoes && !HandlesFailures(scenario)) {
      ExpectThrown(thrown, function, code);
    }
    if (!undoes) {
      EXPECT_EQ(faults::LeftBehind(work), "");
    }
    // Which makes up for what could not be undone.
    sqldb::kit::InTransaction(*work.database, [] {});
    EXPECT_EQ(faults::LeftBehind(work), "");
    const std::string contents = faults::ContentsOf(ConnectionOf(work));
    EXPECT_EQ(contents, thrown.outcome == Outcome::kDone || returns ? fAfter : fBefore);
    // What is done the second time does not depend on the code.
    if (contents != fBefore || code % 5 != 0) return;
    EXPECT_EQ(faults::OutcomeOf([&] { scenario.run(work); }), Outcome::kDone);
    EXPECT_EQ(faults::ContentsOf(ConnectionOf(work)), fAfter);
  }

  // The same for those that open a file.
  void ReturnInOpening(const KitScenario& scenario, const std::string& path) {
    Counts counts;
    {
      KitWork work;
      work.path = path;
      const CallRecorder recorder;
      scenario.run(work);
      counts = CountsOf(recorder, {"open_v2", "prepare_v2", "prepare_v3", "step", "finalize", "create_module"});
    }
    for (const auto& [function, count] : counts) {
      for (int number = 0; number < count; ++number) {
        ++fSites;
        for (int code = 1; code <= kCodes; ++code) {
          if (IsAwaited(scenario, function, number, code)) continue;
          ReturnInOpening(scenario, path, function, number, code);
        }
      }
    }
  }

  void ReturnInOpening(const KitScenario& scenario, const std::string& path, const std::string& function, int number,
                       int code) {
    SCOPED_TRACE(scenario.name + ", " + function + " after " + std::to_string(number) + ", code " +
                 std::to_string(code));
    const sqlite3_int64 usedBefore = sqlite3_memory_used();
    {
      KitWork work;
      work.path = path;
      CallRecorder recorder;
      Thrown thrown;
      {
        const ForcedCall forced(recorder, function, number, code);
        thrown = ThrownBy([&] { scenario.run(work); });
        EXPECT_TRUE(forced.Happened());
      }
      ++fCases;
      const CallRecorder::Pause pause;
      if (IsSilent(function)) {
        EXPECT_EQ(thrown.outcome, Outcome::kDone);
      } else {
        ExpectThrown(thrown, function, code);
      }
      work.database.reset();
      EXPECT_EQ(faults::OutcomeOf([&] { scenario.run(work); }), Outcome::kDone);
    }
    EXPECT_EQ(sqlite3_memory_used(), usedBefore);
  }

  int fSites = 0;
  int fCases = 0;
  std::string fBefore;
  std::string fAfter;
};

TEST_F(KitReturnCodes, EveryCallTreatsEveryCodeAsDescribed) {
  for (const KitScenario& scenario : faults::KitScenarios()) {
    if (!scenario.opens && !scenario.goesOn && !scenario.hasOther) ReturnEverything(scenario);
  }
  std::printf("return codes, the kit: %d calls, %d codes, %d cases\n", fSites, kCodes, fCases);
  EXPECT_GE(fSites, 350);
  EXPECT_GE(fCases, fSites * (kCodes - 1));
}

TEST_F(KitReturnCodes, OpeningTreatsEveryCodeAsDescribed) {
  const faults::FaultyVfs quickDisk;
  const support::TemporaryFolder folder;
  faults::MakeStock(folder.Path("stock.db"));
  for (const KitScenario& scenario : faults::KitScenarios()) {
    if (scenario.opens) ReturnInOpening(scenario, folder.Path("stock.db"));
  }
  std::printf("return codes, opening by the kit: %d calls, %d codes, %d cases\n", fSites, kCodes, fCases);
  EXPECT_GE(fSites, 100);
  // All but the one that is awaited.
  EXPECT_EQ(fCases, fSites * kCodes - 1);
}

}  // namespace
