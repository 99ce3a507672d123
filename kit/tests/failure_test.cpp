#include "sqldb/kit/failure.h"

#include <memory>
#include <system_error>
#include <type_traits>

#include "kit_test.h"
#include "sqldb/kit/transaction.h"
#include "support/engine.h"

namespace {

namespace kit = sqldb::kit;

using kit_test::ErrorOf;
using sqldb::SQLDatabase;
using sqldb::kit::Error;
using sqldb::kit::ReleaseLeftovers;
using sqldb::kit::Transaction;
using support::MessageOf;
using support::OtherConnection;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FailureTest : public kit_test::KitTest {
 protected:
  // A unique key that is there already.
  void WriteTwice() {
    Send("INSERT OR IGNORE INTO t VALUES (1)");
    Write(1);
  }
  void ExpectUniqueFailure(const Error& error) {
    EXPECT_STREQ(error.what(), "UNIQUE constraint failed: t.a");
    EXPECT_EQ(error.Code(), SQLITE_CONSTRAINT);
    EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  }
  void LeaveABusyWriteBehind() {
    fOther.Run("BEGIN IMMEDIATE");
    EXPECT_EQ(MessageOf([&] { Write(1); }), "database is locked");
    fOther.Run("ROLLBACK");
  }
};

TEST(Error, ThePrimaryCodeIsPartOfTheExtendedOne) {
  const Error error("text", SQLITE_IOERR_FSYNC);
  EXPECT_STREQ(error.what(), "text");
  EXPECT_EQ(error.Code(), SQLITE_IOERR);
  EXPECT_EQ(error.ExtendedCode(), SQLITE_IOERR_FSYNC);
}

TEST_F(FailureTest, RunReturnsWhatTheActionReturns) {
  int number = 7;
  EXPECT_EQ(kit::Run(fDatabase, [] { return 5; }), 5);
  EXPECT_EQ(&kit::Run(fDatabase, [&]() -> int& { return number; }), &number);
  EXPECT_EQ(*kit::Run(fDatabase, [] { return std::make_unique<int>(9); }), 9);
  const auto write = [&] { Write(1); };
  static_assert(std::is_void_v<decltype(kit::Run(fDatabase, write))>);
  kit::Run(fDatabase, write);
  EXPECT_THAT(Seen(), ElementsAre("1"));
}

TEST_F(FailureTest, AFailedStepIsToldInItsTellingWords) {
  ExpectUniqueFailure(ErrorOf([&] { kit::Run(fDatabase, [&] { WriteTwice(); }); }));
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, ATextThatDoesNotCompileKeepsItsWords) {
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [&] { Send("DELETE FROM missing"); }); });
  EXPECT_STREQ(error.what(), "no such table: missing");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(FailureTest, ACodeThatCompilingReportsIsKept) {
  sqlite3_set_authorizer(
      fDatabase.fConnection,
      [](void*, int action, const char*, const char*, const char*, const char*) {
        return action == SQLITE_DELETE ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [&] { Send("DELETE FROM t"); }); });
  EXPECT_STREQ(error.what(), "not authorized");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_AUTH);
  const Error later = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { WriteTwice(); });
      Send("DELETE FROM t");
    });
  });
  EXPECT_EQ(later.ExtendedCode(), SQLITE_AUTH);
}

TEST_F(FailureTest, ABusyFileIsToldByItsCode) {
  fOther.Run("BEGIN IMMEDIATE");
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [&] { Write(1); }); });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
  fOther.Run("ROLLBACK");
}

TEST_F(FailureTest, AFileThatCompilingFindsBusyIsToldByItsCode) {
  SQLDatabase fresh(DatabasePath(), false);
  fresh.Open();
  fOther.Run("BEGIN EXCLUSIVE");
  const auto write = [&] { fresh.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr); };
  EXPECT_EQ(ErrorOf([&] { kit::Run(fresh, write); }).Code(), SQLITE_BUSY);
  // A rollback in between makes SQLite forget it.
  const Error error = ErrorOf([&] {
    kit::Run(fresh, [&] {
      Transaction transaction(fresh);
      write();
    });
  });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
  fOther.Run("ROLLBACK");
}

