// What cannot be seen from outside the program.

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "files.h"
#include "literals.h"
#include "printable.h"
#include "sqldb/sqldb.h"
#include "terms.h"
#include "transaction.h"
#include "values.h"

namespace catalog_tests {

namespace {

using catalog::Column;
using catalog::Printable;
using catalog::Quoted;
using catalog::Term;

using namespace std::string_literals;

std::string Text(const Term& term) {
  std::ostringstream out;
  term->Print(out);
  return out.str();
}

class TermTest : public ::testing::Test {
 protected:
  Column fPath{new catalog::TextColumn(nullptr, "path", false, false, false, "")};
  Column fSize{new catalog::IntegerColumn(nullptr, "size", false, false, false, "")};
};

// A database in memory with one table, "t", of one unique integer column, "a".
class TransactionTest : public ::testing::Test {
 protected:
  TransactionTest() : fDatabase(":memory:", false) {
    fDatabase.Open();
    Send("CREATE TABLE t (a INTEGER UNIQUE)");
    Send("CREATE TRIGGER refuse BEFORE INSERT ON t WHEN new.a = 13 BEGIN SELECT RAISE(ABORT, 'no thirteen'); END");
    Send("CREATE TRIGGER undo BEFORE INSERT ON t WHEN new.a = 14 BEGIN SELECT RAISE(ROLLBACK, 'no fourteen'); END");
  }
  ~TransactionTest() override { EXPECT_EQ(sqlite3_next_stmt(fDatabase.fConnection, nullptr), nullptr); }

  void Send(const std::string& sql) { fDatabase.SendQuery(sql, nullptr, nullptr); }

