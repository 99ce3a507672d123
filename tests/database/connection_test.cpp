#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <locale>
#include <memory>
#include <type_traits>
#include <typeinfo>

#include "support/fixtures.h"

using sqldb::SQLDatabase;
using support::Call;
using support::CallRecorder;
using support::MessageOf;
using support::RowsOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Compare = int (*)(void*, int, const void*, int, const void*);

static_assert(std::is_same_v<decltype(SQLDatabase::fConnection), sqlite3*>);
static_assert(std::is_same_v<decltype(SQLDatabase::fPath), std::string>);
static_assert(std::is_same_v<decltype(SQLDatabase::fTables), std::vector<boost::shared_ptr<sqldb::SQLTableClass>>>);
static_assert(std::is_same_v<decltype(SQLDatabase::fSelects), std::vector<sqldb::SQLSelectClass*>>);
static_assert(std::is_same_v<decltype(SQLDatabase::fCursors), std::vector<sqldb::SQLCursorBase*>>);
static_assert(std::is_same_v<decltype(SQLDatabase::fTransactionDepth), std::int32_t>);
static_assert(std::is_same_v<decltype(SQLDatabase::fTransactionOK), bool>);
static_assert(std::is_same_v<decltype(SQLDatabase::fIsOpen), bool>);
static_assert(std::is_same_v<decltype(SQLDatabase::fDestroying), bool>);
static_assert(std::is_same_v<decltype(SQLDatabase::fReadOnly), bool>);
static_assert(std::is_same_v<decltype(SQLDatabase::fLogErrors), std::uint8_t>);
static_assert(std::is_same_v<decltype(SQLDatabase::fExplainLevel), std::uint8_t>);

static_assert(!std::is_polymorphic_v<SQLDatabase>);
static_assert(!std::is_copy_constructible_v<SQLDatabase> && !std::is_copy_assignable_v<SQLDatabase>);
static_assert(!std::is_move_constructible_v<SQLDatabase> && !std::is_move_assignable_v<SQLDatabase>);
static_assert(std::is_constructible_v<SQLDatabase, const std::string&, bool>);
static_assert(std::is_nothrow_destructible_v<SQLDatabase>);

static_assert(std::is_same_v<decltype(&SQLDatabase::Create), void (SQLDatabase::*)()>);
static_assert(std::is_same_v<decltype(&SQLDatabase::Open), void (SQLDatabase::*)()>);
static_assert(std::is_same_v<decltype(&SQLDatabase::CommonOpen), void (SQLDatabase::*)()>);
static_assert(std::is_same_v<decltype(&SQLDatabase::Close), void (SQLDatabase::*)()>);
static_assert(std::is_same_v<decltype(&SQLDatabase::AddCollation), int (SQLDatabase::*)(const std::string&, Compare)>);
static_assert(std::is_same_v<decltype(&::ThrowError), void (*)(int)>);
static_assert(std::is_same_v<decltype(&::ThrowIf), void (*)(bool)>);

// Closes a connection that the library left behind.
void CloseLeftover(const void* connection) {
  CallRecorder::Pause pause;
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(sqlite3_close(const_cast<sqlite3*>(static_cast<const sqlite3*>(connection))), SQLITE_OK);
}

// Makes SQLite refuse to close a connection while it lives.
class LiveStatement {
 public:
  explicit LiveStatement(sqlite3* connection) {
    CallRecorder::Pause pause;
    EXPECT_EQ(sqlite3_prepare(connection, "SELECT 1", -1, &fStatement, nullptr), SQLITE_OK);
  }
  ~LiveStatement() { Finalize(); }
  LiveStatement(const LiveStatement&) = delete;
  LiveStatement& operator=(const LiveStatement&) = delete;

  void Finalize() {
    CallRecorder::Pause pause;
    sqlite3_finalize(fStatement);
    fStatement = nullptr;
  }

 private:
  sqlite3_stmt* fStatement = nullptr;
};

int CompareBackwards(void* user, int sizeA, const void* a, int sizeB, const void* b) {
  EXPECT_EQ(user, nullptr);
  const std::string left(static_cast<const char*>(a), static_cast<std::size_t>(sizeA));
  const std::string right(static_cast<const char*>(b), static_cast<std::size_t>(sizeB));
  return right.compare(left);
}

class ConnectionTest : public support::DatabaseTest {
 protected:
  std::string OtherPath() const { return fFolder.Path("other.db"); }
  std::string ImpossiblePath() const { return fFolder.Path("missing/test.db"); }
};

