#include "sqldb/kit/retry.h"

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <type_traits>
#include <vector>

#include "kit_test.h"

namespace application {

// Of the name of one of the kit's own.
template <typename Action>
void Run(sqldb::SQLDatabase&, Action) {
  ADD_FAILURE();
}

struct Write {
  void operator()() const { ++*fCalls; }

  int* fCalls;
};

}  // namespace application

namespace {

using kit_test::ErrorOf;
using sqldb::SQLDatabase;
using sqldb::kit::Error;
using sqldb::kit::InTransaction;
using sqldb::kit::Patience;
using sqldb::kit::RetryWhileBusy;
using sqldb::kit::Transaction;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using support::CallRecorder;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KitRetryTest : public kit_test::KitTest {
 protected:
  // Pauses take no time. At the n-th one `happens`.
  Patience AtPause(std::size_t n, std::function<void()> happens) {
    Patience patience;
    patience.pause = [this, n, happens](microseconds pause) {
      fPauses.push_back(pause);
      if (fPauses.size() == n) happens();
    };
    return patience;
  }
  Patience WithoutTime() {
    return AtPause(0, [] {});
  }
  // Ends the other connection's transaction at the n-th pause.
  Patience UntilPause(std::size_t n) {
    return AtPause(n, [this] { fOther.Run("COMMIT"); });
  }

  std::vector<microseconds> fPauses;
};

TEST_F(KitRetryTest, WhatDoesNotFailIsDoneOnce) {
  int number = 7;
  EXPECT_EQ(RetryWhileBusy(fDatabase, [] { return 5; }), 5);
  EXPECT_EQ(&RetryWhileBusy(fDatabase, [&]() -> int& { return number; }), &number);
  EXPECT_EQ(*RetryWhileBusy(fDatabase, [] { return std::make_unique<int>(9); }), 9);
  const auto write = [&] { Write(1); };
  static_assert(std::is_void_v<decltype(RetryWhileBusy(fDatabase, write))>);
  RetryWhileBusy(fDatabase, write, WithoutTime());
  EXPECT_THAT(Seen(), ElementsAre("1"));
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, AWriteIsRepeatedUntilTheFileIsFree) {
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  RetryWhileBusy(fDatabase, write, UntilPause(3));
  EXPECT_EQ(tries, 4);
  EXPECT_EQ(fPauses.size(), 3u);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, NothingIsLeftBehindDuringAPause) {
  fOther.Run("BEGIN IMMEDIATE");
  const Patience patience = AtPause(1, [this] {
    EXPECT_EQ(Unfinalized(), 0);
    fOther.Run("ROLLBACK");
    // What a pending write would keep from being committed.
    Write(2);
    EXPECT_THAT(Seen(), ElementsAre("2"));
  });
  RetryWhileBusy(
      fDatabase, [&] { Write(1); }, patience);
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(KitRetryTest, CompilingIsRepeatedToo) {
  SQLDatabase fresh(DatabasePath(), false);
  fresh.Open();
  fOther.Run("BEGIN EXCLUSIVE");
  RetryWhileBusy(
      fresh, [&] { fresh.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr); }, UntilPause(2));
  EXPECT_EQ(fPauses.size(), 2u);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, ThePatienceEndsWithTheAttempts) {
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  Patience patience = WithoutTime();
  patience.attempts = 5;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  const Error error = ErrorOf([&] { RetryWhileBusy(fDatabase, write, patience); });
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
  EXPECT_EQ(tries, 5);
  EXPECT_EQ(fPauses.size(), 4u);
  fOther.Run("ROLLBACK");
}

TEST_F(KitRetryTest, ThePatienceEndsWithTheTotalOfThePauses) {
  fOther.Run("BEGIN IMMEDIATE");
  Patience patience = WithoutTime();
  patience.total = milliseconds(3);
  patience.firstPause = patience.longestPause = microseconds(2000);
  EXPECT_EQ(ErrorOf([&] {
              RetryWhileBusy(
                  fDatabase, [&] { Write(1); }, patience);
            }).Code(),
            SQLITE_BUSY);
  microseconds total(0);
  for (const microseconds pause : fPauses) total += pause;
  EXPECT_EQ(total, milliseconds(3));
  EXPECT_GE(fPauses.size(), 2u);
  EXPECT_LE(fPauses.size(), 3u);

  fPauses.clear();
  patience.total = milliseconds(0);
  EXPECT_EQ(ErrorOf([&] {
              RetryWhileBusy(
                  fDatabase, [&] { Write(1); }, patience);
            }).Code(),
            SQLITE_BUSY);
  EXPECT_THAT(fPauses, IsEmpty());
  fOther.Run("ROLLBACK");
}

TEST_F(KitRetryTest, PausesGrowAndDiffer) {
  fOther.Run("BEGIN IMMEDIATE");
  Patience patience = WithoutTime();
  patience.firstPause = microseconds(1000);
  patience.longestPause = microseconds(7000);
  patience.attempts = 201;
  ErrorOf([&] {
    RetryWhileBusy(
        fDatabase, [&] { Write(1); }, patience);
  });
  fOther.Run("ROLLBACK");
  ASSERT_EQ(fPauses.size(), 200u);
  microseconds most = patience.firstPause;
  for (const microseconds pause : fPauses) {
    EXPECT_GE(pause, most / 2);
    EXPECT_LE(pause, most);
    most = std::min(most * 2, patience.longestPause);
  }
  // Of 197 numbers from 3,500 to 7,000 hardly any two are the same, and all parts of that are hit.
  const std::set<microseconds> last(fPauses.begin() + 3, fPauses.end());
  EXPECT_GT(last.size(), 150u);
  EXPECT_LT(*last.begin(), microseconds(4000));
  EXPECT_GT(*last.rbegin(), microseconds(6500));
}

TEST_F(KitRetryTest, NoPauseIsLongerThanTheLongest) {
  fOther.Run("BEGIN IMMEDIATE");
  Patience patience = WithoutTime();
  patience.firstPause = microseconds(9000);
  patience.longestPause = microseconds(1);
  patience.attempts = 100;
  ErrorOf([&] {
    RetryWhileBusy(
        fDatabase, [&] { Write(1); }, patience);
  });
  std::set<microseconds> pauses(fPauses.begin(), fPauses.end());
  EXPECT_THAT(pauses, ElementsAre(microseconds(0), microseconds(1)));
  patience.longestPause = microseconds(0);
  fPauses.clear();
  ErrorOf([&] {
    RetryWhileBusy(
        fDatabase, [&] { Write(1); }, patience);
  });
  pauses = {fPauses.begin(), fPauses.end()};
  EXPECT_THAT(pauses, ElementsAre(microseconds(0)));
  fOther.Run("ROLLBACK");
}

TEST_F(KitRetryTest, WithoutAFunctionTheThreadSleeps) {
  fOther.Run("BEGIN IMMEDIATE");
  Patience patience;
  patience.attempts = 2;
  patience.firstPause = microseconds(20000);
  const auto begin = std::chrono::steady_clock::now();
  ErrorOf([&] {
    RetryWhileBusy(
        fDatabase, [&] { Write(1); }, patience);
  });
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(10));
  fOther.Run("ROLLBACK");
}

