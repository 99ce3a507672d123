#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/engine.h"
#include "support/fixtures.h"
#include "support/layout.h"
#include "support/witness.h"

using sqldb::OrderItem;
using sqldb::SQLColumnBase;
using sqldb::SQLCursorBase;
using sqldb::SQLDatabase;
using sqldb::SQLEmptyTerm;
using sqldb::SQLSelectClass;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using support::CallRecorder;
using support::InMemoryOrder;
using support::MakeColumn;
using support::MakeTerm;
using support::MessageOf;
using support::OwnFailure;
using support::TextTerm;
using support::Witness;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using CursorPointer = boost::shared_ptr<SQLCursorBase>;
using ColumnPointer = boost::shared_ptr<SQLColumnBase>;
using SelectPointer = boost::shared_ptr<SQLSelectClass>;

static_assert(!std::is_polymorphic_v<SQLSelectClass>);
static_assert(!std::is_copy_constructible_v<SQLSelectClass> && !std::is_copy_assignable_v<SQLSelectClass>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fDatabase), SQLDatabase*>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fTable), boost::shared_ptr<SQLTableClass>>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fColumns), std::vector<ColumnPointer>>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fTerm), boost::shared_ptr<SQLTermBase>>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fOrder), std::vector<OrderItem>>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fDistinct), bool>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fCallback), sqldb::QueryCallback*>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fLimit), std::uint32_t>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fOffset), std::uint32_t>);
static_assert(std::is_same_v<decltype(SQLSelectClass::fQuery), std::string>);
static_assert(std::is_same_v<decltype(&SQLSelectClass::SetupSelect), void (SQLSelectClass::*)(CursorPointer)>);
static_assert(std::is_same_v<decltype(&SQLSelectClass::PrepareSelect), void (SQLSelectClass::*)(CursorPointer)>);
static_assert(std::is_same_v<decltype(&SQLSelectClass::PerformSelect), void (SQLSelectClass::*)(CursorPointer)>);
static_assert(std::is_same_v<decltype(&SQLDatabase::NewSelect),
                             SelectPointer (SQLDatabase::*)(boost::shared_ptr<SQLTableClass>, std::uint32_t)>);
static_assert(
    std::is_same_v<decltype(std::declval<SelectPointer&>() << std::declval<ColumnPointer>()), SelectPointer&>);

static_assert(std::is_copy_constructible_v<OrderItem> && std::is_copy_assignable_v<OrderItem>);
static_assert(std::is_same_v<decltype(OrderItem::fColumn), ColumnPointer>);
static_assert(std::is_same_v<decltype(OrderItem::fAscending), std::uint8_t>);

static_assert(std::is_base_of_v<sqldb::QueryCallback, SelectCallback>);
static_assert(std::is_constructible_v<SelectCallback, CursorPointer>);
static_assert(std::is_same_v<decltype(SelectCallback::fCursor), CursorPointer>);

namespace {

// Notes the first column of each row, and wants `fWanted` of them.
class CollectingCursor : public SQLCursorBase {
 public:
  explicit CollectingCursor(SQLDatabase* database, int wanted = 1000) : SQLCursorBase(database), fWanted(wanted) {}

  bool ProcessRow(sqlite3_stmt* statement) override {
    fStatement = statement;
    if (statement != nullptr) fRows.push_back(sqlite3_column_int64(statement, 0));
    if (fAtRow) fAtRow();
    return --fWanted > 0;
  }
  void PrepareToQuery(const std::string& sql) override {
    fPrepared.push_back(sql);
    fColumnsWhenPrepared = fColumns.size();
  }

  int fWanted;
  std::vector<std::int64_t> fRows;
  std::vector<std::string> fPrepared;
  std::size_t fColumnsWhenPrepared = 0;
  std::function<void()> fAtRow;
  sqlite3_stmt* fStatement = nullptr;
};

using CollectingPointer = boost::shared_ptr<CollectingCursor>;
using StepCursor = sqldb::SQLStepCursor<std::uint32_t>;

// A table t with the columns a and b, holding (1, 30), (2, 20), (3, 10), and a select over it without columns.
class SelectTest : public support::DatabaseTest {
 protected:
  SelectTest() : fTable(MakeTable("t", {"a", "b"})), fA(fTable->GetColumn("a")), fB(fTable->GetColumn("b")) {
    fSelect = fDatabase.NewSelect(fTable, 0);
    Rows("INSERT INTO t VALUES (1, 30), (2, 20), (3, 10)");
  }

