#include "sqldb/kit/leftovers.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "kit_test.h"
#include "sqldb/kit/transaction.h"
#include "sqldb/sqldb.h"
#include "support/allocations.h"
#include "support/engine.h"
#include "support/temporary_folder.h"

namespace {

namespace kit = sqldb::kit;

using kit_test::ThrownBy;
using sqldb::SQLDatabase;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::ReleaseLeftovers;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct OwnFailure {};

// Throws at the first row.
class Throwing : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt*) override { throw OwnFailure(); }
};

// The message of what the core throws, of which nothing is released.
template <typename Action>
std::string Ignored(Action action) {
  try {
    action();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "(nothing thrown)";
}

// A database of the core with the table t, whose column a is unique, in a file that another connection works on as
// well. At the end of each test nothing may be left.
class LeftoversTest : public ::testing::Test {
 protected:
  LeftoversTest() : fDatabase(Path(), false), fOther(Path()) {
    fDatabase.Open();
    Send("CREATE TABLE t (a UNIQUE)");
    // Both have then read the schema: without it, already the compiling finds the file busy.
    fOther.Execute("SELECT * FROM t");
    Send("SELECT * FROM t");
  }
  void TearDown() override { EXPECT_EQ(fDatabase.fIsOpen ? Unfinalized() : 0, 0); }

  std::string Path() const { return fFolder.Path("test.db"); }
  void Send(const std::string& sql) { fDatabase.SendQuery(sql, nullptr, nullptr); }
  void Write(int value) { Send("INSERT INTO t VALUES (" + std::to_string(value) + ")"); }
  // A unique key that is there already.
  void WriteTwice() {
    Send("INSERT OR IGNORE INTO t VALUES (1)");
    Write(1);
  }
  template <typename E = Error, typename Action>
  E ErrorOfRun(Action action) {
    return ThrownBy<E>([&] { kit::Run(fDatabase, action); });
  }
  static void ExpectUniqueFailure(const Error& error) {
    EXPECT_STREQ(error.what(), "UNIQUE constraint failed: t.a");
    EXPECT_EQ(error.Code(), SQLITE_CONSTRAINT);
    EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  }
  std::vector<int> Seen() { return Database(Path()).All<int>("SELECT a FROM t ORDER BY a"); }
  static int Unfinalized(const SQLDatabase& database) {
    int count = 0;
    sqlite3_stmt* statement = nullptr;
    while ((statement = sqlite3_next_stmt(database.fConnection, statement)) != nullptr) ++count;
    return count;
  }
  int Unfinalized() const { return Unfinalized(fDatabase); }

  using Cursor = sqldb::SQLStepCursor<std::uint32_t>;
  // Delivers the table's rows, in order.
  boost::shared_ptr<Cursor> MakeCursor(SQLDatabase& database, const char* sql = "SELECT a FROM t ORDER BY a") {
    using Column = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;
    sqldb::OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    const auto cursor = boost::make_shared<Cursor>(&database, offsets);
    cursor->fColumns = {boost::make_shared<Column>(nullptr, "a", false, false, false, "")};
    cursor->PrepareToQuery(sql);
    return cursor;
  }

  support::TemporaryFolder fFolder;
  SQLDatabase fDatabase;
  Database fOther;
};

TEST_F(LeftoversTest, RunReturnsWhatTheActionReturns) {
  int number = 7;
  EXPECT_EQ(kit::Run(fDatabase, [] { return 5; }), 5);
  EXPECT_EQ(&kit::Run(fDatabase, [&]() -> int& { return number; }), &number);
  EXPECT_EQ(*kit::Run(fDatabase, [] { return std::make_unique<int>(9); }), 9);
  const auto write = [&] { Write(1); };
  static_assert(std::is_void_v<decltype(kit::Run(fDatabase, write))>);
  kit::Run(fDatabase, write);
  EXPECT_THAT(Seen(), ElementsAre(1));
}

TEST_F(LeftoversTest, AFailedStepIsToldInItsTellingWordsAndAsWhatItIs) {
  ExpectUniqueFailure(ErrorOfRun<ConstraintError>([&] { WriteTwice(); }));
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(LeftoversTest, AFailedStepInsideALevelIsToldAsWhatItIs) {
  fDatabase.BeginTransaction();
  ExpectUniqueFailure(ErrorOfRun<ConstraintError>([&] { WriteTwice(); }));
  fDatabase.EndTransaction(false, false);
}

TEST_F(LeftoversTest, ATextThatDoesNotCompileKeepsItsWords) {
  const Error error = ErrorOfRun([&] { Send("DELETE FROM missing"); });
  EXPECT_STREQ(error.what(), "no such table: missing");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(LeftoversTest, ACodeThatCompilingReportsIsKept) {
  sqlite3_set_authorizer(
      fDatabase.fConnection,
      [](void*, int action, const char*, const char*, const char*, const char*) {
        return action == SQLITE_DELETE ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  const Error error = ErrorOfRun([&] { Send("DELETE FROM t"); });
  EXPECT_STREQ(error.what(), "not authorized");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_AUTH);
  const Error later = ErrorOfRun([&] {
    Ignored([&] { WriteTwice(); });
    Send("DELETE FROM t");
  });
  EXPECT_EQ(later.ExtendedCode(), SQLITE_AUTH);
}

TEST_F(LeftoversTest, ABusyFileIsToldByItsCode) {
  const kit::Transaction writing(fOther);
  const Error error = ErrorOfRun<BusyError>([&] { Write(1); });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
}

TEST_F(LeftoversTest, ATableThatIsReadIsToldByItsCode) {
  Write(1);
  const auto cursor = MakeCursor(fDatabase);
  std::uint32_t value = 0;
  ASSERT_EQ(cursor->Step(value), 0);
  const Error error = ErrorOfRun<BusyError>([&] { Send("DROP TABLE t"); });
  EXPECT_STREQ(error.what(), "database table is locked");
  EXPECT_EQ(error.Code(), SQLITE_LOCKED);
}

TEST_F(LeftoversTest, ACommitThatAHookOfTheProgramRefusesIsAConstraintOfIts) {
  sqlite3_commit_hook(
      fDatabase.fConnection, [](void*) { return 1; }, nullptr);
  const Error error = ErrorOfRun<ConstraintError>([&] { Write(1); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_COMMITHOOK);
}

TEST_F(LeftoversTest, AFileThatCompilingFindsBusyIsToldByItsCode) {
  SQLDatabase fresh(Path(), false);
  fresh.Open();
  const kit::Transaction writing(fOther, kit::Begin::kExclusive);
  const auto write = [&] { fresh.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr); };
  EXPECT_EQ(ThrownBy<BusyError>([&] { kit::Run(fresh, write); }).Code(), SQLITE_BUSY);
  // A rollback in between makes SQLite forget it.
  const Error error = ThrownBy<BusyError>([&] {
    kit::Run(fresh, [&] {
      fresh.BeginTransaction();
      try {
        write();
      } catch (...) {
        fresh.EndTransaction(false, true);
        throw;
      }
    });
  });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
}

TEST_F(LeftoversTest, ACodeThatARollbackMakesSQLiteForgetIsFoundInTheLeftover) {
  fOther.Execute("PRAGMA journal_mode = WAL");
  const Error error = ErrorOfRun<BusyError>([&] {
    fDatabase.BeginTransaction();
    Send("SELECT * FROM t");
    fOther.Execute("INSERT INTO t VALUES (1)");
    try {
      Write(2);
    } catch (...) {
      fDatabase.EndTransaction(false, true);
      throw;
    }
  });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
}

TEST_F(LeftoversTest, TheFailureOfACursorThatItDestroyedIsToldInItsTellingWords) {
  const auto table = fDatabase.NewTable("t");
  fOther.Execute("CREATE TABLE u (b)");
  const Error error = ErrorOfRun([&] { table->CountRecords(nullptr); });
  EXPECT_STREQ(error.what(), "database schema has changed");
  EXPECT_EQ(error.Code(), SQLITE_SCHEMA);
}

TEST_F(LeftoversTest, AFailureThatIsNotOfSQLiteKeepsItsWords) {
  const Error error = ErrorOfRun([&] { fDatabase.GetTable("nothing"); });
  EXPECT_STREQ(error.what(), "Condition is not met.");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(LeftoversTest, AVagueFailureWithoutAnyReportStaysVague) {
  const Error error = ErrorOfRun([] { throw std::runtime_error(support::LogicError()); });
  EXPECT_EQ(error.what(), support::LogicError());
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
  // A row is no failure.
  Write(1);
  const auto cursor = MakeCursor(fDatabase);
  std::uint32_t value = 0;
  const Error other = ErrorOfRun([&] {
    cursor->Step(value);
    throw std::runtime_error(support::LogicError());
  });
  EXPECT_EQ(other.what(), support::LogicError());
}

TEST_F(LeftoversTest, AnEarlierFailureIsNotTakenForALaterOne) {
  const kit::Transaction writing(fOther);
  const Error error = ErrorOfRun([&] {
    Ignored([&] { Write(1); });
    throw std::runtime_error("another");
  });
  EXPECT_STREQ(error.what(), "another");
  EXPECT_EQ(error.Code(), SQLITE_ERROR);
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(LeftoversTest, OfSeveralFailuresTheLatestIsTold) {
  ExpectUniqueFailure(ErrorOfRun([&] {
    Ignored([&] { Send("INSERT INTO t VALUES (abs(-9223372036854775808))"); });
    WriteTwice();
  }));
  const Error compiled = ErrorOfRun([&] {
    Ignored([&] { WriteTwice(); });
    Send("DELETE FROM missing");
  });
  EXPECT_STREQ(compiled.what(), "no such table: missing");
  EXPECT_EQ(compiled.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(LeftoversTest, OtherExceptionsPassUnchangedAndNothingIsLeft) {
  const auto run = [&](auto failure) {
    kit::Run(fDatabase, [&] {
      Ignored([&] { WriteTwice(); });
      throw failure;
    });
  };
  EXPECT_THROW(run(5), int);
  EXPECT_EQ(Unfinalized(), 0);
  try {
    run(std::system_error(std::make_error_code(std::errc::broken_pipe)));
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::broken_pipe);
  }
  EXPECT_EQ(Unfinalized(), 0);
  const Error error = ThrownBy([&] { run(Error("inner", SQLITE_IOERR_FSYNC)); });
  EXPECT_STREQ(error.what(), "inner");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_IOERR_FSYNC);
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(LeftoversTest, WhatWasLeftBeforeStays) {
  Ignored([&] { WriteTwice(); });
  ErrorOfRun([&] { Send("INSERT INTO t VALUES (abs(-9223372036854775808))"); });
  EXPECT_EQ(Unfinalized(), 1);
  ErrorOfRun([&] {
    Ignored([&] { Write(1); });
    ErrorOfRun([&] { Write(1); });
    EXPECT_EQ(Unfinalized(), 2);
    Write(1);
  });
  EXPECT_EQ(Unfinalized(), 1);
  EXPECT_TRUE(ReleaseLeftovers(fDatabase));
}

TEST_F(LeftoversTest, StatementsOfTheProgramAreSparedWhateverTheyLookLike) {
  Write(1);
  Write(2);
  std::vector<sqlite3_stmt*> own;
  const auto compile = [&](const char* sql) {
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, sql, -1, &statement, nullptr), SQLITE_OK);
    own.push_back(statement);
  };
  compile("SELECT a FROM t ORDER BY a");
  ASSERT_EQ(sqlite3_step(own[0]), SQLITE_ROW);
  compile("INSERT INTO t VALUES (1)");
  ASSERT_EQ(sqlite3_step(own[1]), SQLITE_CONSTRAINT);
  ErrorOfRun([&] {
    compile("SELECT a FROM t WHERE a = :1");
    WriteTwice();
  });
  Ignored([&] { WriteTwice(); });
  EXPECT_TRUE(ReleaseLeftovers(fDatabase));
  EXPECT_EQ(Unfinalized(), 3);
  EXPECT_EQ(sqlite3_step(own[0]), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(own[0], 0), 2);
  for (sqlite3_stmt* const statement : own) sqlite3_finalize(statement);
}

TEST_F(LeftoversTest, ALeftoverIsReleasedWhateverTextItHas) {
  if (support::IsOlderThan(3035000)) GTEST_SKIP() << "without RETURNING";
  class Refusing : public sqldb::BindingCallback {
    void BindingOpportunity(sqlite3_stmt*) const override { throw OwnFailure(); }
  } refusing;
  Throwing throwing;
  Write(1);
  for (const char* const sql : {"SELECT '.'", "SELECT 'x' LIKE 'it''s 50''.%'", "SELECT ('.c') FROM 'main'.'t'",
                                "DELETE FROM t WHERE a = ?1 RETURNING a", "SELECT a FROM t"}) {
    EXPECT_THROW(kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, nullptr, &refusing); }), OwnFailure) << sql;
    EXPECT_EQ(Unfinalized(), 0) << sql;
    if (std::string(sql).find('?') != std::string::npos) continue;
    EXPECT_THROW(kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, &throwing, nullptr); }), OwnFailure) << sql;
    EXPECT_EQ(Unfinalized(), 0) << sql;
  }
  ExpectUniqueFailure(ErrorOfRun([&] { Send("INSERT INTO 'main'.'t' VALUES (1)"); }));
}

