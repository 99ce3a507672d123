#include "sqldb/kit/migrations.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kit_test.h"
#include "sqldb/database.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/transaction.h"
#include "support/temporary_folder.h"

namespace {

using kit_test::ExpectThrown;
using kit_test::ThrownBy;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using sqldb::kit::ConversionError;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::ForeignKeys;
using sqldb::kit::Migrations;
using sqldb::kit::MigrationStep;
using sqldb::kit::Options;
using sqldb::kit::Transaction;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Migrations PartsWithNames() {
  return Migrations()
      .Add("parts", "CREATE TABLE parts (id INTEGER PRIMARY KEY); INSERT INTO parts VALUES (1)")
      .Add("names", [](Database& database) { database.Execute("ALTER TABLE parts ADD COLUMN name TEXT"); })
      .Add("numbered", "UPDATE parts SET name = 'part ' || id");
}

class MigrationsTest : public ::testing::Test {
 protected:
  int Version() { return fDatabase.One<int>("PRAGMA user_version"); }
  std::vector<std::string> Tables() {
    return fDatabase.All<std::string>("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name");
  }

  Database fDatabase{":memory:"};
};

TEST_F(MigrationsTest, AnEmptyFileTakesAllStepsInTheirOrder) {
  EXPECT_EQ(PartsWithNames().Run(fDatabase), 3);
  EXPECT_EQ(Version(), 3);
  EXPECT_EQ(fDatabase.One<std::string>("SELECT name FROM parts"), "part 1");
}

TEST_F(MigrationsTest, AnOlderFileTakesTheStepsThatItHasNotBehindIt) {
  fDatabase.ExecuteScript("CREATE TABLE parts (id); INSERT INTO parts VALUES (7); PRAGMA user_version = 1");
  EXPECT_EQ(PartsWithNames().Run(fDatabase), 2);
  EXPECT_EQ(fDatabase.One<std::string>("SELECT name FROM parts"), "part 7");
}

TEST_F(MigrationsTest, ANewFileIsLeftAlone) {
  const Migrations migrations = PartsWithNames();
  migrations.Run(fDatabase);
  const auto before = fDatabase.One<std::int64_t>("SELECT total_changes()");
  EXPECT_EQ(migrations.Run(fDatabase), 0);
  EXPECT_EQ(fDatabase.One<std::int64_t>("SELECT total_changes()"), before);
  Database other(":memory:");
  EXPECT_EQ(migrations.Run(other), 3);
}

TEST_F(MigrationsTest, WithoutStepsThereIsNothingToDo) { EXPECT_EQ(Migrations().Run(fDatabase), 0); }

TEST_F(MigrationsTest, EachStepIsReportedBeforeItIsTaken) {
  std::vector<std::string> reports;
  PartsWithNames().Run(fDatabase, [&](const MigrationStep& step) {
    reports.push_back(std::to_string(step.number) + "/" + std::to_string(step.count) + " " + step.name + " from " +
                      std::to_string(Version()));
  });
  EXPECT_THAT(reports, ElementsAre("1/3 parts from 0", "2/3 names from 1", "3/3 numbered from 2"));
}

TEST_F(MigrationsTest, WhatAReportThrowsEndsTheWork) {
  const auto stop = [](const MigrationStep& step) {
    if (step.number == 2) throw std::domain_error("enough");
  };
  ExpectThrown<std::domain_error>([&] { PartsWithNames().Run(fDatabase, stop); });
  EXPECT_EQ(Version(), 1);
  EXPECT_EQ(PartsWithNames().Run(fDatabase), 2);
}

TEST_F(MigrationsTest, AFailedStepLeavesTheFileAsItWasBeforeIt) {
  Migrations migrations = PartsWithNames();
  migrations.Add("broken", "CREATE TABLE kinds (id); UPDATE parts SET name = 'x'; INSERT INTO none VALUES (1)");
  const Error error = ThrownBy([&] { migrations.Run(fDatabase); });
  EXPECT_EQ(error.Message(), "step 4, broken: no such table: none");
  EXPECT_EQ(error.Code(), SQLITE_ERROR);
  EXPECT_EQ(error.Sql(), " INSERT INTO none VALUES (1)");
  EXPECT_EQ(Version(), 3);
  EXPECT_THAT(Tables(), ElementsAre("parts"));
  EXPECT_EQ(fDatabase.One<std::string>("SELECT name FROM parts"), "part 1");
}

Migrations WithSecond(Migrations::Action action) {
  return Migrations().Add("first", "CREATE TABLE t (a UNIQUE)").Add("second", std::move(action));
}

TEST_F(MigrationsTest, AFailureKeepsItsClass) {
  const auto insertTwice = [](Database& database) { database.ExecuteScript("INSERT INTO t VALUES (1), (1)"); };
  const auto constraint = ThrownBy<ConstraintError>([&] { WithSecond(insertTwice).Run(fDatabase); });
  EXPECT_EQ(constraint.Message(), "step 2, second: UNIQUE constraint failed: t.a");
  EXPECT_EQ(constraint.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  const auto readText = [](Database& database) { database.One<int>("SELECT 'x' AS a"); };
  EXPECT_EQ(ThrownBy<ConversionError>([&] { WithSecond(readText).Run(fDatabase); }).Message(),
            "step 2, second: column a has a text, which cannot be read as an integer");
  const auto meetLock = [](Database&) { throw BusyError("database is locked", SQLITE_BUSY_SNAPSHOT); };
  const auto busy = ThrownBy<BusyError>([&] { WithSecond(meetLock).Run(fDatabase); });
  EXPECT_EQ(busy.Message(), "step 2, second: database is locked");
  EXPECT_EQ(busy.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
}

TEST_F(MigrationsTest, WhatIsNoErrorPassesAsItIs) {
  const auto fail = [](Database&) { throw std::domain_error("own"); };
  ExpectThrown<std::domain_error>([&] { WithSecond(fail).Run(fDatabase); });
  EXPECT_EQ(Version(), 1);
}

TEST_F(MigrationsTest, AStepThatEndsItsTransactionFails) {
  for (const char* const end : {"COMMIT", "ROLLBACK"}) {
    ThrownBy([&] { Migrations().Add("kinds", std::string("CREATE TABLE kinds (id); ") + end).Run(fDatabase); });
    EXPECT_EQ(Version(), 0);
    EXPECT_THAT(Tables(), IsEmpty());
  }
}

TEST_F(MigrationsTest, AStepThatEndsItsTransactionByTheCoreFails) {
  for (const bool isCommitted : {false, true}) {
    const auto end = [&](Database& database) { database.Core().EndTransaction(isCommitted, false); };
    const Error error = ThrownBy([&] { Migrations().Add("ended", end).Run(fDatabase); });
    EXPECT_EQ(error.Message(), "step 1, ended: its transaction has ended, or a part of it has not");
    EXPECT_EQ(error.Code(), SQLITE_ABORT);
    EXPECT_EQ(Version(), 0);
  }
}

TEST_F(MigrationsTest, AStepThatLeavesALevelOfTheCoreOpenFails) {
  const auto begin = [](Database& database) { database.Core().BeginTransaction(); };
  EXPECT_EQ(ThrownBy([&] { Migrations().Add("open", begin).Run(fDatabase); }).Message(),
            "step 1, open: its transaction has ended, or a part of it has not");
  EXPECT_EQ(Version(), 0);
}

TEST_F(MigrationsTest, AStepThatClosesTheDatabaseFails) {
  for (const ForeignKeys foreignKeys : {ForeignKeys::kAsTheyAre, ForeignKeys::kOff}) {
    Database database(":memory:");
    const auto close = [](Database& closed) { closed.Close(); };
    ThrownBy([&] { Migrations().Add("closed", close, foreignKeys).Run(database); });
  }
}

TEST_F(MigrationsTest, AFailureKeepsTheNumberOfItsRecord) {
  const auto fail = [](Database&) {
    Error error("failed", SQLITE_ERROR);
    error.SetRecord(7, 3);
    throw error;
  };
  const Error error = ThrownBy([&] { Migrations().Add("first", fail).Run(fDatabase); });
  EXPECT_EQ(error.Record(), 7U);
  EXPECT_EQ(error.Written(), 3U);
}

TEST_F(MigrationsTest, AFileOfAnotherVersionIsRefusedAndBothAreNamed) {
  fDatabase.ExecuteScript("PRAGMA user_version = 4");
  const Error error = ThrownBy([&] { PartsWithNames().Run(fDatabase); });
  EXPECT_EQ(error.Message(), "The file has version 4, and the program knows those up to 3.");
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  fDatabase.ExecuteScript("PRAGMA user_version = -1");
  EXPECT_EQ(ThrownBy([&] { PartsWithNames().Run(fDatabase); }).Message(),
            "The file has version -1, and the program knows those up to 3.");
  EXPECT_THAT(Tables(), IsEmpty());
}

TEST_F(MigrationsTest, AnOpenTransactionIsRefused) {
  {
    const Transaction transaction(fDatabase);
    const Error error = ThrownBy([&] { PartsWithNames().Run(fDatabase); });
    EXPECT_EQ(error.Message(), "Migrations begin transactions of their own, and one is open.");
    EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  }
  fDatabase.ExecuteScript("BEGIN");
  ThrownBy([&] { PartsWithNames().Run(fDatabase); });
}

// --- References ------------------------------------------------------------------------------------------------------

class ReferencesTest : public MigrationsTest {
 protected:
  ReferencesTest() {
    Before().Run(fDatabase);
    fDatabase.ExecuteScript("INSERT INTO kinds VALUES (1); INSERT INTO parts VALUES (1, 1)");
  }
  static Migrations Before() {
    return Migrations().Add("tables",
                            "CREATE TABLE kinds (id INTEGER PRIMARY KEY);"
                            "CREATE TABLE parts (id INTEGER PRIMARY KEY, kind REFERENCES kinds ON DELETE CASCADE)");
  }
  bool AreEnforced() { return fDatabase.One<bool>("PRAGMA foreign_keys"); }
};

constexpr char kKindsAnew[] =
    "CREATE TABLE new_kinds (id INTEGER PRIMARY KEY, name TEXT);"
    "INSERT INTO new_kinds SELECT id, 'kind ' || id FROM kinds;"
    "DROP TABLE kinds; ALTER TABLE new_kinds RENAME TO kinds";

TEST_F(ReferencesTest, ATableIsMadeAnewWithoutForeignKeys) {
  Before().Add("names of kinds", kKindsAnew, ForeignKeys::kOff).Run(fDatabase);
  EXPECT_EQ(fDatabase.One<std::string>("SELECT name FROM parts JOIN kinds ON kinds.id = kind"), "kind 1");
  EXPECT_TRUE(AreEnforced());
}

TEST_F(ReferencesTest, TheyAreEnforcedInAllOtherSteps) {
  Before().Add("names of kinds", kKindsAnew).Run(fDatabase);
  EXPECT_EQ(fDatabase.One<int>("SELECT COUNT(*) FROM parts"), 0);
}

TEST_F(ReferencesTest, TheyAreEnforcedAgainAfterAStepThatFails) {
  ThrownBy([&] { Before().Add("broken", "DELETE FROM none", ForeignKeys::kOff).Run(fDatabase); });
  EXPECT_TRUE(AreEnforced());
}

TEST_F(ReferencesTest, WhereTheyAreOffTheyStayOff) {
  fDatabase.ExecuteScript("PRAGMA foreign_keys = OFF");
  Before().Add("names of kinds", kKindsAnew, ForeignKeys::kOff).Run(fDatabase);
  EXPECT_FALSE(AreEnforced());
}

TEST_F(ReferencesTest, TheyAreEnforcedAgainAfterAStepThatMovesTheDatabase) {
  std::optional<Database> other;
  const auto move = [&](Database& database) { other.emplace(std::move(database)); };
  ThrownBy([&] { Before().Add("moved", move, ForeignKeys::kOff).Run(fDatabase); });
  EXPECT_TRUE(other.value().One<bool>("PRAGMA foreign_keys"));
}

TEST_F(ReferencesTest, ARowThatRefersToNoneFailsItsStep) {
  const auto error = ThrownBy<ConstraintError>(
      [&] { Before().Add("no kinds", "DELETE FROM kinds", ForeignKeys::kOff).Run(fDatabase); });
  EXPECT_EQ(error.Message(), "step 2, no kinds: a row of parts refers to one that is not in kinds");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_FOREIGNKEY);
  EXPECT_EQ(fDatabase.One<int>("SELECT COUNT(*) FROM kinds"), 1);
  EXPECT_EQ(Version(), 1);
}

// --- Several at once -------------------------------------------------------------------------------------------------

class SharedFileTest : public ::testing::Test {
 protected:
  std::string File() const { return fFolder.Path("t.db"); }

  support::TemporaryFolder fFolder;
};

TEST_F(SharedFileTest, EachStepIsTakenByOneOfThem) {
  Options options;
  options.busyTimeout = 60000;
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Database database(File(), options);
      taken += PartsWithNames().Run(database);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, 3);
  EXPECT_EQ(Database(File()).One<int>("SELECT COUNT(*) FROM parts"), 1);
}

TEST_F(SharedFileTest, AStepThatAnotherOneTakesMeanwhileIsNotTakenAgain) {
  Options options;
  options.busyTimeout = 60000;
  Database other(File(), options);
  other.ExecuteScript("BEGIN IMMEDIATE; CREATE TABLE parts (id); PRAGMA user_version = 1");
  std::vector<int> reported;
  std::thread waiting([&] {
    Database database(File(), options);
    EXPECT_EQ(PartsWithNames().Run(database, [&](const MigrationStep& step) { reported.push_back(step.number); }), 2);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  other.ExecuteScript("COMMIT");
  waiting.join();
  EXPECT_THAT(reported, ElementsAre(2, 3));
}

TEST_F(SharedFileTest, WhoHasWaitedForTooLongIsTold) {
  Database other(File());
  other.ExecuteScript("BEGIN IMMEDIATE");
  Options options;
  options.busyTimeout = 20;
  Database database(File(), options);
  ExpectThrown<BusyError>([&] { PartsWithNames().Run(database); });
}

}  // namespace
