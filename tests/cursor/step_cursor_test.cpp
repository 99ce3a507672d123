#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "sqldb/cursor.h"
#include "support/allocations.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using sqldb::ItemOffset;
using sqldb::OffsetSpec;
using support::CallRecorder;
using support::InMemoryOrder;
using support::MakeColumn;
using support::MessageOf;
using support::VirtualSlot;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using Cursor = sqldb::SQLStepCursor<std::uint32_t>;

constexpr int kRetries = 600;
constexpr std::uint32_t kUntouched = 4711;

OffsetSpec Offsets(std::initializer_list<ItemOffset> items) {
  OffsetSpec offsets;
  for (const ItemOffset& item : items) offsets.PushOffset(item.fByteOffset, item.fBuffer);
  return offsets;
}

// Notes where it is told to write, and writes nothing.
class NotingColumn : public sqldb::SQLColumnBase {
 public:
  struct Assignment {
    void* fDestination;
    sqlite3_stmt* fStatement;
    int fIndex;
    bool operator==(const Assignment& other) const {
      return fDestination == other.fDestination && fStatement == other.fStatement && fIndex == other.fIndex;
    }
  };

  explicit NotingColumn(std::vector<Assignment>& assignments)
      : SQLColumnBase(nullptr, "n", "INTEGER", 4, true, false, false, ""), fAssignments(assignments) {}
  void AssignTo(void* destination, sqlite3_stmt* statement, int index) const override {
    fAssignments.push_back(Assignment{destination, statement, index});
  }

 private:
  std::vector<Assignment>& fAssignments;
};

class ThrowingColumn : public sqldb::SQLColumnBase {
 public:
  ThrowingColumn() : SQLColumnBase(nullptr, "x", "INTEGER", 4, true, false, false, "") {}
  void AssignTo(void*, sqlite3_stmt*, int) const override { throw std::logic_error("the application's own"); }
};

// Shows which buffers a Step would use.
class CollectingCursor : public Cursor {
 public:
  using Cursor::Cursor;
  using sqldb::SQLStepCursorBase::CollectBuffers;
};

// A record that cannot be written to where an overloaded operator says it is.
struct Evasive {
  Evasive* operator&() { return nullptr; }
  std::uint32_t fValue;
};

// Offset specs --------------------------------------------------------------------------------------------------------

TEST(OffsetSpecTest, ItemsHoldTheByteOffsetThenTheBuffer) {
  static_assert(std::is_same_v<decltype(ItemOffset::fByteOffset), std::uint32_t>);
  static_assert(std::is_same_v<decltype(ItemOffset::fBuffer), std::uint16_t>);
  static_assert(offsetof(ItemOffset, fByteOffset) == 0);
  static_assert(offsetof(ItemOffset, fBuffer) == 4);
}

TEST(OffsetSpecTest, StartsEmpty) { EXPECT_THAT(OffsetSpec().fItems, IsEmpty()); }

TEST(OffsetSpecTest, TheListIsItsOnlyMember) {
  static_assert(std::is_same_v<decltype(OffsetSpec::fItems), std::vector<ItemOffset>>);
  static_assert(sizeof(OffsetSpec) == sizeof(std::vector<ItemOffset>));
}

TEST(OffsetSpecTest, PushTakesTheByteOffsetFirst) {
  OffsetSpec offsets;
  offsets.PushOffset(70000, 3);
  ASSERT_EQ(offsets.fItems.size(), 1U);
  EXPECT_EQ(offsets.fItems[0].fByteOffset, 70000U);
  EXPECT_EQ(offsets.fItems[0].fBuffer, 3U);
}

TEST(OffsetSpecTest, PushAppends) {
  const OffsetSpec offsets = Offsets({{8, 0}, {4, 1}, {0, 2}});
  ASSERT_EQ(offsets.fItems.size(), 3U);
  EXPECT_EQ(offsets.fItems[0].fByteOffset, 8U);
  EXPECT_EQ(offsets.fItems[1].fByteOffset, 4U);
  EXPECT_EQ(offsets.fItems[2].fByteOffset, 0U);
}

TEST(OffsetSpecTest, TheFullRangeOfBothNumbersIsKept) {
  const OffsetSpec offsets = Offsets({{0xFFFFFFFF, 0xFFFF}});
  EXPECT_EQ(offsets.fItems[0].fByteOffset, 0xFFFFFFFFU);
  EXPECT_EQ(offsets.fItems[0].fBuffer, 0xFFFFU);
}

TEST(OffsetSpecTest, ACopyIsIndependent) {
  OffsetSpec original = Offsets({{0, 0}});
  const OffsetSpec copy(original);
  original.PushOffset(4, 0);
  original.fItems[0].fByteOffset = 9;
  ASSERT_EQ(copy.fItems.size(), 1U);
  EXPECT_EQ(copy.fItems[0].fByteOffset, 0U);
}

TEST(OffsetSpecTest, CanBeAssigned) {
  OffsetSpec offsets = Offsets({{0, 0}});
  offsets = Offsets({{4, 1}, {8, 2}});
  EXPECT_EQ(offsets.fItems.size(), 2U);
}

// The cursor's shape --------------------------------------------------------------------------------------------------

class StepCursorTest : public support::DatabaseTest {
 protected:
  StepCursorTest() {
    MakeTable("t", {"a", "b", "c"});
    Rows("INSERT INTO t VALUES (1, 10, 100), (2, 20, 200), (3, 30, 300)");
  }

