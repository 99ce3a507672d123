#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <boost/make_shared.hpp>

#include "support/allocations.h"
#include "support/engine.h"
#include "support/fixtures.h"
#include "support/witness.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLEmptyTerm;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using support::Call;
using support::CallRecorder;
using support::DatabaseTest;
using support::kNotMet;
using support::MakeTerm;
using support::MessageOf;
using support::OtherConnection;
using support::TextTerm;
using testing::ElementsAre;
using testing::IsEmpty;

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;
using Cursor = sqldb::SQLStepCursor<std::uint32_t>;

static_assert(
    std::is_same_v<decltype(&SQLTableClass::CountRecords), std::uint32_t (SQLTableClass::*)(shared_ptr<SQLTermBase>)>);
static_assert(std::is_same_v<decltype(&SQLTableClass::HasTerm), bool (SQLTableClass::*)(shared_ptr<SQLTermBase>)>);
static_assert(
    std::is_same_v<decltype(&SQLTableClass::DeleteRecords), void (SQLTableClass::*)(shared_ptr<SQLTermBase>)>);

// What SQLite can only refuse while the statement runs.
constexpr char kOverflow[] = " abs(qty - 9223372036854775807 - 2) > 0";

class RecordQueryTest : public DatabaseTest {
 protected:
  // The rows 1, 2, 3.
  void FillTable() { Rows("INSERT INTO items VALUES (1), (2), (3)"); }

  // An entry of either kind that was in the database's lists before.
  void ListOthers() {
    fOtherCursor.reset(new sqldb::SQLCursorBase(&fDatabase));
    fOtherSelect = fDatabase.NewSelect(fTable, 0);
  }

  // The lists hold what ListOthers put there, and nothing of a finished query.
  void ExpectOnlyOthersListed() {
    EXPECT_THAT(fDatabase.fSelects, ElementsAre(fOtherSelect.get()));
    EXPECT_THAT(fDatabase.fCursors, ElementsAre(fOtherCursor.get()));
  }

  // Whether `query` failing with `message` leaves nothing of its own behind.
  template <typename Query>
  void ExpectCleanFailure(const shared_ptr<SQLTermBase>& term, const std::string& message, Query query) {
    ListOthers();
    EXPECT_EQ(MessageOf(query), message);
    ExpectOnlyOthersListed();
    EXPECT_EQ(term.use_count(), 1);
    EXPECT_EQ(fTable.use_count(), 3) << "the test, the registry and the other select";
    EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 0);
  }

  shared_ptr<SQLTableClass> fTable = MakeTable("items", {"qty"});
  shared_ptr<sqldb::SQLCursorBase> fOtherCursor;
  shared_ptr<sqldb::SQLSelectClass> fOtherSelect;
};

TEST_F(RecordQueryTest, CountPreparesStepsReadsAndFinalizesOnce) {
  FillTable();
  CallRecorder recorder;
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT COUNT(ROWID) FROM items' = 0", "step = 100",
                                            "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, CountPrintsTheTermBehindWhere) {
  FillTable();
  CallRecorder recorder;
  EXPECT_EQ(fTable->CountRecords(MakeTerm(" qty > 1")), 2u);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT COUNT(ROWID) FROM items WHERE qty > 1' = 0", "step = 100",
                                            "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, CountOfAnEmptyTableOrOfNoMatchIsZero) {
  EXPECT_EQ(fTable->CountRecords(nullptr), 0u);
  FillTable();
  EXPECT_EQ(fTable->CountRecords(MakeTerm(" qty > 9")), 0u);
}

TEST_F(RecordQueryTest, CountTakesTheEmptyTermForEveryRow) {
  FillTable();
  CallRecorder recorder;
  EXPECT_EQ(fTable->CountRecords(SQLEmptyTerm::EmptyTerm), 3u);
  EXPECT_THAT(recorder.Sql(), ElementsAre("SELECT COUNT(ROWID) FROM items"));
}

