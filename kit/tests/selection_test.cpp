#include "sqldb/kit/selection.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "one_row.h"
#include "sqldb/kit/table.h"
#include "support/allocations.h"
#include "support/fixtures.h"

namespace {

using sqldb::kit::Ascending;
using sqldb::kit::ColumnName;
using sqldb::kit::Descending;
using sqldb::kit::Error;
using sqldb::kit::Field;
using sqldb::kit::Key;
using sqldb::kit::Selection;
using sqldb::kit::Table;
using sqldb::kit::Term;
using sqldb::kit::TrustedSql;
using support::CallRecorder;
using support::MessageOf;
using support::StatementsOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

struct Part {
  std::int64_t id;
  std::string name;
  std::optional<double> price;
};

const auto kId = Key("id", &Part::id);
const auto kName = Field("name", &Part::name);
const auto kPrice = Field("price", &Part::price);

using Parts = Selection<Part>;
using Traits = std::iterator_traits<Parts::Iterator>;
static_assert(std::is_same_v<Traits::iterator_category, std::input_iterator_tag>);
static_assert(std::is_same_v<Traits::value_type, Part> && std::is_same_v<Traits::reference, const Part&>);
static_assert(std::is_same_v<Traits::pointer, const Part*>);
static_assert(std::is_same_v<Traits::difference_type, std::ptrdiff_t>);
static_assert(std::is_copy_constructible_v<Parts> && std::is_copy_assignable_v<Parts>);

// A table parts of five rows.
class SelectionTest : public support::DatabaseTest {
 protected:
  SelectionTest() : fParts(fDatabase, "parts", kId, kName, kPrice) {
    fDatabase.SetSynchronizationLevel(false);
    fParts.Create();
    Rows(
        "INSERT INTO parts VALUES (1, 'nut', 0.1), (2, 'bolt', 0.25), (3, 'screw', NULL), (4, 'bolt', 1.5),"
        " (5, 'washer', 0.25)");
  }
  ~SelectionTest() override { ExpectNothingLeft(); }

  void ExpectNothingLeft() {
    EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
    EXPECT_THAT(fDatabase.fCursors, IsEmpty());
    EXPECT_THAT(fDatabase.fSelects, IsEmpty());
  }

  static std::vector<std::int64_t> IdsOf(const Parts& selection) {
    std::vector<std::int64_t> ids;
    for (const Part& part : selection) ids.push_back(part.id);
    return ids;
  }

  // What the selection sends.
  static std::string SqlOf(const Parts& selection) {
    CallRecorder recorder;
    selection.begin();
    EXPECT_EQ(recorder.Sql().size(), 1U);
    return recorder.Sql().at(0);
  }

  Table<Part> fParts;
};

// --- The query -------------------------------------------------------------------------------------------------------

TEST_F(SelectionTest, NothingIsSentBeforeTheLoop) {
  CallRecorder recorder;
  const auto selection = fParts.Select(kId > 1).OrderBy(kName).Limit(2).Offset(1);
  EXPECT_THAT(recorder.Calls(), IsEmpty());
}

TEST_F(SelectionTest, QueryNamesEveryFieldInOrder) {
  EXPECT_EQ(SqlOf(fParts.Select()), "SELECT id, name, price FROM parts");
}

TEST_F(SelectionTest, QueryHasTheTermTheOrderTheLimitAndTheOffset) {
  EXPECT_EQ(SqlOf(fParts.Select(kId > 1)), "SELECT id, name, price FROM parts WHERE id > 1");
  EXPECT_EQ(SqlOf(fParts.Select().OrderBy(kName)), "SELECT id, name, price FROM parts ORDER BY name");
  EXPECT_EQ(SqlOf(fParts.Select().Limit(3)), "SELECT id, name, price FROM parts LIMIT 3");
  EXPECT_EQ(SqlOf(fParts.Select(kId > 1 && kPrice < 1)
                      .OrderBy(Descending(kPrice))
                      .OrderBy(Ascending(kName))
                      .OrderBy(kId)
                      .Limit(3)
                      .Offset(2)),
            "SELECT id, name, price FROM parts WHERE (id > 1) AND (price < 1.0) "
            "ORDER BY price DESC, name, id LIMIT 3 OFFSET 2");
}

TEST_F(SelectionTest, OrderMayBeAnExpression) {
  EXPECT_EQ(SqlOf(fParts.Select().OrderBy(Descending(ColumnName<int>("length(name)")))),
            "SELECT id, name, price FROM parts ORDER BY length(name) DESC");
}

TEST_F(SelectionTest, RowsComeAsAsked) {
  EXPECT_THAT(IdsOf(fParts.Select()), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(IdsOf(fParts.Select(kPrice == 0.25)), ElementsAre(2, 5));
  EXPECT_THAT(IdsOf(fParts.Select(kPrice == 7)), IsEmpty());
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(kName).OrderBy(Descending(kId))), ElementsAre(4, 2, 1, 3, 5));
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(Descending(kId))), ElementsAre(5, 4, 3, 2, 1));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(2)), ElementsAre(1, 2));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(2).Offset(3)), ElementsAre(4, 5));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(9).Offset(5)), IsEmpty());
}

