#include "sqldb/kit/values.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "one_row.h"
#include "sqldb/kit/column.h"
#include "support/fixtures.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLValueBase;
using sqldb::kit::Blob;
using sqldb::kit::Bound;
using sqldb::kit::BoundValue;
using sqldb::kit::Column;
using sqldb::kit::Expression;
using sqldb::kit::Literal;
using sqldb::kit::Null;
using sqldb::kit::TrustedSql;
using sqldb::kit::Value;
using support::CallRecorder;
using support::MessageOf;
using support::OneRow;
using ::testing::ElementsAre;

static_assert(std::is_same_v<Value, shared_ptr<SQLValueBase>>);
static_assert(std::is_same_v<decltype(Bound(5)), shared_ptr<BoundValue<int>>>);
static_assert(std::is_same_v<decltype(Bound("text")), shared_ptr<BoundValue<std::string>>>);
static_assert(std::is_same_v<decltype(Literal(5)), Value>);

std::string PrintOf(const Value& value) {
  std::ostringstream text;
  EXPECT_EQ(&value->Print(text), &text);
  return text.str();
}

// A table t with the columns a and b of any values.
class ValuesTest : public support::DatabaseTest {
 protected:
  ValuesTest() : fTable(fDatabase.NewTable("t")), fInsert(fTable->NewInsert()) {
    Rows("CREATE TABLE t (a, b)");
    for (const char* const name : {"a", "b"}) fInsert->fColumns.push_back(ColumnNamed(name));
  }

  static shared_ptr<sqldb::SQLColumnBase> ColumnNamed(const std::string& name) {
    return boost::make_shared<Column<std::string>>(name);
  }

  void Insert(const Value& a, const Value& b) {
    fInsert->fValues = {a, b};
    fInsert->PerformInsert(true);
  }
  // Every row, as text and with the types of its values.
  std::vector<std::string> Content() { return Rows("SELECT quote(a), quote(b) FROM t ORDER BY rowid"); }

  shared_ptr<sqldb::SQLTableClass> fTable;
  shared_ptr<sqldb::SQLInsertClass> fInsert;
};

// --- Bound values ----------------------------------------------------------------------------------------------------

TEST_F(ValuesTest, BoundValueDrawsItsParameterOnce) {
  const std::int32_t before = SQLValueBase::gLastNamedParameterSequence;
  const auto value = Bound(5);
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, before + 1);
  const std::string name = ":" + std::to_string(before + 1);
  EXPECT_EQ(PrintOf(value), name);
  Insert(value, Bound(6));
  EXPECT_EQ(PrintOf(value), name);
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, before + 2);
}

TEST_F(ValuesTest, BoundValuesOfEveryTypeAreInserted) {
  Insert(Bound(std::int64_t{-7}), Bound(true));
  Insert(Bound(0.1), Bound(std::string("it's")));
  Insert(Bound("text"), Bound(Blob{0, 255}));
  Insert(Bound(std::optional<int>()), Bound(std::optional<int>(3)));
  EXPECT_THAT(Content(), ElementsAre("-7|1", "0.1|'it''s'", "'text'|X'00FF'", "NULL|3"));
}

TEST_F(ValuesTest, BoundValueNeverShowsInTheText) {
  CallRecorder recorder;
  const auto a = Bound("'); DROP TABLE t; --");
  const auto b = Bound(2);
  Insert(a, b);
  EXPECT_EQ(recorder.Sql().at(0), "INSERT INTO t ( a, b ) VALUES (" + PrintOf(a) + "," + PrintOf(b) + " )");
}

TEST_F(ValuesTest, BoundCharactersCountUpToTheZeroBytesAtTheirEnd) {
  char full[3] = {'a', 'b', 'c'};
  EXPECT_EQ(Bound(full)->fValue, "abc");
  full[2] = '\0';
  EXPECT_EQ(Bound(full)->fValue, "ab");
  EXPECT_EQ(Bound("a\0b")->fValue, std::string("a\0b", 3));
  EXPECT_EQ(Bound("")->fValue, "");
}

TEST_F(ValuesTest, ContentMayBeSetAnewBetweenExecutions) {
  const auto value = Bound(std::string("first"));
  fInsert->fValues = {value, Null()};
  fInsert->PerformInsert(false);
  value->fValue = "second";
  fInsert->PerformInsert(false);
  EXPECT_THAT(Content(), ElementsAre("'first'|NULL", "'second'|NULL"));
}

TEST_F(ValuesTest, OneBoundValueServesTwoColumns) {
  const auto value = Bound(4);
  Insert(value, value);
  EXPECT_THAT(Content(), ElementsAre("4|4"));
}

TEST_F(ValuesTest, BoundValueSkipsAStatementWithoutItsParameter) {
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, "SELECT ?1", -1, &statement, nullptr), SQLITE_OK);
  Bound(5)->BindingOpportunity(statement);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_type(statement, 0), SQLITE_NULL);
  sqlite3_finalize(statement);
}

TEST_F(ValuesTest, BoundValueSkipsANullStatement) { Bound(5)->BindingOpportunity(nullptr); }

