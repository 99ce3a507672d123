#include "sqldb/kit/terms.h"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "sqldb/kit/column.h"
#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLEmptyTerm;
using sqldb::SQLTermBase;
using sqldb::kit::Between;
using sqldb::kit::Blob;
using sqldb::kit::Characters;
using sqldb::kit::ColumnName;
using sqldb::kit::EncodedBytes;
using sqldb::kit::EscapedForLike;
using sqldb::kit::In;
using sqldb::kit::IsNull;
using sqldb::kit::Like;
using sqldb::kit::Term;
using sqldb::kit::TrustedSql;
using sqldb::kit::Where;
using support::CallRecorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_convertible_v<Term, shared_ptr<SQLTermBase>>);
// A text is no condition unless the program says that it trusts it, and a column is not made of any text.
static_assert(!std::is_convertible_v<std::string, Term> && !std::is_convertible_v<TrustedSql, Term>);
static_assert(!std::is_convertible_v<std::string, ColumnName<int>>);

const ColumnName<std::int64_t> kId("id");
const ColumnName<std::string> kName("name");
const ColumnName<double> kPrice("price");
const ColumnName<std::optional<double>> kWeight("weight");

Term A() { return Term(TrustedSql{"a"}); }
Term B() { return Term(TrustedSql{"b"}); }
Term C() { return Term(TrustedSql{"c"}); }

std::string PrintOf(const shared_ptr<SQLTermBase>& term) {
  std::ostringstream text;
  EXPECT_EQ(&term->Print(text), &text);
  return text.str();
}

// Whether `left` can be compared with a Right.
template <typename Left, typename Right, typename = void>
constexpr bool kCompares = false;
template <typename Left, typename Right>
constexpr bool
    kCompares<Left, Right, std::void_t<decltype(std::declval<const Left&>() == std::declval<const Right&>())>> = true;

static_assert(kCompares<ColumnName<double>, int> && kCompares<ColumnName<int>, ColumnName<double>>);
static_assert(!kCompares<ColumnName<double>, std::string> && !kCompares<ColumnName<std::string>, double>);
static_assert(!kCompares<ColumnName<std::optional<double>>, std::nullopt_t>);
static_assert(!kCompares<ColumnName<std::optional<double>>, std::optional<double>>);

// --- Empty terms -----------------------------------------------------------------------------------------------------

TEST(TermsTest, TermWithoutAConditionIsEmpty) {
  EXPECT_TRUE(Term().IsEmpty());
  EXPECT_EQ(Term().Text(), "");
  EXPECT_FALSE(A().IsEmpty());
}

TEST(TermsTest, EmptyTermBecomesTheLibrarysEmptyTerm) {
  const shared_ptr<SQLTermBase> term = Term();
  EXPECT_EQ(term, SQLEmptyTerm::EmptyTerm);
}

TEST(TermsTest, TermPrintsALeadingBlankAndItsTextAndIsNotEmpty) {
  const shared_ptr<SQLTermBase> term = kPrice < 1;
  EXPECT_EQ(PrintOf(term), " price < 1.0");
  EXPECT_EQ((kPrice < 1).Text(), "price < 1.0");
  EXPECT_TRUE(term->NotEmpty());
}

TEST(TermsTest, EmptyTermVanishesOnBothSides) {
  EXPECT_EQ((Term() && A()).Text(), "a");
  EXPECT_EQ((A() && Term()).Text(), "a");
  EXPECT_EQ((Term() || A()).Text(), "a");
  EXPECT_EQ((A() || Term()).Text(), "a");
  EXPECT_TRUE((Term() && Term()).IsEmpty());
  EXPECT_TRUE((Term() || Term()).IsEmpty());
}

TEST(TermsTest, EmptyTermVanishesUnderNot) {
  EXPECT_TRUE((!Term()).IsEmpty());
  EXPECT_EQ((A() && !Term()).Text(), "a");
}

// --- Combinations ----------------------------------------------------------------------------------------------------

TEST(TermsTest, OperandsOfACombinationAreInParentheses) {
  EXPECT_EQ((A() && B()).Text(), "(a) AND (b)");
  EXPECT_EQ((A() || B()).Text(), "(a) OR (b)");
  EXPECT_EQ((!A()).Text(), "NOT (a)");
}

