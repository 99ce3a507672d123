#include <limits>

#include "support/engine.h"
#include "support/fixtures.h"

using support::CallRecorder;
using support::FinalizeLeftovers;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr char kBegin[] = "BEGIN TRANSACTION";
constexpr char kCommit[] = "COMMIT TRANSACTION";
constexpr char kRollback[] = "ROLLBACK TRANSACTION";

class TransactionTest : public support::DatabaseTest {
 protected:
  TransactionTest() { MakeTable("items", {"a"}); }

  void Begin(int levels) {
    for (int i = 0; i < levels; ++i) fDatabase.BeginTransaction();
  }
  void Insert(int value) {
    fDatabase.SendQuery("INSERT INTO items VALUES (" + std::to_string(value) + ")", nullptr, nullptr);
  }
  std::vector<std::string> Items() { return support::OtherConnection(DatabasePath()).Run("SELECT a FROM items"); }
  bool IsInSQLiteTransaction() const { return sqlite3_get_autocommit(fDatabase.fConnection) == 0; }
  void ExpectState(std::int32_t depth, bool ok) {
    EXPECT_EQ(fDatabase.fTransactionDepth, depth);
    EXPECT_EQ(fDatabase.fTransactionOK, ok);
  }
};

TEST_F(TransactionTest, BeginTalksToSQLiteOnce) {
  CallRecorder recorder;
  fDatabase.BeginTransaction();
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'BEGIN TRANSACTION' = 0", "step = 101", "finalize = 0"));
  ExpectState(1, true);
}

TEST_F(TransactionTest, CommitTalksToSQLiteOnce) {
  Begin(1);
  CallRecorder recorder;
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'COMMIT TRANSACTION' = 0", "step = 101", "finalize = 0"));
  ExpectState(0, true);
}

TEST_F(TransactionTest, RollbackTalksToSQLiteOnce) {
  Begin(1);
  CallRecorder recorder;
  fDatabase.EndTransaction(false, false);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'ROLLBACK TRANSACTION' = 0", "step = 101", "finalize = 0"));
  ExpectState(0, true);
}

TEST_F(TransactionTest, CommitKeepsWhatWasWritten) {
  Begin(1);
  Insert(1);
  EXPECT_THAT(Items(), IsEmpty());
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(Items(), ElementsAre("1"));
}

TEST_F(TransactionTest, RollbackUndoesWhatWasWritten) {
  Begin(1);
  Insert(1);
  fDatabase.EndTransaction(false, false);
  EXPECT_THAT(Items(), IsEmpty());
  EXPECT_THAT(Rows("SELECT a FROM items"), IsEmpty());
}

TEST_F(TransactionTest, OnlyTheOutermostLevelTalksToSQLite) {
  CallRecorder recorder;
  Begin(2);
  ExpectState(2, true);
  fDatabase.EndTransaction(true, false);
  ExpectState(1, true);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin));
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kCommit));
  ExpectState(0, true);
}

TEST_F(TransactionTest, InnerVetoRollsTheOutermostEndBack) {
  CallRecorder recorder;
  Begin(2);
  fDatabase.EndTransaction(false, false);
  ExpectState(1, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin));
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kRollback));
  ExpectState(0, true);
}

TEST_F(TransactionTest, VetoSurvivesLaterLevelsThatCommit) {
  Begin(2);
  fDatabase.EndTransaction(false, false);
  Begin(1);
  fDatabase.EndTransaction(true, false);
  ExpectState(1, false);
  CallRecorder recorder;
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kRollback));
}

TEST_F(TransactionTest, EndAllCommitsAtOnceFromAnyDepth) {
  CallRecorder recorder;
  Begin(3);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kCommit));
  ExpectState(0, true);
}

TEST_F(TransactionTest, EndAllRollsBackAtOnceFromAnyDepth) {
  CallRecorder recorder;
  Begin(3);
  fDatabase.EndTransaction(false, true);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kRollback));
  ExpectState(0, true);
}

