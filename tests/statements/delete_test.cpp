#include <string>
#include <type_traits>
#include <vector>

#include "support/engine.h"
#include "support/fixtures.h"
#include "support/layout.h"
#include "support/witness.h"

using sqldb::SQLDeleteClass;
using sqldb::SQLEmptyTerm;
using sqldb::SQLTermBase;
using support::CallRecorder;
using support::InMemoryOrder;
using support::MakeTerm;
using support::MessageOf;
using support::SilentTerm;
using support::TextTerm;
using support::Witness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(!std::is_polymorphic_v<SQLDeleteClass>);
static_assert(!std::is_copy_constructible_v<SQLDeleteClass> && !std::is_copy_assignable_v<SQLDeleteClass>);
static_assert(std::is_constructible_v<SQLDeleteClass, sqldb::SQLDatabase*, sqldb::SQLTableClass&,
                                      boost::shared_ptr<SQLTermBase>>);
static_assert(std::is_same_v<decltype(SQLDeleteClass::fDatabase), sqldb::SQLDatabase*>);
static_assert(std::is_same_v<decltype(SQLDeleteClass::fTable), sqldb::SQLTableClass*>);
static_assert(std::is_same_v<decltype(SQLDeleteClass::fTerm), boost::shared_ptr<SQLTermBase>>);
static_assert(std::is_same_v<decltype(SQLDeleteClass::fQuery), std::string>);
static_assert(std::is_same_v<decltype(&SQLDeleteClass::SetUpDelete), void (SQLDeleteClass::*)()>);
static_assert(std::is_same_v<decltype(&SQLDeleteClass::PerformDelete), void (SQLDeleteClass::*)()>);

namespace {

// A table t with three rows.
class DeleteTest : public support::DatabaseTest {
 protected:
  DeleteTest() : fTable(MakeTable("t", {"a", "x"})) { Rows("INSERT INTO t VALUES (1, 1), (2, 1), (3, 2)"); }

  boost::shared_ptr<SQLDeleteClass> MakeDelete(const boost::shared_ptr<SQLTermBase>& term) {
    return boost::shared_ptr<SQLDeleteClass>(new SQLDeleteClass(&fDatabase, *fTable, term));
  }
  std::string TextWith(const boost::shared_ptr<SQLTermBase>& term) {
    const auto statement = MakeDelete(term);
    statement->SetUpDelete();
    return statement->fQuery;
  }
  std::vector<std::string> Left() { return Rows("SELECT a FROM t ORDER BY a"); }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
};

TEST_F(DeleteTest, StoresItsArgumentsAndNoText) {
  const auto term = MakeTerm(" a = 1");
  const SQLDeleteClass statement(&fDatabase, *fTable, term);
  EXPECT_EQ(statement.fDatabase, &fDatabase);
  EXPECT_EQ(statement.fTable, fTable.get());
  EXPECT_EQ(statement.fTerm, term);
  EXPECT_EQ(statement.fQuery, "");
}

TEST_F(DeleteTest, MembersLieInTheirStatedOrder) {
  const SQLDeleteClass statement(&fDatabase, *fTable, nullptr);
  EXPECT_TRUE(InMemoryOrder(statement.fDatabase, statement.fTable, statement.fTerm, statement.fQuery));
}

TEST_F(DeleteTest, ConstructionValidatesNothingAndIsFiledNowhere) {
  const SQLDeleteClass statement(nullptr, *fTable, nullptr);
  EXPECT_EQ(statement.fDatabase, nullptr);
  EXPECT_FALSE(statement.fTerm);
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
}

TEST_F(DeleteTest, NullTermDeletesEveryRow) {
  const auto statement = MakeDelete(nullptr);
  CallRecorder recorder;
  statement->PerformDelete();
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'DELETE FROM t' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DeleteTest, EmptyTermDeletesEveryRow) {
  const auto statement = MakeDelete(SQLEmptyTerm::EmptyTerm);
  CallRecorder recorder;
  statement->PerformDelete();
  EXPECT_THAT(recorder.Sql(), ElementsAre("DELETE FROM t"));
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DeleteTest, TermFollowsWhereWithItsOwnBlank) {
  EXPECT_EQ(TextWith(MakeTerm(" x = :1")), "DELETE FROM t WHERE x = :1");
}

TEST_F(DeleteTest, TermWithoutItsBlankIsNotMended) {
  EXPECT_EQ(TextWith(MakeTerm("x = 1")), "DELETE FROM t WHEREx = 1");
}

TEST_F(DeleteTest, TermIsAskedOnceWhetherItIsEmpty) {
  const boost::shared_ptr<TextTerm> term(new TextTerm(" x = 1"));
  TextWith(term);
  EXPECT_EQ(term->fAsked, 1);
}

TEST_F(DeleteTest, TermThatSaysItIsEmptyIsNotPrintedAndEveryRowGoes) {
  const auto statement = MakeDelete(boost::shared_ptr<SQLTermBase>(new TextTerm(" a = 1", false)));
  statement->PerformDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t");
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DeleteTest, TermThatInheritsNotEmptyIsNotPrinted) {
  EXPECT_EQ(TextWith(boost::shared_ptr<SQLTermBase>(new SilentTerm)), "DELETE FROM t");
}

TEST_F(DeleteTest, TermThatPrintsNothingLeavesADanglingWhereWhichSQLiteRefuses) {
  const auto statement = MakeDelete(MakeTerm(""));
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), support::IncompleteInput("WHERE"));
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE");
  EXPECT_THAT(Left(), ElementsAre("1", "2", "3"));
}

