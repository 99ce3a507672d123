#include "faults/kit_faults.h"

#include <cstdio>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "faults/faulty_vfs.h"
#include "sqldb/sqldb.h"
#include "support/fixtures.h"

namespace faults {

namespace {

bool CanBeLocked(const std::string& path) {
  sqlite3* other = nullptr;
  const bool isLocked = sqlite3_open(path.c_str(), &other) == SQLITE_OK &&
                        sqlite3_exec(other, "BEGIN EXCLUSIVE; ROLLBACK", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(other);
  return isLocked;
}

// What the file holds once these rows are in log, which comes last.
std::string WithRows(std::string contents, const std::vector<std::int64_t>& written) {
  for (const std::int64_t number : written) {
    contents += std::to_string(number) + "|" + std::to_string(number * number) + "\n";
  }
  return contents;
}

}  // namespace

KitFaults::KitFaults(Faults& faults, int mostOnce, int mostPersistent)
    : fFaults(faults), fMostOnce(mostOnce), fMostPersistent(mostPersistent) {
  MakeStock(fStock);
  // A small cache makes SQLite touch the file more often.
  support::OtherConnection(fStock).Run("PRAGMA default_cache_size = 2");
  fBefore = ContentsOf(fStock);
}

void KitFaults::FailEverywhere() {
  for (const KitScenario& scenario : KitScenarios()) {
    const Undisturbed undisturbed = RunUndisturbed(scenario);
    const int before = fPoints;
    if (undisturbed.count > 0) ++fScenarios;
    for (const bool persistent : {false, true}) {
      const int most = persistent ? fMostPersistent : fMostOnce;
      if (most == 0) continue;
      for (const int n : Points(undisturbed.count, most)) FailAt(scenario, undisturbed, n, persistent);
    }
    std::printf("%s: %d points, of %d that there are\n", scenario.name.c_str(), fPoints - before, undisturbed.count);
  }
}

void KitFaults::Prepare(const KitScenario& scenario, KitWork& work) {
  CopyDatabase(fStock, fPath);
  work.path = fPath;
  work.undisturbed = [this](const std::function<void()>& action) {
    fFaults.Pause(true);
    action();
    fFaults.Pause(false);
  };
  if (!scenario.opens) OpenDatabase(work);
}

KitFaults::Undisturbed KitFaults::RunUndisturbed(const KitScenario& scenario) {
  KitWork work;
  Prepare(scenario, work);
  fFaults.Arm(0, false);
  const Outcome outcome = OutcomeOf([&] { scenario.run(work); });
  fFaults.Disarm();
  EXPECT_EQ(outcome, Outcome::kDone) << scenario.name;
  EXPECT_TRUE(IsSound(work)) << scenario.name;
  const std::string contents = ContentsOf(fPath);
  if (scenario.goesOn) {
    EXPECT_EQ(contents, WithRows(fBefore, work.written)) << scenario.name;
  }
  return {fFaults.Count(), contents};
}

void KitFaults::FailAt(const KitScenario& scenario, const Undisturbed& undisturbed, int n, bool persistent) {
  SCOPED_TRACE(scenario.name + ", point " + std::to_string(n) + (persistent ? " and all after it" : ""));
  const sqlite3_int64 usedBefore = sqlite3_memory_used();
  KitWork work;
  Prepare(scenario, work);
  fFaults.Arm(n, persistent);
  const Outcome outcome = OutcomeOf([&] { scenario.run(work); });
  CopyWithJournal(fPath, fAbandoned);
  fFaults.Disarm();
  EXPECT_TRUE(fFaults.HasFailed());
  ++fPoints;
  if (outcome == Outcome::kDone) ++fSurvived;
  if (outcome == Outcome::kOther) {
    ++fStrangers;
    ADD_FAILURE() << "an exception of another kind, or a wrong answer";
  }
  LookForLeftovers(work);
  const std::string after =
      scenario.goesOn && outcome == Outcome::kDone ? WithRows(fBefore, work.written) : undisturbed.contents;
  const std::string contents = ContentsOf(fPath);
  JudgeContents(contents, outcome, after);
  JudgeContents(ContentsOf(fAbandoned), outcome, after);
  if (work.database && !IsSound(work)) {
    ++fLost;
    ADD_FAILURE() << "what it wrote later was lost";
  }
  if (outcome != Outcome::kDone && contents == fBefore) Repeat(scenario, work, undisturbed.contents);
  if (!CloseDatabase(work)) {
    ++fRefusedCloses;
    ADD_FAILURE() << "SQLite refuses to close";
  }
  if (sqlite3_memory_used() != usedBefore) {
    ++fLeaks;
    ADD_FAILURE() << "SQLite's memory leaks";
  }
}

void KitFaults::LookForLeftovers(KitWork& work) {
  std::string found = LeftBehind(work);
  if (!CanBeLocked(fPath)) found += " a lock";
  if (found.empty()) return;
  ++fLeftBehind;
  ADD_FAILURE() << "left behind:" << found;
}

bool KitFaults::IsSound(KitWork& work) {
  support::OtherConnection other(fPath);
  const auto seen = [&] { return other.Run("SELECT COUNT(*) FROM log WHERE id = 1000000"); };
  const Outcome outcome = OutcomeOf([&] {
    work.database->Execute("INSERT INTO log VALUES (?, ?)", 1000000, 0);
    sqldb::kit::Transaction(*work.database).Commit();
  });
  const bool isThere = seen() == std::vector<std::string>{"1"};
  const Outcome undone = OutcomeOf([&] {
    sqldb::kit::InTransaction(*work.database, [&] { work.database->Execute("DELETE FROM log WHERE id = ?", 1000000); });
  });
  const bool isGone = seen() == std::vector<std::string>{"0"};
  return outcome == Outcome::kDone && undone == Outcome::kDone && isThere && isGone;
}

void KitFaults::JudgeContents(const std::string& contents, Outcome outcome, const std::string& after) {
  if (contents.rfind("damaged", 0) == 0) ++fDamaged;
  if (contents != fBefore && contents != after) {
    ++fPartial;
    ADD_FAILURE() << "a part of it was done:\n" << contents;
  }
  if (outcome == Outcome::kDone && contents != after) {
    ++fLost;
    ADD_FAILURE() << "it was lost";
  }
}

void KitFaults::Repeat(const KitScenario& scenario, KitWork& work, const std::string& after) {
  if (scenario.opens) work.database.reset();
  const Outcome outcome = OutcomeOf([&] { scenario.run(work); });
  if (outcome == Outcome::kDone && ContentsOf(fPath) == after) return;
  ++fUnusable;
  ADD_FAILURE() << "it cannot be repeated";
}

void KitFaults::ExpectHarmless(const char* name, int fewestPoints, int fewestScenarios) const {
  std::printf(
      "%s, the kit: %d points (%d without effect) in %d scenarios, %d left behind, %d leaked, %d closes refused, "
      "%d foreign exceptions, %d damaged, %d partial, %d acknowledged but lost, %d objects unusable\n",
      name, fPoints, fSurvived, fScenarios, fLeftBehind, fLeaks, fRefusedCloses, fStrangers, fDamaged, fPartial, fLost,
      fUnusable);
  EXPECT_GE(fPoints, fewestPoints);
  EXPECT_GE(fScenarios, fewestScenarios);
  EXPECT_EQ(fLeftBehind + fLeaks + fRefusedCloses + fStrangers + fDamaged + fPartial + fLost + fUnusable, 0);
}

}  // namespace faults
