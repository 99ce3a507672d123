#include <functional>
#include <limits>
#include <memory>
#include <type_traits>
#include <typeinfo>

#include "support/engine.h"
#include "support/fixtures.h"

using sqldb::BindingCallback;
using sqldb::QueryCallback;
using support::Call;
using support::CallRecorder;
using support::FinalizeLeftovers;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

static_assert(std::is_abstract_v<QueryCallback> && std::has_virtual_destructor_v<QueryCallback>);
static_assert(std::is_abstract_v<BindingCallback> && std::has_virtual_destructor_v<BindingCallback>);
static_assert(sizeof(QueryCallback) == sizeof(void*) && sizeof(BindingCallback) == sizeof(void*), "no data members");
static_assert(
    std::is_same_v<decltype(&BindingCallback::BindingOpportunity), void (BindingCallback::*)(sqlite3_stmt*) const>);
static_assert(std::is_same_v<decltype(&sqldb::SQLDatabase::SendQuery),
                             void (sqldb::SQLDatabase::*)(const std::string&, QueryCallback*, BindingCallback*)>);

// What a callback throws that is no std::exception.
struct Surprise {};

// Notes "row VALUE" for the first column of each row, and asks for `fWanted` rows at most.
class RowNotes : public QueryCallback {
 public:
  explicit RowNotes(CallRecorder& recorder, int wanted = std::numeric_limits<int>::max())
      : fRecorder(recorder), fWanted(wanted) {}

  bool ProcessRow(sqlite3_stmt* statement) override {
    fStatement = statement;
    {
      CallRecorder::Pause pause;
      fRecorder.Note("row " + std::to_string(sqlite3_column_int(statement, 0)));
    }
    if (fAction) fAction();
    return --fWanted > 0;
  }

  CallRecorder& fRecorder;
  int fWanted;
  std::function<void()> fAction;
  const sqlite3_stmt* fStatement = nullptr;
};

// Notes "bind", or "bind null", for each statement offered.
class BindNotes : public BindingCallback {
 public:
  explicit BindNotes(CallRecorder& recorder) : fRecorder(recorder) {}

  void BindingOpportunity(sqlite3_stmt* statement) const override {
    fRecorder.Note(statement != nullptr ? "bind" : "bind null");
    fStatements.push_back(statement);
    if (fAction) fAction(statement);
  }

  CallRecorder& fRecorder;
  std::function<void(sqlite3_stmt*)> fAction;
  mutable std::vector<const sqlite3_stmt*> fStatements;
};

class QueryTest : public support::DatabaseTest {
 protected:
  void Send(const std::string& sql) { fDatabase.SendQuery(sql, nullptr, nullptr); }

  // After each call of `function`, gives the connection the message "no such table: nowhere", so that a test can tell
  // from which moment a message comes.
  void PlantMessageAfter(const std::string& function) {
    fRecorder.fAfterCall = [this, function](const Call& call) {
      if (call.function != function) return;
      sqlite3_stmt* none = nullptr;
      EXPECT_EQ(sqlite3_prepare(fDatabase.fConnection, "SELECT * FROM nowhere", -1, &none, nullptr), SQLITE_ERROR);
    };
  }

  std::string MessageOfSending(const std::string& sql, QueryCallback* callback = nullptr) {
    return MessageOf([&] { fDatabase.SendQuery(sql, callback, nullptr); });
  }

  int Leftovers() { return FinalizeLeftovers(fDatabase.fConnection); }

  CallRecorder fRecorder;
};

TEST_F(QueryTest, AnEmptyTextCallsNothing) {
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  fDatabase.SendQuery("", &rows, &binds);
  EXPECT_THAT(fRecorder.Lines(), IsEmpty());
}

TEST_F(QueryTest, AnEmptyTextIsFineWithoutAConnection) {
  sqldb::SQLDatabase database(fFolder.Path("other.db"), false);
  EXPECT_NO_THROW(database.SendQuery("", nullptr, nullptr));
  EXPECT_THAT(fRecorder.Lines(), IsEmpty());
}