TEST_F(RecordQueryTest, CountAsksTheTermItselfAndThenTheSelectAsksAgain) {
  const auto full = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1"));
  fTable->CountRecords(full);
  EXPECT_EQ(full->fAsked, 2);
}

TEST_F(RecordQueryTest, CountDoesNotGiveATermThatSaysItIsEmptyToTheSelect) {
  const auto empty = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1", false));
  CallRecorder recorder;
  fTable->CountRecords(empty);
  EXPECT_EQ(empty->fAsked, 1);
  EXPECT_THAT(recorder.Sql(), ElementsAre("SELECT COUNT(ROWID) FROM items"));
}

TEST_F(RecordQueryTest, HasTermPreparesStepsReadsAndFinalizesOnce) {
  FillTable();
  CallRecorder recorder;
  EXPECT_TRUE(fTable->HasTerm(nullptr));
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT ROWID FROM items LIMIT 1' = 0", "step = 100",
                                            "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, HasTermFetchesOneRowOfSeveralMatches) {
  FillTable();
  CallRecorder recorder;
  EXPECT_TRUE(fTable->HasTerm(MakeTerm(" qty > 1")));
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT ROWID FROM items WHERE qty > 1 LIMIT 1' = 0", "step = 100",
                                            "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, HasTermOfNoMatchReadsNothing) {
  FillTable();
  CallRecorder recorder;
  EXPECT_FALSE(fTable->HasTerm(MakeTerm(" qty > 9")));
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT ROWID FROM items WHERE qty > 9 LIMIT 1' = 0", "step = 101", "finalize = 0"));
}

TEST_F(RecordQueryTest, HasTermOfAnEmptyTableIsFalse) {
  EXPECT_FALSE(fTable->HasTerm(nullptr));
  EXPECT_FALSE(fTable->HasTerm(SQLEmptyTerm::EmptyTerm));
}

TEST_F(RecordQueryTest, HasTermTakesTheEmptyTermForAnyRow) {
  FillTable();
  CallRecorder recorder;
  EXPECT_TRUE(fTable->HasTerm(SQLEmptyTerm::EmptyTerm));
  EXPECT_THAT(recorder.Sql(), ElementsAre("SELECT ROWID FROM items LIMIT 1"));
}

TEST_F(RecordQueryTest, HasTermLeavesTheAskingToTheSelect) {
  const auto full = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1"));
  fTable->HasTerm(full);
  EXPECT_EQ(full->fAsked, 1);
  const auto empty = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1", false));
  fTable->HasTerm(empty);
  EXPECT_EQ(empty->fAsked, 1);
}

TEST_F(RecordQueryTest, HasTermGoesByTheRowAndNotByItsId) {
  Rows("INSERT INTO items (ROWID, qty) VALUES (0, 1), (4294967296, 2)");
  EXPECT_TRUE(fTable->HasTerm(MakeTerm(" qty = 1")));
  EXPECT_TRUE(fTable->HasTerm(MakeTerm(" qty = 2")));
}

TEST_F(RecordQueryTest, DeletePreparesStepsAndFinalizesOnce) {
  FillTable();
  const auto term = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1"));
  CallRecorder recorder;
  fTable->DeleteRecords(term);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'DELETE FROM items WHERE qty > 1' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("SELECT qty FROM items"), ElementsAre("1"));
  EXPECT_EQ(term->fAsked, 1);
  EXPECT_EQ(term.use_count(), 1);
}

TEST_F(RecordQueryTest, DeleteOfNoMatchDeletesAndReportsNothing) {
  FillTable();
  fTable->DeleteRecords(MakeTerm(" qty > 9"));
  EXPECT_THAT(Rows("SELECT qty FROM items"), ElementsAre("1", "2", "3"));
}