  // Compiles a query of these columns over t, unrecorded.
  void Prepare(sqldb::SQLStepCursorBase& cursor, const std::vector<std::string>& columns) {
    CallRecorder::Pause pause;
    std::string list;
    for (const std::string& column : columns) {
      cursor.fColumns.push_back(MakeColumn(column));
      list += (list.empty() ? "" : ", ") + column;
    }
    cursor.PrepareToQuery("SELECT " + list + " FROM t");
  }

  std::string ErrorText() {
    CallRecorder::Pause pause;
    return sqlite3_errmsg(fDatabase.fConnection);
  }

  // Leaves a telling error text on the connection.
  void ProvokeError() {
    CallRecorder::Pause pause;
    sqlite3_exec(fDatabase.fConnection, "SELECT provoked", nullptr, nullptr, nullptr);
  }

  int LiveStatements() {
    int count = 0;
    for (sqlite3_stmt* statement = nullptr;
         (statement = sqlite3_next_stmt(fDatabase.fConnection, statement)) != nullptr;) {
      ++count;
    }
    return count;
  }

  OffsetSpec fOne = Offsets({{0, 0}});
  std::uint32_t fRecord = kUntouched;
};

TEST_F(StepCursorTest, MembersHaveTheirTypes) {
  static_assert(std::is_same_v<decltype(Cursor::fOffsets), OffsetSpec>);
  static_assert(std::is_same_v<decltype(Cursor::fRowCount), std::uint32_t>);
  static_assert(std::is_same_v<decltype(Cursor::fStatement), sqlite3_stmt*>);
  static_assert(std::is_same_v<decltype(Cursor::fFinalized), bool>);
}

TEST_F(StepCursorTest, MembersLieInOrderAfterTheBases) {
  const Cursor cursor(&fDatabase, fOne);
  EXPECT_TRUE(InMemoryOrder(cursor.fColumns, cursor.fDatabase, cursor.fSerialNumber, cursor.fOffsets, cursor.fRowCount,
                            cursor.fStatement, cursor.fFinalized));
}

TEST_F(StepCursorTest, IsACursorThatCannotBeCopied) {
  static_assert(std::is_convertible_v<Cursor*, sqldb::SQLCursorBase*>);
  static_assert(!std::is_copy_constructible_v<Cursor>);
  static_assert(!std::is_copy_assignable_v<Cursor>);
  static_assert(!std::is_nothrow_destructible_v<Cursor>);
  static_assert(std::is_constructible_v<Cursor, sqldb::SQLDatabase*, OffsetSpec&>);
}

TEST_F(StepCursorTest, StepAndStepItReturnAnInt) {
  static_assert(std::is_same_v<decltype(&Cursor::Step), int (Cursor::*)(std::uint32_t&, void*, void*, void*)>);
  static_assert(std::is_same_v<decltype(&Cursor::StepIt), int (Cursor::*)(const std::vector<char*>&)>);
}

#if defined(__x86_64__)
TEST_F(StepCursorTest, PrepareToQueryIsOverriddenInTheBasesSlot) {
  EXPECT_EQ(VirtualSlot(&Cursor::PrepareToQuery), 3);
  EXPECT_EQ(VirtualSlot(&Cursor::Step), -1);
  EXPECT_EQ(VirtualSlot(&Cursor::StepIt), -1);
}
#endif

TEST_F(StepCursorTest, ProcessRowIsTheBases) {
  static_assert(std::is_same_v<decltype(&Cursor::ProcessRow), bool (sqldb::SQLCursorBase::*)(sqlite3_stmt*)>);
  Cursor cursor(&fDatabase, fOne);
  EXPECT_FALSE(cursor.ProcessRow(nullptr));
}

TEST_F(StepCursorTest, StartsWithoutAStatement) {
  CallRecorder recorder;
  {
    const Cursor cursor(&fDatabase, fOne);
    EXPECT_EQ(cursor.fStatement, nullptr);
    EXPECT_EQ(cursor.fRowCount, 0U);
    EXPECT_TRUE(cursor.fFinalized);
    EXPECT_EQ(cursor.fDatabase, &fDatabase);
    EXPECT_THAT(cursor.fColumns, IsEmpty());
  }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(StepCursorTest, CopiesTheOffsets) {
  const Cursor cursor(&fDatabase, fOne);
  fOne.PushOffset(4, 0);
  fOne.fItems[0].fByteOffset = 9;
  ASSERT_EQ(cursor.fOffsets.fItems.size(), 1U);
  EXPECT_EQ(cursor.fOffsets.fItems[0].fByteOffset, 0U);
}

TEST_F(StepCursorTest, TakesOverOffsetsThatNobodyElseNeeds) {
  OffsetSpec offsets = Offsets({{4, 1}});
  const ItemOffset* const items = offsets.fItems.data();
  const Cursor cursor(&fDatabase, std::move(offsets));
  EXPECT_EQ(cursor.fOffsets.fItems.data(), items);
  ASSERT_EQ(cursor.fOffsets.fItems.size(), 1U);
  EXPECT_EQ(cursor.fOffsets.fItems[0].fByteOffset, 4U);
}

// PrepareToQuery ------------------------------------------------------------------------------------------------------

TEST_F(StepCursorTest, PreparingCompilesTheTextAndNothingElse) {
  Cursor cursor(&fDatabase, fOne);
  CallRecorder recorder;
  cursor.PrepareToQuery("SELECT a FROM t");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 0"));
  const support::Call prepare = recorder.Calls().at(0);
  EXPECT_EQ(prepare.handle, fDatabase.fConnection);
  EXPECT_EQ(prepare.number, -1);
  EXPECT_EQ(prepare.out, cursor.fStatement);
  EXPECT_NE(cursor.fStatement, nullptr);
  EXPECT_FALSE(cursor.fFinalized);
}

TEST_F(StepCursorTest, OnlyTheFirstStatementIsCompiled) {
  Cursor cursor(&fDatabase, fOne);
  CallRecorder recorder;
  cursor.PrepareToQuery("SELECT a FROM t; this is not SQL");
  EXPECT_EQ(recorder.Count("prepare"), 1U);
  EXPECT_STREQ(sqlite3_sql(cursor.fStatement) != nullptr ? sqlite3_sql(cursor.fStatement) : "SELECT a FROM t;",
               "SELECT a FROM t;");
}

TEST_F(StepCursorTest, TheTextEndsAtItsFirstZero) {
  Cursor cursor(&fDatabase, fOne);
  cursor.fColumns.push_back(MakeColumn("a"));
  cursor.PrepareToQuery(std::string("SELECT 7\0 FROM nowhere", 22));
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 7U);
}

