#include <algorithm>
#include <limits>
#include <sstream>
#include <type_traits>

#include "support/crowd.h"
#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLValueBase;
using support::BoundInteger;
using support::CallRecorder;
using support::DatabaseTest;
using support::InMemoryOrder;
using support::MakeValue;
using support::VirtualSlot;
using testing::ElementsAre;

static_assert(std::has_virtual_destructor_v<SQLValueBase>);
static_assert(!std::is_abstract_v<SQLValueBase>);
static_assert(std::is_same_v<decltype(SQLValueBase::fParameterNumber), std::int32_t>);
static_assert(std::is_same_v<decltype(SQLValueBase::gLastNamedParameterSequence), std::int32_t>);
static_assert(std::is_same_v<decltype(&SQLValueBase::Print), std::ostream& (SQLValueBase::*)(std::ostream&) const>);
static_assert(std::is_same_v<decltype(&SQLValueBase::BindingOpportunity), void (SQLValueBase::*)(sqlite3_stmt*) const>);
static_assert(std::is_same_v<decltype(&SQLValueBase::RememberParameterName), void (SQLValueBase::*)()>);
static_assert(std::is_same_v<decltype(&SQLValueBase::GetParameterName), std::string (SQLValueBase::*)() const>);
static_assert(std::is_same_v<decltype(&AddValueToUpdate), std::ostream& (*)(std::ostream&, shared_ptr<SQLValueBase>)>);

// Taken before any test draws a number.
const std::int32_t kSequenceAtLoad = SQLValueBase::gLastNamedParameterSequence;

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();

// The process-wide sequence at a number of the test's choice, and back.
class Sequence {
 public:
  explicit Sequence(std::int32_t last) { SQLValueBase::gLastNamedParameterSequence = last; }
  ~Sequence() { SQLValueBase::gLastNamedParameterSequence = fBefore; }
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

 private:
  std::int32_t fBefore = SQLValueBase::gLastNamedParameterSequence;
};

// The name of a new value that draws its number.
std::string NextName() {
  SQLValueBase value;
  value.RememberParameterName();
  EXPECT_EQ(value.fParameterNumber, SQLValueBase::gLastNamedParameterSequence);
  return value.GetParameterName();
}

TEST(ValueTest, VirtualOperationsKeepTheirSlots) {
  EXPECT_EQ(VirtualSlot(&SQLValueBase::Print), 2);
  EXPECT_EQ(VirtualSlot(&SQLValueBase::BindingOpportunity), 3);
  EXPECT_EQ(VirtualSlot(&SQLValueBase::RememberParameterName), -1);
  EXPECT_EQ(VirtualSlot(&SQLValueBase::GetParameterName), -1);
}

TEST(ValueTest, NumberIsTheOnlyMember) {
  struct Twin {
    virtual ~Twin() = default;
    std::int32_t fNumber;
  };
  EXPECT_EQ(sizeof(SQLValueBase), sizeof(Twin));
  const SQLValueBase value;
  EXPECT_EQ(reinterpret_cast<const char*>(&value.fParameterNumber),
            reinterpret_cast<const char*>(&value) + sizeof(void*));
}

TEST(ValueTest, NewValueHasNoNumberNoNameAndDrawsNone) {
  const Sequence sequence(41);
  const SQLValueBase value;
  EXPECT_EQ(value.fParameterNumber, 0);
  EXPECT_EQ(value.GetParameterName(), "");
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, 41);
}

TEST(ValueTest, BasePrintsNothingAndReturnsTheStream) {
  const SQLValueBase value;
  std::ostringstream text;
  text << "kept";
  EXPECT_EQ(&value.Print(text), &text);
  EXPECT_EQ(text.str(), "kept");
}

TEST(ValueTest, BasePrintsNothingEvenWithAName) {
  const Sequence sequence(6);
  SQLValueBase value;
  value.RememberParameterName();
  std::ostringstream text;
  value.Print(text);
  EXPECT_EQ(text.str(), "");
}

TEST(ValueTest, BaseBindsNothing) {
  CallRecorder recorder;
  SQLValueBase().BindingOpportunity(nullptr);
  EXPECT_THAT(recorder.Lines(), testing::IsEmpty());
}

TEST(ValueTest, SequenceStartsAtZeroWhenTheLibraryIsLoaded) { EXPECT_EQ(kSequenceAtLoad, 0); }

TEST(ValueTest, FirstNumberAfterLoadIsOneAndTheNextValueGetsTwo) {
  const Sequence sequence(kSequenceAtLoad);
  EXPECT_EQ(NextName(), ":1");
  EXPECT_EQ(NextName(), ":2");
}

