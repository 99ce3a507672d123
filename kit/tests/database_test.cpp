#include "sqldb/kit/database.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "kit_test.h"
#include "sqldb/database.h"
#include "support/engine.h"
#include "support/temporary_folder.h"

namespace {

using kit_test::ThrownBy;
using sqldb::kit::Access;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::Named;
using sqldb::kit::Options;
using sqldb::kit::Synchronous;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class DatabaseFileTest : public ::testing::Test {
 protected:
  std::string File(const std::string& name = "t.db") const { return fFolder.Path(name); }
  bool IsThere() const { return std::filesystem::exists(File()); }
  void Make() const { Database(File()).Execute("CREATE TABLE t (a)"); }
  Error OpeningFails(const Options& options, const std::string& name = "t.db") const {
    return ThrownBy([&] { const Database database(File(name), options); });
  }

  support::TemporaryFolder fFolder;
};

Options With(Access access) {
  Options options;
  options.access = access;
  return options;
}

std::string Why(const Error& error) { return std::string(error.Message()); }

// Whether the engine is one that encrypts.
bool IsEncrypting() {
  const Database database(":memory:");
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database.Core().fConnection, "PRAGMA cipher_version", -1, &statement, nullptr);
  const bool isAnswered = sqlite3_step(statement) == SQLITE_ROW;
  sqlite3_finalize(statement);
  return isAnswered;
}

// --- Opening ---------------------------------------------------------------------------------------------------------

TEST_F(DatabaseFileTest, MissingFileIsMadeUnlessTheOptionsSayOtherwise) {
  Make();
  EXPECT_TRUE(IsThere());
}

TEST_F(DatabaseFileTest, ReadOnlyMissingFileIsAnErrorThatNamesItAndStaysMissing) {
  const Error error = OpeningFails(With(Access::kReadOnly));
  EXPECT_EQ(error.Code(), SQLITE_CANTOPEN);
  // The system's reason follows.
  EXPECT_THAT(Why(error), StartsWith("'" + File() + "' cannot be opened: unable to open database file: "));
  EXPECT_FALSE(IsThere());
}

TEST_F(DatabaseFileTest, ReadOnlyWritesNothing) {
  Make();
  Database database(File(), With(Access::kReadOnly));
  const Error error = ThrownBy([&] { database.Execute("INSERT INTO t VALUES (1)"); });
  EXPECT_EQ(error.Code(), SQLITE_READONLY);
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 0);
  EXPECT_TRUE(database.Core().fReadOnly);
}

TEST_F(DatabaseFileTest, FileThatMustBeThereIsNotMade) {
  EXPECT_EQ(OpeningFails(With(Access::kReadWrite)).Code(), SQLITE_CANTOPEN);
  EXPECT_FALSE(IsThere());
  Make();
  Database(File(), With(Access::kReadWrite)).Execute("INSERT INTO t VALUES (1)");
}

TEST_F(DatabaseFileTest, FileThatMustNotBeThereIsMadeOnce) {
  Database(File(), With(Access::kCreate)).Execute("CREATE TABLE t (a)");
  const Error error = OpeningFails(With(Access::kCreate));
  EXPECT_EQ(Why(error), "'" + File() + "' cannot be opened: it is there already");
  EXPECT_EQ(Database(File()).One<int>("SELECT COUNT(*) FROM t"), 0);
}

TEST_F(DatabaseFileTest, FileOfOtherContentThatMustNotBeThereIsLeftAlone) {
  std::ofstream(File()) << "notes";
  EXPECT_THAT(Why(OpeningFails(With(Access::kCreate))), HasSubstr("it is there already"));
  EXPECT_EQ(std::filesystem::file_size(File()), 5U);
}

TEST_F(DatabaseFileTest, FolderIsThereToo) {
  EXPECT_THAT(Why(OpeningFails(With(Access::kCreate), "no such folder/t.db")), HasSubstr("unable to open"));
  const Error error = OpeningFails(With(Access::kCreate), ".");
  EXPECT_EQ(Why(error), "'" + File(".") + "' cannot be opened: it is there already");
  EXPECT_EQ(error.Code(), SQLITE_CANTOPEN);
}

TEST_F(DatabaseFileTest, FileThatMustNotBeThereIsLookedForByUriAndVfsToo) {
  Options options = With(Access::kCreate);
  options.isUri = true;
  Database("file:" + File(), options).Execute("CREATE TABLE t (a)");
  EXPECT_THAT(Why(ThrownBy([&] { const Database again("file:" + File(), options); })), HasSubstr("there already"));
}

