#include "sqldb/kit/statement.h"

#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include <sqlite3.h>

#include "kit_test.h"
#include "sqldb/database.h"

namespace {

using kit_test::Part;
using kit_test::ThrownBy;
using sqldb::kit::Database;
using sqldb::kit::Error;
using sqldb::kit::Named;
using sqldb::kit::Statement;
using ::testing::ElementsAre;

class StatementTest : public ::testing::Test {
 protected:
  StatementTest() : fDatabase(":memory:") {
    fDatabase.ExecuteScript("CREATE TABLE t (a INTEGER, b TEXT); INSERT INTO t VALUES (1, 'one'), (2, 'two')");
  }

  Database fDatabase;
};

constexpr char kInUse[] = "The statement is in use: end the range that Query has made, or take its rows with All.";

TEST_F(StatementTest, HasTheCallsOfADatabase) {
  Statement insert = fDatabase.Prepare("INSERT INTO t VALUES (?, ?)");
  for (int i = 3; i < 6; ++i) EXPECT_EQ(insert.Execute(i, std::to_string(i)), 1);
  Statement find = fDatabase.Prepare("SELECT b FROM t WHERE a = :a");
  EXPECT_EQ(find.One<std::string>(Named(":a", 4)), "4");
  EXPECT_EQ(find.First<std::string>(1), "one");
  EXPECT_EQ(find.First<std::string>(9), std::nullopt);
  EXPECT_THAT(find.All<std::string>(2), ElementsAre("two"));
  std::vector<std::string> names;
  for (const std::string& name : find.Query<std::string>(5)) names.push_back(name);
  EXPECT_THAT(names, ElementsAre("5"));
}

TEST_F(StatementTest, IsCompiledWhenPrepared) {
  EXPECT_EQ(ThrownBy([&] { fDatabase.Prepare("SELECT b FROM none"); }).Message(), "no such table: none");
  EXPECT_EQ(ThrownBy([&] { fDatabase.Prepare("SELECT 1; SELECT 2"); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(ThrownBy([&] { fDatabase.Prepare(""); }).Code(), SQLITE_MISUSE);
}

TEST_F(StatementTest, FailsAsADatabaseDoesAndCanBeUsedAgain) {
  Statement find = fDatabase.Prepare("SELECT b FROM t WHERE a > ?");
  EXPECT_EQ(ThrownBy([&] { find.One<std::string>(); }).Message(),
            "The statement has 1 parameter, and is given 0 values.");
  EXPECT_EQ(ThrownBy([&] { find.One<std::string>(7); }).Message(), "The query yields no row.");
  EXPECT_EQ(ThrownBy([&] { find.One<std::string>(0); }).Message(), "The query yields more than one row.");
  EXPECT_THROW(find.One<int>(1), sqldb::kit::ConversionError);
  EXPECT_EQ(find.One<std::string>(1), "two");
}

TEST_F(StatementTest, UsedAgainWhileItsRangeIsThereIsAnErrorAndTheRangeGoesOn) {
  Statement all = fDatabase.Prepare("SELECT a FROM t WHERE a > ?");
  {
    auto rows = all.Query<int>(0);
    auto row = rows.begin();
    const Error error = ThrownBy([&] { all.All<int>(0); });
    EXPECT_EQ(error.Code(), SQLITE_MISUSE);
    EXPECT_EQ(error.Message(), kInUse);
    EXPECT_EQ(ThrownBy([&] { const auto again = all.Query<int>(1); }).Message(), kInUse);
    EXPECT_EQ(ThrownBy([&] { all.Execute(1); }).Message(), kInUse);
    EXPECT_EQ(*++row, 2);
  }
  EXPECT_THAT(all.All<int>(1), ElementsAre(2));
}

TEST_F(StatementTest, UsedAgainWhileAnIteratorIsThereIsAnError) {
  Statement all = fDatabase.Prepare("SELECT a FROM t");
  auto row = all.Query<int>().begin();
  EXPECT_EQ(ThrownBy([&] { all.One<int>(); }).Message(), kInUse);
  row = {};
  EXPECT_EQ(all.First<int>(), 1);
}

TEST_F(StatementTest, UsedAgainAfterARangeThatWroteIsFine) {
  if (sqlite3_libversion_number() < 3035000) GTEST_SKIP() << "RETURNING needs SQLite 3.35";
  Statement insert = fDatabase.Prepare("INSERT INTO t VALUES (?, '') RETURNING a");
  auto first = insert.Query<int>(3);
  auto second = insert.Query<int>(4);
  EXPECT_EQ(*first.begin(), 3);
  EXPECT_EQ(*second.begin(), 4);
}

// Uses a statement while its values are bound.
struct Nested {
  Statement* statement;
};

}  // namespace

template <>
struct sqldb::kit::Type<Nested> {
  using Stored = std::int64_t;
  static Stored Store(const Nested& nested) { return nested.statement->Execute(std::string(100, 'x'), 1); }
  static Nested Load(Stored) { return Nested{nullptr}; }
};

namespace {

TEST_F(StatementTest, UsedAgainWhileItsValuesAreBoundIsAnError) {
  Statement insert = fDatabase.Prepare("INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(ThrownBy([&] { insert.Execute(std::string(50, 'y'), Nested{&insert}); }).Message(), kInUse);
  EXPECT_EQ(fDatabase.One<int>("SELECT COUNT(*) FROM t"), 2);
  Statement other = fDatabase.Prepare("INSERT INTO t VALUES (?, ?)");
  EXPECT_EQ(insert.Execute(std::string(50, 'y'), Nested{&other}), 1);
  EXPECT_EQ(fDatabase.One<int>("SELECT COUNT(*) FROM t"), 4);
}

TEST_F(StatementTest, RangeOutlivesTheStatement) {
  auto rows = fDatabase.Prepare("SELECT a FROM t").Query<int>();
  EXPECT_EQ(*rows.begin(), 1);
}

TEST_F(StatementTest, CanBeMoved) {
  Statement first = fDatabase.Prepare("SELECT 1");
  Statement second = std::move(first);
  EXPECT_EQ(second.One<int>(), 1);
  EXPECT_EQ(ThrownBy([&] { first.One<int>(); }).Message(), "The statement has been moved.");
  first = fDatabase.Prepare("SELECT 2");
  EXPECT_EQ(first.One<int>(), 2);
}

TEST_F(StatementTest, OfTheSameTextAreApart) {
  Statement first = fDatabase.Prepare("SELECT a FROM t");
  Statement second = fDatabase.Prepare("SELECT a FROM t");
  auto rows = first.Query<int>();
  const auto row = rows.begin();
  EXPECT_THAT(second.All<int>(), ElementsAre(1, 2));
  EXPECT_THAT(fDatabase.All<int>("SELECT a FROM t"), ElementsAre(1, 2));
}

TEST_F(StatementTest, IsNotMissedByOthersOfItsTextWhileItIsHeld) {
  constexpr char kText[] = "SELECT COUNT(*) FROM t";
  const auto count = [&] {
    int statements = 0;
    sqlite3* const connection = fDatabase.Core().fConnection;
    for (auto* it = sqlite3_next_stmt(connection, nullptr); it != nullptr; it = sqlite3_next_stmt(connection, it)) {
      ++statements;
    }
    return statements;
  };
  const Statement held = fDatabase.Prepare(kText);
  const int before = count();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(fDatabase.One<int>(kText), 2);
    EXPECT_EQ(count(), before + 1);
  }
}

TEST_F(StatementTest, FailureOfAStepTellsItsText) {
  Statement fail = fDatabase.Prepare("SELECT abs(?)");
  EXPECT_EQ(ThrownBy([&] { fail.One<int>(std::numeric_limits<std::int64_t>::min()); }).Sql(), "SELECT abs(?)");
}

TEST_F(StatementTest, SurvivesAChangeOfTheSchema) {
  Statement find = fDatabase.Prepare("SELECT b FROM t WHERE a = ?");
  EXPECT_EQ(find.One<std::string>(1), "one");
  fDatabase.ExecuteScript("CREATE INDEX i ON t (a); ALTER TABLE t ADD COLUMN c");
  EXPECT_EQ(find.One<std::string>(2), "two");
}

static_assert(!std::is_copy_constructible_v<Statement>);
static_assert(std::is_nothrow_move_constructible_v<Statement> && std::is_nothrow_move_assignable_v<Statement>);

}  // namespace