  template <typename Work>
  std::string FailureOf(Work work) {
    try {
      catalog::InTransaction(fDatabase, work);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "none";
  }

  std::uint32_t Rows() {
    const auto table = fDatabase.NewTable("t");
    return table->CountRecords(nullptr);
  }

  sqldb::SQLDatabase fDatabase;
};

}  // namespace

TEST(LiteralTest, QuotesAreDoubled) { EXPECT_EQ(Quoted("it's 'so'"), "'it''s ''so'''"); }

TEST(LiteralTest, EveryByteButZeroStandsForItself) { EXPECT_EQ(Quoted("a\n%\xFF\x01"), "'a\n%\xFF\x01'"); }

TEST(LiteralTest, AZeroByteMakesTheTextHexadecimal) { EXPECT_EQ(Quoted("a\0'"s), "CAST(X'610027' AS TEXT)"); }

TEST(PrintableTest, PlainTextStaysAsItIs) {
  EXPECT_EQ(Printable("/a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 'q' \"%\""),
            "/a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 'q' \"%\"");
}

TEST(PrintableTest, BackslashesAreDoubled) { EXPECT_EQ(Printable("a\\nb"), "a\\\\nb"); }

TEST(PrintableTest, ControlCharactersAreEscaped) {
  EXPECT_EQ(Printable("a\nb\tc\rd\x1B[2Je\x7F\0"s), "a\\nb\\tc\\rd\\x1B[2Je\\x7F\\x00");
}

TEST(PrintableTest, ControlCharactersOfTwoBytesAreEscaped) { EXPECT_EQ(Printable("\xC2\x9B"), "\\xC2\\x9B"); }

TEST(PrintableTest, LineSeparatorsAreEscaped) { EXPECT_EQ(Printable("\xE2\x80\xA8"), "\\xE2\\x80\\xA8"); }

TEST(PrintableTest, BytesThatAreNotUtf8AreEscaped) {
  EXPECT_EQ(Printable("\xFF"), "\\xFF");
  EXPECT_EQ(Printable("\xC3"), "\\xC3") << "cut short";
  EXPECT_EQ(Printable("\xE2\x82z"), "\\xE2\\x82z") << "cut short by a letter";
  EXPECT_EQ(Printable("\xC0\xAF"), "\\xC0\\xAF") << "too long a form, two bytes";
  EXPECT_EQ(Printable("\xE0\x81\x81"), "\\xE0\\x81\\x81") << "too long a form, three bytes";
  EXPECT_EQ(Printable("\xF0\x80\x81\x81"), "\\xF0\\x80\\x81\\x81") << "too long a form, four bytes";
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xED\\xA0\\x80") << "half a surrogate pair";
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80") << "past the last character";
}

TEST(KindTest, ExtensionInLowerCase) {
  EXPECT_EQ(catalog::KindOf("/a/b.TXT"), "txt");
  EXPECT_EQ(catalog::KindOf("/a/b.tar.Gz"), "gz");
}

TEST(KindTest, NoExtensionNoKind) {
  EXPECT_EQ(catalog::KindOf("/a.d/b"), "");
  EXPECT_EQ(catalog::KindOf("/a/.profile"), "");
  EXPECT_EQ(catalog::KindOf("/a/b."), "");
}

TEST_F(TermTest, BelowIsARangeThatEndsBeforeLongerNames) {
  EXPECT_EQ(Text(catalog::Below(fPath, "/a/b")), " ( path >= '/a/b/' AND path < '/a/b0')");
}

TEST_F(TermTest, BelowTheRootIsEverything) {
  EXPECT_EQ(Text(catalog::Below(fPath, "/")), " ( path >= '/' AND path < '0')");
}

TEST_F(TermTest, AndLeavesOutWhatIsEmpty) {
  const Term empty = sqldb::SQLEmptyTerm::EmptyTerm;
  const Term large = catalog::Larger(fSize, 5);
  EXPECT_EQ(Text(catalog::And(empty, large)), " size > 5");
  EXPECT_EQ(Text(catalog::And(large, empty)), " size > 5");
  EXPECT_FALSE(catalog::And(empty, empty)->NotEmpty());
}

TEST_F(TermTest, ContainsComparesBytes) {
  EXPECT_EQ(Text(catalog::Contains(fPath, "it's%")), " instr(CAST(path AS BLOB), CAST('it''s%' AS BLOB)) > 0");
}

TEST_F(TransactionTest, FailureSpeaksInSqlitesOwnWords) {
  EXPECT_EQ(FailureOf([&] { Send("INSERT INTO t VALUES (1); INSERT INTO t VALUES (13)"); }), "no thirteen");
  EXPECT_EQ(Rows(), 0u);
}

TEST_F(TransactionTest, InnerFailureUndoesTheOuterLevelsToo) {
  EXPECT_EQ(FailureOf([&] {
              Send("INSERT INTO t VALUES (1)");
              catalog::InTransaction(fDatabase, [&] { Send("INSERT INTO t VALUES (1)"); });
            }),
            "UNIQUE constraint failed: t.a");
  EXPECT_EQ(Rows(), 0u);
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
}

TEST_F(TransactionTest, NextTransactionIsNotTouchedByAFailure) {
  FailureOf([&] { Send("INSERT INTO t VALUES (13)"); });
  EXPECT_EQ(FailureOf([&] { Send("INSERT INTO t VALUES (2)"); }), "none");
  EXPECT_EQ(Rows(), 1u);
}

TEST_F(TransactionTest, NeitherIsItWhenSqliteHasRolledBackByItself) {
  EXPECT_EQ(FailureOf([&] { Send("INSERT INTO t VALUES (14)"); }), "no fourteen");
  EXPECT_EQ(fDatabase.fTransactionDepth, 0);
  EXPECT_EQ(FailureOf([&] { Send("INSERT INTO t VALUES (2)"); }), "none");
  EXPECT_EQ(Rows(), 1u);
}

TEST_F(TransactionTest, OtherExceptionsPassAsTheyAre) {
  const auto failing = [&] { catalog::InTransaction(fDatabase, [] { throw catalog::Failure("mine"); }); };
  EXPECT_THROW(failing(), catalog::Failure);
}

TEST_F(TransactionTest, RolledBackOnRequest) {
  catalog::InTransaction(
      fDatabase, [&] { Send("INSERT INTO t VALUES (1)"); }, catalog::Ending::kRollBack);
  EXPECT_EQ(Rows(), 0u);
}

TEST_F(TransactionTest, StatementsOfLiveCursorsAreSpared) {
  Send("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2)");
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  using Cursor = sqldb::SQLStepCursor<std::int64_t>;
  const boost::shared_ptr<Cursor> cursor(new Cursor(&fDatabase, offsets));
  auto select = fDatabase.NewSelect(fDatabase.NewTable("t"), 0);
  select << Column(new catalog::IntegerColumn(nullptr, "a", false, false, false, ""));
  select->PrepareSelect(cursor);
  std::int64_t value = 0;
  ASSERT_EQ(cursor->Step(value), 0);
  EXPECT_THROW(Send("INSERT INTO t VALUES (2)"), std::runtime_error);
  EXPECT_EQ(catalog::FinalizeLeftovers(fDatabase), "UNIQUE constraint failed: t.a");
  EXPECT_EQ(cursor->Step(value), 0);
  EXPECT_EQ(value, 2);
}

TEST_F(TransactionTest, BoundTextKeepsZeroBytesAndLength) {
  Send("CREATE TABLE texts (x TEXT)");
  const auto table = fDatabase.NewTable("texts");
  const Column x(new catalog::TextColumn(nullptr, "x", false, false, false, ""));
  const boost::shared_ptr<catalog::BoundText> value(new catalog::BoundText);
  value->fText = "a\0\xFF'"s;
  const auto insert = table->NewInsert();
  insert->fColumns = {x};
  insert->fValues = {value};
  insert->PerformInsert(true);
  EXPECT_EQ(table->CountRecords(catalog::Equal(x, value->fText)), 1u);
}

}  // namespace catalog_tests
