#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"
#include "sqldb/kit/transaction.h"
#include "support/allocations.h"

// What a connection knows of its tables is seen by the statements that it keeps for them.

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::name;
using kit_test::Part;
using kit_test::StatementsOf;
using kit_test::ThrownBy;
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
  // The texts of the statements that are kept, the oldest one first.
  std::vector<std::string> KeptTexts() const {
    std::vector<std::string> texts;
    sqlite3* const handle = fDatabase.Core().fConnection;
    for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
         each = sqlite3_next_stmt(handle, each)) {
      texts.insert(texts.begin(), sqlite3_sql(each));
    }
    return texts;
  }

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

struct OrderLine {
  int order = 0;
  int number = 0;
  std::string article;
  std::int64_t count = 0;
  static constexpr auto Description() {
    return Describe("lines", Key("\"order\"", &OrderLine::order), Key("number", &OrderLine::number),
                    Field("article", &OrderLine::article).Unique().Collate("NOCASE"),
                    Field("count", &OrderLine::count));
  }
};

constexpr Column ordered(&OrderLine::count);

TEST_F(TableStateTest, ATextIsPlainAndOneForEachOperation) {
  Table<OrderLine> lines(fDatabase);
  lines.Create();
  const std::size_t before = KeptTexts().size();
  for (int i = 0; i < 2; ++i) {
    lines.Insert({1, i, std::to_string(i), 1});
    lines.Find(1, i);
    lines.InsertOrIgnore({1, i, std::to_string(i), 1});
    lines.Replace({1, i, std::to_string(i), 1});
    lines.Update({1, i, std::to_string(i), 1});
    lines.Select(ordered > 1 && ordered < 5).All();
    lines.Select().OrderBy(ordered).OrderBy(Descending(ordered)).All();
    lines.Select().Limit(3).All();
    lines.Select().Offset(3).Distinct().All();
    lines.Select(ordered == 1).Limit(3).Count();
    lines.Count(ordered > 1);
    lines.Has(ordered > 1);
    lines.Update(ordered > 7, Set(ordered, 1));
    lines.Delete(ordered > 7);
    lines.Delete(2, i);
  }
  std::vector<std::string> texts = KeptTexts();
  texts.erase(texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(before));
  EXPECT_THAT(
      texts,
      ElementsAre(
          "INSERT INTO lines (\"order\", number, article, count) VALUES (?, ?, ?, ?)",
          "SELECT \"order\", number, article, count FROM lines WHERE \"order\" = ? AND number = ?",
          "INSERT OR IGNORE INTO lines (\"order\", number, article, count) VALUES (?, ?, ?, ?)",
          "REPLACE INTO lines (\"order\", number, article, count) VALUES (?, ?, ?, ?)",
          "UPDATE lines SET article = ?3, count = ?4 WHERE \"order\" = ?1 AND number = ?2",
          "SELECT \"order\", number, article, count FROM lines WHERE count > ? AND count < ?",
          "SELECT \"order\", number, article, count FROM lines ORDER BY count, count DESC",
          "SELECT \"order\", number, article, count FROM lines LIMIT ? OFFSET ?",
          "SELECT DISTINCT \"order\", number, article, count FROM lines LIMIT ? OFFSET ?",
          "SELECT COUNT(*) FROM (SELECT \"order\", number, article, count FROM lines WHERE count = ? LIMIT ? OFFSET ?)",
          "SELECT COUNT(*) FROM lines WHERE count > ?", "SELECT 1 FROM lines WHERE count > ? LIMIT 1",
          "UPDATE lines SET count = ? WHERE count > ?", "DELETE FROM lines WHERE count > ?",
          "DELETE FROM lines WHERE \"order\" = ? AND number = ?"));
}