// Of files that have a name of its own.
class RenamingVfs {
 public:
  RenamingVfs() : fVfs(*Real()) {
    fVfs.zName = "renaming";
    fVfs.xFullPathname = [](sqlite3_vfs*, const char* name, int size, char* path) {
      return Real()->xFullPathname(Real(), (std::string(name) + ".renamed").c_str(), size, path);
    };
    sqlite3_vfs_register(&fVfs, 0);
  }
  ~RenamingVfs() { sqlite3_vfs_unregister(&fVfs); }
  RenamingVfs(const RenamingVfs&) = delete;
  RenamingVfs& operator=(const RenamingVfs&) = delete;

 private:
  static sqlite3_vfs* Real() { return sqlite3_vfs_find(nullptr); }

  sqlite3_vfs fVfs;
};

TEST_F(DatabaseFileTest, FileThatMustNotBeThereHasTheNameThatTheVfsGivesIt) {
  const RenamingVfs vfs;
  Options options = With(Access::kCreate);
  options.vfs = "renaming";
  Database(File(), options).Execute("CREATE TABLE t (a)");
  EXPECT_TRUE(std::filesystem::exists(File("t.db.renamed")));
  EXPECT_FALSE(IsThere());
  EXPECT_THAT(Why(OpeningFails(options)), HasSubstr("there already"));
}

TEST(Database, InMemoryIsAlwaysNew) { Database(":memory:", With(Access::kCreate)).Execute("CREATE TABLE t (a)"); }

TEST_F(DatabaseFileTest, WhatIsNoDatabaseIsToldWhenItIsOpened) {
  std::ofstream(File()) << std::string(4096, 'x');
  const Error error = OpeningFails({});
  EXPECT_EQ(error.Code(), SQLITE_NOTADB);
  EXPECT_THAT(Why(error), StartsWith("'" + File() + "' cannot be opened: file is "));
}

TEST_F(DatabaseFileTest, MissingFolderIsNamed) {
  const Error error = OpeningFails({}, "none/t.db");
  EXPECT_THAT(Why(error), HasSubstr("none/t.db' cannot be opened: unable to open database file: No such file"));
}

TEST_F(DatabaseFileTest, FolderIsNoDatabase) {
  EXPECT_THAT(Why(ThrownBy([&] { const Database database(fFolder.Path("")); })), HasSubstr("cannot be opened"));
}

TEST(Database, NameWithAZeroByteIsRefused) {
  EXPECT_THAT(Why(ThrownBy([] { const Database database(std::string("a\0b", 3)); })), HasSubstr("zero byte"));
}

TEST_F(DatabaseFileTest, NothingStaysOpenWhenOpeningFails) {
  if (!std::filesystem::exists("/proc/self/fd")) GTEST_SKIP() << "There is no list of the open files.";
  std::ofstream(File()) << std::string(4096, 'x');
  const auto before = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  OpeningFails({});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), before);
}

TEST_F(DatabaseFileTest, FileThatIsLockedIsWaitedForAndNamed) {
  Make();
  Database other(File());
  other.Execute("BEGIN EXCLUSIVE");
  Options options;
  options.busyTimeout = 20;
  const auto error = ThrownBy<BusyError>([&] { const Database database(File(), options); });
  EXPECT_EQ(Why(error), "'" + File() + "' cannot be opened: database is locked");
}

TEST_F(DatabaseFileTest, UriIsOneOnlyIfAskedFor) {
  Make();
  Options options;
  options.isUri = true;
  Database database("file:" + File() + "?mode=ro", options);
  EXPECT_EQ(ThrownBy([&] { database.Execute("INSERT INTO t VALUES (1)"); }).Code(), SQLITE_READONLY);
  const Error error = ThrownBy([&] { const Database plain("file:" + File(), With(Access::kReadWrite)); });
  EXPECT_EQ(error.Code(), SQLITE_CANTOPEN);
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(fFolder.Path(""));
  { const Database plain("file:odd"); }
  Options isNew = With(Access::kCreate);
  isNew.isUri = true;
  { const Database named("file:new", isNew); }
  std::filesystem::current_path(before);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(fFolder.Path("")))
    names.push_back(entry.path().filename().string());
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("t.db", "file:odd", "new"));
}

TEST_F(DatabaseFileTest, VfsIsTheOneThatIsNamed) {
  Options options;
  options.vfs = "no such one";
  EXPECT_EQ(Why(OpeningFails(options)), "'" + File() + "' cannot be opened: no such vfs: no such one");
  options.vfs = "unix-none";
  if (sqlite3_vfs_find("unix-none") == nullptr) GTEST_SKIP() << "no other VFS is built in";
  // It locks nothing.
  Database one(File(), options);
  one.Execute("BEGIN EXCLUSIVE");
  Database(File(), options).Execute("CREATE TABLE t (a)");
}