  CursorPointer NewCursor() { return CursorPointer(new SQLCursorBase(&fDatabase)); }
  CollectingPointer NewCollector(int wanted = 1000) {
    return CollectingPointer(new CollectingCursor(&fDatabase, wanted));
  }
  boost::shared_ptr<StepCursor> NewStepCursor() {
    sqldb::OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    return boost::shared_ptr<StepCursor>(new StepCursor(&fDatabase, offsets));
  }

  // Takes the select's callback over, which the next setup would leave behind, until the end of the test.
  void KeepCallback() { fEarlier.emplace_back(std::exchange(fSelect->fCallback, nullptr)); }

  // The text that a setup builds.
  std::string Text() {
    KeepCallback();
    fSelect->SetupSelect(NewCursor());
    return fSelect->fQuery;
  }
  // What column a holds in the rows that the select delivers.
  std::vector<std::int64_t> Selected() {
    KeepCallback();
    const auto cursor = NewCollector();
    fSelect->PerformSelect(cursor);
    return cursor->fRows;
  }

  boost::shared_ptr<SQLTableClass> fTable;
  ColumnPointer fA;
  ColumnPointer fB;
  SelectPointer fSelect;
  std::vector<std::unique_ptr<sqldb::QueryCallback>> fEarlier;
};

// What a new select is.

TEST_F(SelectTest, StartsWithItsDatabaseTableAndLimitAndNothingElse) {
  const auto select = fDatabase.NewSelect(fTable, 7);
  EXPECT_EQ(select->fDatabase, &fDatabase);
  EXPECT_EQ(select->fTable, fTable);
  EXPECT_THAT(select->fColumns, IsEmpty());
  EXPECT_FALSE(select->fTerm);
  EXPECT_THAT(select->fOrder, IsEmpty());
  EXPECT_FALSE(select->fDistinct);
  EXPECT_EQ(select->fCallback, nullptr);
  EXPECT_EQ(select->fLimit, 7u);
  EXPECT_EQ(select->fOffset, 0u);
  EXPECT_EQ(select->fQuery, "");
}

TEST_F(SelectTest, MembersLieInTheirStatedOrder) {
  EXPECT_TRUE(InMemoryOrder(fSelect->fDatabase, fSelect->fTable, fSelect->fColumns, fSelect->fTerm, fSelect->fOrder,
                            fSelect->fDistinct, fSelect->fCallback, fSelect->fLimit, fSelect->fOffset,
                            fSelect->fQuery));
  const OrderItem item{fA, 1};
  EXPECT_TRUE(InMemoryOrder(item.fColumn, item.fAscending));
}

TEST_F(SelectTest, IsListedLastInItsDatabaseAndOwnedByTheCallerAlone) {
  const auto second = fDatabase.NewSelect(fTable, 0);
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(fSelect.get(), second.get()));
  EXPECT_EQ(second.use_count(), 1);
}