TEST_F(QueryTest, AStatementIsCompiledBoundSteppedAndFinalized) {
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  fDatabase.SendQuery("SELECT 7", &rows, &binds);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 7' = 0", "note bind", "step = 100", "note row 7",
                                             "step = 101", "finalize = 0"));
}

TEST_F(QueryTest, OneStatementHandleGoesThroughAllCalls) {
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  fDatabase.SendQuery("SELECT 7", &rows, &binds);
  const Call prepare = fRecorder.CallsOf("prepare")[0];
  EXPECT_EQ(prepare.handle, fDatabase.fConnection);
  EXPECT_EQ(prepare.number, -1);
  EXPECT_THAT(binds.fStatements, ElementsAre(prepare.out));
  for (const Call& step : fRecorder.CallsOf("step")) EXPECT_EQ(step.handle, prepare.out);
  EXPECT_EQ(rows.fStatement, prepare.out);
  EXPECT_EQ(fRecorder.CallsOf("finalize")[0].handle, prepare.out);
}

TEST_F(QueryTest, ASecondStatementIsCompiledAfterTheFirstIsFinalized) {
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  fDatabase.SendQuery("SELECT 1; SELECT 2", &rows, &binds);
  EXPECT_THAT(
      fRecorder.Lines(),
      ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "note bind", "step = 100", "note row 1", "step = 101",
                  "finalize = 0",  //
                  "prepare ' SELECT 2' = 0", "note bind", "step = 100", "note row 2", "step = 101", "finalize = 0"));
  EXPECT_EQ(fRecorder.CallsOf("prepare")[1].number, -1);
  EXPECT_EQ(fRecorder.CallsOf("prepare")[1].handle, fDatabase.fConnection);
}

TEST_F(QueryTest, ASecondStatementMayUseWhatTheFirstMade) {
  Send("CREATE TABLE items ( a INTEGER ); INSERT INTO items VALUES (3);INSERT INTO items VALUES (4)");
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("3", "4"));
}

TEST_F(QueryTest, AFinalSemicolonStartsNoFurtherPass) {
  Send("SELECT 1;");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1;' = 0", "step = 100", "finalize = 0"));
}

TEST_F(QueryTest, WithoutARowCallbackAStatementIsSteppedOnce) {
  Send("SELECT 1 UNION SELECT 2; SELECT 3");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1 UNION SELECT 2; SELECT 3' = 0", "step = 100",
                                             "finalize = 0", "prepare ' SELECT 3' = 0", "step = 100", "finalize = 0"));
}

TEST_F(QueryTest, TheRowCallbackGetsEveryRow) {
  RowNotes rows(fRecorder);
  fDatabase.SendQuery("SELECT 1 UNION SELECT 2", &rows, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1 UNION SELECT 2' = 0", "step = 100", "note row 1",
                                             "step = 100", "note row 2", "step = 101", "finalize = 0"));
}

TEST_F(QueryTest, TheRowCallbackIsNotCalledForAnEmptyResult) {
  RowNotes rows(fRecorder);
  fDatabase.SendQuery("SELECT 1 WHERE 0", &rows, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1 WHERE 0' = 0", "step = 101", "finalize = 0"));
}

TEST_F(QueryTest, ARowCallbackThatStopsEndsTheWholeText) {
  RowNotes rows(fRecorder, 1);
  BindNotes binds(fRecorder);
  fDatabase.SendQuery("SELECT 1 UNION SELECT 2; SELECT 3", &rows, &binds);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1 UNION SELECT 2; SELECT 3' = 0", "note bind",
                                             "step = 100", "note row 1", "finalize = 0"));
}