TEST_F(RecordQueryTest, DeleteWithoutATermDeletesEveryRow) {
  for (const auto& term : {shared_ptr<SQLTermBase>(), SQLEmptyTerm::EmptyTerm}) {
    FillTable();
    CallRecorder recorder;
    fTable->DeleteRecords(term);
    EXPECT_THAT(recorder.Sql(), ElementsAre("DELETE FROM items"));
    EXPECT_THAT(Rows("SELECT qty FROM items"), IsEmpty());
  }
}

TEST_F(RecordQueryTest, DeletePassesSQLitesMessageOnAndLetsTheTermGo) {
  const auto term = MakeTerm(" nope = 1");
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(term); }), "no such column: nope");
  EXPECT_EQ(term.use_count(), 1);
}

TEST_F(RecordQueryTest, ATermThatNobodyElseHoldsIsReleasedAfterTheQuery) {
  int released = 0;
  const auto term = [&] {
    return shared_ptr<SQLTermBase>(new support::Witness<TextTerm>(
        [&] {
          ++released;
          EXPECT_THAT(fDatabase.fSelects, IsEmpty());
          EXPECT_THAT(fDatabase.fCursors, IsEmpty());
        },
        " qty > 1"));
  };
  fTable->CountRecords(term());
  fTable->HasTerm(term());
  EXPECT_EQ(released, 2);
}

// Takes itself away from the select that prints it.
class LeavingTerm : public SQLTermBase {
 public:
  explicit LeavingTerm(sqldb::SQLDatabase& database) : fDatabase(database) {}
  std::ostream& Print(std::ostream& out) const override {
    fDatabase.fSelects.back()->fTerm.reset();
    return out << fText;
  }
  bool NotEmpty() const override { return true; }

 private:
  sqldb::SQLDatabase& fDatabase;
  const std::string fText = " qty > 1 AND 'a text that has no room in the string itself' <> ''";
};

TEST_F(RecordQueryTest, ATermMayLeaveItsSelectWhileItIsPrinted) {
  FillTable();
  EXPECT_EQ(fTable->CountRecords(boost::make_shared<LeavingTerm>(fDatabase)), 2u);
  EXPECT_TRUE(fTable->HasTerm(boost::make_shared<LeavingTerm>(fDatabase)));
}

TEST_F(RecordQueryTest, EachQueryTakesOneCursorNumberAndLeavesTheListsAsTheyWere) {
  FillTable();
  ListOthers();
  const auto term = MakeTerm(" qty > 1");
  const std::int32_t before = sqldb::SQLCursorBase::sfCursorSerialNumber;
  fTable->CountRecords(term);
  fTable->HasTerm(term);
  fTable->DeleteRecords(term);
  EXPECT_EQ(sqldb::SQLCursorBase::sfCursorSerialNumber, before + 2);
  ExpectOnlyOthersListed();
  EXPECT_EQ(term.use_count(), 1);
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
}

// The cursor outlives the select, whose callback holds it.
TEST_F(RecordQueryTest, SelectLeavesItsListBeforeTheCursorFinalizes) {
  CallRecorder recorder;
  recorder.fAfterCall = [&](const Call& call) {
    recorder.Note(call.function + ": " + std::to_string(fDatabase.fSelects.size()) + " selects, " +
                  std::to_string(fDatabase.fCursors.size()) + " cursors");
  };
  fTable->CountRecords(nullptr);
  fTable->HasTerm(nullptr);
  std::vector<std::string> notes;
  for (const Call& call : recorder.CallsOf("note")) notes.push_back(call.text);
  EXPECT_THAT(notes, ElementsAre("prepare: 1 selects, 1 cursors", "step: 1 selects, 1 cursors",
                                 "column_int: 1 selects, 1 cursors", "finalize: 0 selects, 1 cursors",
                                 "prepare: 1 selects, 1 cursors", "step: 1 selects, 1 cursors",
                                 "finalize: 0 selects, 1 cursors"));
  EXPECT_THAT(fDatabase.fCursors, IsEmpty());
}

