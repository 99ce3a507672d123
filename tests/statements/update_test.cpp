#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "support/engine.h"
#include "support/fixtures.h"
#include "support/layout.h"
#include "support/witness.h"

using sqldb::SQLColumnBase;
using sqldb::SQLTermBase;
using sqldb::SQLUpdateClass;
using sqldb::SQLValueBase;
using support::BoundInteger;
using support::CallRecorder;
using support::DoNotDelete;
using support::InMemoryOrder;
using support::MakeColumn;
using support::MakeTerm;
using support::MakeValue;
using support::MessageOf;
using support::TextTerm;
using support::TextValue;
using support::Witness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

static_assert(!std::is_polymorphic_v<SQLUpdateClass>);
static_assert(!std::is_copy_constructible_v<SQLUpdateClass> && !std::is_copy_assignable_v<SQLUpdateClass>);
static_assert(std::is_constructible_v<SQLUpdateClass, sqldb::SQLTableClass&>);
static_assert(std::is_same_v<decltype(SQLUpdateClass::fTable), sqldb::SQLTableClass&>);
static_assert(std::is_same_v<decltype(SQLUpdateClass::fColumns), std::vector<boost::shared_ptr<SQLColumnBase>>>);
static_assert(std::is_same_v<decltype(SQLUpdateClass::fValues), std::vector<boost::shared_ptr<SQLValueBase>>>);
static_assert(std::is_same_v<decltype(SQLUpdateClass::fTerm), boost::shared_ptr<SQLTermBase>>);
static_assert(std::is_same_v<decltype(&SQLUpdateClass::PerformUpdate), void (SQLUpdateClass::*)(bool)>);

namespace {

// A table t with two rows, and an update of it.
class UpdateTest : public support::DatabaseTest {
 protected:
  UpdateTest() : fTable(MakeTable("t", {"a", "b"})), fUpdate(new SQLUpdateClass(*fTable)) {
    Rows("INSERT INTO t VALUES (1, 2), (5, 6)");
  }

  void Set(const std::string& column, const std::string& value) {
    fUpdate->fColumns.push_back(MakeColumn(column));
    fUpdate->fValues.push_back(MakeValue(value));
  }
  // The text that reaches SQLite.
  std::string Sent() {
    CallRecorder recorder;
    fUpdate->PerformUpdate(false);
    return recorder.Sql().at(0);
  }
  std::vector<std::string> Content() { return Rows("SELECT a, b FROM t ORDER BY ROWID"); }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<SQLUpdateClass> fUpdate;
};

TEST_F(UpdateTest, StartsWithItsTableAndNothingElse) {
  EXPECT_EQ(&fUpdate->fTable, fTable.get());
  EXPECT_THAT(fUpdate->fColumns, IsEmpty());
  EXPECT_THAT(fUpdate->fValues, IsEmpty());
  EXPECT_FALSE(fUpdate->fTerm);
}

TEST_F(UpdateTest, MembersLieInTheirStatedOrder) {
  // Room for the reference to the table comes first.
  EXPECT_EQ(reinterpret_cast<const char*>(&fUpdate->fColumns) - reinterpret_cast<const char*>(fUpdate.get()),
            static_cast<std::ptrdiff_t>(sizeof(void*)));
  EXPECT_TRUE(InMemoryOrder(fUpdate->fColumns, fUpdate->fValues, fUpdate->fTerm));
}

TEST_F(UpdateTest, TwoBlanksFollowTheEqualsSign) {
  Set("a", "1");
  Set("b", "'x'");
  fUpdate->fTerm = MakeTerm(" ROWID = 5");
  CallRecorder recorder;
  fUpdate->PerformUpdate(false);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'UPDATE t SET a =  1, b =  'x' WHERE ROWID = 5' = 0", "step = 101", "finalize = 0"));
}

TEST_F(UpdateTest, ChangesTheRowsForWhichTheTermHolds) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  fUpdate->PerformUpdate(false);
  EXPECT_THAT(Content(), ElementsAre("7|2", "5|6"));
}