TEST_F(QueryTest, ARowCallbackMayStopAtALaterStatement) {
  RowNotes rows(fRecorder, 2);
  fDatabase.SendQuery("SELECT 1; SELECT 2; SELECT 3", &rows, nullptr);
  EXPECT_THAT(fRecorder.Sql(), ElementsAre("SELECT 1; SELECT 2; SELECT 3", " SELECT 2; SELECT 3"));
  EXPECT_EQ(fRecorder.Count("finalize"), 2u);
}

TEST_F(QueryTest, AStoppedTextMayEndInAnything) {
  RowNotes rows(fRecorder, 1);
  EXPECT_NO_THROW(fDatabase.SendQuery("SELECT 1; nonsense", &rows, nullptr));
}

TEST_F(QueryTest, TheBindingCallbackBindsBeforeTheFirstStep) {
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  binds.fAction = [](sqlite3_stmt* statement) { sqlite3_bind_int(statement, 1, 42); };
  fDatabase.SendQuery("SELECT :1; SELECT 5", &rows, &binds);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT :1; SELECT 5' = 0", "note bind", "step = 100",
                                             "note row 42", "step = 101", "finalize = 0", "prepare ' SELECT 5' = 0",
                                             "note bind", "step = 100", "note row 5", "step = 101", "finalize = 0"));
}

TEST_F(QueryTest, ResultsOkAndRowAndDoneAreAcceptedWithoutARowCallback) {
  for (const int code : {SQLITE_OK, SQLITE_ROW, SQLITE_DONE}) {
    fRecorder.Clear();
    fRecorder.Force("step", code);
    EXPECT_NO_THROW(Send("SELECT 1")) << code;
    EXPECT_THAT(fRecorder.Lines(),
                ElementsAre("prepare 'SELECT 1' = 0", "step = " + std::to_string(code), "finalize = 0"));
  }
}

TEST_F(QueryTest, ResultsOkAndDoneLeadToTheNextStatementWithARowCallback) {
  for (const int code : {SQLITE_OK, SQLITE_DONE}) {
    fRecorder.Clear();
    fRecorder.Force("step", code);
    RowNotes rows(fRecorder);
    fDatabase.SendQuery("SELECT 1;SELECT 2", &rows, nullptr);
    EXPECT_THAT(fRecorder.Lines(),
                ElementsAre("prepare 'SELECT 1;SELECT 2' = 0", "step = " + std::to_string(code), "finalize = 0",
                            "prepare 'SELECT 2' = 0", "step = 100", "note row 2", "step = 101", "finalize = 0"));
  }
}

// Every primary code but the accepted ones, some extended ones, and numbers that are no codes.
std::vector<int> RefusedCodes() {
  std::vector<int> codes = {99, 102, -1, 261, 266, 517, 1555, 2067};
  for (int code = SQLITE_ERROR; code <= SQLITE_WARNING; ++code) codes.push_back(code);
  return codes;
}