TEST_F(StepCursorTest, ATextThatDoesNotCompileThrowsTheEnginesMessageAndLeavesNothing) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, fOne);
    EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT a FROM nowhere"); }), "no such table: nowhere");
    EXPECT_EQ(cursor.fStatement, nullptr);
    EXPECT_TRUE(cursor.fFinalized);
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM nowhere' = 1", "errmsg"));
}

TEST_F(StepCursorTest, EveryCodeButOkFromCompilingIsThrown) {
  CallRecorder recorder;
  ProvokeError();
  for (int code = 1; code <= 101; ++code) {
    Cursor cursor(&fDatabase, fOne);
    recorder.Clear();
    recorder.Force("prepare", code);
    EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT 1"); }), "no such column: provoked") << code;
    EXPECT_EQ(recorder.Count("prepare"), 1U) << code;
    EXPECT_TRUE(cursor.fFinalized) << code;
  }
}

TEST_F(StepCursorTest, CompilingDoesNotWaitForABusyFile) {
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  // Has not read the schema yet, and cannot now.
  sqldb::SQLDatabase cold(DatabasePath(), false);
  cold.Open();
  CallRecorder recorder;
  {
    Cursor cursor(&cold, fOne);
    EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT a FROM t"); }), "database is locked");
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT a FROM t' = 5", "errmsg"));
  other.Run("ROLLBACK");
}

TEST_F(StepCursorTest, ASecondPreparationLeavesTheFirstStatementBehind) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, fOne);
    cursor.PrepareToQuery("SELECT 1");
    sqlite3_stmt* const first = cursor.fStatement;
    cursor.PrepareToQuery("SELECT 2");
    EXPECT_NE(cursor.fStatement, first);
    EXPECT_EQ(LiveStatements(), 2);
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0", "prepare 'SELECT 2' = 0", "finalize = 0"));
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(StepCursorTest, ASecondPreparationThatFailsLeavesTheFirstStatementBehindToo) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, fOne);
    cursor.PrepareToQuery("SELECT 1");
    EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT nope"); }), "no such column: nope");
    EXPECT_EQ(cursor.fStatement, nullptr);
  }
  EXPECT_EQ(support::FinalizeLeftovers(fDatabase.fConnection), 1);
}

TEST_F(StepCursorTest, AnEmptyTextCompilesToAStatementThatCannotBeStepped) {
  CallRecorder recorder;
  {
    Cursor cursor(&fDatabase, fOne);
    cursor.PrepareToQuery("");
    EXPECT_EQ(cursor.fStatement, nullptr);
    EXPECT_FALSE(cursor.fFinalized);
    EXPECT_EQ(MessageOf([&] { cursor.Step(fRecord); }), ErrorText());
  }
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare '' = 0", "step = 21", "errmsg", "finalize = 0"));
}

TEST_F(StepCursorTest, AnUnopenedDatabaseIsReportedAsTheEngineDoes) {
  sqldb::SQLDatabase unopened(fFolder.Path("unopened.db"), false);
  Cursor cursor(&unopened, fOne);
  EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT 1"); }), "out of memory");
  EXPECT_TRUE(cursor.fFinalized);
}

TEST_F(StepCursorTest, AClosedConnectionIsNotGivenToTheEngineAgain) {
  sqldb::SQLDatabase closed(fFolder.Path("closed.db"), false);
  closed.Open();
  closed.Close();
  Cursor cursor(&closed, fOne);
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { cursor.PrepareToQuery("SELECT 1"); }), "out of memory");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT 1' = 21", "errmsg"));
  for (const support::Call& call : recorder.Calls()) EXPECT_EQ(call.handle, nullptr) << call.Line();
}

// Step ----------------------------------------------------------------------------------------------------------------

TEST_F(StepCursorTest, OneColumnAtOffsetZeroGoesToTheRecordItself) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
}

TEST_F(StepCursorTest, EveryRowIsDeliveredThenOneIsReturned) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  std::vector<std::uint32_t> rows;
  while (cursor.Step(fRecord) == 0) rows.push_back(fRecord);
  EXPECT_THAT(rows, ElementsAre(1, 2, 3));
  EXPECT_EQ(cursor.Step(fRecord), 0);
}