TEST(TermsTest, GroupingOfTheCodeIsThatOfTheSql) {
  EXPECT_EQ(((A() || B()) && C()).Text(), "((a) OR (b)) AND (c)");
  EXPECT_EQ((A() || (B() && C())).Text(), "(a) OR ((b) AND (c))");
  EXPECT_EQ((!(A() || B())).Text(), "NOT ((a) OR (b))");
  EXPECT_EQ((!A() || B()).Text(), "(NOT (a)) OR (b)");
  EXPECT_EQ((!!A()).Text(), "NOT (NOT (a))");
}

TEST(TermsTest, CombiningLeavesItsOperandsAlone) {
  const Term a = A();
  const Term b = B();
  static_cast<void>(a && b);
  static_cast<void>(!a);
  EXPECT_EQ(a.Text(), "a");
  EXPECT_EQ(b.Text(), "b");
}

TEST(TermsTest, WhereReturnsItsTerm) {
  EXPECT_EQ(Where(A()).Text(), "a");
  EXPECT_TRUE(Where(Term()).IsEmpty());
}

// --- Comparisons -----------------------------------------------------------------------------------------------------

TEST(TermsTest, EveryOperatorHasItsSql) {
  EXPECT_EQ((kId == 5).Text(), "id = 5");
  EXPECT_EQ((kId != 5).Text(), "id <> 5");
  EXPECT_EQ((kId < 5).Text(), "id < 5");
  EXPECT_EQ((kId <= 5).Text(), "id <= 5");
  EXPECT_EQ((kId > 5).Text(), "id > 5");
  EXPECT_EQ((kId >= 5).Text(), "id >= 5");
}

TEST(TermsTest, EveryOperatorComparesTwoColumnsOfAnyTypes) {
  EXPECT_EQ((kId == kWeight).Text(), "id = weight");
  EXPECT_EQ((kId != kWeight).Text(), "id <> weight");
  EXPECT_EQ((kId < kWeight).Text(), "id < weight");
  EXPECT_EQ((kId <= kWeight).Text(), "id <= weight");
  EXPECT_EQ((kId > kWeight).Text(), "id > weight");
  EXPECT_EQ((kId >= kWeight).Text(), "id >= weight");
  EXPECT_EQ((kId == kId).Text(), "id = id");
}

TEST(TermsTest, ValuesBecomeLiteralsOfTheColumnsType) {
  EXPECT_EQ((kName == "it's").Text(), "name = 'it''s'");
  EXPECT_EQ((kName == std::string("a\0b", 3)).Text(), "name = CAST(x'610062' AS TEXT)");
  EXPECT_EQ((kPrice == 1).Text(), "price = 1.0");
  EXPECT_EQ((kPrice == 1.5F).Text(), "price = 1.5");
  EXPECT_EQ((kId == std::numeric_limits<std::int64_t>::min()).Text(), "id = -9223372036854775808");
  EXPECT_EQ((ColumnName<bool>("flag") == true).Text(), "flag = 1");
  EXPECT_EQ((ColumnName<float>("f") == 0.5F).Text(), "f = 0.5");
  EXPECT_EQ((ColumnName<Blob>("blob") == Blob{1, 2}).Text(), "blob = x'0102'");
  EXPECT_EQ((ColumnName<EncodedBytes>("bytes") == EncodedBytes{}).Text(), "bytes = 'x'");
}

TEST(TermsTest, OptionalColumnsAreComparedWithTheirValues) {
  EXPECT_EQ((kWeight < 2).Text(), "weight < 2.0");
  EXPECT_EQ((ColumnName<std::optional<std::string>>("note") == "text").Text(), "note = 'text'");
  EXPECT_EQ((ColumnName<std::optional<std::array<char, 4>>>("code") == "ab").Text(), "code = 'ab'");
}

TEST(TermsTest, NarrowColumnIsNotComparedWithAnotherNumberThanTheOneGiven) {
  const int large = 300;
  EXPECT_EQ((ColumnName<std::int8_t>("n") == large).Text(), "n = 300");
  EXPECT_EQ((ColumnName<std::uint8_t>("n") > -1).Text(), "n > -1");
  EXPECT_EQ((ColumnName<std::uint16_t>("n") == 65536).Text(), "n = 65536");
  EXPECT_EQ((ColumnName<std::uint32_t>("n") == -1).Text(), "n = -1");
  EXPECT_EQ((ColumnName<std::optional<std::int32_t>>("n") < std::int64_t{1} << 40).Text(), "n < 1099511627776");
  EXPECT_EQ((ColumnName<std::uint64_t>("n") == std::uint64_t{9223372036854775807U}).Text(), "n = 9223372036854775807");
}

