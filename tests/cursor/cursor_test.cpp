#include "sqldb/cursor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "support/call_recorder.h"
#include "support/crowd.h"
#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using sqldb::SQLCursorBase;
using support::CallRecorder;
using support::InMemoryOrder;
using support::MakeColumn;
using support::MessageOf;
using support::VirtualSlot;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The counter as the program found it, before any test could make a cursor.
const std::int32_t kSerialNumberAtStart = SQLCursorBase::sfCursorSerialNumber;

// Puts the process-wide counter back at the end of the test.
class SerialNumberGuard {
 public:
  SerialNumberGuard() = default;
  ~SerialNumberGuard() { SQLCursorBase::sfCursorSerialNumber = fSaved; }
  SerialNumberGuard(const SerialNumberGuard&) = delete;
  SerialNumberGuard& operator=(const SerialNumberGuard&) = delete;

 private:
  std::int32_t fSaved = SQLCursorBase::sfCursorSerialNumber;
};

// Notes every row, and goes on until a given number of them was seen.
class NotingCallback : public sqldb::QueryCallback {
 public:
  NotingCallback(CallRecorder& recorder, int rows) : fRecorder(recorder), fRows(rows) {}
  bool ProcessRow(sqlite3_stmt* statement) override {
    CallRecorder::Pause pause;
    fRecorder.Note("row " + std::to_string(sqlite3_column_int(statement, 0)));
    return --fRows > 0;
  }

 private:
  CallRecorder& fRecorder;
  int fRows;
};

class NotingBinding : public sqldb::BindingCallback {
 public:
  explicit NotingBinding(CallRecorder& recorder) : fRecorder(recorder) {}
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    fRecorder.Note(statement != nullptr ? "binding" : "binding null");
  }

 private:
  CallRecorder& fRecorder;
};

// Notes what its ProcessRow and PrepareToQuery are given.
class NotingCursor : public SQLCursorBase {
 public:
  NotingCursor(sqldb::SQLDatabase* database, std::vector<std::string>& notes)
      : SQLCursorBase(database), fNotes(notes) {}
  bool ProcessRow(sqlite3_stmt* statement) override {
    fNotes.push_back("row " + std::to_string(sqlite3_column_int(statement, 0)));
    return true;
  }
  void PrepareToQuery(const std::string& sql) override { fNotes.push_back("prepare " + sql); }

 private:
  std::vector<std::string>& fNotes;
};

// Copies the database's cursor list at the moment of its destruction.
class WitnessColumn : public sqldb::SQLColumnBase {
 public:
  WitnessColumn(const sqldb::SQLDatabase& database, std::vector<SQLCursorBase*>& seen)
      : SQLColumnBase(nullptr, "w", "INTEGER", 4, true, false, false, ""), fListed(database.fCursors), fSeen(seen) {}
  ~WitnessColumn() override { fSeen = fListed; }

 private:
  const std::vector<SQLCursorBase*>& fListed;
  std::vector<SQLCursorBase*>& fSeen;
};

// Keeps a cursor alive for as long as the column lives.
class HoldingColumn : public sqldb::SQLColumnBase {
 public:
  explicit HoldingColumn(boost::shared_ptr<SQLCursorBase> cursor)
      : SQLColumnBase(nullptr, "h", "INTEGER", 4, true, false, false, ""), fCursor(std::move(cursor)) {}

 private:
  boost::shared_ptr<SQLCursorBase> fCursor;
};

class CursorTest : public support::DatabaseTest {
 protected:
  CursorTest() { MakeTable("t", {"a"}); }

  // Not a member: its destructor may throw, that of a test must not.
  const std::unique_ptr<SQLCursorBase> fOwned = std::make_unique<SQLCursorBase>(&fDatabase);
  SQLCursorBase& fCursor = *fOwned;
};