TEST_F(ConnectionTest, ANewDatabaseHasItsInitialValues) {
  const SQLDatabase database(OtherPath(), false);
  EXPECT_EQ(database.fConnection, nullptr);
  EXPECT_EQ(database.fPath, OtherPath());
  EXPECT_THAT(database.fTables, IsEmpty());
  EXPECT_THAT(database.fSelects, IsEmpty());
  EXPECT_THAT(database.fCursors, IsEmpty());
  EXPECT_EQ(database.fTransactionDepth, 0);
  EXPECT_TRUE(database.fTransactionOK);
  EXPECT_FALSE(database.fIsOpen);
  EXPECT_FALSE(database.fDestroying);
  EXPECT_FALSE(database.fReadOnly);
  EXPECT_EQ(database.fLogErrors, 0);
  EXPECT_EQ(database.fExplainLevel, 0);
}

TEST_F(ConnectionTest, TheConstructorsFlagIsKept) {
  EXPECT_TRUE(SQLDatabase(OtherPath(), true).fReadOnly);
  EXPECT_FALSE(SQLDatabase(OtherPath(), false).fReadOnly);
}

TEST_F(ConnectionTest, ConstructionAndDestructionWithoutOpenTouchNothing) {
  CallRecorder recorder;
  { const SQLDatabase database(OtherPath(), false); }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(OtherPath()));
}

TEST_F(ConnectionTest, MembersFollowOneAnotherInDeclarationOrder) {
  const SQLDatabase database(OtherPath(), false);
  const auto address = [](const auto& member) { return reinterpret_cast<std::uintptr_t>(&member); };
  const std::vector<std::uintptr_t> addresses = {address(database),
                                                 address(database.fPath),
                                                 address(database.fTables),
                                                 address(database.fSelects),
                                                 address(database.fCursors),
                                                 address(database.fTransactionDepth),
                                                 address(database.fTransactionOK),
                                                 address(database.fIsOpen),
                                                 address(database.fDestroying),
                                                 address(database.fReadOnly),
                                                 address(database.fLogErrors),
                                                 address(database.fExplainLevel)};
  EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
  EXPECT_EQ(address(database.fConnection), address(database)) << "no base class, no virtual table";
}

TEST_F(ConnectionTest, ReadOnlyIsReportedByTablesAndBlocksNothing) {
  for (const bool readOnly : {true, false}) {
    SQLDatabase database(OtherPath(), readOnly);
    database.Open();
    const auto table = database.NewTable(readOnly ? "first" : "second");
    EXPECT_EQ(table->IsWritable(), !readOnly);
    table->AddColumn(support::MakeColumn("a"));
    table->Create();
    table->SendQuery("INSERT INTO " + table->fName + " VALUES (1)", nullptr, nullptr);
    EXPECT_THAT(RowsOf(database.fConnection, "SELECT a FROM " + table->fName), ElementsAre("1"));
  }
}

// Create, Open and CommonOpen are one operation.
struct Opening {
  const char* fName;
  void (SQLDatabase::*fOpen)();
};

class OpeningTest : public ConnectionTest, public ::testing::WithParamInterface<Opening> {
 protected:
  void OpenIt(SQLDatabase& database) { (database.*GetParam().fOpen)(); }
};

INSTANTIATE_TEST_SUITE_P(All, OpeningTest,
                         ::testing::Values(Opening{"Create", &SQLDatabase::Create}, Opening{"Open", &SQLDatabase::Open},
                                           Opening{"CommonOpen", &SQLDatabase::CommonOpen}),
                         [](const auto& test) { return test.param.fName; });

TEST_P(OpeningTest, TakesOneCallAndKeepsTheHandle) {
  SQLDatabase database(OtherPath(), false);
  CallRecorder recorder;
  OpenIt(database);
  EXPECT_THAT(recorder.Lines(), ElementsAre("open '" + OtherPath() + "' = 0"));
  EXPECT_NE(database.fConnection, nullptr);
  EXPECT_EQ(database.fConnection, recorder.Calls()[0].out);
  EXPECT_TRUE(database.fIsOpen);
}

TEST_P(OpeningTest, MakesAMissingFile) {
  SQLDatabase database(OtherPath(), false);
  OpenIt(database);
  database.SendQuery("CREATE TABLE items ( a INTEGER )", nullptr, nullptr);
  EXPECT_TRUE(std::filesystem::exists(OtherPath()));
}

