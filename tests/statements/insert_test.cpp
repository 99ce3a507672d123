#include <cstddef>
#include <functional>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "support/engine.h"
#include "support/fixtures.h"
#include "support/layout.h"
#include "support/witness.h"

using sqldb::SQLColumnBase;
using sqldb::SQLInsertClass;
using sqldb::SQLReplaceClass;
using sqldb::SQLTableClass;
using sqldb::SQLValueBase;
using support::BoundInteger;
using support::CallRecorder;
using support::DoNotDelete;
using support::InMemoryOrder;
using support::MakeColumn;
using support::MakeValue;
using support::MessageOf;
using support::OwnFailure;
using support::TextValue;
using support::Witness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using ValuePointer = boost::shared_ptr<SQLValueBase>;

static_assert(std::is_polymorphic_v<SQLInsertClass> && std::has_virtual_destructor_v<SQLInsertClass>);
static_assert(!std::is_copy_constructible_v<SQLInsertClass> && !std::is_copy_assignable_v<SQLInsertClass>);
static_assert(std::is_constructible_v<SQLInsertClass, SQLTableClass&>);
static_assert(std::is_same_v<decltype(SQLInsertClass::fTable), SQLTableClass&>);
static_assert(std::is_same_v<decltype(SQLInsertClass::fVerb), std::string>);
static_assert(std::is_same_v<decltype(SQLInsertClass::fQuery), std::ostringstream>);
static_assert(std::is_same_v<decltype(SQLInsertClass::fColumns), std::vector<boost::shared_ptr<SQLColumnBase>>>);
static_assert(std::is_same_v<decltype(SQLInsertClass::fValues), std::vector<ValuePointer>>);
static_assert(std::is_same_v<decltype(&SQLInsertClass::SetupInsert), void (SQLInsertClass::*)()>);
static_assert(std::is_same_v<decltype(&SQLInsertClass::PerformInsert), void (SQLInsertClass::*)(bool)>);

static_assert(std::is_base_of_v<SQLInsertClass, SQLReplaceClass> &&
              std::is_convertible_v<SQLReplaceClass*, SQLInsertClass*>);
static_assert(sizeof(SQLReplaceClass) == sizeof(SQLInsertClass));
static_assert(!std::is_copy_constructible_v<SQLReplaceClass> && !std::is_copy_assignable_v<SQLReplaceClass>);
static_assert(std::is_constructible_v<SQLReplaceClass, SQLTableClass&>);
static_assert(std::is_same_v<decltype(&SQLReplaceClass::PerformReplace), void (SQLReplaceClass::*)(bool)>);

static_assert(std::is_base_of_v<sqldb::BindingCallback, SQLInsertBindingCallback>);
static_assert(std::is_constructible_v<SQLInsertBindingCallback, SQLInsertClass*>);
static_assert(std::is_same_v<decltype(SQLInsertBindingCallback::fInsert), SQLInsertClass*>);
static_assert(std::is_constructible_v<AddValueToQuery, std::ostream*>);
static_assert(std::is_same_v<decltype(AddValueToQuery::fStream), std::ostream*>);
static_assert(std::is_same_v<decltype(AddValueToQuery::fFirst), bool>);
static_assert(std::is_invocable_r_v<void, AddValueToQuery, ValuePointer>);
static_assert(std::is_constructible_v<PresentBindingOpportunity, sqlite3_stmt*>);
static_assert(std::is_same_v<decltype(PresentBindingOpportunity::fStatement), sqlite3_stmt*>);
static_assert(std::is_invocable_r_v<void, PresentBindingOpportunity, ValuePointer>);

namespace {

// Prints a literal, and runs a piece of the test when it is offered a statement.
class ActingValue : public TextValue {
 public:
  explicit ActingValue(std::function<void(sqlite3_stmt*)> action) : TextValue("0"), fAction(std::move(action)) {}
  void BindingOpportunity(sqlite3_stmt* statement) const override { fAction(statement); }

