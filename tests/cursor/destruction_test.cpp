// What becomes of a cursor whose statement cannot be finalized cleanly: the destructor throws where the exception can
// reach a caller, and ends quietly where it would end the process.

#include <cstdint>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#ifndef _WIN32
#include <sys/resource.h>
#endif
#include <boost/core/null_deleter.hpp>
#include <boost/make_shared.hpp>
#include <boost/scoped_ptr.hpp>

#include "sqldb/sqldb.h"
#include "support/call_recorder.h"
#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using sqldb::SQLCursorBase;
using support::CallRecorder;
using support::MakeColumn;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Cursor = sqldb::SQLStepCursor<std::uint32_t>;
using CursorPointer = boost::shared_ptr<SQLCursorBase>;

// The failing step's text, and the one that finalizing its statement adds.
const std::string kStepMessage = support::LogicError();
constexpr const char* kFinalizeMessage = "integer overflow";

sqldb::OffsetSpec OneOffset() {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  return offsets;
}

// A cursor that counts how often its memory was given back.
class CountedCursor : public Cursor {
 public:
  using Cursor::Cursor;
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void operator delete(void* block) {
    ++sfFreed;
    ::operator delete(block);
  }
  inline static int sfFreed = 0;
};

class DestructionTest : public support::DatabaseTest {
 protected:
  DestructionTest() {
    fTable = MakeTable("t", {"a"});
    // The second row has no absolute value.
    Rows("INSERT INTO t VALUES (1), (-9223372036854775808), (3)");
    fBefore = std::make_unique<SQLCursorBase>(&fDatabase);
  }
  ~DestructionTest() override { ExpectOrderlyState(); }

  // Nothing to finalize is left, and the lists hold what lives, in order.
  void ExpectOrderlyState() {
    EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 0);
    if (fAfter) {
      EXPECT_THAT(fDatabase.fCursors, ElementsAre(fBefore.get(), fAfter.get()));
    } else {
      EXPECT_THAT(fDatabase.fCursors, ElementsAre(fBefore.get()));
    }
    EXPECT_TRUE(fWatched.expired()) << "the cursor's column was not released";
  }

  // Prepares the cursor by hand and steps it until it fails.
  void Fail(Cursor& cursor) {
    CallRecorder::Pause pause;
    ListOneMoreCursor();
    GiveColumn(cursor);
    cursor.PrepareToQuery("SELECT abs(a) FROM t");
    StepUntilFailure(cursor);
  }

  // The same, prepared by a select, which ends before the cursor.
  void FailSelected(Cursor& cursor, const CursorPointer& owner) {
    CallRecorder::Pause pause;
    ListOneMoreCursor();
    PrepareSelected(owner);
    StepUntilFailure(cursor);
  }

  // A cursor that failed and whose memory is counted; the caller deletes it.
  template <typename Made = Cursor>
  Made* NewFailed() {
    auto* const cursor = new Made(&fDatabase, OneOffset());
    Fail(*cursor);
    return cursor;
  }

  boost::shared_ptr<sqldb::SQLSelectClass> NewAbsSelect() {
    auto select = fDatabase.NewSelect(fTable, 0);
    select << MakeColumn("abs(a)");
    return select;
  }

  void PrepareSelected(const CursorPointer& owner) { NewAbsSelect()->PrepareSelect(owner); }

  void StepUntilFailure(Cursor& cursor) {
    std::uint32_t record = 0;
    EXPECT_EQ(cursor.Step(record), 0);
    EXPECT_EQ(MessageOf([&] { cursor.Step(record); }), kStepMessage);
  }

  void GiveColumn(Cursor& cursor) {
    auto column = MakeColumn("abs(a)");
    fWatched = column;
    cursor.fColumns = {std::move(column)};
  }

  // So that the failed cursor is not the last entry of the list.
  void ListOneMoreCursor() { fAfter = std::make_unique<SQLCursorBase>(&fDatabase); }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  std::unique_ptr<SQLCursorBase> fBefore;
  std::unique_ptr<SQLCursorBase> fAfter;
  boost::weak_ptr<sqldb::SQLColumnBase> fWatched;
};