TEST_P(OpeningTest, KeepsWhatAnExistingFileHolds) {
  support::OtherConnection(OtherPath()).Run("CREATE TABLE items ( a INTEGER ); INSERT INTO items VALUES (7)");
  SQLDatabase database(OtherPath(), false);
  OpenIt(database);
  EXPECT_THAT(RowsOf(database.fConnection, "SELECT a FROM items"), ElementsAre("7"));
}

TEST_P(OpeningTest, LeavesTheOtherMembersAlone) {
  SQLDatabase database(OtherPath(), true);
  database.fTransactionDepth = 3;
  database.fTransactionOK = false;
  database.fLogErrors = 1;
  database.fExplainLevel = 2;
  OpenIt(database);
  EXPECT_EQ(database.fPath, OtherPath());
  EXPECT_EQ(database.fTransactionDepth, 3);
  EXPECT_FALSE(database.fTransactionOK);
  EXPECT_TRUE(database.fReadOnly);
  EXPECT_EQ(database.fLogErrors, 1);
  EXPECT_EQ(database.fExplainLevel, 2);
}

TEST_P(OpeningTest, FailureThrowsTheCodeAndLeavesTheHandleBehind) {
  SQLDatabase database(ImpossiblePath(), false);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { OpenIt(database); }), "Error encountered: 14.\n");
  EXPECT_THAT(recorder.Lines(), ElementsAre("open '" + ImpossiblePath() + "' = 14"));
  EXPECT_EQ(database.fConnection, nullptr);
  EXPECT_FALSE(database.fIsOpen);
  CloseLeftover(recorder.Calls()[0].out);
}

TEST_P(OpeningTest, FailureThrowsEveryCode) {
  SQLDatabase database(OtherPath(), false);
  for (const int code : {1, 7, 10, 26, 100, 101, -1, 1000000}) {
    CallRecorder recorder;
    recorder.Force("open", code);
    EXPECT_EQ(MessageOf([&] { OpenIt(database); }), "Error encountered: " + std::to_string(code) + ".\n");
    EXPECT_FALSE(database.fIsOpen);
  }
}

TEST_P(OpeningTest, FailureLeavesAnOpenConnectionInPlace) {
  sqlite3* const before = fDatabase.fConnection;
  fDatabase.fPath = ImpossiblePath();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { OpenIt(fDatabase); }), "Error encountered: 14.\n");
  CloseLeftover(recorder.Calls()[0].out);
  EXPECT_EQ(fDatabase.fConnection, before);
  EXPECT_TRUE(fDatabase.fIsOpen);
  EXPECT_NO_THROW(fDatabase.SendQuery("SELECT 1", nullptr, nullptr));
}

TEST_P(OpeningTest, FailureAfterCloseLeavesTheDatabaseClosed) {
  sqlite3* const stale = fDatabase.fConnection;
  fDatabase.Close();
  fDatabase.fPath = ImpossiblePath();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { OpenIt(fDatabase); }), "Error encountered: 14.\n");
  CloseLeftover(recorder.Calls()[0].out);
  EXPECT_EQ(fDatabase.fConnection, stale);
  EXPECT_FALSE(fDatabase.fIsOpen);
  recorder.Clear();
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT 1", nullptr, nullptr); }), "out of memory");
  for (const Call& call : recorder.Calls()) EXPECT_NE(call.handle, stale) << call.Line();
}

TEST_P(OpeningTest, ReplacesAnOpenConnectionWithoutClosingIt) {
  sqlite3* const first = fDatabase.fConnection;
  CallRecorder recorder;
  OpenIt(fDatabase);
  EXPECT_THAT(recorder.Lines(), ElementsAre("open '" + DatabasePath() + "' = 0"));
  EXPECT_NE(fDatabase.fConnection, first);
  EXPECT_TRUE(fDatabase.fIsOpen);
  EXPECT_THAT(RowsOf(first, "SELECT 1"), ElementsAre("1"));
  CloseLeftover(first);
}

TEST_P(OpeningTest, WorksAgainAfterClose) {
  fDatabase.SendQuery("CREATE TABLE items ( a INTEGER )", nullptr, nullptr);
  fDatabase.Close();
  OpenIt(fDatabase);
  EXPECT_TRUE(fDatabase.fIsOpen);
  CallRecorder recorder;
  fDatabase.SendQuery("INSERT INTO items VALUES (1)", nullptr, nullptr);
  EXPECT_EQ(recorder.Calls()[0].handle, fDatabase.fConnection);
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1"));
}

