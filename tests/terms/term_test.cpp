#include <sstream>
#include <type_traits>

#include "support/engine.h"
#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLEmptyTerm;
using sqldb::SQLTermBase;
using support::DatabaseTest;
using support::MakeColumn;
using support::MakeTerm;
using support::MakeValue;
using support::MessageOf;
using support::SilentTerm;
using support::TextTerm;
using support::VirtualSlot;

static_assert(std::has_virtual_destructor_v<SQLTermBase>);
static_assert(!std::is_abstract_v<SQLTermBase>);
static_assert(sizeof(SQLTermBase) == sizeof(void*), "no data members");
static_assert(sizeof(SQLEmptyTerm) == sizeof(SQLTermBase), "no data member of its own");
static_assert(std::is_convertible_v<SQLEmptyTerm*, SQLTermBase*>, "publicly derived");
static_assert(std::is_same_v<decltype(SQLEmptyTerm::EmptyTerm), shared_ptr<SQLTermBase>>);
static_assert(std::is_same_v<decltype(&SQLTermBase::Print), std::ostream& (SQLTermBase::*)(std::ostream&) const>);
static_assert(std::is_same_v<decltype(&SQLTermBase::NotEmpty), bool (SQLTermBase::*)() const>);
static_assert(std::is_same_v<decltype(&SQLEmptyTerm::NotEmpty), bool (SQLEmptyTerm::*)() const>);
static_assert(std::is_same_v<decltype(&SQLEmptyTerm::Print), std::ostream& (SQLTermBase::*)(std::ostream&) const>,
              "inherited");

void ExpectPrintsNothing(const SQLTermBase& term) {
  std::ostringstream text;
  text << "kept";
  EXPECT_EQ(&term.Print(text), &text);
  EXPECT_EQ(text.str(), "kept");
}

TEST(TermTest, VirtualOperationsKeepTheirSlots) {
  EXPECT_EQ(VirtualSlot(&SQLTermBase::Print), 2);
  EXPECT_EQ(VirtualSlot(&SQLTermBase::NotEmpty), 3);
  EXPECT_EQ(VirtualSlot(&SQLEmptyTerm::NotEmpty), 3);
}

TEST(TermTest, BasePrintsNothingAndIsEmpty) {
  const SQLTermBase term;
  ExpectPrintsNothing(term);
  EXPECT_FALSE(term.NotEmpty());
}

TEST(TermTest, EmptyTermPrintsNothingAndIsEmpty) {
  const SQLEmptyTerm term;
  ExpectPrintsNothing(term);
  EXPECT_FALSE(term.NotEmpty());
}

TEST(TermTest, IsDestroyedThroughTheBase) {
  struct Flagged : SQLTermBase {
    explicit Flagged(bool& gone) : fGone(gone) {}
    ~Flagged() override { fGone = true; }
    bool& fGone;
  };
  bool gone = false;
  const SQLTermBase* const term = new Flagged(gone);
  delete term;
  EXPECT_TRUE(gone);
}

TEST(TermTest, SharedEmptyTermIsThereFromTheStart) {
  ASSERT_NE(SQLEmptyTerm::EmptyTerm, nullptr);
  EXPECT_NE(dynamic_cast<SQLEmptyTerm*>(SQLEmptyTerm::EmptyTerm.get()), nullptr);
  EXPECT_FALSE(SQLEmptyTerm::EmptyTerm->NotEmpty());
}

TEST(TermTest, EveryCopyOfTheEmptyTermSharesTheOneObject) {
  const long before = SQLEmptyTerm::EmptyTerm.use_count();
  const shared_ptr<SQLTermBase> copy = SQLEmptyTerm::EmptyTerm;
  EXPECT_EQ(copy.get(), SQLEmptyTerm::EmptyTerm.get());
  EXPECT_EQ(SQLEmptyTerm::EmptyTerm.use_count(), before + 1);
}

class TermInStatementTest : public DatabaseTest {
 protected:
  std::string DeleteText(const shared_ptr<SQLTermBase>& term) {
    const auto statement = fTable->NewDelete(term);
    statement->SetUpDelete();
    return statement->fQuery;
  }

  // Of the column a, with an order and a limit behind the condition.
  std::string SelectText(const shared_ptr<SQLTermBase>& term) {
    auto select = fDatabase.NewSelect(fTable, 9);
    select << MakeColumn("a");
    select->fTerm = term;
    select->fOrder = {{MakeColumn("a"), 1}};
    select->SetupSelect(shared_ptr<sqldb::SQLCursorBase>(new sqldb::SQLCursorBase(&fDatabase)));
    return select->fQuery;
  }

  void Update(const shared_ptr<SQLTermBase>& term) {
    const auto update = fTable->NewUpdate();
    update->fColumns = {MakeColumn("a")};
    update->fValues = {MakeValue("2")};
    update->fTerm = term;
    update->PerformUpdate(false);
  }

  shared_ptr<sqldb::SQLTableClass> fTable = MakeTable("items", {"a"});
};

constexpr char kDeleteAll[] = "DELETE FROM items";
constexpr char kSelectAll[] = "SELECT a FROM items ORDER BY a LIMIT 9";

TEST_F(TermInStatementTest, EmptyTermIsNoCondition) {
  EXPECT_EQ(DeleteText(SQLEmptyTerm::EmptyTerm), kDeleteAll);
  EXPECT_EQ(SelectText(SQLEmptyTerm::EmptyTerm), kSelectAll);
}