// Clean ends ----------------------------------------------------------------------------------------------------------

TEST_F(DestructionTest, AStatementIsFinalizedOnceAndQuietly) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, OneOffset());
    cursor.PrepareToQuery("SELECT a FROM t");
    recorder.Clear();
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 0"));
}

TEST_F(DestructionTest, AStatementInTheMiddleOfItsRowsIsFinalizedQuietly) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, OneOffset());
    cursor.PrepareToQuery("SELECT a FROM t");
    std::uint32_t record = 0;
    cursor.Step(record);
    recorder.Clear();
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 0"));
}

TEST_F(DestructionTest, WithoutAStatementNothingIsFinalized) {
  CallRecorder recorder;
  { const Cursor cursor(&fDatabase, OneOffset()); }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(DestructionTest, AStatementThatCallsItselfFinalizedIsLeftAlone) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, OneOffset());
    cursor.PrepareToQuery("SELECT a FROM t");
    recorder.Clear();
    cursor.fFinalized = true;
  }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

// Ends that can be heard ----------------------------------------------------------------------------------------------

TEST_F(DestructionTest, AnAutomaticCursorThrowsTheFinalizeMessage) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] {
              Cursor cursor(&fDatabase, OneOffset());
              Fail(cursor);
            }),
            kFinalizeMessage);
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1", "errmsg"));
}

TEST_F(DestructionTest, ACursorDeletedByHandThrows) {
  Cursor* const cursor = NewFailed();
  EXPECT_EQ(MessageOf([&] { delete cursor; }), kFinalizeMessage);
}

TEST_F(DestructionTest, ACursorDeletedThroughItsBaseThrows) {
  SQLCursorBase* const cursor = NewFailed();
  EXPECT_EQ(MessageOf([&] { delete cursor; }), kFinalizeMessage);
}

TEST_F(DestructionTest, ACursorDeletedInsideACatchBlockThrows) {
  Cursor* const cursor = NewFailed();
  std::string message;
  try {
    throw std::logic_error("handled already");
  } catch (const std::logic_error&) {
    message = MessageOf([&] { delete cursor; });
  }
  EXPECT_EQ(message, kFinalizeMessage);
}

TEST_F(DestructionTest, AnAutomaticCursorInsideACatchBlockThrows) {
  std::string message;
  try {
    throw std::logic_error("handled already");
  } catch (const std::logic_error&) {
    message = MessageOf([&] {
      Cursor cursor(&fDatabase, OneOffset());
      Fail(cursor);
    });
  }
  EXPECT_EQ(message, kFinalizeMessage);
}

TEST_F(DestructionTest, TheMemoryOfACursorThatThrewIsGivenBack) {
  const int before = CountedCursor::sfFreed;
  const auto* const cursor = NewFailed<CountedCursor>();
  EXPECT_EQ(MessageOf([&] { delete cursor; }), kFinalizeMessage);
  EXPECT_EQ(CountedCursor::sfFreed, before + 1);
}

TEST_F(DestructionTest, TheMemoryIsGivenBackThroughTheBaseToo) {
  const int before = CountedCursor::sfFreed;
  const SQLCursorBase* const cursor = NewFailed<CountedCursor>();
  EXPECT_EQ(MessageOf([&] { delete cursor; }), kFinalizeMessage);
  EXPECT_EQ(CountedCursor::sfFreed, before + 1);
}

TEST_F(DestructionTest, TheListIsLeftAndTheColumnsAreReleasedByTheTimeTheExceptionArrives) {
  Cursor* const cursor = NewFailed();
  try {
    delete cursor;
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::runtime_error&) {
    ExpectOrderlyState();
  }
}

