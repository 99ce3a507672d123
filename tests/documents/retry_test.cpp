#include "shown/retry.h"

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
  auto select = fDatabase.NewSelect(fTable, 0);
  select << fTable->GetColumn("a");
  OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  const auto cursor = boost::make_shared<SQLStepCursor<std::uint32_t>>(&fDatabase, offsets);
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
