#include "sqldb/kit/query.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <vector>

#include <sqlite3.h>

#include "kit_test.h"
#include "sqldb/database.h"
#include "sqldb/kit/list.h"
#include "sqldb/kit/statement.h"
#include "sqldb/kit/term.h"
#include "sqldb/kit/transaction.h"
#include "support/allocations.h"
#include "support/engine.h"
#include "support/temporary_folder.h"

namespace {

using kit_test::Part;
using kit_test::ThrownBy;
using sqldb::kit::Columns;
using sqldb::kit::ConstraintError;
using sqldb::kit::ConversionError;
using sqldb::kit::Database;
using sqldb::kit::Describe;
using sqldb::kit::Error;
using sqldb::kit::Field;
using sqldb::kit::InTransaction;
using sqldb::kit::List;
using sqldb::kit::Named;
using sqldb::kit::Rows;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

// How much more memory SQLite had at most during the action than before it, in bytes.
template <typename Action>
std::int64_t MostMemory(Action action) {
  sqlite3_memory_highwater(1);
  const sqlite3_int64 before = sqlite3_memory_used();
  action();
  return sqlite3_memory_highwater(1) - before;
}

struct Kind {
  std::int64_t id = 0;
  std::string label;

  static constexpr auto Description() {
    return Describe(sqldb::kit::Key("id", &Kind::id), Field("label", &Kind::label));
  }
};

// All of it may be NULL.
struct Loose {
  std::optional<int> a;
  std::optional<int> b;

  static constexpr auto Description() { return Describe(Field("a", &Loose::a), Field("\"b\"", &Loose::b)); }
};

class QueryTest : public ::testing::Test {
 protected:
  QueryTest() : fDatabase(":memory:") {
    fDatabase.ExecuteScript(
        "CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT, price REAL, note TEXT, kind INTEGER);"
        "CREATE TABLE kinds (id INTEGER PRIMARY KEY, label TEXT);"
        "INSERT INTO kinds VALUES (10, 'screw'), (20, 'wheel');"
        "INSERT INTO parts VALUES (1, 'bolt', 0.25, NULL, 10), (2, 'nut', 0.5, 'M6', 10), (3, 'cog', 4, NULL, NULL)");
  }
  int Count(const std::string& table) { return fDatabase.One<int>("SELECT COUNT(*) FROM " + table); }
  // Whether any statement of the connection stands on a row.
  bool IsAnyRunning() {
    sqlite3* const connection = fDatabase.Core().fConnection;
    for (auto* it = sqlite3_next_stmt(connection, nullptr); it != nullptr; it = sqlite3_next_stmt(connection, it)) {
      if (sqlite3_stmt_busy(it) != 0) return true;
    }
    return false;
  }

  Database fDatabase;
};

// --- Shapes ----------------------------------------------------------------------------------------------------------

TEST_F(QueryTest, RowIsAScalar) {
  EXPECT_THAT(fDatabase.All<std::string>("SELECT name FROM parts ORDER BY id"), ElementsAre("bolt", "nut", "cog"));
  EXPECT_THAT(fDatabase.All<bool>("SELECT note IS NULL FROM parts ORDER BY id"), ElementsAre(true, false, true));
}

TEST_F(QueryTest, RowIsATupleOfScalars) {
  std::vector<std::tuple<std::string, double, std::optional<std::string>>> rows;
  for (const auto& [name, price, note] :
       fDatabase.Query<std::string, double, std::optional<std::string>>("SELECT name, price, note FROM parts")) {
    rows.emplace_back(name, price, note);
  }
  EXPECT_EQ(rows.at(0), std::make_tuple("bolt", 0.25, std::nullopt));
  EXPECT_EQ(rows.at(1), std::make_tuple("nut", 0.5, "M6"));
  EXPECT_EQ(rows.size(), 3U);
}

TEST_F(QueryTest, StructFindsItsColumnsByNameInAnyOrderAmongAll) {
  const Part bolt{1, "bolt", 0.25, std::nullopt};
  EXPECT_EQ(fDatabase.One<Part>("SELECT * FROM parts WHERE id = 1"), bolt);
  EXPECT_EQ(fDatabase.One<Part>("SELECT 7, note, PRICE, name AS Name, id FROM parts WHERE id = 1"), bolt);
}

TEST_F(QueryTest, LocalStructNeedsNoTable) {
  struct Total {
    std::string label;
    double worth = 0;
    static constexpr auto Description() {
      return Describe(Field("label", &Total::label), Field("worth", &Total::worth));
    }
  };
  const Total total =
      fDatabase.One<Total>("SELECT SUM(price) AS worth, label FROM parts JOIN kinds k ON k.id = kind GROUP BY label");
  EXPECT_EQ(total.label, "screw");
  EXPECT_EQ(total.worth, 0.75);
}

// In all of SQLite's quotes.
struct Spaced {
  int first = 0;
  int second = 0;
  int third = 0;
  int fourth = 0;

