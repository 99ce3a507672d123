#include "shown/retry.h"

#include <functional>

#include <boost/make_shared.hpp>

#include "support/fixtures.h"

namespace {

using sqldb::OffsetSpec;
using sqldb::SQLDatabase;
using sqldb::SQLStepCursor;
using support::BoundInteger;
using support::Call;
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
  // After a first read that may find it changed, a second one reads it anew.
  void KnowTheSchema() {
    MessageOf([this] { Read(); });
    FinalizeLeftBehind(fDatabase);
    Read();
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

  // Lets the other connection end its transaction while the library's side sleeps for the n-th time.
  void EndOtherAtSleep(int n) {
    fRecorder.fAfterCall = [this, n](const Call& call) {
      if (call.function == "usleep" && fRecorder.Count("usleep") == static_cast<std::size_t>(n)) fOther.Run("COMMIT");
    };
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
  FinalizeLeftBehind(fDatabase);
  EXPECT_THAT(Rows("SELECT a FROM t"), IsEmpty());
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(RetryTest, FinalizingAtOnceLetsLaterWritesBeCommitted) {
  LeaveABusyWriteBehind();
  FinalizeLeftBehind(fDatabase);
  EXPECT_EQ(Unfinalized(), 0);
  Write("2");
  EXPECT_THAT(Seen(), ElementsAre("2"));
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
  FinalizeLeftBehind(fDatabase);
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
      FinalizeLeftBehind(fDatabase);
      EXPECT_EQ(WriteOfAnother(), "(nothing thrown)");
    }
  }
}

TEST_F(RetryTest, AStatementWhoseCallbackThrewKeepsOthersFromCommittingAtOnce) {
  Write("1");
  const auto select = NewSelect();
  const std::vector<Action> throwing = {
      [this] { LeaveBehindThrowing("SELECT a FROM t"); },
      [this] { LeaveBehindThrowing("INSERT INTO t VALUES (2) RETURNING a"); },
      [&] {
        const auto cursor = boost::make_shared<ThrowingCursor>(&fDatabase);
        EXPECT_EQ(MessageOf([&] { select->PerformSelect(cursor); }), "of the callback");
      },
  };
  for (const Action& action : throwing) {
    action();
    EXPECT_EQ(Unfinalized(), 1);
    EXPECT_EQ(WriteOfAnother(), "database is locked");
    FinalizeLeftBehind(fDatabase);
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
  FinalizeLeftBehind(fDatabase);
  EXPECT_THAT(Seen(), ElementsAre("2", "3"));
}

TEST_F(RetryTest, AWriteWhoseCallbackThrewIsCommittedWithTheLaterOnesOnceItIsFinalized) {
  LeaveBehindThrowing("INSERT INTO t VALUES (1) RETURNING a");
  Write("2");
  EXPECT_THAT(Seen(), IsEmpty());
  fDatabase.BeginTransaction();
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, false); }), "SQL logic error");
  FinalizeLeftBehind(fDatabase);
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
  FinalizeLeftBehind(fDatabase);
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
            "SQL logic error");
  EXPECT_EQ(FailedWrite(overflow), "SQL logic error");
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
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, false); }), "SQL logic error");
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  FinalizeLeftBehind(fDatabase);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(RetryTest, CloseIsRefusedWithWhatWasLeftBehindAndAcceptedAfterwards) {
  LeaveABusyWriteBehind();
  fDatabase.Close();
  EXPECT_FALSE(fDatabase.fIsOpen);
  EXPECT_EQ(fRecorder.CallsOf("close").back().result, SQLITE_BUSY);
  FinalizeLeftBehind(fDatabase);
  fDatabase.Close();
  EXPECT_EQ(fRecorder.CallsOf("close").back().result, SQLITE_OK);
}

TEST_F(RetryTest, LivingCursorsAreSpared) {
  Write("1");
  Write("2");
  const auto select = NewSelect();
  const auto cursor = NewCursor();
  select->PrepareSelect(cursor);
  std::uint32_t value = 0;
  ASSERT_EQ(cursor->Step(value), 0);
  MessageOf([&] { fDatabase.SendQuery("INSERT INTO t VALUES (abs(-9223372036854775808))", nullptr, nullptr); });
  ASSERT_EQ(Unfinalized(), 2);

  FinalizeLeftBehind(fDatabase);
  EXPECT_EQ(Unfinalized(), 1);
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 2u);
}

TEST_F(RetryTest, TheLockIsAwaitedBeforeTheWorkBegins) {
  fOther.Run("BEGIN IMMEDIATE");
  EndOtherAtSleep(3);
  int worked = 0;
  InTransaction(fDatabase, "t", [&] {
    ++worked;
    Write("5");
  });
  EXPECT_EQ(worked, 1);
  EXPECT_EQ(fRecorder.Count("usleep"), 3u);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 30000u);
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_THAT(Seen(), ElementsAre("5"));
}

TEST_F(RetryTest, ACommitWaitsForAReader) {
  fOther.Run("BEGIN; SELECT * FROM t");
  EndOtherAtSleep(2);
  InTransaction(fDatabase, "t", [&] { Write("5"); });
  EXPECT_EQ(fRecorder.Count("usleep"), 2u);
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_THAT(Seen(), ElementsAre("5"));
}