TEST_F(LeftoversTest, TheQueryAroundARunIsSpared) {
  class Callback : public sqldb::QueryCallback {
   public:
    explicit Callback(SQLDatabase& database) : fDatabase(database) {}
    bool ProcessRow(sqlite3_stmt*) override {
      ++fRows;
      const auto write = [&] { fDatabase.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr); };
      ExpectUniqueFailure(ThrownBy([&] { kit::Run(fDatabase, write); }));
      Ignored(write);
      ReleaseLeftovers(fDatabase);
      return true;
    }
    SQLDatabase& fDatabase;
    int fRows = 0;
  } callback(fDatabase);
  Write(1);
  Write(2);
  fDatabase.SendQuery("SELECT a FROM t", &callback, nullptr);
  EXPECT_EQ(callback.fRows, 2);
}

TEST_F(LeftoversTest, StatementsOfLivingCursorsAreSpared) {
  Write(1);
  Write(2);
  std::vector<boost::shared_ptr<Cursor>> cursors;
  std::uint32_t value = 0;
  for (int i = 0; i < 3; ++i) {
    cursors.push_back(MakeCursor(fDatabase));
    ASSERT_EQ(cursors.back()->Step(value), 0);
  }
  ErrorOfRun([&] {
    cursors.push_back(MakeCursor(fDatabase));
    ASSERT_EQ(cursors.back()->Step(value), 0);
    WriteTwice();
  });
  Ignored([&] { WriteTwice(); });
  ReleaseLeftovers(fDatabase);
  EXPECT_EQ(Unfinalized(), 4);
  for (const auto& cursor : cursors) {
    EXPECT_EQ(cursor->Step(value), 0);
    EXPECT_EQ(value, 2u);
  }
}

