#include "sqldb/kit/error.h"

#include <stdexcept>
#include <type_traits>

#include <sqlite3.h>

#include "kit_test.h"

namespace {

using kit_test::ThrownBy;
using sqldb::kit::BusyError;
using sqldb::kit::ConstraintError;
using sqldb::kit::ConversionError;
using sqldb::kit::Database;
using sqldb::kit::Error;

static_assert(std::is_nothrow_copy_constructible_v<Error> && std::is_nothrow_copy_assignable_v<Error>);
static_assert(std::is_nothrow_copy_constructible_v<ConversionError>);
static_assert(std::is_base_of_v<std::runtime_error, Error> && std::is_base_of_v<Error, ConstraintError> &&
              std::is_base_of_v<Error, BusyError> && std::is_base_of_v<Error, ConversionError>);

TEST(ErrorTest, HasMessageCodesAndText) {
  const Error error("words", SQLITE_CONSTRAINT_UNIQUE, "SELECT 1");
  EXPECT_EQ(error.Message(), "words");
  EXPECT_EQ(error.Code(), SQLITE_CONSTRAINT);
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_EQ(error.Sql(), "SELECT 1");
  EXPECT_STREQ(error.what(), "words, in: SELECT 1");
}

TEST(ErrorTest, MayBeWithoutAText) {
  const Error error("words", SQLITE_MISUSE);
  EXPECT_STREQ(error.what(), "words");
  EXPECT_EQ(error.Message(), "words");
  EXPECT_EQ(error.Sql(), "");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_MISUSE);
}

TEST(ErrorTest, CopyHasTheSame) {
  const Error error("words", SQLITE_BUSY, "SELECT 1");
  const Error copy(error);
  EXPECT_EQ(copy.Message(), "words");
  EXPECT_EQ(copy.Sql(), "SELECT 1");
}

TEST(ErrorTest, ZeroByteDoesNotEndTheTexts) {
  const Error error(std::string("a\0b\0", 4), SQLITE_ERROR, std::string("c\0d", 3));
  const std::string message = "a\uFFFDb\uFFFD";
  EXPECT_EQ(error.what(), message + ", in: c\uFFFDd");
  EXPECT_EQ(error.Message(), message);
  EXPECT_EQ(error.Sql(), "c\uFFFDd");
}

TEST(ErrorTest, ConstraintSaysWhichAndHasNoValue) {
  Database database(":memory:");
  database.Execute("CREATE TABLE t (a UNIQUE, b NOT NULL, c CHECK (c > 0))");
  const char* const sql = "INSERT INTO t VALUES (?, ?, ?)";
  database.Execute(sql, "secret", 1, 1);
  const auto unique = ThrownBy<ConstraintError>([&] { database.Execute(sql, "secret", 1, 1); });
  EXPECT_EQ(unique.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_STREQ(unique.what(), "UNIQUE constraint failed: t.a, in: INSERT INTO t VALUES (?, ?, ?)");
  EXPECT_EQ(ThrownBy<ConstraintError>([&] { database.Execute(sql, 2, std::nullopt, 1); }).ExtendedCode(),
            SQLITE_CONSTRAINT_NOTNULL);
  EXPECT_EQ(ThrownBy<ConstraintError>([&] { database.Execute(sql, 2, 1, -1); }).ExtendedCode(),
            SQLITE_CONSTRAINT_CHECK);
}

TEST(ErrorTest, WhatSQLiteCannotCompileHasItsWordsAndTheText) {
  Database database(":memory:");
  const Error error = ThrownBy([&] { database.Execute("SELECT a FROM none"); });
  EXPECT_EQ(error.Message(), "no such table: none");
  EXPECT_EQ(error.Code(), SQLITE_ERROR);
  EXPECT_EQ(error.Sql(), "SELECT a FROM none");
}

TEST(ErrorTest, StatementIsAsGoodAsNewAfterAFailure) {
  Database database(":memory:");
  database.Execute("CREATE TABLE t (a UNIQUE)");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(database.Execute("INSERT INTO t VALUES (?)", i), 1);
    EXPECT_THROW(database.Execute("INSERT INTO t VALUES (?)", i), ConstraintError);
  }
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM t"), 3);
}

TEST(ErrorTest, ConversionNamesColumnAndStorageClassButNotTheValue) {
  Database database(":memory:");
  const auto error = ThrownBy<ConversionError>([&] { database.One<int>("SELECT 'secret' || ? AS price", "x"); });
  EXPECT_EQ(error.Message(), "column price has a text, which cannot be read as an integer");
  EXPECT_EQ(error.Sql(), "SELECT 'secret' || ? AS price");
  EXPECT_EQ(error.Code(), SQLITE_MISMATCH);
}

}  // namespace