TEST_F(FailureTest, ACodeThatARollbackMakesSQLiteForgetIsFoundInTheLeftover) {
  Rows("PRAGMA journal_mode = WAL");
  const Error error = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      Transaction transaction(fDatabase);
      Rows("SELECT * FROM t");
      fOther.Run("INSERT INTO t VALUES (1)");
      Write(2);
    });
  });
  EXPECT_STREQ(error.what(), "database is locked");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
}

TEST_F(FailureTest, TheFailureOfACursorThatItDestroyedIsToldInItsTellingWords) {
  fOther.Run("CREATE TABLE u (b)");
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [&] { fTable->CountRecords(nullptr); }); });
  EXPECT_STREQ(error.what(), "database schema has changed");
  EXPECT_EQ(error.Code(), SQLITE_SCHEMA);
}

TEST_F(FailureTest, AFailureThatIsNotOfSQLiteKeepsItsWords) {
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [&] { fDatabase.GetTable("nothing"); }); });
  EXPECT_STREQ(error.what(), "Condition is not met.");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(FailureTest, AVagueFailureWithoutAnyReportStaysVague) {
  const Error error = ErrorOf([&] { kit::Run(fDatabase, [] { throw std::runtime_error("SQL logic error"); }); });
  EXPECT_STREQ(error.what(), "SQL logic error");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
  // A row is no failure.
  const auto cursor = MakeCursor();
  std::uint32_t value = 0;
  Write(1);
  const Error other = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      cursor->Step(value);
      throw std::runtime_error("SQL logic error");
    });
  });
  EXPECT_STREQ(other.what(), "SQL logic error");
}

TEST_F(FailureTest, AnEarlierFailureIsNotTakenForALaterOne) {
  fOther.Run("BEGIN IMMEDIATE");
  const Error error = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { Write(1); });
      throw std::runtime_error("another");
    });
  });
  EXPECT_STREQ(error.what(), "another");
  EXPECT_EQ(error.Code(), SQLITE_ERROR);
  EXPECT_EQ(Unfinalized(), 0);
  fOther.Run("ROLLBACK");
}

TEST_F(FailureTest, OfSeveralFailuresTheLatestIsTold) {
  const Error error = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { Send("INSERT INTO t VALUES (abs(-9223372036854775808))"); });
      WriteTwice();
    });
  });
  ExpectUniqueFailure(error);
  const Error compiled = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { WriteTwice(); });
      Send("DELETE FROM missing");
    });
  });
  EXPECT_STREQ(compiled.what(), "no such table: missing");
  EXPECT_EQ(compiled.ExtendedCode(), SQLITE_ERROR);
}

TEST_F(FailureTest, OtherExceptionsPassUnchangedAndNothingIsLeft) {
  EXPECT_THROW(kit::Run(fDatabase,
                        [&] {
                          MessageOf([&] { WriteTwice(); });
                          throw 5;
                        }),
               int);
  EXPECT_EQ(Unfinalized(), 0);
  try {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { WriteTwice(); });
      throw std::system_error(std::make_error_code(std::errc::broken_pipe));
    });
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::broken_pipe);
  }
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, AnErrorPassesUnchangedAndNothingIsLeft) {
  const Error error = ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { WriteTwice(); });
      kit::Run(fDatabase, [] { throw Error("inner", SQLITE_IOERR_FSYNC); });
    });
  });
  EXPECT_STREQ(error.what(), "inner");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_IOERR_FSYNC);
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, StatementsThatTheApplicationCompiledBeforeAreSpared) {
  Write(1);
  Write(2);
  std::vector<sqlite3_stmt*> own(3);
  for (sqlite3_stmt*& statement : own) {
    sqlite3_prepare_v2(fDatabase.fConnection, "SELECT a FROM t ORDER BY a", -1, &statement, nullptr);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  }
  ExpectUniqueFailure(ErrorOf([&] { kit::Run(fDatabase, [&] { WriteTwice(); }); }));
  EXPECT_THROW(kit::Run(fDatabase,
                        [&] {
                          MessageOf([&] { WriteTwice(); });
                          throw 5;
                        }),
               int);
  ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      MessageOf([&] { WriteTwice(); });
      throw Error("", 1);
    });
  });
  EXPECT_EQ(Unfinalized(), 3);
  for (sqlite3_stmt* const statement : own) {
    EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW);
    EXPECT_EQ(sqlite3_column_int(statement, 0), 2);
    EXPECT_EQ(sqlite3_finalize(statement), SQLITE_OK);
  }
}