TEST_F(DestructionTest, AForcedFinalizeFailureThrowsTheConnectionsText) {
  CallRecorder recorder;
  std::string expected;
  EXPECT_EQ(MessageOf([&] {
              Cursor cursor(&fDatabase, OneOffset());
              cursor.PrepareToQuery("SELECT a FROM t");
              {
                CallRecorder::Pause pause;
                sqlite3_exec(fDatabase.fConnection, "SELECT provoked", nullptr, nullptr, nullptr);
              }
              recorder.Clear();
              recorder.Force("finalize", 19);
              recorder.fAfterCall = [this](const support::Call& call) {
                if (call.function != "finalize") return;
                sqlite3_exec(fDatabase.fConnection, "SELECT provoked", nullptr, nullptr, nullptr);
              };
            }),
            "no such column: provoked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 19", "errmsg"));
}

TEST_F(DestructionTest, EveryNonZeroFinalizeResultThrows) {
  CallRecorder recorder;
  for (int code = 1; code <= 101; ++code) {
    EXPECT_THROW(
        {
          Cursor cursor(&fDatabase, OneOffset());
          cursor.PrepareToQuery("SELECT a FROM t");
          recorder.Clear();
          recorder.Force("finalize", code);
        },
        std::runtime_error)
        << code;
    EXPECT_EQ(fDatabase.fCursors.size(), 1U) << code;
  }
}

TEST_F(DestructionTest, ABusyStepIsRepeatedByTheDestructorAsAMessage) {
  support::OtherConnection other(DatabasePath());
  EXPECT_EQ(MessageOf([&] {
              Cursor cursor(&fDatabase, OneOffset());
              GiveColumn(cursor);
              cursor.PrepareToQuery("SELECT a FROM t");
              other.Run("BEGIN EXCLUSIVE");
              CallRecorder recorder;
              std::uint32_t record = 0;
              EXPECT_THROW(cursor.Step(record), std::runtime_error);
            }),
            "database is locked");
  other.Run("ROLLBACK");
}

// Ends under a shared pointer -----------------------------------------------------------------------------------------

TEST_F(DestructionTest, ASharedPointerToTheCursorEndsQuietly) {
  boost::shared_ptr<Cursor> owner(new Cursor(&fDatabase, OneOffset()));
  Fail(*owner);
  CallRecorder recorder;
  owner.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, ASharedPointerToTheBaseMadeFromTheCursorEndsQuietly) {
  auto* const cursor = new Cursor(&fDatabase, OneOffset());
  CursorPointer owner(cursor);
  Fail(*cursor);
  CallRecorder recorder;
  owner.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, ASharedPointerMadeFromTheBaseEndsQuietlyOnceASelectHasSeenIt) {
  auto* const cursor = new Cursor(&fDatabase, OneOffset());
  CursorPointer owner(static_cast<SQLCursorBase*>(cursor));
  FailSelected(*cursor, owner);
  CallRecorder recorder;
  owner.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, ACursorMadeSharedInOneBlockEndsQuietly) {
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  Fail(*owner);
  CallRecorder recorder;
  owner.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, AForcedFinalizeFailureUnderASharedPointerIsQuiet) {
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  owner->PrepareToQuery("SELECT a FROM t");
  CallRecorder recorder;
  recorder.Force("finalize", 1);
  owner.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, TheLastOfSeveralSharedPointersEndsQuietly) {
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  std::vector<CursorPointer> others{owner, owner};
  Fail(*owner);
  owner.reset();
  EXPECT_NO_THROW(others.clear());
}

TEST_F(DestructionTest, AssignmentToTheLastSharedPointerEndsQuietly) {
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  Fail(*owner);
  EXPECT_NO_THROW(owner = nullptr);
}

TEST_F(DestructionTest, AnAutomaticCursorOnceSharedThroughANullDeleterEndsQuietly) {
  CallRecorder recorder;
  EXPECT_NO_THROW({
    Cursor cursor(&fDatabase, OneOffset());
    { const boost::shared_ptr<Cursor> borrowed(&cursor, boost::null_deleter()); }
    Fail(cursor);
  });
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, AnAutomaticCursorLentToASelectEndsQuietly) {
  EXPECT_NO_THROW({
    Cursor cursor(&fDatabase, OneOffset());
    FailSelected(cursor, CursorPointer(static_cast<SQLCursorBase*>(&cursor), boost::null_deleter()));
  });
}

