#include "sqldb/kit/transaction.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "kit_test.h"
#include "sqldb/database.h"
#include "sqldb/kit/leftovers.h"
#include "support/allocations.h"
#include "support/engine.h"
#include "support/temporary_folder.h"

namespace {

using kit_test::ThrownBy;
using sqldb::SQLDatabase;
using sqldb::kit::Begin;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::InTransaction;
using sqldb::kit::Options;
using sqldb::kit::ReleaseLeftovers;
using sqldb::kit::Savepoint;
using sqldb::kit::Transaction;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kVetoed[] = "The transaction was rolled back, because a part of it was.";
constexpr char kRolledBack[] = "SQLite has rolled the transaction back.";
constexpr char kMisused[] = "The transaction has ended already, or a part of it has not.";
constexpr char kSavepointMisused[] = "The savepoint has ended already, or a part of it has not.";
constexpr char kNotOpen[] = "The database is not open.";

Options Impatient() {
  Options options;
  options.busyTimeout = 0;
  return options;
}

void ExpectError(const Error& error, const char* message, int code) {
  EXPECT_EQ(error.Message(), message);
  EXPECT_EQ(error.ExtendedCode(), code);
}
Error CommitError(Transaction& transaction) {
  return ThrownBy([&] { transaction.Commit(); });
}

// Makes SQLite refuse to compile what ends a transaction while it lives. What was compiled before is compiled anew.
class RefusedRollback {
 public:
  explicit RefusedRollback(Database& database) : fConnection(database.Core().fConnection) {
    sqlite3_set_authorizer(fConnection, &Authorize, nullptr);
  }
  ~RefusedRollback() { sqlite3_set_authorizer(fConnection, nullptr, nullptr); }
  RefusedRollback(const RefusedRollback&) = delete;
  RefusedRollback& operator=(const RefusedRollback&) = delete;

 private:
  static int Authorize(void*, int action, const char* what, const char*, const char*, const char*) {
    return (action == SQLITE_TRANSACTION || action == SQLITE_SAVEPOINT) && std::string(what) == "ROLLBACK" ? SQLITE_DENY
                                                                                                           : SQLITE_OK;
  }
  sqlite3* fConnection;
};

// No memory for SQLite while it lives.
class NoMemory {
 public:
  NoMemory() { Limit(1); }
  ~NoMemory() { Limit(0); }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

 private:
  static void Limit([[maybe_unused]] int bytes) {
#if SQLITE_VERSION_NUMBER >= 3031000
    sqlite3_hard_heap_limit64(bytes);
#endif
  }
};

// A database with the table t, whose column a is unique, in a file that another connection works on as well. At the end
// of each test no transaction may be open and no veto stand.
class TransactionTest : public ::testing::Test {
 protected:
  TransactionTest() : fDatabase(Path(), Impatient()), fOther(Path(), Impatient()) {
    fDatabase.Execute("CREATE TABLE t (a UNIQUE)");
  }
  void TearDown() override { ExpectNoTransaction(); }

  std::string Path() const { return fFolder.Path("test.db"); }
  SQLDatabase& Core() const { return fDatabase.Core(); }
  bool IsInSQLiteTransaction() const { return sqlite3_get_autocommit(Core().fConnection) == 0; }
  void ExpectNoTransaction() const {
    EXPECT_EQ(Core().fTransactionDepth, 0);
    EXPECT_TRUE(Core().fTransactionOK);
    EXPECT_FALSE(IsInSQLiteTransaction());
  }
  void Write(int value) { fDatabase.Execute("INSERT INTO t VALUES (?)", value); }
  void WriteByCore(int value) {
    sqldb::kit::Run(
        Core(), [&] { Core().SendQuery("INSERT INTO t VALUES (" + std::to_string(value) + ")", nullptr, nullptr); });
  }
  // Fails in a single row for which the file may not grow; SQLite then rolls back whatever is open.
  void FillTheDisk() {
    fDatabase.Execute("PRAGMA max_page_count = 1");
    EXPECT_EQ(ThrownBy([&] { fDatabase.Execute("INSERT INTO t VALUES (zeroblob(100000))"); }).Code(), SQLITE_FULL);
    ASSERT_FALSE(IsInSQLiteTransaction());
  }
  void MakeRoom() { fDatabase.Execute("PRAGMA max_page_count = 1000000"); }
  // What the rest of the world sees.
  std::vector<int> Seen() { return fOther.All<int>("SELECT a FROM t ORDER BY a"); }

  support::TemporaryFolder fFolder;
  Database fDatabase;
  Database fOther;
};

TEST_F(TransactionTest, CommitKeepsWhatWasWritten) {
  {
    Transaction transaction(fDatabase);
    EXPECT_EQ(Core().fTransactionDepth, 1);
    Write(1);
    EXPECT_THAT(Seen(), IsEmpty());
    transaction.Commit();
    ExpectNoTransaction();
    EXPECT_THAT(Seen(), ElementsAre(1));
  }
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, TheDestructorRollsBackWhatWasNotCommitted) {
  {
    const Transaction transaction(fDatabase);
    Write(1);
  }
  ExpectNoTransaction();
  EXPECT_THAT(fDatabase.All<int>("SELECT a FROM t"), IsEmpty());
}

TEST_F(TransactionTest, AnExceptionRollsBack) {
  ThrownBy<ConstraintError>([&] {
    const Transaction transaction(fDatabase);
    Write(1);
    Write(1);
  });
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, TheWriteLockIsTakenAtOnceUnlessAskedOtherwise) {
  {
    const Transaction transaction(fDatabase);
    EXPECT_EQ(ThrownBy<BusyError>([&] { const Transaction other(fOther); }).Code(), SQLITE_BUSY);
    EXPECT_EQ(fOther.Core().fTransactionDepth, 0);
    EXPECT_THAT(Seen(), IsEmpty());
  }
  {
    const Transaction transaction(fDatabase, Begin::kDeferred);
    const Transaction other(fOther);
  }
  {
    const Transaction transaction(fDatabase, Begin::kExclusive);
    ThrownBy<BusyError>([&] { Seen(); });
  }
}

TEST_F(TransactionTest, OnlyTheOutermostOfThreeLevelsTalksToSQLite) {
  Transaction outer(fDatabase);
  {
    Transaction middle(fDatabase, Begin::kExclusive);
    {
      Transaction inner(fDatabase);
      EXPECT_EQ(Core().fTransactionDepth, 3);
      Write(1);
      inner.Commit();
      EXPECT_EQ(Core().fTransactionDepth, 2);
    }
    EXPECT_EQ(Core().fTransactionDepth, 2);
    middle.Commit();
  }
  EXPECT_EQ(Core().fTransactionDepth, 1);
  EXPECT_THAT(Seen(), IsEmpty());
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, LevelsCountTogetherWithThoseOfTheCore) {
  Core().BeginTransaction();
  {
    Transaction inner(fDatabase);
    EXPECT_EQ(Core().fTransactionDepth, 2);
    Write(1);
    inner.Commit();
  }
  Core().EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre(1));