  static constexpr auto Description() {
    return Describe(Field("`a b`", &Spaced::first), Field("[c d]", &Spaced::second),
                    Field("\"e\"\"f\"", &Spaced::third), Field("[g[h]", &Spaced::fourth));
  }
};

TEST_F(QueryTest, QuotesOfAFieldsNameAreNotOfTheColumns) {
  EXPECT_EQ(fDatabase.One<Loose>("SELECT 2 AS \"b\", 1 AS a").b, 2);
  const auto spaced = fDatabase.One<Spaced>("SELECT 2 AS \"c d\", 1 AS \"a b\", 3 AS \"e\"\"f\", 4 AS \"g[h\"");
  EXPECT_EQ(spaced.first, 1);
  EXPECT_EQ(spaced.second, 2);
  EXPECT_EQ(spaced.third, 3);
  EXPECT_EQ(spaced.fourth, 4);
}

TEST_F(QueryTest, ColumnWhoseNameOnlyBeginsAsTheFieldsIsAnotherOne) {
  EXPECT_EQ(fDatabase.One<Kind>("SELECT 'no' AS label2, 'yes' AS label, 1 AS id").label, "yes");
}

TEST_F(QueryTest, OptionalThatIsReadOverIsEmptiedAndFilled) {
  const auto read = [&](auto value, const char* sql) {
    std::vector<decltype(value)> values;
    for (const auto& row : fDatabase.Query<decltype(value)>(sql)) values.push_back(row);
    return values;
  };
  EXPECT_THAT(read(std::optional<std::string>(), "VALUES ('a'), ('bc'), (NULL), ('d')"),
              ElementsAre("a", "bc", std::nullopt, "d"));
  EXPECT_THAT(read(std::optional<int>(), "VALUES (1), (2), (NULL), (3)"), ElementsAre(1, 2, std::nullopt, 3));
}

TEST_F(QueryTest, ColumnThatIsMissingIsNamedAndNothingIsDone) {
  const Error error = ThrownBy([&] { const auto rows = fDatabase.Query<Part>("SELECT id, name, note FROM parts"); });
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  EXPECT_EQ(error.Message(), "The statement yields no column price.");
  EXPECT_EQ(error.Sql(), "SELECT id, name, note FROM parts");
  EXPECT_THROW(fDatabase.All<Kind>("INSERT INTO kinds VALUES (30, 'x') RETURNING id"), Error);
  EXPECT_THROW(const auto rows = fDatabase.Query<Kind>("INSERT INTO kinds VALUES (30, 'x') RETURNING id"), Error);
  EXPECT_EQ(Count("kinds"), 2);
}

TEST_F(QueryTest, ColumnThatIsThereTwiceIsNamedAndNothingIsDone) {
  const Error error =
      ThrownBy([&] { fDatabase.All<Kind>("SELECT k.*, p.id FROM kinds k JOIN parts p ON p.kind = k.id"); });
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  EXPECT_EQ(error.Message(), "The statement yields the column id twice.");
}

#define SKIP_BEFORE_POINTERS() \
  if (sqlite3_libversion_number() < 3020000) GTEST_SKIP() << "List needs SQLite 3.20"

TEST_F(QueryTest, ARangeWhoseIteratorsHaveGoneStandsOnNoRow) {
  auto rows = fDatabase.Query<int>("SELECT id FROM parts");
  for ([[maybe_unused]] const int part : rows) break;
  EXPECT_NO_THROW(fDatabase.Execute("DROP TABLE kinds"));
  auto moved = std::move(rows);
  auto row = moved.begin();
  moved = fDatabase.Query<int>("SELECT 7");
  // Goes on without the range that it is from.
  EXPECT_NO_THROW(++row);
  EXPECT_EQ(*moved.begin(), 7);
}

TEST_F(QueryTest, AKeptStatementYieldsWhatTheTableHasByNow) {
  fDatabase.Execute("CREATE TABLE grown (a)");
  constexpr char kAll[] = "SELECT * FROM grown";
  auto held = fDatabase.Prepare(kAll);
  EXPECT_TRUE(fDatabase.All<int>(kAll).empty());
  EXPECT_TRUE(held.All<int>().empty());
  fDatabase.Execute("ALTER TABLE grown ADD COLUMN b");
  EXPECT_TRUE((fDatabase.All<int, int>(kAll).empty()));
  EXPECT_TRUE((held.All<int, int>().empty()));
  EXPECT_EQ(ThrownBy([&] { held.All<int>(); }).Message(), "The statement yields 2 columns, and a row is made of 1.");
}

TEST_F(QueryTest, AListOutsideOfListIsRefusedAndNotNull) {
  SKIP_BEFORE_POINTERS();
  const std::vector<int> ids{1, 2};
  constexpr char kSql[] = "SELECT name FROM parts WHERE id IN (?)";
  const Error error = ThrownBy([&] { fDatabase.All<std::string>(kSql, List(ids)); });
  EXPECT_EQ(error.Message(), "A list stands in list(?), as in: IN (SELECT value FROM list(?)).");
  EXPECT_EQ(error.Code(), SQLITE_MISUSE);
  EXPECT_EQ(error.Sql(), kSql);
  for (const char* const sql :
       {"SELECT playlist FROM (SELECT 1 AS playlist) WHERE playlist IN (?)",
        "SELECT lists FROM (SELECT 1 AS lists) WHERE lists IN (?)", "SELECT 1 AS mylist LIMIT ?"}) {
    EXPECT_EQ(ThrownBy([&] { fDatabase.All<int>(sql, List(ids)); }).Code(), SQLITE_MISUSE) << sql;
  }
  for (const char* const sql :
       {"SELECT COUNT(*) FROM LIST(?)", "SELECT COUNT(*) FROM \"list\" /* of numbers */ (?)",
        "SELECT count(*) AS playlist FROM[list](?)", "SELECT COUNT(*) FROM list WHERE ?=list"}) {
    EXPECT_EQ(fDatabase.One<int>(sql, List(ids)), 2) << sql;
  }
  // Which is SQLite's to refuse.
  EXPECT_EQ(ThrownBy([&] { fDatabase.All<int>("SELECT ? FROM list", List(ids)); }).Code(), SQLITE_ERROR);
}

TEST_F(QueryTest, AListIsNoValueOfATerm) {
  SKIP_BEFORE_POINTERS();
  const std::vector<int> ids{1};
  EXPECT_EQ(ThrownBy([&] { sqldb::kit::Where("id IN (SELECT value FROM list(?))", List(ids)); }).Message(),
            "A list cannot be a value of a term: use In, or a query of your own.");
}

TEST_F(QueryTest, NumberOfColumnsMustBeThatOfTheRow) {
  const auto message = [&](const char* sql) {
    return std::string(ThrownBy([&] { fDatabase.All<int, int>(sql); }).Message());
  };
  EXPECT_EQ(message("SELECT 1"), "The statement yields 1 column, and a row is made of 2.");
  EXPECT_EQ(message("SELECT 1, 2, 3"), "The statement yields 3 columns, and a row is made of 2.");
  EXPECT_EQ(message("CREATE TABLE x (a)"), "The statement yields 0 columns, and a row is made of 2.");
  EXPECT_EQ(ThrownBy([&] { fDatabase.All<int>("SELECT 1, 2"); }).Message(),
            "The statement yields 2 columns, and a row is made of 1.");
  if (sqlite3_libversion_number() >= 3035000) {
    EXPECT_EQ(message("INSERT INTO kinds VALUES (1, 'x') RETURNING id"),
              "The statement yields 1 column, and a row is made of 2.");
  }
  EXPECT_EQ(Count("kinds"), 2);
  EXPECT_EQ(Count("sqlite_master"), 2);
}

// --- Joins -----------------------------------------------------------------------------------------------------------

TEST_F(QueryTest, StructsSideBySideTakeTheirColumnsFromLeftToRight) {
  std::vector<std::string> rows;
  for (const auto& [part, kind] :
       fDatabase.Query<Part, std::optional<Kind>>("SELECT " + Columns<Part>("p") + ", " + Columns<Kind>("k") +
                                                  " FROM parts p LEFT JOIN kinds k ON k.id = p.kind ORDER BY p.id")) {
    rows.push_back(std::to_string(part.id) + part.name + (kind ? std::to_string(kind->id) + kind->label : "-"));
  }
  EXPECT_THAT(rows, ElementsAre("1bolt10screw", "2nut10screw", "3cog-"));
}

TEST_F(QueryTest, EachStructFindsItsOwnColumnsInAnyOrder) {
  const auto [kind, again, number] = fDatabase.One<Kind, Kind, int>(
      "SELECT a.label, a.id, b.id, b.label, 7 FROM kinds a JOIN kinds b ON b.id = a.id + 10");
  EXPECT_EQ(kind.id, 10);
  EXPECT_EQ(again.id, 20);
  EXPECT_EQ(again.label, "wheel");
  EXPECT_EQ(number, 7);
}

TEST_F(QueryTest, ColumnOfANeighbourIsNotTaken) {
  const Error missing = ThrownBy([&] { fDatabase.All<int, Kind>("SELECT id, label, 1 FROM kinds"); });
  EXPECT_EQ(missing.Message(), "The statement yields no column id among its columns 2 to 3.");
  const Error twice = ThrownBy([&] { fDatabase.All<Kind, Kind>("SELECT id, id, label, label FROM kinds"); });
  EXPECT_EQ(twice.Message(), "The statement yields the column id twice among its columns 1 to 2.");
  const Error few = ThrownBy([&] { fDatabase.All<Kind, Kind>("SELECT * FROM kinds"); });
  EXPECT_EQ(few.Message(), "The statement yields 2 columns, and a row is made of 4.");
}

TEST_F(QueryTest, OptionalStructIsEmptyOnlyWhereAllItsColumnsAreNull) {
  const auto read = [&](const char* sql) { return fDatabase.One<std::optional<Loose>, int>(sql); };
  EXPECT_FALSE(std::get<0>(read("SELECT NULL AS a, NULL AS b, 5")));
  EXPECT_EQ(std::get<1>(read("SELECT NULL AS a, NULL AS b, 5")), 5);
  EXPECT_TRUE(std::get<0>(read("SELECT NULL AS a, 1 AS b, 5")));
  EXPECT_TRUE(std::get<0>(read("SELECT 1 AS a, NULL AS b, 5")));
}

TEST_F(QueryTest, OptionalStructThatIsReadOverIsEmptiedAndFilled) {
  std::vector<int> found;
  for (const auto& kind : fDatabase.Query<std::optional<Kind>>(
           "SELECT 1 AS id, 'a' AS label UNION ALL SELECT NULL, NULL UNION ALL SELECT 3, 'c'")) {
    found.push_back(kind ? static_cast<int>(kind->id) : 0);
  }
  EXPECT_THAT(found, ElementsAre(1, 0, 3));
}

TEST_F(QueryTest, StructOfALeftJoinThatIsNotOptionalIsAnError) {
  const auto error = ThrownBy<ConversionError>([&] {
    fDatabase.All<int, Kind>("SELECT p.id, k.* FROM parts p LEFT JOIN kinds k ON k.id = p.kind WHERE p.id = 3");
  });
  EXPECT_EQ(error.Message(), "column id has NULL, which cannot be read as an integer");
}

TEST_F(QueryTest, ColumnsOfAStructAreItsFieldsInOrder) {
  EXPECT_EQ(Columns<Part>("p"), "p.id, p.name, p.price, p.note");
  EXPECT_EQ(Columns<Kind>(), "id, label");
  EXPECT_EQ(Columns<Loose>("l"), "l.a, l.\"b\"");
}

// --- Ranges ----------------------------------------------------------------------------------------------------------

constexpr char kNames[] = "SELECT name FROM parts ORDER BY id";

TEST_F(QueryTest, BeginRunsItAnew) {
  auto rows = fDatabase.Query<std::string>(kNames);
  EXPECT_EQ(*rows.begin(), "bolt");
  auto second = rows.begin();
  ++second;
  EXPECT_EQ(*second, "nut");
  EXPECT_THAT(std::vector<std::string>(rows.begin(), rows.end()), ElementsAre("bolt", "nut", "cog"));
  fDatabase.Execute("DELETE FROM parts WHERE id = 1");
  EXPECT_EQ(*rows.begin(), "nut");
}

// With a member that is not described, and one that cannot be copied.
struct Keeper {
  std::string name;
  std::string origin = "default";
  std::unique_ptr<int> owned = std::make_unique<int>(7);