TEST_F(SelectTest, MakingOneSendsNothing) {
  CallRecorder recorder;
  fDatabase.NewSelect(fTable, 1);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(SelectTest, ColumnsChainInOrder) {
  SelectPointer& result = fSelect << fA << fB << fA;
  EXPECT_EQ(&result, &fSelect);
  EXPECT_THAT(fSelect->fColumns, ElementsAre(fA, fB, fA));
}

// The text.

TEST_F(SelectTest, ColumnsAreSeparatedByCommaAndBlank) {
  fSelect << fA << fB;
  EXPECT_EQ(Text(), "SELECT a, b FROM t");
}

TEST_F(SelectTest, EveryPartTogetherComesInOrder) {
  fSelect << fA << fB;
  fSelect->fDistinct = true;
  fSelect->fTerm = MakeTerm(" x = :1");
  fSelect->fOrder = {OrderItem{fA, 1}, OrderItem{fB, 0}};
  fSelect->fLimit = 10;
  fSelect->fOffset = 20;
  EXPECT_EQ(Text(), "SELECT DISTINCT a, b FROM t WHERE x = :1 ORDER BY a, b DESC LIMIT 10 OFFSET 20");
}

TEST_F(SelectTest, NoColumnsLeaveSelectRightBeforeFrom) { EXPECT_EQ(Text(), "SELECT FROM t"); }

TEST_F(SelectTest, NoColumnsWithDistinct) {
  fSelect->fDistinct = true;
  EXPECT_EQ(Text(), "SELECT DISTINCT FROM t");
}

TEST_F(SelectTest, DistinctPrecedesTheColumn) {
  fSelect << fA;
  fSelect->fDistinct = true;
  EXPECT_EQ(Text(), "SELECT DISTINCT a FROM t");
}

TEST_F(SelectTest, NullTermGivesNoWhere) {
  fSelect << fA;
  fSelect->fTerm.reset();
  EXPECT_EQ(Text(), "SELECT a FROM t");
}

TEST_F(SelectTest, EmptyTermGivesNoWhereAndOrderAndLimitFollowTheTableName) {
  fSelect << fA;
  fSelect->fTerm = SQLEmptyTerm::EmptyTerm;
  fSelect->fLimit = 1;
  EXPECT_EQ(Text(), "SELECT a FROM t LIMIT 1");
  fSelect->fOrder = {OrderItem{fB, 1}};
  EXPECT_EQ(Text(), "SELECT a FROM t ORDER BY b LIMIT 1");
}

TEST_F(SelectTest, TermThatSaysItIsEmptyIsNotPrinted) {
  fSelect << fA;
  fSelect->fTerm.reset(new TextTerm(" a = 1", false));
  EXPECT_EQ(Text(), "SELECT a FROM t");
}

TEST_F(SelectTest, TermThatPrintsNothingLeavesADanglingWhere) {
  fSelect << fA;
  fSelect->fTerm = MakeTerm("");
  EXPECT_EQ(Text(), "SELECT a FROM t WHERE");
  EXPECT_EQ(MessageOf([&] { Selected(); }), support::IncompleteInput("WHERE"));
}

TEST_F(SelectTest, TermIsAskedOncePerSetup) {
  const boost::shared_ptr<TextTerm> term(new TextTerm(" a = 1"));
  fSelect << fA;
  fSelect->fTerm = term;
  Text();
  EXPECT_EQ(term->fAsked, 1);
}

TEST_F(SelectTest, OrderMayNameResultColumnsAndOthers) {
  fSelect << fA;
  fSelect->fOrder = {OrderItem{fA, 1}, OrderItem{fB, 1}};
  EXPECT_EQ(Text(), "SELECT a FROM t ORDER BY a, b");
}

TEST_F(SelectTest, OnlyZeroIsDescending) {
  fSelect << fA;
  fSelect->fOrder = {OrderItem{fA, 0}, OrderItem{fA, 1}, OrderItem{fA, 2}, OrderItem{fA, 255}};
  EXPECT_EQ(Text(), "SELECT a FROM t ORDER BY a DESC, a, a, a");
}

TEST_F(SelectTest, NeitherLimitNorOffsetPrintsNeither) {
  fSelect << fA;
  EXPECT_EQ(Text(), "SELECT a FROM t");
}

TEST_F(SelectTest, LimitAlone) {
  fSelect = fDatabase.NewSelect(fTable, 1);
  fSelect << fA;
  EXPECT_EQ(Text(), "SELECT a FROM t LIMIT 1");
}

TEST_F(SelectTest, OffsetAloneNeedsALimitOfMinusOne) {
  fSelect << fA;
  fSelect->fOffset = 5;
  EXPECT_EQ(Text(), "SELECT a FROM t LIMIT -1 OFFSET 5");
}

TEST_F(SelectTest, LimitAndOffset) {
  fSelect << fA;
  fSelect->fLimit = 10;
  fSelect->fOffset = 20;
  EXPECT_EQ(Text(), "SELECT a FROM t LIMIT 10 OFFSET 20");
}

TEST_F(SelectTest, LimitAndOffsetAreUnsigned) {
  fSelect << fA;
  fSelect->fLimit = 4294967295u;
  fSelect->fOffset = 4294967295u;
  EXPECT_EQ(Text(), "SELECT a FROM t LIMIT 4294967295 OFFSET 4294967295");
}

TEST_F(SelectTest, ColumnNameMayBeAnExpression) {
  fSelect << MakeColumn("COUNT(ROWID)") << MakeColumn("a + b");
  EXPECT_EQ(Text(), "SELECT COUNT(ROWID), a + b FROM t");
  EXPECT_THAT(Selected(), ElementsAre(3));
}

TEST_F(SelectTest, UnchangedSelectBuildsTheSameTextAgain) {
  fSelect << fA << fB;
  fSelect->fTerm = MakeTerm(" a = 1");
  fSelect->fOrder = {OrderItem{fA, 0}};
  fSelect->fLimit = 4;
  const std::string first = Text();
  EXPECT_EQ(Text(), first);
}

TEST_F(SelectTest, ChangesBetweenTwoSetupsTakeEffect) {
  fSelect << fA;
  EXPECT_EQ(Text(), "SELECT a FROM t");
  fSelect << fB;
  fSelect->fTerm = MakeTerm(" a < 3");
  fTable->fName = "renamed";
  EXPECT_EQ(Text(), "SELECT a, b FROM renamed WHERE a < 3");
  fSelect->fColumns.clear();
  fSelect->fTerm.reset();
  fSelect->fDistinct = true;
  EXPECT_EQ(Text(), "SELECT DISTINCT FROM renamed");
}

TEST_F(SelectTest, SetupSendsNothing) {
  fSelect << fA;
  const auto cursor = NewCollector();
  CallRecorder recorder;
  fSelect->SetupSelect(cursor);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(cursor->fPrepared, IsEmpty());
}

// The rows.

TEST_F(SelectTest, DeliversWhatTheTextAsksFor) {
  fSelect << fA;
  fSelect->fOrder = {OrderItem{fB, 1}};
  EXPECT_THAT(Selected(), ElementsAre(3, 2, 1));
  fSelect->fOrder[0].fAscending = 0;
  EXPECT_THAT(Selected(), ElementsAre(1, 2, 3));
  fSelect->fOffset = 1;
  EXPECT_THAT(Selected(), ElementsAre(2, 3));
  fSelect->fLimit = 1;
  EXPECT_THAT(Selected(), ElementsAre(2));
  fSelect->fTerm = MakeTerm(" a <> 2");
  EXPECT_THAT(Selected(), ElementsAre(3));
}

TEST_F(SelectTest, DistinctDropsRepeatedRows) {
  Rows("INSERT INTO t VALUES (1, 30), (3, 99)");
  fSelect << fA;
  fSelect->fDistinct = true;
  fSelect->fOrder = {OrderItem{fA, 1}};
  EXPECT_THAT(Selected(), ElementsAre(1, 2, 3));
}

// The callback and the cursor.

TEST_F(SelectTest, SetupMakesACallbackThatSharesTheCursor) {
  const auto cursor = NewCursor();
  fSelect->SetupSelect(cursor);
  auto* const callback = dynamic_cast<SelectCallback*>(fSelect->fCallback);
  ASSERT_NE(callback, nullptr);
  EXPECT_EQ(callback->fCursor, cursor);
  EXPECT_EQ(cursor.use_count(), 2);
}

TEST_F(SelectTest, CursorGetsTheColumnsInPlaceOfItsOwn) {
  const auto cursor = NewCursor();
  cursor->fColumns = {MakeColumn("other"), MakeColumn("another"), MakeColumn("third")};
  fSelect << fB << fA;
  fSelect->SetupSelect(cursor);
  EXPECT_THAT(cursor->fColumns, ElementsAre(fB, fA));
}

TEST_F(SelectTest, SelectKeepsItsCursorAlive) {
  bool destroyed = false;
  CursorPointer cursor(new Witness<SQLCursorBase>([&] { destroyed = true; }, &fDatabase));
  fSelect->SetupSelect(cursor);
  cursor.reset();
  EXPECT_FALSE(destroyed);
  fSelect.reset();
  EXPECT_TRUE(destroyed);
}

TEST_F(SelectTest, SecondSetupLeavesTheEarlierCallbackAndItsCursorAlive) {
  bool destroyed = false;
  fSelect->SetupSelect(CursorPointer(new Witness<SQLCursorBase>([&] { destroyed = true; }, &fDatabase)));
  std::unique_ptr<sqldb::QueryCallback> earlier(fSelect->fCallback);
  fSelect->SetupSelect(NewCursor());
  EXPECT_NE(fSelect->fCallback, earlier.get());
  fSelect.reset();
  EXPECT_FALSE(destroyed);
  earlier.reset();
  EXPECT_TRUE(destroyed);
}

TEST_F(SelectTest, SameCursorMaySetUpTwice) {
  fSelect << fA;
  const auto cursor = NewCursor();
  fSelect->SetupSelect(cursor);
  KeepCallback();
  fSelect->SetupSelect(cursor);
  EXPECT_THAT(cursor->fColumns, ElementsAre(fA));
  EXPECT_EQ(cursor.use_count(), 3);
}

TEST_F(SelectTest, CallbackHandsTheCursorTheStatementAndReturnsItsAnswer) {
  const auto cursor = NewCollector(2);
  SelectCallback callback(cursor);
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, "SELECT 1", -1, &statement, nullptr), SQLITE_OK);
  EXPECT_TRUE(callback.ProcessRow(statement));
  EXPECT_EQ(cursor->fStatement, statement);
  EXPECT_FALSE(callback.ProcessRow(statement));
  sqlite3_finalize(statement);
}