// Ends during another failure -----------------------------------------------------------------------------------------

TEST_F(DestructionTest, AnotherExceptionInFlightIsTheOneThatArrives) {
  CallRecorder recorder;
  const auto fail = [this] {
    Cursor cursor(&fDatabase, OneOffset());
    Fail(cursor);
    throw std::runtime_error("the other one");
  };
  EXPECT_EQ(MessageOf(fail), "the other one");
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
}

TEST_F(DestructionTest, AFailedStepIsWhatTheCallerOfAnAutomaticCursorSees) {
  const auto fail = [this] {
    Cursor cursor(&fDatabase, OneOffset());
    GiveColumn(cursor);
    cursor.PrepareToQuery("SELECT abs(a) FROM t");
    std::uint32_t record = 0;
    while (cursor.Step(record) == 0) {
    }
  };
  EXPECT_EQ(MessageOf(fail), kStepMessage);
}

TEST_F(DestructionTest, AFailedStepIsWhatTheCallerOfASharedCursorSees) {
  const auto fail = [this] {
    const auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
    GiveColumn(*owner);
    owner->PrepareToQuery("SELECT abs(a) FROM t");
    std::uint32_t record = 0;
    while (owner->Step(record) == 0) {
    }
  };
  EXPECT_EQ(MessageOf(fail), kStepMessage);
}

// Runs a piece of code in its destructor.
template <typename Action>
class AtExit {
 public:
  explicit AtExit(Action action) : fAction(std::move(action)) {}
  ~AtExit() { fAction(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

 private:
  Action fAction;
};

TEST_F(DestructionTest, ACursorInsideADestructorThatUnwindingRunsEndsQuietly) {
  const auto fail = [this] {
    const AtExit atExit([this] {
      Cursor cursor(&fDatabase, OneOffset());
      Fail(cursor);
    });
    throw std::runtime_error("the other one");
  };
  EXPECT_EQ(MessageOf(fail), "the other one");
}

TEST_F(DestructionTest, ACursorDeletedByADestructorThatUnwindingRunsEndsQuietly) {
  Cursor* const cursor = NewFailed();
  const auto fail = [cursor] {
    const AtExit atExit([cursor] { delete cursor; });
    throw std::runtime_error("the other one");
  };
  EXPECT_EQ(MessageOf(fail), "the other one");
}

TEST_F(DestructionTest, WhatAColumnThrewDoesNotMakeTheEndFail) {
  class ColumnThatThrows : public sqldb::SQLColumnBase {
   public:
    ColumnThatThrows() : SQLColumnBase(nullptr, "x", "INTEGER", 4, true, false, false, "") {}
    void AssignTo(void*, sqlite3_stmt*, int) const override { throw std::logic_error("the application's own"); }
  };
  CallRecorder recorder;
  EXPECT_NO_THROW({
    Cursor cursor(&fDatabase, OneOffset());
    cursor.fColumns.push_back(boost::make_shared<ColumnThatThrows>());
    cursor.PrepareToQuery("SELECT a FROM t");
    std::uint32_t record = 0;
    EXPECT_THROW(cursor.Step(record), std::logic_error);
    recorder.Clear();
  });
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 0"));
}

// Selects, and the queries that a table makes -------------------------------------------------------------------------

TEST_F(DestructionTest, ASelectDestroyedAfterItsCursorFailedEndsQuietly) {
  auto select = NewAbsSelect();
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  select->PrepareSelect(owner);
  StepUntilFailure(*owner);
  owner.reset();
  CallRecorder recorder;
  EXPECT_NO_THROW(select.reset());
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
}

TEST_F(DestructionTest, ACursorThatOutlivesItsSelectEndsQuietlyToo) {
  auto select = NewAbsSelect();
  auto owner = boost::make_shared<Cursor>(&fDatabase, OneOffset());
  select->PrepareSelect(owner);
  StepUntilFailure(*owner);
  select.reset();
  EXPECT_NO_THROW(owner.reset());
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
}

TEST_F(DestructionTest, ASelectThatTheEngineRefusesLeavesBothListsInOrder) {
  const auto fail = [this] {
    auto select = fDatabase.NewSelect(fTable, 0);
    select << MakeColumn("nope");
    select->PrepareSelect(boost::make_shared<Cursor>(&fDatabase, OneOffset()));
  };
  EXPECT_EQ(MessageOf(fail), "no such column: nope");
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
}

class FailingQueryTest : public DestructionTest {
 protected:
  template <typename Query>
  void ExpectStepFailure(Query query) {
    CallRecorder recorder;
    EXPECT_EQ(MessageOf(query), kStepMessage);
    const std::vector<std::string> lines = recorder.Lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.end()),
                ElementsAre("step = 1", "errmsg", "finalize = 1"));
    ExpectOrderlyState();
    EXPECT_THAT(fDatabase.fSelects, IsEmpty());
  }