TEST_F(CursorTest, MembersHaveTheirTypes) {
  static_assert(
      std::is_same_v<decltype(SQLCursorBase::fColumns), std::vector<boost::shared_ptr<sqldb::SQLColumnBase>>>);
  static_assert(std::is_same_v<decltype(SQLCursorBase::fDatabase), sqldb::SQLDatabase*>);
  static_assert(std::is_same_v<decltype(SQLCursorBase::fSerialNumber), std::int32_t>);
  static_assert(std::is_same_v<decltype(SQLCursorBase::sfCursorSerialNumber), std::int32_t>);
  EXPECT_TRUE(InMemoryOrder(fCursor.fColumns, fCursor.fDatabase, fCursor.fSerialNumber));
}

TEST_F(CursorTest, IsPolymorphicAndNotCopyable) {
  static_assert(std::has_virtual_destructor_v<SQLCursorBase>);
  static_assert(!std::is_abstract_v<SQLCursorBase>);
  static_assert(!std::is_copy_constructible_v<SQLCursorBase>);
  static_assert(!std::is_copy_assignable_v<SQLCursorBase>);
  static_assert(!std::is_move_constructible_v<SQLCursorBase>);
  // Without a base class: the first member follows the pointer to the virtual functions.
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&fCursor.fColumns),
            reinterpret_cast<std::uintptr_t>(&fCursor) + sizeof(void*));
}

TEST_F(CursorTest, TheDestructorMayThrow) { static_assert(!std::is_nothrow_destructible_v<SQLCursorBase>); }

#if defined(__x86_64__)
TEST_F(CursorTest, ProcessRowAndPrepareToQueryFollowTheTwoDestructors) {
  EXPECT_EQ(VirtualSlot(&SQLCursorBase::ProcessRow), 2);
  EXPECT_EQ(VirtualSlot(&SQLCursorBase::PrepareToQuery), 3);
}

TEST_F(CursorTest, SendQueryIsNotVirtual) { EXPECT_EQ(VirtualSlot(&SQLCursorBase::SendQuery), -1); }
#endif

TEST_F(CursorTest, StartsWithoutColumnsOnItsDatabase) {
  EXPECT_THAT(fCursor.fColumns, IsEmpty());
  EXPECT_EQ(fCursor.fDatabase, &fDatabase);
}