 private:
  std::function<void(sqlite3_stmt*)> fAction;
};

ValuePointer MakeActing(std::function<void(sqlite3_stmt*)> action) { return ValuePointer(new ActingValue(action)); }

// Gives the values of one test numbers from 1 on, and the others theirs.
class OwnParameterNumbers {
 public:
  OwnParameterNumbers() : fOriginal(SQLValueBase::gLastNamedParameterSequence) {
    SQLValueBase::gLastNamedParameterSequence = 0;
  }
  ~OwnParameterNumbers() { SQLValueBase::gLastNamedParameterSequence = fOriginal; }
  OwnParameterNumbers(const OwnParameterNumbers&) = delete;
  OwnParameterNumbers& operator=(const OwnParameterNumbers&) = delete;

 private:
  std::int32_t fOriginal;
};

// An empty table t, and an insert into it without columns and values.
class InsertTest : public support::DatabaseTest {
 protected:
  InsertTest() : fTable(MakeTable("t", {"a", "b"})), fInsert(new SQLInsertClass(*fTable)) {}

  void Fill(const std::string& column, const ValuePointer& value) {
    fInsert->fColumns.push_back(MakeColumn(column));
    fInsert->fValues.push_back(value);
  }
  ValuePointer Bound(std::int64_t value, CallRecorder* recorder = nullptr) {
    return ValuePointer(new BoundInteger(value, recorder));
  }
  // The text of one setup.
  std::string Text() {
    fInsert->SetupInsert();
    return fInsert->fQuery.str();
  }
  std::vector<std::string> Content() { return Rows("SELECT a, b FROM t ORDER BY ROWID"); }

  OwnParameterNumbers fNumbers;
  boost::shared_ptr<SQLTableClass> fTable;
  boost::shared_ptr<SQLInsertClass> fInsert;
};

// What new statements are.

TEST_F(InsertTest, StartsWithItsTableAndVerbAndNothingElse) {
  EXPECT_EQ(&fInsert->fTable, fTable.get());
  EXPECT_EQ(fInsert->fVerb, "INSERT");
  EXPECT_EQ(fInsert->fQuery.str(), "");
  EXPECT_THAT(fInsert->fColumns, IsEmpty());
  EXPECT_THAT(fInsert->fValues, IsEmpty());
}

TEST_F(InsertTest, ReplaceDiffersByItsVerb) {
  const SQLReplaceClass replace(*fTable);
  EXPECT_EQ(&replace.fTable, fTable.get());
  EXPECT_EQ(replace.fVerb, "REPLACE");
  EXPECT_EQ(replace.fQuery.str(), "");
  EXPECT_THAT(replace.fColumns, IsEmpty());
  EXPECT_THAT(replace.fValues, IsEmpty());
}

TEST_F(InsertTest, MembersLieInTheirStatedOrder) {
  // Room for the virtual table and the reference to the table comes first.
  EXPECT_EQ(reinterpret_cast<const char*>(&fInsert->fVerb) - reinterpret_cast<const char*>(fInsert.get()),
            static_cast<std::ptrdiff_t>(2 * sizeof(void*)));
  EXPECT_TRUE(InMemoryOrder(fInsert->fVerb, fInsert->fQuery, fInsert->fColumns, fInsert->fValues));
}

// The text.

TEST_F(InsertTest, ColumnsCarryBlanksAndValuesDoNot) {
  Fill("a", MakeValue(":1"));
  Fill("b", MakeValue(":2"));
  EXPECT_EQ(Text(), "INSERT INTO t ( a, b ) VALUES (:1,:2 )");
}

TEST_F(InsertTest, OneColumnAndValue) {
  Fill("a", MakeValue(":3"));
  EXPECT_EQ(Text(), "INSERT INTO t ( a ) VALUES (:3 )");
}

TEST_F(InsertTest, ReplaceOverTheSameListsHasTheOtherVerb) {
  fInsert.reset(new SQLReplaceClass(*fTable));
  Fill("a", MakeValue(":3"));
  EXPECT_EQ(Text(), "REPLACE INTO t ( a ) VALUES (:3 )");
}

TEST_F(InsertTest, EmptyListsLeaveOneBlankBetweenTheBrackets) { EXPECT_EQ(Text(), "INSERT INTO t ( ) VALUES ( )"); }

TEST_F(InsertTest, TwoBareValuesPrintTheirCommaAlone) {
  fInsert->fValues = {ValuePointer(new SQLValueBase), ValuePointer(new SQLValueBase)};
  EXPECT_EQ(Text(), "INSERT INTO t ( ) VALUES (, )");
}

TEST_F(InsertTest, LiteralsAreWrittenAsTheyPrint) {
  Fill("a", MakeValue("1 + 2"));
  Fill("b", MakeValue("'x'"));
  EXPECT_EQ(Text(), "INSERT INTO t ( a, b ) VALUES (1 + 2,'x' )");
}

TEST_F(InsertTest, ListsOfDifferentLengthsArePrintedAsTheyAre) {
  Fill("a", MakeValue("1"));
  fInsert->fColumns.push_back(MakeColumn("b"));
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(false); }), "1 values for 2 columns");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'INSERT INTO t ( a, b ) VALUES (1 )' = 1", "errmsg"));
}

