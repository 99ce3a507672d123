// What docs/threads-and-locks.md and docs/reliability.md say about statements that were left behind, and about a schema
// that has changed. What the kit does about them is tested in kit/tests/.

#include <functional>
#include <optional>

#include <boost/make_shared.hpp>

#include "sqldb/kit/leftovers.h"
#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using sqldb::OffsetSpec;
using sqldb::SQLDatabase;
using sqldb::SQLStepCursor;
using sqldb::kit::ReleaseLeftovers;
using support::CallRecorder;
using support::MakeValue;
using support::MessageOf;
using support::OtherConnection;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Rowids = std::vector<std::string>;
using Action = std::function<void()>;

// Throws on its first row.
class ThrowingCursor : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;
  bool ProcessRow(sqlite3_stmt*) override { throw std::runtime_error("of the callback"); }
};

class ThrowingCallback : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt*) override { throw std::runtime_error("of the callback"); }
};

class ThrowingBinding : public sqldb::BindingCallback {
 public:
  void BindingOpportunity(sqlite3_stmt*) const override { throw std::runtime_error("of the binding"); }
};

// A database whose file another connection writes to and reads as well.
class RetryTest : public support::DatabaseTest {
 protected:
  RetryTest() : fTable(MakeTable("t", {"a"})), fOther(DatabasePath()) {
    // Both have then read the schema: without it, already the compiling finds the file busy.
    Rows("SELECT * FROM t");
    fOther.Run("SELECT * FROM t");
  }

  void Write(const std::string& value) {
    fDatabase.SendQuery("INSERT INTO t VALUES (" + value + ")", nullptr, nullptr);
  }
  std::string FailedWrite(const std::string& value) {
    return MessageOf([&] { Write(value); });
  }
  // The other connection has its lock no more when this returns.
  void LeaveABusyWriteBehind() {
    fOther.Run("BEGIN IMMEDIATE");
    EXPECT_EQ(FailedWrite("1"), "database is locked");
    fOther.Run("ROLLBACK");
  }
  void Read() { fDatabase.SendQuery("SELECT a FROM t", nullptr, nullptr); }
  // The first read may find that the schema has changed.
  void KnowTheSchema() {
    for (int i = 0; i < 2; ++i) MessageOf([this] { Read(); });
    ReleaseLeftovers(fDatabase);
  }
  // The other connection has its lock no more when this returns.
  void LeaveBehindBusy(const Action& statement) {
    fOther.Run("BEGIN EXCLUSIVE");
    EXPECT_EQ(MessageOf(statement), "database is locked");
    fOther.Run("ROLLBACK");
  }
  void LeaveBehindThrowing(const std::string& sql) {
    ThrowingCallback callback;
    EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery(sql, &callback, nullptr); }), "of the callback");
  }
  boost::shared_ptr<sqldb::SQLSelectClass> NewSelect() {
    auto select = fDatabase.NewSelect(fTable, 0);
    select << fTable->GetColumn("a");
    return select;
  }
  boost::shared_ptr<SQLStepCursor<std::uint32_t>> NewCursor() {
    OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    return boost::make_shared<SQLStepCursor<std::uint32_t>>(&fDatabase, offsets);
  }
  // What another program is told that writes a row now, which it takes back.
  std::string WriteOfAnother() {
    const CallRecorder::Pause pause;
    SQLDatabase another(DatabasePath(), false);
    another.Open();
    std::string message = MessageOf([&] {
      another.SendQuery("INSERT INTO t VALUES (100)", nullptr, nullptr);
      another.SendQuery("DELETE FROM t WHERE a = 100", nullptr, nullptr);
    });
    support::FinalizeLeftovers(another.fConnection);
    return message;
  }
  // What the rest of the world sees.
  Rowids Seen() { return OtherConnection(DatabasePath()).Run("SELECT a FROM t ORDER BY a"); }
  int Unfinalized() const {
    int count = 0;
    for (sqlite3_stmt* statement = sqlite3_next_stmt(fDatabase.fConnection, nullptr); statement != nullptr;
         statement = sqlite3_next_stmt(fDatabase.fConnection, statement)) {
      ++count;
    }
    return count;
  }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  OtherConnection fOther;
  CallRecorder fRecorder;
};

