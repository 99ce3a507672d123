#include "sqldb/kit/transaction.h"

#include <optional>

#include "kit_test.h"

namespace {

using kit_test::ErrorOf;
using sqldb::SQLDatabase;
using sqldb::kit::Error;
using sqldb::kit::Transaction;
using sqldb::kit::WriteLock;
using support::CallRecorder;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kVetoed[] = "The transaction was rolled back, because a part of it was.";
constexpr char kRolledBack[] = "SQLite has rolled the transaction back.";
constexpr char kMisused[] = "The transaction has ended already, or a part of it has not.";

class KitTransactionTest : public kit_test::KitTest {
 protected:
  void ExpectError(const Error& error, const char* message, int code) {
    EXPECT_STREQ(error.what(), message);
    EXPECT_EQ(error.ExtendedCode(), code);
  }
  Error CommitError(Transaction& transaction) {
    return ErrorOf([&] { transaction.Commit(); });
  }
};

TEST_F(KitTransactionTest, CommitKeepsWhatWasWritten) {
  CallRecorder recorder;
  {
    Transaction transaction(fDatabase);
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    Write(1);
    EXPECT_THAT(Seen(), IsEmpty());
    transaction.Commit();
    ExpectNoTransaction();
    EXPECT_THAT(Seen(), ElementsAre("1"));
  }
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN TRANSACTION", "INSERT INTO t VALUES (1)", "COMMIT TRANSACTION"));
}

TEST_F(KitTransactionTest, TheDestructorRollsBackWhatWasNotCommitted) {
  CallRecorder recorder;
  {
    Transaction transaction(fDatabase);
    Write(1);
  }
  ExpectNoTransaction();
  EXPECT_THAT(Rows("SELECT a FROM t"), IsEmpty());
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN TRANSACTION", "INSERT INTO t VALUES (1)", "ROLLBACK TRANSACTION"));
}

TEST_F(KitTransactionTest, AnExceptionRollsBack) {
  EXPECT_EQ(MessageOf([&] {
              Transaction transaction(fDatabase);
              Write(1);
              Send("DELETE FROM missing");
            }),
            "no such table: missing");
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, AFailedWriteRollsBackAndItsStatementIsReleasedByWhoSentIt) {
  const Error error = ErrorOf([&] {
    sqldb::kit::Run(fDatabase, [&] {
      Transaction transaction(fDatabase);
      Write(1);
      Write(1);
    });
  });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, TheWriteLockIsTakenWhenNeededOrAtOnce) {
  support::OtherConnection& other = fOther;
  {
    Transaction transaction(fDatabase);
    other.Run("BEGIN IMMEDIATE; ROLLBACK");
  }
  CallRecorder recorder;
  {
    Transaction transaction(fDatabase, WriteLock::kAtOnce);
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    SQLDatabase second(DatabasePath(), false);
    second.Open();
    EXPECT_EQ(ErrorOf([&] { Transaction(second, WriteLock::kAtOnce); }).Code(), SQLITE_BUSY);
    EXPECT_EQ(second.fTransactionDepth, 0);
    EXPECT_EQ(sqlite3_next_stmt(second.fConnection, nullptr), nullptr);
    Write(1);
    transaction.Commit();
  }
  EXPECT_EQ(recorder.Sql().front(), "BEGIN IMMEDIATE TRANSACTION");
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitTransactionTest, OnlyTheOutermostOfThreeLevelsTalksToSQLite) {
  CallRecorder recorder;
  Transaction outer(fDatabase);
  {
    Transaction middle(fDatabase, WriteLock::kAtOnce);
    {
      Transaction inner(fDatabase);
      EXPECT_EQ(fDatabase.fTransactionDepth, 3);
      Write(1);
      inner.Commit();
      EXPECT_EQ(fDatabase.fTransactionDepth, 2);
    }
    EXPECT_EQ(fDatabase.fTransactionDepth, 2);
    middle.Commit();
  }
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  EXPECT_THAT(Seen(), IsEmpty());
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre("1"));
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN TRANSACTION", "INSERT INTO t VALUES (1)", "COMMIT TRANSACTION"));
}

TEST_F(KitTransactionTest, LevelsCountTogetherWithTheDatabasesOwn) {
  fDatabase.BeginTransaction();
  {
    Transaction inner(fDatabase);
    EXPECT_EQ(fDatabase.fTransactionDepth, 2);
    Write(1);
    inner.Commit();
  }
  fDatabase.EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitTransactionTest, AnInnerRollbackVetoesTheOutermostCommit) {
  CallRecorder recorder;
  Transaction outer(fDatabase);
  Write(1);
  {
    Transaction middle(fDatabase);
    {
      Transaction inner(fDatabase);
      Write(2);
    }
    EXPECT_EQ(fDatabase.fTransactionDepth, 2);
    EXPECT_FALSE(fDatabase.fTransactionOK);
    EXPECT_TRUE(IsInSQLiteTransaction());
    middle.Commit();
  }
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN TRANSACTION", "INSERT INTO t VALUES (1)", "INSERT INTO t VALUES (2)"));
  ExpectError(CommitError(outer), kVetoed, SQLITE_ABORT_ROLLBACK);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
  ExpectError(CommitError(outer), kMisused, SQLITE_MISUSE);
  EXPECT_EQ(recorder.Sql().back(), "ROLLBACK TRANSACTION");

  Transaction next(fDatabase);
  Write(3);
  next.Commit();
  EXPECT_THAT(Seen(), ElementsAre("3"));
}