TEST_F(QueryTest, EveryOtherResultThrowsAtOnceAndLeavesTheStatement) {
  PlantMessageAfter("step");
  for (const int code : RefusedCodes()) {
    fRecorder.Clear();
    fRecorder.Force("step", code);
    EXPECT_EQ(MessageOfSending("SELECT 1; SELECT 2"), "no such table: nowhere") << code;
    EXPECT_THAT(fRecorder.Lines(),
                ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "step = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(fRecorder.CallsOf("errmsg")[0].handle, fDatabase.fConnection);
    EXPECT_EQ(Leftovers(), 1);
  }
}

TEST_F(QueryTest, EveryOtherResultThrowsBetweenRowsToo) {
  PlantMessageAfter("step");
  for (const int code : RefusedCodes()) {
    fRecorder.Clear();
    fRecorder.Force("step", code, 1, 1);
    RowNotes rows(fRecorder);
    EXPECT_EQ(MessageOfSending("SELECT 1; SELECT 2", &rows), "no such table: nowhere") << code;
    EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "step = 100", "note row 1",
                                               "step = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(Leftovers(), 1);
  }
}

TEST_F(QueryTest, EveryCompileErrorThrows) {
  PlantMessageAfter("prepare");
  for (const int code : {1, 5, 6, 7, 11, 21, 26, 100, 101, -1}) {
    fRecorder.Clear();
    fRecorder.Force("prepare", code);
    BindNotes binds(fRecorder);
    EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT 1", nullptr, &binds); }), "no such table: nowhere");
    EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1' = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(fRecorder.Calls()[1].handle, fDatabase.fConnection);
  }
}

TEST_F(QueryTest, EveryFinalizeErrorThrowsAndEndsTheText) {
  PlantMessageAfter("finalize");
  for (const int code : {1, 5, 19, 100, 101, -1}) {
    fRecorder.Clear();
    fRecorder.Force("finalize", code);
    EXPECT_EQ(MessageOfSending("SELECT 1; SELECT 2"), "no such table: nowhere");
    EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "step = 100",
                                               "finalize = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(fRecorder.Calls()[3].handle, fDatabase.fConnection);
    EXPECT_EQ(Leftovers(), 0);
  }
}

TEST_F(QueryTest, AFinalizeErrorThrowsAlsoAfterTheCallbackStopped) {
  PlantMessageAfter("finalize");
  fRecorder.Force("finalize", SQLITE_ERROR);
  RowNotes rows(fRecorder, 1);
  EXPECT_EQ(MessageOfSending("SELECT 1", &rows), "no such table: nowhere");
}

TEST_F(QueryTest, ASyntaxErrorThrowsSQLitesTextAlone) {
  EXPECT_EQ(MessageOfSending("SELEC 1"), "near \"SELEC\": syntax error");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELEC 1' = 1", "errmsg"));
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(QueryTest, ErrorsArePlainRuntimeErrors) {
  try {
    Send("SELEC 1");
    FAIL() << "nothing thrown";
  } catch (const std::exception& error) {
    EXPECT_EQ(typeid(error), typeid(std::runtime_error));
  }
}

TEST_F(QueryTest, WhatWasDoneBeforeACompileErrorStaysDone) {
  Send("CREATE TABLE items ( a INTEGER )");
  EXPECT_EQ(MessageOfSending("INSERT INTO items VALUES (1); INSERT INTO nowhere VALUES (2); INSERT INTO items "
                             "VALUES (3)"),
            "no such table: nowhere");
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1"));
}

TEST_F(QueryTest, WhatWasDoneBeforeAStepErrorStaysDone) {
  Send("CREATE TABLE items ( a INTEGER UNIQUE )");
  EXPECT_EQ(
      MessageOfSending("INSERT INTO items VALUES (1); INSERT INTO items VALUES (1); INSERT INTO items VALUES (3)"),
      support::LogicError());
  EXPECT_EQ(Leftovers(), 1);
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1"));
}

TEST_F(QueryTest, AStatementThatFailedToStepMakesSQLiteRefuseTheClose) {
  Send("CREATE TABLE items ( a INTEGER UNIQUE ); INSERT INTO items VALUES (1)");
  EXPECT_EQ(MessageOfSending("INSERT INTO items VALUES (1)"), support::LogicError());
  fRecorder.Clear();
  fDatabase.Close();
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("close = 5"));
  EXPECT_EQ(Leftovers(), 1);
  fDatabase.Close();
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("close = 5", "close = 0"));
}

TEST_F(QueryTest, ABusyWriteIsThrownAtOnce) {
  MakeTable("items", {"a"});
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  EXPECT_EQ(MessageOfSending("INSERT INTO items VALUES (1)"), "database is locked");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'INSERT INTO items VALUES (1)' = 0", "step = 5", "errmsg"));
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 0u);
  other.Run("ROLLBACK");
  EXPECT_EQ(Leftovers(), 1);
}