TEST_F(DatabaseFileTest, KeyIsRefusedByAnEngineThatDoesNotEncrypt) {
  Options options;
  options.key = "it's secret";
  if (IsEncrypting()) {
    Database(File(), options).Execute("CREATE TABLE t (a)");
    EXPECT_EQ(Database(File(), options).One<int>("SELECT COUNT(*) FROM t"), 0);
    options.key = "another";
    const Error error = OpeningFails(options);
    EXPECT_THAT(Why(error), HasSubstr(", or has another key"));
    EXPECT_EQ(OpeningFails({}).Code(), SQLITE_NOTADB);
    return;
  }
  const Error error = OpeningFails(options);
  EXPECT_EQ(Why(error), "'" + File() + "' cannot be opened: it has a key, and SQLite is built without encryption");
  EXPECT_THAT(error.what(), Not(HasSubstr("secret")));
  EXPECT_FALSE(std::filesystem::exists(File())) << "it would not be encrypted";
}

TEST_F(DatabaseFileTest, KeyThatIsCutByAZeroByteIsRefused) {
  Options options;
  options.key = std::string("a\0b", 3);
  EXPECT_EQ(OpeningFails(options).Code(), SQLITE_MISUSE);
  EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(DatabaseFileTest, ModuleThatIsMissingIsNamed) {
  Options options;
  options.module = File("module.so");
  const Error error = OpeningFails(options);
  EXPECT_THAT(Why(error), HasSubstr("the module '" + File("module.so") + "' cannot be loaded: "));
  EXPECT_THAT(Why(error), HasSubstr("No such file"));
}

TEST(Database, SqlLoadsNoModule) { EXPECT_THROW(Database(":memory:").Execute("SELECT load_extension('none')"), Error); }

TEST_F(DatabaseFileTest, WalIsEnteredOrOpeningFails) {
  Options options;
  options.wal = true;
  Database database(File(), options);
  EXPECT_EQ(database.One<std::string>("PRAGMA journal_mode"), "wal");
  EXPECT_THAT(Why(ThrownBy([&] { const Database memory(":memory:", options); })),
              HasSubstr("':memory:' cannot be opened: it cannot be put into WAL mode, and stays in mode memory"));
}

TEST_F(DatabaseFileTest, WalIsEnteredAfterThoseWhoWrite) {
  Database writer(File());
  writer.Execute("CREATE TABLE t (a)");
  writer.ExecuteScript("BEGIN IMMEDIATE");
  Options options;
  options.wal = true;
  options.busyTimeout = 20;
  EXPECT_THROW(Database(File(), options), BusyError);
  options.busyTimeout = 60000;
  std::thread waiting([&] { EXPECT_EQ(Database(File(), options).One<std::string>("PRAGMA journal_mode"), "wal"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  writer.ExecuteScript("COMMIT");
  waiting.join();
}

TEST(Database, SynchronousIsAsAsked) {
  const auto level = [](Synchronous synchronous) {
    Options options;
    options.synchronous = synchronous;
    return Database("", options).One<int>("PRAGMA synchronous");
  };
  EXPECT_EQ(level(Synchronous::kOff), 0);
  EXPECT_EQ(level(Synchronous::kNormal), 1);
  EXPECT_EQ(level(Synchronous::kFull), 2);
  EXPECT_EQ(level(Synchronous::kExtra), 3);
  EXPECT_EQ(level(Synchronous::kAsBuilt), Database("").One<int>("PRAGMA synchronous"));
}

TEST(Database, ForeignKeysAreEnforcedUnlessTheOptionsSayOtherwise) {
  const char* const kSchema = "CREATE TABLE a (id INTEGER PRIMARY KEY); CREATE TABLE b (a REFERENCES a)";
  Database on(":memory:");
  on.ExecuteScript(kSchema);
  EXPECT_EQ(ThrownBy<ConstraintError>([&] { on.Execute("INSERT INTO b VALUES (1)"); }).ExtendedCode(),
            SQLITE_CONSTRAINT_FOREIGNKEY);
  Options options;
  options.foreignKeys = false;
  Database off(":memory:", options);
  off.ExecuteScript(kSchema);
  EXPECT_EQ(off.Execute("INSERT INTO b VALUES (1)"), 1);
}

TEST_F(DatabaseFileTest, SetUpIsSentLastAndItsFailureHasItsText) {
  Options options;
  options.setUp = "PRAGMA cache_size = 77; CREATE TEMP TABLE s (a)";
  Database database(File(), options);
  EXPECT_EQ(database.One<int>("PRAGMA cache_size"), 77);
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM s"), 0);
  options.setUp = "SELECT 1; SELECT x FROM none";
  const Error error = OpeningFails(options);
  EXPECT_EQ(Why(error), "'" + File() + "' cannot be opened: no such table: none");
  EXPECT_THAT(std::string(error.Sql()), HasSubstr("SELECT x FROM none"));
}

// Bit 1 of the handle's mutex: SQLite gives it one only if asked to.
TEST(Database, SQLiteLocksNothingUnlessAskedTo) {
  if (sqlite3_threadsafe() == 0) GTEST_SKIP() << "SQLite is built without locks";
  EXPECT_EQ(sqlite3_db_mutex(Database(":memory:").Core().fConnection), nullptr);
  Options options;
  options.isSerialized = true;
  EXPECT_NE(sqlite3_db_mutex(Database(":memory:", options).Core().fConnection), nullptr);
}

TEST_F(DatabaseFileTest, OtherEncodingIsRefusedWhereverItComesFrom) {
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open(File().c_str(), &connection), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(connection, "PRAGMA encoding = 'UTF-16le'; CREATE TABLE t (a)", nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(connection);
  EXPECT_EQ(Why(OpeningFails({})), "'" + File() +
                                       "' cannot be opened: its encoding is UTF-16le, which cannot keep"
                                       " the bytes of every text; UTF-8 can");
  const auto core = boost::make_shared<sqldb::SQLDatabase>(File(), false);
  core->Open();
  EXPECT_EQ(ThrownBy([&] { const Database database(core); }).Code(), SQLITE_MISUSE);
  Options options;
  options.setUp = "PRAGMA encoding = 'UTF-16'";
  EXPECT_EQ(OpeningFails(options, "new.db").Code(), SQLITE_MISUSE);
  Database database(File("newer.db"));
  EXPECT_EQ(ThrownBy([&] { database.Execute("PRAGMA encoding(\"UTF-16be\")"); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(database.One<std::string>("PRAGMA encoding"), "UTF-8");
  EXPECT_EQ(database.Execute("PRAGMA encoding = 'UTF-8'"), 0);
}

// --- Waiting ---------------------------------------------------------------------------------------------------------

TEST_F(DatabaseFileTest, OnlyTheKitsOwnStatementsWait) {
  Make();
  Options options;
  options.busyTimeout = 30;
  Database database(File(), options);
  Database other(File());
  other.Execute("BEGIN IMMEDIATE");
  EXPECT_EQ(ThrownBy<BusyError>([&] { database.Execute("INSERT INTO t VALUES (1)"); }).Code(), SQLITE_BUSY);
  EXPECT_THROW(database.ExecuteScript("INSERT INTO t VALUES (1)"), BusyError);
}

TEST(Database, PragmaThatWouldEndTheWaitingIsRefused) {
  Database database(":memory:");
  for (const char* const sql :
       {"PRAGMA busy_timeout = 10", "  pragma BUSY_TIMEOUT(10)", "/* a */ PRAGMA--\n main . busy_timeout = 10",
        "PRAGMA \"busy_timeout\" = 10", "PRAGMA [main].`busy_timeout`=10", "PRAGMA[busy_timeout]=10",
        "EXPLAIN PRAGMA busy_timeout = 10", "explain query plan PRAGMA busy_timeout = 10",
        "\xEF\xBB\xBFPRAGMA busy_timeout = 10", "PRAGMA busy_timeout"}) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(ThrownBy([&] { database.Execute(sql); }).Code(), SQLITE_MISUSE);
    EXPECT_THAT(Why(ThrownBy([&] { database.ExecuteScript(sql); })), HasSubstr("Options::busyTimeout"));
    EXPECT_EQ(ThrownBy([&] { database.Prepare(sql); }).Code(), SQLITE_MISUSE);
  }
  database.Execute("CREATE TABLE busy_timeout (a)");
  if (!support::IsOlderThan(3016000)) {
    EXPECT_EQ(database.All<std::string>("SELECT name FROM pragma_table_info('busy_timeout')").size(), 1U);
  }
  database.Execute("PRAGMA table_info(busy_timeout)");
  EXPECT_EQ(database.One<int>("SELECT busy_timeout FROM (SELECT 3 AS busy_timeout)"), 3);
  // No PRAGMA of SQLite, which takes no notice of it.
  for (const char* const sql : {"PRAGMA busy_timeout2 = 10", "PRAGMA busy_timeout\u00e9 = 10",
                                "PRAGMA encoding_ = 'UTF-16'", "PRAGMA encoding$ = 'UTF-16'"}) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(database.Execute(sql), 0);
  }
}

TEST_F(DatabaseFileTest, RefusedPragmaHasDoneNothing) {
  Options options;
  options.busyTimeout = 300;
  Database database(File(), options);
  for (const char* const sql :
       {"PRAGMA busy_timeout = 1", ";PRAGMA busy_timeout = 1", "SELECT 1;; PRAGMA busy_timeout = 1"}) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(ThrownBy([&] { database.ExecuteScript(sql); }).Code(), SQLITE_MISUSE);
    EXPECT_EQ(ThrownBy([&] { database.Execute(sql); }).Code(), SQLITE_MISUSE);
  }
  EXPECT_EQ(ThrownBy([&] { database.ExecuteScript("PRAGMA encoding = 'UTF-16'; SELECT 16"); }).Code(), SQLITE_MISUSE);
  database.Execute("CREATE TABLE t (a)");
  EXPECT_EQ(database.One<std::string>("PRAGMA encoding"), "UTF-8");
  Database other(File());
  other.Execute("BEGIN IMMEDIATE");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(ThrownBy([&] { database.Execute("INSERT INTO t VALUES (1)"); }).Code(), SQLITE_BUSY);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
}

TEST(Database, WhatIsHeldOrOpenIsNotAtTheCostOfWhatIsKept) {
  Options options;
  options.keptStatements = 2;
  Database database(":memory:", options);
  std::vector<sqldb::kit::Statement> held;
  for (int i = 0; i < 5; ++i) held.push_back(database.Prepare("SELECT " + std::to_string(i)));
  const auto compiled = [&] {
    int count = 0;
    sqlite3* const handle = database.Core().fConnection;
    for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
         each = sqlite3_next_stmt(handle, each)) {
      ++count;
    }
    return count;
  };
  for (int i = 0; i < 5; ++i) database.One<int>("SELECT 1" + std::to_string(i));
  EXPECT_EQ(compiled(), 7);
}

TEST_F(DatabaseFileTest, PragmaThatSaysHowLongToWaitIsTheCoresMatter) {
  const auto core = boost::make_shared<sqldb::SQLDatabase>(File(), false);
  core->Open();
  Database database(core);
  EXPECT_EQ(database.One<int>("PRAGMA busy_timeout = 10"), 10);
  Options options;
  options.busyTimeout = 0;
  EXPECT_EQ(Database(File(), options).One<int>("PRAGMA busy_timeout = 10"), 10);
}

TEST_F(DatabaseFileTest, WriteInAnOpenRangeThatWaitingCannotCureSaysWhatToDo) {
  Options options;
  options.wal = true;
  Database database(File(), options);
  database.ExecuteScript("CREATE TABLE t (a); INSERT INTO t VALUES (1), (2)");
  Database other(File());
  auto rows = database.Query<int>("SELECT a FROM t");
  const auto row = rows.begin();
  other.Execute("INSERT INTO t VALUES (3)");
  const auto error = ThrownBy<BusyError>([&] { database.Execute("INSERT INTO t VALUES (4)"); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
  EXPECT_EQ(Why(error),
            "database is locked: a range is open that was begun before another connection wrote; end it"
            " before writing, or take its rows with All()");
  EXPECT_EQ(*row, 1);
}

TEST_F(DatabaseFileTest, WriteInATransactionThatReadTooEarlySaysWhatToDo) {
  Options options;
  options.wal = true;
  Database database(File(), options);
  database.Execute("CREATE TABLE t (a)");
  Database other(File());
  database.Execute("BEGIN");
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 0);
  other.Execute("INSERT INTO t VALUES (3)");
  const auto error = ThrownBy<BusyError>([&] { database.Execute("INSERT INTO t VALUES (4)"); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_BUSY_SNAPSHOT);
  EXPECT_EQ(Why(error),
            "database is locked: the transaction has read before another connection wrote; end it, and begin the next"
            " one to write at once");
}

TEST_F(DatabaseFileTest, StatementOfTheProgramThatOutlivesTheDatabaseDoesNotWait) {
  Make();
  Database other(File());
  sqlite3* connection = nullptr;
  sqlite3_stmt* statement = nullptr;
  {
    const Database database(File());
    connection = database.Core().fConnection;
    ASSERT_EQ(sqlite3_prepare_v2(connection, "INSERT INTO t VALUES (1)", -1, &statement, nullptr), SQLITE_OK);
  }
  other.Execute("BEGIN IMMEDIATE");
  EXPECT_EQ(sqlite3_step(statement), SQLITE_BUSY);
  sqlite3_finalize(statement);
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
}

TEST_F(DatabaseFileTest, CodesOfADatabaseOfTheCoreAreExtendedOnes) {
  const auto core = boost::make_shared<sqldb::SQLDatabase>(File(), false);
  core->Open();
  Database database(core);
  database.ExecuteScript("CREATE TABLE t (a PRIMARY KEY); INSERT INTO t VALUES (1)");
  const auto error = ThrownBy<ConstraintError>([&] { database.Execute("INSERT INTO t VALUES (1)"); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_PRIMARYKEY);
}

TEST(Database, DropInAnOpenRangeSaysWhatToDo) {
  Database database(":memory:");
  database.ExecuteScript("CREATE TABLE t (a); INSERT INTO t VALUES (1)");
  auto rows = database.Query<int>("SELECT a FROM t");
  const auto row = rows.begin();
  const auto error = ThrownBy<BusyError>([&] { database.Execute("DROP TABLE t"); });
  EXPECT_EQ(error.Code(), SQLITE_LOCKED);
  EXPECT_EQ(Why(error), "database table is locked: a range may be open; end it, or take its rows with All()");
}

// --- Statements ------------------------------------------------------------------------------------------------------

TEST(Database, RunsAnySql) {
  Database database(":memory:");
  database.Execute("CREATE TABLE t (a, b)");
  EXPECT_EQ(database.Execute("INSERT INTO t VALUES (?, ?)", 1, "one"), 1);
  EXPECT_EQ(database.One<std::string>("SELECT b FROM t WHERE a = ?", 1), "one");
}

TEST(Database, OnlyWhatInsertsUpdatesOrDeletesCountsRows) {
  Database database(":memory:");
  EXPECT_EQ(database.Execute("CREATE TABLE t (a, b)"), 0);
  EXPECT_EQ(database.Execute("INSERT INTO t VALUES (1, 1), (2, 2), (3, 3)"), 3);
  for (const char* const sql : {"CREATE TABLE u (a UNIQUE)", "CREATE INDEX i ON t (a)", "ALTER TABLE t RENAME TO v",
                                "ALTER TABLE v RENAME TO t", "ALTER TABLE t ADD COLUMN d", "ANALYZE", "REINDEX",
                                "VACUUM", "SELECT * FROM t", "PRAGMA user_version = 3", "BEGIN", "SAVEPOINT s",
                                "RELEASE s", "COMMIT", "DROP INDEX i", "CREATE TABLE copy AS SELECT * FROM t",
                                "DROP TABLE copy", "UPDATE t SET a = 7 WHERE a = 9", "DELETE FROM t WHERE a = 9"}) {
    EXPECT_EQ(database.Execute(sql), 0) << sql;
  }
  EXPECT_EQ(database.Execute("UPDATE t SET a = a + 1 WHERE a > 1"), 2);
  EXPECT_EQ(database.Execute("INSERT OR IGNORE INTO u VALUES (1), (1)"), 1);
  EXPECT_EQ(database.Execute("INSERT OR IGNORE INTO u VALUES (1)"), 0);
  EXPECT_EQ(database.Execute("DELETE FROM t"), 3);
}

TEST(Database, RowsThatATriggerChangesAreNotCounted) {
  Database database(":memory:");
  database.ExecuteScript(
      "CREATE TABLE t (a); CREATE TABLE log (a); CREATE VIEW v AS SELECT a FROM t;"
      "CREATE TRIGGER tr AFTER INSERT ON t BEGIN INSERT INTO log VALUES (1), (2), (3); END;"
      "CREATE TRIGGER vr INSTEAD OF INSERT ON v BEGIN INSERT INTO log VALUES (1), (2), (3); END");
  EXPECT_EQ(database.Execute("INSERT INTO t VALUES (1)"), 1);
  EXPECT_EQ(database.Execute("INSERT INTO v VALUES (1)"), 0);
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM log"), 6);
}

// Writes with a connection of its own use, as a function of the program may.
void InsertWithin(sqlite3_context* context, int, sqlite3_value**) {
  sqlite3_exec(sqlite3_context_db_handle(context), "INSERT INTO t VALUES (1), (2)", nullptr, nullptr, nullptr);
}

TEST(Database, RowsThatAFunctionOfASelectWritesAreNotCounted) {
  Database database(":memory:");
  database.Execute("CREATE TABLE t (a)");
  sqlite3_create_function(database.Core().fConnection, "insert_within", 0, SQLITE_UTF8, nullptr, &InsertWithin, nullptr,
                          nullptr);
  EXPECT_EQ(database.Execute("SELECT insert_within()"), 0);
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 2);
}

TEST(Database, ScriptRunsAllItsStatements) {
  Database database(":memory:");
  database.ExecuteScript(
      ";;\n-- a comment\nCREATE TABLE t (a);;INSERT INTO t VALUES (1); SELECT * FROM t; /* end */\n\n");
  EXPECT_EQ(database.One<int>("SELECT a FROM t"), 1);
  database.ExecuteScript("");
  database.ExecuteScript(" -- nothing");
}

TEST(Database, ScriptStopsAtTheFailureWhichHasItsTextAlone) {
  Database database(":memory:");
  const Error error = ThrownBy([&] {
    database.ExecuteScript("CREATE TABLE t (a UNIQUE); INSERT INTO t VALUES (1), (1); INSERT INTO t VALUES (2)");
  });
  EXPECT_EQ(Why(error), "UNIQUE constraint failed: t.a");
  EXPECT_EQ(error.Sql(), " INSERT INTO t VALUES (1), (1);");
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 0);
}

TEST(Database, ScriptWithAZeroByteIsAnError) {
  Database database(":memory:");
  EXPECT_EQ(ThrownBy([&] { database.ExecuteScript(std::string_view("CREATE TABLE t (a);\0", 20)); }).Message(),
            "There is a zero byte in the text.");
  EXPECT_EQ(ThrownBy([&] { database.ExecuteScript(std::string_view(";\0", 2)); }).Message(),
            "There is a zero byte in the text.");
}

TEST(Database, ScriptMayConsistOfWhatSQLiteTakesForABlank) {
  if (support::IsOlderThan(3020000)) GTEST_SKIP() << "a byte order mark is none of a blank";
  Database database(":memory:");
  database.ExecuteScript("\xEF\xBB\xBF");
  database.ExecuteScript(
      "\xEF\xBB\xBF"
      "CREATE TABLE t (a);");
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 0);
}

TEST(Database, TextThatIsLongerThanSQLiteTakesIsAnError) {
  constexpr std::size_t kTooLong = static_cast<std::size_t>(std::numeric_limits<int>::max()) + 1;
  // Nothing is read but its beginning.
  const Error error = ThrownBy([&] { Database(":memory:").ExecuteScript(std::string_view("SELECT 1", kTooLong)); });
  EXPECT_EQ(error.Message(), "The text is longer than SQLite takes.");
  EXPECT_EQ(error.Code(), SQLITE_TOOBIG);
}

TEST(Database, TextMayBeAPartOfALongerOne) {
  Database database(":memory:");
  EXPECT_EQ(database.One<int>(std::string_view("SELECT 1 FROM nothing", 8)), 1);
  database.ExecuteScript(std::string_view("CREATE TABLE t (a);;;;; what", 20));
}

TEST(Database, NoStatementOrSeveralAreErrors) {
  Database database(":memory:");
  EXPECT_EQ(ThrownBy([&] { database.Execute(""); }).Message(), "There is no statement in the text.");
  EXPECT_EQ(ThrownBy([&] { database.Execute(" -- none"); }).Code(), SQLITE_MISUSE);
  const Error error = ThrownBy([&] { database.Execute("CREATE TABLE t (a); CREATE TABLE u (a)"); });
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  EXPECT_EQ(error.Message(), "There are several statements in the text; ExecuteScript runs them all.");
  // SQLite ends a statement there, and what follows would be lost.
  EXPECT_EQ(ThrownBy([&] { database.Execute(std::string_view("CREATE TABLE t (a)\0", 19)); }).Message(),
            "There is a zero byte in the text.");
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM sqlite_master"), 0);
  EXPECT_EQ(database.One<int>("SELECT 1 ; -- the end\n /* really */ ;"), 1);
  EXPECT_EQ(database.One<int>("SELECT 1; \t\r\n\f;"), 1);
  EXPECT_EQ(database.One<int>("SELECT 1; /* the end; SELECT 2"), 1);
  EXPECT_EQ(database.One<int>("SELECT 1; /* a / b * c */"), 1);
  EXPECT_EQ(database.One<int>("SELECT 1; \xEF\xBB\xBF"), 1);
}

// --- Parameters ------------------------------------------------------------------------------------------------------

class ParametersTest : public ::testing::Test {
 protected:
  ParametersTest() : fDatabase(":memory:") { fDatabase.Execute("CREATE TABLE t (a, b)"); }
  int Count() { return fDatabase.One<int>("SELECT COUNT(*) FROM t"); }

  Database fDatabase;
};

TEST_F(ParametersTest, TooManyOrTooFewAreToldWithBothNumbersAndNothingIsDone) {
  const Error few = ThrownBy([&] { fDatabase.Execute("INSERT INTO t VALUES (?, ?)", 1); });
  EXPECT_EQ(few.Code(), SQLITE_MISUSE);
  EXPECT_EQ(few.Message(), "The statement has 2 parameters, and is given 1 value.");
  const Error many = ThrownBy([&] { fDatabase.Execute("INSERT INTO t VALUES (?, 1)", 1, 2); });
  EXPECT_EQ(many.Message(), "The statement has 1 parameter, and is given 2 values.");
  EXPECT_EQ(many.Sql(), "INSERT INTO t VALUES (?, 1)");
  EXPECT_EQ(Count(), 0);
}

TEST_F(ParametersTest, NamesAreFoundInAnyOrder) {
  fDatabase.Execute("INSERT INTO t VALUES (:a, $b)", Named("$b", "two"), Named(":a", 1));
  EXPECT_EQ(fDatabase.One<int>("SELECT a FROM t WHERE b = @b AND @b = b", Named("@b", "two")), 1);
}

TEST_F(ParametersTest, UnknownOrRepeatedNamesAreToldAndNothingIsDone) {
  const auto insert = [&](const char* first, const char* second) {
    return ThrownBy([&] { fDatabase.Execute("INSERT INTO t VALUES (:a, :b)", Named(first, 1), Named(second, 2)); });
  };
  EXPECT_EQ(insert(":a", ":c").Message(), "The statement has no parameter :c.");
  EXPECT_EQ(insert(":a", "b").Message(), "The statement has no parameter b.");
  EXPECT_EQ(insert(":a", ":a").Message(), "The parameter :a is given twice.");
  EXPECT_EQ(insert(":a", ":c").Code(), SQLITE_MISUSE);
  EXPECT_EQ(Count(), 0);
}

TEST_F(ParametersTest, TextsViewsAndNothingCanBeGiven) {
  char buffer[] = "buffer";
  char* const pointer = buffer;
  EXPECT_EQ(fDatabase.One<std::string>("SELECT ?", "literal"), "literal");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT ?", static_cast<const char*>(pointer)), "buffer");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT ?", pointer), "buffer");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT ?", std::string_view("a view", 3)), "a v");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT typeof(?)", std::string_view()), "text");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT typeof(?)", std::nullopt), "null");
  EXPECT_EQ(fDatabase.One<std::string>("SELECT typeof(?)", std::optional<int>()), "null");
}

