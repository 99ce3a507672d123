#include "sqldb/kit/bulk.h"

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "kit_test.h"
#include "support/engine.h"

namespace {

using kit_test::ErrorOf;
using sqldb::SQLDatabase;
using sqldb::kit::BulkOptions;
using sqldb::kit::Error;
using sqldb::kit::InsertMany;
using sqldb::kit::Transaction;
using support::CallRecorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kInsert[] = "INSERT INTO t VALUES (?)";

void Bind(sqlite3_stmt* statement, int value) { sqlite3_bind_int(statement, 1, value); }

class BulkTest : public kit_test::KitTest {
 protected:
  // Notes what it is told.
  BulkOptions Batches(std::size_t rows) {
    BulkOptions options;
    options.batch = rows;
    options.progress = [this](std::size_t written) {
      fProgress.push_back(written);
      return true;
    };
    return options;
  }

  std::vector<std::size_t> fProgress;
};

TEST_F(BulkTest, EveryRowIsWrittenByOneStatement) {
  int compiled = 0;
  sqlite3_set_authorizer(
      fDatabase.fConnection,
      [](void* count, int action, const char*, const char*, const char*, const char*) {
        if (action == SQLITE_INSERT) ++*static_cast<int*>(count);
        return SQLITE_OK;
      },
      &compiled);
  const std::list<int> rows{3, 1, 2};
  EXPECT_EQ(InsertMany(fDatabase, kInsert, rows, Bind), 3u);
  EXPECT_EQ(compiled, 1);
  EXPECT_THAT(Seen(), ElementsAre("1", "2", "3"));
}

TEST_F(BulkTest, RowsAreTakenByReference) {
  struct Row {
    explicit Row(int value) : fValue(value) {}
    Row(const Row&) = delete;
    Row& operator=(const Row&) = delete;

    int fValue;
  };
  std::list<Row> rows;
  rows.emplace_back(5);
  InsertMany(fDatabase, kInsert, rows, [](sqlite3_stmt* statement, const Row& row) { Bind(statement, row.fValue); });
  const int more[] = {6, 7};
  EXPECT_EQ(InsertMany(fDatabase, kInsert, more, Bind), 2u);
  EXPECT_THAT(Seen(), ElementsAre("5", "6", "7"));
}

TEST_F(BulkTest, EachBatchIsATransactionAndIsReported) {
  CallRecorder recorder;
  BulkOptions options = Batches(2);
  options.progress = [this](std::size_t written) {
    fProgress.push_back(written);
    EXPECT_EQ(Seen().size(), written);
    ExpectNoTransaction();
    return true;
  };
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 4, 5}, Bind, options), 5u);
  EXPECT_THAT(fProgress, ElementsAre(2u, 4u, 5u));
  EXPECT_THAT(recorder.Sql(),
              ElementsAre("BEGIN IMMEDIATE TRANSACTION", "COMMIT TRANSACTION", "BEGIN IMMEDIATE TRANSACTION",
                          "COMMIT TRANSACTION", "BEGIN IMMEDIATE TRANSACTION", "COMMIT TRANSACTION"));
}

TEST_F(BulkTest, AFullLastBatchIsTheLast) {
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 4}, Bind, Batches(2)), 4u);
  EXPECT_THAT(fProgress, ElementsAre(2u, 4u));
}

TEST_F(BulkTest, ABatchOfZeroIsAllRows) {
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3}, Bind, Batches(0)), 3u);
  EXPECT_THAT(fProgress, ElementsAre(3u));
}

TEST_F(BulkTest, AThousandRowsAreABatchByDefault) {
  std::vector<int> rows(2001);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<int>(i);
  BulkOptions options;
  options.progress = Batches(0).progress;
  InsertMany(fDatabase, kInsert, rows, Bind, options);
  EXPECT_THAT(fProgress, ElementsAre(1000u, 2000u, 2001u));
}

TEST_F(BulkTest, WithoutRowsNothingIsBegun) {
  CallRecorder recorder;
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>(), Bind, Batches(2)), 0u);
  EXPECT_THAT(recorder.Sql(), IsEmpty());
  EXPECT_THAT(fProgress, IsEmpty());
}

TEST_F(BulkTest, ProgressEndsTheWork) {
  BulkOptions options = Batches(2);
  options.progress = [](std::size_t written) { return written < 4; };
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 4, 5, 6}, Bind, options), 4u);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), ElementsAre("1", "2", "3", "4"));
}

