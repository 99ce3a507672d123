#include <iostream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "support/engine.h"
#include "support/fixtures.h"

using support::Call;
using support::CallRecorder;
using support::ClogCapture;
using support::FinalizeLeftovers;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

static_assert(
    std::is_same_v<decltype(&sqldb::SQLDatabase::ExplainQuery), void (sqldb::SQLDatabase::*)(const std::string&)>);

constexpr char kPlain[] = "SELECT a FROM items";
constexpr char kSorting[] = "SELECT a FROM items ORDER BY a";

// Keeps what is written to std::clog while it lives, write by write.
class ClogWrites : public std::streambuf {
 public:
  ClogWrites() : fOriginal(std::clog.rdbuf(this)) {}
  ~ClogWrites() override { std::clog.rdbuf(fOriginal); }

  std::vector<std::string> fTexts;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    fTexts.emplace_back(text, static_cast<std::size_t>(size));
    return size;
  }

 private:
  std::streambuf* fOriginal;
};

class ExplainTest : public support::DatabaseTest {
 protected:
  ExplainTest() { MakeTable("items", {"a"}); }

  // What an explanation of the statement should list.
  std::string Operations(const std::string& statement) {
    std::string list;
    for (const std::string& row : Rows("EXPLAIN " + statement)) {
      const std::size_t start = row.find('|') + 1;
      if (!list.empty()) list += ", ";
      list += row.substr(start, row.find('|', start) - start);
    }
    return list;
  }

  // What explaining `sql` writes.
  std::string LogOf(const std::string& sql) {
    const ClogCapture log;
    fDatabase.ExplainQuery(sql);
    return log.Text();
  }

  // Explains what cannot be explained: the message goes to `message`, what was written is returned.
  std::string LogOfFailure(const std::string& sql, std::string& message) {
    const ClogCapture log;
    message = MessageOf([&] { fDatabase.ExplainQuery(sql); });
    return log.Text();
  }

  // After each call of `function`, gives the connection the message "no such table: nowhere", so that a test can tell
  // from which moment a message comes.
  void PlantMessageAfter(CallRecorder& recorder, const std::string& function) {
    recorder.fAfterCall = [this, function](const Call& call) {
      if (call.function != function) return;
      sqlite3_stmt* none = nullptr;
      EXPECT_EQ(sqlite3_prepare(fDatabase.fConnection, "SELECT * FROM nowhere", -1, &none, nullptr), SQLITE_ERROR);
    };
  }

  static std::string Explanation(const std::string& sql, const std::string& operations) {
    return "- (SQLDatabase::ExplainQuery) EXPLAIN Query: '" + sql + "'.\n  Explanation: '" + operations + "'.\n";
  }
  static std::string SortExplanation(const std::string& sql, const std::string& operations) {
    return "- (SQLDatabase::ExplainQuery) EXPLAIN Query: '" + sql + "'.\n  Explanation (SORT!): '" + operations +
           "'.\n";
  }
};