  template <typename Query>
  void ExpectBusyFailure(Query query) {
    support::OtherConnection other(DatabasePath());
    other.Run("BEGIN EXCLUSIVE");
    CallRecorder recorder;
    EXPECT_EQ(MessageOf(query), "database is locked");
    EXPECT_EQ(recorder.Count("usleep"), 601U);
    EXPECT_EQ(recorder.Lines().back(), "finalize = 5");
    EXPECT_THAT(fDatabase.fSelects, IsEmpty());
    other.Run("ROLLBACK");
  }

  boost::shared_ptr<sqldb::SQLTermBase> fFailing = support::MakeTerm(" abs(a) > 100");
};

TEST_F(FailingQueryTest, ACountThatFailsHalfWayThrowsTheStepsMessage) {
  ExpectStepFailure([this] { fTable->CountRecords(fFailing); });
}

TEST_F(FailingQueryTest, ALookUpThatFailsHalfWayThrowsTheStepsMessage) {
  ExpectStepFailure([this] { fTable->HasTerm(fFailing); });
}

TEST_F(FailingQueryTest, ACountOnABusyFileThrowsTheStepsMessage) {
  ExpectBusyFailure([this] { fTable->CountRecords(nullptr); });
}

TEST_F(FailingQueryTest, ALookUpOnABusyFileThrowsTheStepsMessage) {
  ExpectBusyFailure([this] { fTable->HasTerm(nullptr); });
}

TEST_F(FailingQueryTest, ACountWhoseStatementCannotBeFinalizedReturnsItsCount) {
  CallRecorder recorder;
  recorder.Force("finalize", 1);
  EXPECT_EQ(fTable->CountRecords(nullptr), 3U);
  EXPECT_EQ(recorder.Lines().back(), "finalize = 1");
}

TEST_F(FailingQueryTest, ALookUpWhoseStatementCannotBeFinalizedReturnsItsAnswer) {
  CallRecorder recorder;
  recorder.Force("finalize", 1);
  EXPECT_TRUE(fTable->HasTerm(nullptr));
  EXPECT_EQ(recorder.Lines().back(), "finalize = 1");
}

TEST_F(FailingQueryTest, TheTableAnswersAgainAfterAFailure) {
  EXPECT_THROW(fTable->CountRecords(fFailing), std::runtime_error);
  EXPECT_EQ(fTable->CountRecords(support::MakeTerm(" a > 0")), 2U);
}

// Without its database ------------------------------------------------------------------------------------------------

TEST_F(DestructionTest, AFailedCursorThatOutlivesItsDatabaseEndsQuietly) {
  auto database = std::make_unique<sqldb::SQLDatabase>(DatabasePath(), false);
  database->Open();
  sqlite3* const connection = database->fConnection;
  auto* const cursor = new Cursor(database.get(), OneOffset());
  GiveColumn(*cursor);
  cursor->PrepareToQuery("SELECT abs(a) FROM t");
  StepUntilFailure(*cursor);
  database.reset();
  CallRecorder recorder;
  EXPECT_NO_THROW(delete cursor);
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 1"));
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
}

