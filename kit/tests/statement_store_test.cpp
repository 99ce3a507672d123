#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"

// What a connection keeps is seen by SQLite's list of its statements.

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::Part;
using kit_test::StatementsOf;
using kit_test::ThrownBy;
using ::testing::ElementsAre;

// Keeps five statements.
class StatementStoreTest : public testing::Test {
 protected:
  static constexpr int kMost = 5;

  StatementStoreTest() : fDatabase(":memory:", WithMost()) {
    fDatabase.ExecuteScript(
        "CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT, price REAL, note TEXT);"
        "INSERT INTO parts VALUES (1, 'a', 1, NULL), (2, 'b', 2, NULL), (3, 'c', 3, NULL)");
  }

  static Options WithMost() {
    Options options;
    options.keptStatements = kMost;
    return options;
  }

  int Ask(int number) { return fDatabase.One<int>("SELECT " + std::to_string(number)); }
  // Whether the statement of this number is kept: then nothing is compiled.
  bool IsKept(int number) const {
    const std::string sql = "SELECT " + std::to_string(number);
    sqlite3* const handle = fDatabase.Core().fConnection;
    for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
         each = sqlite3_next_stmt(handle, each)) {
      if (sqlite3_sql(each) == sql) return true;
    }
    return false;
  }
  int KeptCount() const { return StatementsOf(fDatabase).all; }

  Database fDatabase;
};

TEST_F(StatementStoreTest, SameTextIsCompiledOnce) {
  Ask(1);
  const int before = KeptCount();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Ask(1), 1);
  EXPECT_EQ(KeptCount(), before);
}

TEST_F(StatementStoreTest, TextsAtOneAddressAreToldApart) {
  std::string sql = "SELECT 1";
  for (int i = 0; i < 3; ++i) {
    for (const char digit : {'1', '2', '3'}) {
      sql.back() = digit;
      EXPECT_EQ(fDatabase.One<int>(sql), digit - '0');
    }
  }
  EXPECT_TRUE(IsKept(1) && IsKept(2) && IsKept(3));
  EXPECT_EQ(fDatabase.One<int>(std::string_view(sql).substr(0, 8)), 3);
  EXPECT_EQ(ThrownBy([&] { fDatabase.One<int>(std::string_view(sql).substr(0, 7)); }).Code(), SQLITE_ERROR);
}

TEST_F(StatementStoreTest, TextWhoseStatementIsInUseIsCompiledOnceMore) {
  const std::string sql = "SELECT 1 UNION SELECT 2";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(fDatabase.First<int>(sql), 1);
  int sum = 0;
  for (const int outer : fDatabase.Query<int>(sql)) {
    for (const int inner : fDatabase.Query<int>(sql)) sum += outer * inner;
  }
  EXPECT_EQ(sum, 9);
}

TEST_F(StatementStoreTest, TextWhoseStatementHasGoneIsCompiledAnew) {
  const std::string sql = "SELECT 0";
  EXPECT_EQ(fDatabase.One<int>(sql), 0);
  for (int i = 1; i <= kMost; ++i) Ask(i);
  EXPECT_FALSE(IsKept(0));
  EXPECT_EQ(fDatabase.One<int>(sql), 0);
  EXPECT_TRUE(IsKept(0));
  fDatabase.Close();
  EXPECT_EQ(ThrownBy([&] { fDatabase.One<int>(sql); }).Code(), SQLITE_MISUSE);
}

TEST_F(StatementStoreTest, LetsGoOfTheOneWhoseLastUseIsLongestAgo) {
  for (int i = 1; i <= kMost; ++i) Ask(i);
  EXPECT_EQ(KeptCount(), kMost);
  Ask(1);
  Ask(6);
  EXPECT_EQ(KeptCount(), kMost);
  EXPECT_TRUE(IsKept(1));
  EXPECT_FALSE(IsKept(2));
  Ask(3);
  Ask(7);
  EXPECT_TRUE(IsKept(3));
  EXPECT_FALSE(IsKept(4));
  EXPECT_TRUE(IsKept(1) && IsKept(5) && IsKept(6) && IsKept(7));
}

TEST_F(StatementStoreTest, MoreThanKeptMayBeLentAndGoWhenTheyComeBack) {
  std::vector<Rows<int>> rows;
  std::vector<Rows<int>::iterator> running;
  for (int i = 0; i < 3 * kMost; ++i) {
    rows.push_back(fDatabase.Query<int>("SELECT id + " + std::to_string(i) + " FROM parts"));
    running.push_back(rows.back().begin());
  }
  EXPECT_EQ(StatementsOf(fDatabase).running, 3 * kMost);
  // What is lent stays, though it is the oldest.
  for (int i = 1; i <= 2 * kMost; ++i) EXPECT_EQ(Ask(i), i);
  for (int i = 0; i < 3 * kMost; ++i) {
    EXPECT_EQ(*running[static_cast<std::size_t>(i)], i + 1);
    ++running[static_cast<std::size_t>(i)];
    EXPECT_EQ(*running[static_cast<std::size_t>(i)], i + 2);
  }
  running.clear();
  rows.clear();
  EXPECT_EQ(StatementsOf(fDatabase).running, 0);
  EXPECT_EQ(KeptCount(), kMost);
}