  static constexpr auto Description() { return Describe(Field("name", &Keeper::name)); }
};

TEST_F(QueryTest, PostIncrementTakesTheRowAndLeavesANewOne) {
  auto rows = fDatabase.Query<Keeper>(kNames);
  auto row = rows.begin();
  const Keeper first = *row++;
  EXPECT_EQ(first.name, "bolt");
  EXPECT_EQ(*first.owned, 7);
  EXPECT_EQ(row->name, "nut");
  EXPECT_EQ(row->origin, "default");
  EXPECT_EQ(*row->owned, 7);
  if (support::IsOlderThan(3035000)) return;
  auto written =
      fDatabase.Query<Keeper>("INSERT INTO parts (id, name, price) VALUES (7, 'a', 1), (8, 'b', 2) RETURNING name");
  auto kept = written.begin();
  EXPECT_EQ(Keeper(*kept++).name, "a");
  EXPECT_EQ(Keeper(*kept++).name, "b");
  EXPECT_EQ(kept, written.end());
}

TEST_F(QueryTest, RunsOnlyWhenBegun) {
  auto rows = fDatabase.Query<std::string>(kNames);
  EXPECT_FALSE(IsAnyRunning());
  const auto row = rows.begin();
  EXPECT_TRUE(IsAnyRunning());
}

TEST_F(QueryTest, EndsWhenTheLastIteratorDoes) {
  {
    auto row = fDatabase.Query<std::string>(kNames).begin();
    EXPECT_EQ(*++row, "nut");
  }
  EXPECT_FALSE(IsAnyRunning());
  for (const std::string& name : fDatabase.Query<std::string>(kNames)) {
    if (name == "nut") break;
  }
  EXPECT_FALSE(IsAnyRunning());
}

TEST_F(QueryTest, IteratorsSurviveAMoveOfTheRange) {
  auto rows = fDatabase.Query<std::string>(kNames);
  auto row = rows.begin();
  auto moved = std::move(rows);
  ++row;
  EXPECT_EQ(*row, "nut");
  rows = std::move(moved);
  ++row;
  EXPECT_EQ(row->size(), 3U);
  EXPECT_EQ(++row, rows.end());
}

TEST_F(QueryTest, CopiesOfAnIteratorGoOnTogetherWithARowEach) {
  auto rows = fDatabase.Query<std::string>(kNames);
  auto row = rows.begin();
  auto copy = row;
  ++row;
  EXPECT_EQ(*copy, "bolt");
  EXPECT_EQ(*row, "nut");
  ++copy;
  EXPECT_EQ(*copy, "cog");
  EXPECT_EQ(++row, rows.end());
  EXPECT_EQ(++copy, rows.end());
  // Nor does one run it anew.
  EXPECT_EQ(++copy, rows.end());
  EXPECT_FALSE(IsAnyRunning());
}

TEST_F(QueryTest, PostfixIncrementGivesTheRowBefore) {
  auto rows = fDatabase.Query<std::string>(kNames);
  auto row = rows.begin();
  EXPECT_EQ(*row++, "bolt");
  EXPECT_EQ(*row++, "nut");
  EXPECT_EQ(*row, "cog");
  row++;
  EXPECT_EQ(row, rows.end());
}

TEST_F(QueryTest, WorksInAlgorithms) {
  auto rows = fDatabase.Query<double>("SELECT price FROM parts ORDER BY id");
  EXPECT_EQ(std::accumulate(rows.begin(), rows.end(), 0.0), 4.75);
  EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](double price) { return price < 1; }), 2);
  EXPECT_EQ(*std::find(rows.begin(), rows.end(), 0.5), 0.5);
  std::vector<double> copied;
  std::copy(rows.begin(), rows.end(), std::back_inserter(copied));
  EXPECT_THAT(copied, ElementsAre(0.25, 0.5, 4));
}

