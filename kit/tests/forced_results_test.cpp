// What the kit makes of results that an SQLite in order does not give, or only another SQLite.

#include <cerrno>
#include <filesystem>
#include <new>
#include <vector>

#include <sqlite3.h>

#include "kit_test.h"
#include "sqldb/kit/leftovers.h"
#include "sqldb/kit/list.h"
#include "sqldb/kit/table.h"
#include "support/call_recorder.h"
#include "support/temporary_folder.h"

namespace {

using kit_test::Part;
using kit_test::ThrownBy;
using sqldb::kit::Access;
using sqldb::kit::BusyError;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::List;
using sqldb::kit::Options;
using support::CallRecorder;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class ForcedResultTest : public ::testing::Test {
 protected:
  std::string File() const { return fFolder.Path("t.db"); }
  Error OpeningFails(const Options& options = {}) const {
    return ThrownBy([&] { const Database database(File(), options); });
  }
  // Opens a database whose engine takes a key.
  Database OpenEncrypted(const Options& options) {
    fCalls.Force("exec", SQLITE_OK);
    return Database(File(), options);
  }

  support::TemporaryFolder fFolder;
  CallRecorder fCalls;
};

Options WithKey(const std::string& key) {
  Options options;
  options.key = key;
  return options;
}

// --- Opening ---------------------------------------------------------------------------------------------------------

TEST_F(ForcedResultTest, AnOpeningThatFailsWithoutAConnectionHasTheReasonOfItsCode) {
  fCalls.Force("open_v2", SQLITE_PERM);
  const Error error = OpeningFails();
  EXPECT_EQ(error.Message(), "'" + File() + "' cannot be opened: access permission denied");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_PERM);
}

TEST_F(ForcedResultTest, AnOpeningThatHasNoMemoryTellsSo) {
  fCalls.Force("open_v2", SQLITE_NOMEM);
  EXPECT_THROW(Database{File()}, std::bad_alloc);
  // For lists, which an older engine cannot have.
  if (sqlite3_libversion_number() >= 3020000) {
    fCalls.Force("create_module_v2", SQLITE_NOMEM);
    EXPECT_THROW(Database{File()}, std::bad_alloc);
  }
  fCalls.Force("column_text", SQLITE_NOMEM);
  EXPECT_THROW(Database{File()}, std::bad_alloc);
}

TEST_F(ForcedResultTest, AFileOfWhichNothingCanBeToldIsNotMade) {
  Options options;
  options.access = Access::kCreate;
  fCalls.Force("open_v2", SQLITE_IOERR);
  EXPECT_EQ(ThrownBy([&] { Database(File(), options); }).Code(), SQLITE_IOERR);
  // By which it is told that it is missing.
  fCalls.Force("open_v2", SQLITE_CANTOPEN);
  EXPECT_NO_THROW(Database(File(), options));
  fCalls.Force("open_v2", -ENOENT);
  EXPECT_NO_THROW(Database(fFolder.Path("other.db"), options));
}

TEST_F(ForcedResultTest, WhatHasNoNameIsNoFileThatIsThere) {
  Options options;
  options.access = Access::kCreate;
  fCalls.Force("db_filename", SQLITE_OK);
  EXPECT_EQ(Database(":memory:", options).One<int>("SELECT 1"), 1);
}

TEST_F(ForcedResultTest, AModuleThatIsLoadedLetsTheOpeningGoOnAndSqlStillLoadsNone) {
  Options options;
  options.module = "module";
  options.setUp = "CREATE TABLE t (a)";
  fCalls.Force("load_extension", SQLITE_OK);
  Database database(File(), options);
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 0);
  EXPECT_THROW(database.Execute("SELECT load_extension('none')"), Error);
}

TEST_F(ForcedResultTest, AModuleThatFailsWithoutAMessageHasThatOfItsCode) {
  Options options;
  options.module = "module";
  fCalls.Force("load_extension", SQLITE_PERM);
  EXPECT_THAT(std::string(OpeningFails(options).Message()),
              EndsWith("the module 'module' cannot be loaded: access permission denied"));
}

// --- Keys ------------------------------------------------------------------------------------------------------------

TEST_F(ForcedResultTest, AKeyIsSentBeforeAllElseAsOneText) {
  std::vector<std::string> sent;
  fCalls.fAfterCall = [&](const support::Call& call) {
    if (call.function != "step") return;
    const auto* const statement = static_cast<const sqlite3_stmt*>(call.handle);
    sent.emplace_back(sqlite3_sql(const_cast<sqlite3_stmt*>(statement)));
  };
  OpenEncrypted(WithKey("it's secret")).Execute("CREATE TABLE t (a)");
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent.front(), "PRAGMA key = 'it''s secret'");
}