TEST_F(RetryTest, AWriteThatFoundTheFileBusyKeepsLaterOnesFromBeingCommitted) {
  LeaveABusyWriteBehind();
  Write("2");
  EXPECT_EQ(sqlite3_get_autocommit(fDatabase.fConnection), 1);
  EXPECT_THAT(Rows("SELECT a FROM t"), ElementsAre("2"));
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(RetryTest, FinalizingTooLateUndoesTheWritesSinceThen) {
  LeaveABusyWriteBehind();
  Write("2");
  ReleaseLeftovers(fDatabase);
  EXPECT_THAT(Rows("SELECT a FROM t"), IsEmpty());
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(RetryTest, SteppingTheBusyWriteOnCommitsItAndTheWritesSinceThen) {
  LeaveABusyWriteBehind();
  Write("2");
  EXPECT_EQ(sqlite3_step(sqlite3_next_stmt(fDatabase.fConnection, nullptr)), SQLITE_DONE);
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(RetryTest, AWriteThatFoundTheFileBusyLocksOtherWritersOutOnceAnotherHasPassed) {
  LeaveABusyWriteBehind();
  Write("2");

  SQLDatabase second(DatabasePath(), false);
  second.Open();
  EXPECT_EQ(MessageOf([&] { second.SendQuery("DELETE FROM t", nullptr, nullptr); }), "database is locked");
  support::FinalizeLeftovers(second.fConnection);
  ReleaseLeftovers(fDatabase);
  second.SendQuery("DELETE FROM t", nullptr, nullptr);
  EXPECT_THAT(Seen(), IsEmpty());
}

// A read is enough: the connection then keeps the shared lock of what it runs next.
TEST_F(RetryTest, WhateverFoundTheFileBusyKeepsOthersFromCommittingOnceAnythingElseHasRun) {
  const auto select = NewSelect();
  const std::vector<Action> busy = {
      [this] { Read(); },
      [this] { fTable->SendQuery("SELECT a FROM t", nullptr, nullptr); },
      [&] { select->PerformSelect(boost::make_shared<sqldb::SQLCursorBase>(&fDatabase)); },
      [this] { Write("1"); },
      [this] { fTable->DeleteRecords(nullptr); },
  };
  const std::vector<Action> next = {
      [this] { Read(); },
      [this] { fTable->CountRecords(nullptr); },
      [this] { fDatabase.SendQuery("DELETE FROM t WHERE 0", nullptr, nullptr); },
  };
  for (std::size_t i = 0; i < busy.size(); ++i) {
    for (std::size_t j = 0; j < next.size(); ++j) {
      SCOPED_TRACE("statement " + std::to_string(i) + ", then " + std::to_string(j));
      LeaveBehindBusy(busy[i]);
      delete select->fCallback;  // the next preparation would leave it behind
      select->fCallback = nullptr;
      EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
      next[j]();
      EXPECT_EQ(WriteOfAnother(), "database is locked");
      ReleaseLeftovers(fDatabase);
      EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
    }
  }
}

TEST_F(RetryTest, AStatementWhoseCallbackThrewKeepsOthersFromCommittingAtOnce) {
  Write("1");
  const auto select = NewSelect();
  std::vector<Action> throwing = {
      [this] { LeaveBehindThrowing("SELECT a FROM t"); },
      [&] {
        const auto cursor = boost::make_shared<ThrowingCursor>(&fDatabase);
        EXPECT_EQ(MessageOf([&] { select->PerformSelect(cursor); }), "of the callback");
      },
  };
  if (!support::IsOlderThan(3035000)) {
    throwing.emplace_back([this] { LeaveBehindThrowing("INSERT INTO t VALUES (2) RETURNING a"); });
  }
  for (const Action& action : throwing) {
    action();
    EXPECT_EQ(Unfinalized(), 1);
    EXPECT_EQ(WriteOfAnother(), "database is locked");
    ReleaseLeftovers(fDatabase);
    EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
  }
}

TEST_F(RetryTest, AReadLeftBehindLetsWritesAndACommitPass) {
  LeaveBehindBusy([this] { Read(); });
  Write("2");
  EXPECT_THAT(Seen(), ElementsAre("2"));
  LeaveBehindThrowing("SELECT a FROM t");
  fDatabase.BeginTransaction();
  Write("3");
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre("2", "3"));
  EXPECT_EQ(Unfinalized(), 2);
  ReleaseLeftovers(fDatabase);
  EXPECT_THAT(Seen(), ElementsAre("2", "3"));
}

TEST_F(RetryTest, AWriteWhoseCallbackThrewIsCommittedWithTheLaterOnesOnceItIsFinalized) {
  if (support::IsOlderThan(3035000)) GTEST_SKIP() << "no RETURNING";
  LeaveBehindThrowing("INSERT INTO t VALUES (1) RETURNING a");
  Write("2");
  EXPECT_THAT(Seen(), IsEmpty());
  fDatabase.BeginTransaction();
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, false); }), support::LogicError());
  ReleaseLeftovers(fDatabase);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(RetryTest, AStepCursorThatWaitedInVainKeepsOthersFromCommittingUntilItIsDestroyed) {
  auto cursor = NewCursor();
  {
    const auto select = NewSelect();
    select->PrepareSelect(cursor);
  }
  LeaveBehindBusy([&] {
    std::uint32_t value = 0;
    cursor->Step(value);
  });
  Read();
  ReleaseLeftovers(fDatabase);
  EXPECT_EQ(WriteOfAnother(), "database is locked");
  cursor.reset();
  EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
}