TEST_F(QueryTest, RangeOfNoRowsIsAtItsEnd) {
  auto rows = fDatabase.Query<int>("SELECT id FROM parts WHERE 0");
  EXPECT_EQ(rows.begin(), rows.end());
  EXPECT_EQ(rows.end(), rows.end());
}

TEST_F(QueryTest, QueriesOfOneTextCanBeNested) {
  int pairs = 0;
  for (const std::string& a : fDatabase.Query<std::string>(kNames)) {
    for (const std::string& b : fDatabase.Query<std::string>(kNames)) pairs += a <= b ? 1 : 0;
  }
  EXPECT_EQ(pairs, 6);
}

TEST_F(QueryTest, ValuesMayEndBeforeTheRangeBegins) {
  auto rows = fDatabase.Query<std::string>("SELECT ? || ?", std::string(100, 'a'), std::string(100, 'b').c_str());
  EXPECT_EQ(*rows.begin(), std::string(100, 'a') + std::string(100, 'b'));
  EXPECT_EQ(rows.begin()->size(), 200U);
}

TEST_F(QueryTest, RowThatCannotBeReadEndsTheRange) {
  auto rows = fDatabase.Query<int>("SELECT 1 UNION ALL SELECT 'two' UNION ALL SELECT 3");
  auto row = rows.begin();
  auto copy = row;
  EXPECT_THROW(++row, ConversionError);
  EXPECT_EQ(row, rows.end());
  EXPECT_FALSE(IsAnyRunning());
  EXPECT_EQ(*copy, 1);
  EXPECT_EQ(++copy, rows.end());
  auto atEnd = row;
  EXPECT_EQ(++atEnd, rows.end());
}

