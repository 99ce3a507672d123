#include "sqldb/kit/column.h"

#include <cstring>
#include <string>
#include <type_traits>

#include "kit_test.h"
#include "sqldb/kit/table.h"

namespace {

using namespace sqldb::kit;
using kit_test::Part;
using kit_test::ThrownBy;
using ::testing::ElementsAre;

struct Twins {
  int a = 0;
  int b = 0;
  int undescribed = 0;
  double real = 0;
  char code[4] = {};
  std::optional<std::string> note;

  static constexpr auto Description() {
    return Describe("twins", Key("first", &Twins::a), Field("second", &Twins::b), Field("real", &Twins::real),
                    Field("code", &Twins::code), Field("note", &Twins::note));
  }
};

// A text is no column, whatever it says.
static_assert(!std::is_constructible_v<Column<int>, std::string> && !std::is_constructible_v<Column<int>, const char*>);

TEST(Column, HasTheNameAndTheTypeOfTheMember) {
  constexpr Column a(&Twins::a);
  constexpr Column b(&Twins::b);
  constexpr Column code(&Twins::code);
  constexpr Column note(&Twins::note);
  static_assert(std::is_same_v<decltype(b), const Column<int>>);
  static_assert(std::is_same_v<decltype(code), const Column<char[4]>>);
  static_assert(std::is_same_v<decltype(note), const Column<std::optional<std::string>>>);
  EXPECT_STREQ(a.Name(), "first");
  EXPECT_STREQ(b.Name(), "second");
  EXPECT_EQ(b.Qualifier(), nullptr);
}

TEST(Column, ThatIsNotDescribedThrowsWhereItIsNoConstant) {
  EXPECT_EQ(ThrownBy([] { const Column column(&Twins::undescribed); }).Message(),
            "The member is not in the description of its struct.");
}

TEST(Column, OfATableIsACopyOfIt) {
  constexpr Column price(&Part::price);
  constexpr Column other = price.Of("p");
  EXPECT_EQ(price.Qualifier(), nullptr);
  EXPECT_STREQ(other.Qualifier(), "p");
  EXPECT_STREQ(other.Name(), "price");
  EXPECT_STREQ(other.Of("q").Qualifier(), "q");
}

// Its name would have to stay, and that of an array need not.
template <typename Name, typename = void>
constexpr bool kIsQualifier = false;
template <typename Name>
constexpr bool kIsQualifier<Name, std::void_t<decltype(std::declval<Column<int>>().Of(std::declval<Name>()))>> = true;
static_assert(kIsQualifier<const char (&)[2]> && !kIsQualifier<char (&)[2]> && !kIsQualifier<std::string>);

TEST(Column, OfATableIsQualifiedInTerms) {
  Database database(":memory:");
  const Table<Part> parts(database);
  parts.Create();
  parts.Insert({1, "a", 1, {}});
  parts.Insert({2, "b", 2, {}});
  const Table<Part> joined(database, "(SELECT p.id, p.name, p.price, p.note FROM parts p JOIN parts q ON q.id = p.id)");
  constexpr Column id(&Part::id);
  EXPECT_EQ(parts.Count(id.Of("parts") == 2), 1);
  EXPECT_EQ(joined.Count(id == 2), 1);
  EXPECT_EQ(parts.Count(Where("EXISTS (SELECT 1 FROM parts q WHERE q.id > parts.id)")), 1);
  EXPECT_EQ(std::string(ThrownBy([&] { parts.Count(id.Of("q") == 2); }).Message()), "no such column: q.id");
}

TEST(Column, SqlIsAnOperandOfItsOwn) {
  Database database(":memory:");
  const Table<Part> parts(database);
  parts.Create();
  parts.Insert({1, "a", 1, {}});
  parts.Insert({2, "bb", 2, {}});
  constexpr Column price(&Part::price);
  EXPECT_EQ(parts.Count(Sql<int>("length(name)") > 1), 1);
  EXPECT_EQ(parts.Count(Sql<int>("length(name) + ?", 1) == 3), 1);
  EXPECT_EQ(parts.Count(price > Sql<double>("0 OR ?", 1.0)), 1);
  EXPECT_EQ(parts.Count(Sql<int>("1 + 1") == Sql<int>("? + ?", 1, 1)), 2);
  // A comment ends with it.
  EXPECT_EQ(parts.Count(Sql<double>("price -- dear") > 1.0 && price < 9.0), 1);
  EXPECT_EQ(parts.Count(Sql<double>("price /* dear -- */") > 1.0 && price < 9.0), 1);
}

TEST(Column, SqlTakesAValueForEachQuestionMark) {
  constexpr char kTooFew[] = "There are more question marks than values.";
  constexpr char kTooMany[] = "There are more values than question marks.";
  EXPECT_EQ(ThrownBy([] { Sql<int>("? + ?", 1); }).Message(), kTooFew);
  EXPECT_EQ(ThrownBy([] { Sql<int>("?"); }).Message(), kTooFew);
  EXPECT_EQ(ThrownBy([] { Sql<int>("? + 1", 1, 2); }).Message(), kTooMany);
  const Error error = ThrownBy([] { Sql<int>("1", 1); });
  EXPECT_EQ(error.Message(), kTooMany);
  EXPECT_EQ(error.Sql(), "1");
  EXPECT_EQ(error.Code(), 21);
}

TEST(Column, SqlTakesNoOtherParameters) {
  constexpr char kOthers[] = "The parameters of a term are question marks.";
  for (const char* const sql : {"?1", ":a", "@a", "$a", "x =:a", "x LIKE?1", "x LIKE:a", "x IN(@a)", "1+?2"}) {
    EXPECT_EQ(ThrownBy([&] { Sql<int>(sql, 1); }).Message(), kOthers) << sql;
  }
  EXPECT_EQ(ThrownBy([&] { Sql<int>("?", Named(":a", 1)); }).Message(),
            "Give the values of a term in order, not by name.");
  // A dollar sign may be a part of a name.
  const Sql<int> name("a$b + ?", 1);
  EXPECT_EQ(name.Parts().ValueCount(), 1U);
}

TEST(Column, SqlSeesNoQuestionMarksInTextsNamesAndComments) {
  Database database(":memory:");
  for (const char* const sql :
       {"'?' || ''", "'it''s ?' || ''", "'' || '?' /* ? */", "'?' || '' -- ?", "'?' -- '", "'?' /* ' */",
        "(SELECT \"?\" FROM (SELECT '?' AS \"?\"))", "(SELECT [?] FROM (SELECT '?' AS [?]))",
        "(SELECT `?` FROM (SELECT '?' AS `?`))", "'/*?' || ''", "'--?' || ''"}) {
    const Sql<std::string> text(sql);
    EXPECT_EQ(text.Parts().ValueCount(), 0U) << sql;
    const Table<Part> one(database, "(SELECT 1 AS id, 'n' AS name, 2.0 AS price, NULL AS note)");
    EXPECT_EQ(one.Count(text != "" && Where("? = 1", 1)), 1) << sql;
  }
  EXPECT_EQ(Sql<int>("1 - ? / ?", 1, 2).Parts().ValueCount(), 2U);
  EXPECT_EQ(Sql<int>("'' - ?", 1).Parts().ValueCount(), 1U);
}

}  // namespace