TEST_F(QueryTest, ABusyReadIsThrownAtOnceWithARowCallback) {
  MakeTable("items", {"a"});
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  RowNotes rows(fRecorder);
  EXPECT_EQ(MessageOfSending("SELECT a FROM items", &rows), "database is locked");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT a FROM items' = 0", "step = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(QueryTest, ABusyCompilationIsThrownAtOnce) {
  MakeTable("items", {"a"});
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  sqldb::SQLDatabase newcomer(DatabasePath(), false);
  newcomer.Open();
  fRecorder.Clear();
  EXPECT_EQ(MessageOf([&] { newcomer.SendQuery("SELECT a FROM items", nullptr, nullptr); }), "database is locked");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT a FROM items' = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(QueryTest, ALockedTableIsThrownAtOnce) {
  MakeTable("items", {"a"});
  Rows("INSERT INTO items VALUES (1)");
  RowNotes rows(fRecorder);
  std::string message;
  rows.fAction = [&] { message = MessageOfSending("DROP TABLE items"); };
  fDatabase.SendQuery("SELECT a FROM items", &rows, nullptr);
  EXPECT_EQ(message, support::LogicError());
  EXPECT_EQ(fRecorder.Count("usleep"), 0u);
  EXPECT_EQ(Leftovers(), 1);
}

// Texts whose last pass compiles to no statement at all.
class NullStatementTest : public QueryTest, public ::testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Tails, NullStatementTest, ::testing::Values(" ", "\n", "  \t", "-- done", "/* done */", ";"));

TEST_P(NullStatementTest, ReachesTheBindingCallbackAndTheStep) {
  const std::string& tail = GetParam();
  RowNotes rows(fRecorder);
  BindNotes binds(fRecorder);
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT 1;" + tail, &rows, &binds); }), "not an error");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1;" + tail + "' = 0", "note bind", "step = 100",
                                             "note row 1", "step = 101", "finalize = 0",  //
                                             "prepare '" + tail + "' = 0", "note bind null", "step = 21", "errmsg"));
  EXPECT_EQ(Leftovers(), 0);
}

TEST_P(NullStatementTest, ThrowsAloneToo) {
  EXPECT_EQ(MessageOfSending(GetParam()), "not an error");
  EXPECT_EQ(fRecorder.CallsOf("step")[0].handle, nullptr);
}

TEST_P(NullStatementTest, ThrowsTheMessageOfTheMoment) {
  PlantMessageAfter("step");
  EXPECT_EQ(MessageOfSending(GetParam()), "no such table: nowhere");
}

TEST_F(QueryTest, AZeroByteHidesWhatFollowsAndIsATailOfItsOwn) {
  MakeTable("items", {"a"});
  const std::string sql("INSERT INTO items VALUES (1);\0INSERT INTO items VALUES (2)", 57);
  EXPECT_EQ(MessageOfSending(sql), "not an error");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'INSERT INTO items VALUES (1);' = 0", "step = 101",
                                             "finalize = 0", "prepare '' = 0", "step = 21", "errmsg"));
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1"));
}

TEST_F(QueryTest, WhatABindingCallbackThrowsPassesThroughWithTheStatementLeft) {
  BindNotes binds(fRecorder);
  binds.fAction = [](sqlite3_stmt*) { throw Surprise(); };
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1; SELECT 2", nullptr, &binds), Surprise);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "note bind"));
  EXPECT_EQ(Leftovers(), 1);
}

TEST_F(QueryTest, WhatARowCallbackThrowsPassesThroughWithTheStatementLeft) {
  RowNotes rows(fRecorder);
  rows.fAction = [] { throw Surprise(); };
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1; SELECT 2", &rows, nullptr), Surprise);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "step = 100", "note row 1"));
  EXPECT_EQ(Leftovers(), 1);
}