TEST_P(OpeningTest, WorksAgainAtTheAddressOfTheClosedConnection) {
  sqlite3* const address = fDatabase.fConnection;
  CallRecorder recorder;
  recorder.Force("close", SQLITE_OK);
  fDatabase.Close();
  recorder.fForcedConnection = address;
  recorder.Force("open", SQLITE_OK);
  OpenIt(fDatabase);
  recorder.Clear();

  EXPECT_NO_THROW(fDatabase.SendQuery("SELECT 1", nullptr, nullptr));
  EXPECT_EQ(fDatabase.AddCollation("backwards", CompareBackwards), SQLITE_OK);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT 1' = 0", "step = 100", "finalize = 0", "create_collation 'backwards' = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, address);
  EXPECT_EQ(recorder.Calls()[3].handle, address);
}

TEST_F(ConnectionTest, CloseTakesOneCallAndKeepsTheStaleHandle) {
  sqlite3* const connection = fDatabase.fConnection;
  CallRecorder recorder;
  fDatabase.Close();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, connection);
  EXPECT_EQ(fDatabase.fConnection, connection);
  EXPECT_FALSE(fDatabase.fIsOpen);
}

TEST_F(ConnectionTest, CloseOfANeverOpenedDatabaseGivesSQLiteANullHandle) {
  SQLDatabase database(OtherPath(), false);
  CallRecorder recorder;
  database.Close();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, nullptr);
  EXPECT_FALSE(database.fIsOpen);
}

TEST_F(ConnectionTest, ASecondCloseGivesSQLiteANullHandle) {
  fDatabase.Close();
  for (int i = 0; i < 2; ++i) {
    CallRecorder recorder;
    fDatabase.Close();
    EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
    EXPECT_EQ(recorder.Calls()[0].handle, nullptr);
  }
}

TEST_F(ConnectionTest, ARefusedCloseIsNotReported) {
  sqlite3* const connection = fDatabase.fConnection;
  LiveStatement statement(connection);
  CallRecorder recorder;
  EXPECT_NO_THROW(fDatabase.Close());
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 5"));
  EXPECT_FALSE(fDatabase.fIsOpen);
  EXPECT_EQ(fDatabase.fConnection, connection);
  statement.Finalize();
  CloseLeftover(connection);
}

TEST_F(ConnectionTest, NoResultOfCloseIsReported) {
  for (const int code : {1, 5, 7, 21, 100, 101, -1}) {
    CallRecorder recorder;
    recorder.Force("close", code);
    fDatabase.fIsOpen = true;
    EXPECT_NO_THROW(fDatabase.Close());
    EXPECT_THAT(recorder.Lines(), ElementsAre("close = " + std::to_string(code)));
    EXPECT_FALSE(fDatabase.fIsOpen);
  }
  fDatabase.fIsOpen = true;
}

TEST_F(ConnectionTest, ARefusedCloseLeavesAUsableConnection) {
  sqlite3* const connection = fDatabase.fConnection;
  LiveStatement statement(connection);
  fDatabase.Close();
  CallRecorder recorder;
  fDatabase.SendQuery("CREATE TABLE items ( a INTEGER )", nullptr, nullptr);
  fDatabase.BeginTransaction();
  fDatabase.EndTransaction(true, false);
  EXPECT_EQ(fDatabase.AddCollation("backwards", CompareBackwards), SQLITE_OK);
  for (const Call& call : recorder.CallsOf("prepare")) EXPECT_EQ(call.handle, connection);
  EXPECT_EQ(recorder.CallsOf("create_collation")[0].handle, connection);
  EXPECT_FALSE(fDatabase.fIsOpen);
  statement.Finalize();
  CloseLeftover(connection);
}

TEST_F(ConnectionTest, ALaterCloseMayBeAccepted) {
  sqlite3* const connection = fDatabase.fConnection;
  LiveStatement statement(connection);
  fDatabase.Close();
  statement.Finalize();
  CallRecorder recorder;
  fDatabase.Close();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, connection);
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT 1", nullptr, nullptr); }), "out of memory");
}

// What needs a connection fails alike on a closed database and on one that was never opened.
struct Need {
  const char* fName;
  std::function<void(SQLDatabase&)> fAction;
};

void PrepareCursor(SQLDatabase& database) {
  const sqldb::OffsetSpec offsets;
  sqldb::SQLStepCursor<std::uint32_t>(&database, offsets).PrepareToQuery("SELECT 1");
}