TEST_F(ExplainTest, LevelZeroDoesNothing) {
  fDatabase.fLogErrors = 1;
  CallRecorder recorder;
  EXPECT_EQ(LogOf(kSorting), "");
  EXPECT_EQ(LogOf("nonsense"), "");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(ExplainTest, LevelZeroDoesNothingWithoutAConnection) {
  sqldb::SQLDatabase database(fFolder.Path("other.db"), false);
  EXPECT_NO_THROW(database.ExplainQuery("SELECT 1"));
}

TEST_F(ExplainTest, LevelOneLogsAPlanWithoutSort) {
  fDatabase.fExplainLevel = 1;
  EXPECT_EQ(LogOf(kPlain), Explanation(kPlain, Operations(kPlain)));
}

TEST_F(ExplainTest, LevelOneLogsAPlanWithSortAlike) {
  fDatabase.fExplainLevel = 1;
  EXPECT_EQ(LogOf(kSorting), Explanation(kSorting, Operations(kSorting)));
}

TEST_F(ExplainTest, OtherLevelsLogNothingWithoutASort) {
  for (const int level : {2, 3, 128, 255}) {
    fDatabase.fExplainLevel = static_cast<std::uint8_t>(level);
    EXPECT_EQ(LogOf(kPlain), "") << level;
  }
}

TEST_F(ExplainTest, OtherLevelsLogASort) {
  for (const int level : {2, 3, 128, 255}) {
    fDatabase.fExplainLevel = static_cast<std::uint8_t>(level);
    EXPECT_EQ(LogOf(kSorting), SortExplanation(kSorting, Operations(kSorting))) << level;
  }
}

TEST_F(ExplainTest, ASortIsFoundAsAWholeName) {
  const std::string sql = "SELECT a FROM items ORDER BY a LIMIT 1";
  ASSERT_THAT(Operations(sql), HasSubstr(", Sort, "));
  ASSERT_THAT(Operations(sql), Not(HasSubstr("Sorter")));
  fDatabase.fExplainLevel = 2;
  EXPECT_EQ(LogOf(sql), SortExplanation(sql, Operations(sql)));
}

TEST_F(ExplainTest, ASortIsFoundInsideALongerName) {
  if (support::IsOlderThan(3025000)) GTEST_SKIP() << "no window functions";
  const std::string sql = "SELECT row_number() OVER () FROM items";
  ASSERT_THAT(Operations(sql), HasSubstr("ResetSorter"));
  ASSERT_THAT(Operations(sql), Not(HasSubstr(" Sort")));
  fDatabase.fExplainLevel = 2;
  EXPECT_EQ(LogOf(sql), SortExplanation(sql, Operations(sql)));
}

TEST_F(ExplainTest, ASortIsTheWholeWordSort) {
  fDatabase.fExplainLevel = 2;
  CallRecorder recorder;
  for (const char* const operation : {"Sor", "ort", "sort"}) {
    recorder.fForcedText = operation;
    EXPECT_EQ(LogOf(kPlain), "") << operation;
  }
  recorder.fForcedText = "Sort";
  EXPECT_NE(LogOf(kPlain), "");
}

TEST_F(ExplainTest, ASortIsLookedForInTheOperationsOnly) {
  fDatabase.fExplainLevel = 2;
  EXPECT_EQ(LogOf("SELECT 'Sort' AS Sort FROM items"), "");
}

TEST_F(ExplainTest, ASortIsFoundInAnyStatement) {
  fDatabase.fExplainLevel = 2;
  const std::string sql = std::string(kPlain) + ";" + kSorting + ";" + kPlain;
  EXPECT_EQ(LogOf(sql),
            SortExplanation(sql, Operations(kPlain) + ", " + Operations(kSorting) + ", " + Operations(kPlain)));
}

TEST_F(ExplainTest, TwoStatementsGiveOneCombinedList) {
  fDatabase.fExplainLevel = 1;
  const std::string sql = "SELECT 1; DELETE FROM items";
  EXPECT_EQ(LogOf(sql), Explanation(sql, Operations("SELECT 1") + ", " + Operations("DELETE FROM items")));
}

TEST_F(ExplainTest, EachStatementIsPrefixedCompiledSteppedAndFinalized) {
  fDatabase.fExplainLevel = 2;
  CallRecorder recorder;
  fDatabase.ExplainQuery("SELECT 1; SELECT 2");
  std::vector<std::string> expected;
  for (const char* const text : {"EXPLAIN SELECT 1; SELECT 2", "EXPLAIN  SELECT 2"}) {
    expected.push_back("prepare '" + std::string(text) + "' = 0");
    for (std::size_t i = 0; i < Rows("EXPLAIN SELECT 1").size(); ++i) {
      expected.insert(expected.end(), {"step = 100", "column_text 1"});
    }
    expected.insert(expected.end(), {"step = 101", "finalize = 0"});
  }
  EXPECT_EQ(recorder.Lines(), expected);
}

TEST_F(ExplainTest, OneStatementHandleGoesThroughAllCalls) {
  fDatabase.fExplainLevel = 2;
  CallRecorder recorder;
  fDatabase.ExplainQuery("SELECT 1");
  const Call prepare = recorder.Calls()[0];
  EXPECT_EQ(prepare.handle, fDatabase.fConnection);
  EXPECT_EQ(prepare.number, -1);
  for (const char* const function : {"step", "column_text", "finalize"}) {
    for (const Call& call : recorder.CallsOf(function)) EXPECT_EQ(call.handle, prepare.out) << function;
  }
}

TEST_F(ExplainTest, NothingIsRun) {
  fDatabase.fExplainLevel = 1;
  LogOf("INSERT INTO items VALUES (1); DROP TABLE items; CREATE TABLE others ( a INTEGER )");
  EXPECT_THAT(Rows("SELECT a FROM items"), IsEmpty());
  EXPECT_THAT(Rows("SELECT name FROM sqlite_master"), ElementsAre("items"));
}

TEST_F(ExplainTest, NoMemberChanges) {
  fDatabase.fExplainLevel = 2;
  fDatabase.fLogErrors = 3;
  sqlite3* const connection = fDatabase.fConnection;
  LogOf(kSorting);
  std::string message;
  LogOfFailure("nonsense", message);
  EXPECT_EQ(fDatabase.fConnection, connection);
  EXPECT_TRUE(fDatabase.fIsOpen);
  EXPECT_EQ(fDatabase.fExplainLevel, 2);
  EXPECT_EQ(fDatabase.fLogErrors, 3);
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_TRUE(fDatabase.fTransactionOK);
}

TEST_F(ExplainTest, TheQueryIsLoggedExactlyAsPassed) {
  fDatabase.fExplainLevel = 1;
  const std::string sql = "  SELECT\t'it''s',\n1 -- why;\n;";
  EXPECT_EQ(LogOf(sql), Explanation(sql, Operations("SELECT 'its', 1")));
}

TEST_F(ExplainTest, ResultOkEndsAStatementLikeDone) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  recorder.Force("step", SQLITE_OK, 1, 2);
  const std::string log = LogOf("SELECT 1");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'EXPLAIN SELECT 1' = 0", "step = 100", "column_text 1",
                                            "step = 100", "column_text 1", "step = 0", "finalize = 0"));
  const std::string all = Operations("SELECT 1");
  EXPECT_EQ(log, Explanation("SELECT 1", all.substr(0, all.find(',', all.find(',') + 1))));
}