// Cannot be made.
struct Never {
  Never() { throw std::runtime_error("never"); }
  int number = 0;
  static constexpr auto Description() { return Describe(Field("id", &Never::number)); }
};

TEST_F(QueryTest, RowThatCannotBeMadeLeavesNothingRunning) {
  auto rows = fDatabase.Query<Never>("SELECT id FROM parts");
  EXPECT_THROW(rows.begin(), std::runtime_error);
  EXPECT_EQ(kit_test::StatementsOf(fDatabase).running, 0);
  EXPECT_THROW(fDatabase.First<Never>("SELECT id FROM parts"), std::runtime_error);
  EXPECT_THROW(fDatabase.All<Never>("SELECT id FROM parts"), std::runtime_error);
  EXPECT_EQ(kit_test::StatementsOf(fDatabase).running, 0);
}

TEST_F(QueryTest, StepThatFailsEndsTheRange) {
  auto rows = fDatabase.Query<std::int64_t>("SELECT abs(a) FROM (SELECT 1 AS a UNION ALL SELECT -9223372036854775808)");
  auto row = rows.begin();
  auto copy = row;
  EXPECT_EQ(ThrownBy([&] { ++row; }).Message(), "integer overflow");
  EXPECT_EQ(row, rows.end());
  EXPECT_EQ(++copy, rows.end());
  EXPECT_FALSE(IsAnyRunning());
}

using RowsOfParts = Rows<Part>;
static_assert(std::is_same_v<decltype(*std::declval<RowsOfParts&>().begin()), const Part&>);
static_assert(!std::is_copy_constructible_v<RowsOfParts> && std::is_move_constructible_v<RowsOfParts>);
static_assert(std::is_copy_constructible_v<RowsOfParts::iterator>);
#if __cplusplus >= 202002L
static_assert(std::ranges::input_range<RowsOfParts> && !std::ranges::forward_range<RowsOfParts>);
static_assert(std::ranges::input_range<Rows<int, std::string>> && std::ranges::input_range<Rows<bool>>);
#endif

struct Owner {
  std::unique_ptr<int> number;
  std::string name;
  static constexpr auto Description() { return Describe(Field("name", &Owner::name)); }
};

TEST_F(QueryTest, RowsMayBeMovable) {
  EXPECT_EQ(fDatabase.All<Owner>(kNames).size(), 3U);
  EXPECT_EQ(fDatabase.Query<Owner>(kNames).begin()->name, "bolt");
  EXPECT_EQ(fDatabase.First<Owner>(kNames)->name, "bolt");
}