TEST_F(InsertTest, EmptyListsAreRefusedBySQLite) {
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(false); }), "near \")\": syntax error");
}

TEST_F(InsertTest, VerbIsReadWhenTheTextIsBuilt) {
  fInsert->fVerb = "INSERT OR IGNORE";
  Fill("a", MakeValue("1"));
  EXPECT_EQ(Text(), "INSERT OR IGNORE INTO t ( a ) VALUES (1 )");
}

TEST_F(InsertTest, SetupSendsNothing) {
  Fill("a", MakeValue("1"));
  CallRecorder recorder;
  fInsert->SetupInsert();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(InsertTest, SecondSetupAppendsToTheFirst) {
  Fill("a", MakeValue("1"));
  fInsert->SetupInsert();
  fInsert->fValues = {MakeValue("2")};
  EXPECT_EQ(Text(), "INSERT INTO t ( a ) VALUES (1 )INSERT INTO t ( a ) VALUES (2 )");
}

TEST_F(InsertTest, WhatTheApplicationWritesToTheStreamStaysInFrontOfTheText) {
  Fill("a", MakeValue("1"));
  fInsert->SetupInsert();
  fInsert->fQuery << "; ";
  EXPECT_EQ(Text(), "INSERT INTO t ( a ) VALUES (1 ); INSERT INTO t ( a ) VALUES (1 )");
}

// Sending.

TEST_F(InsertTest, BindsBetweenCompilingAndStepping) {
  CallRecorder recorder;
  Fill("a", Bound(10, &recorder));
  Fill("b", Bound(20, &recorder));
  fInsert->PerformInsert(false);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'INSERT INTO t ( a, b ) VALUES (:1,:2 )' = 0", "note bind :1",
                                            "note bind :2", "step = 101", "finalize = 0"));
  EXPECT_THAT(Content(), ElementsAre("10|20"));
}

TEST_F(InsertTest, BindsInListOrderOncePerExecution) {
  CallRecorder recorder;
  const auto first = Bound(10, &recorder);
  const auto second = Bound(20, &recorder);
  Fill("a", second);
  Fill("b", first);
  fInsert->PerformInsert(false);
  fInsert->PerformInsert(false);
  const auto notes = recorder.CallsOf("note");
  ASSERT_THAT(notes, SizeIs(4));
  EXPECT_EQ(notes[0].text + notes[1].text + notes[2].text + notes[3].text, "bind :2bind :1bind :2bind :1");
  EXPECT_THAT(Content(), ElementsAre("20|10", "20|10"));
}

TEST_F(InsertTest, EveryValueIsOfferedItsBindingAlsoOneThatPrintsALiteral) {
  int offered = 0;
  Fill("a", MakeActing([&](sqlite3_stmt*) { ++offered; }));
  Fill("b", MakeActing([&](sqlite3_stmt*) { ++offered; }));
  fInsert->PerformInsert(false);
  EXPECT_EQ(offered, 2);
}