TEST_F(SelectTest, CallbackLetsGoOfItsCursorWhenDestroyed) {
  const auto cursor = NewCursor();
  {
    const SelectCallback callback(cursor);
    EXPECT_EQ(cursor.use_count(), 2);
  }
  EXPECT_EQ(cursor.use_count(), 1);
}

// PrepareSelect.

TEST_F(SelectTest, PrepareGivesTheTextToTheCursorThatHasTheColumns) {
  fSelect << fA << fB;
  const auto cursor = NewCollector();
  CallRecorder recorder;
  fSelect->PrepareSelect(cursor);
  EXPECT_THAT(cursor->fPrepared, ElementsAre("SELECT a, b FROM t"));
  EXPECT_EQ(cursor->fColumnsWhenPrepared, 2u);
  EXPECT_NE(fSelect->fCallback, nullptr);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(SelectTest, PreparedStepCursorStepsTheRows) {
  fSelect << fA;
  const auto cursor = NewStepCursor();
  CallRecorder recorder;
  fSelect->PrepareSelect(cursor);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0"));
  std::uint32_t value = 0;
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 2u);
}

TEST_F(SelectTest, PrepareOfARefusedTextThrowsSQLitesMessage) {
  EXPECT_EQ(MessageOf([&] { fSelect->PrepareSelect(NewStepCursor()); }), "near \"FROM\": syntax error");
}