TEST(TermsTest, IntegerColumnIsComparedWithAnyNumberAsItIs) {
  enum Unscoped { kThree = 3 };
  EXPECT_EQ((kId < 1.5).Text(), "id < 1.5");
  EXPECT_EQ((kId < 1.5F).Text(), "id < 1.5");
  EXPECT_EQ((kId > -std::numeric_limits<double>::infinity()).Text(), "id > -9e999");
  EXPECT_EQ((kId == kThree).Text(), "id = 3");
  EXPECT_EQ((kId == true).Text(), "id = 1");
  EXPECT_EQ((ColumnName<std::uint64_t>("n") == -1).Text(), "n = -1");
  EXPECT_EQ(In(kId, {0.5, 2.5}).Text(), "id IN (0.5, 2.5)");
  EXPECT_EQ(Between(kId, 0.5, 2).Text(), "id BETWEEN 0.5 AND 2");
  EXPECT_THROW(static_cast<void>(kId == std::uint64_t{9223372036854775808U}), std::range_error);
  EXPECT_THROW(static_cast<void>(kId == std::numeric_limits<double>::quiet_NaN()), std::domain_error);
}

TEST(TermsTest, CharactersAreComparedWithTextsOfAnyLength) {
  const ColumnName<char[4]> code("code");
  EXPECT_EQ((code == "ab").Text(), "code = 'ab'");
  EXPECT_EQ((code == "abcdef").Text(), "code = 'abcdef'");
  EXPECT_EQ((code == std::string("ab")).Text(), "code = 'ab'");
  EXPECT_EQ((ColumnName<std::array<char, 4>>("code") == "ab").Text(), "code = 'ab'");
}

TEST(TermsTest, CharactersAreComparedWithArraysThatAreFull) {
  const char full[4] = {'a', 'b', 'c', 'd'};
  const std::array<char, 4> shorter = {'a', 'b'};
  EXPECT_EQ((ColumnName<char[4]>("code") == full).Text(), "code = 'abcd'");
  EXPECT_EQ((ColumnName<std::array<char, 4>>("code") == shorter).Text(), "code = 'ab'");
}

TEST(TermsTest, ComparisonThrowsWhatTheTypeThrows) {
  EXPECT_THROW(static_cast<void>(kPrice < std::numeric_limits<double>::quiet_NaN()), std::domain_error);
  EXPECT_THROW(static_cast<void>(ColumnName<std::uint64_t>("n") == std::numeric_limits<std::uint64_t>::max()),
               std::range_error);
}

TEST(TermsTest, NameOfAColumnMayBeAnyExpression) {
  const ColumnName<std::int64_t> length("length(name)");
  EXPECT_EQ(length.Name(), "length(name)");
  EXPECT_EQ((length > 3).Text(), "(length(name)) > 3");
  const ColumnName<bool> either("a OR b");
  EXPECT_EQ((either == true).Text(), "(a OR b) = 1");
  EXPECT_EQ((ColumnName<bool>("c") == either).Text(), "c = (a OR b)");
  EXPECT_EQ(IsNull(either).Text(), "(a OR b) IS NULL");
  EXPECT_EQ(Like(either, "1").Text(), "(a OR b) LIKE '1'");
  EXPECT_EQ(In(either, {true}).Text(), "(a OR b) IN (1)");
  EXPECT_EQ(Between(either, false, true).Text(), "(a OR b) BETWEEN 0 AND 1");
}

TEST(TermsTest, NamesStayAsTheyAre) {
  for (const char* const name : {"azAZ09", "main.parts.id_2", "gr\u00f6\u00dfe"}) {
    EXPECT_EQ(IsNull(ColumnName<int>(name)).Text(), name + std::string(" IS NULL"));
  }
  for (const char* const other : {"a+b", "a-b", "a b", "\"a\"", "a/b", "a:b", "a@b", "a[b", "a`b", "a{b"}) {
    EXPECT_EQ(IsNull(ColumnName<int>(other)).Text(), "(" + std::string(other) + ") IS NULL");
  }
}