TEST_F(CursorTest, ConstructionAndDestructionCallNothing) {
  CallRecorder recorder;
  { SQLCursorBase cursor(&fDatabase); }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(CursorTest, TheBaseWantsNoMoreRows) { EXPECT_FALSE(fCursor.ProcessRow(nullptr)); }

TEST_F(CursorTest, TheBasePreparesNothing) {
  CallRecorder recorder;
  fCursor.PrepareToQuery("this is not SQL");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_EQ(sqlite3_next_stmt(fDatabase.fConnection, nullptr), nullptr);
}

// Serial numbers ------------------------------------------------------------------------------------------------------

TEST(CursorSerialNumberTest, TheCounterStartsAtZero) { EXPECT_EQ(kSerialNumberAtStart, 0); }

TEST(CursorSerialNumberTest, TheFirstCursorGetsOne) {
  const SerialNumberGuard guard;
  SQLCursorBase::sfCursorSerialNumber = kSerialNumberAtStart;
  sqldb::SQLDatabase database("unopened", false);
  EXPECT_EQ(SQLCursorBase(&database).fSerialNumber, 1);
}

TEST_F(CursorTest, NumbersAreConsecutive) {
  const std::int32_t before = SQLCursorBase::sfCursorSerialNumber;
  const SQLCursorBase first(&fDatabase);
  const SQLCursorBase second(&fDatabase);
  EXPECT_EQ(first.fSerialNumber, before + 1);
  EXPECT_EQ(second.fSerialNumber, before + 2);
}

TEST_F(CursorTest, TheCounterHoldsTheNumberGivenLast) {
  const SQLCursorBase cursor(&fDatabase);
  EXPECT_EQ(SQLCursorBase::sfCursorSerialNumber, cursor.fSerialNumber);
}

TEST_F(CursorTest, NumbersGoOnAcrossDatabases) {
  sqldb::SQLDatabase other("unopened", false);
  const SQLCursorBase first(&fDatabase);
  const SQLCursorBase second(&other);
  const SQLCursorBase third(&fDatabase);
  EXPECT_EQ(second.fSerialNumber, first.fSerialNumber + 1);
  EXPECT_EQ(third.fSerialNumber, first.fSerialNumber + 2);
}

TEST_F(CursorTest, ANumberIsNotUsedAgainAfterItsCursor) {
  const std::int32_t gone = SQLCursorBase(&fDatabase).fSerialNumber;
  EXPECT_EQ(SQLCursorBase(&fDatabase).fSerialNumber, gone + 1);
}

TEST_F(CursorTest, StepCursorsAreNumberedWithTheOthers) {
  const sqldb::SQLStepCursor<std::uint32_t> stepCursor(&fDatabase, sqldb::OffsetSpec());
  EXPECT_EQ(stepCursor.fSerialNumber, fCursor.fSerialNumber + 1);
}

TEST_F(CursorTest, TheCounterWrapsAfterTheLargestNumber) {
  const SerialNumberGuard guard;
  SQLCursorBase::sfCursorSerialNumber = std::numeric_limits<std::int32_t>::max() - 1;
  EXPECT_EQ(SQLCursorBase(&fDatabase).fSerialNumber, std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(SQLCursorBase(&fDatabase).fSerialNumber, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(SQLCursorBase::sfCursorSerialNumber, std::numeric_limits<std::int32_t>::min());
}

TEST_F(CursorTest, TheCounterPassesZeroFromBelow) {
  const SerialNumberGuard guard;
  SQLCursorBase::sfCursorSerialNumber = -1;
  EXPECT_EQ(SQLCursorBase(&fDatabase).fSerialNumber, 0);
  EXPECT_EQ(SQLCursorBase(&fDatabase).fSerialNumber, 1);
}

TEST_F(CursorTest, ThreadsWithADatabaseEachNeverGiveTheSameNumber) {
  const SerialNumberGuard guard;
  SQLCursorBase::sfCursorSerialNumber = 6;
  const std::vector<std::int32_t> given = support::DrawnInCrowd([] {
    thread_local sqldb::SQLDatabase database("unopened", false);
    return SQLCursorBase(&database).fSerialNumber;
  });
  EXPECT_EQ(std::adjacent_find(given.begin(), given.end()), given.end());
  EXPECT_EQ(given.front(), 7);
  EXPECT_EQ(given.back(), 200006);
  EXPECT_EQ(SQLCursorBase::sfCursorSerialNumber, 200006);
}

// The database's list -------------------------------------------------------------------------------------------------

TEST_F(CursorTest, CursorsAreListedInOrderOfConstruction) {
  SQLCursorBase second(&fDatabase);
  sqldb::SQLStepCursor<std::uint32_t> third(&fDatabase, sqldb::OffsetSpec());
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor, &second, &third));
}

TEST_F(CursorTest, TheSecondOfThreeLeavesTheOthersInOrder) {
  auto second = std::make_unique<SQLCursorBase>(&fDatabase);
  SQLCursorBase third(&fDatabase);
  second.reset();
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor, &third));
}

TEST_F(CursorTest, TheFirstOfThreeLeavesTheOthersInOrder) {
  auto first = std::make_unique<SQLCursorBase>(&fDatabase);
  SQLCursorBase second(&fDatabase);
  SQLCursorBase third(&fDatabase);
  first.reset();
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor, &second, &third));
}

TEST_F(CursorTest, ACursorIsListedWithItsOwnDatabaseOnly) {
  sqldb::SQLDatabase other("unopened", false);
  SQLCursorBase cursor(&other);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor));
  EXPECT_THAT(other.fCursors, ElementsAre(&cursor));
}

TEST_F(CursorTest, RemovalTakesTheFirstEntryThatMatches) {
  SQLCursorBase second(&fDatabase);
  fDatabase.fCursors.push_back(&fCursor);
  fDatabase.RemoveCursor(&fCursor);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&second, &fCursor));
}