TEST_F(FailureTest, TheQueryAroundARunIsSpared) {
  class Callback : public sqldb::QueryCallback {
   public:
    explicit Callback(SQLDatabase& database) : fDatabase(database) {}
    bool ProcessRow(sqlite3_stmt*) override {
      ++fRows;
      EXPECT_EQ(MessageOf([&] {
                  kit::Run(fDatabase, [&] { fDatabase.SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr); });
                }),
                "UNIQUE constraint failed: t.a");
      return true;
    }

    SQLDatabase& fDatabase;
    int fRows = 0;
  };
  Write(1);
  Write(2);
  Callback callback(fDatabase);
  fDatabase.SendQuery("SELECT a FROM t", &callback, nullptr);
  EXPECT_EQ(callback.fRows, 2);
}

TEST_F(FailureTest, StatementsOfLivingCursorsAreSpared) {
  Write(1);
  Write(2);
  std::vector<boost::shared_ptr<Cursor>> cursors;
  std::uint32_t value = 0;
  for (int i = 0; i < 3; ++i) {
    cursors.push_back(MakeCursor());
    ASSERT_EQ(cursors.back()->Step(value), 0);
  }
  ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      cursors.push_back(MakeCursor());
      ASSERT_EQ(cursors.back()->Step(value), 0);
      WriteTwice();
    });
  });
  MessageOf([&] { WriteTwice(); });
  ReleaseLeftovers(fDatabase);
  EXPECT_EQ(Unfinalized(), 4);
  for (const auto& cursor : cursors) {
    EXPECT_EQ(cursor->Step(value), 0);
    EXPECT_EQ(value, 2u);
  }
}

// AddressSanitizer does not hand out an address again so soon; every other build does.
TEST_F(FailureTest, WhatTakesTheAddressOfAnEarlierCursorsStatementIsReleased) {
  Write(1);
  auto cursor = MakeCursor();
  ErrorOf([&] {
    kit::Run(fDatabase, [&] {
      cursor.reset();
      Write(1);
    });
  });
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, CursorsWithoutAStatementSpareNothing) {
  sqldb::SQLCursorBase other(&fDatabase);
  Cursor finalized(&fDatabase, {});
  MessageOf([&] { WriteTwice(); });
  finalized.fStatement = sqlite3_next_stmt(fDatabase.fConnection, nullptr);
  ReleaseLeftovers(fDatabase);
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, ReleasedLeftoversTellOfTheLatestFailure) {
  MessageOf([&] { Send("INSERT INTO t VALUES (abs(-9223372036854775808))"); });
  MessageOf([&] { WriteTwice(); });
  const std::optional<Error> error = ReleaseLeftovers(fDatabase);
  ASSERT_TRUE(error);
  ExpectUniqueFailure(*error);
  EXPECT_EQ(Unfinalized(), 0);
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
}

TEST_F(FailureTest, ALeftoverThatHasNotFailedTellsNothing) {
  class Callback : public sqldb::QueryCallback {
   public:
    bool ProcessRow(sqlite3_stmt*) override { throw 5; }
  };
  Write(1);
  MessageOf([&] { WriteTwice(); });
  Callback callback;
  EXPECT_THROW(fDatabase.SendQuery("SELECT a FROM t", &callback, nullptr), int);
  const std::optional<Error> error = ReleaseLeftovers(fDatabase);
  ASSERT_TRUE(error);
  ExpectUniqueFailure(*error);
  EXPECT_THROW(fDatabase.SendQuery("SELECT a FROM t", &callback, nullptr), int);
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, ABusyWriteDoesNotKeepLaterOnesFromBeingCommitted) {
  fOther.Run("BEGIN IMMEDIATE");
  ErrorOf([&] { kit::Run(fDatabase, [&] { Write(1); }); });
  fOther.Run("ROLLBACK");
  Write(2);
  EXPECT_THAT(Seen(), ElementsAre("2"));
  LeaveABusyWriteBehind();
  ReleaseLeftovers(fDatabase);
  Write(3);
  EXPECT_THAT(Seen(), ElementsAre("2", "3"));
}