TEST_F(SelectionTest, LimitOfZeroIsNone) { EXPECT_THAT(IdsOf(fParts.Select().Limit(2).Limit(0)), SizeIs(5)); }

TEST_F(SelectionTest, OffsetNeedsNoLimit) { EXPECT_THAT(IdsOf(fParts.Select().Offset(3)), ElementsAre(4, 5)); }

TEST_F(SelectionTest, CopiesAreIndependent) {
  const Parts all = fParts.Select();
  const Parts two = Parts(all).Limit(2);
  EXPECT_THAT(IdsOf(all), SizeIs(5));
  EXPECT_THAT(IdsOf(two), SizeIs(2));
}

TEST_F(SelectionTest, EachBeginRunsTheQueryAnew) {
  const Parts selection = fParts.Select(kId > 3);
  EXPECT_THAT(IdsOf(selection), ElementsAre(4, 5));
  fParts.Insert({6, "new", {}});
  EXPECT_THAT(IdsOf(selection), ElementsAre(4, 5, 6));
}

// --- Rows ------------------------------------------------------------------------------------------------------------

TEST_F(SelectionTest, EveryFieldOfARowIsRead) {
  const std::vector<Part> rows = fParts.Select(kId == 2).Rows();
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_EQ(rows[0].id, 2);
  EXPECT_EQ(rows[0].name, "bolt");
  EXPECT_EQ(rows[0].price, 0.25);
}

TEST_F(SelectionTest, NullAfterAValueIsReadAsNull) {
  const std::vector<Part> rows = fParts.Select(kId == 2 || kId == 3).Rows();
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_EQ(rows[0].price, 0.25);
  EXPECT_EQ(rows[1].price, std::nullopt);
}

TEST_F(SelectionTest, RowsAreAllInOrder) {
  const std::vector<Part> rows = fParts.Select().OrderBy(Descending(kId)).Rows();
  ASSERT_THAT(rows, SizeIs(5));
  EXPECT_EQ(rows.front().name, "washer");
  EXPECT_EQ(rows.back().name, "nut");
  EXPECT_THAT(fParts.Select(kId > 5).Rows(), IsEmpty());
}

TEST_F(SelectionTest, FirstIsTheFirstRowOrNone) {
  EXPECT_EQ(fParts.Select().OrderBy(kName).OrderBy(kId).First().value().id, 2);
  EXPECT_EQ(fParts.Select(kId == 4).First().value().id, 4);
  EXPECT_FALSE(fParts.Select(kId == 6).First().has_value());
  EXPECT_EQ(fParts.Select().Offset(2).First().value().id, 3);
}