TEST_F(CursorTest, RemovalOfACursorThatIsNotListedTakesTheLastEntry) {
  sqldb::SQLDatabase other("unopened", false);
  SQLCursorBase stranger(&other);
  SQLCursorBase second(&fDatabase);
  fDatabase.RemoveCursor(&stranger);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor));
  fDatabase.fCursors.push_back(&second);
}

TEST_F(CursorTest, RemovalFromAnEmptyListDoesNothing) {
  sqldb::SQLDatabase other("unopened", false);
  other.RemoveCursor(&fCursor);
  EXPECT_THAT(other.fCursors, IsEmpty());
}

TEST_F(CursorTest, RemovalDoesNothingWhileTheDatabaseIsBeingDestroyed) {
  fDatabase.fDestroying = true;
  fDatabase.RemoveCursor(&fCursor);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor));
  fDatabase.fDestroying = false;
}

TEST_F(CursorTest, ACursorDestroyedWhileTheFlagIsSetStaysListed) {
  auto cursor = std::make_unique<SQLCursorBase>(&fDatabase);
  SQLCursorBase* const address = cursor.get();
  fDatabase.fDestroying = true;
  cursor.reset();
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&fCursor, address));
  fDatabase.fCursors.pop_back();
  fDatabase.fDestroying = false;
}

TEST_F(CursorTest, ACursorDestroyedByItsDatabasesDestructorEndsQuietly) {
  auto database = std::make_unique<sqldb::SQLDatabase>(fFolder.Path("other.db"), false);
  database->Open();
  auto cursor = boost::make_shared<SQLCursorBase>(database.get());
  const boost::weak_ptr<SQLCursorBase> watch = cursor;
  database->NewTable("t")->AddColumn(boost::make_shared<HoldingColumn>(std::move(cursor)));
  ASSERT_FALSE(watch.expired());
  EXPECT_NO_THROW(database.reset());
  EXPECT_TRUE(watch.expired());
}

TEST_F(CursorTest, ACursorMayOutliveItsDatabase) {
  auto database = std::make_unique<sqldb::SQLDatabase>("unopened", false);
  auto cursor = std::make_unique<SQLCursorBase>(database.get());
  database.reset();
  EXPECT_NO_THROW(cursor.reset());
}

TEST_F(CursorTest, TheColumnsAreReleasedWithTheCursorButNotDestroyedWhileShared) {
  auto own = MakeColumn("own");
  const auto shared = MakeColumn("shared");
  const boost::weak_ptr<sqldb::SQLColumnBase> watch = own;
  {
    SQLCursorBase cursor(&fDatabase);
    cursor.fColumns = {std::move(own), shared};
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(shared.use_count(), 2);
  }
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(shared.use_count(), 1);
}

TEST_F(CursorTest, TheListIsLeftBeforeTheColumnsAreReleased) {
  std::vector<SQLCursorBase*> seen;
  {
    SQLCursorBase cursor(&fDatabase);
    cursor.fColumns.push_back(boost::make_shared<WitnessColumn>(fDatabase, seen));
  }
  EXPECT_THAT(seen, ElementsAre(&fCursor));
}

// Selects -------------------------------------------------------------------------------------------------------------

class CursorSelectTest : public CursorTest {
 protected:
  CursorSelectTest() : fTable(fDatabase.GetTable("t")) {
    Rows("INSERT INTO t VALUES (1), (2), (3)");
    fSelect = fDatabase.NewSelect(fTable, 0);
    fSelect << fTable->GetColumn("a");
  }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
  std::vector<std::string> fNotes;
};

TEST_F(CursorSelectTest, ABareCursorGetsOneRowAndStopsTheQuery) {
  CallRecorder recorder;
  fSelect->PerformSelect(boost::make_shared<SQLCursorBase>(&fDatabase));
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 100", "finalize = 0"));
}