TEST_F(InsertTest, OffersTheCompiledStatement) {
  sqlite3_stmt* offered = nullptr;
  Fill("a", MakeActing([&](sqlite3_stmt* statement) { offered = statement; }));
  CallRecorder recorder;
  fInsert->PerformInsert(false);
  EXPECT_EQ(offered, recorder.CallsOf("step").at(0).handle);
}

TEST_F(InsertTest, SharedValueIsBoundInEachStatement) {
  const auto shared = Bound(10);
  Fill("a", shared);
  fInsert->PerformInsert(false);
  SQLReplaceClass replace(*fTable);
  replace.fColumns = {MakeColumn("b")};
  replace.fValues = {shared};
  replace.PerformReplace(false);
  EXPECT_THAT(Content(), ElementsAre("10|NULL", "NULL|10"));
}

TEST_F(InsertTest, StreamIsEmptyAfterASend) {
  Fill("a", MakeValue("1"));
  fInsert->PerformInsert(false);
  EXPECT_EQ(fInsert->fQuery.str(), "");
  fInsert->fQuery << "x";
  EXPECT_EQ(fInsert->fQuery.str(), "x");
}

TEST_F(InsertTest, StreamHoldsTheTextWhileItIsSent) {
  std::string during;
  Fill("a", MakeActing([&](sqlite3_stmt*) { during = fInsert->fQuery.str(); }));
  fInsert->PerformInsert(false);
  EXPECT_EQ(during, "INSERT INTO t ( a ) VALUES (0 )");
}

TEST_F(InsertTest, ClearingEmptiesTheValuesAndKeepsTheColumns) {
  Fill("a", MakeValue("1"));
  const auto columns = fInsert->fColumns;
  fInsert->PerformInsert(true);
  EXPECT_THAT(fInsert->fValues, IsEmpty());
  EXPECT_EQ(fInsert->fColumns, columns);
}

TEST_F(InsertTest, NotClearingKeepsBothAndTheNextSendHasTheSameText) {
  Fill("a", MakeValue("1"));
  const auto columns = fInsert->fColumns;
  const auto values = fInsert->fValues;
  CallRecorder recorder;
  fInsert->PerformInsert(false);
  EXPECT_EQ(fInsert->fColumns, columns);
  EXPECT_EQ(fInsert->fValues, values);
  fInsert->PerformInsert(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO t ( a ) VALUES (1 )", "INSERT INTO t ( a ) VALUES (1 )"));
}

TEST_F(InsertTest, ClearedStatementServesForTheNextRow) {
  Fill("a", Bound(1));
  fInsert->PerformInsert(true);
  fInsert->fValues.push_back(Bound(2));
  fInsert->PerformInsert(true);
  EXPECT_THAT(Content(), ElementsAre("1|NULL", "2|NULL"));
}

TEST_F(InsertTest, NeverWaitsForABusyFile) {
  Fill("a", MakeValue("1"));
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(false); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'INSERT INTO t ( a ) VALUES (1 )' = 0", "step = 5", "errmsg"));
  other.Run("ROLLBACK");
}

// Replacing.

class ReplaceTest : public InsertTest {
 protected:
  ReplaceTest() : fReplace(new SQLReplaceClass(*fTable)) {
    fInsert = fReplace;
    Rows("CREATE UNIQUE INDEX t_a ON t (a); INSERT INTO t VALUES (1, 10), (2, 20)");
    Fill("a", Bound(1));
    Fill("b", Bound(99));
  }

  boost::shared_ptr<SQLReplaceClass> fReplace;
};

TEST_F(ReplaceTest, ReplacesTheRowThatCollides) {
  fReplace->PerformReplace(false);
  EXPECT_THAT(Rows("SELECT a, b FROM t ORDER BY a"), ElementsAre("1|99", "2|20"));
}

TEST_F(ReplaceTest, InsertWouldHaveFailed) {
  fReplace->fVerb = "INSERT";
  EXPECT_EQ(MessageOf([&] { fReplace->PerformReplace(false); }), support::LogicError());
}

TEST_F(ReplaceTest, RunsTheStepsOfAnInsert) {
  CallRecorder recorder;
  fReplace->PerformReplace(true);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'REPLACE INTO t ( a, b ) VALUES (:1,:2 )' = 0", "step = 101", "finalize = 0"));
  EXPECT_EQ(fReplace->fQuery.str(), "");
  EXPECT_THAT(fReplace->fValues, IsEmpty());
  EXPECT_THAT(fReplace->fColumns, SizeIs(2));
}

TEST_F(ReplaceTest, PerformInsertReplacesToo) {
  fReplace->PerformInsert(false);
  EXPECT_THAT(fReplace->fValues, SizeIs(2));
  EXPECT_THAT(Rows("SELECT a, b FROM t ORDER BY a"), ElementsAre("1|99", "2|20"));
}

TEST_F(ReplaceTest, FailureKeepsTextAndValues) {
  fReplace->fColumns[0] = MakeColumn("missing");
  EXPECT_EQ(MessageOf([&] { fReplace->PerformReplace(true); }), "table t has no column named missing");
  EXPECT_EQ(fReplace->fQuery.str(), "REPLACE INTO t ( missing, b ) VALUES (:1,:2 )");
  EXPECT_THAT(fReplace->fValues, SizeIs(2));
}

// After a failed send.

TEST_F(InsertTest, FailureKeepsTextAndValuesThoughTheyWereToBeCleared) {
  Fill("missing", MakeValue("1"));
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(true); }), "table t has no column named missing");
  EXPECT_EQ(fInsert->fQuery.str(), "INSERT INTO t ( missing ) VALUES (1 )");
  EXPECT_THAT(fInsert->fValues, SizeIs(1));
}