TEST_F(TableStateTest, TheTextThatFailedIsTold) {
  Table<OrderLine> lines(fDatabase);
  lines.Create();
  EXPECT_EQ(ThrownBy([&] { lines.Create(); }).Sql(),
            "CREATE TABLE lines (\"order\" INTEGER NOT NULL, number INTEGER NOT NULL, article TEXT NOT NULL UNIQUE "
            "COLLATE NOCASE, count INTEGER NOT NULL, PRIMARY KEY (\"order\", number))");
  lines.Drop();
  EXPECT_EQ(ThrownBy([&] { lines.Drop(); }).Sql(), "DROP TABLE lines");
  fDatabase.Execute("CREATE TABLE lines (number)");
  EXPECT_EQ(ThrownBy([&] { lines.CreateIfMissing(); }).Sql(),
            "SELECT lines.\"order\", lines.number, lines.article, lines.count FROM lines");
  EXPECT_EQ(ThrownBy([&] { Table<Part>(fDatabase).Create(); }).Sql(),
            "CREATE TABLE parts (id INTEGER PRIMARY KEY NOT NULL, name TEXT NOT NULL, price REAL NOT NULL, note TEXT)");
  if (sqlite3_libversion_number() < 3024000) return;
  EXPECT_EQ(ThrownBy([&] {
              lines.Upsert({1, 2, "bolt", 3});
            }).Sql(),
            "INSERT INTO lines (\"order\", number, article, count) VALUES (?, ?, ?, ?) ON CONFLICT (\"order\", number) "
            "DO UPDATE SET article = excluded.article, count = excluded.count");
}

TEST_F(TableStateTest, AStatementOfManyValuesIsNotKept) {
  const Table<Part> parts(fDatabase);
  const std::vector<int> few(10, 1);
  const std::vector<int> many(2000, 1);
  const int before = KeptCount();
  EXPECT_EQ(parts.Count(In(id, few)), 1);
  EXPECT_EQ(KeptCount(), before + 1);
  EXPECT_EQ(parts.Count(In(id, many)), 1);
  EXPECT_EQ(KeptCount(), before + 1);
}

TEST_F(TableStateTest, TheTextOfAFailedStepIsToldWithoutItsValues) {
  const Table<Part> parts(fDatabase);
  const auto least = std::numeric_limits<std::int64_t>::min();
  const std::string text = "SELECT id, name, price, note FROM parts WHERE (abs(?) > ";
  EXPECT_EQ(ThrownBy([&] { parts.Select(Where("abs(?) > 0", least)).All(); }).Sql(), text + "0)");
  // There is no parameter left for the value, which is a part of what is compiled then.
  sqlite3_limit(fDatabase.Core().fConnection, SQLITE_LIMIT_VARIABLE_NUMBER, 2);
  EXPECT_EQ(ThrownBy([&] { parts.Select(Where("abs(?) > 1", least)).All(); }).Sql(), text + "1)");
}

TEST_F(TableStateTest, NoTextIsCompiledTwice) {
  Table<Part> parts(fDatabase);
  // SQLite asks it while it compiles, and only then.
  int asked = 0;
  const auto ask = [](void* count, int, const char*, const char*, const char*, const char*) {
    ++*static_cast<int*>(count);
    return SQLITE_OK;
  };
  sqlite3* const handle = fDatabase.Core().fConnection;
  sqlite3_set_authorizer(handle, ask, &asked);
  const auto use = [&] {
    parts.Find(1);
    parts.Replace({2, "nut", 0.5, {}});
    parts.Count(id > 1);
    parts.Select(id > 1).OrderBy(name).Limit(1).All();
    fDatabase.One<int>("SELECT COUNT(*) FROM parts");
    fDatabase.Execute("UPDATE parts SET name = ? WHERE id = ?", "nut", 2);
    Transaction(fDatabase).Commit();
  };
  use();
  EXPECT_GT(asked, 0);
  asked = 0;
  use();
  EXPECT_EQ(asked, 0);
  sqlite3_set_authorizer(handle, nullptr, nullptr);
}

}  // namespace