TEST_F(StepCursorTest, ARowIsOneStepAndOneReadPerColumn) {
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0, 0}, {0, 0}}));
  Prepare(cursor, {"a", "b", "c"});
  CallRecorder recorder;
  cursor.Step(fRecord);
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 100", "column_int 0", "column_int 1", "column_int 2"));
  EXPECT_EQ(recorder.Calls().at(0).handle, cursor.fStatement);
}

TEST_F(StepCursorTest, EachDeliveredRowIsCountedOnce) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  for (std::uint32_t row = 1; row <= 3; ++row) {
    cursor.Step(fRecord);
    EXPECT_EQ(cursor.fRowCount, row);
  }
  EXPECT_EQ(cursor.Step(fRecord), 1);
  EXPECT_EQ(cursor.fRowCount, 3U);
}

TEST_F(StepCursorTest, TheRowCountWraps) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  cursor.fRowCount = 0xFFFFFFFF;
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(cursor.fRowCount, 0U);
}

TEST_F(StepCursorTest, AnEmptyResultGivesOneAtOnce) {
  Rows("DELETE FROM t");
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  EXPECT_EQ(cursor.Step(fRecord), 1);
  EXPECT_EQ(cursor.fRowCount, 0U);
  EXPECT_EQ(fRecord, kUntouched);
}

TEST_F(StepCursorTest, TheEndLeavesTheBuffersUntouchedAndTheStatementAsItIs) {
  Rows("DELETE FROM t WHERE a > 1");
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  cursor.Step(fRecord);
  fRecord = kUntouched;
  CallRecorder recorder;
  EXPECT_EQ(cursor.Step(fRecord), 1);
  EXPECT_EQ(fRecord, kUntouched);
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 101"));
  EXPECT_FALSE(cursor.fFinalized);
  EXPECT_NE(cursor.fStatement, nullptr);
}

TEST_F(StepCursorTest, AStepAfterTheEndStartsTheQueryAgain) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  while (cursor.Step(fRecord) == 0) {
  }
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(cursor.fRowCount, 4U);
}

TEST_F(StepCursorTest, AStepAfterTheEndOfAnEmptyResultGivesOneAgain) {
  Rows("DELETE FROM t");
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  EXPECT_EQ(cursor.Step(fRecord), 1);
  EXPECT_EQ(cursor.Step(fRecord), 1);
}

TEST_F(StepCursorTest, AStepBeforePreparingThrowsTheEnginesErrorForNoStatement) {
  Cursor cursor(&fDatabase, fOne);
  ProvokeError();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { cursor.Step(fRecord); }), "no such column: provoked");
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 21", "errmsg"));
  EXPECT_EQ(recorder.Calls().at(0).handle, nullptr);
  EXPECT_EQ(recorder.Calls().at(1).handle, fDatabase.fConnection);
}

TEST_F(StepCursorTest, ASelectSetsTheCursorUpForStepping) {
  const auto table = fDatabase.GetTable("t");
  auto select = fDatabase.NewSelect(table, 0);
  select << table->GetColumn("c") << table->GetColumn("a");
  struct Record {
    std::uint32_t fA;
    std::uint32_t fC;
  } record{};
  auto* const cursor = new sqldb::SQLStepCursor<Record>(&fDatabase, Offsets({{offsetof(Record, fC), 0}, {0, 0}}));
  const boost::shared_ptr<sqldb::SQLCursorBase> owner(cursor);
  select->PrepareSelect(owner);
  EXPECT_EQ(cursor->Step(record), 0);
  EXPECT_EQ(record.fA, 1U);
  EXPECT_EQ(record.fC, 100U);
}

// Buffers -------------------------------------------------------------------------------------------------------------

TEST_F(StepCursorTest, ColumnsGoToTheBuffersTheirOffsetsName) {
  Cursor cursor(&fDatabase, Offsets({{0, 3}, {0, 2}, {0, 1}, {0, 0}}));
  Prepare(cursor, {"a", "b", "c", "a + b"});
  std::uint32_t second = 0;
  std::uint32_t third = 0;
  std::uint32_t fourth = 0;
  EXPECT_EQ(cursor.Step(fRecord, &second, &third, &fourth), 0);
  EXPECT_EQ(fRecord, 11U);
  EXPECT_EQ(second, 100U);
  EXPECT_EQ(third, 10U);
  EXPECT_EQ(fourth, 1U);
}

TEST_F(StepCursorTest, OffsetsApplyInEveryBuffer) {
  Cursor cursor(&fDatabase, Offsets({{4, 0}, {8, 1}}));
  Prepare(cursor, {"a", "b"});
  std::array<std::uint32_t, 3> first{};
  std::array<std::uint32_t, 3> second{};
  EXPECT_EQ(cursor.Step(first[0], second.data()), 0);
  EXPECT_THAT(first, ElementsAre(0, 1, 0));
  EXPECT_THAT(second, ElementsAre(0, 0, 10));
}

TEST_F(StepCursorTest, OffsetsNeedNotBeAligned) {
  struct Packed {
    unsigned char fBytes[16];
  } record{};
  sqldb::SQLStepCursor<Packed> cursor(&fDatabase, Offsets({{1, 0}, {6, 0}, {11, 0}}));
  Prepare(cursor, {"a", "b", "c"});
  EXPECT_EQ(cursor.Step(record), 0);
  const auto at = [&record](std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, record.fBytes + offset, sizeof value);
    return value;
  };
  EXPECT_EQ(at(1), 1U);
  EXPECT_EQ(at(6), 10U);
  EXPECT_EQ(at(11), 100U);
  for (const std::size_t gap : {0U, 5U, 10U, 15U}) EXPECT_EQ(record.fBytes[gap], 0) << gap;
}

