#include <type_traits>

#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLEmptyTerm;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using support::Call;
using support::CallRecorder;
using support::DatabaseTest;
using support::MakeTerm;
using support::MessageOf;
using support::OtherConnection;
using support::TextTerm;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNotMet[] = "Condition is not met.";

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

TEST_F(RecordQueryTest, DeleteDoesNotWait) {
  OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(nullptr); }), "database is locked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'DELETE FROM items' = 0", "step = 5", "errmsg"));
  other.Run("COMMIT");
}

}  // namespace