TEST_F(BulkTest, AFailedRowRollsItsBatchBack) {
  const Error error = ErrorOf([&] {
    InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 4, 3}, Bind, Batches(2));
  });
  EXPECT_STREQ(error.what(), "UNIQUE constraint failed: t.a");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_EQ(Unfinalized(), 0);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), ElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(fProgress, ElementsAre(2u, 4u));
  ErrorOf([&] { InsertMany(fDatabase, kInsert, std::vector<int>{5, 6, 7, 6}, Bind, Batches(2)); });
  EXPECT_THAT(Seen(), ElementsAre("1", "2", "3", "4", "5", "6"));
}

TEST_F(BulkTest, WhatBindThrowsRollsItsBatchBack) {
  const auto bind = [](sqlite3_stmt* statement, int value) {
    if (value == 4) throw 4;
    Bind(statement, value);
  };
  EXPECT_THROW(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 4}, bind, Batches(2)), int);
  EXPECT_EQ(Unfinalized(), 0);
  ExpectNoTransaction();
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(BulkTest, AFailedQueryOfBindIsToldInItsTellingWordsAndLeavesNothing) {
  Write(0);
  const auto bind = [&](sqlite3_stmt* statement, int value) {
    Bind(statement, value);
    Write(0);
  };
  EXPECT_STREQ(ErrorOf([&] { InsertMany(fDatabase, kInsert, std::vector<int>{1}, bind); }).what(),
               "UNIQUE constraint failed: t.a");
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_THAT(Seen(), ElementsAre("0"));
}

TEST_F(BulkTest, WhatProgressThrowsLeavesTheBatchesWritten) {
  BulkOptions options = Batches(2);
  options.progress = [](std::size_t) -> bool { throw 5; };
  EXPECT_THROW(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3}, Bind, options), int);
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(BulkTest, ATextThatIsNoStatementIsRefused) {
  const std::vector<int> rows{1};
  EXPECT_STREQ(ErrorOf([&] { InsertMany(fDatabase, "INSERT INTO missing VALUES (?)", rows, Bind); }).what(),
               "no such table: missing");
  for (const char* const text : {"", "  ", "-- a comment"}) {
    const Error error = ErrorOf([&] { InsertMany(fDatabase, text, rows, Bind); });
    EXPECT_STREQ(error.what(), "There is no statement in the text.");
    EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  }
}

TEST_F(BulkTest, ADatabaseThatIsNotOpenFailsAsTheLibraryDoes) {
  SQLDatabase database(DatabasePath(), false);
  const Error error = ErrorOf([&] { InsertMany(database, kInsert, std::vector<int>{1}, Bind); });
  EXPECT_STREQ(error.what(), "out of memory");
  EXPECT_EQ(error.Code(), SQLITE_NOMEM);
}

TEST_F(BulkTest, WhatTheStatementReturnsIsDropped) {
  if (support::IsOlderThan(3035000)) GTEST_SKIP() << "no RETURNING";
  EXPECT_EQ(InsertMany(fDatabase, "INSERT INTO t VALUES (?) RETURNING a", std::vector<int>{1, 2}, Bind), 2u);
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(BulkTest, AParameterThatIsLeftOutKeepsItsValue) {
  Rows("CREATE TABLE pairs (a, b)");
  const auto bind = [](sqlite3_stmt* statement, int value) {
    sqlite3_bind_int(statement, 1, value);
    if (value == 1) sqlite3_bind_int(statement, 2, 9);
  };
  InsertMany(fDatabase, "INSERT INTO pairs VALUES (?, ?)", std::vector<int>{1, 2}, bind);
  EXPECT_THAT(Rows("SELECT a, b FROM pairs"), ElementsAre("1|9", "2|9"));
}

TEST_F(BulkTest, InsideATransactionABatchIsALevel) {
  CallRecorder recorder;
  Transaction transaction(fDatabase);
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3}, Bind, Batches(2)), 3u);
  EXPECT_THAT(fProgress, ElementsAre(2u, 3u));
  EXPECT_THAT(Seen(), IsEmpty());
  transaction.Commit();
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN TRANSACTION", "COMMIT TRANSACTION"));
  EXPECT_THAT(Seen(), ElementsAre("1", "2", "3"));
}