// The modules of SQLite compile statements of their own, and keep them.
class ModuleTest : public FailureTest {
 protected:
  ModuleTest() : fOwn(DatabasePath(), false) {}

  void SetUp() override {
    FailureTest::SetUp();
    if (support::IsOlderThan(3025000)) GTEST_SKIP() << "built without full-text search";
    fOther.Run("CREATE VIRTUAL TABLE notes USING fts5(text)");
    fOther.Run("CREATE VIRTUAL TABLE boxes USING rtree(id, low, high)");
    fOther.Run("INSERT INTO notes (rowid, text) VALUES (1, 'one word'), (2, 'a word')");
    fOther.Run("INSERT INTO boxes VALUES (1, 1, 2)");
    // Has none yet, unlike a connection that has made the tables.
    fOwn.Open();
  }
  void SendOwn(const std::string& sql) { fOwn.SendQuery(sql, nullptr, nullptr); }
  Error ErrorOfOwn(const std::string& sql) {
    return ErrorOf([&] { kit::Run(fOwn, [&] { SendOwn(sql); }); });
  }
  // Close says nothing, but succeeds only if nothing is left.
  void ExpectWorkingAndClosable() {
    SendOwn("INSERT INTO notes (rowid, text) VALUES (5, 'new')");
    SendOwn("INSERT INTO boxes VALUES (5, 1, 2)");
    EXPECT_THAT(fOther.Run("SELECT rowid FROM notes WHERE notes MATCH 'new'"), ElementsAre("5"));
    EXPECT_EQ(sqlite3_close(fOwn.fConnection), SQLITE_OK);
    fOwn.fIsOpen = false;
  }

  SQLDatabase fOwn;
};

TEST_F(ModuleTest, WhatAModuleCompiledWhileAStepFailedIsSpared) {
  EXPECT_STREQ(ErrorOfOwn("INSERT INTO notes (rowid, text) VALUES (1, 'again')").what(),
               "UNIQUE constraint failed: notes_content.id");
  EXPECT_EQ(ErrorOfOwn("INSERT INTO boxes VALUES (1, 5, 6)").Code(), SQLITE_CONSTRAINT);
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatAModuleCompiledForATextThatDoesNotCompileIsSpared) {
  EXPECT_STREQ(ErrorOfOwn("SELECT missing FROM boxes").what(), "no such column: missing");
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatAModuleKeepsIsSparedWhenLeftoversAreReleased) {
  SendOwn("INSERT INTO notes (rowid, text) VALUES (3, 'first')");
  MessageOf([&] { SendOwn("INSERT INTO boxes VALUES (1, 5, 6)"); });
  EXPECT_TRUE(ReleaseLeftovers(fOwn));
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, TheEndOfALeftoverMayBeThatOfWhatAModuleCompiledForIt) {
  class Callback : public sqldb::QueryCallback {
   public:
    bool ProcessRow(sqlite3_stmt*) override { throw 5; }
  };
  Callback callback;
  const auto search = [&] {
    fOwn.SendQuery("SELECT * FROM notes WHERE notes MATCH 'word' ORDER BY rank", &callback, nullptr);
  };
  EXPECT_THROW(kit::Run(fOwn, search), int);
  EXPECT_THROW(search(), int);
  EXPECT_FALSE(ReleaseLeftovers(fOwn));
  ExpectWorkingAndClosable();
}