TEST(ValueTest, NameIsAColonAndTheNumberInDecimal) {
  const Sequence sequence(1234566);
  EXPECT_EQ(NextName(), ":1234567");
}

TEST(ValueTest, NameStaysUntilTheNextDraw) {
  const Sequence sequence(6);
  SQLValueBase value;
  value.RememberParameterName();
  EXPECT_EQ(NextName(), ":8");
  EXPECT_EQ(value.GetParameterName(), ":7");
  EXPECT_EQ(value.GetParameterName(), ":7");
  value.RememberParameterName();
  EXPECT_EQ(value.fParameterNumber, 9);
  EXPECT_EQ(value.GetParameterName(), ":9");
}

TEST(ValueTest, NameOnlyFormatsTheStoredNumber) {
  const Sequence sequence(6);
  SQLValueBase value;
  value.fParameterNumber = 5;
  EXPECT_EQ(value.GetParameterName(), ":5");
  value.fParameterNumber = 0;
  EXPECT_EQ(value.GetParameterName(), "");
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, 6);
}

TEST(ValueTest, NumbersWrapToTheSmallestAndNamesBecomeNegative) {
  const Sequence sequence(kLargest - 1);
  EXPECT_EQ(NextName(), ":2147483647");
  EXPECT_EQ(NextName(), ":-2147483648");
  EXPECT_EQ(NextName(), ":-2147483647");
}

TEST(ValueTest, ZeroIsSkippedSoThatOneFollowsMinusOne) {
  const Sequence sequence(-2);
  EXPECT_EQ(NextName(), ":-1");
  EXPECT_EQ(NextName(), ":1");
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, 1);
  EXPECT_EQ(NextName(), ":2");
}

std::int32_t NextNumber() {
  SQLValueBase value;
  value.RememberParameterName();
  return value.fParameterNumber;
}

TEST(ValueTest, ThreadsNeverDrawTheSameNumber) {
  const Sequence sequence(6);
  const std::vector<std::int32_t> drawn = support::DrawnInCrowd(NextNumber);
  EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
  EXPECT_EQ(drawn.front(), 7);
  EXPECT_EQ(drawn.back(), 200006);
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, 200006);
}

TEST(ValueTest, NoneOfSeveralThreadsDrawsZero) {
  const Sequence sequence(-100001);
  const std::vector<std::int32_t> drawn = support::DrawnInCrowd(NextNumber);
  EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
  EXPECT_EQ(drawn.front(), -100000);
  EXPECT_EQ(drawn.back(), 100000);
  EXPECT_FALSE(std::binary_search(drawn.begin(), drawn.end(), 0));
}

TEST(AddValueToUpdateTest, WritesABlankAndThenTheValue) {
  std::ostringstream text;
  text << "a = ";
  EXPECT_EQ(&AddValueToUpdate(text, MakeValue(":5")), &text);
  EXPECT_EQ(text.str(), "a =  :5");
}

TEST(AddValueToUpdateTest, WritesABlankEvenForAValueThatPrintsNothing) {
  std::ostringstream text;
  AddValueToUpdate(text, shared_ptr<SQLValueBase>(new SQLValueBase));
  EXPECT_EQ(text.str(), " ");
}

TEST(AddValueToUpdateTest, ReturnsWhatPrintReturns) {
  struct Diverting : SQLValueBase {
    explicit Diverting(std::ostream& other) : fOther(other) {}
    std::ostream& Print(std::ostream&) const override { return fOther; }
    std::ostream& fOther;
  };
  std::ostringstream text;
  std::ostringstream other;
  EXPECT_EQ(&AddValueToUpdate(text, shared_ptr<SQLValueBase>(new Diverting(other))), &other);
  EXPECT_EQ(text.str(), " ");
  EXPECT_EQ(other.str(), "");
}

class ValueInStatementTest : public DatabaseTest {
 protected:
  shared_ptr<sqldb::SQLInsertClass> InsertOf(const std::vector<shared_ptr<SQLValueBase>>& values) {
    const auto insert = fTable->NewInsert();
    insert->fColumns = {fTable->GetColumn("a"), fTable->GetColumn("b")};
    insert->fValues = values;
    return insert;
  }

  shared_ptr<sqldb::SQLTableClass> fTable = MakeTable("items", {"a", "b"});
};