TEST_F(CursorSelectTest, ADerivedCursorGetsEveryRow) {
  fSelect->PerformSelect(boost::make_shared<NotingCursor>(&fDatabase, fNotes));
  EXPECT_THAT(fNotes, ElementsAre("row 1", "row 2", "row 3"));
}

TEST_F(CursorSelectTest, ADerivedCursorIsGivenTheTextWhenTheSelectIsPrepared) {
  const auto cursor = boost::make_shared<NotingCursor>(&fDatabase, fNotes);
  cursor->fColumns = {MakeColumn("stale"), MakeColumn("stale")};
  fSelect->PrepareSelect(cursor);
  EXPECT_THAT(fNotes, ElementsAre("prepare SELECT a FROM t"));
  EXPECT_EQ(cursor->fColumns, fSelect->fColumns);
}

// SendQuery -----------------------------------------------------------------------------------------------------------

class CursorQueryTest : public CursorTest {
 protected:
  CursorQueryTest() { Rows("INSERT INTO t VALUES (1), (2), (3)"); }

  std::string ErrorText() {
    CallRecorder::Pause pause;
    return sqlite3_errmsg(fDatabase.fConnection);
  }
  // Leaves a telling error text on the connection.
  void ProvokeError() {
    CallRecorder::Pause pause;
    sqlite3_exec(fDatabase.fConnection, "SELECT provoked", nullptr, nullptr, nullptr);
  }
  std::string MessageOfSending(const std::string& sql, sqldb::QueryCallback* callback = nullptr) {
    return MessageOf([&] { fCursor.SendQuery(sql, callback, nullptr); });
  }

  CallRecorder fRecorder;
};

TEST_F(CursorQueryTest, AnEmptyTextCallsNothing) {
  NotingCallback callback(fRecorder, 9);
  NotingBinding binding(fRecorder);
  fCursor.SendQuery("", &callback, &binding);
  EXPECT_THAT(fRecorder.Lines(), IsEmpty());
}

TEST_F(CursorQueryTest, TheStatementsOfATextRunOneAfterTheOther) {
  fCursor.SendQuery("INSERT INTO t VALUES (4);INSERT INTO t VALUES (5)", nullptr, nullptr);
  EXPECT_THAT(fRecorder.Lines(),
              ElementsAre("prepare 'INSERT INTO t VALUES (4);INSERT INTO t VALUES (5)' = 0", "step = 101",
                          "finalize = 0", "prepare 'INSERT INTO t VALUES (5)' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("SELECT a FROM t"), ElementsAre("1", "2", "3", "4", "5"));
}

TEST_F(CursorQueryTest, TheTextIsCompiledUpToItsTerminatorOnTheDatabasesConnection) {
  fCursor.SendQuery("SELECT 1", nullptr, nullptr);
  const support::Call prepare = fRecorder.CallsOf("prepare").at(0);
  EXPECT_EQ(prepare.number, -1);
  EXPECT_EQ(prepare.handle, fDatabase.fConnection);
}

TEST_F(CursorQueryTest, EachStatementIsOfferedToTheBindingBeforeItsFirstStep) {
  NotingCallback callback(fRecorder, 9);
  const NotingBinding binding(fRecorder);
  fCursor.SendQuery("SELECT 7;SELECT 8", &callback, const_cast<NotingBinding*>(&binding));
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 7;SELECT 8' = 0", "note binding", "step = 100",
                                             "note row 7", "step = 101", "finalize = 0", "prepare 'SELECT 8' = 0",
                                             "note binding", "step = 100", "note row 8", "step = 101", "finalize = 0"));
}

TEST_F(CursorQueryTest, ACallbackThatStopsEndsTheWholeText) {
  NotingCallback callback(fRecorder, 2);
  fCursor.SendQuery("SELECT a FROM t;SELECT 8", &callback, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT a FROM t;SELECT 8' = 0", "step = 100", "note row 1",
                                             "step = 100", "note row 2", "finalize = 0"));
}