TEST_F(DestructionTest, APreparedCursorThatOutlivesItsDatabaseIsFinalized) {
  auto database = std::make_unique<sqldb::SQLDatabase>(DatabasePath(), false);
  database->Open();
  sqlite3* const connection = database->fConnection;
  auto cursor = boost::make_shared<Cursor>(database.get(), OneOffset());
  cursor->PrepareToQuery("SELECT a FROM t");
  database.reset();
  CallRecorder recorder;
  cursor.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("finalize = 0"));
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
}

// Every owner, state, way of leaving and fate of the database
// -----------------------------------------------------------

// Who holds the cursor.
enum class Owner { kAutomatic, kHand, kHandThroughBase, kShared, kSharedBase, kMadeShared, kSharedFromBaseAndSelected };
// What its statement says when it is finalized.
enum class Ending { kUnprepared, kClean, kStepFailed, kFinalizeForced };
// How the owner lets go.
enum class Leaving { kPlainly, kInCatchBlock, kUnwinding, kInDestructorDuringUnwinding };
enum class Fate { kLives, kClosed, kDestroyed };

struct Case {
  Owner owner;
  Ending ending;
  Leaving leaving;
  Fate fate;
};

// One case, on a database of its own.
class Trial {
 public:
  explicit Trial(const Case& one) : fCase(one), fDatabase(new sqldb::SQLDatabase(":memory:", false)) {
    fDatabase->Open();
    fConnection = fDatabase->fConnection;
    support::RowsOf(fConnection, "CREATE TABLE t (a); INSERT INTO t VALUES (1), (-9223372036854775808)");
    fTable = fDatabase->NewTable("t");
    fBefore = std::make_unique<SQLCursorBase>(fDatabase.get());
  }

  void Run() {
    EXPECT_EQ(LetGo(), Expected());
    const bool isPrepared = fCase.ending != Ending::kUnprepared;
    EXPECT_EQ(fRecorder.Count("finalize"), isPrepared ? 1U : 0U);
    if (fDatabase) {
      EXPECT_THAT(fDatabase->fCursors, ElementsAre(fBefore.get(), fAfter.get()));
      fDatabase->fIsOpen = false;
    }
    // Without a statement the close was accepted.
    if (!isPrepared && fCase.fate != Fate::kLives) return;
    EXPECT_EQ(sqlite3_next_stmt(fConnection, nullptr), nullptr) << "the statement was not finalized";
    EXPECT_EQ(sqlite3_close(fConnection), SQLITE_OK);
  }

 private:
  template <typename Made>
  struct DeletedByHand {
    Made* fCursor;
    ~DeletedByHand() noexcept(false) { delete fCursor; }
  };

  // Brings the cursor to the ending that is wanted, and the database to its fate.
  void Ready(Cursor& cursor, const CursorPointer& owner) {
    fAfter = std::make_unique<SQLCursorBase>(fDatabase.get());
    if (fCase.ending != Ending::kUnprepared) {
      if (fCase.owner == Owner::kSharedFromBaseAndSelected) {
        auto select = fDatabase->NewSelect(fTable, 0);
        select << MakeColumn("abs(a)");
        select->PrepareSelect(owner);
      } else {
        cursor.fColumns = {MakeColumn("abs(a)")};
        cursor.PrepareToQuery("SELECT abs(a) FROM t");
      }
      std::uint32_t record = 0;
      EXPECT_EQ(cursor.Step(record), 0);
      if (fCase.ending == Ending::kStepFailed) {
        EXPECT_EQ(MessageOf([&] { cursor.Step(record); }), kStepMessage);
      }
    }
    if (fCase.ending == Ending::kFinalizeForced) fRecorder.Force("finalize", SQLITE_IOERR);
    if (fCase.fate == Fate::kClosed) fDatabase->Close();
    if (fCase.fate == Fate::kDestroyed) fDatabase.reset();
  }