TEST_F(StepCursorTest, EveryAlignmentOfTheRecordWorks) {
  for (std::uint32_t offset = 0; offset < 16; ++offset) {
    std::array<unsigned char, 20> bytes{};
    sqldb::SQLStepCursor<unsigned char> cursor(&fDatabase, Offsets({{offset, 0}}));
    Prepare(cursor, {"c"});
    EXPECT_EQ(cursor.Step(bytes[0]), 0);
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    EXPECT_EQ(value, 100U) << offset;
  }
}

TEST_F(StepCursorTest, TheFirstNullBufferEndsTheList) {
  CollectingCursor cursor(&fDatabase, fOne);
  char a = 0;
  char b = 0;
  char c = 0;
  char d = 0;
  char* const none = nullptr;
  EXPECT_THAT(cursor.CollectBuffers(&a, nullptr, nullptr, nullptr), ElementsAre(&a, none, none, none));
  EXPECT_THAT(cursor.CollectBuffers(&a, &b, nullptr, nullptr), ElementsAre(&a, &b, none, none));
  EXPECT_THAT(cursor.CollectBuffers(&a, &b, &c, nullptr), ElementsAre(&a, &b, &c, none));
  EXPECT_THAT(cursor.CollectBuffers(&a, &b, &c, &d), ElementsAre(&a, &b, &c, &d));
  EXPECT_THAT(cursor.CollectBuffers(&a, nullptr, &c, &d), ElementsAre(&a, none, none, none));
  EXPECT_THAT(cursor.CollectBuffers(&a, nullptr, nullptr, &d), ElementsAre(&a, none, none, none));
  EXPECT_THAT(cursor.CollectBuffers(&a, &b, nullptr, &d), ElementsAre(&a, &b, none, none));
}

TEST_F(StepCursorTest, ANullSecondBufferLeavesTheRecordAlone) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  std::uint32_t third = kUntouched;
  EXPECT_EQ(cursor.Step(fRecord, nullptr, &third, &third), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(third, kUntouched);
}

TEST_F(StepCursorTest, TheFurtherBuffersDefaultToNull) {
  Cursor cursor(&fDatabase, Offsets({{0, 1}}));
  Prepare(cursor, {"a"});
  std::uint32_t second = 0;
  EXPECT_EQ(cursor.Step(fRecord, &second), 0);
  EXPECT_EQ(cursor.Step(fRecord, &second, nullptr), 0);
  EXPECT_EQ(cursor.Step(fRecord, &second, nullptr, nullptr), 0);
  EXPECT_EQ(second, 3U);
}

TEST_F(StepCursorTest, StepItTakesAListOfItsCallersOwn) {
  Cursor cursor(&fDatabase, Offsets({{0, 5}}));
  Prepare(cursor, {"a"});
  const std::vector<char*> buffers(6, reinterpret_cast<char*>(&fRecord));
  EXPECT_EQ(cursor.StepIt(buffers), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(cursor.fRowCount, 1U);
}

TEST_F(StepCursorTest, StepItReturnsOneAtTheEnd) {
  Rows("DELETE FROM t");
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  EXPECT_EQ(cursor.StepIt({}), 1);
}

TEST_F(StepCursorTest, TheRecordsRealAddressIsUsed) {
  sqldb::SQLStepCursor<Evasive> cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  Evasive record{};
  EXPECT_EQ(cursor.Step(record), 0);
  EXPECT_EQ(record.fValue, 1U);
}

TEST_F(StepCursorTest, AColumnIsGivenDestinationStatementAndNumber) {
  Cursor cursor(&fDatabase, Offsets({{2, 0}, {3, 1}, {0, 0}}));
  std::vector<NotingColumn::Assignment> assignments;
  for (int i = 0; i < 3; ++i) cursor.fColumns.push_back(boost::make_shared<NotingColumn>(assignments));
  cursor.PrepareToQuery("SELECT a, b, c FROM t");
  std::array<char, 8> first{};
  std::array<char, 8> second{};
  cursor.StepIt({first.data(), second.data()});
  EXPECT_THAT(assignments, ElementsAre(NotingColumn::Assignment{&first[2], cursor.fStatement, 0},
                                       NotingColumn::Assignment{&second[3], cursor.fStatement, 1},
                                       NotingColumn::Assignment{&first[0], cursor.fStatement, 2}));
}

TEST_F(StepCursorTest, OffsetsBeyondTheColumnsAreIgnored) {
  // The entries beyond would write far outside, through a buffer that is not there.
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0xFFFFFFFF, 9}, {0, 0xFFFF}}));
  Prepare(cursor, {"a"});
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
}

#ifdef _GLIBCXX_ASSERTIONS
TEST_F(StepCursorTest, AnOffsetThatIsMissingStopsADebugBuild) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a", "b"});
  EXPECT_DEATH(cursor.Step(fRecord), "Assertion '__n < this->size\\(\\)' failed");
}
#endif

TEST_F(StepCursorTest, TheColumnListDrivesTheWalkNotTheResult) {
  Cursor cursor(&fDatabase, fOne);
  cursor.fColumns.push_back(MakeColumn("a"));
  cursor.PrepareToQuery("SELECT a, b, c FROM t");
  CallRecorder recorder;
  cursor.Step(fRecord);
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 100", "column_int 0"));
}