TEST_F(SelectionTest, FirstAsksForOneRowAndLeavesTheSelectionAlone) {
  const Parts selection = fParts.Select().Limit(3);
  CallRecorder recorder;
  EXPECT_TRUE(selection.First().has_value());
  EXPECT_THAT(recorder.Sql(), ElementsAre("SELECT id, name, price FROM parts LIMIT 1"));
  EXPECT_THAT(IdsOf(selection), SizeIs(3));
}

TEST_F(SelectionTest, RowIsReadWhenTheLoopComesToIt) {
  CallRecorder recorder;
  auto row = fParts.Select().begin();
  EXPECT_EQ(recorder.Count("step"), 1U);
  EXPECT_EQ(row->id, 1);
  ++row;
  EXPECT_EQ(recorder.Count("step"), 2U);
  EXPECT_EQ((*row).id, 2);
  row++;
  EXPECT_EQ(row->id, 3);
}

TEST_F(SelectionTest, IteratorIsTheEndAfterTheLastRow) {
  const Parts selection = fParts.Select(kId >= 4);
  auto row = selection.begin();
  EXPECT_TRUE(row != selection.end());
  EXPECT_FALSE(row == selection.end());
  EXPECT_TRUE(&++row == &row);
  EXPECT_TRUE(row != selection.end());
  ++row;
  EXPECT_TRUE(row == selection.end());
  EXPECT_FALSE(row != selection.end());
  ExpectNothingLeft();
}

TEST_F(SelectionTest, AlgorithmsTakeTheRange) {
  const Parts selection = fParts.Select();
  const auto cheap = std::find_if(selection.begin(), selection.end(), [](const Part& part) { return !part.price; });
  EXPECT_EQ(cheap->id, 3);
  EXPECT_EQ(std::count_if(selection.begin(), selection.end(), [](const Part& part) { return part.name == "bolt"; }), 2);
}

TEST_F(SelectionTest, LoopThatBreaksLeavesNoStatementAndNoCursor) {
  for (const Part& part : fParts.Select()) {
    EXPECT_EQ(StatementsOf(fDatabase.fConnection), 1);
    EXPECT_THAT(fDatabase.fCursors, SizeIs(1));
    EXPECT_THAT(fDatabase.fSelects, IsEmpty());
    if (part.id == 2) break;
  }
  ExpectNothingLeft();
}

TEST_F(SelectionTest, LoopThatIsLeftByAnExceptionLeavesNothing) {
  EXPECT_EQ(MessageOf([this] {
              for (const Part& part : fParts.Select()) throw std::runtime_error(part.name);
            }),
            "nut");
  ExpectNothingLeft();
}

TEST_F(SelectionTest, LoopsNest) {
  const Parts selection = fParts.Select(kId <= 3);
  std::vector<std::string> pairs;
  for (const Part& outer : selection) {
    for (const Part& inner : selection) pairs.push_back(std::to_string(outer.id) + std::to_string(inner.id));
  }
  EXPECT_THAT(pairs, ElementsAre("11", "12", "13", "21", "22", "23", "31", "32", "33"));
}

TEST_F(SelectionTest, InnerLoopThatBreaksSparesTheOuterOne) {
  std::vector<std::int64_t> ids;
  for (const Part& outer : fParts.Select()) {
    for (const Part& inner : fParts.Select()) {
      ids.push_back(outer.id * 10 + inner.id);
      break;
    }
  }
  EXPECT_THAT(ids, ElementsAre(11, 21, 31, 41, 51));
}

TEST_F(SelectionTest, FailureInsideALoopSparesTheLoop) {
  std::vector<std::int64_t> ids;
  for (const Part& part : fParts.Select()) {
    EXPECT_THROW(fParts.Select(Term(TrustedSql{"missing"})).First(), Error);
    EXPECT_THROW(fParts.Insert({1, "taken", {}}), Error);
    ids.push_back(part.id);
  }
  EXPECT_THAT(ids, ElementsAre(1, 2, 3, 4, 5));
}

// --- Failures --------------------------------------------------------------------------------------------------------