// What SQLite calls in the middle of a step.
class StepObserver {
 public:
  explicit StepObserver(sqldb::SQLDatabase& database) : fConnection(database.fConnection) {
    sqlite3_create_function(
        fConnection, "observe", 1, SQLITE_UTF8, this,
        [](sqlite3_context* context, int, sqlite3_value** arguments) {
          const auto& self = *static_cast<StepObserver*>(sqlite3_user_data(context));
          CallRecorder::Pause pause;
          if (self.fAction) self.fAction();
          sqlite3_result_value(context, arguments[0]);
        },
        nullptr, nullptr);
  }
  ~StepObserver() {
    sqlite3_create_function(fConnection, "observe", 1, SQLITE_UTF8, nullptr, nullptr, nullptr, nullptr);
  }
  StepObserver(const StepObserver&) = delete;
  StepObserver& operator=(const StepObserver&) = delete;

  std::function<void()> fAction;

 private:
  sqlite3* fConnection;
};

constexpr char kObserved[] = " observe(qty) = 2";

// The first of the database's cursors, which is the query's where there is no other.
Cursor& QuerysCursor(const sqldb::SQLDatabase& database) { return dynamic_cast<Cursor&>(*database.fCursors.at(0)); }

// While the step runs, everything that the query is made of is there to be seen.
class ObservedQueryTest : public RecordQueryTest {
 protected:
  ObservedQueryTest() { FillTable(); }

  void ExpectPieces(const std::string& expression, std::uint32_t limit, const std::string& sql) {
    ASSERT_EQ(fDatabase.fSelects.size(), 1u);
    ASSERT_EQ(fDatabase.fCursors.size(), 1u);
    const sqldb::SQLSelectClass& select = *fDatabase.fSelects[0];
    EXPECT_EQ(select.fDatabase, &fDatabase);
    EXPECT_EQ(select.fTable, fTable);
    EXPECT_EQ(select.fTerm, fTerm);
    EXPECT_THAT(select.fOrder, IsEmpty());
    EXPECT_FALSE(select.fDistinct);
    EXPECT_EQ(select.fLimit, limit);
    EXPECT_EQ(select.fOffset, 0u);
    EXPECT_EQ(select.fQuery, sql);

    ASSERT_EQ(select.fColumns.size(), 1u);
    const sqldb::SQLColumnBase& column = *select.fColumns[0];
    EXPECT_EQ(typeid(column), typeid(IntegerColumn));
    EXPECT_EQ(column.fTable, nullptr);
    EXPECT_EQ(column.fName, expression);
    EXPECT_EQ(column.fSqlType, "INTEGER");
    EXPECT_EQ(column.fCollation, "");
    EXPECT_TRUE(column.fCanBeNull);
    EXPECT_FALSE(column.fIsUnique);
    EXPECT_FALSE(column.fIsPrimaryKey);
    EXPECT_EQ(column.fSize, 4u);
    EXPECT_EQ(column.fSerial, 0u);

    const Cursor& cursor = QuerysCursor(fDatabase);
    EXPECT_EQ(typeid(cursor), typeid(Cursor));
    EXPECT_EQ(cursor.fColumns, select.fColumns);
    EXPECT_EQ(cursor.fSerialNumber, sqldb::SQLCursorBase::sfCursorSerialNumber);
    ASSERT_EQ(cursor.fOffsets.fItems.size(), 1u);
    EXPECT_EQ(cursor.fOffsets.fItems[0].fByteOffset, 0u);
    EXPECT_EQ(cursor.fOffsets.fItems[0].fBuffer, 0u);
    EXPECT_EQ(cursor.fRowCount, 0u);
    EXPECT_NE(cursor.fStatement, nullptr);
    EXPECT_FALSE(cursor.fFinalized);
    const auto& callback = dynamic_cast<const SelectCallback&>(*select.fCallback);
    EXPECT_EQ(callback.fCursor.get(), &cursor);
    fObserved = true;
  }

  const shared_ptr<SQLTermBase> fTerm = MakeTerm(kObserved);
  StepObserver fObserver{fDatabase};
  bool fObserved = false;
};