// They are left behind just the same, but hold nothing.
TEST_F(RetryTest, OtherFailuresLockNobodyOut) {
  Write("1");
  ThrowingBinding binding;
  const std::string overflow = "abs(-9223372036854775807 - 1)";
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT " + overflow + " FROM t", nullptr, nullptr); }),
            support::LogicError());
  EXPECT_EQ(FailedWrite(overflow), support::LogicError());
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("DELETE FROM t", nullptr, &binding); }), "of the binding");
  EXPECT_EQ(Unfinalized(), 3);
  Read();
  EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
  Write("2");
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
  EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
}

TEST_F(RetryTest, ExplicitCommitAfterABusyWriteIsRefusedUntilItIsFinalized) {
  fDatabase.BeginTransaction();
  LeaveABusyWriteBehind();
  Write("2");
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, false); }), support::LogicError());
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  ReleaseLeftovers(fDatabase);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(RetryTest, CloseIsRefusedWithWhatWasLeftBehindAndAcceptedAfterwards) {
  LeaveABusyWriteBehind();
  fDatabase.Close();
  EXPECT_FALSE(fDatabase.fIsOpen);
  EXPECT_EQ(fRecorder.CallsOf("close").back().result, SQLITE_BUSY);
  // Even though the database counts as closed.
  EXPECT_TRUE(ReleaseLeftovers(fDatabase));
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 0);
  fDatabase.Close();
  EXPECT_EQ(fRecorder.CallsOf("close").back().result, SQLITE_OK);
}

// A schema that has changed -------------------------------------------------------------------------------------------

TEST_F(RetryTest, TheNextStatementAfterAChangeOfTheSchemaFailsAndTheOneAfterThatWorks) {
  const std::vector<std::string> changes = {"CREATE TABLE u (b)", "CREATE INDEX i ON t (a)", "DROP TABLE doomed",
                                            "VACUUM"};
  const std::vector<Action> statements = {
      [this] { Read(); },
      [this] { fDatabase.SendQuery("DELETE FROM t", nullptr, nullptr); },
      [this] { fTable->DeleteRecords(nullptr); },
      [this] { NewSelect()->PerformSelect(boost::make_shared<sqldb::SQLCursorBase>(&fDatabase)); },
  };
  for (const std::string& change : changes) {
    for (const Action& statement : statements) {
      SCOPED_TRACE(change);
      fOther.Run("DROP TABLE IF EXISTS u; DROP INDEX IF EXISTS i; CREATE TABLE IF NOT EXISTS doomed (c)");
      KnowTheSchema();
      fOther.Run(change);
      EXPECT_EQ(MessageOf(statement), support::LogicError());
      ASSERT_EQ(Unfinalized(), 1);
      EXPECT_EQ(MessageOf(statement), "(nothing thrown)");
      EXPECT_EQ(ReleaseLeftovers(fDatabase).value().Code(), SQLITE_SCHEMA);
      EXPECT_EQ(Unfinalized(), 0);
    }
  }
}