TEST_F(ParametersTest, NullPointerIsAnErrorRatherThanNull) {
  const char* const none = nullptr;
  const Error error = ThrownBy([&] { fDatabase.Execute("INSERT INTO t VALUES (?, 1)", none); });
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  EXPECT_EQ(Count(), 0);
}

TEST_F(ParametersTest, ValueThatCannotBeStoredIsAnErrorAndNothingIsDone) {
  EXPECT_THROW(fDatabase.Execute("INSERT INTO t VALUES (?, ?)", 1, std::numeric_limits<double>::quiet_NaN()),
               sqldb::kit::ConversionError);
  EXPECT_EQ(Count(), 0);
}

// --- Lifetime --------------------------------------------------------------------------------------------------------

TEST(Database, CanBeMovedAndWhatWasMadeFromItGoesOn) {
  Database first(":memory:");
  first.ExecuteScript("CREATE TABLE t (a); INSERT INTO t VALUES (1), (2)");
  auto rows = first.Query<int>("SELECT a FROM t");
  auto row = rows.begin();
  Database second = std::move(first);
  EXPECT_EQ(*++row, 2);
  EXPECT_EQ(second.One<int>("SELECT COUNT(*) FROM t"), 2);
  EXPECT_EQ(ThrownBy([&] { first.Execute("SELECT 1"); }).Message(), "The database has been moved.");
  first = Database(":memory:");
  EXPECT_EQ(first.One<int>("SELECT COUNT(*) FROM sqlite_master"), 0);
}