TEST_F(DeleteTest, DeletesTheRowsForWhichTheTermHolds) {
  MakeDelete(MakeTerm(" x = 1"))->PerformDelete();
  EXPECT_THAT(Left(), ElementsAre("3"));
}

TEST_F(DeleteTest, SecondRunSendsTheSameTextAgain) {
  const auto statement = MakeDelete(MakeTerm(" x = 1"));
  CallRecorder recorder;
  statement->PerformDelete();
  statement->PerformDelete();
  EXPECT_THAT(recorder.Sql(), ElementsAre("DELETE FROM t WHERE x = 1", "DELETE FROM t WHERE x = 1"));
  EXPECT_THAT(Left(), ElementsAre("3"));
}

TEST_F(DeleteTest, SetUpAloneSendsNothing) {
  const auto statement = MakeDelete(nullptr);
  CallRecorder recorder;
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DeleteTest, EverySetUpReplacesTheTextWithOneFromTheCurrentMembers) {
  const auto statement = MakeDelete(MakeTerm(" x = 1"));
  statement->SetUpDelete();
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE x = 1");
  statement->fTerm = MakeTerm(" a = 2");
  fTable->fName = "renamed";
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM renamed WHERE a = 2");
}

TEST_F(DeleteTest, PerformIgnoresATextAssignedByHand) {
  const auto statement = MakeDelete(MakeTerm(" a = 3"));
  statement->fQuery = "DELETE FROM t";
  statement->PerformDelete();
  EXPECT_THAT(Left(), ElementsAre("1", "2"));
}

TEST_F(DeleteTest, ParameterOfATermStaysUnboundAndMatchesNothing) {
  MakeDelete(MakeTerm(" x = :1"))->PerformDelete();
  EXPECT_THAT(Left(), ElementsAre("1", "2", "3"));
}

TEST_F(DeleteTest, TextThatSQLiteRefusesIsThrownWithSQLitesMessage) {
  const auto statement = MakeDelete(MakeTerm(" missing = 1"));
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), "no such column: missing");
  EXPECT_THAT(Left(), ElementsAre("1", "2", "3"));
}

TEST_F(DeleteTest, WorksAgainAfterAFailure) {
  const auto statement = MakeDelete(MakeTerm(" missing = 1"));
  EXPECT_THROW(statement->PerformDelete(), std::runtime_error);
  statement->fTerm = MakeTerm(" a = 1");
  statement->PerformDelete();
  EXPECT_THAT(Left(), ElementsAre("2", "3"));
}

TEST_F(DeleteTest, NeverWaitsForABusyFile) {
  const auto statement = MakeDelete(nullptr);
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'DELETE FROM t' = 0", "step = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(DeleteTest, SharesItsTermAndLetsGoOfItWhenDestroyed) {
  std::vector<std::string> notes;
  boost::shared_ptr<SQLTermBase> term(new Witness<TextTerm>([&] { notes.push_back("term"); }, " a = 1"));
  auto statement = MakeDelete(term);
  EXPECT_EQ(statement->fTerm.get(), term.get());
  term.reset();
  EXPECT_THAT(notes, IsEmpty());
  CallRecorder recorder;
  statement.reset();
  EXPECT_THAT(notes, ElementsAre("term"));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DeleteTest, OneTermServesSeveralStatements) {
  const auto term = MakeTerm(" a = 1");
  MakeDelete(term)->SetUpDelete();
  EXPECT_EQ(TextWith(term), "DELETE FROM t WHERE a = 1");
  EXPECT_EQ(term.use_count(), 1);
}

TEST_F(DeleteTest, EmptyTermOutlivesTheStatementsThatUsedIt) {
  const auto before = SQLEmptyTerm::EmptyTerm.use_count();
  TextWith(SQLEmptyTerm::EmptyTerm);
  EXPECT_EQ(SQLEmptyTerm::EmptyTerm.use_count(), before);
}

TEST_F(DeleteTest, OrphanOfATableThrowsAndIsDestroyedQuietly) {
  boost::shared_ptr<sqldb::SQLTableClass> table(new sqldb::SQLTableClass(fDatabase, "t"));
  auto statement = table->NewDelete(nullptr);
  table.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { statement->SetUpDelete(); }), "Condition is not met.");
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), "Condition is not met.");
  EXPECT_EQ(statement->fQuery, "");
  statement.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DeleteTest, OrphanOfADatabaseThrowsWhenPerformedAndIsDestroyedQuietly) {
  boost::shared_ptr<sqldb::SQLTableClass> table;
  {
    sqldb::SQLDatabase database(DatabasePath(), false);
    database.Open();
    table = database.NewTable("t");
  }
  auto statement = table->NewDelete(nullptr);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), "Condition is not met.");
  statement.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(Left(), ElementsAre("1", "2", "3"));
}

}  // namespace