TEST_F(RetryTest, ATransactionSurvivesAChangeOfTheSchemaBeforeItsFirstStatement) {
  fOther.Run("CREATE TABLE u (b)");
  fDatabase.BeginTransaction();
  EXPECT_EQ(FailedWrite("1"), support::LogicError());
  const std::optional<sqldb::kit::Error> error = ReleaseLeftovers(fDatabase);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->Code(), SQLITE_SCHEMA);
  Write("2");
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(RetryTest, WhatReadsNoTableDoesNotMindAChangeOfTheSchema) {
  const support::ClogCapture quiet;
  fDatabase.fExplainLevel = 1;
  fOther.Run("CREATE TABLE u (b)");
  EXPECT_NO_THROW(fDatabase.ExplainQuery("DELETE FROM t"));
  fDatabase.BeginTransaction();
  EXPECT_NO_THROW(fDatabase.EndTransaction(true, false));
  fDatabase.BeginTransaction();
  EXPECT_NO_THROW(fDatabase.EndTransaction(false, false));
}

TEST_F(RetryTest, CountingAndAskingLeaveNothingBehindAfterAChangeOfTheSchema) {
  fOther.Run("CREATE TABLE u (b)");
  EXPECT_EQ(MessageOf([this] { fTable->CountRecords(nullptr); }), support::LogicError());
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_EQ(fTable->CountRecords(nullptr), 0u);
  fOther.Run("CREATE TABLE v (b)");
  EXPECT_EQ(MessageOf([this] { fTable->HasTerm(support::MakeTerm(" 1")); }), support::LogicError());
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_FALSE(fTable->HasTerm(support::MakeTerm(" 1")));
}

TEST_F(RetryTest, AStepCursorPreparedBeforeAChangeOfTheSchemaFailsForGood) {
  Write("1");
  const std::vector<Action> changes = {
      [this] { fOther.Run("CREATE TABLE u (b)"); },
      [this] { fDatabase.SendQuery("CREATE TABLE v (b)", nullptr, nullptr); },
  };
  std::uint32_t value = 0;
  for (const Action& change : changes) {
    KnowTheSchema();
    const auto stale = NewCursor();
    const auto select = NewSelect();
    select->PrepareSelect(stale);
    change();
    EXPECT_EQ(MessageOf([&] { stale->Step(value); }), support::LogicError());
    EXPECT_NE(MessageOf([&] { stale->Step(value); }), "(nothing thrown)");
    const auto cursor = NewCursor();
    const auto again = NewSelect();
    again->PrepareSelect(cursor);
    EXPECT_EQ(cursor->Step(value), 0);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(cursor->Step(value), 1);
  }
}

// Rows ----------------------------------------------------------------------------------------------------------------

TEST_F(RetryTest, AnInsertThatGivesItsFailedTextUpIsWrittenOnce) {
  const auto insert = fTable->NewInsert();
  insert->fColumns = {fTable->GetColumn("a")};
  insert->fValues = {MakeValue("7")};
  fOther.Run("BEGIN IMMEDIATE");
  const auto write = [&] {
    insert->fQuery.str("");
    insert->PerformInsert(true);
  };
  for (int i = 0; i < 2; ++i) EXPECT_THROW(sqldb::kit::Run(fDatabase, write), sqldb::kit::BusyError);
  fOther.Run("COMMIT");
  sqldb::kit::Run(fDatabase, write);
  EXPECT_THAT(Seen(), ElementsAre("7"));
}

TEST_F(RetryTest, WithoutClearingItsTextARetriedInsertSendsItTwice) {
  const auto insert = fTable->NewInsert();
  insert->fColumns = {fTable->GetColumn("a")};
  insert->fValues = {MakeValue("7")};
  fOther.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), "database is locked");
  fOther.Run("ROLLBACK");
  ReleaseLeftovers(fDatabase);
  EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), "near \"INSERT\": syntax error");
  EXPECT_EQ(fRecorder.Sql().back(), "INSERT INTO t ( a ) VALUES (7 )INSERT INTO t ( a ) VALUES (7 )");
}

}  // namespace