TEST_F(LeftoversTest, ReleasedLeftoversTellOfTheLatestFailure) {
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
  Ignored([&] { Send("INSERT INTO t VALUES (abs(-9223372036854775808))"); });
  Ignored([&] { WriteTwice(); });
  const std::optional<Error> error = ReleaseLeftovers(fDatabase);
  ASSERT_TRUE(error);
  ExpectUniqueFailure(*error);
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
}

TEST_F(LeftoversTest, ALeftoverThatHasNotFailedTellsNothing) {
  Throwing throwing;
  Write(1);
  Ignored([&] { WriteTwice(); });
  EXPECT_THROW(fDatabase.SendQuery("SELECT a FROM t", &throwing, nullptr), OwnFailure);
  const std::optional<Error> error = ReleaseLeftovers(fDatabase);
  ASSERT_TRUE(error);
  ExpectUniqueFailure(*error);
  EXPECT_THROW(fDatabase.SendQuery("SELECT a FROM t", &throwing, nullptr), OwnFailure);
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
}

TEST_F(LeftoversTest, ABusyWriteDoesNotKeepLaterOnesFromBeingCommitted) {
  const auto busyWrite = [&] {
    const kit::Transaction writing(fOther);
    Write(1);
  };
  ErrorOfRun<BusyError>(busyWrite);
  Write(2);
  EXPECT_THAT(Seen(), ElementsAre(2));
  EXPECT_EQ(Ignored(busyWrite), "database is locked");
  ReleaseLeftovers(fDatabase);
  Write(3);
  EXPECT_THAT(Seen(), ElementsAre(2, 3));
}

