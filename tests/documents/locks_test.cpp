// What docs/threads-and-locks.md and docs/reliability.md say about locks, leftovers, zero bytes and hostile texts.

#include <functional>
#include <memory>

#include <boost/make_shared.hpp>

#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using sqldb::OffsetSpec;
using sqldb::SQLDatabase;
using sqldb::SQLStepCursor;
using support::CallRecorder;
using support::MakeTerm;
using support::MakeValue;
using support::MessageOf;
using support::OtherConnection;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;

using Operation = std::function<void()>;

class LocksTest : public support::DatabaseTest {
 protected:
  LocksTest() : fTable(MakeTable("t", {"a", "b"})), fOther(DatabasePath()) {
    Rows("INSERT INTO t VALUES (1, 1), (1, 2), (2, 2)");
    fInsert = fTable->NewInsert();
    fInsert->fColumns = {fTable->GetColumn("a")};
    fInsert->fValues = {MakeValue("7")};
    fUpdate = fTable->NewUpdate();
    fUpdate->fColumns = fInsert->fColumns;
    fUpdate->fValues = fInsert->fValues;
    fUpdate->fTerm = MakeTerm(" 1");
    fSelect = fDatabase.NewSelect(fTable, 0);
    fSelect << fTable->GetColumn("a");
    OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    fCursor = boost::make_shared<SQLStepCursor<std::uint32_t>>(&fDatabase, offsets);
  }

  // What the other connection's lock keeps out. Every entry can be repeated.
  std::vector<Operation> Writes() {
    return {
        [this] { fDatabase.SendQuery("DELETE FROM t", nullptr, nullptr); },
        [this] { fTable->SendQuery("DELETE FROM t", nullptr, nullptr); },
        [this] { fCursor->SendQuery("DELETE FROM t", nullptr, nullptr); },
        [this] { fTable->Drop(); },
        [this] { fTable->CreateIndexForColumn("a"); },
        [this] { fDatabase.NewTable("u")->SendQuery("CREATE TABLE u (c)", nullptr, nullptr); },
        [this] { fInsert->PerformInsert(false); },
        [this] { fUpdate->PerformUpdate(false); },
        [this] { fTable->DeleteRecords(nullptr); },
    };
  }

  std::string Step() {
    return MessageOf([this] {
      std::uint32_t value = 0;
      fCursor->Step(value);
    });
  }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  boost::shared_ptr<sqldb::SQLUpdateClass> fUpdate;
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
  boost::shared_ptr<SQLStepCursor<std::uint32_t>> fCursor;
  OtherConnection fOther;
  CallRecorder fRecorder;
};