  // Runs in a scope of its own, at whose end the owner lets go.
  void HoldAndLetGo() {
    switch (fCase.owner) {
      case Owner::kAutomatic: {
        Cursor cursor(fDatabase.get(), OneOffset());
        Ready(cursor, CursorPointer());
        return Leave();
      }
      case Owner::kHand: {
        const DeletedByHand<Cursor> owner{new Cursor(fDatabase.get(), OneOffset())};
        Ready(*owner.fCursor, CursorPointer());
        return Leave();
      }
      case Owner::kHandThroughBase: {
        auto* const cursor = new Cursor(fDatabase.get(), OneOffset());
        const DeletedByHand<SQLCursorBase> owner{cursor};
        Ready(*cursor, CursorPointer());
        return Leave();
      }
      case Owner::kShared: {
        const boost::shared_ptr<Cursor> owner(new Cursor(fDatabase.get(), OneOffset()));
        Ready(*owner, owner);
        return Leave();
      }
      case Owner::kSharedBase: {
        auto* const cursor = new Cursor(fDatabase.get(), OneOffset());
        const CursorPointer owner(cursor);
        Ready(*cursor, owner);
        return Leave();
      }
      case Owner::kMadeShared: {
        const auto owner = boost::make_shared<Cursor>(fDatabase.get(), OneOffset());
        Ready(*owner, owner);
        return Leave();
      }
      case Owner::kSharedFromBaseAndSelected: {
        auto* const cursor = new Cursor(fDatabase.get(), OneOffset());
        const CursorPointer owner(static_cast<SQLCursorBase*>(cursor));
        Ready(*cursor, owner);
        return Leave();
      }
    }
  }

  // What the caller sees; the process has to live for it.
  std::string LetGo() {
    switch (fCase.leaving) {
      case Leaving::kPlainly:
      case Leaving::kUnwinding:
        return MessageOf([this] { HoldAndLetGo(); });
      case Leaving::kInCatchBlock:
        try {
          throw std::runtime_error("caught already");
        } catch (const std::runtime_error&) {
          return MessageOf([this] { HoldAndLetGo(); });
        }
      case Leaving::kInDestructorDuringUnwinding:
        return MessageOf([this] {
          const AtExit inner([this] { HoldAndLetGo(); });
          throw std::runtime_error("first");
        });
    }
    return "(unknown)";
  }

  std::string Expected() const {
    if (fCase.leaving == Leaving::kUnwinding || fCase.leaving == Leaving::kInDestructorDuringUnwinding) return "first";
    const bool isShared =
        fCase.owner != Owner::kAutomatic && fCase.owner != Owner::kHand && fCase.owner != Owner::kHandThroughBase;
    const bool fails = fCase.ending == Ending::kStepFailed || fCase.ending == Ending::kFinalizeForced;
    if (isShared || !fails || fCase.fate == Fate::kDestroyed) return "(nothing thrown)";
    // A forced result leaves SQLite's own text alone.
    return fCase.ending == Ending::kStepFailed ? kFinalizeMessage : "not an error";
  }

  void Leave() const {
    if (fCase.leaving == Leaving::kUnwinding) throw std::runtime_error("first");
  }

  const Case fCase;
  CallRecorder fRecorder;
  std::unique_ptr<sqldb::SQLDatabase> fDatabase;
  sqlite3* fConnection = nullptr;
  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  std::unique_ptr<SQLCursorBase> fBefore;
  std::unique_ptr<SQLCursorBase> fAfter;
};