TEST_F(ObservedQueryTest, CountIsASelectOfOneColumnOnAStepCursor) {
  fObserver.fAction = [this] {
    ExpectPieces("COUNT(ROWID)", 0, "SELECT COUNT(ROWID) FROM items WHERE observe(qty) = 2");
  };
  EXPECT_EQ(fTable->CountRecords(fTerm), 1u);
  EXPECT_TRUE(fObserved);
}

TEST_F(ObservedQueryTest, HasTermIsASelectOfOneColumnOnAStepCursor) {
  fObserver.fAction = [this] { ExpectPieces("ROWID", 1, "SELECT ROWID FROM items WHERE observe(qty) = 2 LIMIT 1"); };
  EXPECT_TRUE(fTable->HasTerm(fTerm));
  EXPECT_TRUE(fObserved);
}

TEST_F(ObservedQueryTest, QueriesAfterTheFirstAreMadeOfTheSamePieces) {
  for (int round = 0; round < 3; ++round) {
    fTable->CountRecords(nullptr);
    fObserved = false;
    fObserver.fAction = [this] {
      ExpectPieces("COUNT(ROWID)", 0, "SELECT COUNT(ROWID) FROM items WHERE observe(qty) = 2");
    };
    fTable->CountRecords(fTerm);
    EXPECT_TRUE(fObserved);
    fObserver.fAction = nullptr;
    fTable->HasTerm(nullptr);
  }
}

// Stores what it is told to, wherever it is told to.
class ConstantColumn : public sqldb::SQLColumnBase {
 public:
  explicit ConstantColumn(std::uint32_t value)
      : SQLColumnBase(nullptr, "n", "INTEGER", 4, true, false, false, ""), fValue(value) {}
  void AssignTo(void* destination, sqlite3_stmt*, int index) const override {
    EXPECT_EQ(index, 0);
    std::memcpy(destination, &fValue, sizeof fValue);
    ++fAssigned;
  }

  const std::uint32_t fValue;
  mutable int fAssigned = 0;
};

TEST_F(ObservedQueryTest, TheValueComesThroughTheCursorsColumn) {
  const auto constant = boost::make_shared<ConstantColumn>(4711);
  fObserver.fAction = [&] { QuerysCursor(fDatabase).fColumns = {constant}; };
  EXPECT_EQ(fTable->CountRecords(fTerm), 4711u);
  EXPECT_EQ(constant->fAssigned, 1);
  EXPECT_TRUE(fTable->HasTerm(fTerm));
  EXPECT_EQ(constant->fAssigned, 2);
  EXPECT_EQ(constant.use_count(), 1);
}

TEST_F(ObservedQueryTest, WhatIsKeptOfAQueryStaysAsItWas) {
  std::vector<shared_ptr<sqldb::SQLCursorBase>> cursors;
  std::vector<shared_ptr<sqldb::SQLColumnBase>> columns;
  fObserver.fAction = [&] {
    const sqldb::SQLSelectClass& select = *fDatabase.fSelects.back();
    cursors.push_back(dynamic_cast<const SelectCallback&>(*select.fCallback).fCursor);
    columns.push_back(select.fColumns.at(0));
    fObserver.fAction = nullptr;
  };
  const auto keep = fObserver.fAction;
  fTable->CountRecords(fTerm);
  fObserver.fAction = keep;
  fTable->HasTerm(fTerm);
  ASSERT_EQ(columns.size(), 2u);
  fTable->CountRecords(nullptr);
  EXPECT_EQ(columns[0]->fName, "COUNT(ROWID)");
  EXPECT_EQ(columns[1]->fName, "ROWID");
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(cursors[0].get(), cursors[1].get()));
  EXPECT_THAT(cursors[0]->fColumns, ElementsAre(columns[0]));
  EXPECT_THAT(cursors[1]->fColumns, ElementsAre(columns[1]));
  cursors.clear();
  columns.clear();
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
}

