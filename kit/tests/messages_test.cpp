// The messages that docs/errors.md lists: those of SQLite, as the core throws them and as the kit does, and the kit's
// own. That it lists all of the sources is checked by scripts/lib/documents.py.

#include <cstdint>
#include <fstream>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include <sqlite3.h>
#include <boost/shared_ptr.hpp>

#include "kit_test.h"
#include "sqldb/kit/kit.h"
#include "sqldb/kit/leftovers.h"
#include "sqldb/sqldb.h"
#include "support/temporary_folder.h"

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::name;
using kit_test::Part;
using kit_test::ThrownBy;

struct Case {
  const char* setUp;
  const char* sql;
  const char* thrownByTheCore;
  const char* thrownByTheKit;
  int code;
};

void PrintTo(const Case& failure, std::ostream* stream) { *stream << failure.sql; }

const Case kCases[] = {
    {"CREATE TABLE u (x UNIQUE)", "INSERT INTO u VALUES (1), (1)", "SQL logic error", "UNIQUE constraint failed: u.x",
     SQLITE_CONSTRAINT_UNIQUE},
    {"CREATE TABLE u (x TEXT PRIMARY KEY)", "INSERT INTO u VALUES (1), (1)", "SQL logic error",
     "UNIQUE constraint failed: u.x", SQLITE_CONSTRAINT_PRIMARYKEY},
    {"CREATE TABLE u (x NOT NULL)", "INSERT INTO u VALUES (NULL)", "SQL logic error", "NOT NULL constraint failed: u.x",
     SQLITE_CONSTRAINT_NOTNULL},
    {"CREATE TABLE u (x CHECK (x < 10))", "INSERT INTO u VALUES (10)", "SQL logic error",
     "CHECK constraint failed: x < 10", SQLITE_CONSTRAINT_CHECK},
    {"CREATE TABLE u (x REFERENCES t (a))", "INSERT INTO u VALUES (77)", "SQL logic error",
     "FOREIGN KEY constraint failed", SQLITE_CONSTRAINT_FOREIGNKEY},
    {"PRAGMA max_page_count = 1", "INSERT INTO t VALUES (zeroblob(100000))", "SQL logic error",
     "database or disk is full", SQLITE_FULL},
    {"PRAGMA query_only = ON", "INSERT INTO t VALUES (1)", "SQL logic error", "attempt to write a readonly database",
     SQLITE_READONLY},
    {"", "COMMIT", "SQL logic error", "cannot commit - no transaction is active", SQLITE_ERROR},
    {"", "ROLLBACK", "SQL logic error", "cannot rollback - no transaction is active", SQLITE_ERROR},
    {"BEGIN", "BEGIN", "SQL logic error", "cannot start a transaction within a transaction", SQLITE_ERROR},
    {"", "SELEC 1", "near \"SELEC\": syntax error", "near \"SELEC\": syntax error", SQLITE_ERROR},
    {"", "SELECT (", "incomplete input", "incomplete input", SQLITE_ERROR},
    {"", "SELECT \\", R"(unrecognized token: "\")", R"(unrecognized token: "\")", SQLITE_ERROR},
    {"", "SELECT * FROM missing", "no such table: missing", "no such table: missing", SQLITE_ERROR},
    {"", "SELECT missing FROM t", "no such column: missing", "no such column: missing", SQLITE_ERROR},
    {"", "CREATE TABLE t (x)", "table t already exists", "table t already exists", SQLITE_ERROR},
    {"", "SELECT * FROM t ORDER BY a COLLATE none", "no such collation sequence: none",
     "no such collation sequence: none", SQLITE_ERROR_MISSING_COLLSEQ},
};

std::string Told(const Error& error) { return std::string(error.Message()); }

class MessagesOfSQLite : public testing::TestWithParam<Case> {
 protected:
  MessagesOfSQLite() {
    fDatabase.Execute("CREATE TABLE t (a UNIQUE)");
    fDatabase.ExecuteScript(GetParam().setUp);
  }

  void Send() { fDatabase.Core().SendQuery(GetParam().sql, nullptr, nullptr); }

  Database fDatabase{":memory:"};
};

TEST_P(MessagesOfSQLite, TheCoreThrowsThemAsTheyAreBeforeTheEndOfTheStatement) {
  try {
    Send();
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::runtime_error& thrown) {
    EXPECT_STREQ(thrown.what(), GetParam().thrownByTheCore);
  }
  ReleaseLeftovers(fDatabase.Core());
}

TEST_P(MessagesOfSQLite, TheKitThrowsTheTellingOnes) {
  const Error error = ThrownBy([&] { fDatabase.Execute(GetParam().sql); });
  EXPECT_EQ(Told(error), GetParam().thrownByTheKit);
  EXPECT_EQ(error.ExtendedCode(), GetParam().code);
}