TEST_F(ValueInStatementTest, TwoBareValuesLeaveACommaAloneInTheBrackets) {
  const auto insert =
      InsertOf({shared_ptr<SQLValueBase>(new SQLValueBase), shared_ptr<SQLValueBase>(new SQLValueBase)});
  insert->SetupInsert();
  EXPECT_EQ(insert->fQuery.str(), "INSERT INTO items ( a, b ) VALUES (, )");
}

TEST_F(ValueInStatementTest, InsertBindsEachValueInOrderBetweenPrepareAndStep) {
  const Sequence sequence(0);
  CallRecorder recorder;
  const shared_ptr<SQLValueBase> second(new BoundInteger(20, &recorder));
  const shared_ptr<SQLValueBase> first(new BoundInteger(10, &recorder));
  InsertOf({first, second})->PerformInsert(true);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'INSERT INTO items ( a, b ) VALUES (:2,:1 )' = 0", "note bind :2",
                                            "note bind :1", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("SELECT a, b FROM items"), ElementsAre("10|20"));
}

TEST_F(ValueInStatementTest, ValueIsOfferedItsBindingOnEveryExecution) {
  const Sequence sequence(0);
  CallRecorder recorder;
  const shared_ptr<SQLValueBase> value(new BoundInteger(7, &recorder));
  const auto insert = InsertOf({value, MakeValue("NULL")});
  insert->PerformInsert(false);
  insert->PerformInsert(false);
  EXPECT_EQ(recorder.Count("note"), 2u);
  EXPECT_THAT(recorder.Sql(), testing::Each("INSERT INTO items ( a, b ) VALUES (:1,NULL )"));
  EXPECT_THAT(Rows("SELECT a, b FROM items"), ElementsAre("7|NULL", "7|NULL"));
}

// To SQLite it is no parameter: until the sequence is positive again, only literals work.
TEST_F(ValueInStatementTest, StatementWithANegativeNameIsRefusedBySQLite) {
  const Sequence sequence(kLargest);
  CallRecorder recorder;
  const shared_ptr<SQLValueBase> value(new BoundInteger(7));
  EXPECT_EQ(support::MessageOf([&] {
              InsertOf({value, MakeValue("NULL")})->PerformInsert(true);
            }),
            "unrecognized token: \":\"");
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO items ( a, b ) VALUES (:-2147483648,NULL )"));
}

TEST_F(ValueInStatementTest, ValueMayServeSeveralStatements) {
  const shared_ptr<SQLValueBase> value(new BoundInteger(7));
  InsertOf({value, MakeValue("1")})->PerformInsert(true);
  InsertOf({MakeValue("2"), value})->PerformInsert(true);
  EXPECT_THAT(Rows("SELECT a, b FROM items"), ElementsAre("7|1", "2|7"));
  EXPECT_EQ(value.use_count(), 1);
}

TEST_F(ValueInStatementTest, UpdateNeverBindsSoAParameterIsNull) {
  Rows("INSERT INTO items VALUES (1, 2)");
  const Sequence sequence(4);
  CallRecorder recorder;
  const auto update = fTable->NewUpdate();
  update->fColumns = {fTable->GetColumn("a")};
  update->fValues = {shared_ptr<SQLValueBase>(new BoundInteger(7, &recorder))};
  update->fTerm = support::MakeTerm(" b = 2");
  update->PerformUpdate(true);
  EXPECT_THAT(recorder.Lines(),
              ElementsAre("prepare 'UPDATE items SET a =  :5 WHERE b = 2' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(Rows("SELECT a, b FROM items"), ElementsAre("NULL|2"));
}

TEST_F(ValueInStatementTest, LibraryDrawsNoNumberItself) {
  const Sequence sequence(4);
  InsertOf({MakeValue("1"), MakeValue("2")})->PerformInsert(true);
  fTable->CountRecords(nullptr);
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, 4);
}

TEST_F(ValueInStatementTest, DatabasesShareTheSequence) {
  const Sequence sequence(0);
  sqldb::SQLDatabase other(fFolder.Path("other.db"), false);
  const auto here = fTable->NewInsert();
  const auto there = other.NewTable("items")->NewInsert();
  here->fValues = {shared_ptr<SQLValueBase>(new BoundInteger(1))};
  there->fValues = {shared_ptr<SQLValueBase>(new BoundInteger(1))};
  here->SetupInsert();
  EXPECT_EQ(here->fQuery.str(), "INSERT INTO items ( ) VALUES (:1 )");
  EXPECT_EQ(there->fValues[0]->GetParameterName(), ":2");
}

}  // namespace
