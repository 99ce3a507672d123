#include "sqldb/kit/functions.h"

#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kit_test.h"
#include "sqldb/kit/query.h"

namespace {

using kit_test::ExpectThrown;
using kit_test::ThrownBy;
using sqldb::kit::Blob;
using sqldb::kit::ConstraintError;
using sqldb::kit::Database;
using sqldb::kit::Define;
using sqldb::kit::DefineAggregate;
using sqldb::kit::DefineCollation;
using sqldb::kit::Error;
using sqldb::kit::FunctionArguments;
using sqldb::kit::Purity;
using ::testing::ElementsAre;

int BySize(std::string_view a, std::string_view b) noexcept {
  return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

class FunctionsTest : public ::testing::Test {
 protected:
  template <typename T>
  T Asked(const std::string& expression) {
    return fDatabase.One<T>("SELECT " + expression);
  }

  Database fDatabase{":memory:"};
};

// --- Functions -------------------------------------------------------------------------------------------------------

TEST_F(FunctionsTest, ArgumentsAndResultsAreOfTheirTypes) {
  Define(fDatabase, "times", [](std::int64_t a, std::int64_t b) { return a * b; });
  Define(fDatabase, "half", [](double a) { return a / 2; });
  Define(fDatabase, "twice", [](const std::string& a) { return a + a; });
  Define(fDatabase, "bytes", [](const Blob& a) { return Blob(a.rbegin(), a.rend()); });
  Define(fDatabase, "inverse", [](bool a) { return !a; });
  EXPECT_EQ(Asked<std::int64_t>("times(6, 7)"), 42);
  EXPECT_EQ(Asked<double>("half(3)"), 1.5);
  EXPECT_EQ(Asked<std::string>("twice('a' || char(0))"), std::string("a\0a\0", 4));
  EXPECT_THAT(Asked<Blob>("bytes(x'010203')"), ElementsAre(3, 2, 1));
  EXPECT_EQ(Asked<bool>("inverse(1)"), false);
}

TEST_F(FunctionsTest, NullIsAnOptionalOnBothSides) {
  Define(fDatabase, "next", [](std::optional<int> a) { return a ? std::optional<int>(*a + 1) : a; });
  EXPECT_EQ(Asked<int>("next(1)"), 2);
  EXPECT_EQ(Asked<std::optional<int>>("next(NULL)"), std::nullopt);
}

TEST_F(FunctionsTest, TextsMayBeViews) {
  Define(fDatabase, "rest", [](std::string_view text) { return text.substr(1); });
  Define(fDatabase, "size",
         [](std::optional<std::string_view> text) { return text ? static_cast<int>(text->size()) : -1; });
  Define(fDatabase, "no_text", [] { return std::string_view(); });
  EXPECT_EQ(Asked<std::string>("rest('abc')"), "bc");
  EXPECT_EQ(Asked<int>("size('abc')"), 3);
  EXPECT_EQ(Asked<int>("size(NULL)"), -1);
  EXPECT_EQ(Asked<std::string>("no_text()"), "");
}

TEST_F(FunctionsTest, WhatMayBeAParameterMayBeAResult) {
  Define(fDatabase, "word", [](bool is) { return is ? "yes" : "no"; });
  Define(fDatabase, "null", [] { return std::nullopt; });
  Define(fDatabase, "same", [](std::optional<std::string_view> text) { return text; });
  EXPECT_EQ(Asked<std::string>("word(1)"), "yes");
  EXPECT_EQ(Asked<std::optional<int>>("\"null\"()"), std::nullopt);
  EXPECT_EQ(Asked<std::string>("same('a')"), "a");
  EXPECT_EQ(Asked<std::optional<std::string>>("same(NULL)"), std::nullopt);
}

TEST_F(FunctionsTest, OneThatReturnsNothingYieldsNull) {
  int calls = 0;
  Define(fDatabase, "silent", [&] { ++calls; });
  EXPECT_EQ(Asked<std::optional<int>>("silent()"), std::nullopt);
  EXPECT_EQ(calls, 1);
}

int Sum(int a, int b) noexcept { return a + b; }

struct Counter {
  int Next(int step) { return value += step; }
  int operator()(int step) noexcept { return Next(step); }
  int value = 0;
};
struct Constant {
  int operator()() const noexcept { return value; }
  int value;
};

TEST_F(FunctionsTest, AnythingThatCanBeCalledInOneWayWillDo) {
  Define(fDatabase, "sum", &Sum);
  Define(fDatabase, "counted", Counter());
  Define(fDatabase, "constant", Constant{7});
  Define(fDatabase, "moved", [owned = std::make_unique<int>(3)] { return *owned; });
  EXPECT_EQ(Asked<int>("sum(1, 2)"), 3);
  EXPECT_EQ(Asked<int>("counted(2) + counted(2)"), 6);
  EXPECT_EQ(Asked<int>("constant()"), 7);
  EXPECT_EQ(Asked<int>("moved()"), 3);
}

std::string Described(const FunctionArguments& arguments) {
  std::string text = std::to_string(arguments.Count());
  for (int i = 0; i < arguments.Count(); ++i) {
    text += " " + arguments.At<std::optional<std::string>>(i).value_or("NULL");
  }
  return text;
}

// The one whose number is the first one.
std::string Chosen(const FunctionArguments& arguments) {
  return std::string(arguments.At<std::string_view>(arguments.At<int>(0)));
}

TEST_F(FunctionsTest, OneMayTakeAnyNumberOfArguments) {
  Define(fDatabase, "described", &Described);
  EXPECT_EQ(Asked<std::string>("described()"), "0");
  EXPECT_EQ(Asked<std::string>("described('a', NULL)"), "2 a NULL");
}

TEST_F(FunctionsTest, AnArgumentThatIsNotThereIsAnError) {
  Define(fDatabase, "chosen", &Chosen);
  EXPECT_EQ(Asked<std::string>("chosen(1, 'b')"), "b");
  const Error behind = ThrownBy([&] { Asked<std::string>("chosen(2, 'b')"); });
  EXPECT_EQ(behind.Message(), "The function has no argument 2, counted from 0.");
  EXPECT_EQ(behind.Code(), SQLITE_ERROR);
  EXPECT_EQ(ThrownBy([&] { Asked<std::string>("chosen(-1, 'b')"); }).Message(),
            "The function has no argument -1, counted from 0.");
}

TEST_F(FunctionsTest, ArgumentsThatDoNotFitAreToldByTheirNumber) {
  Define(fDatabase, "half", [](int, int a) { return a / 2; });
  EXPECT_EQ(ThrownBy([&] { Asked<int>("half(1, 'secret')"); }).Message(),
            "argument 2 has a text, which cannot be read as an integer");
  EXPECT_EQ(ThrownBy([&] { Asked<int>("half(NULL, 1)"); }).Message(),
            "argument 1 has NULL, which cannot be read as an integer");
  EXPECT_EQ(ThrownBy([&] { Asked<int>("half(1)"); }).Message(), "wrong number of arguments to function half()");
}

double Failing(int how) {
  switch (how) {
    case 0:
      throw std::domain_error("not today");
    case 1:
      throw ConstraintError("not like this", SQLITE_CONSTRAINT_FUNCTION);
    case 2:
      throw std::bad_alloc();
    case 3:
      throw 3;
    case 4:
      throw Error("full elsewhere", SQLITE_FULL);
    case 5:
      throw ConstraintError("no constraint", SQLITE_OK);
    default:
      return std::numeric_limits<double>::quiet_NaN();
  }
}

class FailingFunctionTest : public FunctionsTest {
 protected:
  FailingFunctionTest() { Define(fDatabase, "failing", &Failing); }
  template <typename E = Error>
  E Failure(int how) {
    return ThrownBy<E>([&] { fDatabase.One<double>("SELECT failing(?)", how); });
  }
};

TEST_F(FailingFunctionTest, WhatItThrowsIsTheErrorOfItsStatement) {
  EXPECT_EQ(Failure(0).Message(), "not today");
  EXPECT_EQ(Failure(0).Code(), SQLITE_ERROR);
  EXPECT_EQ(Failure(3).Message(), "an exception that is no std::exception");
  EXPECT_EQ(Failure(6).Message(), "NaN cannot be stored.");
  EXPECT_EQ(Asked<int>("1"), 1);
}

TEST_F(FailingFunctionTest, AConstraintErrorKeepsItsClassAndItsCode) {
  const auto error = Failure<ConstraintError>(1);
  EXPECT_EQ(error.Message(), "not like this");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_FUNCTION);
}

TEST_F(FailingFunctionTest, NoOtherCodeReachesSQLite) {
  EXPECT_EQ(Failure(4).Message(), "full elsewhere");
  EXPECT_EQ(Failure(4).Code(), SQLITE_ERROR);
  EXPECT_EQ(Failure(5).Message(), "no constraint");
}

TEST_F(FailingFunctionTest, ALackOfMemoryStaysOne) {
  ExpectThrown<std::bad_alloc>([&] { Asked<double>("failing(2)"); });
}

TEST_F(FunctionsTest, OneMayUseTheDatabase) {
  fDatabase.ExecuteScript("CREATE TABLE t (a); INSERT INTO t VALUES (1), (2)");
  Define(fDatabase, "rows", [&] { return fDatabase.One<int>("SELECT COUNT(*) FROM t"); });
  EXPECT_EQ(Asked<int>("rows() FROM t LIMIT 1"), 2);
}

TEST_F(FunctionsTest, NumbersOfArgumentsStandBesideEachOtherAndTheSameOneIsReplaced) {
  Define(fDatabase, "f", [] { return 0; });
  Define(fDatabase, "f", [](int) { return 1; });
  EXPECT_EQ(Asked<int>("f() + f(7)"), 1);
  Define(fDatabase, "f", [](int) { return 2; });
  EXPECT_EQ(Asked<int>("f() + f(7)"), 2);
}

TEST_F(FunctionsTest, OnlyADeterministicOneMayStandInAnIndex) {
  fDatabase.Execute("CREATE TABLE t (a)");
  Define(fDatabase, "varying", [](int a) { return a; });
  EXPECT_THROW(fDatabase.Execute("CREATE INDEX i ON t (varying(a))"), Error);
  Define(
      fDatabase, "fixed", [](int a) { return a; }, Purity::kDeterministic);
  fDatabase.Execute("CREATE INDEX i ON t (fixed(a))");
}

TEST_F(FunctionsTest, WhatCannotBeDefinedIsAnErrorAndLeavesNothing) {
  const auto owned = std::make_shared<int>(0);
  const auto define = [&](const std::string& name) { Define(fDatabase, name, [owned] { return *owned; }); };
  ThrownBy([&] { define(std::string(300, 'f')); });
  EXPECT_EQ(owned.use_count(), 1);
  fDatabase.Close();
  ThrownBy([&] { define("f"); });
  ThrownBy([&] {
    DefineCollation(fDatabase, "c", [owned](std::string_view, std::string_view) noexcept { return *owned; });
  });
  EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(FunctionsTest, NamesThatSQLiteDoesNotTakeAreRefused) {
  const std::string expected = "The name of a function or collation has 1 to 255 bytes, and no zero byte.";
  for (const std::string& name : {std::string(), std::string(256, 'f'), std::string("a\0b", 3)}) {
    EXPECT_EQ(ThrownBy([&] { Define(fDatabase, name, [] { return 1; }); }).Message(), expected);
    EXPECT_EQ(ThrownBy([&] { DefineCollation(fDatabase, name, &BySize); }).Message(), expected);
  }
  Define(fDatabase, std::string(255, 'f'), [] { return 1; });
  EXPECT_EQ(Asked<int>(std::string(255, 'f') + "()"), 1);
}

TEST_F(FunctionsTest, OneInUseIsNotReplaced) {
  Define(fDatabase, "f", [] { return 1; });
  auto rows = fDatabase.Query<int>("SELECT f() UNION ALL SELECT f()");
  const auto first = rows.begin();
  const Error error = ThrownBy([&] { Define(fDatabase, "f", [] { return 2; }); });
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
}

TEST_F(FunctionsTest, AllEndWithTheConnection) {
  const auto owned = std::make_shared<int>(0);
  Define(fDatabase, "f", [owned] { return *owned; });
  DefineCollation(fDatabase, "c", [owned](std::string_view, std::string_view) noexcept { return *owned; });
  EXPECT_EQ(owned.use_count(), 3);
  fDatabase.Close();
  EXPECT_EQ(owned.use_count(), 1);
}

// --- Aggregates ------------------------------------------------------------------------------------------------------

struct Longest {
  Longest() { ++alive; }
  Longest(const Longest&) = delete;
  Longest& operator=(const Longest&) = delete;
  ~Longest() { --alive; }

  void Step(std::string_view text) {
    if (text == "fail") throw std::domain_error("a failure");
    if (text.size() > longest.size()) longest = text;
  }
  std::optional<std::string> Result() const {
    ++results;
    if (longest == "too long") throw std::length_error(longest);
    return longest.empty() ? std::nullopt : std::optional<std::string>(longest);
  }

  static inline int alive = 0;
  static inline int results = 0;
  std::string longest;
};

class AggregatesTest : public FunctionsTest {
 protected:
  AggregatesTest() {
    DefineAggregate<Longest>(fDatabase, "longest");
    fDatabase.ExecuteScript("CREATE TABLE t (g, a); INSERT INTO t VALUES (1, 'a'), (2, 'b'), (2, 'bcd'), (1, 'ef')");
  }
  ~AggregatesTest() override { EXPECT_EQ(Longest::alive, 0); }
};

TEST_F(AggregatesTest, EachGroupHasItsOwn) {
  EXPECT_THAT(fDatabase.All<std::string>("SELECT longest(a) FROM t GROUP BY g ORDER BY g"), ElementsAre("ef", "bcd"));
}

TEST_F(AggregatesTest, OneWithoutRowsHasAResultToo) {
  EXPECT_EQ(Asked<std::optional<std::string>>("longest(a) FROM t WHERE g = 3"), std::nullopt);
}

TEST_F(AggregatesTest, WhatOneThrowsIsTheErrorOfItsStatement) {
  fDatabase.Execute("INSERT INTO t VALUES (4, 'fail'), (5, 'too long')");
  Longest::results = 0;
  EXPECT_EQ(ThrownBy([&] { Asked<std::string>("longest(a) FROM t WHERE g = 4"); }).Message(), "a failure");
  EXPECT_EQ(Longest::results, 0);
  EXPECT_EQ(ThrownBy([&] { Asked<std::string>("longest(a) FROM t WHERE g = 5"); }).Message(), "too long");
}

struct Unmade {
  Unmade() {
    ++tries;
    throw std::domain_error("cannot be made");
  }
  void Step(int) {}
  int Result() const { return value; }
  static inline int tries = 0;
  int value = 0;
};

TEST_F(AggregatesTest, OneThatCannotBeMadeIsTheErrorOfItsStatement) {
  DefineAggregate<Unmade>(fDatabase, "unmade");
  EXPECT_EQ(ThrownBy([&] { Asked<int>("unmade(g) FROM t"); }).Message(), "cannot be made");
  EXPECT_EQ(Unmade::tries, 1);
  EXPECT_EQ(ThrownBy([&] { Asked<int>("unmade(g) FROM t WHERE g = 3"); }).Message(), "cannot be made");
}

struct Noted {
  void Step(int number) { numbers += std::to_string(number); }
  void Result() const { last = numbers; }
  static inline std::string last;
  std::string numbers;
};

TEST_F(AggregatesTest, OneMayYieldNothing) {
  DefineAggregate<Noted>(fDatabase, "noted");
  EXPECT_EQ(Asked<std::optional<int>>("noted(g) FROM t WHERE g = 2"), std::nullopt);
  EXPECT_EQ(Noted::last, "22");
}

TEST_F(AggregatesTest, OneThatIsGivenUpLeavesNothing) {
  auto rows = fDatabase.Query<std::string>("SELECT longest(a) FROM t GROUP BY g");
  EXPECT_EQ(*rows.begin(), "ef");
}

TEST_F(AggregatesTest, WhatCannotBeDefinedIsAnError) {
  EXPECT_THROW(DefineAggregate<Longest>(fDatabase, std::string(300, 'f')), Error);
}

// --- Collations ------------------------------------------------------------------------------------------------------

TEST_F(FunctionsTest, ACollationOrdersAndCompares) {
  DefineCollation(fDatabase, "by_size", &BySize);
  fDatabase.ExecuteScript("CREATE TABLE t (a); INSERT INTO t VALUES ('ccc'), ('a' || char(0)), ('b')");
  EXPECT_THAT(fDatabase.All<std::string>("SELECT a FROM t ORDER BY a COLLATE by_size"),
              ElementsAre("b", std::string("a\0", 2), "ccc"));
  EXPECT_TRUE(Asked<bool>("'a' = 'b' COLLATE by_size"));
}

TEST_F(FunctionsTest, ACollationInUseIsNotReplaced) {
  DefineCollation(fDatabase, "by_size", &BySize);
  auto rows = fDatabase.Query<int>("SELECT 1 UNION ALL SELECT 2");
  const auto first = rows.begin();
  const auto owned = std::make_shared<int>(0);
  const Error error = ThrownBy([&] {
    DefineCollation(fDatabase, "by_size", [owned](std::string_view, std::string_view) noexcept { return *owned; });
  });
  EXPECT_EQ(error.Code(), SQLITE_BUSY);
  EXPECT_EQ(owned.use_count(), 1);
}

}  // namespace