TEST_F(CursorQueryTest, WithoutACallbackASelectIsSteppedOnce) {
  fCursor.SendQuery("SELECT a FROM t", nullptr, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 100", "finalize = 0"));
}

TEST_F(CursorQueryTest, TheCursorsOwnProcessRowIsNotAsked) {
  std::vector<std::string> notes;
  NotingCursor cursor(&fDatabase, notes);
  cursor.SendQuery("SELECT a FROM t", nullptr, nullptr);
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(CursorQueryTest, AStatementThatDoesNotCompileThrowsTheEnginesMessage) {
  EXPECT_EQ(MessageOfSending("SELECT nope FROM t"), "no such column: nope");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT nope FROM t' = 1", "errmsg"));
}

TEST_F(CursorQueryTest, AStatementThatFailsToStepIsLeftBehind) {
  const std::string message = MessageOfSending("SELECT abs(-9223372036854775808)");
  EXPECT_EQ(message, ErrorText());
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT abs(-9223372036854775808)' = 0", "step = 1", "errmsg"));
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(CursorQueryTest, AStatementThatFailsToFinalizeThrowsTheEnginesMessage) {
  ProvokeError();
  fRecorder.Force("finalize", 1);
  fRecorder.fAfterCall = [this](const support::Call& call) {
    if (call.function == "finalize") ProvokeError();
  };
  EXPECT_EQ(MessageOfSending("SELECT 1"), "no such column: provoked");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0", "step = 100", "finalize = 1", "errmsg"));
}

TEST_F(CursorQueryTest, OnlyOkRowAndDoneAreAcceptedFromAStep) {
  for (int code = 0; code <= 110; ++code) {
    fRecorder.Clear();
    fRecorder.Force("step", code);
    const bool accepted = code == 0 || code == 100 || code == 101;
    EXPECT_EQ(MessageOfSending("SELECT 1") == "(nothing thrown)", accepted) << code;
    EXPECT_EQ(fRecorder.Count("finalize"), accepted ? 1U : 0U) << code;
    EXPECT_EQ(fRecorder.Count("step"), 1U) << code;
  }
}

TEST_F(CursorQueryTest, OkEndsTheRowsLikeDone) {
  NotingCallback callback(fRecorder, 9);
  fRecorder.Force("step", 0, 1, 1);
  fCursor.SendQuery("SELECT a FROM t;SELECT 8", &callback, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT a FROM t;SELECT 8' = 0", "step = 100", "note row 1",
                                             "step = 0", "finalize = 0", "prepare 'SELECT 8' = 0", "step = 100",
                                             "note row 8", "step = 101", "finalize = 0"));
}

TEST_F(CursorQueryTest, ABusyFileIsNotWaitedFor) {
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  EXPECT_EQ(MessageOfSending("INSERT INTO t VALUES (4)"), "database is locked");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'INSERT INTO t VALUES (4)' = 0", "step = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(CursorQueryTest, ABlankAfterTheLastSemicolonIsAStatementThatCannotBeStepped) {
  const NotingBinding binding(fRecorder);
  EXPECT_THROW(fCursor.SendQuery("SELECT 1; ", nullptr, const_cast<NotingBinding*>(&binding)), std::runtime_error);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; ' = 0", "note binding", "step = 100", "finalize = 0",
                                             "prepare ' ' = 0", "note binding null", "step = 21", "errmsg"));
}

class ThrowingCallback : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt*) override { throw std::logic_error("the application's own"); }
};

class ThrowingBinding : public sqldb::BindingCallback {
 public:
  void BindingOpportunity(sqlite3_stmt*) const override { throw std::logic_error("the application's own"); }
};