TEST_F(UpdateTest, ValueMayBeAnyExpression) {
  Set("a", "a + b");
  fUpdate->fTerm = MakeTerm(" 1");
  fUpdate->PerformUpdate(false);
  EXPECT_THAT(Content(), ElementsAre("3|2", "11|6"));
}

TEST_F(UpdateTest, ParameterIsSentUnboundAndReadAsNull) {
  Set("a", ":4");
  fUpdate->fTerm = MakeTerm(" b = 2");
  EXPECT_EQ(Sent(), "UPDATE t SET a =  :4 WHERE b = 2");
  EXPECT_THAT(Content(), ElementsAre("NULL|2", "5|6"));
}

TEST_F(UpdateTest, ValuesAreNeverOfferedABinding) {
  const auto sequence = SQLValueBase::gLastNamedParameterSequence;
  CallRecorder recorder;
  fUpdate->fColumns.push_back(MakeColumn("a"));
  fUpdate->fValues.push_back(boost::shared_ptr<SQLValueBase>(new BoundInteger(9, &recorder)));
  SQLValueBase::gLastNamedParameterSequence = sequence;
  fUpdate->fTerm = MakeTerm(" b = 2");
  fUpdate->PerformUpdate(false);
  EXPECT_EQ(recorder.Count("note"), 0u);
  EXPECT_THAT(Content(), ElementsAre("NULL|2", "5|6"));
}

TEST_F(UpdateTest, TermThatPrintsNothingLeavesADanglingWhereWhichSQLiteRefuses) {
  Set("a", "7");
  fUpdate->fTerm = sqldb::SQLEmptyTerm::EmptyTerm;
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(false); }), support::IncompleteInput("WHERE"));
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'UPDATE t SET a =  7 WHERE' = 1", "errmsg"));
  EXPECT_THAT(Content(), ElementsAre("1|2", "5|6"));
}

TEST_F(UpdateTest, TermIsPrintedWithoutBeingAskedWhetherItIsEmpty) {
  Set("a", "7");
  const boost::shared_ptr<TextTerm> term(new TextTerm(" b = 2", false));
  fUpdate->fTerm = term;
  EXPECT_EQ(Sent(), "UPDATE t SET a =  7 WHERE b = 2");
  EXPECT_EQ(term->fAsked, 0);
}

TEST_F(UpdateTest, AlwaysTrueTermChangesEveryRow) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" 1 = 1");
  fUpdate->PerformUpdate(false);
  EXPECT_THAT(Content(), ElementsAre("7|2", "7|6"));
}

TEST_F(UpdateTest, NoColumnsGiveATextThatSQLiteRefuses) {
  fUpdate->fTerm = MakeTerm(" b = 2");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(false); }), "near \"WHERE\": syntax error");
  EXPECT_THAT(recorder.Sql(), ElementsAre("UPDATE t SET WHERE b = 2"));
}

TEST_F(UpdateTest, ValuesBeyondTheColumnsAreNotPrinted) {
  Set("a", "7");
  fUpdate->fValues.push_back(MakeValue("8"));
  fUpdate->fTerm = MakeTerm(" b = 2");
  EXPECT_EQ(Sent(), "UPDATE t SET a =  7 WHERE b = 2");
}

TEST_F(UpdateTest, ClearingEmptiesTheValuesAndKeepsTheRest) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  const auto columns = fUpdate->fColumns;
  const auto term = fUpdate->fTerm;
  fUpdate->PerformUpdate(true);
  EXPECT_THAT(fUpdate->fValues, IsEmpty());
  EXPECT_EQ(fUpdate->fColumns, columns);
  EXPECT_EQ(fUpdate->fTerm, term);
}

TEST_F(UpdateTest, NotClearingKeepsEverything) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  const auto columns = fUpdate->fColumns;
  const auto values = fUpdate->fValues;
  const auto term = fUpdate->fTerm;
  fUpdate->PerformUpdate(false);
  EXPECT_EQ(fUpdate->fColumns, columns);
  EXPECT_EQ(fUpdate->fValues, values);
  EXPECT_EQ(fUpdate->fTerm, term);
}

