#include <memory>
#include <string>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"
#include "support/allocations.h"

// What a connection knows of its tables is seen by the statements that it keeps for them.

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::Part;
using kit_test::StatementsOf;
using ::testing::ElementsAre;

class TableStateTest : public testing::Test {
 protected:
  TableStateTest() {
    const Table<Part> parts(fDatabase);
    parts.Create();
    parts.Insert({1, "bolt", 0.25, {}});
  }

  // Something to read that has the columns of the parts, by a name that no other has.
  static std::string NameOf(int number) { return "(SELECT *, " + std::to_string(number) + " FROM parts)"; }
  void UseOthers(int count) {
    for (int i = 0; i < count; ++i) EXPECT_EQ(Table<Part>(fDatabase, NameOf(i)).Count(), 1);
  }
  int KeptCount() const { return StatementsOf(fDatabase).all; }

  Database fDatabase{":memory:", [] {
                       Options options;
                       options.keptStatements = 1000;
                       return options;
                     }()};
};

TEST_F(TableStateTest, HandlesOfOneTableShareItsStatements) {
  const int before = KeptCount();
  for (int i = 0; i < 10; ++i) {
    const Table<Part> parts(fDatabase);
    EXPECT_EQ(parts.Get(1).id, 1);
    EXPECT_EQ(parts.Count(id == 1), 1);
  }
  EXPECT_EQ(KeptCount(), before + 2);
}

TEST_F(TableStateTest, CopiesAreTheSameTable) {
  Table<Part> parts(fDatabase);
  const Table<Part> copy = parts;
  Database other(":memory:");
  Table<Part> elsewhere(other);
  elsewhere.Create();
  parts = elsewhere;
  EXPECT_EQ(parts.Count(), 0);
  EXPECT_EQ(copy.Count(), 1);
  parts = copy;
  EXPECT_EQ(parts.Count(), 1);
  const Table<Part>& same = parts;
  parts = same;
  EXPECT_EQ(parts.Count(), 1);
}

struct Named {
  std::string name;
  static constexpr auto Description() { return Describe("parts", Field("name", &Named::name)); }
};

TEST_F(TableStateTest, StructsOfOneTableHaveStatementsOfTheirOwn) {
  EXPECT_EQ(Table<Part>(fDatabase).Select().One().id, 1);
  EXPECT_EQ(Table<Named>(fDatabase).Select().One().name, "bolt");
  EXPECT_EQ(Table<Part>(fDatabase).Select().One().id, 1);
}

TEST_F(TableStateTest, TableWithoutHandlesStaysForTheNextUnlessManyHaveComeSince) {
  const std::string mine = NameOf(-1);
  EXPECT_EQ(Table<Part>(fDatabase, mine).Count(), 1);
  const int before = KeptCount();
  UseOthers(60);
  EXPECT_EQ(KeptCount(), before + 60);
  EXPECT_EQ(Table<Part>(fDatabase, mine).Count(), 1);
  EXPECT_EQ(KeptCount(), before + 60);
  UseOthers(63);
  EXPECT_EQ(Table<Part>(fDatabase, mine).Count(), 1);
  UseOthers(1000);
  EXPECT_LE(KeptCount(), 70);
}

TEST_F(TableStateTest, TableWithAHandleStays) {
  const Table<Part> mine(fDatabase, NameOf(-1));
  EXPECT_EQ(mine.Count(), 1);
  UseOthers(200);
  const int before = KeptCount();
  EXPECT_EQ(mine.Count(), 1);
  EXPECT_EQ(KeptCount(), before);
}

TEST_F(TableStateTest, TableThatIsForgottenSparesWhatIsLent) {
  auto rows = Table<Part>(fDatabase, NameOf(-1)).Select().begin();
  UseOthers(200);
  EXPECT_EQ(rows->id, 1);
  EXPECT_EQ(StatementsOf(fDatabase).running, 1);
  const int before = KeptCount();
  EXPECT_TRUE(++rows == Selection<Part>::iterator());
  rows = Selection<Part>::iterator();
  // It goes as soon as it is given back.
  EXPECT_EQ(KeptCount(), before - 1);
}

TEST_F(TableStateTest, ShortLivedTablesDoNotPileUp) {
  UseOthers(1000);
  const int before = KeptCount();
  for (int i = 1000; i < 61000; ++i) {
    const Table<Part> table(fDatabase, "t" + std::to_string(i));
    const Table<Part> copy = table;
  }
  EXPECT_LE(KeptCount(), before);
  sqlite3_int64 used = sqlite3_memory_used();
  UseOthers(1000);
  EXPECT_LE(sqlite3_memory_used(), used + 500000);
}

TEST_F(TableStateTest, HandleAllocatesNothingOnceTheTableIsKnown) {
  { const Table<Part> parts(fDatabase); }
  const support::AllocationCount count;
  const Table<Part> parts(fDatabase);
  const Table<Part> copy = parts;
  EXPECT_EQ(count.Count(), 0U);
}

TEST_F(TableStateTest, HandlesThatOutliveTheDatabaseCanBeCopiedAndDestroyed) {
  auto database = std::make_unique<Database>(":memory:");
  auto table = std::make_unique<Table<Part>>(*database);
  table->Create();
  const Selection<Part> selection = table->Select(id > 1);
  database.reset();
  Table<Part> copy = *table;
  table.reset();
  EXPECT_THROW(copy.Count(), Error);
  copy = Table<Part>(fDatabase);
  EXPECT_EQ(copy.Count(), 1);
  EXPECT_THROW(static_cast<void>(selection.begin()), Error);
}

}  // namespace