void Explain(SQLDatabase& database) {
  database.fExplainLevel = 1;
  database.ExplainQuery("SELECT 1");
}

class NeedsConnectionTest : public ConnectionTest, public ::testing::WithParamInterface<Need> {};

INSTANTIATE_TEST_SUITE_P(
    All, NeedsConnectionTest,
    ::testing::Values(
        Need{"SendQuery", [](SQLDatabase& database) { database.SendQuery("SELECT 1", nullptr, nullptr); }},
        Need{"ExplainQuery", Explain},
        Need{"BeginTransaction", [](SQLDatabase& database) { database.BeginTransaction(); }},
        Need{"Commit", [](SQLDatabase& database) { database.EndTransaction(true, true); }},
        Need{"Rollback", [](SQLDatabase& database) { database.EndTransaction(false, true); }},
        Need{"SetSynchronizationLevel", [](SQLDatabase& database) { database.SetSynchronizationLevel(true); }},
        Need{"CreateTable", [](SQLDatabase& database) { database.NewTable("items")->Create(); }},
        Need{"DropTable", [](SQLDatabase& database) { database.DropTable(database.NewTable("items")); }},
        Need{"CountRecords", [](SQLDatabase& database) { database.NewTable("items")->CountRecords(nullptr); }},
        Need{"CursorSendQuery",
             [](SQLDatabase& database) { sqldb::SQLCursorBase(&database).SendQuery("SELECT 1", nullptr, nullptr); }},
        Need{"CursorPrepareToQuery", PrepareCursor}),
    [](const auto& test) { return test.param.fName; });

TEST_P(NeedsConnectionTest, ANeverOpenedDatabaseRunsOutOfMemory) {
  SQLDatabase database(OtherPath(), false);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { GetParam().fAction(database); }), "out of memory");
  ASSERT_EQ(recorder.Calls().size(), 2u);
  EXPECT_EQ(recorder.Calls()[0].function, "prepare");
  EXPECT_EQ(recorder.Calls()[0].result, SQLITE_MISUSE);
  EXPECT_EQ(recorder.Calls()[1].function, "errmsg");
  for (const Call& call : recorder.Calls()) EXPECT_EQ(call.handle, nullptr) << call.Line();
}

TEST_P(NeedsConnectionTest, AClosedDatabaseActsAsIfNeverOpened) {
  SQLDatabase unopened(OtherPath(), false);
  std::vector<std::string> expected;
  {
    CallRecorder recorder;
    MessageOf([&] { GetParam().fAction(unopened); });
    expected = recorder.Lines();
  }
  fDatabase.Close();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { GetParam().fAction(fDatabase); }), "out of memory");
  EXPECT_EQ(recorder.Lines(), expected);
  for (const Call& call : recorder.Calls()) EXPECT_EQ(call.handle, nullptr) << call.Line();
}

TEST_F(ConnectionTest, AddCollationTakesOneCall) {
  CallRecorder recorder;
  EXPECT_EQ(fDatabase.AddCollation("Back wards", CompareBackwards), SQLITE_OK);
  EXPECT_THAT(recorder.Lines(), ElementsAre("create_collation 'Back wards' = 0"));
  const Call call = recorder.Calls()[0];
  EXPECT_EQ(call.handle, fDatabase.fConnection);
  EXPECT_EQ(call.number, SQLITE_UTF8);
  EXPECT_EQ(call.out, nullptr);
}

TEST_F(ConnectionTest, AnAddedCollationSortsWithTheGivenFunction) {
  ASSERT_EQ(fDatabase.AddCollation("backwards", CompareBackwards), SQLITE_OK);
  fDatabase.SendQuery("CREATE TABLE items ( a TEXT COLLATE backwards )", nullptr, nullptr);
  fDatabase.SendQuery("INSERT INTO items VALUES ('a'), ('c'), ('b')", nullptr, nullptr);
  EXPECT_THAT(Rows("SELECT a FROM items ORDER BY a"), ElementsAre("c", "b", "a"));
}

TEST_F(ConnectionTest, AddCollationHandsBackEveryResult) {
  for (const int code : {0, 1, 5, 7, 21, 100, 101, -1}) {
    CallRecorder recorder;
    recorder.Force("create_collation", code);
    EXPECT_EQ(fDatabase.AddCollation("backwards", CompareBackwards), code);
    EXPECT_THAT(recorder.Lines(), ElementsAre("create_collation 'backwards' = " + std::to_string(code)));
  }
}