TEST_F(StatementStoreTest, NestedUseOfATextHasAStatementOfItsOwn) {
  std::vector<int> seen;
  for (const int outer : fDatabase.Query<int>("SELECT id FROM parts")) {
    for (const int inner : fDatabase.Query<int>("SELECT id FROM parts")) {
      for (const int innermost : fDatabase.Query<int>("SELECT id FROM parts")) {
        seen.push_back(100 * outer + 10 * inner + innermost);
        break;
      }
    }
  }
  EXPECT_THAT(seen, ElementsAre(111, 121, 131, 211, 221, 231, 311, 321, 331));
  // One of them is kept.
  int count = 0;
  sqlite3* const handle = fDatabase.Core().fConnection;
  for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
       each = sqlite3_next_stmt(handle, each)) {
    if (std::string(sqlite3_sql(each)) == "SELECT id FROM parts") ++count;
  }
  EXPECT_EQ(count, 1);
}

TEST_F(StatementStoreTest, NestedUseOfATablesOperationHasAStatementOfItsOwn) {
  const Table<Part> parts(fDatabase);
  std::vector<std::int64_t> seen;
  for (const Part& outer : parts.Select(id > 0)) {
    for (const Part& inner : parts.Select(id > 1)) {
      seen.push_back(10 * outer.id + inner.id);
      if (parts.Get(inner.id).id == 3) break;
    }
  }
  EXPECT_THAT(seen, ElementsAre(12, 13, 22, 23, 32, 33));
}

TEST_F(StatementStoreTest, StatementThatFailsIsKeptAndBeginsAnew) {
  const Table<Part> parts(fDatabase);
  EXPECT_THROW(parts.Insert({1, "taken", 0, {}}), ConstraintError);
  const int before = KeptCount();
  EXPECT_THROW(parts.Insert({1, "taken", 0, {}}), ConstraintError);
  EXPECT_EQ(parts.Insert({4, "new", 0, {}}), 4);
  EXPECT_EQ(KeptCount(), before);
  EXPECT_EQ(StatementsOf(fDatabase).running, 0);
}

TEST_F(StatementStoreTest, ThatKeepsNoneLetsGoOfEach) {
  Options none;
  none.keptStatements = 0;
  Database database(":memory:", none);
  const Table<Part> parts(database);
  parts.Create();
  parts.Insert({1, "a", 1, {}});
  EXPECT_EQ(parts.Get(1).name, "a");
  EXPECT_EQ(parts.Count(id == 1), 1);
  for (const Part& part : parts.Select()) EXPECT_EQ(parts.Get(part.id), part);
  EXPECT_EQ(StatementsOf(database).all, 0);
}

TEST_F(StatementStoreTest, LentOnesAreGivenBackAfterTheConnectionHasGone) {
  auto database = std::make_unique<Database>(":memory:");
  const Table<Part> parts(*database);
  parts.Create();
  parts.Insert({1, "a", 1, {}});
  parts.Insert({2, "b", 1, {}});
  auto row = parts.Select().begin();
  const auto copy = row;
  Statement prepared = database->Prepare("SELECT 1");
  Rows<int> rows = database->Query<int>("SELECT id FROM parts");
  auto running = rows.begin();
  database.reset();
  EXPECT_EQ(row->id, 1);
  EXPECT_THROW(++row, Error);
  EXPECT_THROW(++running, Error);
  EXPECT_THROW(rows.begin(), Error);
  EXPECT_THROW(prepared.One<int>(), Error);
  EXPECT_THROW(parts.Get(1), Error);
  EXPECT_EQ(copy->id, 1);
}

TEST_F(StatementStoreTest, ThousandsOfIdleStatementsAreFound) {
  Options many;
  many.keptStatements = 3000;
  Database database(":memory:", many);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 2500; ++i) EXPECT_EQ(database.One<int>("SELECT " + std::to_string(i)), i);
    EXPECT_EQ(StatementsOf(database).all, 2500);
  }
}

// Whose texts differ in the last byte, or in their length alone.
TEST_F(StatementStoreTest, TextsThatHardlyDifferAreToldApart) {
  std::string sql = "SELECT '";
  for (int i = 0; i < 40; ++i) {
    sql += 'a';
    EXPECT_EQ(fDatabase.One<int>("SELECT length('" + std::string(static_cast<std::size_t>(i), 'a') + "')"), i);
    EXPECT_EQ(fDatabase.One<std::string>(sql + "1'").back(), '1');
    EXPECT_EQ(fDatabase.One<std::string>(sql + "2'").back(), '2');
  }
}

}  // namespace
