#include "sqldb/kit/selection.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"
#include "support/allocations.h"

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::name;
using kit_test::note;
using kit_test::Part;
using kit_test::price;
using kit_test::StatementsOf;
using kit_test::ThrownBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Parts = Selection<Part>;
using Traits = std::iterator_traits<Parts::iterator>;
static_assert(std::is_same_v<Traits::iterator_category, std::input_iterator_tag>);
static_assert(std::is_same_v<Traits::value_type, Part> && std::is_same_v<Traits::reference, const Part&>);
static_assert(std::is_copy_constructible_v<Parts> && std::is_copy_assignable_v<Parts>);

// A table of five rows.
class SelectionTest : public testing::Test {
 protected:
  SelectionTest() {
    fParts.Create();
    fParts.Insert({1, "nut", 0.1, {}});
    fParts.Insert({2, "bolt", 0.25, "x"});
    fParts.Insert({3, "screw", 9, {}});
    fParts.Insert({4, "bolt", 1.5, "y"});
    fParts.Insert({5, "washer", 0.25, "x"});
  }
  ~SelectionTest() override { EXPECT_EQ(StatementsOf(fDatabase).running, 0); }

  static std::vector<std::int64_t> IdsOf(const Parts& selection) {
    std::vector<std::int64_t> ids;
    for (const Part& part : selection) ids.push_back(part.id);
    EXPECT_EQ(selection.Count(), static_cast<std::int64_t>(ids.size()));
    std::vector<std::int64_t> all;
    for (const Part& part : selection.All()) all.push_back(part.id);
    EXPECT_EQ(all, ids);
    return ids;
  }

  Database fDatabase{":memory:"};
  Table<Part> fParts{fDatabase};
};

TEST_F(SelectionTest, RowsComeAsAsked) {
  EXPECT_THAT(IdsOf(fParts.Select()), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(IdsOf(fParts.Select(price == 0.25)), ElementsAre(2, 5));
  EXPECT_THAT(IdsOf(fParts.Select(price == 7)), IsEmpty());
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(name).OrderBy(Descending(id))), ElementsAre(4, 2, 1, 3, 5));
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(Ascending(name)).OrderBy(id)), ElementsAre(2, 4, 1, 3, 5));
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(Descending(id))), ElementsAre(5, 4, 3, 2, 1));
  EXPECT_THAT(IdsOf(fParts.Select(id > 1).OrderBy(Sql<int>("id = ?", 4)).OrderBy(id)), ElementsAre(2, 3, 5, 4));
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(note).OrderBy(id)), ElementsAre(1, 3, 2, 5, 4));
  EXPECT_THAT(IdsOf(fParts.Select().OrderBy(Descending(note)).OrderBy(id)), ElementsAre(4, 2, 5, 1, 3));
}

TEST_F(SelectionTest, LimitAndOffsetBoundTheRows) {
  EXPECT_THAT(IdsOf(fParts.Select().Limit(2)), ElementsAre(1, 2));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(2).Offset(3)), ElementsAre(4, 5));
  EXPECT_THAT(IdsOf(fParts.Select().Offset(3)), ElementsAre(4, 5));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(9).Offset(5)), IsEmpty());
  EXPECT_THAT(IdsOf(fParts.Select().Limit(0)), IsEmpty());
  EXPECT_THAT(IdsOf(fParts.Select().Limit(2).Limit(-1)), SizeIs(5));
  EXPECT_THAT(IdsOf(fParts.Select(id > 1).OrderBy(Descending(id)).Limit(2).Offset(1)), ElementsAre(4, 3));
  EXPECT_THAT(IdsOf(fParts.Select().Limit(INT64_MAX).Offset(4)), ElementsAre(5));
}