TEST_F(SelectTest, ColumnOfAnotherTableIsRefusedBySQLite) {
  const auto other = MakeTable("other", {"c"});
  fSelect << other->GetColumn("c");
  EXPECT_EQ(MessageOf([&] { fSelect->PrepareSelect(NewStepCursor()); }), "no such column: c");
  EXPECT_EQ(fSelect->fQuery, "SELECT c FROM t");
}

TEST_F(SelectTest, MayBePreparedAgainAfterAFailure) {
  fSelect << MakeColumn("missing");
  EXPECT_THROW(fSelect->PrepareSelect(NewStepCursor()), std::runtime_error);
  fSelect->fColumns = {fA};
  KeepCallback();
  const auto cursor = NewStepCursor();
  fSelect->PrepareSelect(cursor);
  std::uint32_t value = 0;
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 1u);
}

// PerformSelect.

TEST_F(SelectTest, PerformForwardsEachRowToTheCursor) {
  fSelect << fA;
  const auto cursor = NewCollector();
  CallRecorder recorder;
  fSelect->PerformSelect(cursor);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 100", "step = 100", "step = 100",
                                            "step = 101", "finalize = 0"));
  EXPECT_THAT(cursor->fRows, ElementsAre(1, 2, 3));
  EXPECT_THAT(cursor->fPrepared, IsEmpty());
}

TEST_F(SelectTest, PerformHandsTheCursorTheRunningStatement) {
  fSelect << fA;
  const auto cursor = NewCollector(1);
  CallRecorder recorder;
  fSelect->PerformSelect(cursor);
  EXPECT_EQ(cursor->fStatement, recorder.CallsOf("step").at(0).handle);
}