TEST_F(CursorQueryTest, WhatTheCallbackThrowsPassesUnchangedAndTheStatementIsLeftBehind) {
  ThrowingCallback callback;
  EXPECT_THROW(fCursor.SendQuery("SELECT 1", &callback, nullptr), std::logic_error);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0", "step = 100"));
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(CursorQueryTest, WhatTheBindingThrowsPassesUnchangedAndTheStatementIsLeftBehind) {
  ThrowingBinding binding;
  EXPECT_THROW(fCursor.SendQuery("SELECT 1", nullptr, &binding), std::logic_error);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0"));
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(CursorQueryTest, TheConnectionIsReadOnceWhenTheCallBegins) {
  sqlite3* const connection = fDatabase.fConnection;
  fRecorder.fAfterCall = [this](const support::Call&) { fDatabase.fConnection = nullptr; };
  fCursor.SendQuery("SELECT 1;SELECT 2", nullptr, nullptr);
  fDatabase.fConnection = connection;
  for (const support::Call& call : fRecorder.CallsOf("prepare")) EXPECT_EQ(call.handle, connection);
  EXPECT_EQ(fRecorder.Count("prepare"), 2U);
}

TEST_F(CursorQueryTest, AnUnopenedDatabaseIsReportedAsTheEngineDoes) {
  sqldb::SQLDatabase unopened(fFolder.Path("unopened.db"), false);
  SQLCursorBase cursor(&unopened);
  EXPECT_EQ(MessageOf([&] { cursor.SendQuery("SELECT 1", nullptr, nullptr); }), "out of memory");
}

TEST_F(CursorQueryTest, AClosedConnectionIsNotGivenToTheEngineAgain) {
  sqldb::SQLDatabase closed(fFolder.Path("closed.db"), false);
  closed.Open();
  closed.Close();
  SQLCursorBase cursor(&closed);
  EXPECT_EQ(MessageOf([&] { cursor.SendQuery("SELECT 1", nullptr, nullptr); }), "out of memory");
  EXPECT_EQ(fRecorder.CallsOf("prepare").at(0).handle, nullptr);
}

TEST_F(CursorQueryTest, WithoutItsDatabaseACursorRefusesToSend) {
  auto database = std::make_unique<sqldb::SQLDatabase>("unopened", false);
  SQLCursorBase cursor(database.get());
  database.reset();
  EXPECT_EQ(MessageOf([&] { cursor.SendQuery("SELECT 1", nullptr, nullptr); }), "Condition is not met.");
  EXPECT_THAT(fRecorder.Lines(), IsEmpty());
}

// The two roads by which SQL is run must not differ.
class EitherRoadTest : public CursorQueryTest, public ::testing::WithParamInterface<const char*> {
 protected:
  // What one road does with the text: calls, rows, bindings and message.
  template <typename Road>
  std::vector<std::string> TraceOf(Road& road, int rows) {
    fRecorder.Clear();
    NotingCallback callback(fRecorder, rows);
    NotingBinding binding(fRecorder);
    Rows("SAVEPOINT before");
    const std::string message = MessageOf([&] { road.SendQuery(GetParam(), &callback, &binding); });
    support::FinalizeLeftovers(fDatabase.fConnection);
    Rows("ROLLBACK TO before");
    Rows("RELEASE before");
    std::vector<std::string> trace = fRecorder.Lines();
    trace.push_back(message);
    return trace;
  }
};

TEST_P(EitherRoadTest, ACursorRunsATextExactlyAsItsDatabaseDoes) {
  for (const int rows : {1, 2, 9}) EXPECT_EQ(TraceOf(fCursor, rows), TraceOf(fDatabase, rows));
}

INSTANTIATE_TEST_SUITE_P(Texts, EitherRoadTest,
                         ::testing::Values("", " ", ";", "-- comment", "SELECT a FROM t", "SELECT a FROM t;",
                                           "SELECT a FROM t; ", "SELECT a FROM t;SELECT 7;SELECT 8",
                                           "INSERT INTO t VALUES (9);SELECT a FROM t", "SELECT", "SELECT 1;nonsense",
                                           "SELECT abs(-9223372036854775808)",
                                           "SELECT CASE a WHEN 2 THEN abs(-9223372036854775808) ELSE a END FROM t"));

}  // namespace