// --- First, One, All -------------------------------------------------------------------------------------------------

TEST_F(QueryTest, FirstIsTheFirstRowOrNone) {
  EXPECT_EQ(fDatabase.First<std::string>(kNames), "bolt");
  EXPECT_EQ(fDatabase.First<std::string>("SELECT name FROM parts WHERE id > ?", 5), std::nullopt);
  EXPECT_FALSE(IsAnyRunning());
}

TEST_F(QueryTest, OneIsTheOnlyRow) {
  EXPECT_EQ(fDatabase.One<std::string>("SELECT name FROM parts WHERE id = :id", Named(":id", 2)), "nut");
  const Error none = ThrownBy([&] { fDatabase.One<int>("SELECT id FROM parts WHERE id = ?", 9); });
  EXPECT_EQ(none.Message(), "The query yields no row.");
  EXPECT_EQ(none.Code(), SQLITE_MISUSE);
  EXPECT_EQ(ThrownBy([&] { fDatabase.One<int>("SELECT id FROM parts"); }).Message(),
            "The query yields more than one row.");
  EXPECT_FALSE(IsAnyRunning());
}

TEST_F(QueryTest, AllOfNoRowsIsEmpty) { EXPECT_THAT(fDatabase.All<Part>("SELECT * FROM parts WHERE 0"), IsEmpty()); }

// --- Queries that write ----------------------------------------------------------------------------------------------

constexpr char kRaise[] = "UPDATE parts SET price = price * 2 WHERE id < ? RETURNING id, price";

#define SKIP_BEFORE_RETURNING() \
  if (sqlite3_libversion_number() < 3035000) GTEST_SKIP() << "RETURNING needs SQLite 3.35"

TEST_F(QueryTest, QueryThatWritesHasRunToItsEndAndKeepsItsRows) {
  SKIP_BEFORE_RETURNING();
  auto rows = fDatabase.Query<int, double>(kRaise, 3);
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 5.5);
  EXPECT_FALSE(IsAnyRunning());
  for (int i = 0; i < 2; ++i) {
    std::vector<double> prices;
    for (const auto& [id, price] : rows) prices.push_back(price);
    EXPECT_THAT(prices, ElementsAre(0.5, 1));
  }
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 5.5);
  auto row = rows.begin();
  const auto moved = std::move(rows);
  EXPECT_EQ(*row++, std::make_tuple(1, 0.5));
  EXPECT_EQ(*row, std::make_tuple(2, 1.0));
  EXPECT_EQ(++row, moved.end());
}

TEST_F(QueryTest, QueryThatWritesNoRowIsEmpty) {
  SKIP_BEFORE_RETURNING();
  auto rows = fDatabase.Query<int, double>(kRaise, 0);
  EXPECT_EQ(rows.begin(), rows.end());
}

TEST_F(QueryTest, FirstOfAQueryThatWritesWritesAll) {
  SKIP_BEFORE_RETURNING();
  EXPECT_EQ((fDatabase.First<int, double>(kRaise, 3)), std::make_tuple(1, 0.5));
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 5.5);
  EXPECT_FALSE(IsAnyRunning());
}

TEST_F(QueryTest, FirstOfAQueryThatWritesTellsWhyItCannotEnd) {
  SKIP_BEFORE_RETURNING();
  fDatabase.Execute("CREATE TABLE owned (kind REFERENCES kinds(id) DEFERRABLE INITIALLY DEFERRED)");
  const auto write = [&] { fDatabase.First<int>("INSERT INTO owned VALUES (99) RETURNING kind"); };
  EXPECT_EQ(ThrownBy<ConstraintError>(write).Message(), "FOREIGN KEY constraint failed");
  EXPECT_EQ(Count("owned"), 0);
}

TEST_F(QueryTest, FirstOfAQueryThatReadsStopsThere) {
  EXPECT_EQ(fDatabase.First<int>("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n"), 1);
}

TEST_F(QueryTest, WhatAQueryHasWrittenStaysWhereItsRowsAreRefused) {
  SKIP_BEFORE_RETURNING();
  EXPECT_EQ(ThrownBy([&] { fDatabase.One<int, double>(kRaise, 3); }).Message(), "The query yields more than one row.");
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 5.5);
  EXPECT_THROW((fDatabase.All<int, std::string>(kRaise, 2)), ConversionError);
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 6);
  EXPECT_FALSE(IsAnyRunning());
  EXPECT_THROW(InTransaction(fDatabase, [&] { return fDatabase.One<int, double>(kRaise, 3); }), Error);
  EXPECT_EQ(fDatabase.One<double>("SELECT SUM(price) FROM parts"), 6);
}

TEST_F(QueryTest, KeptRowsOfBoolsAndOfMovableStructsWork) {
  SKIP_BEFORE_RETURNING();
  auto bools = fDatabase.Query<bool>("INSERT INTO kinds VALUES (1, ''), (2, '') RETURNING id = 2");
  EXPECT_THAT(std::vector<bool>(bools.begin(), bools.end()), ElementsAre(false, true));
  auto owners = fDatabase.Query<Owner>("INSERT INTO kinds VALUES (3, 'own') RETURNING label AS name");
  EXPECT_EQ(owners.begin()->name, "own");
}