TEST_F(KitTransactionTest, LevelsThatDidNotEndAreRolledBackWithTheOneAround) {
  CallRecorder recorder;
  {
    Transaction outer(fDatabase);
    fDatabase.BeginTransaction();
    Write(1);
    ExpectError(CommitError(outer), kMisused, SQLITE_MISUSE);
    EXPECT_EQ(fDatabase.fTransactionDepth, 2);
    EXPECT_TRUE(IsInSQLiteTransaction());
  }
  ExpectNoTransaction();
  {
    Transaction outer(fDatabase);
    {
      Transaction inner(fDatabase);
      fDatabase.BeginTransaction();
    }
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  }
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, ASecondCommitIsRefused) {
  Transaction transaction(fDatabase);
  transaction.Commit();
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  Transaction next(fDatabase);
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  EXPECT_TRUE(IsInSQLiteTransaction());
  next.Commit();
}

TEST_F(KitTransactionTest, OneThatHasEndedLeavesALaterOneAlone) {
  std::optional<Transaction> earlier(std::in_place, fDatabase);
  earlier->Commit();
  Transaction later(fDatabase);
  Write(1);
  EXPECT_EQ(CommitError(*earlier).Code(), SQLITE_MISUSE);
  earlier.reset();
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  later.Commit();
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitTransactionTest, ALevelThatWasEndedElsewhereIsLeftAlone) {
  {
    Transaction transaction(fDatabase);
    Write(1);
    fDatabase.EndTransaction(true, true);
    ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  }
  ExpectNoTransaction();
  {
    Transaction transaction(fDatabase);
    fDatabase.EndTransaction(true, true);
  }
  ExpectNoTransaction();
  Transaction outer(fDatabase);
  Write(2);
  {
    Transaction inner(fDatabase);
    fDatabase.EndTransaction(true, false);
  }
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(KitTransactionTest, ARollbackBySQLiteIsRememberedAtEveryLevel) {
  CallRecorder recorder;
  {
    Transaction outer(fDatabase);
    Write(1);
    {
      Transaction middle(fDatabase);
      {
        Transaction inner(fDatabase);
        const Error error = ErrorOf([&] { sqldb::kit::Run(fDatabase, [&] { FillTheDisk(); }); });
        EXPECT_EQ(error.Code(), SQLITE_FULL);
        ASSERT_FALSE(IsInSQLiteTransaction());
      }
      EXPECT_EQ(fDatabase.fTransactionDepth, 2);
      ExpectError(CommitError(middle), kRolledBack, SQLITE_ABORT_ROLLBACK);
      EXPECT_EQ(fDatabase.fTransactionDepth, 1);
      ExpectError(CommitError(middle), kMisused, SQLITE_MISUSE);
    }
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    // Another level would commit whatever it writes at once.
    ExpectError(ErrorOf([&] { Transaction inner(fDatabase); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    ExpectError(CommitError(outer), kRolledBack, SQLITE_ABORT_ROLLBACK);
    ExpectNoTransaction();
  }
  ExpectNoTransaction();
  EXPECT_EQ(recorder.Sql().size(), 3u);
  EXPECT_THAT(Seen(), IsEmpty());

  Transaction next(fDatabase);
  Write(2);
  next.Commit();
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(KitTransactionTest, TheDestructorHasNothingToRollBackAfterSQLiteDid) {
  CallRecorder recorder;
  const Error error = ErrorOf([&] {
    sqldb::kit::Run(fDatabase, [&] {
      Transaction outer(fDatabase);
      Transaction inner(fDatabase);
      Write(1);
      FillTheDisk();
    });
  });
  EXPECT_STREQ(error.what(), "database or disk is full");
  EXPECT_EQ(error.Code(), SQLITE_FULL);
  ExpectNoTransaction();
  EXPECT_EQ(recorder.Sql().size(), 3u);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, ABusyCommitMayBeRepeated) {
  Transaction transaction(fDatabase);
  Write(1);
  fOther.Run("BEGIN; SELECT * FROM t");
  for (int i = 0; i < 2; ++i) {
    ExpectError(CommitError(transaction), "database is locked", SQLITE_BUSY);
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    EXPECT_TRUE(fDatabase.fTransactionOK);
    EXPECT_TRUE(IsInSQLiteTransaction());
    EXPECT_EQ(Unfinalized(), 0);
  }
  fOther.Run("COMMIT");
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitTransactionTest, ABusyCommitIsRolledBackByTheDestructor) {
  {
    Transaction transaction(fDatabase);
    Write(1);
    fOther.Run("BEGIN; SELECT * FROM t");
    EXPECT_EQ(CommitError(transaction).Code(), SQLITE_BUSY);
  }
  ExpectNoTransaction();
  fOther.Run("COMMIT");
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, ACommitAfterWhichSQLiteRollsBackLeavesNothingOpen) {
  CallRecorder recorder;
  Transaction transaction(fDatabase);
  Write(1);
  // COMMIT fails, and SQLite rolls back.
  sqlite3_commit_hook(
      fDatabase.fConnection, [](void*) { return 1; }, nullptr);
  ExpectError(CommitError(transaction), "constraint failed", SQLITE_CONSTRAINT_COMMITHOOK);
  ExpectNoTransaction();
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  sqlite3_commit_hook(fDatabase.fConnection, nullptr, nullptr);
  EXPECT_EQ(recorder.Sql().back(), "COMMIT TRANSACTION");
}

TEST_F(KitTransactionTest, AVetoedCommitWhoseRollbackFailsMayBeRepeated) {
  Transaction transaction(fDatabase);
  Write(1);
  { Transaction inner(fDatabase); }
  CallRecorder recorder;
  recorder.Force("prepare", SQLITE_NOMEM);
  ErrorOf([&] { transaction.Commit(); });
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  EXPECT_TRUE(IsInSQLiteTransaction());
  ExpectError(CommitError(transaction), kVetoed, SQLITE_ABORT_ROLLBACK);
  ExpectNoTransaction();
}

TEST_F(KitTransactionTest, ADestructorWhoseRollbackFailsThrowsNothingAndTheNextTransactionMakesUpForIt) {
  CallRecorder recorder;
  {
    Transaction transaction(fDatabase);
    Write(1);
    recorder.Force("prepare", SQLITE_NOMEM);
  }
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_FALSE(fDatabase.fTransactionOK);
  EXPECT_TRUE(IsInSQLiteTransaction());
  EXPECT_EQ(Unfinalized(), 0);

  recorder.Clear();
  recorder.Force("prepare", SQLITE_NOMEM);
  ErrorOf([&] { Transaction next(fDatabase); });
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_FALSE(fDatabase.fTransactionOK);
  EXPECT_TRUE(IsInSQLiteTransaction());

  recorder.Clear();
  {
    Transaction next(fDatabase);
    Write(2);
    next.Commit();
  }
  EXPECT_THAT(recorder.Sql(), ElementsAre("ROLLBACK TRANSACTION", "BEGIN TRANSACTION", "INSERT INTO t VALUES (2)",
                                          "COMMIT TRANSACTION"));
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(KitTransactionTest, ARollbackThatFailsAfterItsWorkIsForgotten) {
  CallRecorder recorder;
  {
    Transaction transaction(fDatabase);
    Write(1);
    recorder.Force("finalize", SQLITE_IOERR, 1);
  }
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitTransactionTest, AVetoThatStandsForNothingIsLifted) {
  fDatabase.fTransactionOK = false;
  CallRecorder recorder;
  Transaction transaction(fDatabase);
  Write(1);
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre("1"));
  EXPECT_EQ(recorder.Sql().front(), "BEGIN TRANSACTION");
}

TEST_F(KitTransactionTest, ADepthBelowZeroIsPutRight) {
  for (const WriteLock lock : {WriteLock::kWhenNeeded, WriteLock::kAtOnce}) {
    fDatabase.fTransactionDepth = -2;
    {
      Transaction transaction(fDatabase, lock);
      EXPECT_EQ(fDatabase.fTransactionDepth, 1);
      EXPECT_TRUE(IsInSQLiteTransaction());
    }
    ExpectNoTransaction();
  }
}

TEST_F(KitTransactionTest, ATransactionOfTheApplicationsOwnQueryIsNotTouched) {
  Rows("BEGIN; INSERT INTO t VALUES (1)");
  for (const WriteLock lock : {WriteLock::kWhenNeeded, WriteLock::kAtOnce}) {
    EXPECT_STREQ(ErrorOf([&] { Transaction(fDatabase, lock); }).what(),
                 "cannot start a transaction within a transaction");
    EXPECT_EQ(fDatabase.fTransactionDepth, 0);
    EXPECT_EQ(Unfinalized(), 0);
  }
  Rows("COMMIT");
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitTransactionTest, ADatabaseThatWasClosedMeanwhileIsNotAskedForARollback) {
  SQLDatabase database(DatabasePath(), false);
  database.Open();
  {
    Transaction transaction(database);
    database.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr);
    database.Close();
    ExpectError(CommitError(transaction), kRolledBack, SQLITE_ABORT_ROLLBACK);
  }
  EXPECT_EQ(database.fTransactionDepth, 0);
  EXPECT_TRUE(database.fTransactionOK);
  EXPECT_THAT(Seen(), IsEmpty());
}

}  // namespace