  Transaction outer(fDatabase);
  Core().BeginTransaction();
  WriteByCore(2);
  Core().EndTransaction(true, false);
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

TEST_F(TransactionTest, AnInnerRollbackVetoesTheOutermostCommit) {
  {
    Transaction outer(fDatabase);
    Write(1);
    {
      Transaction middle(fDatabase);
      {
        const Transaction inner(fDatabase);
        Write(2);
      }
      EXPECT_EQ(Core().fTransactionDepth, 2);
      EXPECT_FALSE(Core().fTransactionOK);
      EXPECT_TRUE(IsInSQLiteTransaction());
      middle.Commit();
    }
    EXPECT_EQ(Core().fTransactionDepth, 1);
    ExpectError(CommitError(outer), kVetoed, SQLITE_ABORT_ROLLBACK);
    ExpectNoTransaction();
    EXPECT_THAT(Seen(), IsEmpty());
    ExpectError(CommitError(outer), kMisused, SQLITE_MISUSE);
  }
  Transaction next(fDatabase);
  Write(3);
  next.Commit();
  EXPECT_THAT(Seen(), ElementsAre(3));
}

TEST_F(TransactionTest, LevelsThatDidNotEndAreRolledBackWithTheOneAround) {
  {
    Transaction outer(fDatabase);
    Core().BeginTransaction();
    Write(1);
    ExpectError(CommitError(outer), kMisused, SQLITE_MISUSE);
    EXPECT_EQ(Core().fTransactionDepth, 2);
    EXPECT_TRUE(IsInSQLiteTransaction());
  }
  ExpectNoTransaction();
  {
    const Transaction outer(fDatabase);
    {
      const Transaction inner(fDatabase);
      Core().BeginTransaction();
    }
    EXPECT_EQ(Core().fTransactionDepth, 1);
  }
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, ASecondCommitIsRefused) {
  Transaction transaction(fDatabase);
  transaction.Commit();
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  Transaction next(fDatabase);
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  EXPECT_TRUE(IsInSQLiteTransaction());
  next.Commit();
}

TEST_F(TransactionTest, OneThatHasEndedLeavesALaterOneAlone) {
  std::optional<Transaction> committed(std::in_place, fDatabase);
  committed->Commit();
  std::optional<Transaction> endedElsewhere(std::in_place, fDatabase);
  Core().EndTransaction(true, true);
  Transaction later(fDatabase);
  Write(1);
  EXPECT_EQ(CommitError(*committed).Code(), SQLITE_MISUSE);
  EXPECT_EQ(CommitError(*endedElsewhere).Code(), SQLITE_MISUSE);
  committed.reset();
  endedElsewhere.reset();
  EXPECT_EQ(Core().fTransactionDepth, 1);
  later.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, OneInsideThatHasEndedLeavesALaterOneAlone) {
  Transaction outer(fDatabase);
  std::optional<Transaction> ended(std::in_place, fDatabase);
  ended->Commit();
  Transaction later(fDatabase);
  ExpectError(CommitError(*ended), kMisused, SQLITE_MISUSE);
  ended.reset();
  Write(1);
  later.Commit();
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ASavepointThatHasEndedLeavesALaterOneAlone) {
  Transaction transaction(fDatabase);
  std::optional<Savepoint> ended(std::in_place, fDatabase);
  ended->Release();
  Savepoint later(fDatabase);
  Write(1);
  ExpectError(ThrownBy([&] { ended->Release(); }), kSavepointMisused, SQLITE_MISUSE);
  ended.reset();
  later.Release();
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ALevelThatWasEndedElsewhereIsLeftAlone) {
  {
    Transaction transaction(fDatabase);
    Write(1);
    Core().EndTransaction(true, true);
    ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  }
  ExpectNoTransaction();
  Transaction outer(fDatabase);
  Write(2);
  {
    const Transaction inner(fDatabase);
    Core().EndTransaction(true, false);
  }
  outer.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

// What makes SQLite roll the whole transaction back.
struct OwnRollback {
  const char* name;
  void (*cause)(Database& database);
};

class OwnRollbackTest : public TransactionTest, public ::testing::WithParamInterface<OwnRollback> {
 protected:
  // With a row that was written before, and is gone with the rest.
  void CauseIt() {
    Write(1);
    ThrownBy([&] { GetParam().cause(fDatabase); });
    ASSERT_FALSE(IsInSQLiteTransaction());
    MakeRoom();
  }
};

INSTANTIATE_TEST_SUITE_P(
    All, OwnRollbackTest,
    ::testing::Values(OwnRollback{"AFullDisk",
                                  [](Database& database) {
                                    database.ExecuteScript("PRAGMA max_page_count = 1");
                                    database.Execute("INSERT INTO t VALUES (zeroblob(100000))");
                                  }},
                      OwnRollback{"RaiseRollback",
                                  [](Database& database) {
                                    database.Execute(
                                        "CREATE TEMP TRIGGER no BEFORE INSERT ON t WHEN NEW.a = -1 BEGIN "
                                        "SELECT RAISE(ROLLBACK, 'no'); END");
                                    database.Execute("INSERT INTO t VALUES (-1)");
                                  }},
                      OwnRollback{"OnConflictRollback",
                                  [](Database& database) { database.Execute("INSERT OR ROLLBACK INTO t VALUES (1)"); }},
                      OwnRollback{"SqlOfTheProgram",
                                  [](Database& database) {
                                    database.Execute("ROLLBACK");
                                    throw Error("done", SQLITE_ABORT);
                                  }}),
    [](const auto& test) { return test.param.name; });

TEST_P(OwnRollbackTest, AnActionThatGoesOnWritesNothing) {
  const Error error = ThrownBy([&] {
    InTransaction(fDatabase, [&] {
      CauseIt();
      for (int i = 0; i < 3; ++i) {
        ExpectError(ThrownBy([&] { Write(10 + i); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
        ExpectError(ThrownBy([&] { fDatabase.ExecuteScript("SELECT 1; INSERT INTO t VALUES (20)"); }), kRolledBack,
                    SQLITE_ABORT_ROLLBACK);
        EXPECT_NO_THROW(fDatabase.ExecuteScript("SELECT 1"));
        ExpectError(ThrownBy([&] { const Transaction inner(fDatabase); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
        ExpectError(ThrownBy([&] { const Savepoint part(fDatabase); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
        EXPECT_THAT(fDatabase.All<int>("SELECT a FROM t"), IsEmpty());
      }
    });
  });
  ExpectError(error, kRolledBack, SQLITE_ABORT_ROLLBACK);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
  Write(2);
  InTransaction(fDatabase, [&] { Write(3); });
  EXPECT_THAT(Seen(), ElementsAre(2, 3));
}

TEST_P(OwnRollbackTest, TheEndOfTheLevelSendsNothing) {
  {
    const Transaction transaction(fDatabase);
    const Savepoint part(fDatabase);
    CauseIt();
    fDatabase.One<int>("SELECT 1");
    EXPECT_EQ(sqlite3_errcode(Core().fConnection), SQLITE_OK);
  }
  // A ROLLBACK would have failed.
  EXPECT_EQ(sqlite3_errcode(Core().fConnection), SQLITE_OK);
}

TEST_P(OwnRollbackTest, WhatTheProgramBeginsInItsPlaceIsNotCommittedWithTheLevel) {
  for (const char* const begin : {"BEGIN", "BEGIN IMMEDIATE", "SAVEPOINT own"}) {
    SCOPED_TRACE(begin);
    for (const bool isByCore : {false, true}) {
      Transaction transaction(fDatabase);
      CauseIt();
      if (isByCore) {
        Core().SendQuery(begin, nullptr, nullptr);
        WriteByCore(10);
      } else {
        // The kit sees that a BEGIN IMMEDIATE writes, and refuses that at once.
        try {
          fDatabase.ExecuteScript(begin);
          Write(10);
        } catch (const Error& error) {
          ExpectError(error, kRolledBack, SQLITE_ABORT_ROLLBACK);
        }
      }
      EXPECT_EQ(CommitError(transaction).ExtendedCode(), SQLITE_ABORT_ROLLBACK);
      ExpectNoTransaction();
      EXPECT_THAT(Seen(), IsEmpty());
    }
  }
  InTransaction(fDatabase, [&] { Write(2); });
  Core().BeginTransaction();
  WriteByCore(3);
  Core().EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre(2, 3));
}

TEST_P(OwnRollbackTest, ALevelOfTheCoreAfterOneOfTheKitIsTheCores) {
  const std::function<void()> levels[] = {[&] { InTransaction(fDatabase, [&] { Write(9); }); },
                                          [&] {
                                            InTransaction(
                                                fDatabase, [] {}, Begin::kDeferred);
                                          },
                                          [&] {
                                            const Transaction ended(fDatabase);
                                            Write(8);
                                            Core().EndTransaction(true, false);
                                          },
                                          [&] { const Transaction undone(fDatabase); }};
  for (const auto& level : levels) {
    level();
    Core().BeginTransaction();
    CauseIt();
    EXPECT_TRUE(Core().fTransactionOK);
    ThrownBy([&] { sqldb::kit::Run(Core(), [&] { Core().EndTransaction(true, true); }); });
  }
}

TEST_P(OwnRollbackTest, NeitherDoesTheCore) {
  {
    const Transaction transaction(fDatabase);
    CauseIt();
    ExpectError(ThrownBy([&] { WriteByCore(10); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
    EXPECT_THROW(Core().SendQuery("BEGIN; INSERT INTO t VALUES (11); COMMIT", nullptr, nullptr), std::runtime_error);
    ReleaseLeftovers(Core());
    EXPECT_FALSE(IsInSQLiteTransaction());
    EXPECT_THAT(Seen(), IsEmpty());
  }
  ExpectNoTransaction();
  WriteByCore(2);
  EXPECT_THAT(Seen(), ElementsAre(2));
}

TEST_P(OwnRollbackTest, LevelsThatTheCoreBeganAndEndsAreGuardedAsWell) {
  Core().BeginTransaction();
  CauseIt();
  ExpectError(ThrownBy([&] { WriteByCore(10); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
  ExpectError(ThrownBy([&] { Write(11); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
  ThrownBy([&] { sqldb::kit::Run(Core(), [&] { Core().EndTransaction(true, true); }); });
  WriteByCore(2);
  Write(3);
  EXPECT_THAT(Seen(), ElementsAre(2, 3));
  Core().BeginTransaction();
  WriteByCore(4);
  Core().EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre(2, 3, 4));
}

TEST_P(OwnRollbackTest, EachLevelTells) {
  {
    Transaction outer(fDatabase);
    {
      Transaction middle(fDatabase);
      {
        const Transaction inner(fDatabase);
        CauseIt();
      }
      EXPECT_EQ(Core().fTransactionDepth, 2);
      ExpectError(CommitError(middle), kRolledBack, SQLITE_ABORT_ROLLBACK);
      EXPECT_EQ(Core().fTransactionDepth, 1);
      ExpectError(CommitError(middle), kMisused, SQLITE_MISUSE);
    }
    EXPECT_EQ(Core().fTransactionDepth, 1);
    ExpectError(CommitError(outer), kRolledBack, SQLITE_ABORT_ROLLBACK);
    ExpectNoTransaction();
  }
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_P(OwnRollbackTest, ASavepointIsGoneWithTheTransaction) {
  {
    Transaction transaction(fDatabase);
    {
      Savepoint released(fDatabase);
      const Savepoint inner(fDatabase);
      CauseIt();
      ExpectError(ThrownBy([&] { released.Release(); }), kSavepointMisused, SQLITE_MISUSE);
    }
    ExpectError(CommitError(transaction), kRolledBack, SQLITE_ABORT_ROLLBACK);
  }
  {
    const Transaction transaction(fDatabase);
    Savepoint savepoint(fDatabase);
    CauseIt();
    ExpectError(ThrownBy([&] { savepoint.Release(); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
    ExpectError(ThrownBy([&] { savepoint.Release(); }), kSavepointMisused, SQLITE_MISUSE);
  }
}

TEST_F(TransactionTest, ABusyCommitMayBeRepeated) {
  Transaction transaction(fDatabase);
  Write(1);
  std::optional<Transaction> reading(std::in_place, fOther, Begin::kDeferred);
  Seen();
  for (int i = 0; i < 2; ++i) {
    ExpectError(ThrownBy<BusyError>([&] { transaction.Commit(); }), "database is locked", SQLITE_BUSY);
    EXPECT_EQ(Core().fTransactionDepth, 1);
    EXPECT_TRUE(Core().fTransactionOK);
    EXPECT_TRUE(IsInSQLiteTransaction());
  }
  reading.reset();
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ABusyCommitIsRolledBackByTheDestructor) {
  const Transaction reading(fOther, Begin::kDeferred);
  {
    Transaction transaction(fDatabase);
    Write(1);
    Seen();
    EXPECT_EQ(CommitError(transaction).Code(), SQLITE_BUSY);
  }
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, BeginAndCommitWaitForABusyFile) {
  Options options;
  options.busyTimeout = 50;
  Database patient(Path(), options);
  const Transaction transaction(fDatabase);
  const auto start = std::chrono::steady_clock::now();
  ThrownBy<BusyError>([&] { const Transaction waiting(patient); });
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
}

TEST_F(TransactionTest, WhatWaitingCannotCureComesBackAtOnce) {
  Options options;
  options.wal = true;
  options.busyTimeout = 60000;
  Database patient(Path(), options);
  Transaction transaction(patient, Begin::kDeferred);
  patient.All<int>("SELECT a FROM t");
  Write(1);
  const auto start = std::chrono::steady_clock::now();
  const Error error = ThrownBy<BusyError>([&] { patient.Execute("INSERT INTO t VALUES (2)"); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  transaction.Commit();
}

TEST_F(TransactionTest, ACommitAfterWhichSQLiteRollsBackLeavesNothingOpen) {
  fDatabase.ExecuteScript(
      "PRAGMA foreign_keys = ON; CREATE TABLE u (b REFERENCES t (a) DEFERRABLE INITIALLY DEFERRED)");
  {
    Transaction transaction(fDatabase);
    fDatabase.Execute("INSERT INTO u VALUES (7)");
    ThrownBy<ConstraintError>([&] { transaction.Commit(); });
    EXPECT_TRUE(IsInSQLiteTransaction());
  }
  {
    Transaction transaction(fDatabase);
    Write(1);
    sqlite3_commit_hook(
        Core().fConnection, [](void*) { return 1; }, nullptr);
    EXPECT_EQ(ThrownBy<ConstraintError>([&] { transaction.Commit(); }).ExtendedCode(), SQLITE_CONSTRAINT_COMMITHOOK);
    ExpectNoTransaction();
    ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  }
  ThrownBy([&] { const Transaction transaction(fDatabase); });
}

TEST_F(TransactionTest, ACommitHookOfTheProgramIsRefusedAndNotPutBack) {
  for (void* const data : {static_cast<void*>(this), static_cast<void*>(nullptr)}) {
    sqlite3_commit_hook(
        Core().fConnection, [](void*) { return 1; }, data);
    ExpectError(ThrownBy([&] { const Transaction transaction(fDatabase); }),
                "The program has set a commit or rollback hook, and the kit needs it.", SQLITE_MISUSE);
    ExpectNoTransaction();
    InTransaction(fDatabase, [&] { Write(data != nullptr ? 1 : 2); });
  }
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

TEST_F(TransactionTest, ARollbackHookOfTheProgramIsRefusedAndNotPutBack) {
  sqlite3_rollback_hook(
      Core().fConnection, [](void*) {}, this);
  ExpectError(ThrownBy([&] { const Transaction transaction(fDatabase); }),
              "The program has set a commit or rollback hook, and the kit needs it.", SQLITE_MISUSE);
  ExpectNoTransaction();
  InTransaction(fDatabase, [&] { Write(1); });
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ACommitOfTheProgramsOwnIsRefusedInsideALevel) {
  {
    Transaction transaction(fDatabase);
    Write(1);
    ExpectError(ThrownBy([&] { fDatabase.Execute("COMMIT"); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
    ExpectError(ThrownBy([&] { Write(2); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
    ExpectError(CommitError(transaction), kRolledBack, SQLITE_ABORT_ROLLBACK);
  }
  {
    const Transaction transaction(fDatabase);
    Write(3);
    ExpectError(ThrownBy([&] { fDatabase.ExecuteScript("COMMIT; BEGIN"); }), kRolledBack, SQLITE_ABORT_ROLLBACK);
  }
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, ARefusalOfACommitHookOutsideOfLevelsIsItsOwn) {
  sqlite3_commit_hook(
      Core().fConnection, [](void*) { return 1; }, nullptr);
  EXPECT_EQ(ThrownBy<ConstraintError>([&] { Write(1); }).ExtendedCode(), SQLITE_CONSTRAINT_COMMITHOOK);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, ADatabaseOfTheCoreWithACommitHookIsRefusedAndLeftWithoutIt) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  sqlite3_commit_hook(
      core->fConnection, [](void*) { return 1; }, this);
  EXPECT_EQ(ThrownBy([&] { const Database database(core); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(sqlite3_commit_hook(core->fConnection, nullptr, nullptr), nullptr);
  sqlite3_rollback_hook(
      core->fConnection, [](void*) {}, this);
  EXPECT_EQ(ThrownBy([&] { const Database database(core); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(sqlite3_rollback_hook(core->fConnection, nullptr, nullptr), nullptr);
  const Database database(core);
}

TEST_F(TransactionTest, TwoDatabasesOfOneCoreCountTheSameLevels) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  Database first(core);
  std::optional<Database> second(core);
  {
    Transaction outer(first);
    Transaction inner(*second);
    EXPECT_EQ(core->fTransactionDepth, 2);
    second->Execute("INSERT INTO t VALUES (1)");
    inner.Commit();
    outer.Commit();
  }
  EXPECT_THAT(Seen(), ElementsAre(1));
  second.reset();
  // The hook is still there.
  const Transaction transaction(first);
  ThrownBy([&] { first.Execute("INSERT OR ROLLBACK INTO t VALUES (1)"); });
  EXPECT_THROW(core->SendQuery("INSERT INTO t VALUES (2)", nullptr, nullptr), std::runtime_error);
  ReleaseLeftovers(*core);
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, TheLastDatabaseOfACoreTakesTheHookOff) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  sqlite3_busy_timeout(core->fConnection, 1000);
  { const Database database(core); }
  EXPECT_EQ(core->fTransactionDepth, 0);
  EXPECT_TRUE(core->fTransactionOK);
  EXPECT_EQ(Database(core).One<int>("PRAGMA busy_timeout"), 1000);
  EXPECT_EQ(sqlite3_commit_hook(core->fConnection, nullptr, nullptr), nullptr);
  EXPECT_EQ(sqlite3_rollback_hook(core->fConnection, nullptr, nullptr), nullptr);
}

TEST_F(TransactionTest, TheEndNeedsNoMemoryOfSQLiteAndNoneOfTheProgram) {
  if (sqlite3_libversion_number() < 3031000) GTEST_SKIP() << "no limit to memory";
  for (const bool commits : {true, false}) {
    std::optional<Transaction> transaction(std::in_place, fDatabase);
    Write(commits ? 1 : 2);
    const NoMemory noMemory;
    const support::AllocationCount allocations;
    if (commits) transaction->Commit();
    transaction.reset();
    EXPECT_EQ(allocations.Count(), 0u);
    ExpectNoTransaction();
  }
  Write(3);
  InTransaction(fDatabase, [&] { Write(4); });
  EXPECT_THAT(Seen(), ElementsAre(1, 3, 4));
}

TEST_F(TransactionTest, ARollbackThatIsRefusedIsMadeUpForByTheNextWrite) {
  {
    std::optional<Transaction> transaction(std::in_place, fDatabase);
    Write(1);
    const RefusedRollback refused(fDatabase);
    transaction.reset();
    EXPECT_TRUE(IsInSQLiteTransaction());
    EXPECT_EQ(Core().fTransactionDepth, 0);
    EXPECT_FALSE(Core().fTransactionOK);
    EXPECT_EQ(ThrownBy([&] { Write(2); }).Code(), SQLITE_AUTH);
    EXPECT_EQ(ThrownBy([&] { fDatabase.ExecuteScript("INSERT INTO t VALUES (2)"); }).Code(), SQLITE_AUTH);
  }
  Write(3);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), ElementsAre(3));
  InTransaction(fDatabase, [&] { Write(4); });
  EXPECT_THAT(Seen(), ElementsAre(3, 4));
}

TEST_F(TransactionTest, ARollbackThatIsRefusedIsMadeUpForByTheNextTransaction) {
  {
    std::optional<Transaction> transaction(std::in_place, fDatabase);
    Write(1);
    const RefusedRollback refused(fDatabase);
    transaction.reset();
    EXPECT_EQ(ThrownBy([&] { const Transaction next(fDatabase); }).Code(), SQLITE_AUTH);
    EXPECT_EQ(Core().fTransactionDepth, 0);
    EXPECT_FALSE(Core().fTransactionOK);
  }
  Transaction next(fDatabase);
  Write(2);
  next.Commit();
  EXPECT_THAT(Seen(), ElementsAre(2));
}

TEST_F(TransactionTest, ARollbackThatIsRefusedIsMadeUpForAlsoIfTheProgramLiftsTheVeto) {
  {
    std::optional<Transaction> transaction(std::in_place, fDatabase);
    Write(1);
    const RefusedRollback refused(fDatabase);
    transaction.reset();
  }
  Core().fTransactionOK = true;
  InTransaction(fDatabase, [&] { Write(2); });
  EXPECT_THAT(Seen(), ElementsAre(2));
}

TEST_F(TransactionTest, AVetoedCommitWhoseRollbackIsRefusedMayBeRepeated) {
  Transaction transaction(fDatabase);
  Write(1);
  { const Transaction inner(fDatabase); }
  {
    const RefusedRollback refused(fDatabase);
    EXPECT_EQ(CommitError(transaction).Code(), SQLITE_AUTH);
    EXPECT_EQ(Core().fTransactionDepth, 1);
    EXPECT_TRUE(IsInSQLiteTransaction());
  }
  ExpectError(CommitError(transaction), kVetoed, SQLITE_ABORT_ROLLBACK);
  ExpectNoTransaction();
}

TEST_F(TransactionTest, AVetoThatStandsForNothingIsLifted) {
  for (int i = 1; i <= 2; ++i) {
    Core().fTransactionOK = false;
    Transaction transaction(fDatabase);
    Write(i);
    transaction.Commit();
  }
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

TEST_F(TransactionTest, ADepthBelowZeroIsPutRight) {
  for (const Begin begin : {Begin::kDeferred, Begin::kImmediate, Begin::kExclusive}) {
    Core().fTransactionDepth = -2;
    {
      const Transaction transaction(fDatabase, begin);
      EXPECT_EQ(Core().fTransactionDepth, 1);
      EXPECT_TRUE(IsInSQLiteTransaction());
    }
    ExpectNoTransaction();
  }
}

TEST_F(TransactionTest, ATransactionOfTheProgramsOwnSqlIsNotTouched) {
  fDatabase.ExecuteScript("BEGIN; INSERT INTO t VALUES (1)");
  for (const Begin begin : {Begin::kDeferred, Begin::kImmediate, Begin::kExclusive}) {
    EXPECT_EQ(ThrownBy([&] { Transaction(fDatabase, begin); }).Message(),
              "cannot start a transaction within a transaction");
    EXPECT_EQ(Core().fTransactionDepth, 0);
  }
  ExpectError(ThrownBy([&] { const Savepoint savepoint(fDatabase); }),
              "A savepoint is a part of a transaction, and none is open.", SQLITE_MISUSE);
  fDatabase.Execute("COMMIT");
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ASchemaThatIsChangedInsideIsRolledBackToo) {
  {
    const Transaction transaction(fDatabase);
    fDatabase.ExecuteScript("CREATE TABLE u (b); ANALYZE; INSERT INTO u VALUES (1)");
  }
  ExpectNoTransaction();
  InTransaction(fDatabase, [&] { fDatabase.Execute("CREATE TABLE u (b)"); });
  EXPECT_EQ(fOther.One<int>("SELECT COUNT(*) FROM u"), 0);
}

TEST_F(TransactionTest, WhatReadsGoesOnAfterTheCommit) {
  InTransaction(fDatabase, [&] {
    for (int i = 0; i < 3; ++i) Write(i);
  });
  int seen = 0;
  for (const int a : fDatabase.Query<int>("SELECT a FROM t ORDER BY a")) {
    EXPECT_EQ(a, seen++);
    InTransaction(fDatabase, [&] { Write(10 - a); });
    if (a == 2) break;
  }
  EXPECT_THAT(Seen(), ElementsAre(0, 1, 2, 8, 9, 10));
}

TEST_F(TransactionTest, InTransactionReturnsWhatTheActionReturns) {
  int number = 7;
  EXPECT_EQ(InTransaction(fDatabase, [] { return 5; }), 5);
  EXPECT_EQ(&InTransaction(fDatabase, [&]() -> int& { return number; }), &number);
  EXPECT_EQ(*InTransaction(fDatabase, [] { return std::make_unique<int>(9); }), 9);
  const auto write = [&] { Write(1); };
  static_assert(std::is_void_v<decltype(InTransaction(fDatabase, write))>);
  InTransaction(fDatabase, write, Begin::kDeferred);
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, InTransactionRollsBackWhatAnActionWroteThatThrows) {
  EXPECT_THROW(InTransaction(fDatabase,
                             [&] {
                               Write(1);
                               throw 5;
                             }),
               int);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, ASavepointUndoesItsPartAlone) {
  Transaction transaction(fDatabase);
  Write(1);
  {
    const Savepoint undone(fDatabase);
    Write(2);
  }
  {
    Savepoint kept(fDatabase);
    Write(3);
    {
      const Savepoint undone(fDatabase);
      Write(4);
    }
    {
      Savepoint released(fDatabase);
      Write(5);
      released.Release();
    }
    kept.Release();
    ExpectError(ThrownBy([&] { kept.Release(); }), kSavepointMisused, SQLITE_MISUSE);
  }
  {
    const Savepoint undone(fDatabase);
    Savepoint released(fDatabase);
    Write(6);
    released.Release();
  }
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1, 3, 5));
}

TEST_F(TransactionTest, ASavepointIsReleasedAfterThoseInsideIt) {
  Transaction transaction(fDatabase);
  std::optional<Savepoint> outer(std::in_place, fDatabase);
  Write(1);
  std::optional<Savepoint> inner(std::in_place, fDatabase);
  Write(2);
  ExpectError(ThrownBy([&] { outer->Release(); }), kSavepointMisused, SQLITE_MISUSE);
  ExpectError(CommitError(transaction), kMisused, SQLITE_MISUSE);
  outer.reset();
  EXPECT_THAT(fDatabase.All<int>("SELECT a FROM t"), IsEmpty());
  ExpectError(ThrownBy([&] { inner->Release(); }), kSavepointMisused, SQLITE_MISUSE);
  Write(3);
  inner.reset();
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(3));
}

TEST_F(TransactionTest, ASavepointThatOutlivesItsTransactionLeavesTheNextOneAlone) {
  std::optional<Transaction> first(std::in_place, fDatabase);
  std::optional<Savepoint> outliving(std::in_place, fDatabase);
  first.reset();
  Transaction next(fDatabase);
  Savepoint savepoint(fDatabase);
  Write(1);
  ExpectError(ThrownBy([&] { outliving->Release(); }), kSavepointMisused, SQLITE_MISUSE);
  outliving.reset();
  savepoint.Release();
  next.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ASavepointIsDoneWithALevelInsideItThatWasRolledBack) {
  Transaction transaction(fDatabase);
  Write(1);
  {
    const Savepoint savepoint(fDatabase);
    const Transaction inner(fDatabase);
    Write(2);
  }
  EXPECT_TRUE(Core().fTransactionOK);
  {
    Savepoint savepoint(fDatabase);
    Core().BeginTransaction();
    ExpectError(ThrownBy([&] { savepoint.Release(); }), kSavepointMisused, SQLITE_MISUSE);
  }
  EXPECT_EQ(Core().fTransactionDepth, 1);
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ASavepointDoesNotLiftAnEarlierVeto) {
  Transaction transaction(fDatabase);
  { const Transaction inner(fDatabase); }
  { const Savepoint savepoint(fDatabase); }
  ExpectError(CommitError(transaction), kVetoed, SQLITE_ABORT_ROLLBACK);
}

TEST_F(TransactionTest, WhatASavepointCannotUndoIsRolledBackAsAWhole) {
  Transaction transaction(fDatabase);
  Write(1);
  {
    std::optional<Savepoint> savepoint(std::in_place, fDatabase);
    Write(2);
    const RefusedRollback refused(fDatabase);
    savepoint.reset();
  }
  ExpectError(CommitError(transaction), kVetoed, SQLITE_ABORT_ROLLBACK);
  EXPECT_THAT(Seen(), IsEmpty());
}

// SQLite needs some to undo a part, and rolls the whole transaction back where there is none.
TEST_F(TransactionTest, ASavepointThatHasNoMemoryTakesTheTransactionWithIt) {
  if (sqlite3_libversion_number() < 3031000) GTEST_SKIP() << "no limit to memory";
  Transaction transaction(fDatabase);
  Write(1);
  {
    std::optional<Savepoint> savepoint(std::in_place, fDatabase);
    Write(2);
    const NoMemory noMemory;
    savepoint.reset();
  }
  EXPECT_EQ(CommitError(transaction).ExtendedCode(), SQLITE_ABORT_ROLLBACK);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, CloseRollsBackAndWhatOutlivesItThrowsAndCanBeDestroyed) {
  for (const bool byCore : {true, false}) {
    Database database(Path(), Impatient());
    Transaction transaction(database);
    Transaction inner(database);
    Savepoint savepoint(database);
    database.Execute("INSERT INTO t VALUES (1)");
    if (byCore) {
      database.Core().Close();
    } else {
      database.Close();
    }
    ExpectError(CommitError(inner), kNotOpen, SQLITE_MISUSE);
    ExpectError(CommitError(transaction), kNotOpen, SQLITE_MISUSE);
    ExpectError(ThrownBy([&] { savepoint.Release(); }), kNotOpen, SQLITE_MISUSE);
    ExpectError(ThrownBy([&] { const Transaction next(database); }), kNotOpen, SQLITE_MISUSE);
    ExpectError(ThrownBy([&] { database.Execute("SELECT 1"); }), kNotOpen, SQLITE_MISUSE);
    EXPECT_THAT(Seen(), IsEmpty());
    InTransaction(fDatabase, [] {});
  }
}

TEST_F(TransactionTest, ACoreThatLivesOnIsLeftWithoutTheLevelsOfAClosedDatabase) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  {
    std::optional<Database> database(core);
    const Transaction transaction(*database);
    const Transaction inner(*database);
    database->Execute("INSERT INTO t VALUES (1)");
    database.reset();
    EXPECT_EQ(core->fTransactionDepth, 0);
    EXPECT_NE(sqlite3_get_autocommit(core->fConnection), 0);
  }
  {
    core->BeginTransaction();
    std::optional<Database> database(core);
    const Transaction transaction(*database);
    database->Execute("INSERT INTO t VALUES (2)");
    database.reset();
    EXPECT_EQ(core->fTransactionDepth, 1);
    EXPECT_FALSE(core->fTransactionOK);
    core->EndTransaction(true, false);
  }
  EXPECT_EQ(core->fTransactionDepth, 0);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(TransactionTest, LevelsOfTheCoreAreLeftToItByAClosedDatabaseThatHadSomeInside) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  core->BeginTransaction();
  for (const bool commits : {true, false}) {
    std::optional<Database> database(core);
    {
      Transaction inside(*database);
      if (commits) inside.Commit();
    }
    core->fTransactionOK = true;
    core->BeginTransaction();
    database.reset();
    EXPECT_EQ(core->fTransactionDepth, 2);
    EXPECT_TRUE(core->fTransactionOK);
    core->EndTransaction(true, false);
  }
  for (const bool commits : {true, false}) {
    std::optional<Database> database(core);
    const Transaction open(*database);
    {
      Transaction inside(*database);
      if (commits) inside.Commit();
    }
    core->fTransactionOK = true;
    database.reset();
    EXPECT_EQ(core->fTransactionDepth, 1);
    EXPECT_FALSE(core->fTransactionOK);
    core->fTransactionOK = true;
  }
  core->EndTransaction(true, false);
}

TEST_F(TransactionTest, ALevelThatTheCoreHasEndedIsNotRolledBackWithAClosedDatabase) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  {
    Database database(core);
    const Transaction outermost(database);
    database.Execute("INSERT INTO t VALUES (1)");
    core->EndTransaction(true, false);
    // The program's own.
    core->SendQuery("BEGIN", nullptr, nullptr);
    core->SendQuery("INSERT INTO t VALUES (2)", nullptr, nullptr);
    database.Close();
  }
  core->SendQuery("COMMIT", nullptr, nullptr);
  {
    Database database(core);
    core->BeginTransaction();
    const Transaction inner(database);
    database.Execute("INSERT INTO t VALUES (3)");
    core->EndTransaction(true, false);
    database.Close();
    EXPECT_EQ(core->fTransactionDepth, 1);
    EXPECT_TRUE(core->fTransactionOK);
  }
  core->EndTransaction(true, false);
  EXPECT_THAT(Seen(), ElementsAre(1, 2, 3));
}

TEST_F(TransactionTest, OfALevelThatTheCoreEndedNothingIsLeftForTheEnd) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  core->BeginTransaction();
  core->BeginTransaction();
  {
    std::optional<Database> database(core);
    const Transaction third(*database);
    core->EndTransaction(true, false);
    core->EndTransaction(true, false);
    const Transaction second(*database);
    database.reset();
    EXPECT_EQ(core->fTransactionDepth, 1);
    EXPECT_FALSE(core->fTransactionOK);
  }
  core->EndTransaction(true, false);
  EXPECT_EQ(core->fTransactionDepth, 0);
}

TEST_F(TransactionTest, ASavepointOfALevelThatHasEndedUndoesNothing) {
  Write(1);
  {
    Transaction outer(fDatabase);
    Write(2);
    std::optional<Transaction> inner(fDatabase);
    std::optional<Savepoint> savepoint(fDatabase);
    Write(3);
    inner.reset();
    savepoint.reset();
    EXPECT_THAT(fDatabase.All<int>("SELECT a FROM t"), ElementsAre(1, 2, 3));
    EXPECT_EQ(Core().fTransactionDepth, 1);
    ExpectError(CommitError(outer), kVetoed, SQLITE_ABORT_ROLLBACK);
  }
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(TransactionTest, ACommitTellsThatSQLiteHasRolledBackThoughASavepointIsOpen) {
  Transaction transaction(fDatabase);
  const Savepoint savepoint(fDatabase);
  fDatabase.Execute("ROLLBACK");
  ExpectError(CommitError(transaction), kRolledBack, SQLITE_ABORT_ROLLBACK);
}

// While a statement is at work that writes, SQLite neither begins nor ends a part.
TEST_F(TransactionTest, ASavepointThatSQLiteRefusesIsNone) {
  if (support::IsOlderThan(3035000)) GTEST_SKIP() << "RETURNING needs SQLite 3.35";
  Transaction transaction(fDatabase);
  sqlite3_stmt* writing = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(Core().fConnection, "INSERT INTO t VALUES (1), (2) RETURNING a", -1, &writing, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(writing), SQLITE_ROW);
  ExpectError(ThrownBy<BusyError>([&] { const Savepoint savepoint(fDatabase); }),
              "cannot open savepoint - SQL statements in progress", SQLITE_BUSY);
  sqlite3_finalize(writing);
  {
    const Savepoint savepoint(fDatabase);
    Write(3);
  }
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

TEST_F(TransactionTest, ASavepointWhoseReleaseSQLiteRefusesIsStillOpen) {
  if (support::IsOlderThan(3035000)) GTEST_SKIP() << "RETURNING needs SQLite 3.35";
  Transaction transaction(fDatabase);
  {
    Savepoint savepoint(fDatabase);
    sqlite3_stmt* writing = nullptr;
    ASSERT_EQ(
        sqlite3_prepare_v2(Core().fConnection, "INSERT INTO t VALUES (1), (2) RETURNING a", -1, &writing, nullptr),
        SQLITE_OK);
    ASSERT_EQ(sqlite3_step(writing), SQLITE_ROW);
    ExpectError(ThrownBy<BusyError>([&] { savepoint.Release(); }),
                "cannot release savepoint - SQL statements in progress", SQLITE_BUSY);
    sqlite3_finalize(writing);
    savepoint.Release();
  }
  transaction.Commit();
  EXPECT_THAT(Seen(), ElementsAre(1, 2));
}

TEST_F(TransactionTest, EverythingMayOutliveACoreThatIsDestroyed) {
  struct DoNotDelete {
    void operator()(SQLDatabase*) const {}
  };
  auto core = std::make_unique<SQLDatabase>(Path(), false);
  core->Open();
  Database database(boost::shared_ptr<SQLDatabase>(core.get(), DoNotDelete()));
  Transaction transaction(database);
  Savepoint savepoint(database);
  auto rows = database.Query<int>("SELECT 1 UNION SELECT 2");
  rows.begin();
  core.reset();
  ExpectError(CommitError(transaction), kNotOpen, SQLITE_MISUSE);
  ExpectError(ThrownBy([&] { savepoint.Release(); }), kNotOpen, SQLITE_MISUSE);
  ThrownBy([&] { rows.begin(); });
  ThrownBy([&] { database.Core(); });
  InTransaction(fDatabase, [] {});
}

TEST_F(TransactionTest, AConnectionThatTheCoreReplacesIsLetGoOf) {
  const auto core = boost::make_shared<SQLDatabase>(Path(), false);
  core->Open();
  Database database(core);
  auto rows = database.Query<int>("SELECT 1 UNION SELECT 2");
  rows.begin();
  sqlite3* const before = core->fConnection;
  core->Open();
  EXPECT_EQ(sqlite3_close(before), SQLITE_OK);
  ExpectError(ThrownBy([&] { database.Execute("SELECT 1"); }), kNotOpen, SQLITE_MISUSE);
  Database again(core);
  EXPECT_EQ(again.One<int>("SELECT 1"), 1);
}

}  // namespace