// --- Functions -------------------------------------------------------------------------------------------------------

TEST(TermsTest, IsNullAsksForNull) {
  EXPECT_EQ(IsNull(kWeight).Text(), "weight IS NULL");
  EXPECT_EQ((!IsNull(kWeight)).Text(), "NOT (weight IS NULL)");
}

TEST(TermsTest, LikeTakesAPatternAndAnEscape) {
  EXPECT_EQ(Like(kName, "bolt%").Text(), "name LIKE 'bolt%'");
  EXPECT_EQ(Like(kName, "it's").Text(), "name LIKE 'it''s'");
  EXPECT_EQ(Like(kName, "10\\%%", '\\').Text(), "name LIKE '10\\%%' ESCAPE '\\'");
  EXPECT_EQ(Like(kName, "a", '\'').Text(), "name LIKE 'a' ESCAPE ''''");
}

TEST(TermsTest, EscapedForLikeEscapesWildcardsAndTheEscapeItself) {
  EXPECT_EQ(EscapedForLike("", '\\'), "");
  EXPECT_EQ(EscapedForLike("bolt", '\\'), "bolt");
  EXPECT_EQ(EscapedForLike("100%_\\", '\\'), "100\\%\\_\\\\");
  EXPECT_EQ(EscapedForLike("50% a!", '!'), "50!% a!!");
}

TEST(TermsTest, InListsItsValues) {
  EXPECT_EQ(In(kId, {}).Text(), "id IN ()");
  EXPECT_EQ(In(kId, {5}).Text(), "id IN (5)");
  EXPECT_EQ(In(kId, {1, -2, 3}).Text(), "id IN (1, -2, 3)");
  EXPECT_EQ(In(kName, {"it's", "b"}).Text(), "name IN ('it''s', 'b')");
  EXPECT_EQ(In(kName, {"", ""}).Text(), "name IN ('', '')");
  EXPECT_EQ(In(kWeight, {0.5}).Text(), "weight IN (0.5)");
  EXPECT_EQ(In(ColumnName<char[4]>("code"), {"a", "b"}).Text(), "code IN ('a', 'b')");
}

TEST(TermsTest, InTakesAnyRangeOfValues) {
  EXPECT_EQ(In(kId, std::vector<int>{1, 2}).Text(), "id IN (1, 2)");
  EXPECT_EQ(In(kId, std::set<std::int64_t>{3, 1}).Text(), "id IN (1, 3)");
  EXPECT_EQ(In(kName, std::array<const char*, 2>{"a", "b"}).Text(), "name IN ('a', 'b')");
  EXPECT_EQ(In(ColumnName<std::int16_t>("n"), std::vector<std::int16_t>{7}).Text(), "n IN (7)");
}

TEST(TermsTest, BetweenIncludesBothBounds) {
  EXPECT_EQ(Between(kId, 1, 5).Text(), "id BETWEEN 1 AND 5");
  EXPECT_EQ(Between(kPrice, -1, 0.5).Text(), "price BETWEEN -1.0 AND 0.5");
  EXPECT_EQ(Between(kName, "a", "it's").Text(), "name BETWEEN 'a' AND 'it''s'");
  EXPECT_EQ((A() && Between(kId, 1, 5)).Text(), "(a) AND (id BETWEEN 1 AND 5)");
}

// --- In statements ---------------------------------------------------------------------------------------------------

// A table parts, with ids from 1, and what terms select of it.
class TermsInStatementsTest : public support::DatabaseTest {
 protected:
  TermsInStatementsTest() : fTable(fDatabase.NewTable("parts")) {
    Rows(
        "CREATE TABLE parts (id INTEGER, name TEXT, price REAL, weight REAL);"
        "INSERT INTO parts VALUES (1, 'bolt', 0.25, NULL), (2, 'Bolt 10%', 1.5, 2.0), (3, 'it''s', 0.1, 0.1),"
        " (4, 'nut_a', -9e999, 5.0), (-9223372036854775808, 'least', 9e999, NULL)");
  }

  std::vector<std::string> IdsOf(const Term& term) {
    CallRecorder::Pause pause;
    return Rows("SELECT id FROM parts WHERE" + PrintOf(term) + " ORDER BY rowid");
  }

  shared_ptr<sqldb::SQLTableClass> fTable;
};