TEST_F(TermInStatementTest, NullTermIsNoCondition) {
  EXPECT_EQ(DeleteText(nullptr), kDeleteAll);
  EXPECT_EQ(SelectText(nullptr), kSelectAll);
}

TEST_F(TermInStatementTest, TermIsWrittenAsItStandsBehindWhere) {
  const auto term = MakeTerm(" a = 1 OR a = 2");
  EXPECT_EQ(DeleteText(term), "DELETE FROM items WHERE a = 1 OR a = 2");
  EXPECT_EQ(SelectText(term), "SELECT a FROM items WHERE a = 1 OR a = 2 ORDER BY a LIMIT 9");
}

TEST_F(TermInStatementTest, NoBlankIsInsertedForATermWithoutOne) {
  const auto term = MakeTerm("a = 1");
  EXPECT_EQ(DeleteText(term), "DELETE FROM items WHEREa = 1");
  EXPECT_EQ(SelectText(term), "SELECT a FROM items WHEREa = 1 ORDER BY a LIMIT 9");
}

TEST_F(TermInStatementTest, SelectAndDeleteDoNotPrintATermThatNeverSaysItHasContent) {
  const shared_ptr<SQLTermBase> term(new SilentTerm);
  EXPECT_EQ(DeleteText(term), kDeleteAll);
  EXPECT_EQ(SelectText(term), kSelectAll);
}

TEST_F(TermInStatementTest, UpdatePrintsATermThatNeverSaysItHasContent) {
  Rows("INSERT INTO items VALUES (1), (5)");
  support::CallRecorder recorder;
  Update(shared_ptr<SQLTermBase>(new SilentTerm));
  EXPECT_THAT(recorder.Sql(), testing::ElementsAre("UPDATE items SET a =  2 WHERE a = 1"));
  EXPECT_THAT(Rows("SELECT a FROM items"), testing::ElementsAre("2", "5"));
}

TEST_F(TermInStatementTest, SelectAndDeleteAskOnceAndUpdateNever) {
  const shared_ptr<TextTerm> term(new TextTerm(" a = 1"));
  DeleteText(term);
  EXPECT_EQ(term->fAsked, 1);
  SelectText(term);
  EXPECT_EQ(term->fAsked, 2);
  Update(term);
  EXPECT_EQ(term->fAsked, 2);
}

TEST_F(TermInStatementTest, TermWithContentThatPrintsNothingLeavesWhereDangling) {
  const auto term = MakeTerm("");
  EXPECT_EQ(DeleteText(term), "DELETE FROM items WHERE");
  EXPECT_EQ(SelectText(term), "SELECT a FROM items WHERE ORDER BY a LIMIT 9");
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(term); }), support::IncompleteInput("WHERE"));
}

TEST_F(TermInStatementTest, UpdateWithTheEmptyTermIsRefusedAndChangesNothing) {
  Rows("INSERT INTO items VALUES (1)");
  support::CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { Update(SQLEmptyTerm::EmptyTerm); }), support::IncompleteInput("WHERE"));
  EXPECT_THAT(recorder.Sql(), testing::ElementsAre("UPDATE items SET a =  2 WHERE"));
  EXPECT_THAT(Rows("SELECT a FROM items"), testing::ElementsAre("1"));
}

TEST_F(TermInStatementTest, MalformedTermIsReportedByWhoeverPreparesIt) {
  const auto term = MakeTerm(" a ==== 1");
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(term); }), "near \"==\": syntax error");
  EXPECT_EQ(MessageOf([&] { fTable->CountRecords(term); }), "near \"==\": syntax error");
}

TEST_F(TermInStatementTest, StatementsShareTheTermAndLetItGo) {
  const auto term = MakeTerm(" a = 1");
  {
    const auto first = fTable->NewDelete(term);
    const auto second = fTable->NewDelete(term);
    const auto update = fTable->NewUpdate();
    update->fTerm = term;
    const auto select = fDatabase.NewSelect(fTable, 0);
    select->fTerm = term;
    EXPECT_EQ(first->fTerm.get(), term.get());
    EXPECT_EQ(term.use_count(), 5);
  }
  EXPECT_EQ(term.use_count(), 1);
}

TEST_F(TermInStatementTest, StatementKeepsItsTermAlive) {
  const auto statement = fTable->NewDelete(MakeTerm(" a = 1"));
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM items WHERE a = 1");
}

TEST_F(TermInStatementTest, EmptyTermSurvivesTheStatementsThatHeldIt) {
  const SQLTermBase* const object = SQLEmptyTerm::EmptyTerm.get();
  const long before = SQLEmptyTerm::EmptyTerm.use_count();
  for (int i = 0; i < 3; ++i) {
    const auto statement = fTable->NewDelete(SQLEmptyTerm::EmptyTerm);
    const auto select = fDatabase.NewSelect(fTable, 0);
    select->fTerm = SQLEmptyTerm::EmptyTerm;
    EXPECT_EQ(SQLEmptyTerm::EmptyTerm.use_count(), before + 2);
  }
  EXPECT_EQ(SQLEmptyTerm::EmptyTerm.use_count(), before);
  EXPECT_EQ(SQLEmptyTerm::EmptyTerm.get(), object);
  EXPECT_FALSE(SQLEmptyTerm::EmptyTerm->NotEmpty());
}

}  // namespace