TEST(DestructionMatrixTest, TheProcessLivesAndTheFirstErrorIsSeenInEveryCase) {
  int cases = 0;
  for (const Owner owner : {Owner::kAutomatic, Owner::kHand, Owner::kHandThroughBase, Owner::kShared,
                            Owner::kSharedBase, Owner::kMadeShared, Owner::kSharedFromBaseAndSelected}) {
    for (const Ending ending : {Ending::kUnprepared, Ending::kClean, Ending::kStepFailed, Ending::kFinalizeForced}) {
      for (const Leaving leaving :
           {Leaving::kPlainly, Leaving::kInCatchBlock, Leaving::kUnwinding, Leaving::kInDestructorDuringUnwinding}) {
        for (const Fate fate : {Fate::kLives, Fate::kClosed, Fate::kDestroyed}) {
          SCOPED_TRACE(::testing::Message()
                       << "owner " << static_cast<int>(owner) << ", ending " << static_cast<int>(ending) << ", leaving "
                       << static_cast<int>(leaving) << ", fate " << static_cast<int>(fate));
          Trial(Case{owner, ending, leaving, fate}).Run();
          ++cases;
        }
      }
    }
  }
  EXPECT_EQ(cases, 336);
}

// Owners that cannot be told from a delete by hand --------------------------------------------------------------------

struct Holder {
  Holder(sqldb::SQLDatabase* database, const sqldb::OffsetSpec& offsets) : fCursor(database, offsets) {}
  Cursor fCursor;
};

class DestructionDeathTest : public DestructionTest {
 protected:
  // `release` lets `cursor`, which has failed, be destroyed. It does so in a child of its own, and then in this process
  // once the cursor has nothing to finalize any more.
  template <typename Release>
  void ExpectDeath(Cursor& cursor, const Release& release) {
    EXPECT_DEATH_IF_SUPPORTED(WithoutMemoryImage(release), kFinalizeMessage);
    sqlite3_finalize(cursor.fStatement);
    cursor.fFinalized = true;
    release();
  }

  template <typename Release>
  static void WithoutMemoryImage(const Release& release) {
#ifndef _WIN32
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
#endif
    release();
  }

  Holder* NewFailedHolder() {
    auto* const holder = new Holder(&fDatabase, OneOffset());
    Fail(holder->fCursor);
    return holder;
  }
};

TEST_F(DestructionDeathTest, AUniquePointerToAFailedCursorEndsTheProcess) {
  std::unique_ptr<Cursor> owner(NewFailed());
  ExpectDeath(*owner, [&] { owner.reset(); });
}

TEST_F(DestructionDeathTest, AStandardSharedPointerToAFailedCursorEndsTheProcess) {
  std::shared_ptr<Cursor> owner(NewFailed());
  ExpectDeath(*owner, [&] { owner.reset(); });
}

TEST_F(DestructionDeathTest, AScopedPointerToAFailedCursorEndsTheProcess) {
  boost::scoped_ptr<Cursor> owner(NewFailed());
  ExpectDeath(*owner, [&] { owner.reset(); });
}

TEST_F(DestructionDeathTest, AContainerWithAFailedCursorEndsTheProcess) {
  std::list<Cursor> owner;
  owner.emplace_back(&fDatabase, OneOffset());
  Fail(owner.front());
  ExpectDeath(owner.front(), [&] { owner.clear(); });
}

TEST_F(DestructionDeathTest, AUniquePointerToAnObjectWithAFailedCursorEndsTheProcess) {
  std::unique_ptr<Holder> owner(NewFailedHolder());
  ExpectDeath(owner->fCursor, [&] { owner.reset(); });
}

TEST_F(DestructionDeathTest, ABoostSharedPointerToAnObjectWithAFailedCursorEndsTheProcess) {
  boost::shared_ptr<Holder> owner(NewFailedHolder());
  ExpectDeath(owner->fCursor, [&] { owner.reset(); });
}

TEST_F(DestructionDeathTest, ABoostSharedPointerMadeFromTheBaseEndsTheProcessUnlessASelectHasSeenIt) {
  Cursor* const cursor = NewFailed();
  CursorPointer owner(static_cast<SQLCursorBase*>(cursor));
  ExpectDeath(*cursor, [&] { owner.reset(); });
}

}  // namespace