TEST_F(StepCursorTest, WithoutColumnsARowIsCountedAllTheSame) {
  Cursor cursor(&fDatabase, OffsetSpec());
  cursor.PrepareToQuery("SELECT a FROM t");
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(cursor.fRowCount, 1U);
  EXPECT_EQ(fRecord, kUntouched);
}

TEST_F(StepCursorTest, WhatAColumnThrowsPassesAndTheRowIsNotCounted) {
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0, 0}, {0, 0}}));
  cursor.fColumns = {MakeColumn("a"), boost::make_shared<ThrowingColumn>(), MakeColumn("c")};
  cursor.PrepareToQuery("SELECT a, b, c FROM t");
  CallRecorder recorder;
  EXPECT_THROW(cursor.Step(fRecord), std::logic_error);
  EXPECT_EQ(cursor.fRowCount, 0U);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 100", "column_int 0"));
}

// The library's own column is read without asking it, but only if it is exactly that.
TEST_F(StepCursorTest, AClassDerivedFromTheLibrarysColumnIsAsked) {
  class Doubling : public sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>> {
   public:
    Doubling() : SQLColumnClass(nullptr, "b", true, false, false, "") {}
    void AssignTo(void* destination, sqlite3_stmt* statement, int index) const override {
      const auto value = static_cast<std::uint32_t>(2 * sqlite3_column_int(statement, index));
      std::memcpy(destination, &value, sizeof value);
    }
  };
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0, 1}}));
  cursor.fColumns = {MakeColumn("a"), boost::make_shared<Doubling>()};
  cursor.PrepareToQuery("SELECT a, b FROM t");
  std::uint32_t second = 0;
  EXPECT_EQ(cursor.Step(fRecord, &second), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(second, 20U);
}

TEST_F(StepCursorTest, ChangesOfTheMembersBetweenTwoRowsAreSeen) {
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0, 1}}));
  Prepare(cursor, {"a", "b"});
  std::array<std::uint32_t, 2> first{};
  std::uint32_t second = 0;
  cursor.Step(first[0], &second);
  std::vector<NotingColumn::Assignment> assignments;
  cursor.fColumns = {cursor.fColumns[1], boost::make_shared<NotingColumn>(assignments)};
  cursor.fOffsets = Offsets({{4, 0}, {1, 1}});
  cursor.fRowCount = 40;
  EXPECT_EQ(cursor.Step(first[0], &second), 0);
  EXPECT_THAT(first, ElementsAre(1, 2));
  EXPECT_THAT(assignments,
              ElementsAre(NotingColumn::Assignment{reinterpret_cast<char*>(&second) + 1, cursor.fStatement, 1}));
  EXPECT_EQ(cursor.fRowCount, 41U);
}

TEST_F(StepCursorTest, SteppingGoesOnAfterAColumnThrew) {
  Cursor cursor(&fDatabase, fOne);
  cursor.fColumns = {boost::make_shared<ThrowingColumn>()};
  cursor.PrepareToQuery("SELECT a FROM t");
  EXPECT_THROW(cursor.Step(fRecord), std::logic_error);
  cursor.fColumns = {MakeColumn("a")};
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 2U);
  EXPECT_EQ(cursor.fRowCount, 1U);
}

TEST_F(StepCursorTest, ARowAllocatesNothing) {
  Rows("INSERT INTO t SELECT a + 3, b, c FROM t");
  Cursor cursor(&fDatabase, Offsets({{0, 0}, {0, 0}, {0, 0}}));
  Prepare(cursor, {"a", "b", "c"});
  std::uint32_t second = 0;
  std::uint32_t third = 0;
  std::uint32_t fourth = 0;
  // One buffer now, four later: the list must not grow on the way.
  cursor.Step(fRecord);
  const support::AllocationCount count;
  while (cursor.Step(fRecord, &second, &third, &fourth) == 0) {
  }
  EXPECT_EQ(count.Count(), 0U);
  EXPECT_EQ(cursor.fRowCount, 6U);
}

TEST(AllocationCountTest, CountsWhatIsAllocatedWhileItLives) {
  const support::AllocationCount count;
  const std::vector<char*> list(4);
  EXPECT_EQ(count.Count(), 1U);
}

// Errors and busy files -----------------------------------------------------------------------------------------------

class StepFailureTest : public StepCursorTest {
 protected:
  StepFailureTest() {
    fOwned = boost::make_shared<Cursor>(&fDatabase, fOne);
    Prepare(*fOwned, {"a"});
  }

  std::string MessageOfStep() {
    return MessageOf([this] { fOwned->Step(fRecord); });
  }

  void ExpectNothingDelivered(const std::string& context = "") {
    EXPECT_EQ(fOwned->fRowCount, 0U) << context;
    EXPECT_NE(fOwned->fStatement, nullptr) << context;
    EXPECT_FALSE(fOwned->fFinalized) << context;
    EXPECT_EQ(fRecord, kUntouched) << context;
  }

  // Under a shared pointer, so that the end of a failed cursor is quiet.
  boost::shared_ptr<Cursor> fOwned;
  CallRecorder fRecorder;
};

TEST_F(StepFailureTest, EveryOtherCodeIsThrownAtOnce) {
  ProvokeError();
  for (int code = -1; code <= 110; ++code) {
    if (code == SQLITE_OK || code == SQLITE_BUSY || code == SQLITE_ROW || code == SQLITE_DONE) continue;
    fRecorder.Clear();
    fRecorder.Force("step", code);
    EXPECT_EQ(MessageOfStep(), "no such column: provoked") << code;
    EXPECT_THAT(fRecorder.Lines(), ElementsAre("step = " + std::to_string(code), "errmsg")) << code;
    ExpectNothingDelivered("code " + std::to_string(code));
  }
}