TEST_F(QueryTest, WhatWasDoneBeforeACallbackThrewStaysDone) {
  MakeTable("items", {"a"});
  RowNotes rows(fRecorder);
  rows.fAction = [] { throw Surprise(); };
  EXPECT_THROW(fDatabase.SendQuery("INSERT INTO items VALUES (1); SELECT 2", &rows, nullptr), Surprise);
  EXPECT_EQ(Leftovers(), 1);
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1"));
}

TEST_F(QueryTest, ARowCallbackMaySendQueries) {
  RowNotes rows(fRecorder);
  MakeTable("items", {"a"});
  rows.fAction = [this] { Send("INSERT INTO items VALUES (1)"); };
  fDatabase.SendQuery("SELECT 1 UNION SELECT 2", &rows, nullptr);
  EXPECT_THAT(Rows("SELECT a FROM items"), ElementsAre("1", "1"));
}

TEST_F(QueryTest, NothingIsExplainedOrLogged) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  const support::ClogCapture log;
  Send("SELECT 1");
  EXPECT_EQ(MessageOfSending("nonsense"), "near \"nonsense\": syntax error");
  EXPECT_THAT(fRecorder.Sql(), ElementsAre("SELECT 1", "nonsense"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(QueryTest, ACloseInsideARowCallbackIsRefusedAndTheQueryGoesOn) {
  RowNotes rows(fRecorder);
  rows.fAction = [this] { fDatabase.Close(); };
  fDatabase.SendQuery("SELECT 1; SELECT 2", &rows, nullptr);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; SELECT 2' = 0", "step = 100", "note row 1",
                                             "close = 5", "step = 101", "finalize = 0", "prepare ' SELECT 2' = 0",
                                             "step = 100", "note row 2", "close = 5", "step = 101", "finalize = 0"));
  fDatabase.fIsOpen = true;
}

TEST_F(QueryTest, ABindingCallbackMayCloseTheDatabaseOnTheNullStatement) {
  const sqlite3* const stale = fDatabase.fConnection;
  BindNotes binds(fRecorder);
  binds.fAction = [this](sqlite3_stmt* statement) {
    if (statement == nullptr) fDatabase.Close();
  };
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("SELECT 1; ", nullptr, &binds); }), "out of memory");
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("prepare 'SELECT 1; ' = 0", "note bind", "step = 100", "finalize = 0",
                                             "prepare ' ' = 0", "note bind null", "close = 0", "step = 21", "errmsg"));
  EXPECT_EQ(fRecorder.CallsOf("close")[0].handle, stale);
  EXPECT_EQ(fRecorder.CallsOf("errmsg")[0].handle, nullptr);
}

TEST_F(QueryTest, ABindingCallbackMayReopenTheDatabaseOnTheNullStatement) {
  const sqlite3* const stale = fDatabase.fConnection;
  std::unique_ptr<support::OtherConnection> squatter;
  BindNotes binds(fRecorder);
  binds.fAction = [&](sqlite3_stmt* statement) {
    if (statement != nullptr) return;
    fDatabase.Close();
    // Takes the address of the closed connection, so that the new one is elsewhere.
    squatter = std::make_unique<support::OtherConnection>(DatabasePath());
    fDatabase.Open();
  };
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1; ", nullptr, &binds), std::runtime_error);
  ASSERT_NE(fDatabase.fConnection, stale);
  EXPECT_NE(fRecorder.CallsOf("errmsg")[0].handle, stale);
  EXPECT_NO_THROW(Send("SELECT 1"));
}

TEST_F(QueryTest, CallbacksAreNeitherKeptNorDeleted) {
  const auto rows = std::make_unique<RowNotes>(fRecorder);
  const auto binds = std::make_unique<BindNotes>(fRecorder);
  for (int i = 0; i < 2; ++i) fDatabase.SendQuery("SELECT 1", rows.get(), binds.get());
  EXPECT_EQ(fRecorder.Count("note"), 4u);
}

}  // namespace