TEST_F(ValuesTest, RefusedValueThrowsWhatSQLiteCallsTheCode) {
  sqlite3_limit(fDatabase.fConnection, SQLITE_LIMIT_LENGTH, 100);
  EXPECT_EQ(MessageOf([this] { Insert(Bound(std::string(101, 'x')), Null()); }), "string or blob too big");
  support::FinalizeLeftovers(fDatabase.fConnection);
  fInsert->fQuery.str("");
  Insert(Bound(std::string(50, 'x')), Null());
  EXPECT_EQ(Content().size(), 1U);
}

TEST_F(ValuesTest, WhatTheTypeThrowsPassesThrough) {
  EXPECT_THROW(Insert(Bound(std::numeric_limits<double>::quiet_NaN()), Null()), std::domain_error);
  support::FinalizeLeftovers(fDatabase.fConnection);
  fInsert->fQuery.str("");
  EXPECT_THROW(Insert(Bound(std::numeric_limits<std::uint64_t>::max()), Null()), std::range_error);
}

// --- Printed values --------------------------------------------------------------------------------------------------

TEST_F(ValuesTest, LiteralPrintsItsTypesLiteral) {
  EXPECT_EQ(PrintOf(Literal(-5)), "-5");
  EXPECT_EQ(PrintOf(Literal(true)), "1");
  EXPECT_EQ(PrintOf(Literal(0.5)), "0.5");
  EXPECT_EQ(PrintOf(Literal(std::string("it's"))), "'it''s'");
  EXPECT_EQ(PrintOf(Literal("it's")), "'it''s'");
  EXPECT_EQ(PrintOf(Literal("")), "''");
  EXPECT_EQ(PrintOf(Literal(Blob{1})), "x'01'");
  EXPECT_EQ(PrintOf(Literal(std::optional<int>())), "NULL");
  EXPECT_EQ(PrintOf(Literal(std::optional<int>(3))), "3");
}

TEST_F(ValuesTest, LiteralCharactersCountUpToTheZeroBytesAtTheirEnd) {
  char full[3] = {'a', 'b', 'c'};
  EXPECT_EQ(PrintOf(Literal(full)), "'abc'");
  full[2] = '\0';
  EXPECT_EQ(PrintOf(Literal(full)), "'ab'");
  EXPECT_EQ(PrintOf(Literal("a\0b")), "CAST(x'610062' AS TEXT)");
}

TEST_F(ValuesTest, LiteralThrowsAtOnceWhatTheTypeThrows) {
  EXPECT_THROW(Literal(std::numeric_limits<float>::quiet_NaN()), std::domain_error);
  EXPECT_THROW(Literal(std::numeric_limits<std::uint64_t>::max()), std::range_error);
}

TEST_F(ValuesTest, NullPrintsNull) { EXPECT_EQ(PrintOf(Null()), "NULL"); }

TEST_F(ValuesTest, ExpressionIsPrintedInParentheses) { EXPECT_EQ(PrintOf(Expression(TrustedSql{"1 + 2"})), "(1 + 2)"); }

TEST_F(ValuesTest, PrintedValuesDrawNoParameterAndBindNothing) {
  const std::int32_t before = SQLValueBase::gLastNamedParameterSequence;
  for (const Value& value : {Literal(1), Null(), Expression(TrustedSql{"1"})}) {
    EXPECT_EQ(value->GetParameterName(), "");
    value->BindingOpportunity(nullptr);
  }
  EXPECT_EQ(SQLValueBase::gLastNamedParameterSequence, before);
}

TEST_F(ValuesTest, InsertTakesPrintedValues) {
  Insert(Literal("it's"), Expression(TrustedSql{"2 * 3"}));
  Insert(Null(), Literal(std::numeric_limits<std::int64_t>::min()));
  EXPECT_THAT(Content(), ElementsAre("'it''s'|6", "NULL|-9223372036854775808"));
}

TEST_F(ValuesTest, UpdateTakesPrintedValues) {
  Insert(Literal(1), Literal(2));
  const auto update = fTable->NewUpdate();
  update->fColumns = {ColumnNamed("a"), ColumnNamed("b")};
  update->fTerm = support::MakeTerm(" 1");
  const auto perform = [&](const Value& a, const Value& b) {
    update->fValues = {a, b};
    update->PerformUpdate(true);
  };
  perform(Expression(TrustedSql{"a + b"}), Literal("it's"));
  EXPECT_THAT(Content(), ElementsAre("3|'it''s'"));
  perform(Null(), Literal(Blob{7}));
  EXPECT_THAT(Content(), ElementsAre("NULL|X'07'"));
}

TEST_F(ValuesTest, BoundValueIsNullInAnUpdate) {
  Insert(Literal(1), Literal(2));
  const auto update = fTable->NewUpdate();
  update->fColumns = {ColumnNamed("a")};
  update->fValues = {Bound(5)};
  update->fTerm = support::MakeTerm(" 1");
  update->PerformUpdate(true);
  EXPECT_THAT(Content(), ElementsAre("NULL|2"));
}

}  // namespace