TEST_F(SelectTest, PerformStopsWhenTheCursorSaysFalse) {
  fSelect << fA;
  const auto cursor = NewCollector(2);
  CallRecorder recorder;
  fSelect->PerformSelect(cursor);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 100", "step = 100", "finalize = 0"));
  EXPECT_THAT(cursor->fRows, ElementsAre(1, 2));
}

TEST_F(SelectTest, BareCursorGetsExactlyOneRow) {
  fSelect << fA;
  CallRecorder recorder;
  fSelect->PerformSelect(NewCursor());
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 100", "finalize = 0"));
}

TEST_F(SelectTest, PerformWithoutRowsNeverCallsTheCursor) {
  fSelect << fA;
  fSelect->fTerm = MakeTerm(" a = 99");
  EXPECT_THAT(Selected(), IsEmpty());
}

TEST_F(SelectTest, PerformOfARefusedTextThrowsSQLitesMessage) {
  EXPECT_EQ(MessageOf([&] { fSelect->PerformSelect(NewCursor()); }), "near \"FROM\": syntax error");
}

TEST_F(SelectTest, PerformNeverWaitsForABusyFile) {
  fSelect << fA;
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fSelect->PerformSelect(NewCollector()); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0", "step = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(SelectTest, WhatProcessRowThrowsPassesThrough) {
  fSelect << fA;
  const auto cursor = NewCollector();
  cursor->fAtRow = [] { throw OwnFailure(); };
  EXPECT_THROW(fSelect->PerformSelect(cursor), OwnFailure);
}

TEST_F(SelectTest, SecondPerformSendsTheSameText) {
  fSelect << fA;
  CallRecorder recorder;
  Selected();
  Selected();
  EXPECT_THAT(recorder.Sql(), ElementsAre("SELECT a FROM t", "SELECT a FROM t"));
}

TEST_F(SelectTest, ProcessRowMayRunTheSelectAgain) {
  fSelect << fA;
  // A second statement, which is compiled only after the text was rebuilt.
  fSelect->fTerm = MakeTerm(" a < 3; SELECT 7");
  const auto inner = NewCollector();
  const auto outer = NewCollector();
  outer->fAtRow = [&] {
    if (outer->fRows.size() != 1) return;
    fSelect->fTerm = MakeTerm(" a <> 2 AND 'a text too long for the space of the earlier one' <> ''");
    fEarlier.emplace_back(fSelect->fCallback);
    fSelect->PerformSelect(inner);
  };
  fSelect->PerformSelect(outer);
  EXPECT_THAT(inner->fRows, ElementsAre(1, 3));
  EXPECT_THAT(outer->fRows, ElementsAre(1, 2, 7));
}

// Destruction.

TEST_F(SelectTest, DestructionReleasesCursorThenLeavesTheListThenReleasesOrderTermColumnsAndTable) {
  std::vector<std::string> notes;
  const auto note = [&](const std::string& name) {
    return [&notes, name, this] { notes.push_back(name + (fDatabase.fSelects.empty() ? "" : " while listed")); };
  };
  const auto column = [&](const std::string& name) {
    return ColumnPointer(new Witness<SQLColumnBase>(note(name), nullptr, "a", "INTEGER", 4u, true, false, false, ""));
  };
  fSelect.reset();
  boost::shared_ptr<SQLTableClass> table(new SQLTableClass(fDatabase, "t"), [&](SQLTableClass* object) {
    note("table")();
    delete object;
  });
  auto select = fDatabase.NewSelect(std::move(table), 0);
  select << column("column");
  select->fOrder.push_back(OrderItem{column("order"), 1});
  select->fTerm.reset(new Witness<TextTerm>(note("term"), " 1"));
  CursorPointer cursor(new Witness<SQLCursorBase>(note("cursor"), &fDatabase));
  select->SetupSelect(cursor);
  cursor.reset();
  select.reset();
  EXPECT_THAT(notes, ElementsAre("cursor while listed", "order", "term", "column", "table"));
}

TEST_F(SelectTest, DestructionTakesExactlyThisSelectOffTheList) {
  auto second = fDatabase.NewSelect(fTable, 0);
  const auto third = fDatabase.NewSelect(fTable, 0);
  second.reset();
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(fSelect.get(), third.get()));
}

