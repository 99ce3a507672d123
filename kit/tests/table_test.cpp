#include "sqldb/kit/table.h"

#include "kit_test.h"

namespace {

using namespace sqldb::kit;
using kit_test::Part;
using kit_test::ThrownBy;

constexpr Column id(&Part::id);
constexpr Column name(&Part::name);
constexpr Column price(&Part::price);
constexpr Column note(&Part::note);

struct Line {
  int order = 0;
  int line = 0;
  std::string what;

  static constexpr auto Description() {
    return Describe("lines", Key("order_id", &Line::order), Key("line", &Line::line), Field("what", &Line::what));
  }
};

class TableTest : public testing::Test {
 protected:
  TableTest() {
    parts.Create();
    parts.Insert({1, "bolt", 0.25, std::nullopt});
    parts.Insert({2, "nut", 0.5, "round"});
    parts.Insert({3, "saw", 9.5, "sharp"});
  }

  Database database{":memory:"};
  Table<Part> parts{database};
};

TEST_F(TableTest, FindsARecordByItsKey) {
  EXPECT_EQ(parts.Find(2), (Part{2, "nut", 0.5, "round"}));
  EXPECT_EQ(parts.Find(4), std::nullopt);
  EXPECT_EQ(parts.Get(1).name, "bolt");
  EXPECT_EQ(ThrownBy([&] { parts.Get(4); }).Message(), "There is no such row in parts.");
}

TEST_F(TableTest, SelectsInOrderWithinALimit) {
  std::vector<std::string> names;
  for (const Part& part : parts.Select(price < 5.0).OrderBy(Descending(name))) names.push_back(part.name);
  EXPECT_THAT(names, testing::ElementsAre("nut", "bolt"));
  EXPECT_THAT(parts.Select().OrderBy(id).Limit(1).Offset(1).All(), testing::ElementsAre(parts.Get(2)));
  EXPECT_EQ(parts.Select().Offset(1).Count(), 2);
}

TEST_F(TableTest, WritesByKeyAndByTerm) {
  EXPECT_TRUE(parts.Update({1, "screw", 0.75, "new"}));
  EXPECT_EQ(parts.Get(1), (Part{1, "screw", 0.75, "new"}));
  EXPECT_EQ(parts.Update(price < 1.0, Set(price, Sql<double>("price * ?", 2)), Set(note, std::nullopt)), 2);
  EXPECT_EQ(parts.Get(2), (Part{2, "nut", 1, std::nullopt}));
  EXPECT_EQ(parts.Count(IsNull(note)), 2);
  EXPECT_TRUE(parts.Has(name == "saw"));
  EXPECT_TRUE(parts.Delete(3));
  EXPECT_FALSE(parts.Has(name == "saw"));
  parts.Upsert({2, "nut", 7, std::nullopt});
  parts.Upsert({9, "new", 8, std::nullopt});
  EXPECT_FALSE(parts.InsertOrIgnore({9, "other", 8, std::nullopt}));
  EXPECT_EQ(parts.Delete(price > 6.0 && !(name == "bolt")), 2);
  EXPECT_EQ(parts.Count(), 1);
}

TEST_F(TableTest, TakesCompositeKeysEverywhere) {
  const Table<Line> lines(database);
  lines.Create();
  lines.Insert({1, 1, "a"});
  lines.Insert({1, 2, "b"});
  EXPECT_TRUE(lines.Update({1, 2, "c"}));
  EXPECT_EQ(lines.Find(1, 1)->what, "a");
  EXPECT_EQ(lines.Find(1, 2)->what, "c");
  lines.Upsert({1, 2, "d"});
  EXPECT_TRUE(lines.Delete(1, 1));
  EXPECT_EQ(lines.Select().One().what, "d");
}

TEST_F(TableTest, TakesAnyNumberOfOperands) {
  Term term;
  for (int i = 0; i < 100000; ++i) term = term || id == i;
  EXPECT_EQ(parts.Count(term), 3);
  Term all;
  for (int i = 100; i < 20100; ++i) all = all && id != i;
  EXPECT_EQ(parts.Select(all).Limit(2).All().size(), 2);
}

}  // namespace