TEST_F(UpdateTest, SecondRunSendsTheSameTextAgain) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  CallRecorder recorder;
  fUpdate->PerformUpdate(false);
  fUpdate->PerformUpdate(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("UPDATE t SET a =  7 WHERE b = 2", "UPDATE t SET a =  7 WHERE b = 2"));
}

TEST_F(UpdateTest, ClearedStatementServesForTheNextValues) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  fUpdate->PerformUpdate(true);
  fUpdate->fValues.push_back(MakeValue("8"));
  fUpdate->fTerm = MakeTerm(" b = 6");
  fUpdate->PerformUpdate(true);
  EXPECT_THAT(Content(), ElementsAre("7|2", "8|6"));
}

TEST_F(UpdateTest, FailureKeepsTheValuesThoughTheyWereToBeCleared) {
  Set("missing", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(true); }), "no such column: missing");
  EXPECT_THAT(fUpdate->fValues, SizeIs(1));
}

TEST_F(UpdateTest, FailureLeavesNoTextBehind) {
  Set("missing", "7");
  fUpdate->fTerm = MakeTerm(" b = 2");
  EXPECT_THROW(fUpdate->PerformUpdate(false), std::runtime_error);
  fUpdate->fColumns = {MakeColumn("a")};
  EXPECT_EQ(Sent(), "UPDATE t SET a =  7 WHERE b = 2");
}

TEST_F(UpdateTest, NeverWaitsForABusyFile) {
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" 1");
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(true); }), "database is locked");
  EXPECT_EQ(recorder.Count("usleep"), 0u);
  EXPECT_THAT(fUpdate->fValues, SizeIs(1));
  other.Run("ROLLBACK");
}

TEST_F(UpdateTest, LeavesTheTablesListWhenDestroyed) {
  fTable->fUpdates.push_back(boost::shared_ptr<SQLUpdateClass>(fUpdate.get(), DoNotDelete<SQLUpdateClass>));
  fUpdate.reset();
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
}

TEST_F(UpdateTest, LeavesTheListThenReleasesTermValuesAndColumns) {
  std::vector<std::string> notes;
  const auto note = [&](const std::string& name) {
    return [&notes, name, this] { notes.push_back(name + (fTable->fUpdates.empty() ? "" : " while listed")); };
  };
  fTable->fUpdates.push_back(boost::shared_ptr<SQLUpdateClass>(fUpdate.get(), DoNotDelete<SQLUpdateClass>));
  fUpdate->fColumns.emplace_back(
      new Witness<SQLColumnBase>(note("column"), nullptr, "a", "INTEGER", 4u, true, false, false, ""));
  fUpdate->fValues.emplace_back(new Witness<TextValue>(note("value"), "1"));
  fUpdate->fTerm.reset(new Witness<TextTerm>(note("term"), " 1"));
  fUpdate.reset();
  EXPECT_THAT(notes, ElementsAre("term", "value", "column"));
}

TEST_F(UpdateTest, OrphanOfATableThrowsAndIsDestroyedQuietly) {
  boost::shared_ptr<sqldb::SQLTableClass> table(new sqldb::SQLTableClass(fDatabase, "t"));
  fUpdate = table->NewUpdate();
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" 1");
  table.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(true); }), "Condition is not met.");
  EXPECT_THAT(fUpdate->fValues, SizeIs(1));
  fUpdate.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(UpdateTest, OrphanOfADatabaseThrowsAndIsDestroyedQuietly) {
  boost::shared_ptr<sqldb::SQLTableClass> table;
  {
    sqldb::SQLDatabase database(DatabasePath(), false);
    database.Open();
    table = database.NewTable("t");
  }
  fUpdate = table->NewUpdate();
  Set("a", "7");
  fUpdate->fTerm = MakeTerm(" 1");
  EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(true); }), "Condition is not met.");
  EXPECT_THAT(fUpdate->fValues, SizeIs(1));
  fUpdate.reset();
  EXPECT_THAT(Content(), ElementsAre("1|2", "5|6"));
}

}  // namespace