TEST_F(TransactionTest, EndAllHeedsAnEarlierVeto) {
  CallRecorder recorder;
  Begin(3);
  fDatabase.EndTransaction(false, false);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kRollback));
  ExpectState(0, true);
}

TEST_F(TransactionTest, TransactionsFollowOneAnother) {
  CallRecorder recorder;
  Begin(1);
  fDatabase.EndTransaction(false, false);
  Begin(1);
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kRollback, kBegin, kCommit));
}

TEST_F(TransactionTest, AnEndWithoutABeginSendsNothingAndSwallowsTheNextBegin) {
  CallRecorder recorder;
  fDatabase.EndTransaction(true, false);
  ExpectState(-1, true);
  fDatabase.BeginTransaction();
  ExpectState(0, true);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  fDatabase.BeginTransaction();
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin));
}

TEST_F(TransactionTest, AnEndWithoutABeginVetoesAllTheSame) {
  CallRecorder recorder;
  fDatabase.EndTransaction(false, false);
  ExpectState(-1, false);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  Begin(2);
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kRollback));
  ExpectState(0, true);
}

TEST_F(TransactionTest, EndAllLiftsANegativeDepth) {
  Begin(1);
  fDatabase.fTransactionDepth = -5;
  CallRecorder recorder;
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kCommit));
  ExpectState(0, true);
}

TEST_F(TransactionTest, TheDepthWrapsUpwards) {
  fDatabase.fTransactionDepth = std::numeric_limits<std::int32_t>::max();
  CallRecorder recorder;
  fDatabase.BeginTransaction();
  ExpectState(std::numeric_limits<std::int32_t>::min(), true);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TransactionTest, TheDepthWrapsDownwards) {
  fDatabase.fTransactionDepth = std::numeric_limits<std::int32_t>::min();
  CallRecorder recorder;
  fDatabase.EndTransaction(true, false);
  ExpectState(std::numeric_limits<std::int32_t>::max(), true);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TransactionTest, CloseKeepsTheLevelsSoThatTheNextBeginSendsNothing) {
  Begin(2);
  Insert(1);
  fDatabase.EndTransaction(false, false);
  fDatabase.Close();
  ExpectState(1, false);
  fDatabase.Open();
  EXPECT_THAT(Rows("SELECT a FROM items"), IsEmpty()) << "SQLite has rolled the transaction back";
  CallRecorder recorder;
  fDatabase.BeginTransaction();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  ExpectState(2, false);
}

TEST_F(TransactionTest, LevelsSetBackAfterACloseAreCountedAnew) {
  Begin(2);
  fDatabase.EndTransaction(false, false);
  fDatabase.Close();
  fDatabase.fTransactionDepth = 0;
  fDatabase.fTransactionOK = true;
  fDatabase.Open();
  CallRecorder recorder;
  fDatabase.BeginTransaction();
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, kCommit));
}

TEST_F(TransactionTest, AFailedBeginLeavesTheDepth) {
  Rows("BEGIN");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.BeginTransaction(); }), support::LogicError());
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'BEGIN TRANSACTION' = 0", "step = 1", "errmsg"));
  ExpectState(0, true);
  EXPECT_EQ(FinalizeLeftovers(fDatabase.fConnection), 1);
  Rows("ROLLBACK");
}

TEST_F(TransactionTest, AFailedBeginLeavesAStandingVeto) {
  fDatabase.fTransactionOK = false;
  CallRecorder recorder;
  recorder.Force("prepare", SQLITE_ERROR);
  EXPECT_THROW(fDatabase.BeginTransaction(), std::runtime_error);
  ExpectState(0, false);
}

TEST_F(TransactionTest, AFailedCommitLeavesTheSQLiteTransactionOpen) {
  support::OtherConnection reader(DatabasePath());
  Begin(2);
  Insert(1);
  reader.Run("BEGIN; SELECT a FROM items");
  CallRecorder recorder;
  fDatabase.EndTransaction(true, false);
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, false); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'COMMIT TRANSACTION' = 0", "step = 5", "errmsg"));
  ExpectState(0, true);
  EXPECT_TRUE(IsInSQLiteTransaction());

  reader.Run("COMMIT");
  FinalizeLeftovers(fDatabase.fConnection);
  fDatabase.EndTransaction(true, true);
  EXPECT_THAT(Items(), ElementsAre("1"));
}