TEST(Database, IsClosedWhenAnotherOneIsAssigned) {
  Database database(":memory:");
  auto rows = database.Query<int>("SELECT 1");
  database = Database(":memory:");
  EXPECT_EQ(ThrownBy([&] { rows.begin(); }).Message(), "The database has been closed.");
}

TEST(Database, StaysOpenWhenItIsAssignedToItself) {
  Database database(":memory:");
  Database& same = database;
  database = std::move(same);
  EXPECT_EQ(database.One<int>("SELECT 1"), 1);
}

TEST(Database, PointerToNoConnectionCanBeCopied) {
  const sqldb::kit::detail::ConnectionPointer none;
  const sqldb::kit::detail::ConnectionPointer copy(none);
  EXPECT_EQ(copy.Get(), nullptr);
}

TEST(Database, EveryUseAfterCloseThrows) {
  Database database(":memory:");
  auto rows = database.Query<int>("SELECT 1 UNION SELECT 2");
  auto row = rows.begin();
  auto statement = database.Prepare("SELECT 1");
  database.Close();
  database.Close();
  EXPECT_EQ(ThrownBy([&] { database.Execute("SELECT 1"); }).Message(), "The database is not open.");
  EXPECT_EQ(ThrownBy([&] { database.Core(); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(ThrownBy([&] { ++row; }).Message(), "The database has been closed.");
  EXPECT_EQ(ThrownBy([&] { statement.One<int>(); }).Message(), "The database has been closed.");
}

TEST_F(DatabaseFileTest, SharesAnOpenDatabaseOfTheCoreAndLeavesItOpen) {
  const auto core = boost::make_shared<sqldb::SQLDatabase>(File(), false);
  EXPECT_EQ(ThrownBy([&] { const Database unopened(core); }).Message(), "The database is not open.");
  EXPECT_EQ(ThrownBy([&] { const Database none{boost::shared_ptr<sqldb::SQLDatabase>()}; }).Message(),
            "The database is not open.");
  core->Open();
  {
    Database database(core);
    database.Execute("CREATE TABLE t (a)");
    EXPECT_EQ(&database.Core(), core.get());
  }
  EXPECT_TRUE(core->fIsOpen);
  EXPECT_EQ(sqlite3_next_stmt(core->fConnection, nullptr), nullptr);
}

static_assert(!std::is_copy_constructible_v<Database>);
static_assert(std::is_nothrow_move_constructible_v<Database> && std::is_nothrow_move_assignable_v<Database>);

}  // namespace