TEST_F(SelectionTest, DistinctTellsRecordsApartByAllFields) {
  fDatabase.ExecuteScript(
      "CREATE TABLE heap (id, name, price, note); INSERT INTO heap SELECT 1, 'a', 2.0, NULL FROM parts;"
      " INSERT INTO heap VALUES (1, 'a', 2.0, 'x')");
  const Table<Part> heap(fDatabase, "heap");
  EXPECT_THAT(IdsOf(heap.Select()), SizeIs(6));
  EXPECT_THAT(IdsOf(heap.Select().Distinct()), SizeIs(2));
  EXPECT_THAT(IdsOf(heap.Select(IsNull(note)).Distinct().OrderBy(id).Limit(5)), SizeIs(1));
  EXPECT_THAT(IdsOf(heap.Select().Distinct().Offset(1)), SizeIs(1));
}

TEST_F(SelectionTest, IsAValue) {
  const Parts all = fParts.Select();
  const Parts two = all.OrderBy(id).Limit(2);
  Parts copy = two;
  EXPECT_THAT(IdsOf(all), SizeIs(5));
  EXPECT_THAT(IdsOf(copy), ElementsAre(1, 2));
  copy = copy.Offset(1);
  EXPECT_THAT(IdsOf(copy), ElementsAre(2, 3));
  EXPECT_THAT(IdsOf(two), ElementsAre(1, 2));
}

TEST_F(SelectionTest, RunsNothingBeforeBeginAndAnewEachTime) {
  const int before = StatementsOf(fDatabase).all;
  const Parts selection = fParts.Select(id > 3).OrderBy(id);
  EXPECT_EQ(StatementsOf(fDatabase).all, before);
  EXPECT_THAT(IdsOf(selection), ElementsAre(4, 5));
  fParts.Insert({6, "new", 1, {}});
  EXPECT_THAT(IdsOf(selection), ElementsAre(4, 5, 6));
}

TEST_F(SelectionTest, OwnsItsValuesAndOutlivesItsTable) {
  std::optional<Parts> selection;
  Parts::iterator row;
  {
    std::string wanted(100, 'b');
    fParts.Insert({6, wanted, 1, {}});
    const Table<Part> table(fDatabase);
    selection = table.Select(name == wanted).OrderBy(Sql<int>("id * ?", std::string("2")));
    wanted.assign(100, 'z');
  }
  EXPECT_EQ(selection->One().id, 6);
  {
    std::string wanted = "bolt";
    row = Table<Part>(fDatabase).Select(name == wanted || Like(name, wanted)).OrderBy(id).begin();
    wanted = "else";
  }
  selection.reset();
  EXPECT_EQ(row->id, 2);
  EXPECT_EQ((++row)->id, 4);
  EXPECT_TRUE(++row == Parts::iterator());
}

TEST_F(SelectionTest, ChainsOfTemporariesCanBeIteratedOver) {
  std::vector<std::string> names;
  for (const Part& part : Table<Part>(fDatabase).Select(name > std::string("c")).OrderBy(Sql<int>("-id + ?", 1))) {
    names.push_back(part.name);
  }
  EXPECT_THAT(names, ElementsAre("washer", "screw", "nut"));
}

// --- Rows ------------------------------------------------------------------------------------------------------------

TEST_F(SelectionTest, FirstIsTheFirstRowOrNone) {
  EXPECT_EQ(fParts.Select().OrderBy(name).OrderBy(id).First()->id, 2);
  EXPECT_EQ(fParts.Select(id == 4).First(), fParts.Get(4));
  EXPECT_FALSE(fParts.Select(id == 6).First().has_value());
  EXPECT_EQ(fParts.Select().Offset(2).First()->id, 3);
}

TEST_F(SelectionTest, OneIsTheOnlyRow) {
  EXPECT_EQ(fParts.Select(id == 4).One(), fParts.Get(4));
  EXPECT_EQ(ThrownBy([&] { fParts.Select(id == 6).One(); }).Message(), "The query yields no row.");
  EXPECT_EQ(ThrownBy([&] { fParts.Select(id > 1).One(); }).Message(), "The query yields more than one row.");
}