TEST_F(InsertTest, NextSendCarriesTheFailedTextInFront) {
  Fill("a", MakeValue("1"));
  CallRecorder recorder;
  recorder.Force("step", SQLITE_IOERR);
  EXPECT_THROW(fInsert->PerformInsert(false), std::runtime_error);
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(false); }), "near \"INSERT\": syntax error");
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO t ( a ) VALUES (1 )",
                                          "INSERT INTO t ( a ) VALUES (1 )INSERT INTO t ( a ) VALUES (1 )"));
  EXPECT_THAT(Content(), IsEmpty());
}

TEST_F(InsertTest, FailedStatementClosedByASemicolonRunsAgainBeforeTheNext) {
  CallRecorder recorder;
  Fill("a", Bound(1, &recorder));
  recorder.Force("step", SQLITE_IOERR);
  EXPECT_THROW(fInsert->PerformInsert(false), std::runtime_error);
  fInsert->fQuery << ";";
  fInsert->fValues = {Bound(2, &recorder)};
  recorder.Clear();
  fInsert->PerformInsert(false);
  // The list of now is offered to both statements, and the earlier one's parameter stays unbound.
  EXPECT_THAT(
      recorder.Lines(),
      ElementsAre("prepare 'INSERT INTO t ( a ) VALUES (:1 );INSERT INTO t ( a ) VALUES (:2 )' = 0", "note bind :2",
                  "step = 101", "finalize = 0", "prepare 'INSERT INTO t ( a ) VALUES (:2 )' = 0", "note bind :2",
                  "step = 101", "finalize = 0"));
  EXPECT_THAT(Content(), ElementsAre("NULL|NULL", "2|NULL"));
  EXPECT_EQ(fInsert->fQuery.str(), "");
}