TEST_F(StepFailureTest, ALockedTableIsNotWaitedFor) {
  fRecorder.Force("step", SQLITE_LOCKED, 700);
  EXPECT_THROW(fOwned->Step(fRecord), std::runtime_error);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("step = 6", "errmsg"));
}

TEST_F(StepFailureTest, ExtendedBusyCodesAreNotWaitedFor) {
  // To which names have only been given since SQLite 3.8 and 3.32.
  const int busySnapshot = SQLITE_BUSY | (2 << 8);
  const int busyTimeout = SQLITE_BUSY | (3 << 8);
  for (const int code : {SQLITE_BUSY_RECOVERY, busySnapshot, busyTimeout}) {
    fRecorder.Clear();
    fRecorder.Force("step", code);
    EXPECT_THROW(fOwned->Step(fRecord), std::runtime_error) << code;
    EXPECT_EQ(fRecorder.SleptMicroseconds(), 0U) << code;
  }
}

TEST_F(StepFailureTest, OkIsTakenForTheEnd) {
  fRecorder.Force("step", SQLITE_OK);
  EXPECT_EQ(fOwned->Step(fRecord), 1);
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("step = 0"));
  ExpectNothingDelivered();
}

TEST_F(StepFailureTest, ARealFailureThrowsTheEnginesTextAndKeepsTheStatement) {
  Rows("UPDATE t SET a = -9223372036854775808 WHERE a = 2");
  Cursor& cursor = *fOwned;
  cursor.PrepareToQuery("SELECT abs(a) FROM t");
  EXPECT_EQ(cursor.Step(fRecord), 0);
  fRecorder.Clear();
  const std::string message = MessageOfStep();
  EXPECT_EQ(message, ErrorText());
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("step = 1", "errmsg"));
  EXPECT_EQ(cursor.fRowCount, 1U);
  EXPECT_FALSE(cursor.fFinalized);
  fRecorder.Clear();
  fOwned.reset();
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("finalize = 1"));
}

class BusyStepTest : public StepFailureTest, public ::testing::WithParamInterface<int> {};

TEST_P(BusyStepTest, TheRetryThatFindsTheFileFreeDeliversTheRow) {
  const int busy = GetParam();
  fRecorder.Force("step", SQLITE_BUSY, busy);
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(fOwned->fRowCount, 1U);

  std::vector<std::string> expected;
  for (int i = 0; i < busy; ++i) expected.insert(expected.end(), {"step = 5", "usleep 100000"});
  expected.insert(expected.end(), {"step = 100", "column_int 0"});
  EXPECT_EQ(fRecorder.Lines(), expected);
}

TEST_P(BusyStepTest, ARetryThatFailsOtherwiseThrowsWithoutFurtherWaiting) {
  const int busy = GetParam();
  fRecorder.Force("step", SQLITE_BUSY, busy);
  fRecorder.Force("step", SQLITE_LOCKED);
  EXPECT_THROW(fOwned->Step(fRecord), std::runtime_error);
  EXPECT_EQ(fRecorder.Count("step"), static_cast<std::size_t>(busy) + 1);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), static_cast<std::uint64_t>(busy) * 100000);
  ExpectNothingDelivered();
}

TEST_P(BusyStepTest, ARetryThatFindsTheEndReturnsOne) {
  const int busy = GetParam();
  fRecorder.Force("step", SQLITE_BUSY, busy);
  fRecorder.Force("step", SQLITE_DONE);
  EXPECT_EQ(fOwned->Step(fRecord), 1);
  EXPECT_EQ(fRecorder.Count("step"), static_cast<std::size_t>(busy) + 1);
  ExpectNothingDelivered();
}

INSTANTIATE_TEST_SUITE_P(BusySteps, BusyStepTest, ::testing::Values(1, 2, 300, 599, kRetries));

TEST_F(StepFailureTest, AFileThatStaysBusyIsGivenUpAfterSixHundredRetriesAndOneMoreSleep) {
  ProvokeError();
  fRecorder.Force("step", SQLITE_BUSY, 10000);
  EXPECT_EQ(MessageOfStep(), "no such column: provoked");

  std::vector<std::string> expected;
  for (int i = 0; i <= kRetries; ++i) expected.insert(expected.end(), {"step = 5", "usleep 100000"});
  expected.push_back("errmsg");
  EXPECT_EQ(fRecorder.Lines(), expected);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 60100000U);
  ExpectNothingDelivered();
  std::printf("busy policy: %zu retries, %zu sleeps of %s us\n", fRecorder.Count("step") - 1, fRecorder.Count("usleep"),
              fRecorder.CallsOf("usleep")[0].text.c_str());
}

TEST_F(StepFailureTest, TheMessageIsReadAfterTheLastSleep) {
  fRecorder.Force("step", SQLITE_BUSY, 10000);
  int sleeps = 0;
  fRecorder.fAfterCall = [&](const support::Call& call) {
    if (call.function == "usleep" && ++sleeps == kRetries + 1) ProvokeError();
  };
  EXPECT_EQ(MessageOfStep(), "no such column: provoked");
}