// --- Recompiled ------------------------------------------------------------------------------------------------------

class RecompiledTest : public ::testing::Test {
 protected:
  RecompiledTest() : fDatabase(fFolder.Path("t.db")), fOther(fFolder.Path("t.db")) {
    fOther.ExecuteScript("CREATE TABLE t (id INTEGER PRIMARY KEY, label); INSERT INTO t VALUES (1, 'one')");
  }

  support::TemporaryFolder fFolder;
  Database fDatabase;
  Database fOther;
};

TEST_F(RecompiledTest, NamesAreLookedUpAgainWhenAnotherConnectionHasAlteredTheTable) {
  auto statement = fDatabase.Prepare("SELECT * FROM t");
  EXPECT_EQ(statement.One<Kind>().label, "one");
  fOther.ExecuteScript(
      "CREATE TABLE u (label, more, id); INSERT INTO u SELECT label, 'm', id FROM t; DROP TABLE t;"
      "ALTER TABLE u RENAME TO t");
  EXPECT_EQ(statement.One<Kind>().label, "one");
  EXPECT_EQ(fDatabase.One<Kind>("SELECT * FROM t").id, 1);
}

TEST_F(RecompiledTest, ColumnThatIsGoneIsToldAtTheFirstRow) {
  auto statement = fDatabase.Prepare("SELECT * FROM t");
  EXPECT_EQ(statement.One<Kind>().label, "one");
  fOther.ExecuteScript("DROP TABLE t; CREATE TABLE t (id, name); INSERT INTO t VALUES (1, 'one')");
  EXPECT_EQ(ThrownBy([&] { statement.One<Kind>(); }).Message(), "The statement yields no column label.");
  EXPECT_EQ(ThrownBy([&] { statement.One<int, std::string, int>(); }).Message(),
            "The statement yields 2 columns, and a row is made of 3.");
  EXPECT_EQ((statement.One<int, std::string>()), std::make_tuple(1, "one"));
}

TEST_F(RecompiledTest, NumberOfColumnsIsThatOfTheRecompiledStatement) {
  auto statement = fDatabase.Prepare("SELECT * FROM t");
  EXPECT_EQ((statement.One<int, std::string>()), std::make_tuple(1, "one"));
  fOther.Execute("ALTER TABLE t ADD COLUMN more DEFAULT 7");
  EXPECT_EQ(ThrownBy([&] { statement.One<int, std::string>(); }).Message(),
            "The statement yields 3 columns, and a row is made of 2.");
  EXPECT_EQ((statement.One<int, std::string, int>()), std::make_tuple(1, "one", 7));
}

TEST_F(RecompiledTest, OneTextServesRowsOfDifferentShapes) {
  constexpr char kAll[] = "SELECT label, id FROM t";
  EXPECT_EQ(fDatabase.One<Kind>(kAll).id, 1);
  EXPECT_EQ((fDatabase.One<std::string, int>(kAll)), std::make_tuple("one", 1));
  EXPECT_EQ(fDatabase.One<Kind>(kAll).label, "one");
}

// --- Lists -----------------------------------------------------------------------------------------------------------

constexpr char kInList[] = "SELECT name FROM parts WHERE id IN (SELECT value FROM list(?)) ORDER BY id";

TEST_F(QueryTest, ListOfAnyLengthIsOneParameter) {
  SKIP_BEFORE_POINTERS();
  EXPECT_THAT(fDatabase.All<std::string>(kInList, List(std::vector<int>{3, 1, 9})), ElementsAre("bolt", "cog"));
  EXPECT_THAT(fDatabase.All<std::string>(kInList, List(std::vector<int>{})), IsEmpty());
  std::vector<int> many(100000);
  std::iota(many.begin(), many.end(), 2);
  EXPECT_THAT(fDatabase.All<std::string>(kInList, List(many)), ElementsAre("nut", "cog"));
  const int plain[] = {2};
  EXPECT_THAT(fDatabase.All<std::string>(kInList, List(plain)), ElementsAre("nut"));
}

TEST_F(QueryTest, ListKeepsOrderAndStorageClass) {
  SKIP_BEFORE_POINTERS();
  const auto types = [&](const auto& list) {
    return fDatabase.All<std::string>("SELECT typeof(value) || ':' || ifnull(quote(value), '') FROM list(:l)",
                                      Named(":l", List(list)));
  };
  EXPECT_THAT(types(std::vector<bool>{true, false}), ElementsAre("integer:1", "integer:0"));
  EXPECT_THAT(types(std::vector<double>{1, 0.5}), ElementsAre("real:1.0", "real:0.5"));
  EXPECT_THAT(types(std::vector<const char*>{"b", "a"}), ElementsAre("text:'b'", "text:'a'"));
  EXPECT_THAT(types(std::vector<std::string_view>{"", "v"}), ElementsAre("text:''", "text:'v'"));
  EXPECT_THAT(types(std::vector<sqldb::kit::Blob>{{}, {7}}), ElementsAre("blob:X''", "blob:X'07'"));
  EXPECT_THAT(types(std::vector<std::optional<int>>{std::nullopt, 4}), ElementsAre("null:NULL", "integer:4"));
}