TEST_F(InsertTest, EmptyingTheStreamGivesTheFailedStatementUp) {
  Fill("missing", MakeValue("1"));
  EXPECT_THROW(fInsert->PerformInsert(false), std::runtime_error);
  fInsert->fQuery.str("");
  fInsert->fColumns = {MakeColumn("a")};
  CallRecorder recorder;
  fInsert->PerformInsert(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO t ( a ) VALUES (1 )"));
}

TEST_F(InsertTest, WhatBindingThrowsPassesThroughAndNothingRuns) {
  Fill("a", MakeActing([](sqlite3_stmt*) { throw OwnFailure(); }));
  bool second = false;
  Fill("b", MakeActing([&](sqlite3_stmt*) { second = true; }));
  CallRecorder recorder;
  EXPECT_THROW(fInsert->PerformInsert(true), OwnFailure);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'INSERT INTO t ( a, b ) VALUES (0,0 )' = 0"));
  EXPECT_FALSE(second);
  EXPECT_THAT(fInsert->fValues, SizeIs(2));
  EXPECT_EQ(fInsert->fQuery.str(), "INSERT INTO t ( a, b ) VALUES (0,0 )");
}

TEST_F(InsertTest, CopyOfTheListIsReleasedAsAnExceptionPasses) {
  const auto value = MakeActing([](sqlite3_stmt*) { throw OwnFailure(); });
  Fill("a", value);
  EXPECT_THROW(fInsert->PerformInsert(true), OwnFailure);
  EXPECT_EQ(value.use_count(), 2);
}

// The binding callback and the function objects.

TEST_F(InsertTest, BindingCodeMayClearTheListDuringTheWalk) {
  int offered = 0;
  const auto action = [&](sqlite3_stmt*) {
    fInsert->fValues.clear();
    fInsert->fValues.shrink_to_fit();
    ++offered;
  };
  // No other owner: only the walk keeps them alive.
  Fill("a", MakeActing(action));
  Fill("b", MakeActing(action));
  fInsert->PerformInsert(false);
  EXPECT_EQ(offered, 2);
  EXPECT_THAT(fInsert->fValues, IsEmpty());
  EXPECT_THAT(Content(), ElementsAre("0|0"));
}

TEST_F(InsertTest, ValuesAddedDuringTheWalkAreNotOfferedTheStatement) {
  bool offered = false;
  Fill("a", MakeActing([&](sqlite3_stmt*) {
         fInsert->fValues.push_back(MakeActing([&](sqlite3_stmt*) { offered = true; }));
       }));
  fInsert->PerformInsert(false);
  EXPECT_FALSE(offered);
  EXPECT_THAT(fInsert->fValues, SizeIs(2));
}

TEST_F(InsertTest, BindingCallbackPresentsNullStatementsToo) {
  std::vector<sqlite3_stmt*> offered;
  Fill("a", MakeActing([&](sqlite3_stmt* statement) { offered.push_back(statement); }));
  Fill("b", MakeActing([&](sqlite3_stmt* statement) { offered.push_back(statement); }));
  const SQLInsertBindingCallback callback(fInsert.get());
  EXPECT_EQ(callback.fInsert, fInsert.get());
  callback.BindingOpportunity(nullptr);
  EXPECT_THAT(offered, ElementsAre(nullptr, nullptr));
}

TEST(AddValueToQueryTest, WritesACommaBeforeAllButTheFirst) {
  std::ostringstream stream;
  AddValueToQuery add(&stream);
  EXPECT_EQ(add.fStream, &stream);
  EXPECT_TRUE(add.fFirst);
  add(MakeValue(":1"));
  EXPECT_EQ(stream.str(), ":1");
  EXPECT_FALSE(add.fFirst);
  add(MakeValue("2"));
  add(MakeValue("'x'"));
  EXPECT_EQ(stream.str(), ":1,2,'x'");
}

TEST(AddValueToQueryTest, ClearsTheFlagOnlyAfterPrinting) {
  class ThrowingValue : public SQLValueBase {
   public:
    std::ostream& Print(std::ostream&) const override { throw OwnFailure(); }
  };
  std::ostringstream stream;
  AddValueToQuery add(&stream);
  EXPECT_THROW(add(ValuePointer(new ThrowingValue)), OwnFailure);
  EXPECT_TRUE(add.fFirst);
}

TEST(PresentBindingOpportunityTest, OffersItsStatementToEachValue) {
  std::vector<sqlite3_stmt*> offered;
  auto* const statement = reinterpret_cast<sqlite3_stmt*>(&offered);
  const PresentBindingOpportunity present(statement);
  EXPECT_EQ(present.fStatement, statement);
  present(MakeActing([&](sqlite3_stmt* given) { offered.push_back(given); }));
  EXPECT_THAT(offered, ElementsAre(statement));
}

// Destruction.

TEST_F(InsertTest, LeavesTheTablesListWhenDestroyed) {
  fTable->fInserts.push_back(boost::shared_ptr<SQLInsertClass>(fInsert.get(), DoNotDelete<SQLInsertClass>));
  fInsert.reset();
  EXPECT_THAT(fTable->fInserts, IsEmpty());
}

TEST_F(InsertTest, ReplaceLeavesTheTablesListWhenDestroyed) {
  fInsert.reset(new SQLReplaceClass(*fTable));
  fTable->fInserts.push_back(boost::shared_ptr<SQLInsertClass>(fInsert.get(), DoNotDelete<SQLInsertClass>));
  fInsert.reset();
  EXPECT_THAT(fTable->fInserts, IsEmpty());
}

// Part of a locale, which goes with the last stream that carries the locale.
class WitnessFacet : public std::locale::facet {
 public:
  static std::locale::id id;

  explicit WitnessFacet(std::function<void()> atDestruction) : fAtDestruction(std::move(atDestruction)) {}
  ~WitnessFacet() override { fAtDestruction(); }

 private:
  std::function<void()> fAtDestruction;
};

std::locale::id WitnessFacet::id;

TEST_F(InsertTest, LeavesTheListThenReleasesValuesColumnsAndStream) {
  std::vector<std::string> notes;
  const auto note = [&](const std::string& name) {
    return [&notes, name, this] { notes.push_back(name + (fTable->fInserts.empty() ? "" : " while listed")); };
  };
  fTable->fInserts.push_back(boost::shared_ptr<SQLInsertClass>(fInsert.get(), DoNotDelete<SQLInsertClass>));
  fInsert->fColumns.emplace_back(
      new Witness<SQLColumnBase>(note("column"), nullptr, "a", "INTEGER", 4u, true, false, false, ""));
  fInsert->fValues.emplace_back(new Witness<TextValue>(note("value"), "1"));
  fInsert->fQuery.imbue(std::locale(std::locale::classic(), new WitnessFacet(note("stream"))));
  fInsert.reset();
  EXPECT_THAT(notes, ElementsAre("value", "column", "stream"));
}

// Inserts that outlive what they hang on.

TEST_F(InsertTest, OrphanOfATableThrowsAndIsDestroyedQuietly) {
  boost::shared_ptr<SQLTableClass> table(new SQLTableClass(fDatabase, "t"));
  fInsert = table->NewInsert();
  Fill("a", MakeValue("1"));
  table.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fInsert->SetupInsert(); }), "Condition is not met.");
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(true); }), "Condition is not met.");
  EXPECT_EQ(fInsert->fQuery.str(), "");
  EXPECT_THAT(fInsert->fValues, SizeIs(1));
  fInsert.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(InsertTest, OrphanedReplaceThrowsAndIsDestroyedQuietly) {
  boost::shared_ptr<SQLTableClass> table(new SQLTableClass(fDatabase, "t"));
  auto replace = table->NewReplace();
  table.reset();
  EXPECT_EQ(MessageOf([&] { replace->PerformReplace(false); }), "Condition is not met.");
  CallRecorder recorder;
  replace.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(InsertTest, OrphanOfADatabaseThrowsWhenSentAndIsDestroyedQuietly) {
  boost::shared_ptr<SQLTableClass> table;
  {
    sqldb::SQLDatabase database(DatabasePath(), false);
    database.Open();
    table = database.NewTable("t");
  }
  fInsert = table->NewInsert();
  Fill("a", MakeValue("1"));
  EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(true); }), "Condition is not met.");
  EXPECT_THAT(fInsert->fValues, SizeIs(1));
  CallRecorder recorder;
  fInsert.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(Content(), IsEmpty());
}

}  // namespace