TEST_F(SelectionTest, NullAfterAValueIsReadAsNull) {
  std::vector<std::optional<std::string>> notes;
  for (const Part& part : fParts.Select().OrderBy(id)) notes.push_back(part.note);
  EXPECT_THAT(notes, ElementsAre(std::nullopt, "x", std::nullopt, "y", "x"));
}

TEST_F(SelectionTest, IteratorIsTheEndAfterTheLastRow) {
  const Parts selection = fParts.Select(id >= 4).OrderBy(id);
  auto row = selection.begin();
  EXPECT_TRUE(row != selection.end());
  EXPECT_EQ((*row).id, 4);
  EXPECT_EQ((*row++).id, 4);
  EXPECT_EQ(row->id, 5);
  EXPECT_TRUE(&++row == &row);
  EXPECT_TRUE(row == selection.end());
  EXPECT_FALSE(row != selection.end());
  ++row;
  EXPECT_TRUE(row == selection.end());
}

TEST_F(SelectionTest, AlgorithmsTakeTheRange) {
  const Parts selection = fParts.Select().OrderBy(id);
  const auto dear = std::find_if(selection.begin(), selection.end(), [](const Part& part) { return part.price > 5; });
  EXPECT_EQ(dear->id, 3);
  EXPECT_EQ(std::count_if(selection.begin(), selection.end(), [](const Part& part) { return part.name == "bolt"; }), 2);
  std::vector<Part> copied;
  std::copy(selection.begin(), selection.end(), std::back_inserter(copied));
  EXPECT_EQ(copied, selection.All());
  EXPECT_EQ(std::vector<Part>(selection.begin(), selection.end()), copied);
}

TEST_F(SelectionTest, LoopThatIsLeftStandsOnNoRow) {
  for (const Part& part : fParts.Select()) {
    EXPECT_EQ(StatementsOf(fDatabase).running, 1);
    if (part.id == 2) break;
  }
  EXPECT_EQ(StatementsOf(fDatabase).running, 0);
  EXPECT_THROW(
      {
        for (const Part& part : fParts.Select()) throw std::runtime_error(part.name);
      },
      std::runtime_error);
  EXPECT_EQ(StatementsOf(fDatabase).running, 0);
}

TEST_F(SelectionTest, LoopsNest) {
  const Parts selection = fParts.Select(id <= 3);
  std::vector<std::int64_t> pairs;
  for (const Part& outer : selection) {
    for (const Part& inner : selection) {
      pairs.push_back(outer.id * 10 + inner.id);
      if (inner.id == 2) break;
    }
  }
  EXPECT_THAT(pairs, ElementsAre(11, 12, 21, 22, 31, 32));
}