TEST_F(ExplainTest, AStatementWithoutItemsAddsNoComma) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  recorder.Force("step", SQLITE_DONE);
  EXPECT_EQ(LogOf("SELECT 1;SELECT 2"), Explanation("SELECT 1;SELECT 2", Operations("SELECT 2")));
}

TEST_F(ExplainTest, AnItemWhoseNameSQLiteCannotGiveHasNone) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  // Not forwarded, so that SQLite has no row to take a name from and gives null.
  recorder.Force("step", SQLITE_ROW);
  EXPECT_EQ(LogOf("SELECT 1"), Explanation("SELECT 1", ", " + Operations("SELECT 1")));
  EXPECT_EQ(recorder.CallsOf("column_text")[0].out, nullptr);
}

TEST_F(ExplainTest, AnExplanationMayBeEmpty) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  recorder.Force("step", SQLITE_DONE);
  EXPECT_EQ(LogOf("SELECT 1"), Explanation("SELECT 1", ""));
}

TEST_F(ExplainTest, ACompileErrorIsLoggedAndThrown) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  CallRecorder recorder;
  std::string message;
  EXPECT_EQ(LogOfFailure("nonsense", message),
            "- (SQLDatabase::SendQuery) Explain error: 'near \"nonsense\": syntax error' (C).\n");
  EXPECT_EQ(message, "near \"nonsense\": syntax error");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'EXPLAIN nonsense' = 1", "errmsg"));
  EXPECT_EQ(recorder.Calls()[1].handle, fDatabase.fConnection);
}

TEST_F(ExplainTest, AStepErrorIsLoggedAndThrownAndTheStatementLeft) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  CallRecorder recorder;
  bool interrupted = false;
  recorder.fAfterCall = [&](const Call& call) {
    if (call.function != "column_text" || interrupted) return;
    interrupted = true;
    sqlite3_interrupt(fDatabase.fConnection);
  };
  std::string message;
  EXPECT_EQ(LogOfFailure("SELECT 1; SELECT 2", message),
            "- (SQLDatabase::SendQuery) Explain error: '" + support::LogicError() + "' (A).\n");
  EXPECT_EQ(message, support::LogicError());
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'EXPLAIN SELECT 1; SELECT 2' = 0", "step = 100", "column_text 1",
                                            "step = 1", "errmsg"));
  EXPECT_EQ(FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(ExplainTest, EveryStepResultButThreeIsAnError) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  std::vector<int> codes = {99, 102, -1, 261, 517};
  for (int code = SQLITE_ERROR; code <= SQLITE_WARNING; ++code) codes.push_back(code);
  CallRecorder recorder;
  PlantMessageAfter(recorder, "step");
  for (const int code : codes) {
    recorder.Clear();
    recorder.Force("step", code);
    std::string message;
    EXPECT_EQ(LogOfFailure("SELECT 1", message),
              "- (SQLDatabase::SendQuery) Explain error: 'no such table: nowhere' (A).\n");
    EXPECT_EQ(message, "no such table: nowhere");
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("prepare 'EXPLAIN SELECT 1' = 0", "step = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(FinalizeLeftovers(fDatabase.fConnection), 1);
  }
}

TEST_F(ExplainTest, AFinalizeErrorIsLoggedAndThrown) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  for (const int code : {1, 5, 100, 101, -1}) {
    CallRecorder recorder;
    PlantMessageAfter(recorder, "finalize");
    recorder.Force("step", SQLITE_DONE);
    recorder.Force("finalize", code);
    std::string message;
    EXPECT_EQ(LogOfFailure("SELECT 1; SELECT 2", message),
              "- (SQLDatabase::SendQuery) Explain error: 'no such table: nowhere' (B).\n");
    EXPECT_EQ(message, "no such table: nowhere");
    EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'EXPLAIN SELECT 1; SELECT 2' = 0", "step = 101",
                                              "finalize = " + std::to_string(code), "errmsg"));
    EXPECT_EQ(FinalizeLeftovers(fDatabase.fConnection), 0);
  }
}