TEST_F(KitRetryTest, APauseMayEndTheTrying) {
  fOther.Run("BEGIN IMMEDIATE");
  const Patience patience = AtPause(2, [] { throw 5; });
  EXPECT_THROW(RetryWhileBusy(
                   fDatabase, [&] { Write(1); }, patience),
               int);
  fOther.Run("ROLLBACK");
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitRetryTest, OtherFailuresAreThrownAtOnce) {
  Write(1);
  const auto write = [&] { Write(1); };
  EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); }).ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_THROW(RetryWhileBusy(
                   fDatabase, [] { throw 5; }, WithoutTime()),
               int);
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, AFailureThatOnlySpeaksLikeABusyFileIsThrownAtOnce) {
  Rows("CREATE TRIGGER refusal BEFORE INSERT ON t BEGIN SELECT RAISE(ABORT, 'database is locked'); END");
  const auto write = [&] { Write(1); };
  const Error error = ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_TRIGGER);
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, AChangedSchemaIsReadAgainUpToTenTimesAndAtOnce) {
  fOther.Run("CREATE TABLE u (b)");
  Patience patience = WithoutTime();
  patience.attempts = 1;
  RetryWhileBusy(
      fDatabase, [&] { Write(1); }, patience);
  EXPECT_THAT(Seen(), ElementsAre("1"));

  // Changes it each time between compiling and stepping.
  class Change : public sqldb::BindingCallback {
   public:
    explicit Change(support::OtherConnection& other) : fOther(other) {}
    void BindingOpportunity(sqlite3_stmt*) const override {
      fOther.Run("CREATE TABLE v" + std::to_string(++fTries) + " (b)");
    }

    support::OtherConnection& fOther;
    mutable int fTries = 0;
  };
  Change change(fOther);
  const auto write = [&] { fDatabase.SendQuery("DELETE FROM t", nullptr, &change); };
  EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, patience); }).Code(), SQLITE_SCHEMA);
  EXPECT_EQ(change.fTries, 11);
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, AnActionOfAnApplicationWithARunOfItsOwnIsCalled) {
  int calls = 0;
  RetryWhileBusy(fDatabase, application::Write{&calls});
  InTransaction(fDatabase, application::Write{&calls});
  EXPECT_EQ(calls, 2);
}