TEST_F(ObservedQueryTest, WhatIsKeptOfAQueryMayOutliveTheDatabase) {
  auto database = std::make_unique<sqldb::SQLDatabase>(":memory:", false);
  database->Open();
  database->SendQuery("CREATE TABLE items (qty INTEGER); INSERT INTO items VALUES (2)", nullptr, nullptr);
  const auto table = database->NewTable("items");
  std::vector<shared_ptr<sqldb::SQLColumnBase>> kept;
  {
    StepObserver observer(*database);
    observer.fAction = [&] { kept.push_back(database->fSelects.at(0)->fColumns.at(0)); };
    EXPECT_EQ(table->CountRecords(fTerm), 1u);
    EXPECT_TRUE(table->HasTerm(fTerm));
  }
  auto select = database->NewSelect(table, 0);
  database.reset();
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_EQ(kept[0]->fName, "COUNT(ROWID)");
  EXPECT_EQ(kept[1]->fName, "ROWID");
}

TEST_F(ObservedQueryTest, WhatIsKeptOfAQueryMayBeReleasedInAnotherThread) {
  constexpr std::uint32_t kQueries = 500;
  std::mutex mutex;
  std::vector<shared_ptr<sqldb::SQLColumnBase>> kept;
  bool isOver = false;
  fObserver.fAction = [&] {
    const std::lock_guard<std::mutex> lock(mutex);
    kept.push_back(fDatabase.fSelects.at(0)->fColumns.at(0));
  };
  std::thread other([&] {
    for (bool wasOver = false; !wasOver; std::this_thread::yield()) {
      std::vector<shared_ptr<sqldb::SQLColumnBase>> released;  // after the lock, beside the queries
      const std::lock_guard<std::mutex> lock(mutex);
      released.swap(kept);
      wasOver = isOver;
    }
  });
  std::uint32_t sum = 0;
  for (std::uint32_t i = 0; i < kQueries; ++i) sum += fTable->CountRecords(fTerm);
  {
    const std::lock_guard<std::mutex> lock(mutex);
    isOver = true;
  }
  other.join();
  EXPECT_EQ(sum, kQueries);
}

TEST_F(ObservedQueryTest, QueriesMayBeMadeInTheMiddleOfAnother) {
  std::vector<std::uint32_t> counts;
  fObserver.fAction = [&] {
    const auto inner = MakeTerm(" qty > 1 AND 'a text that is longer than that of the query around it' <> ''");
    counts.push_back(fTable->CountRecords(inner) + (fTable->HasTerm(inner) ? 10 : 0));
  };
  EXPECT_EQ(fTable->CountRecords(fTerm), 1u);
  EXPECT_THAT(counts, ElementsAre(12, 12, 12));
}

TEST_F(RecordQueryTest, OneQueryAfterTheOtherAllocatesItsCallbackOnly) {
  FillTable();
  const auto term = MakeTerm(" qty > 1");
  const auto other = fDatabase.NewSelect(fTable, 0);
  const auto query = [&] {
    fTable->CountRecords(term);
    fTable->HasTerm(term);
  };
  query();
  // A 32-bit libc++ has no room for this text in the string itself: in the argument, and in the column that copies it.
  const support::AllocationCount ofText;
  { const std::string argument("COUNT(ROWID)"), copy(argument); }
  const std::uint64_t expected = 2 + ofText.Count();
  const support::AllocationCount count;
  query();
  EXPECT_EQ(count.Count(), expected);
}

