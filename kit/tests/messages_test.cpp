// The messages of SQLite that docs/errors.md lists: what the library throws, and what the kit makes of it.

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "kit_test.h"

namespace {

using kit_test::ErrorOf;

struct Case {
  const char* setup;
  const char* sql;
  const char* thrown;
  const char* told;
  int code;
};

const Case kCases[] = {
    {"CREATE TABLE u (x UNIQUE)", "INSERT INTO u VALUES (1), (1)", "SQL logic error", "UNIQUE constraint failed: u.x",
     SQLITE_CONSTRAINT_UNIQUE},
    {"CREATE TABLE u (x TEXT PRIMARY KEY)", "INSERT INTO u VALUES (1), (1)", "SQL logic error",
     "UNIQUE constraint failed: u.x", SQLITE_CONSTRAINT_PRIMARYKEY},
    {"CREATE TABLE u (x NOT NULL)", "INSERT INTO u VALUES (NULL)", "SQL logic error", "NOT NULL constraint failed: u.x",
     SQLITE_CONSTRAINT_NOTNULL},
    {"CREATE TABLE u (x CHECK (x < 10))", "INSERT INTO u VALUES (10)", "SQL logic error",
     "CHECK constraint failed: x < 10", SQLITE_CONSTRAINT_CHECK},
    {"PRAGMA foreign_keys = ON; CREATE TABLE u (x REFERENCES t (a))", "INSERT INTO u VALUES (77)", "SQL logic error",
     "FOREIGN KEY constraint failed", SQLITE_CONSTRAINT_FOREIGNKEY},
    {"PRAGMA max_page_count = 1", "INSERT INTO t VALUES (zeroblob(100000))", "SQL logic error",
     "database or disk is full", SQLITE_FULL},
    {"PRAGMA query_only = ON", "INSERT INTO t VALUES (1)", "SQL logic error", "attempt to write a readonly database",
     SQLITE_READONLY},
    {"", "COMMIT", "SQL logic error", "cannot commit - no transaction is active", SQLITE_ERROR},
    {"", "ROLLBACK", "SQL logic error", "cannot rollback - no transaction is active", SQLITE_ERROR},
    {"", "SELEC 1", "near \"SELEC\": syntax error", "near \"SELEC\": syntax error", SQLITE_ERROR},
    {"", "SELECT (", "incomplete input", "incomplete input", SQLITE_ERROR},
    {"", "SELECT \\", "unrecognized token: \"\\\"", "unrecognized token: \"\\\"", SQLITE_ERROR},
    {"", "SELECT * FROM missing", "no such table: missing", "no such table: missing", SQLITE_ERROR},
    {"", "SELECT missing FROM t", "no such column: missing", "no such column: missing", SQLITE_ERROR},
    {"", "CREATE TABLE t (x)", "table t already exists", "table t already exists", SQLITE_ERROR},
    {"", "SELECT * FROM t ORDER BY a COLLATE none", "no such collation sequence: none",
     "no such collation sequence: none", SQLITE_ERROR_MISSING_COLLSEQ},
};

class MessagesTest : public kit_test::KitTest {};

TEST_F(MessagesTest, AreThoseOfTheList) {
  for (const Case& failure : kCases) {
    SCOPED_TRACE(failure.sql);
    sqldb::SQLDatabase database(":memory:", false);
    database.Open();
    database.SendQuery("CREATE TABLE t (a UNIQUE)", nullptr, nullptr);
    database.SendQuery(failure.setup, nullptr, nullptr);
    const auto fail = [&] { database.SendQuery(failure.sql, nullptr, nullptr); };
    try {
      fail();
      ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), failure.thrown);
    }
    sqldb::kit::ReleaseLeftovers(database);
    const sqldb::kit::Error error = ErrorOf([&] { sqldb::kit::Run(database, fail); });
    EXPECT_STREQ(error.what(), failure.told);
    EXPECT_EQ(error.ExtendedCode(), failure.code);
  }
}

TEST_F(MessagesTest, ATransactionBegunTwiceSaysSo) {
  Send("BEGIN");
  const sqldb::kit::Error error = ErrorOf([&] { sqldb::kit::Run(fDatabase, [&] { Send("BEGIN"); }); });
  EXPECT_STREQ(error.what(), "cannot start a transaction within a transaction");
  Send("ROLLBACK");
}

TEST_F(MessagesTest, ATableThatIsReadCannotBeDropped) {
  Write(1);
  const auto cursor = MakeCursor();
  std::uint32_t row = 0;
  ASSERT_EQ(cursor->Step(row), 0);
  const sqldb::kit::Error error = ErrorOf([&] { sqldb::kit::Run(fDatabase, [&] { Send("DROP TABLE t"); }); });
  EXPECT_STREQ(error.what(), "database table is locked");
  EXPECT_EQ(error.Code(), SQLITE_LOCKED);
}

TEST_F(MessagesTest, AnotherConnectionsChangeOfTheSchemaSaysSo) {
  fOther.Run("CREATE TABLE elsewhere (x)");
  const sqldb::kit::Error error = ErrorOf([&] { sqldb::kit::Run(fDatabase, [&] { Write(1); }); });
  EXPECT_STREQ(error.what(), "database schema has changed");
  EXPECT_EQ(error.Code(), SQLITE_SCHEMA);
}

TEST_F(MessagesTest, AFileThatIsNoDatabaseSaysSo) {
  fDatabase.Close();
  std::ofstream(DatabasePath()) << std::string(4096, 'x');
  fDatabase.Open();
  const sqldb::kit::Error error = ErrorOf([&] { sqldb::kit::Run(fDatabase, [&] { Write(1); }); });
  EXPECT_STREQ(error.what(), "file is not a database");
  EXPECT_EQ(error.Code(), SQLITE_NOTADB);
}

}  // namespace