TEST_P(MessagesOfSQLite, SoDoesRun) {
  const Error error = ThrownBy([&] { sqldb::kit::Run(fDatabase.Core(), [&] { Send(); }); });
  EXPECT_EQ(Told(error), GetParam().thrownByTheKit);
  EXPECT_EQ(error.ExtendedCode(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(List, MessagesOfSQLite, testing::ValuesIn(kCases));

class MessagesOfFiles : public testing::Test {
 protected:
  std::string Path() const { return fFolder.Path("messages.db"); }

 private:
  support::TemporaryFolder fFolder;
};

TEST_F(MessagesOfFiles, AnotherConnectionsChangeOfTheSchemaIsToldToTheCoreAlone) {
  Database database(Path());
  database.Execute("CREATE TABLE t (a)");
  database.Core().SendQuery("INSERT INTO t VALUES (1)", nullptr, nullptr);
  Database(Path()).Execute("CREATE TABLE elsewhere (x)");
  const Error error = ThrownBy([&] {
    sqldb::kit::Run(database.Core(), [&] { database.Core().SendQuery("INSERT INTO t VALUES (2)", nullptr, nullptr); });
  });
  EXPECT_EQ(Told(error), "database schema has changed");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_SCHEMA);
  Database(Path()).Execute("CREATE TABLE anywhere (x)");
  EXPECT_EQ(database.Execute("INSERT INTO t VALUES (3)"), 1);
}

TEST_F(MessagesOfFiles, OneThatIsNoDatabaseSaysSo) {
  std::ofstream(Path()) << std::string(4096, 'x');
  const Error error = ThrownBy([&] { Database database(Path()); });
  EXPECT_EQ(Told(error), "'" + Path() + "' cannot be opened: file is not a database");
  EXPECT_EQ(error.Code(), SQLITE_NOTADB);
}

TEST_F(MessagesOfFiles, OpeningSaysWhyNot) {
  const std::string before = "'" + Path() + "' cannot be opened: ";
  Options options;
  options.module = Path();
  EXPECT_THAT(Told(ThrownBy([&] { Database database(Path(), options); })),
              testing::StartsWith(before + "the module '" + Path() + "' cannot be loaded: "));
  options = Options();
  options.access = Access::kCreate;
  Database(Path()).Execute("CREATE TABLE t (a)");
  EXPECT_EQ(Told(ThrownBy([&] { Database database(Path(), options); })), before + "it is there already");
  options = Options();
  options.setUp = "PRAGMA encoding = 'UTF-16'";
  EXPECT_EQ(Told(ThrownBy([&] { Database database(Path(), options); })),
            before + "Only UTF-8 can keep the bytes of every text.");
  options = Options();
  options.wal = true;
  EXPECT_EQ(Told(ThrownBy([&] { Database database(":memory:", options); })),
            "':memory:' cannot be opened: it cannot be put into WAL mode, and stays in mode memory");
  const std::string withZero("a\0b", 3);
  EXPECT_EQ(Told(ThrownBy([&] { Database database(withZero); })),
            "'a\uFFFDb' cannot be opened: its name has a zero byte");
}

// What is left is looked at on purpose.
template <typename T>
T TakenFrom(T& object) {
  return std::move(object);
}

// What the kit itself says, with its code.
struct Saying {
  const char* words;
  int code;
  void (*fail)(Database& database);
};

struct Line {
  int number = 0;
  char text[4] = "";
  bool isLast = false;

  static constexpr auto Description() {
    return Describe("lines", Key("number", &Line::number), Field("text", &Line::text), Field("isLast", &Line::isLast));
  }
};

constexpr Column number(&Line::number);
constexpr Column text(&Line::text);

Term Nested(int levels) {
  Term term = id == 0;
  for (int level = 1; level < levels; ++level) term = !(term && id == level);
  return term;
}

const Saying kSayings[] = {
    {"There is no statement in the text.", SQLITE_MISUSE, [](Database& d) { d.Execute(" -- none"); }},
    {"There are several statements in the text; ExecuteScript runs them all.", SQLITE_MISUSE,
     [](Database& d) { d.Execute("SELECT 1; SELECT 2"); }},
    {"There is a zero byte in the text.", SQLITE_MISUSE,
     [](Database& d) { d.ExecuteScript(std::string_view("SELECT 1;\0SELECT 2", 18)); }},
    {"The statement has 2 parameters, and is given 1 value.", SQLITE_MISUSE,
     [](Database& d) { d.Execute("SELECT ?, ?", 1); }},
    {"The statement has no parameter :x.", SQLITE_MISUSE, [](Database& d) { d.Execute("SELECT :a", Named(":x", 1)); }},
    {"The parameter :x is given twice.", SQLITE_MISUSE,
     [](Database& d) { d.Execute("SELECT :x, :y", Named(":x", 1), Named(":x", 1)); }},
    {"A text is a null pointer; std::nullopt stands for NULL.", SQLITE_MISUSE,
     [](Database& d) { d.Execute("SELECT ?", static_cast<const char*>(nullptr)); }},
    {"How long a busy file is waited for is said by Options::busyTimeout; this would end the waiting.", SQLITE_MISUSE,
     [](Database& d) { d.Execute("PRAGMA busy_timeout = 1"); }},
    {"list(?) takes what sqldb::kit::List makes, and nothing else", SQLITE_ERROR,
     [](Database& d) { d.All<int>("SELECT value FROM list(?)", 1); }},
    {"The database has been moved.", SQLITE_MISUSE,
     [](Database& d) {
       const Database other = TakenFrom(d);
       d.Execute("SELECT 1");
     }},
    {"The database is not open.", SQLITE_MISUSE,
     [](Database& d) {
       d.Close();
       d.Execute("SELECT 1");
     }},
    {"The database has been closed.", SQLITE_MISUSE,
     [](Database& d) {
       auto rows = d.Query<int>("SELECT 1");
       d.Close();
       rows.begin();
     }},
    {"The statement has been moved.", SQLITE_MISUSE,
     [](Database& d) {
       Statement statement = d.Prepare("SELECT 1");
       const Statement other = TakenFrom(statement);
       statement.Execute();
     }},
    {"The statement is in use: end the range that Query has made, or take its rows with All.", SQLITE_MISUSE,
     [](Database& d) {
       Statement statement = d.Prepare("SELECT 1");
       const auto rows = statement.Query<int>();
       statement.Execute();
     }},
    {"The query yields no row.", SQLITE_MISUSE, [](Database& d) { d.One<int>("SELECT 1 WHERE 0"); }},
    {"The query yields more than one row.", SQLITE_MISUSE, [](Database& d) { d.One<int>("VALUES (1), (2)"); }},
    {"There is no such row in parts.", SQLITE_NOTFOUND, [](Database& d) { Table<Part>(d).Get(1); }},
    {"The statement yields 3 columns, and a row is made of 2.", SQLITE_MISUSE,
     [](Database& d) { d.All<int, int>("SELECT 1, 2, 3"); }},
    {"The statement yields no column price.", SQLITE_MISUSE,
     [](Database& d) { d.All<Part>("SELECT 1 AS id, 'x' AS name"); }},
    {"The statement yields the column id twice among its columns 2 to 5.", SQLITE_MISUSE,
     [](Database& d) { d.All<int, Part>("SELECT 1, 1 AS id, 2 AS id, 'x' AS name, 1.0 AS price"); }},
    {"column n has NULL, which cannot be read as a text", SQLITE_MISMATCH,
     [](Database& d) { d.All<std::string>("SELECT NULL AS n"); }},
    {"column n has a text, which cannot be read as an integer", SQLITE_MISMATCH,
     [](Database& d) { d.All<int>("SELECT '1' AS n"); }},
    {"column n has a blob, which cannot be read as a real number", SQLITE_MISMATCH,
     [](Database& d) { d.All<double>("SELECT x'00' AS n"); }},
    {"column n has an integer, which cannot be read as a blob", SQLITE_MISMATCH,
     [](Database& d) { d.All<Blob>("SELECT 1 AS n"); }},
    {"column n has a real number that is no integer of 64 bits", SQLITE_MISMATCH,
     [](Database& d) { d.All<int>("SELECT 1.5 AS n"); }},
    {"column n has an integer that does not fit into what it is read into", SQLITE_MISMATCH,
     [](Database& d) { d.All<signed char>("SELECT 128 AS n"); }},
    {"column n has an integer that is neither 0 nor 1", SQLITE_MISMATCH,
     [](Database& d) { d.All<bool>("SELECT 2 AS n"); }},
    {"column n has an integer that no double holds exactly", SQLITE_MISMATCH,
     [](Database& d) { d.All<double>("SELECT 9007199254740993 AS n"); }},
    {"column n has a real number that no float holds exactly", SQLITE_MISMATCH,
     [](Database& d) { d.All<float>("SELECT 0.1 AS n"); }},
    {"column text has a text with a zero byte, at which the characters that it is read into would end", SQLITE_MISMATCH,
     [](Database& d) { d.One<Line>("SELECT 1 AS number, CAST(x'610062' AS TEXT) AS text, 0 AS isLast"); }},
    {"column text has a text that is longer than the characters that it is read into", SQLITE_MISMATCH,
     [](Database& d) { d.All<Line>("SELECT 1 AS number, 'hello' AS text, 0 AS isLast"); }},
    {"An integer does not fit into 64 bits with a sign.", SQLITE_MISMATCH,
     [](Database& d) { d.Execute("SELECT ?", std::numeric_limits<std::uint64_t>::max()); }},
    {"NaN cannot be stored.", SQLITE_MISMATCH,
     [](Database& d) { d.Execute("SELECT ?", std::numeric_limits<double>::quiet_NaN()); }},
    {"An update without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Update(Term(), Set(name, "x")); }},
    {"A delete without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Delete(Term()); }},
    {"There are more question marks than values.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Where("id = ? OR id = ?", 1)); }},
    {"There are more values than question marks.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Where("id = ?", 1, 2)); }},
    {"The parameters of a term are question marks.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Where("id = :id", 1)); }},
    {"Give the values of a term in order, not by name.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Where("id = ?", Named(":id", 1))); }},
    {"A pattern of LIKE cannot have a zero byte.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Like(name, std::string_view("a\0b", 3))); }},
    {"The escape of LIKE is one ASCII character.", SQLITE_MISUSE,
     [](Database& d) { Table<Part>(d).Count(Like(name, "a", '\0')); }},
    {"column number cannot hold such a number", SQLITE_MISMATCH,
     [](Database& d) { Table<Line>(d).Update(EveryRow(), Set(number, 1e10)); }},
    {"column text cannot hold such a text", SQLITE_MISMATCH,
     [](Database& d) { Table<Line>(d).Update(EveryRow(), Set(text, "hello")); }},
    {"The term is nested too deeply.", SQLITE_TOOBIG, [](Database& d) { Table<Part>(d).Count(Nested(1100)); }},
    {"UNIQUE constraint failed: parts.id (the key is 0: SQLite numbers rows whose key is an empty std::optional)",
     SQLITE_CONSTRAINT_PRIMARYKEY,
     [](Database& d) {
       Table<Part>(d).Insert({});
       Table<Part>(d).Insert({});
     }},
    {"database table is locked: a range may be open; end it, or take its rows with All()", SQLITE_LOCKED,
     [](Database& d) {
       Table<Part>(d).Insert({});
       for (const Part& part : Table<Part>(d).Select()) d.Execute(part.id == 0 ? "DROP TABLE lines" : "");
     }},
    {"The transaction has ended already, or a part of it has not.", SQLITE_MISUSE,
     [](Database& d) {
       Transaction transaction(d);
       transaction.Commit();
       transaction.Commit();
     }},
    {"The transaction was rolled back, because a part of it was.", SQLITE_ABORT_ROLLBACK,
     [](Database& d) {
       Transaction transaction(d);
       { const Transaction inner(d); }
       transaction.Commit();
     }},
    {"SQLite has rolled the transaction back.", SQLITE_ABORT_ROLLBACK,
     [](Database& d) {
       d.Execute("CREATE TEMP TRIGGER no BEFORE INSERT ON lines BEGIN SELECT RAISE(ROLLBACK, 'no'); END");
       const Transaction transaction(d);
       ThrownBy([&] { Table<Line>(d).Insert({}); });
       Table<Part>(d).Insert({});
     }},
    {"A savepoint is a part of a transaction, and none is open.", SQLITE_MISUSE,
     [](Database& d) { const Savepoint savepoint(d); }},
    {"The savepoint has ended already, or a part of it has not.", SQLITE_MISUSE,
     [](Database& d) {
       const Transaction transaction(d);
       Savepoint savepoint(d);
       savepoint.Release();
       savepoint.Release();
     }},
    {"The program has set a commit or rollback hook, and the kit needs it.", SQLITE_MISUSE,
     [](Database& d) {
       static int data;
       sqlite3_commit_hook(
           d.Core().fConnection, [](void*) { return 0; }, &data);
       const Transaction transaction(d);
     }},
};

TEST(Messages, ATermMayBeNestedTooDeeplyForTheParser) {
  if (sqlite3_libversion_number() >= 3046000) GTEST_SKIP() << "This one has as much room as there is memory.";
  Database database(":memory:");
  Table<Part>(database).Create();
  const Error error = ThrownBy([&] { Table<Part>(database).Count(Nested(70)); });
  EXPECT_EQ(Told(error), "parser stack overflow");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ERROR);
}

TEST(Messages, OfTheKitAreThoseOfTheList) {
  for (const Saying& saying : kSayings) {
    SCOPED_TRACE(saying.words);
    Database database(":memory:");
    Table<Part>(database).Create();
    Table<Line>(database).Create();
    const Error error = ThrownBy([&] { saying.fail(database); });
    EXPECT_EQ(Told(error), saying.words);
    EXPECT_EQ(error.ExtendedCode(), saying.code);
  }
}

}  // namespace