// Whichever allocation fails, nothing is left and later writes are committed.
TEST_F(LeftoversTest, CleaningUpNeedsNoMemory) {
  std::vector<int> written;
  bool hasFailed = true;
  for (std::uint64_t nth = 1; hasFailed; ++nth) {
    const int value = static_cast<int>(nth);
    kit::Transaction writing(fOther);
    const std::string sql = "INSERT INTO t VALUES (1000000)";
    {
      const support::AllocationFailure failure(nth);
      EXPECT_ANY_THROW(kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, nullptr, nullptr); }));
      hasFailed = failure.Happened();
    }
    EXPECT_EQ(Unfinalized(), 0);
    writing.Commit();
    Write(value);
    written.push_back(value);
  }
  EXPECT_GT(written.size(), 1u);
  EXPECT_EQ(Seen(), written);
}

TEST_F(LeftoversTest, ReleasingNeedsNoMemory) {
  Ignored([&] { WriteTwice(); });
  Ignored([&] { WriteTwice(); });
  {
    const support::AllocationFailure failure(1);
    EXPECT_THROW(ReleaseLeftovers(fDatabase), std::bad_alloc);
  }
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(LeftoversTest, ADatabaseThatIsNotOpenIsTold) {
  SQLDatabase database(Path(), false);
  const auto run = [&] { kit::Run(database, [&] { database.SendQuery("SELECT 1", nullptr, nullptr); }); };
  EXPECT_STREQ(ThrownBy(run).what(), "The database is not open.");
  EXPECT_EQ(ThrownBy(run).Code(), SQLITE_MISUSE);
  EXPECT_FALSE(ReleaseLeftovers(database));
  database.Open();
  run();
  database.Close();
  EXPECT_EQ(ThrownBy(run).Code(), SQLITE_MISUSE);
  EXPECT_FALSE(ReleaseLeftovers(database));
  const Error other = ThrownBy([&] { kit::Run(database, [] { throw std::runtime_error("another"); }); });
  EXPECT_STREQ(other.what(), "another");
  EXPECT_EQ(other.Code(), SQLITE_ERROR);
}

TEST_F(LeftoversTest, WhatMadeSQLiteRefuseACloseCanBeReleasedForTheNextOne) {
  sqlite3* const connection = fDatabase.fConnection;
  Ignored([&] { WriteTwice(); });
  fDatabase.Close();
  EXPECT_EQ(Unfinalized(), 1);
  EXPECT_TRUE(ReleaseLeftovers(fDatabase));
  EXPECT_EQ(sqlite3_next_stmt(connection, nullptr), nullptr);
  fDatabase.Close();
}

// The modules of SQLite compile statements of their own, and keep them.
class ModuleTest : public LeftoversTest {
 protected:
  ModuleTest() : fOwn(Path(), false) {}

  void SetUp() override {
    if (support::IsOlderThan(3025000)) GTEST_SKIP() << "built without full-text search";
    fOther.ExecuteScript(
        "CREATE VIRTUAL TABLE notes USING fts5(text);"
        "CREATE VIRTUAL TABLE boxes USING rtree(id, low, high, +label);"
        "INSERT INTO notes (rowid, text) VALUES (1, 'one word'), (2, 'a word');"
        "INSERT INTO boxes VALUES (1, 1, 2, 'first'), (2, 1, 2, 'second')");
    // Has none yet, unlike a connection that has made the tables.
    fOwn.Open();
  }
  void SendOwn(const std::string& sql) { fOwn.SendQuery(sql, nullptr, nullptr); }
  Error ErrorOfOwn(const std::string& sql) {
    return ThrownBy([&] { kit::Run(fOwn, [&] { SendOwn(sql); }); });
  }
  // Close says nothing, but succeeds only if nothing is left.
  void ExpectWorkingAndClosable() {
    SendOwn("INSERT INTO notes (rowid, text) VALUES (5, 'new')");
    SendOwn("INSERT INTO boxes VALUES (5, 1, 2, 'fifth')");
    EXPECT_EQ(fOther.One<int>("SELECT rowid FROM notes WHERE notes MATCH 'new'"), 5);
    EXPECT_EQ(fOther.One<std::string>("SELECT label FROM boxes WHERE id = 5"), "fifth");
    EXPECT_EQ(sqlite3_close(fOwn.fConnection), SQLITE_OK);
    fOwn.fIsOpen = false;
  }

  SQLDatabase fOwn;
};

TEST_F(ModuleTest, WhatAModuleCompiledWhileAStepFailedIsSpared) {
  EXPECT_STREQ(ErrorOfOwn("INSERT INTO notes (rowid, text) VALUES (1, 'again')").what(),
               "UNIQUE constraint failed: notes_content.id");
  EXPECT_EQ(ErrorOfOwn("INSERT INTO boxes VALUES (1, 5, 6, '')").Code(), SQLITE_CONSTRAINT);
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatAModuleCompiledForATextThatDoesNotCompileIsSpared) {
  EXPECT_STREQ(ErrorOfOwn("SELECT missing FROM boxes").what(), "no such column: missing");
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatAModuleKeepsIsSparedWhenLeftoversAreReleased) {
  SendOwn("INSERT INTO notes (rowid, text) VALUES (3, 'first')");
  Ignored([&] { SendOwn("INSERT INTO boxes VALUES (1, 5, 6, '')"); });
  EXPECT_TRUE(ReleaseLeftovers(fOwn));
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatServesACursorIsSpared) {
  std::uint32_t value = 0;
  for (const char* const sql :
       {"SELECT rowid FROM notes WHERE notes MATCH 'word' ORDER BY rank", "SELECT id FROM boxes WHERE label <> ''",
        "SELECT cid FROM pragma_table_info('t') UNION ALL SELECT 7",
        "SELECT seq FROM pragma_database_list UNION ALL "
        "SELECT 7",
        "SELECT narg FROM pragma_function_list"}) {
    auto cursor = MakeCursor(fOwn, sql);
    ASSERT_EQ(cursor->Step(value), 0) << sql;
    ErrorOfOwn("INSERT INTO notes (rowid, text) VALUES (1, 'again')");
    Ignored([&] { SendOwn("INSERT INTO boxes VALUES (1, 5, 6, '')"); });
    EXPECT_TRUE(ReleaseLeftovers(fOwn));
    EXPECT_EQ(cursor->Step(value), 0) << sql;
  }
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, TheEndOfALeftoverMayBeThatOfWhatAModuleCompiledForIt) {
  Throwing throwing;
  for (const char* const sql : {"SELECT * FROM notes WHERE notes MATCH 'word' ORDER BY rank",
                                "SELECT * FROM pragma_table_info('t')", "SELECT label FROM boxes"}) {
    const auto search = [&] { fOwn.SendQuery(sql, &throwing, nullptr); };
    EXPECT_THROW(kit::Run(fOwn, search), OwnFailure);
    EXPECT_THROW(search(), OwnFailure);
    EXPECT_FALSE(ReleaseLeftovers(fOwn));
  }
  ExpectWorkingAndClosable();
}

TEST_F(LeftoversTest, BlobHandlesAreSpared) {
  Send("INSERT INTO t VALUES ('abc')");
  sqlite3_blob* blob = nullptr;
  ASSERT_EQ(sqlite3_blob_open(fDatabase.fConnection, "main", "t", "a", 1, 0, &blob), SQLITE_OK);
  Ignored([&] { WriteTwice(); });
  EXPECT_TRUE(ReleaseLeftovers(fDatabase));
  char bytes[3] = {};
  EXPECT_EQ(sqlite3_blob_read(blob, bytes, 3, 0), SQLITE_OK);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_EQ(sqlite3_blob_close(blob), SQLITE_OK);
}

TEST_F(LeftoversTest, StatementsOfTheKitAreSpared) {
  Database database(boost::shared_ptr<SQLDatabase>(&fDatabase, [](SQLDatabase*) {}));
  database.ExecuteScript("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2)");
  auto rows = database.Query<int>("SELECT a FROM t ORDER BY a");
  auto row = rows.begin();
  ExpectUniqueFailure(ErrorOfRun([&] { WriteTwice(); }));
  ++row;
  EXPECT_EQ(*row, 2);
}

}  // namespace