// So that what several threads write does not mix.
TEST_F(ExplainTest, EachTextIsWrittenAtOnce) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  const ClogWrites log;
  fDatabase.ExplainQuery(kPlain);
  EXPECT_EQ(MessageOf([&] { fDatabase.ExplainQuery("SELECT a FROM nowhere"); }), "no such table: nowhere");
  EXPECT_THAT(log.fTexts, ElementsAre(AllOf(HasSubstr("EXPLAIN Query: '"), HasSubstr("Explanation: '")),
                                      "- (SQLDatabase::SendQuery) Explain error: 'no such table: nowhere' (C).\n"));
}

TEST_F(ExplainTest, WithoutLogErrorsNoErrorIsLogged) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  for (const char* const stage : {"prepare", "step", "finalize"}) {
    recorder.Clear();
    recorder.Force(stage, SQLITE_ERROR);
    std::string message;
    EXPECT_EQ(LogOfFailure("SELECT 1", message), "") << stage;
    EXPECT_EQ(message, "not an error") << stage;
    FinalizeLeftovers(fDatabase.fConnection);
  }
}

TEST_F(ExplainTest, AnyNonZeroLogErrorsLogsErrors) {
  fDatabase.fExplainLevel = 255;
  for (const int flag : {1, 2, 128, 255}) {
    fDatabase.fLogErrors = static_cast<std::uint8_t>(flag);
    std::string message;
    EXPECT_EQ(LogOfFailure("nonsense", message),
              "- (SQLDatabase::SendQuery) Explain error: 'near \"nonsense\": syntax error' (C).\n");
  }
}

TEST_F(ExplainTest, ErrorsArePlainRuntimeErrors) {
  fDatabase.fExplainLevel = 1;
  try {
    fDatabase.ExplainQuery("nonsense");
    FAIL() << "nothing thrown";
  } catch (const std::exception& error) {
    EXPECT_EQ(typeid(error), typeid(std::runtime_error));
  }
}

TEST_F(ExplainTest, NothingIsExplainedIfALaterStatementFails) {
  fDatabase.fExplainLevel = 1;
  std::string message;
  EXPECT_EQ(LogOfFailure("SELECT 1; SELECT * FROM nowhere", message), "");
  EXPECT_EQ(message, "no such table: nowhere");
}

TEST_F(ExplainTest, AFinalSemicolonStartsNoFurtherPass) {
  fDatabase.fExplainLevel = 1;
  EXPECT_EQ(LogOf("SELECT 1;"), Explanation("SELECT 1;", Operations("SELECT 1")));
}

TEST_F(ExplainTest, ATrailingBlankIsOneMoreStatement) {
  fDatabase.fExplainLevel = 1;
  fDatabase.fLogErrors = 1;
  CallRecorder recorder;
  std::string message;
  const std::string expected = support::IncompleteInput("  ");
  EXPECT_EQ(LogOfFailure("SELECT 1; ", message), "- (SQLDatabase::SendQuery) Explain error: '" + expected + "' (C).\n");
  EXPECT_EQ(message, expected);
  EXPECT_THAT(recorder.Sql(), ElementsAre("EXPLAIN SELECT 1; ", "EXPLAIN  "));
}

TEST_F(ExplainTest, AnEmptyTextIsRefusedBySQLite) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.ExplainQuery(""); }), support::IncompleteInput(" "));
  EXPECT_THAT(recorder.Sql(), ElementsAre("EXPLAIN "));
}

TEST_F(ExplainTest, AZeroByteIsOneMoreStatement) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.ExplainQuery(std::string("SELECT 1;\0SELECT 2", 18)); }),
            support::IncompleteInput(" "));
  EXPECT_THAT(recorder.Sql(), ElementsAre("EXPLAIN SELECT 1;", "EXPLAIN "));
}

TEST_F(ExplainTest, ABusyFileIsThrownAtOnce) {
  fDatabase.fExplainLevel = 1;
  CallRecorder recorder;
  recorder.Force("step", SQLITE_BUSY);
  EXPECT_THROW(fDatabase.ExplainQuery("SELECT 1"), std::runtime_error);
  EXPECT_EQ(recorder.SleptMicroseconds(), 0u);
}

}  // namespace