TEST_F(KitRetryTest, NothingIsRepeatedInsideATransaction) {
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  {
    Transaction transaction(fDatabase);
    fOther.Run("BEGIN IMMEDIATE");
    EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); }).Code(), SQLITE_BUSY);
    EXPECT_EQ(tries, 1);
  }
  Rows("BEGIN");
  EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); }).Code(), SQLITE_BUSY);
  EXPECT_EQ(tries, 2);
  Rows("COMMIT");
  // SQLite has rolled back by itself, and the level does not know yet.
  fDatabase.fTransactionDepth = 1;
  EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); }).Code(), SQLITE_BUSY);
  EXPECT_EQ(tries, 3);
  fDatabase.fTransactionDepth = 0;
  fOther.Run("ROLLBACK");
  {
    Transaction transaction(fDatabase);
    fOther.Run("CREATE TABLE u (b)");
    EXPECT_EQ(ErrorOf([&] { RetryWhileBusy(fDatabase, write, WithoutTime()); }).Code(), SQLITE_SCHEMA);
    EXPECT_EQ(tries, 4);
  }
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, ATransactionWithinTheActionIsRepeatedAsAWhole) {
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  const auto work = [&] {
    ++tries;
    Transaction transaction(fDatabase);
    Rows("SELECT * FROM t");
    Write(1);
    transaction.Commit();
  };
  RetryWhileBusy(fDatabase, work, UntilPause(2));
  EXPECT_EQ(tries, 3);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, InTransactionCommitsAndReturnsWhatTheActionReturns) {
  int number = 7;
  EXPECT_EQ(InTransaction(fDatabase, [] { return 5; }), 5);
  EXPECT_EQ(&InTransaction(fDatabase, [&]() -> int& { return number; }), &number);
  EXPECT_EQ(*InTransaction(fDatabase, [] { return std::make_unique<int>(9); }), 9);
  CallRecorder recorder;
  const auto write = [&] {
    Write(1);
    Write(2);
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    EXPECT_THAT(Seen(), IsEmpty());
  };
  static_assert(std::is_void_v<decltype(InTransaction(fDatabase, write))>);
  InTransaction(fDatabase, write, WithoutTime());
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN IMMEDIATE TRANSACTION", "INSERT INTO t VALUES (1)",
                                          "INSERT INTO t VALUES (2)", "COMMIT TRANSACTION"));
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
  EXPECT_THAT(fPauses, IsEmpty());
}