TEST_F(ConnectionTest, AddCollationWithoutAConnectionIsMisuse) {
  SQLDatabase unopened(OtherPath(), false);
  fDatabase.Close();
  CallRecorder recorder;
  EXPECT_EQ(unopened.AddCollation("backwards", CompareBackwards), 21);
  EXPECT_EQ(fDatabase.AddCollation("backwards", CompareBackwards), 21);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

class DatabaseDestructionTest : public ConnectionTest {
 protected:
  DatabaseDestructionTest() : fOwned(new SQLDatabase(OtherPath(), false)) {}

  std::unique_ptr<SQLDatabase> fOwned;
};

TEST_F(DatabaseDestructionTest, ClosesAnOpenConnectionOnce) {
  fOwned->Open();
  const sqlite3* const connection = fOwned->fConnection;
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, connection);
}

TEST_F(DatabaseDestructionTest, DoesNotCloseAgainAfterClose) {
  fOwned->Open();
  fOwned->Close();
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DatabaseDestructionTest, DoesNotCloseAgainAfterARefusedClose) {
  fOwned->Open();
  sqlite3* const connection = fOwned->fConnection;
  LiveStatement statement(connection);
  fOwned->Close();
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  statement.Finalize();
  CloseLeftover(connection);
}

TEST_F(DatabaseDestructionTest, IgnoresARefusal) {
  fOwned->Open();
  sqlite3* const connection = fOwned->fConnection;
  LiveStatement statement(connection);
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 5"));
  statement.Finalize();
  CloseLeftover(connection);
}

TEST_F(DatabaseDestructionTest, ClosesNothingWithoutAHandle) {
  fOwned->fIsOpen = true;
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DatabaseDestructionTest, ClosesAReopenedConnection) {
  fOwned->Open();
  fOwned->Close();
  fOwned->Open();
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_NE(recorder.Calls()[0].handle, nullptr);
}

TEST_F(DatabaseDestructionTest, ClosesOnlyTheHandleOpenedLast) {
  fOwned->Open();
  sqlite3* const first = fOwned->fConnection;
  fOwned->Open();
  const sqlite3* const second = fOwned->fConnection;
  CallRecorder recorder;
  fOwned.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
  EXPECT_EQ(recorder.Calls()[0].handle, second);
  CloseLeftover(first);
}

TEST_F(DatabaseDestructionTest, RaisesTheFlagBeforeItCloses) {
  fOwned->Open();
  CallRecorder recorder;
  bool sawFlag = false;
  recorder.fAfterCall = [&, database = fOwned.get()](const Call&) { sawFlag = database->fDestroying; };
  fOwned.reset();
  EXPECT_TRUE(sawFlag);
}

TEST(ErrorTest, ThrowErrorTellsTheCodeInDecimal) {
  EXPECT_EQ(MessageOf([] { ThrowError(14); }), "Error encountered: 14.\n");
  EXPECT_EQ(MessageOf([] { ThrowError(0); }), "Error encountered: 0.\n");
  EXPECT_EQ(MessageOf([] { ThrowError(-3); }), "Error encountered: -3.\n");
  EXPECT_EQ(MessageOf([] { ThrowError(std::numeric_limits<int>::max()); }), "Error encountered: 2147483647.\n");
  EXPECT_EQ(MessageOf([] { ThrowError(std::numeric_limits<int>::min()); }), "Error encountered: -2147483648.\n");
}

TEST(ErrorTest, ThrowErrorIgnoresTheGlobalLocale) {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  const std::string message = MessageOf([] { ThrowError(1234567); });
  std::locale::global(before);
  EXPECT_EQ(message, "Error encountered: 1234567.\n");
}

TEST(ErrorTest, ThrowIfThrowsOnlyIfTrue) {
  EXPECT_NO_THROW(ThrowIf(false));
  EXPECT_EQ(MessageOf([] { ThrowIf(true); }), "Condition is not met.");
}

TEST(ErrorTest, ErrorsArePlainRuntimeErrors) {
  const auto typeOf = [](auto action) -> const std::type_info* {
    try {
      action();
    } catch (const std::exception& error) {
      return &typeid(error);
    }
    return nullptr;
  };
  EXPECT_EQ(*typeOf([] { ThrowError(1); }), typeid(std::runtime_error));
  EXPECT_EQ(*typeOf([] { ThrowIf(true); }), typeid(std::runtime_error));
}

}  // namespace