TEST_F(TermsInStatementsTest, ComparisonsSelectWhatTheySay) {
  EXPECT_THAT(IdsOf(kPrice < 0.25), ElementsAre("3", "4"));
  EXPECT_THAT(IdsOf(kPrice <= 0.25), ElementsAre("1", "3", "4"));
  EXPECT_THAT(IdsOf(kPrice > 1), ElementsAre("2", "-9223372036854775808"));
  EXPECT_THAT(IdsOf(kPrice == 0.1), ElementsAre("3"));
  EXPECT_THAT(IdsOf(kId == std::numeric_limits<std::int64_t>::min()), ElementsAre("-9223372036854775808"));
  EXPECT_THAT(IdsOf(kPrice == std::numeric_limits<double>::infinity()), ElementsAre("-9223372036854775808"));
  EXPECT_THAT(IdsOf(kName == "it's"), ElementsAre("3"));
  EXPECT_THAT(IdsOf(kWeight == kPrice), ElementsAre("3"));
  EXPECT_THAT(IdsOf(kId < 1.5), ElementsAre("1", "-9223372036854775808"));
}

TEST_F(TermsInStatementsTest, NullComparesToNothing) {
  EXPECT_THAT(IdsOf(kWeight < 1 || kWeight >= 1), ElementsAre("2", "3", "4"));
  EXPECT_THAT(IdsOf(!(kWeight < 1)), ElementsAre("2", "4"));
  EXPECT_THAT(IdsOf(IsNull(kWeight)), ElementsAre("1", "-9223372036854775808"));
}

TEST_F(TermsInStatementsTest, PrecedenceIsThatOfTheCode) {
  EXPECT_THAT(IdsOf((kId == 1 || kId == 2) && kPrice > 1), ElementsAre("2"));
  EXPECT_THAT(IdsOf(kId == 1 || (kId == 2 && kPrice > 1)), ElementsAre("1", "2"));
  EXPECT_THAT(IdsOf(!(kId == 1 || kId == 2) && kPrice < 1), ElementsAre("3", "4"));
  EXPECT_THAT(IdsOf(Term(TrustedSql{"id = 1 OR id = 2"}) && kPrice > 1), ElementsAre("2"));
}

TEST_F(TermsInStatementsTest, LikeDisregardsTheCaseAndHasWildcards) {
  EXPECT_THAT(IdsOf(Like(kName, "bolt%")), ElementsAre("1", "2"));
  EXPECT_THAT(IdsOf(Like(kName, "b_lt")), ElementsAre("1"));
  EXPECT_THAT(IdsOf(Like(kName, "it'_")), ElementsAre("3"));
}

TEST_F(TermsInStatementsTest, EscapedTextStandsForItself) {
  for (const char escape : {'\\', '!', '%', '_', '\''}) {
    // Old engines take it for a wildcard all the same.
    if (escape == '%' && support::IsOlderThan(3025000)) continue;
    SCOPED_TRACE(escape);
    EXPECT_THAT(IdsOf(Like(kName, EscapedForLike("10%", escape), escape)), IsEmpty());
    EXPECT_THAT(IdsOf(Like(kName, EscapedForLike("nut_a", escape), escape)), ElementsAre("4"));
    EXPECT_THAT(IdsOf(Like(kName, EscapedForLike("nut%", escape), escape)), IsEmpty());
  }
  EXPECT_THAT(IdsOf(Like(kName, "%" + EscapedForLike("10%", '\\') + "%", '\\')), ElementsAre("2"));
}

TEST_F(TermsInStatementsTest, InHoldsForTheListedValuesAndForNoneIfThereAreNone) {
  EXPECT_THAT(IdsOf(In(kId, {3, 1, 99})), ElementsAre("1", "3"));
  EXPECT_THAT(IdsOf(In(kName, {"it's"})), ElementsAre("3"));
  EXPECT_THAT(IdsOf(In(kId, {})), IsEmpty());
  EXPECT_THAT(IdsOf(!In(kId, {})).size(), 5U);
}

TEST_F(TermsInStatementsTest, InTakesMoreValuesThanAStatementHasParameters) {
  std::vector<std::int64_t> many;
  for (std::int64_t i = 2; i < 100000; ++i) many.push_back(i);
  EXPECT_THAT(IdsOf(In(kId, many)), ElementsAre("2", "3", "4"));
}