TEST_F(StepFailureTest, EachStepHasAllItsRetries) {
  for (int round = 0; round < 2; ++round) {
    fRecorder.Clear();
    fRecorder.Force("step", SQLITE_BUSY, kRetries);
    EXPECT_EQ(fOwned->Step(fRecord), 0) << round;
    EXPECT_EQ(fRecorder.Count("step"), static_cast<std::size_t>(kRetries) + 1) << round;
  }
}

class LockedFileTest : public StepFailureTest {
 protected:
  LockedFileTest() { fOther.Run("BEGIN EXCLUSIVE"); }

  // Ends the other program's transaction after so many sleeps.
  void UnlockAfter(int sleeps) {
    fRecorder.fAfterCall = [this, sleeps, slept = 0](const support::Call& call) mutable {
      if (call.function == "usleep" && ++slept == sleeps) fOther.Run("COMMIT");
    };
  }

  support::OtherConnection fOther{DatabasePath()};
};

TEST_F(LockedFileTest, AWriterThatLetsGoAfterThirtySecondsIsWaitedFor) {
  fOther.Run("UPDATE t SET a = 42 WHERE a = 1");
  UnlockAfter(300);
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fRecord, 42U);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 30000000U);
}

TEST_F(LockedFileTest, AWriterThatLetsGoDuringTheLastRetryIsWaitedFor) {
  UnlockAfter(kRetries);
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fRecorder.SleptMicroseconds(), 60000000U);
}

TEST_F(LockedFileTest, AWriterThatHoldsOnForOverAMinuteIsReported) {
  EXPECT_EQ(MessageOfStep(), "database is locked");
  EXPECT_EQ(fRecorder.Count("step"), 601U);
  EXPECT_EQ(fRecorder.Count("usleep"), 601U);
  ExpectNothingDelivered();
  fOther.Run("ROLLBACK");
}

TEST_F(LockedFileTest, TheStatementCanBeSteppedOnceTheFileIsFree) {
  EXPECT_EQ(MessageOfStep(), "database is locked");
  fOther.Run("ROLLBACK");
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
  EXPECT_EQ(fOwned->fRowCount, 1U);
}

TEST_F(LockedFileTest, TheStatementIsFinalizedWithTheCursor) {
  EXPECT_EQ(MessageOfStep(), "database is locked");
  fRecorder.Clear();
  fOwned.reset();
  EXPECT_THAT(fRecorder.Lines(), ElementsAre("finalize = 5"));
  EXPECT_EQ(LiveStatements(), 0);
  fOther.Run("ROLLBACK");
}

// Without its database ------------------------------------------------------------------------------------------------

class OrphanedStepCursorTest : public StepCursorTest {
 protected:
  OrphanedStepCursorTest() : fOrphanage(std::make_unique<sqldb::SQLDatabase>(DatabasePath(), false)) {
    fOrphanage->Open();
    fConnection = fOrphanage->fConnection;
    fOwned = boost::make_shared<Cursor>(fOrphanage.get(), fOne);
  }
  ~OrphanedStepCursorTest() override {
    // The database could not close it under the cursor's statement.
    fOwned.reset();
    if (fConnection != nullptr) {
      EXPECT_EQ(sqlite3_close(fConnection), SQLITE_OK);
    }
  }

  std::unique_ptr<sqldb::SQLDatabase> fOrphanage;
  sqlite3* fConnection = nullptr;
  boost::shared_ptr<Cursor> fOwned;
};

TEST_F(OrphanedStepCursorTest, AnUnpreparedCursorRefusesToPrepare) {
  fOrphanage.reset();
  fConnection = nullptr;
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fOwned->PrepareToQuery("SELECT 1"); }), "Condition is not met.");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_TRUE(fOwned->fFinalized);
}

TEST_F(OrphanedStepCursorTest, AnUnpreparedCursorHasNoErrorTextToThrow) {
  fOrphanage.reset();
  fConnection = nullptr;
  EXPECT_EQ(MessageOf([&] { fOwned->Step(fRecord); }), "Condition is not met.");
}

TEST_F(OrphanedStepCursorTest, APreparedCursorIsSteppedToTheEnd) {
  Prepare(*fOwned, {"a"});
  fOrphanage.reset();
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fOwned->Step(fRecord), 0);
  EXPECT_EQ(fRecord, 3U);
  EXPECT_EQ(fOwned->Step(fRecord), 1);
}

TEST_F(OrphanedStepCursorTest, OnlyTheErrorTextOfAFailedStepIsOutOfReach) {
  fOwned->PrepareToQuery("SELECT abs(-9223372036854775808)");
  fOrphanage.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fOwned->Step(fRecord); }), "Condition is not met.");
  EXPECT_THAT(recorder.Lines(), ElementsAre("step = 1"));
}

TEST_F(OrphanedStepCursorTest, ABusyFileIsWaitedForAllTheSame) {
  Prepare(*fOwned, {"a"});
  fOrphanage.reset();
  CallRecorder recorder;
  recorder.Force("step", SQLITE_BUSY, 10000);
  EXPECT_EQ(MessageOf([&] { fOwned->Step(fRecord); }), "Condition is not met.");
  EXPECT_EQ(recorder.Count("usleep"), 601U);
}

TEST_F(StepCursorTest, ARefusedCloseDoesNotStopTheCursor) {
  Cursor cursor(&fDatabase, fOne);
  Prepare(cursor, {"a"});
  fDatabase.Close();
  EXPECT_EQ(cursor.Step(fRecord), 0);
  EXPECT_EQ(fRecord, 1U);
  fDatabase.fIsOpen = true;
}

}  // namespace