TEST_F(ForcedResultTest, AKeyWithAZeroByteIsRefusedSinceItWouldBeCut) {
  const Error error = ThrownBy([&] { OpenEncrypted(WithKey(std::string("a\0b", 3))); });
  EXPECT_EQ(error.Message(), "'" + File() + "' cannot be opened: its key has a zero byte");
  EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(ForcedResultTest, AKeyThatIsRefusedIsNotTold) {
  fCalls.Force("step", SQLITE_PERM);
  const Error error = ThrownBy([&] { OpenEncrypted(WithKey("secret")); });
  EXPECT_EQ(error.Code(), SQLITE_PERM);
  EXPECT_THAT(error.what(), HasSubstr("'" + File() + "' cannot be opened: "));
  EXPECT_THAT(error.what(), Not(HasSubstr("secret")));
  EXPECT_EQ(error.Sql(), "");
}

TEST_F(ForcedResultTest, AFileThatCannotBeReadWithAKeyMayHaveAnother) {
  const auto why = [&](const Options& options) {
    fCalls.Force("step", SQLITE_NOTADB, 1, options.key.empty() ? 0 : 1);
    return std::string(ThrownBy([&] { OpenEncrypted(options); }).Message());
  };
  EXPECT_THAT(why(WithKey("a")), EndsWith(", or has another key"));
  EXPECT_THAT(why({}), Not(HasSubstr("key")));
  fCalls.Force("step", SQLITE_PERM, 1, 1);
  EXPECT_THAT(std::string(ThrownBy([&] { OpenEncrypted(WithKey("a")); }).Message()), Not(HasSubstr("key")));
}

TEST_F(ForcedResultTest, NoMemoryIsNotTakenForAnEngineWithoutEncryption) {
  fCalls.Force("exec", SQLITE_NOMEM);
  EXPECT_THROW(Database(File(), WithKey("a")), std::bad_alloc);
  fCalls.Force("open_v2", SQLITE_NOMEM);
  EXPECT_THROW(Database(File(), WithKey("a")), std::bad_alloc);
}

// --- Statements ------------------------------------------------------------------------------------------------------

TEST_F(ForcedResultTest, AResultIsToldAlsoIfTheConnectionKnowsNothingOfIt) {
  Database database(":memory:");
  fCalls.Force("step", SQLITE_CORRUPT);
  EXPECT_EQ(ThrownBy([&] { database.ExecuteScript("CREATE TABLE t (a)"); }).ExtendedCode(), SQLITE_CORRUPT);
}

TEST_F(ForcedResultTest, AStatementThatHasNoMemoryTellsSo) {
  Database database(":memory:");
  fCalls.Force("step", SQLITE_NOMEM);
  EXPECT_THROW(database.ExecuteScript("CREATE TABLE t (a)"), std::bad_alloc);
}

TEST_F(ForcedResultTest, WhatTheEngineIsTooOldForNamesTheVersionThatItNeeds) {
  Database database(":memory:");
  database.Execute("CREATE TABLE parts (id INTEGER PRIMARY KEY, name, price, note)");
  sqldb::kit::Table<Part> parts(database);
  fCalls.Force("libversion_number", 3015002, 100);
  const Error error = ThrownBy([&] { parts.Upsert(Part{}); });
  EXPECT_EQ(error.Message(), std::string("Upsert needs SQLite 3.24; this is ") + sqlite3_libversion() + ".");
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
}

TEST_F(ForcedResultTest, ThePausesGrowTo128MillisecondsAndAddUpToTheTimeout) {
  Options options;
  options.busyTimeout = 400;
  Database database(File(), options);
  database.Execute("CREATE TABLE t (a)");
  Database other(File());
  other.Execute("BEGIN IMMEDIATE");
  // For the next lock as for the first.
  for (int i = 0; i < 2; ++i) {
    fCalls.Clear();
    EXPECT_THROW(database.Execute("INSERT INTO t VALUES (1)"), BusyError);
    std::vector<int> pauses;
    for (const support::Call& call : fCalls.CallsOf("sleep")) pauses.push_back(call.result);
    EXPECT_THAT(pauses, ElementsAre(1, 2, 4, 8, 16, 32, 64, 128, 128, 17));
  }
}

TEST_F(ForcedResultTest, PausesThatLastLongerThanAskedForCountAsLongAsTheyLast) {
  Options options;
  options.busyTimeout = 2500;
  Database database(File(), options);
  database.Execute("CREATE TABLE t (a)");
  Database other(File());
  other.Execute("BEGIN IMMEDIATE");
  fCalls.Force("sleep", 1000, 100);
  EXPECT_THROW(database.Execute("INSERT INTO t VALUES (1)"), BusyError);
  EXPECT_EQ(fCalls.Count("sleep"), 3U);
}

TEST_F(ForcedResultTest, StatementsOfTheProgramDoNotWait) {
  Database database(File());
  database.Execute("CREATE TABLE t (a)");
  Database other(File());
  other.Execute("BEGIN IMMEDIATE");
  EXPECT_EQ(sqlite3_exec(database.Core().fConnection, "INSERT INTO t VALUES (1)", nullptr, nullptr, nullptr),
            SQLITE_BUSY);
  EXPECT_EQ(fCalls.Count("sleep"), 0U);
}

TEST_F(ForcedResultTest, ALeftoverWhoseEndSucceedsTellsNothing) {
  sqldb::SQLDatabase core(":memory:", false);
  core.Open();
  fCalls.Force("step", SQLITE_IOERR);
  EXPECT_THROW(core.SendQuery("CREATE TABLE t (a)", nullptr, nullptr), std::runtime_error);
  EXPECT_FALSE(sqldb::kit::ReleaseLeftovers(core));
}

// --- Lists -----------------------------------------------------------------------------------------------------------

#if SQLITE_VERSION_NUMBER >= 3020000

constexpr char kSum[] = "SELECT SUM(value) FROM list(?)";

TEST_F(ForcedResultTest, AListThatCannotBeDeclaredOrBoundIsAnErrorAndTheNextOneServes) {
  Database database(":memory:");
  const std::vector<int> values{1, 2};
  fCalls.Force("declare_vtab", SQLITE_NOMEM);
  EXPECT_THROW(database.One<int>(kSum, List(values)), std::bad_alloc);
  fCalls.Force("bind_pointer", SQLITE_RANGE);
  EXPECT_EQ(ThrownBy([&] { database.One<int>(kSum, List(values)); }).Code(), SQLITE_RANGE);
  EXPECT_EQ(database.One<int>(kSum, List(values)), 3);
}

#endif

}  // namespace