TEST_F(SelectionTest, WhatFailsInsideALoopSparesIt) {
  std::vector<std::int64_t> ids;
  for (const Part& part : fParts.Select()) {
    EXPECT_THROW(fParts.Select(Where("missing")).First(), Error);
    EXPECT_THROW(fParts.Insert({1, "taken", 0, {}}), ConstraintError);
    EXPECT_TRUE(fParts.Update({part.id, "loop", part.price, {}}));
    ids.push_back(part.id);
  }
  EXPECT_THAT(ids, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(fParts.Count(name == "loop"), 5);
}

// --- Failures --------------------------------------------------------------------------------------------------------

TEST_F(SelectionTest, FirstRowThatFailsIsAnError) {
  const Parts selection = fParts.Select(Where("abs(-9223372036854775807 - id)"));
  EXPECT_EQ(ThrownBy([&] { selection.begin(); }).Message(), "integer overflow");
  EXPECT_EQ(ThrownBy([&] { selection.First(); }).Message(), "integer overflow");
  EXPECT_EQ(ThrownBy([&] { selection.All(); }).Message(), "integer overflow");
  EXPECT_EQ(ThrownBy([&] { selection.Count(); }).Message(), "integer overflow");
}

TEST_F(SelectionTest, IteratorIsTheEndAfterARowThatFails) {
  auto row = fParts.Select(Where("abs(-9223372036854775805 - id)")).begin();
  ++row;
  const auto copy = row;
  EXPECT_EQ(row->id, 2);
  EXPECT_EQ(ThrownBy([&] { ++row; }).Message(), "integer overflow");
  EXPECT_TRUE(row == Parts::iterator());
  ++row;
  EXPECT_TRUE(row == Parts::iterator());
  // A copy of it as well, once it goes on.
  auto other = copy;
  ++other;
  EXPECT_TRUE(other == Parts::iterator());
}

struct Narrow {
  std::int8_t id = 0;
  static constexpr auto Description() { return Describe("parts", Key("id", &Narrow::id)); }
};

TEST_F(SelectionTest, ValueThatDoesNotFitItsFieldIsAnErrorThatNamesTheColumn) {
  fParts.Insert({128, "wide", 0, {}});
  const Table<Narrow> narrow(fDatabase);
  int rows = 0;
  EXPECT_THROW(
      {
        for ([[maybe_unused]] const Narrow& row : narrow.Select()) ++rows;
      },
      ConversionError);
  EXPECT_EQ(rows, 5);
  EXPECT_EQ(ThrownBy<ConversionError>([&] { narrow.Select().All(); }).Message(),
            "column id has an integer that does not fit into what it is read into");
  EXPECT_THROW(narrow.Find(128), ConversionError);
  EXPECT_EQ(StatementsOf(fDatabase).running, 0);
}

TEST_F(SelectionTest, SilentConversionsAreErrors) {
  fDatabase.ExecuteScript("CREATE TABLE loose (id, name, price, note)");
  const Table<Part> loose(fDatabase, "loose");
  for (const char* const row : {"'7', '', 0, NULL", "1.5, '', 0, NULL", "NULL, '', 0, NULL", "1, 5, 0, NULL",
                                "1, NULL, 0, NULL", "1, x'00', 0, NULL", "1, '', '0', NULL", "1, '', NULL, NULL",
                                "1, '', 9007199254740993, NULL", "1, '', 0, x'00'", "1, '', 0, 1"}) {
    fDatabase.Execute("DELETE FROM loose");
    fDatabase.Execute(std::string("INSERT INTO loose VALUES (") + row + ")");
    EXPECT_THROW(loose.Select().One(), ConversionError) << row;
  }
  fDatabase.Execute("DELETE FROM loose");
  fDatabase.Execute("INSERT INTO loose VALUES (2.0, '', 3, NULL)");
  EXPECT_EQ(loose.Select().One(), (Part{2, "", 3, {}}));
}

TEST_F(SelectionTest, ClosedDatabaseIsAnErrorOfEveryUse) {
  const Parts selection = fParts.Select(id > 1);
  auto row = selection.begin();
  Database other = std::move(fDatabase);
  other.Close();
  EXPECT_EQ(ThrownBy([&] { ++row; }).Message(), "The database has been closed.");
  EXPECT_TRUE(row == Parts::iterator());
  EXPECT_EQ(ThrownBy([&] { selection.begin(); }).Message(), "The database is not open.");
  EXPECT_EQ(ThrownBy([&] { selection.Count(); }).Message(), "The database is not open.");
  EXPECT_EQ(ThrownBy([&] { fParts.Select().All(); }).Message(), "The database is not open.");
  fDatabase = Database(":memory:");
}

TEST_F(SelectionTest, ARowAllocatesNothing) {
  const Parts parts = fParts.Select();
  std::int64_t sum = 0;
  auto row = parts.begin();
  const support::AllocationCount count;
  for (; row != parts.end(); ++row) sum += row->id;
  EXPECT_EQ(count.Count(), 0U);
  EXPECT_EQ(sum, 15);
}

}  // namespace