TEST_F(SelectionTest, QueryThatDoesNotCompileIsAnError) {
  const Parts selection = fParts.Select(Term(TrustedSql{"missing = 1"}));
  EXPECT_THROW(selection.begin(), Error);
  EXPECT_EQ(MessageOf([&] { selection.begin(); }), "no such column: missing");
  EXPECT_EQ(MessageOf([&] { selection.First(); }), "no such column: missing");
  EXPECT_EQ(MessageOf([&] { selection.Rows(); }), "no such column: missing");
  ExpectNothingLeft();
}

TEST_F(SelectionTest, FirstRowThatFailsIsAnErrorWithSQLitesWords) {
  const Parts selection = fParts.Select(Term(TrustedSql{"abs(-9223372036854775807 - id)"}));
  EXPECT_THROW(selection.begin(), Error);
  EXPECT_EQ(MessageOf([&] { selection.begin(); }), "integer overflow");
  EXPECT_EQ(MessageOf([&] { selection.First(); }), "integer overflow");
  ExpectNothingLeft();
}

TEST_F(SelectionTest, LaterRowThatFailsIsAnErrorWithSQLitesWords) {
  const Parts selection = fParts.Select(Term(TrustedSql{"abs(-9223372036854775805 - id)"}));
  std::vector<std::int64_t> ids;
  const auto loop = [&] {
    for (const Part& part : selection) ids.push_back(part.id);
  };
  EXPECT_THROW(loop(), Error);
  EXPECT_THAT(ids, ElementsAre(1, 2));
  EXPECT_EQ(MessageOf(loop), "integer overflow");
  EXPECT_EQ(MessageOf([&] { selection.Rows(); }), "integer overflow");
  ExpectNothingLeft();
}

TEST_F(SelectionTest, IteratorIsTheEndAfterAFailure) {
  auto row = fParts.Select(Term(TrustedSql{"abs(-9223372036854775806 - id)"})).begin();
  EXPECT_EQ(row->id, 1);
  EXPECT_THROW(++row, Error);
  EXPECT_TRUE(row == Parts::Iterator());
  ExpectNothingLeft();
}

struct Narrow {
  std::int8_t id;
};

TEST_F(SelectionTest, ValueThatDoesNotFitItsFieldIsThrownAndLeavesNothing) {
  Rows("INSERT INTO parts VALUES (128, 'wide', NULL)");
  Table<Narrow> narrow(fDatabase, "parts", Field("id", &Narrow::id));
  int rows = 0;
  const auto loop = [&] {
    for ([[maybe_unused]] const Narrow& row : narrow.Select()) ++rows;
  };
  EXPECT_THROW(loop(), std::range_error);
  EXPECT_EQ(rows, 5);
  EXPECT_THROW(narrow.Select().Rows(), std::range_error);
  EXPECT_THROW(narrow.Select().OrderBy(Descending(Field("id", &Narrow::id))).First(), std::range_error);
  ExpectNothingLeft();
}

TEST_F(SelectionTest, BusyFileIsAnErrorOnceTheWaitIsOver) {
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  const auto read = [this] { fParts.Select().First(); };
  EXPECT_EQ(MessageOf(read), "database is locked");
  EXPECT_EQ(recorder.SleptMicroseconds(), 60100000U);
  other.Run("COMMIT");
  EXPECT_EQ(MessageOf(read), "(nothing thrown)");
}

TEST_F(SelectionTest, ClosedDatabaseIsAnError) {
  sqldb::SQLDatabase closed(DatabasePath(), false);
  Table<Part> parts(closed, "parts", kId, kName, kPrice);
  EXPECT_THROW(parts.Select().First(), Error);
  EXPECT_THAT(closed.fCursors, IsEmpty());
}

TEST_F(SelectionTest, ARowAllocatesNothing) {
  const Parts parts = fParts.Select();
  std::int64_t sum = 0;
  auto row = parts.begin();
  const support::AllocationCount count;
  for (; row != parts.end(); ++row) sum += row->id;
  EXPECT_EQ(count.Count(), 0u);
  EXPECT_EQ(sum, 15);
}

}  // namespace