TEST_F(TermsInStatementsTest, BetweenHoldsForBothBounds) {
  EXPECT_THAT(IdsOf(Between(kId, 2, 3)), ElementsAre("2", "3"));
  EXPECT_THAT(IdsOf(Between(kId, std::numeric_limits<std::int64_t>::min(), 1)),
              ElementsAre("1", "-9223372036854775808"));
}

// What a form gives that a user has filled in here and there.
struct Filter {
  std::optional<std::string> name;
  std::optional<double> mostExpensive;
  std::vector<std::int64_t> anyOf;
};

Term TermOf(const Filter& filter) {
  Term term;
  if (filter.name) term = term && Like(kName, *filter.name);
  if (filter.mostExpensive) term = term && kPrice <= *filter.mostExpensive;
  Term any;
  for (const std::int64_t id : filter.anyOf) any = any || kId == id;
  return term && any;
}

TEST_F(TermsInStatementsTest, FilterIsBuiltInLoopsOfWhatIsThere) {
  EXPECT_TRUE(TermOf({}).IsEmpty());
  EXPECT_EQ(TermOf({{}, 1.0, {}}).Text(), "price <= 1.0");
  EXPECT_EQ(TermOf({"b%", 1.0, {}}).Text(), "(name LIKE 'b%') AND (price <= 1.0)");
  EXPECT_EQ(TermOf({{}, 1.0, {1, 2, 3}}).Text(), "(price <= 1.0) AND (((id = 1) OR (id = 2)) OR (id = 3))");
  EXPECT_THAT(IdsOf(TermOf({"%", 1.0, {1, 2, 3}})), ElementsAre("1", "3"));
}

TEST_F(TermsInStatementsTest, OneTermServesSelectUpdateDeleteCountAndHas) {
  const Term term = kId == 2 || kName == "it's";
  const std::string where = " WHERE (id = 2) OR (name = 'it''s')";
  CallRecorder recorder;

  const auto select = fDatabase.NewSelect(fTable, 0);
  select->fColumns.push_back(boost::make_shared<sqldb::kit::Column<std::int64_t>>("id"));
  select->fTerm = term;
  select->SetupSelect(boost::make_shared<sqldb::SQLCursorBase>(&fDatabase));
  EXPECT_EQ(select->fQuery, "SELECT id FROM parts" + where);

  EXPECT_EQ(fTable->CountRecords(term), 2U);
  EXPECT_TRUE(fTable->HasTerm(term));

  const auto update = fTable->NewUpdate();
  update->fColumns = select->fColumns;
  update->fValues = {boost::make_shared<support::TextValue>("id + 10")};
  update->fTerm = term;
  update->PerformUpdate(true);
  EXPECT_EQ(recorder.Sql().back(), "UPDATE parts SET id =  id + 10" + where);
  EXPECT_THAT(IdsOf(kId > 10), ElementsAre("12", "13"));

  fTable->DeleteRecords(term);
  EXPECT_EQ(recorder.Sql().back(), "DELETE FROM parts" + where);
  EXPECT_THAT(IdsOf(kId > 10), ElementsAre("12"));
}

TEST_F(TermsInStatementsTest, EmptyTermStandsForEveryRow) {
  EXPECT_EQ(fTable->CountRecords(Term()), 5U);
  EXPECT_TRUE(fTable->HasTerm(Term()));
  CallRecorder recorder;
  fTable->DeleteRecords(Term());
  EXPECT_EQ(recorder.Sql().back(), "DELETE FROM parts");
}

TEST_F(TermsInStatementsTest, InputCannotBreakOutOfItsLiteral) {
  for (const std::string& input :
       {std::string("' OR 1 --"), std::string("'; DROP TABLE parts; --"), std::string("\\' OR 1 --"),
        std::string("\0' OR 1 --", 10), std::string("\xBF' OR 1 --")}) {
    EXPECT_THAT(IdsOf(kName == input), IsEmpty());
    EXPECT_THAT(IdsOf(Like(kName, input)), IsEmpty());
    EXPECT_THAT(IdsOf(In(kName, {input})), IsEmpty());
    EXPECT_THAT(IdsOf(Between(kName, input, input)), IsEmpty());
  }
  EXPECT_EQ(fTable->CountRecords(Term()), 5U);
}

}  // namespace