TEST_F(RecordQueryTest, QueriesOnATableThatIsNotRegisteredThrowBeforeAnySql) {
  SQLTableClass stranger(fDatabase, "items");
  const auto term = boost::shared_ptr<TextTerm>(new TextTerm(" qty > 1"));
  const std::int32_t before = sqldb::SQLCursorBase::sfCursorSerialNumber;
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { stranger.CountRecords(term); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { stranger.HasTerm(term); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_EQ(term->fAsked, 0);
  EXPECT_EQ(term.use_count(), 1);
  EXPECT_EQ(sqldb::SQLCursorBase::sfCursorSerialNumber, before);
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
}

TEST_F(RecordQueryTest, DeleteNeedsNoRegistration) {
  FillTable();
  SQLTableClass stranger(fDatabase, "items");
  stranger.DeleteRecords(MakeTerm(" qty = 2"));
  EXPECT_THAT(Rows("SELECT qty FROM items"), ElementsAre("1", "3"));
}

TEST_F(RecordQueryTest, DroppedTableIsNotRegisteredAnyMore) {
  fDatabase.DropTable(fTable);
  EXPECT_EQ(MessageOf([&] { fTable->CountRecords(nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->HasTerm(nullptr); }), kNotMet);
}

TEST_F(RecordQueryTest, CountOfAMissingTableFailsAtItsPrepare) {
  Rows("DROP TABLE items");
  const auto term = MakeTerm(" qty > 1");
  CallRecorder recorder;
  ExpectCleanFailure(term, "no such table: items", [&] { fTable->CountRecords(term); });
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT COUNT(ROWID) FROM items WHERE qty > 1' = 1", "errmsg"));
}

TEST_F(RecordQueryTest, HasTermOfAnUnknownColumnFailsAtItsPrepare) {
  const auto term = MakeTerm(" nope = 1");
  CallRecorder recorder;
  ExpectCleanFailure(term, "no such column: nope", [&] { fTable->HasTerm(term); });
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT ROWID FROM items WHERE nope = 1 LIMIT 1' = 1", "errmsg"));
}

TEST_F(RecordQueryTest, CountThatFailsHalfWayFinalizesAndThrowsTheStepsMessage) {
  FillTable();
  const auto term = MakeTerm(kOverflow);
  CallRecorder recorder;
  ExpectCleanFailure(term, support::LogicError(), [&] { fTable->CountRecords(term); });
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT COUNT(ROWID) FROM items WHERE" + std::string(kOverflow) + "' = 0",
                          "step = 1", "errmsg", "finalize = 1"));
}

TEST_F(RecordQueryTest, HasTermThatFailsHalfWayFinalizesAndThrowsTheStepsMessage) {
  FillTable();
  const auto term = MakeTerm(kOverflow);
  CallRecorder recorder;
  ExpectCleanFailure(term, support::LogicError(), [&] { fTable->HasTerm(term); });
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT ROWID FROM items WHERE" + std::string(kOverflow) + " LIMIT 1' = 0",
                          "step = 1", "errmsg", "finalize = 1"));
}

TEST_F(RecordQueryTest, WhatFinalizingReportsIsNoFailure) {
  FillTable();
  CallRecorder recorder;
  recorder.Force("finalize", SQLITE_ERROR, 2);
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
  EXPECT_TRUE(fTable->HasTerm(nullptr));
  EXPECT_EQ(recorder.Count("finalize"), 2u);
  EXPECT_EQ(recorder.Count("errmsg"), 0u);
}

// What an application's term throws while it is asked or printed.
class ThrowingTerm : public SQLTermBase {
 public:
  std::ostream& Print(std::ostream&) const override { throw std::runtime_error("cannot print"); }
  bool NotEmpty() const override { return true; }
};

TEST_F(RecordQueryTest, FailureOfTheTermPassesThroughBeforeAnySql) {
  const shared_ptr<SQLTermBase> term(new ThrowingTerm);
  CallRecorder recorder;
  ExpectCleanFailure(term, "cannot print", [&] { fTable->CountRecords(term); });
  ExpectCleanFailure(term, "cannot print", [&] { fTable->HasTerm(term); });
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(RecordQueryTest, ClosedDatabaseIsOutOfReach) {
  fDatabase.Close();
  const auto term = MakeTerm(" qty > 1");
  EXPECT_EQ(MessageOf([&] { fTable->CountRecords(term); }), "out of memory");
  EXPECT_EQ(MessageOf([&] { fTable->HasTerm(term); }), "out of memory");
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(term); }), "out of memory");
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
  EXPECT_THAT(fDatabase.fCursors, IsEmpty());
}