TEST_F(LocksTest, NoWriteWaitsForAnotherWriter) {
  fOther.Run("BEGIN IMMEDIATE");
  for (const Operation& write : Writes()) EXPECT_EQ(MessageOf(write), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
}

TEST_F(LocksTest, APerformedSelectDoesNotWaitForACommit) {
  fOther.Run("BEGIN EXCLUSIVE");
  EXPECT_EQ(MessageOf([this] { fSelect->PerformSelect(fCursor); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
}

TEST_F(LocksTest, ReadingDoesNotMindAWriterThatDoesNotCommitYet) {
  fOther.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
}

TEST_F(LocksTest, SteppingAndCountingAndAskingWait) {
  fOther.Run("BEGIN EXCLUSIVE");
  fSelect->PrepareSelect(fCursor);
  EXPECT_EQ(Step(), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 601u);
  EXPECT_EQ(MessageOf([this] { fTable->CountRecords(nullptr); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 1202u);
  EXPECT_EQ(MessageOf([this] { fTable->HasTerm(nullptr); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 1803u);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 180300000u);
}

TEST_F(LocksTest, WhatTakesNoLockPassesAnExclusiveOne) {
  fOther.Run("BEGIN EXCLUSIVE");
  support::ClogCapture quiet;
  fDatabase.fExplainLevel = 1;
  EXPECT_NO_THROW(fDatabase.ExplainQuery("DELETE FROM t"));
  EXPECT_NO_THROW(fDatabase.SetSynchronizationLevel(true));
  EXPECT_NO_THROW(fSelect->PrepareSelect(fCursor));
  EXPECT_NO_THROW(fDatabase.BeginTransaction());
  EXPECT_NO_THROW(fDatabase.EndTransaction(true, false));
  EXPECT_NO_THROW(fDatabase.BeginTransaction());
  EXPECT_NO_THROW(fDatabase.EndTransaction(false, false));
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
}

TEST_F(LocksTest, CompilingNeverWaitsOnAConnectionThatHasNotReadTheSchema) {
  fOther.Run("BEGIN EXCLUSIVE");
  SQLDatabase cold(DatabasePath(), false);
  cold.Open();
  const auto table = cold.NewTable("t");
  EXPECT_EQ(MessageOf([&] { table->CountRecords(nullptr); }), "database is locked");
  EXPECT_EQ(MessageOf([&] { cold.SendQuery("DELETE FROM t", nullptr, nullptr); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
  // Nothing is left behind.
  EXPECT_EQ(sqlite3_next_stmt(cold.fConnection, nullptr), nullptr);
}

TEST_F(LocksTest, ACommitThatMetAReaderLeavesSQLitesTransactionOpen) {
  fOther.Run("BEGIN; SELECT * FROM t");
  fDatabase.BeginTransaction();
  fTable->DeleteRecords(nullptr);
  EXPECT_EQ(MessageOf([this] { fDatabase.EndTransaction(true, false); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_TRUE(fDatabase.fTransactionOK);
  EXPECT_EQ(sqlite3_get_autocommit(fDatabase.fConnection), 0);
  support::FinalizeLeftovers(fDatabase.fConnection);
  EXPECT_NO_THROW(fDatabase.EndTransaction(false, true));
}

TEST_F(LocksTest, ATransactionThatBeganWithReadingCannotWriteWhileAnotherDoes) {
  fDatabase.SendQuery("PRAGMA busy_timeout = 60000", nullptr, nullptr);
  fDatabase.BeginTransaction();
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
  fOther.Run("BEGIN IMMEDIATE; DELETE FROM t");
  // SQLite does not wait: the other one could not commit before this one ends. Otherwise this would take a minute.
  EXPECT_EQ(MessageOf([this] { fTable->DeleteRecords(nullptr); }), "database is locked");
  support::FinalizeLeftovers(fDatabase.fConnection);
  fDatabase.EndTransaction(false, true);
}

TEST_F(LocksTest, DroppingATableUnderAReadingCursorFailsAtOnce) {
  fSelect->PrepareSelect(fCursor);
  EXPECT_EQ(Step(), "(nothing thrown)");
  EXPECT_EQ(MessageOf([this] { fTable->Drop(); }), support::LogicError());
  EXPECT_EQ(sqlite3_finalize(sqlite3_next_stmt(fDatabase.fConnection, nullptr)), SQLITE_LOCKED);
  EXPECT_STREQ(sqlite3_errmsg(fDatabase.fConnection), "database table is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
}

TEST_F(LocksTest, ACollationInUseIsNotReplaced) {
  const auto compare = [](void*, int, const void*, int, const void*) { return 0; };
  EXPECT_EQ(fDatabase.AddCollation("c", compare), SQLITE_OK);
  fSelect->PrepareSelect(fCursor);
  EXPECT_EQ(Step(), "(nothing thrown)");
  EXPECT_EQ(fDatabase.AddCollation("c", compare), SQLITE_BUSY);
}

TEST_F(LocksTest, TheSpecificMessageExistsOnlyOnceTheStatementIsFinalized) {
  Rows("CREATE UNIQUE INDEX u ON t (b, a)");
  EXPECT_EQ(MessageOf([this] { fDatabase.SendQuery("INSERT INTO t VALUES (2, 2)", nullptr, nullptr); }),
            support::LogicError());
  EXPECT_EQ(sqlite3_finalize(sqlite3_next_stmt(fDatabase.fConnection, nullptr)), SQLITE_CONSTRAINT);
  EXPECT_THAT(sqlite3_errmsg(fDatabase.fConnection),
              AnyOf(StrEq("UNIQUE constraint failed: t.b, t.a"), StrEq("columns b, a are not unique")));
}

TEST_F(LocksTest, AZeroByteCutsASentTextWhichRunsAllTheSame) {
  const std::string text = std::string(" a = 1") + '\0' + " AND b = 1";
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(MakeTerm(text)); }), "not an error");
  EXPECT_THAT(Rows("SELECT a, b FROM t"), ElementsAre("2|2"));
}

TEST_F(LocksTest, AZeroByteCutsASelectWithoutAnError) {
  fSelect->fTerm = MakeTerm(std::string(" a = 2") + '\0' + " AND b = 1");
  fSelect->PrepareSelect(fCursor);
  std::uint32_t value = 0;
  EXPECT_EQ(fCursor->Step(value), 0);
  EXPECT_EQ(value, 2u);
}

TEST_F(LocksTest, PrintedTextIsCode) {
  fInsert->fValues = {MakeValue("7 ); DELETE FROM t WHERE ( 1")};
  fInsert->PerformInsert(true);
  EXPECT_THAT(Rows("SELECT * FROM t"), IsEmpty());
}

TEST_F(LocksTest, NamesAreCode) {
  const auto table = fDatabase.NewTable("t; DROP TABLE t");
  EXPECT_EQ(MessageOf([&] { table->DeleteRecords(nullptr); }), "(nothing thrown)");
  EXPECT_THAT(Rows("SELECT name FROM sqlite_master"), IsEmpty());
}

// Its locks stay too, for as long as the process lives.
TEST_F(LocksTest, ADestroyedDatabaseWithLeftoversKeepsItsConnection) {
  auto second = std::make_unique<SQLDatabase>(DatabasePath(), false);
  second->Open();
  sqlite3* const connection = second->fConnection;
  const auto write = [&] { second->SendQuery("DELETE FROM t WHERE a = 2", nullptr, nullptr); };
  second->SendQuery("SELECT * FROM t", nullptr, nullptr);  // reads the schema
  fOther.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(MessageOf(write), "database is locked");
  fOther.Run("ROLLBACK");
  write();
  second.reset();
  EXPECT_EQ(fRecorder.CallsOf("close").back().result, SQLITE_BUSY);

  EXPECT_EQ(MessageOf([this] { fTable->DeleteRecords(nullptr); }), "database is locked");
  support::FinalizeLeftovers(fDatabase.fConnection);
  support::FinalizeLeftovers(connection);
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  EXPECT_NO_THROW(fTable->DeleteRecords(nullptr));
}

}  // namespace