TEST_F(QueryTest, ListMayEndBeforeTheRangeBegins) {
  SKIP_BEFORE_POINTERS();
  auto rows = fDatabase.Query<std::string>("SELECT value FROM list(?)",
                                           List(std::vector<std::string>{std::string(100, 'a'), "b"}));
  EXPECT_EQ(rows.begin()->size(), 100U);
  EXPECT_EQ(std::distance(rows.begin(), rows.end()), 2);
}

TEST_F(QueryTest, ListCanBeJoined) {
  SKIP_BEFORE_POINTERS();
  EXPECT_THAT((fDatabase.All<std::string, int>("SELECT name, l.rowid FROM list(?) l JOIN parts ON id = l.value",
                                               List(std::vector<int>{3, 1}))),
              ElementsAre(std::make_tuple("cog", 0), std::make_tuple("bolt", 1)));
}

TEST_F(QueryTest, ListThatIsComparedOtherwiseOrOfAJoinedTableIsNoneThatIsGiven) {
  SKIP_BEFORE_POINTERS();
  for (const char* const sql : {"SELECT value FROM list WHERE list > 7", "SELECT value FROM list WHERE value = 7",
                                "SELECT value FROM parts LEFT JOIN list ON list.list = parts.id",
                                "SELECT value FROM list LEFT JOIN parts ON list.list = parts.id",
                                "SELECT value FROM list JOIN parts ON list.list = parts.id"}) {
    SCOPED_TRACE(sql);
    EXPECT_THAT(ThrownBy([&] { fDatabase.All<int>(sql); }).what(), HasSubstr("takes what sqldb::kit::List makes"));
  }
}

// Whichever allocation fails.
TEST(List, ThatHasNoMemoryTellsSoAndTheNextOneServes) {
  SKIP_BEFORE_POINTERS();
  constexpr char kSum[] = "SELECT SUM(value) FROM list(?)";
  const std::vector<int> values{1, 2};
  bool hasFailed = true;
  for (std::uint64_t nth = 1; hasFailed; ++nth) {
    SCOPED_TRACE(nth);
    Database database(":memory:");
    {
      const support::AllocationFailure failure(nth);
      try {
        EXPECT_EQ(database.One<int>(kSum, List(values)), 3);
        EXPECT_FALSE(failure.Happened());
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(failure.Happened());
      }
      hasFailed = failure.Happened();
    }
    EXPECT_EQ(database.One<int>(kSum, List(values)), 3);
  }
}

TEST_F(QueryTest, ListIsGivenByEqualityOnly) {
  SKIP_BEFORE_POINTERS();
  const std::vector<int> values{1};
  EXPECT_THAT(fDatabase.All<int>("SELECT value FROM list WHERE list = ?", List(values)), ElementsAre(1));
  EXPECT_THROW(fDatabase.All<int>("SELECT value FROM list WHERE list > ?", List(values)), Error);
}

TEST_F(QueryTest, ListItselfIsNoValue) {
  SKIP_BEFORE_POINTERS();
  EXPECT_THAT(fDatabase.All<std::string>("SELECT typeof(list) FROM list(?)", List(std::vector<int>{3})),
              ElementsAre("null"));
}

TEST_F(QueryTest, ListTakesNothingElse) {
  SKIP_BEFORE_POINTERS();
  for (const char* const sql :
       {"SELECT value FROM list(7)", "SELECT value FROM list", "SELECT value FROM list(NULL)"}) {
    EXPECT_THAT(ThrownBy([&] { fDatabase.All<int>(sql); }).what(), HasSubstr("takes what sqldb::kit::List makes"));
  }
}

TEST_F(QueryTest, ValueOfAListThatCannotBeStoredIsAnErrorAndNothingIsDone) {
  SKIP_BEFORE_POINTERS();
  EXPECT_THROW(fDatabase.Execute("INSERT INTO kinds SELECT value, '' FROM list(?)",
                                 List(std::vector<double>{1, std::numeric_limits<double>::quiet_NaN()})),
               ConversionError);
  EXPECT_EQ(Count("kinds"), 2);
}

TEST_F(QueryTest, TableOfThisNameHidesTheList) {
  fDatabase.ExecuteScript("CREATE TABLE list (value); INSERT INTO list VALUES (5)");
  EXPECT_EQ(fDatabase.One<int>("SELECT value FROM list"), 5);
}

TEST_F(QueryTest, OnlyWhatMayEndBeforeTheQueryIsCopied) {
  const std::string large(1000000, 'x');
  const sqldb::kit::Blob bytes(1000000, 0xFF);
  const auto use = [&] {
    fDatabase.One<int>("SELECT ? IS NULL", large);
    fDatabase.One<int>("SELECT ? IS NULL", bytes);
  };
  use();
  EXPECT_LT(MostMemory(use), 500000);
  EXPECT_GT(MostMemory([&] { static_cast<void>(fDatabase.Query<int>("SELECT ? IS NULL", large)); }), 500000);
}

}  // namespace