TEST_F(TransactionTest, AFailedRollbackKeepsTheVetoForTheNextTransaction) {
  Begin(1);
  Rows("COMMIT");
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(false, false); }), support::LogicError());
  ExpectState(0, false);
  FinalizeLeftovers(fDatabase.fConnection);

  CallRecorder recorder;
  Begin(1);
  ExpectState(1, false);
  Insert(1);
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(recorder.Sql(), ElementsAre(kBegin, "INSERT INTO items VALUES (1)", kRollback));
  ExpectState(0, true);
  EXPECT_THAT(Items(), IsEmpty());
}

TEST_F(TransactionTest, EveryStageOfARollbackMustSucceedToLiftTheVeto) {
  for (const char* const stage : {"prepare", "step", "finalize"}) {
    Begin(1);
    CallRecorder recorder;
    recorder.Force(stage, SQLITE_IOERR);
    EXPECT_THROW(fDatabase.EndTransaction(false, false), std::runtime_error) << stage;
    ExpectState(0, false);
    FinalizeLeftovers(fDatabase.fConnection);
    if (IsInSQLiteTransaction()) Rows("ROLLBACK");
    fDatabase.fTransactionOK = true;
  }
}

TEST_F(TransactionTest, TheDepthIsChangedBeforeTheTransactionEnds) {
  Begin(3);
  CallRecorder recorder;
  std::int32_t seen = -100;
  recorder.fAfterCall = [&](const support::Call& call) {
    if (call.function == "prepare") seen = fDatabase.fTransactionDepth;
  };
  fDatabase.EndTransaction(true, true);
  EXPECT_EQ(seen, 0);
}

TEST_F(TransactionTest, TheDepthIsChangedAfterTheTransactionBegins) {
  CallRecorder recorder;
  std::int32_t seen = -100;
  recorder.fAfterCall = [&](const support::Call& call) {
    if (call.function == "finalize") seen = fDatabase.fTransactionDepth;
  };
  fDatabase.BeginTransaction();
  EXPECT_EQ(seen, 0);
}

TEST_F(TransactionTest, EndAllAtDepthZeroStillSendsCommit) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(true, true); }), support::LogicError());
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'COMMIT TRANSACTION' = 0", "step = 1", "errmsg"));
  ExpectState(0, true);
}

TEST_F(TransactionTest, EndAllAtDepthZeroStillSendsRollback) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.EndTransaction(false, true); }), support::LogicError());
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'ROLLBACK TRANSACTION' = 0", "step = 1", "errmsg"));
  ExpectState(0, false);
}

TEST_F(TransactionTest, BeginNeverWaits) {
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  Begin(1);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { Insert(1); }), "database is locked");
  EXPECT_EQ(recorder.SleptMicroseconds(), 0u);
  other.Run("ROLLBACK");
}

TEST_F(TransactionTest, SynchronizationOffIsOnePragma) {
  CallRecorder recorder;
  fDatabase.SetSynchronizationLevel(false);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'PRAGMA synchronous = OFF' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("PRAGMA synchronous"), ElementsAre("0"));
}

TEST_F(TransactionTest, SynchronizationOnIsOnePragma) {
  CallRecorder recorder;
  fDatabase.SetSynchronizationLevel(true);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'PRAGMA synchronous = NORMAL' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("PRAGMA synchronous"), ElementsAre("1"));
}

TEST_F(TransactionTest, SynchronizationIsLeftToSQLiteInsideATransaction) {
  Begin(1);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.SetSynchronizationLevel(true); }),
            "Safety level may not be changed inside a transaction");
  EXPECT_THAT(recorder.Sql(), ElementsAre("PRAGMA synchronous = NORMAL"));
  ExpectState(1, true);
  fDatabase.EndTransaction(true, false);
}

}  // namespace