TEST_F(KitRetryTest, TheWriteLockIsAwaitedBeforeTheActionBegins) {
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  InTransaction(fDatabase, write, UntilPause(3));
  EXPECT_EQ(tries, 1);
  EXPECT_EQ(fPauses.size(), 3u);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, ABusyCommitIsRepeatedAlone) {
  fOther.Run("BEGIN; SELECT * FROM t");
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(1);
    return tries;
  };
  EXPECT_EQ(InTransaction(fDatabase, write, UntilPause(3)), 1);
  EXPECT_EQ(fPauses.size(), 3u);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, WhenThePatienceEndsAtTheCommitNothingIsWritten) {
  fOther.Run("BEGIN; SELECT * FROM t");
  int tries = 0;
  Patience patience = WithoutTime();
  patience.attempts = 4;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  EXPECT_EQ(ErrorOf([&] { InTransaction(fDatabase, write, patience); }).Code(), SQLITE_BUSY);
  EXPECT_EQ(tries, 1);
  EXPECT_EQ(fPauses.size(), 3u);
  ExpectNoTransaction();
  fOther.Run("COMMIT");
  EXPECT_THAT(Seen(), IsEmpty());
  fOther.Run("BEGIN IMMEDIATE; ROLLBACK");
}

TEST_F(KitRetryTest, BeginningAndCommittingShareOnePatience) {
  fOther.Run("BEGIN IMMEDIATE");
  Patience patience = AtPause(2, [this] { fOther.Run("COMMIT; BEGIN; SELECT * FROM t"); });
  patience.attempts = 5;
  EXPECT_EQ(ErrorOf([&] {
              InTransaction(
                  fDatabase, [&] { Write(1); }, patience);
            }).Code(),
            SQLITE_BUSY);
  EXPECT_EQ(fPauses.size(), 4u);
  fOther.Run("COMMIT");
}

TEST_F(KitRetryTest, AnActionThatFindsAFileBusyIsRolledBackAndRepeated) {
  const std::string path = fFolder.Path("second.db");
  support::OtherConnection holder(path);
  holder.Run("CREATE TABLE s (b); BEGIN EXCLUSIVE");
  SQLDatabase second(path, false);
  second.Open();
  int tries = 0;
  const auto work = [&] {
    ++tries;
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    Write(tries);
    sqldb::kit::Run(second, [&] { second.SendQuery("INSERT INTO s VALUES (1)", nullptr, nullptr); });
  };
  const Patience patience = AtPause(2, [&] {
    ExpectNoTransaction();
    EXPECT_THAT(Rows("SELECT * FROM t"), IsEmpty());
    holder.Run("COMMIT");
  });
  InTransaction(fDatabase, work, patience);
  EXPECT_EQ(tries, 3);
  EXPECT_THAT(holder.Run("SELECT b FROM s"), ElementsAre("1"));
  EXPECT_THAT(Seen(), ElementsAre("3"));
}

TEST_F(KitRetryTest, AnActionOfASchemaThatHasChangedIsRepeatedAsAWhole) {
  fOther.Run("CREATE TABLE u (b)");
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(tries);
  };
  InTransaction(fDatabase, write, WithoutTime());
  EXPECT_EQ(tries, 2);
  EXPECT_THAT(fPauses, IsEmpty());
  EXPECT_THAT(Seen(), ElementsAre("2"));
}