TEST_F(SelectTest, DestructionSendsNothing) {
  fSelect << fA;
  fSelect->SetupSelect(NewCursor());
  CallRecorder recorder;
  fSelect.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(SelectTest, WhatDestructionReleasesMayDestroyTheDatabase) {
  for (const std::string releases : {"order", "term", "column", "column of the cursor"}) {
    SCOPED_TRACE(releases);
    auto database = std::make_unique<SQLDatabase>(DatabasePath(), false);
    database->Open();
    auto select = database->NewSelect(database->NewTable("t"), 0);
    const auto end = [&] { database.reset(); };
    const auto column = [&] {
      return ColumnPointer(new Witness<SQLColumnBase>(end, nullptr, "a", "INTEGER", 4u, true, false, false, ""));
    };
    if (releases == "order") select->fOrder.push_back(OrderItem{column(), 1});
    if (releases == "term") select->fTerm.reset(new Witness<TextTerm>(end, " 1"));
    if (releases == "column") select << column();
    const CursorPointer cursor(new SQLCursorBase(database.get()));
    if (releases == "column of the cursor") cursor->fColumns = {column()};
    select->SetupSelect(cursor);
    cursor->fColumns.clear();
    select.reset();
    EXPECT_FALSE(database);
  }
}

// The memory that one select leaves to the next.

class SpareMemoryTest : public SelectTest {
 protected:
  // How often the library allocates for a select of so many columns, on a cursor of its own.
  std::uint64_t AllocationsOf(int columns) {
    const auto cursor = NewCursor();
    const support::AllocationCount count;
    auto select = fDatabase.NewSelect(fTable, 0);
    for (int i = 0; i < columns; ++i) select << fA;
    select->SetupSelect(cursor);
    select.reset();
    return count.Count();
  }
};

TEST_F(SpareMemoryTest, ASelectAfterAnotherAllocatesItsCallbackOnly) {
  AllocationsOf(200);
  EXPECT_EQ(AllocationsOf(200), 1u);
  EXPECT_EQ(AllocationsOf(3), 1u);
}

TEST_F(SpareMemoryTest, WhatNeededNoneLeavesWhatIsThere) {
  AllocationsOf(200);
  fDatabase.NewSelect(fTable, 0);
  NewCursor();
  EXPECT_EQ(AllocationsOf(200), 1u);
}

TEST_F(SpareMemoryTest, TheMemoryOfAVeryLongListIsGivenBack) {
  AllocationsOf(1000);
  AllocationsOf(1000);
  EXPECT_GT(AllocationsOf(1000), 3u);
}

TEST_F(SpareMemoryTest, AListThatIsInUseIsNotLentToTheNextSelect) {
  AllocationsOf(20);
  const auto first = fDatabase.NewSelect(fTable, 0);
  auto second = fDatabase.NewSelect(fTable, 0);
  const auto use = [](SelectPointer select, const ColumnPointer& column) {
    for (int i = 0; i < 20; ++i) select << column;
  };
  use(first, fA);
  use(second, fB);
  EXPECT_THAT(first->fColumns, Each(fA));
  EXPECT_THAT(second->fColumns, Each(fB));
  second.reset();
  EXPECT_THAT(first->fColumns, SizeIs(20));
  EXPECT_THAT(first->fColumns, Each(fA));
}

// Selects that outlive their database.

class OrphanSelectTest : public SelectTest {
 protected:
  OrphanSelectTest() : fOther(new SQLDatabase(DatabasePath(), false)) {
    fOther->Open();
    fOrphan = fOther->NewSelect(fOther->NewTable("t"), 0);
    fOrphan << fA;
    fCursor.reset(new CollectingCursor(fOther.get()));
    fStepCursor.reset(new StepCursor(fOther.get(), sqldb::OffsetSpec()));
    fOther.reset();
  }

  std::unique_ptr<SQLDatabase> fOther;
  SelectPointer fOrphan;
  CollectingPointer fCursor;
  boost::shared_ptr<StepCursor> fStepCursor;
};

TEST_F(OrphanSelectTest, IsDestroyedQuietly) {
  fOrphan->SetupSelect(fCursor);
  CallRecorder recorder;
  fCursor.reset();
  fOrphan.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(OrphanSelectTest, CannotBePerformed) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fOrphan->PerformSelect(fCursor); }), "Condition is not met.");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(OrphanSelectTest, CannotBePrepared) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fOrphan->PrepareSelect(fStepCursor); }), "Condition is not met.");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

}  // namespace