TEST_F(ModuleTest, WhatServesACursorIsSpared) {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  const auto cursor = boost::make_shared<Cursor>(&fOwn, offsets);
  cursor->fColumns = {boost::make_shared<sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>>(
      nullptr, "rowid", false, false, false, "")};
  cursor->PrepareToQuery("SELECT rowid FROM notes WHERE notes MATCH 'word' ORDER BY rowid");
  std::uint32_t rowid = 0;
  ASSERT_EQ(cursor->Step(rowid), 0);
  EXPECT_FALSE(ReleaseLeftovers(fOwn));
  ASSERT_EQ(cursor->Step(rowid), 0);
  EXPECT_EQ(rowid, 2u);
  EXPECT_EQ(cursor->Step(rowid), 1);
}

TEST_F(FailureTest, ALeftoverOnARowIsReleasedWhateverTextItHas) {
  class Callback : public sqldb::QueryCallback {
   public:
    bool ProcessRow(sqlite3_stmt*) override { throw 5; }
  };
  Callback callback;
  for (const char* const sql :
       {"SELECT '.'", "SELECT\n'.'", "SELECT 'a','.b'", "SELECT ('.c')", "SELECT 'd' LIKE '.'", "SELECT 'e'||'.'"}) {
    EXPECT_THROW(kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, &callback, nullptr); }), int);
    EXPECT_EQ(Unfinalized(), 0) << sql;
  }
}

TEST_F(FailureTest, AFailedWriteIsReleasedEvenIfItNamesItsSchemaInQuotes) {
  const auto writeTwice = [&] { Send("INSERT INTO 'main'.'t' VALUES (1); INSERT INTO 'main'.'t' VALUES (1)"); };
  ExpectUniqueFailure(ErrorOf([&] { kit::Run(fDatabase, writeTwice); }));
  EXPECT_EQ(Unfinalized(), 0);
}

TEST_F(FailureTest, BlobHandlesAreSpared) {
  Send("INSERT INTO t VALUES ('abc')");
  sqlite3_blob* blob = nullptr;
  ASSERT_EQ(sqlite3_blob_open(fDatabase.fConnection, "main", "t", "a", 1, 0, &blob), SQLITE_OK);
  EXPECT_FALSE(ReleaseLeftovers(fDatabase));
  char bytes[3] = {};
  EXPECT_EQ(sqlite3_blob_read(blob, bytes, 3, 0), SQLITE_OK);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_EQ(sqlite3_blob_close(blob), SQLITE_OK);
}

TEST_F(FailureTest, WhatWasNeverRunIsKnownByItsNamedParameter) {
  class Refusing : public sqldb::BindingCallback {
   public:
    void BindingOpportunity(sqlite3_stmt*) const override { throw 5; }
  };
  Refusing refusing;
  const auto send = [&](const std::string& sql) {
    EXPECT_THROW(kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, nullptr, &refusing); }), int);
  };
  send("INSERT INTO t VALUES (:1)");
  send("INSERT INTO t VALUES ($one)");
  EXPECT_EQ(Unfinalized(), 0);
  send("INSERT INTO t VALUES (?1)");
  send("DELETE FROM t");
  ASSERT_EQ(Unfinalized(), 2);
  while (sqlite3_stmt* const statement = sqlite3_next_stmt(fDatabase.fConnection, nullptr)) sqlite3_finalize(statement);
}

TEST_F(FailureTest, ADatabaseThatIsNotOpenFailsAsTheLibraryDoes) {
  SQLDatabase database(DatabasePath(), false);
  const auto run = [&] { kit::Run(database, [&] { database.SendQuery("SELECT 1", nullptr, nullptr); }); };
  EXPECT_STREQ(ErrorOf(run).what(), "out of memory");
  EXPECT_EQ(ErrorOf(run).Code(), SQLITE_NOMEM);
  EXPECT_FALSE(ReleaseLeftovers(database));
  database.Open();
  run();
  database.Close();
  EXPECT_EQ(ErrorOf(run).Code(), SQLITE_NOMEM);
  EXPECT_FALSE(ReleaseLeftovers(database));
}

}  // namespace