TEST_F(BulkTest, AFailureInsideATransactionVetoesIt) {
  Transaction transaction(fDatabase);
  ErrorOf([&] { InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 3}, Bind, Batches(2)); });
  EXPECT_EQ(fDatabase.fTransactionDepth, 1);
  EXPECT_EQ(ErrorOf([&] { transaction.Commit(); }).ExtendedCode(), SQLITE_ABORT_ROLLBACK);
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(BulkTest, ATransactionOfTheApplicationsOwnQueryIsLeftOpen) {
  Rows("BEGIN");
  EXPECT_EQ(InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3}, Bind, Batches(2)), 3u);
  EXPECT_THAT(fProgress, ElementsAre(2u, 3u));
  EXPECT_TRUE(IsInSQLiteTransaction());
  ErrorOf([&] { InsertMany(fDatabase, kInsert, std::vector<int>{4, 4}, Bind); });
  EXPECT_TRUE(IsInSQLiteTransaction());
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  Rows("ROLLBACK");
  EXPECT_THAT(Seen(), IsEmpty());
}

TEST_F(BulkTest, EveryStepWaitsForABusyFileAndNoRowIsBoundTwice) {
  SQLDatabase fresh(DatabasePath(), false);
  fresh.Open();
  int pauses = 0;
  int bound = 0;
  BulkOptions options = Batches(2);
  options.patience.pause = [&](std::chrono::microseconds) {
    ++pauses;
    if (pauses == 2) fOther.Run("COMMIT; BEGIN IMMEDIATE");
    if (pauses == 4) fOther.Run("COMMIT; BEGIN; SELECT * FROM t");
    if (pauses == 6) fOther.Run("COMMIT");
  };
  options.progress = [&](std::size_t written) {
    if (written == 2) fOther.Run("BEGIN IMMEDIATE");
    return true;
  };
  const auto bind = [&](sqlite3_stmt* statement, int value) {
    ++bound;
    Bind(statement, value);
  };
  // Compiling, which reads the schema, beginning and committing each find the file busy twice, and the second batch
  // begins in vain.
  fOther.Run("BEGIN EXCLUSIVE");
  const auto insert = [&] { return InsertMany(fresh, kInsert, std::vector<int>{1, 2, 3}, bind, options); };
  options.patience.attempts = 5;
  EXPECT_EQ(ErrorOf(insert).Code(), SQLITE_BUSY);
  EXPECT_EQ(pauses, 2 + 4 + 4);
  EXPECT_EQ(bound, 2);
  EXPECT_EQ(sqlite3_next_stmt(fresh.fConnection, nullptr), nullptr);
  fOther.Run("ROLLBACK");
  EXPECT_THAT(Seen(), ElementsAre("1", "2"));
}

TEST_F(BulkTest, ABusyFileInsideATransactionIsToldAtOnce) {
  fOther.Run("BEGIN IMMEDIATE");
  BulkOptions options;
  options.patience.pause = [](std::chrono::microseconds) { ADD_FAILURE() << "a pause"; };
  {
    Transaction transaction(fDatabase);
    const Error error = ErrorOf([&] { InsertMany(fDatabase, kInsert, std::vector<int>{1}, Bind, options); });
    EXPECT_STREQ(error.what(), "database is locked");
    EXPECT_EQ(error.Code(), SQLITE_BUSY);
    EXPECT_EQ(Unfinalized(), 0);
  }
  fOther.Run("ROLLBACK");
  Write(1);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(BulkTest, AFullDiskRollsTheBatchBack) {
  const auto bind = [](sqlite3_stmt* statement, int value) { sqlite3_bind_zeroblob(statement, 1, value); };
  const auto fill = [&] {
    Rows("PRAGMA max_page_count = 10");
    InsertMany(fDatabase, kInsert, std::vector<int>{1, 2, 3, 100000}, bind, Batches(2));
  };
  EXPECT_EQ(ErrorOf(fill).Code(), SQLITE_FULL);
  ExpectNoTransaction();
  EXPECT_EQ(Seen().size(), 2u);
}

TEST_F(BulkTest, OtherStatementsOfTheConnectionGoOn) {
  Write(1);
  Write(2);
  const auto cursor = MakeCursor();
  std::uint32_t value = 0;
  ASSERT_EQ(cursor->Step(value), 0);
  InsertMany(fDatabase, kInsert, std::vector<int>{3, 4}, Bind, Batches(1));
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 2u);
}

}  // namespace