TEST_F(RecordQueryTest, CountWaitsUntilTheFileIsFree) {
  FillTable();
  OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  int waits = 0;
  recorder.fAfterCall = [&](const Call& call) {
    if (call.function == "usleep" && ++waits == 2) other.Run("COMMIT");
  };
  EXPECT_EQ(fTable->CountRecords(nullptr), 3u);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT COUNT(ROWID) FROM items' = 0", "step = 5", "usleep 100000",
                                            "step = 5", "usleep 100000", "step = 100", "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, HasTermWaitsUntilTheFileIsFree) {
  FillTable();
  CallRecorder recorder;
  recorder.Force("step", SQLITE_BUSY, 2);
  EXPECT_TRUE(fTable->HasTerm(nullptr));
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'SELECT ROWID FROM items LIMIT 1' = 0", "step = 5", "usleep 100000", "step = 5",
                          "usleep 100000", "step = 100", "column_int 0", "finalize = 0"));
}

TEST_F(RecordQueryTest, QueriesOnAFileThatStaysBusyGiveUpAfterAMinute) {
  OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  for (const bool count : {true, false}) {
    const auto term = MakeTerm(" qty > 1");
    CallRecorder recorder;
    ExpectCleanFailure(term, "database is locked", [&] {
      if (count) {
        fTable->CountRecords(term);
      } else {
        fTable->HasTerm(term);
      }
    });
    EXPECT_EQ(recorder.Count("step"), 601u);
    EXPECT_EQ(recorder.SleptMicroseconds(), 60100000u);
    EXPECT_EQ(recorder.Count("finalize"), 1u);
  }
  other.Run("COMMIT");
}

// Prints a condition, and lets the last owners of the table go.
class ReleasingTerm : public SQLTermBase {
 public:
  explicit ReleasingTerm(std::function<void()> release) : fRelease(std::move(release)) {}
  std::ostream& Print(std::ostream& out) const override {
    fRelease();
    return out << " qty > 0";
  }
  bool NotEmpty() const override { return true; }

 private:
  std::function<void()> fRelease;
};

class ReleasedTableTest : public RecordQueryTest {
 protected:
  // Nobody but the test holds the table any more, so that `fTerm` destroys it.
  ReleasedTableTest() {
    FillTable();
    fDatabase.fTables.clear();
  }

  const shared_ptr<SQLTermBase> fTerm = boost::make_shared<ReleasingTerm>([this] { fTable.reset(); });
};

TEST_F(ReleasedTableTest, ATermThatReleasesTheTableIsNotDeletedBy) {
  SQLTableClass* const table = fTable.get();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { table->DeleteRecords(fTerm); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_FALSE(fTable);
  EXPECT_THAT(Rows("SELECT qty FROM items"), ElementsAre("1", "2", "3"));
}

TEST_F(ReleasedTableTest, ADeleteWhoseTermReleasesTheTableSendsNothing) {
  const auto statement = fTable->NewDelete(fTerm);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { statement->PerformDelete(); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_EQ(statement->fQuery, "DELETE FROM items WHERE qty > 0");
}

TEST_F(RecordQueryTest, ATermThatReleasesTheTableIsCountedByAllTheSame) {
  FillTable();
  const auto term = boost::make_shared<ReleasingTerm>([this] {
    fTable.reset();
    fDatabase.fTables.clear();
  });
  SQLTableClass* const table = fTable.get();
  EXPECT_EQ(table->CountRecords(term), 3u);
  EXPECT_FALSE(fTable);
}

TEST_F(RecordQueryTest, DeleteDoesNotWait) {
  OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(nullptr); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'DELETE FROM items' = 0", "step = 5", "errmsg"));
  other.Run("COMMIT");
}

}  // namespace