TEST_F(KitRetryTest, AFailedActionIsRolledBackAndThrown) {
  const auto fail = [&] {
    Write(1);
    Write(1);
  };
  EXPECT_EQ(ErrorOf([&] { InTransaction(fDatabase, fail, WithoutTime()); }).ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  ExpectNoTransaction();
  EXPECT_THROW(InTransaction(fDatabase,
                             [&] {
                               Write(1);
                               throw 5;
                             }),
               int);
  ExpectNoTransaction();
  EXPECT_THAT(Rows("SELECT * FROM t"), IsEmpty());
}

TEST_F(KitRetryTest, TheTellingWordsSurviveTheRollback) {
  bool interrupts = false;
  sqlite3_progress_handler(
      fDatabase.fConnection, 1,
      [](void* flag) {
        bool& isSet = *static_cast<bool*>(flag);
        const bool wasSet = isSet;
        isSet = false;
        return wasSet ? 1 : 0;
      },
      &interrupts);
  const Error error = ErrorOf([&] {
    InTransaction(fDatabase, [&] {
      Write(1);
      interrupts = true;
      // Leaves nothing behind that could tell.
      fTable->CountRecords(nullptr);
    });
  });
  EXPECT_STREQ(error.what(), "interrupted");
  EXPECT_EQ(error.Code(), SQLITE_INTERRUPT);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(KitRetryTest, ABusyWriteThatTheActionHidesIsNotLostSilently) {
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  const auto hide = [&] {
    ++tries;
    Transaction transaction(fDatabase);
    MessageOf([&] { Write(1); });
    fOther.Run("ROLLBACK");
    Write(2);
    transaction.Commit();
  };
  const Error error = ErrorOf([&] { RetryWhileBusy(fDatabase, hide, WithoutTime()); });
  EXPECT_STREQ(error.what(), "cannot commit transaction - SQL statements in progress");
  // To wait for oneself is in vain.
  EXPECT_EQ(tries, 1);
  EXPECT_THAT(fPauses, IsEmpty());
  EXPECT_EQ(Unfinalized(), 0);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
  Write(3);
  EXPECT_THAT(Seen(), ElementsAre("3"));
}

TEST_F(KitRetryTest, InsideATransactionTheActionIsOneMoreLevel) {
  CallRecorder recorder;
  InTransaction(fDatabase, [&] {
    InTransaction(fDatabase, [&] {
      EXPECT_EQ(fDatabase.fTransactionDepth, 2);
      Write(1);
    });
    EXPECT_EQ(fDatabase.fTransactionDepth, 1);
    EXPECT_THAT(Seen(), IsEmpty());
  });
  EXPECT_THAT(recorder.Sql(),
              ElementsAre("BEGIN IMMEDIATE TRANSACTION", "INSERT INTO t VALUES (1)", "COMMIT TRANSACTION"));
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(KitRetryTest, InsideATransactionTheActionIsDoneOnceOnly) {
  fDatabase.BeginTransaction();
  fOther.Run("BEGIN IMMEDIATE");
  int tries = 0;
  const auto write = [&] {
    ++tries;
    Write(1);
  };
  EXPECT_EQ(ErrorOf([&] { InTransaction(fDatabase, write, WithoutTime()); }).Code(), SQLITE_BUSY);
  EXPECT_EQ(tries, 1);
  EXPECT_THAT(fPauses, IsEmpty());
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  EXPECT_FALSE(fDatabase.fTransactionOK);
  fDatabase.EndTransaction(true, false);
  fOther.Run("ROLLBACK");
}

TEST_F(KitRetryTest, AnInnerFailureThatIsHiddenVetoesTheWhole) {
  const Error error = ErrorOf([&] {
    InTransaction(fDatabase, [&] {
      Write(1);
      MessageOf([&] {
        InTransaction(fDatabase, [&] {
          Write(2);
          Write(2);
        });
      });
    });
  });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ABORT_ROLLBACK);
  EXPECT_THAT(Seen(), IsEmpty());
}

}  // namespace