TEST_F(RetryTest, GivesUpAfterAHundredTriesWithEverythingRolledBack) {
  fOther.Run("BEGIN; SELECT * FROM t");
  EXPECT_EQ(MessageOf([&] { InTransaction(fDatabase, "t", [&] { Write("5"); }); }), "database is locked");
  EXPECT_EQ(fRecorder.Count("usleep"), 99u);
  EXPECT_EQ(sqlite3_get_autocommit(fDatabase.fConnection), 1);
  fOther.Run("COMMIT");
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_THAT(Seen(), IsEmpty());
  InTransaction(fDatabase, "t", [&] { Write("6"); });
  EXPECT_THAT(Seen(), ElementsAre("6"));
}

TEST_F(RetryTest, OtherFailuresRollBackAtOnce) {
  EXPECT_EQ(MessageOf([&] {
              InTransaction(fDatabase, "t", [&] {
                Write("5");
                Write("nonsense");
              });
            }),
            "no such column: nonsense");
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_TRUE(fDatabase.fTransactionOK);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(RetryTest, ATransactionThatSQLiteEndedItselfIsForgotten) {
  EXPECT_EQ(MessageOf([&] {
              InTransaction(fDatabase, "t", [&] {
                Write("5");
                fDatabase.SendQuery("ROLLBACK", nullptr, nullptr);
                Write("nonsense");
              });
            }),
            "no such column: nonsense");
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_TRUE(fDatabase.fTransactionOK);
  InTransaction(fDatabase, "t", [&] { Write("6"); });
  EXPECT_THAT(Seen(), ElementsAre("6"));
}

// A schema that has changed
// --------------------------------------------------------------------------------------------

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
      EXPECT_EQ(MessageOf(statement), "SQL logic error");
      ASSERT_EQ(Unfinalized(), 1);
      EXPECT_EQ(MessageOf(statement), "(nothing thrown)");
      EXPECT_EQ(sqlite3_finalize(sqlite3_next_stmt(fDatabase.fConnection, nullptr)), SQLITE_SCHEMA);
      EXPECT_EQ(Unfinalized(), 0);
    }
  }
}

TEST_F(RetryTest, ATransactionSurvivesAChangeOfTheSchemaBeforeItsFirstStatement) {
  fOther.Run("CREATE TABLE u (b)");
  fDatabase.BeginTransaction();
  EXPECT_EQ(FailedWrite("1"), "SQL logic error");
  EXPECT_TRUE(FinalizeLeftBehind(fDatabase));
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
  EXPECT_EQ(MessageOf([this] { fTable->CountRecords(nullptr); }), "SQL logic error");
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_EQ(fTable->CountRecords(nullptr), 0u);
  fOther.Run("CREATE TABLE v (b)");
  EXPECT_EQ(MessageOf([this] { fTable->HasTerm(support::MakeTerm(" 1")); }), "SQL logic error");
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
    EXPECT_EQ(MessageOf([&] { stale->Step(value); }), "SQL logic error");
    EXPECT_NE(MessageOf([&] { stale->Step(value); }), "(nothing thrown)");
    const auto cursor = NewCursor();
    const auto again = NewSelect();
    again->PrepareSelect(cursor);
    EXPECT_EQ(cursor->Step(value), 0);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(cursor->Step(value), 1);
  }
}

TEST_F(RetryTest, AChangeOfTheSchemaIsRepeatedLikeABusyFile) {
  fOther.Run("CREATE TABLE u (b)");
  InTransaction(fDatabase, "t", [this] { Write("5"); });
  fOther.Run("CREATE TABLE v (b)");
  const auto insert = fTable->NewInsert();
  insert->fColumns = {fTable->GetColumn("a")};
  InsertRow(fDatabase, *insert, {boost::make_shared<BoundInteger>(7)});
  EXPECT_THAT(Seen(), ElementsAre("5", "7"));
  EXPECT_EQ(fRecorder.Count("usleep"), 2u);
  EXPECT_EQ(Unfinalized(), 0);
}

// Rows ----------------------------------------------------------------------------------------------------------------

TEST_F(RetryTest, ARowThatFoundTheFileBusyIsWrittenOnce) {
  const auto insert = fTable->NewInsert();
  insert->fColumns = {fTable->GetColumn("a")};
  fOther.Run("BEGIN IMMEDIATE");
  EndOtherAtSleep(2);
  InsertRow(fDatabase, *insert, {boost::make_shared<BoundInteger>(7)});
  EXPECT_THAT(Seen(), ElementsAre("7"));
  EXPECT_EQ(insert->fQuery.str(), "");
  EXPECT_THAT(insert->fValues, IsEmpty());
}

TEST_F(RetryTest, WithoutClearingItsTextARetriedInsertSendsItTwice) {
  const auto insert = fTable->NewInsert();
  insert->fColumns = {fTable->GetColumn("a")};
  insert->fValues = {MakeValue("7")};
  fOther.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), "database is locked");
  fOther.Run("ROLLBACK");
  FinalizeLeftBehind(fDatabase);
  EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), "near \"INSERT\": syntax error");
  EXPECT_EQ(fRecorder.Sql().back(), "INSERT INTO t ( a ) VALUES (7 )INSERT INTO t ( a ) VALUES (7 )");
}

}  // namespace
