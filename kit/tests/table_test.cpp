#include "sqldb/kit/table.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "one_row.h"
#include "support/engine.h"
#include "support/fixtures.h"

namespace {

using sqldb::kit::Blob;
using sqldb::kit::EncodedBytes;
using sqldb::kit::Error;
using sqldb::kit::Field;
using sqldb::kit::Key;
using sqldb::kit::Set;
using sqldb::kit::Table;
using sqldb::kit::Term;
using sqldb::kit::TrustedSql;
using support::CallRecorder;
using support::MessageOf;
using support::StatementsOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

struct Part {
  std::int64_t id;
  std::string name;
  std::optional<double> price;
};

const auto kId = Key("id", &Part::id);
const auto kName = Field("name", &Part::name).Unique();
const auto kPrice = Field("price", &Part::price);

static_assert(!std::is_copy_constructible_v<Table<Part>> && !std::is_copy_assignable_v<Table<Part>>);

// A table parts, not yet in the file.
class TableTest : public support::DatabaseTest {
 protected:
  TableTest() : fParts(fDatabase, "parts", kId, kName, kPrice) { fDatabase.SetSynchronizationLevel(false); }
  ~TableTest() override {
    EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
    EXPECT_THAT(fDatabase.fCursors, IsEmpty());
  }

  // In the file, with two rows.
  void CreateAndFill() {
    CallRecorder::Pause pause;
    fParts.Create();
    Rows("INSERT INTO parts VALUES (1, 'bolt', 0.25), (2, 'nut', NULL)");
  }

  std::vector<std::string> Content() { return Rows("SELECT id, name, price FROM parts ORDER BY id"); }

  // The one text that `action` sends.
  template <typename Action>
  std::string SqlOf(Action action) {
    CallRecorder recorder;
    action();
    EXPECT_THAT(recorder.Sql(), SizeIs(1));
    return recorder.Sql().at(0);
  }

  Table<Part> fParts;
};

// --- The table itself ------------------------------------------------------------------------------------------------

TEST_F(TableTest, ConstructionSendsNothingAndRegistersTheTable) {
  CallRecorder recorder;
  Table<Part> other(fDatabase, "other", kId, kName);
  EXPECT_THAT(recorder.Calls(), IsEmpty());
  EXPECT_EQ(fDatabase.GetTable("other").get(), &other.Core());
  EXPECT_EQ(other.Core().fName, "other");
  EXPECT_TRUE(other.Core().HasColumn("id"));
  EXPECT_TRUE(other.Core().HasColumn("name"));
  EXPECT_FALSE(other.Core().HasColumn("price"));
}

TEST_F(TableTest, CreateWritesEveryFieldWithItsOptions) {
  struct Row {
    std::string key;
    std::int32_t number;
    std::optional<std::int32_t> count;
    std::string name;
    std::optional<std::string> note;
    double price;
    bool flag;
    char code[4];
    Blob blob;
    EncodedBytes bytes;
  };
  Table<Row> table(fDatabase, "t", Key("k", &Row::key).Collate("NOCASE"), Field("number", &Row::number),
                   Field("count", &Row::count).Unique(), Field("name", &Row::name).Unique().Collate("RTRIM"),
                   Field("note", &Row::note).Collate("NOCASE"), Field("price", &Row::price), Field("flag", &Row::flag),
                   Field("code", &Row::code), Field("blob", &Row::blob), Field("bytes", &Row::bytes));
  EXPECT_EQ(SqlOf([&] { table.Create(); }),
            "CREATE TABLE t ( k TEXT NOT NULL PRIMARY KEY COLLATE NOCASE, number INTEGER NOT NULL,"
            " count INTEGER UNIQUE, name TEXT NOT NULL UNIQUE COLLATE RTRIM, note TEXT COLLATE NOCASE,"
            " price REAL NOT NULL, flag INTEGER NOT NULL, code TEXT NOT NULL, blob BLOB NOT NULL,"
            " bytes TEXT NOT NULL );");
}

TEST_F(TableTest, CreateFailsIfTheTableIsThere) {
  fParts.Create();
  EXPECT_THROW(fParts.Create(), Error);
  EXPECT_EQ(MessageOf([this] { fParts.Create(); }), "table parts already exists");
}

TEST_F(TableTest, CreateIfMissingCreatesOnce) {
  fParts.CreateIfMissing();
  fParts.Insert({1, "bolt", 0.25});
  CallRecorder recorder;
  fParts.CreateIfMissing();
  EXPECT_THAT(recorder.Sql(),
              ElementsAre("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'parts' COLLATE NOCASE"));
  EXPECT_EQ(fParts.Count(), 1U);
}

TEST_F(TableTest, CreateIfMissingDisregardsTheCaseAsSQLiteDoes) {
  Rows("CREATE TABLE PARTS (x)");
  fParts.CreateIfMissing();
  EXPECT_THAT(Rows("SELECT name FROM sqlite_master"), ElementsAre("PARTS"));
}

TEST_F(TableTest, CreateIfMissingIsNotDeceivedByAnIndexOrAnotherTable) {
  Rows("CREATE TABLE partsx (a); CREATE INDEX part_s ON partsx (a)");
  fParts.CreateIfMissing();
  EXPECT_EQ(fParts.Count(), 0U);
}

TEST_F(TableTest, DropTakesTheTableOutOfTheFileAndCreateBringsItBack) {
  CreateAndFill();
  EXPECT_EQ(SqlOf([this] { fParts.Drop(); }), "DROP TABLE parts;");
  EXPECT_EQ(MessageOf([this] { fParts.Drop(); }), "no such table: parts");
  fParts.Create();
  EXPECT_EQ(fParts.Count(), 0U);
}

TEST_F(TableTest, IndexIsNamedAfterTableAndColumn) {
  fParts.Create();
  EXPECT_EQ(SqlOf([this] { fParts.CreateIndex(kPrice); }), "CREATE INDEX parts_price on parts (price);");
  EXPECT_THROW(fParts.CreateIndex(kPrice), Error);
}

// --- Inserts ---------------------------------------------------------------------------------------------------------

TEST_F(TableTest, InsertBindsEveryFieldAndReturnsTheRowid) {
  CreateAndFill();
  CallRecorder recorder;
  EXPECT_EQ(fParts.Insert({7, "it's", 0.1}), 7);
  // Not by GoogleTest's own expressions, which know no ranges on Windows.
  const std::regex insert("INSERT INTO parts \\( id, name, price \\) VALUES \\(:[0-9]+,:[0-9]+,:[0-9]+ \\)");
  EXPECT_THAT(recorder.Sql(),
              ElementsAre(testing::Truly([&](const std::string& sql) { return std::regex_match(sql, insert); })));
  EXPECT_EQ(fParts.Insert({8, "", {}}), 8);
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "2|nut|NULL", "7|it's|0.1", "8||NULL"));
}

TEST_F(TableTest, InsertTakesKeysAtBothLimits) {
  fParts.Create();
  EXPECT_EQ(fParts.Insert({kSmallest, "a", {}}), kSmallest);
  EXPECT_EQ(fParts.Insert({kLargest, "b", {}}), kLargest);
  EXPECT_EQ(fParts.Insert({0, "c", {}}), 0);
}

TEST_F(TableTest, FailedInsertIsAnErrorAndTheNextOneWorks) {
  CreateAndFill();
  EXPECT_EQ(MessageOf([this] { fParts.Insert({3, "bolt", {}}); }), "UNIQUE constraint failed: parts.name");
  EXPECT_EQ(MessageOf([this] { fParts.Insert({1, "new", {}}); }), "UNIQUE constraint failed: parts.id");
  try {
    fParts.Insert({3, "bolt", {}});
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_UNIQUE);
  }
  EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
  EXPECT_EQ(fParts.Insert({3, "screw", {}}), 3);
  EXPECT_EQ(fParts.Count(), 3U);
}

TEST_F(TableTest, ValueThatCannotBeBoundIsThrownAndTheNextInsertWorks) {
  CreateAndFill();
  EXPECT_THROW(fParts.Insert({3, "screw", std::numeric_limits<double>::quiet_NaN()}), std::domain_error);
  EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
  EXPECT_EQ(fParts.Insert({3, "screw", 1.0}), 3);
}

TEST_F(TableTest, ValueThatSQLiteRefusesIsAnErrorAndTheNextInsertWorks) {
  CreateAndFill();
  sqlite3_limit(fDatabase.fConnection, SQLITE_LIMIT_LENGTH, 100);
  EXPECT_THROW(fParts.Insert({3, std::string(101, 'x'), {}}), Error);
  EXPECT_EQ(MessageOf([this] { fParts.Insert({3, std::string(101, 'x'), {}}); }), "string or blob too big");
  EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
  EXPECT_EQ(fParts.Insert({3, "screw", 1.0}), 3);
}

TEST_F(TableTest, InsertIntoAMissingTableIsAnErrorUntilItIsThere) {
  EXPECT_EQ(MessageOf([this] { fParts.Insert({1, "bolt", {}}); }), "no such table: parts");
  fParts.Create();
  EXPECT_EQ(fParts.Insert({1, "bolt", {}}), 1);
}

TEST_F(TableTest, ReplaceTakesThePlaceOfRowsWithTheSameKeyOrUniqueValue) {
  CreateAndFill();
  CallRecorder recorder;
  EXPECT_EQ(fParts.Replace({1, "new bolt", 3.0}), 1);
  EXPECT_THAT(recorder.Sql(), ElementsAre(testing::StartsWith("REPLACE INTO parts ( id, name, price ) VALUES (:")));
  EXPECT_EQ(fParts.Replace({9, "nut", {}}), 9);
  EXPECT_EQ(fParts.Replace({5, "other", {}}), 5);
  EXPECT_THAT(Content(), ElementsAre("1|new bolt|3.0", "5|other|NULL", "9|nut|NULL"));
}

TEST_F(TableTest, FailedReplaceIsAnErrorAndTheNextOneWorks) {
  CreateAndFill();
  EXPECT_THROW(fParts.Replace({1, "bolt", std::numeric_limits<double>::quiet_NaN()}), std::domain_error);
  EXPECT_EQ(fParts.Replace({1, "bolt", 2.0}), 1);
  EXPECT_THAT(Content(), ElementsAre("1|bolt|2.0", "2|nut|NULL"));
}

TEST_F(TableTest, InsertManyWritesAllByOneStatement) {
  fParts.Create();
  const std::vector<Part> parts{{1, "it's", 0.25}, {2, "nut", {}}, {kSmallest, "", 1e300}};
  CallRecorder recorder;
  EXPECT_EQ(fParts.InsertMany(parts), 3U);
  EXPECT_THAT(recorder.Sql(), ElementsAre("BEGIN IMMEDIATE TRANSACTION", "COMMIT TRANSACTION"));
  EXPECT_THAT(Content(), ElementsAre(std::to_string(kSmallest) + "||1.0e+300", "1|it's|0.25", "2|nut|NULL"));
}

TEST_F(TableTest, InsertManyObeysItsOptions) {
  fParts.Create();
  const std::vector<Part> parts{{1, "a", {}}, {2, "b", {}}, {3, "c", {}}};
  sqldb::kit::BulkOptions options;
  options.batch = 2;
  std::string sql;
  options.progress = [&](std::size_t) {
    sql = sqlite3_sql(sqlite3_next_stmt(fDatabase.fConnection, nullptr));
    return false;
  };
  EXPECT_EQ(fParts.InsertMany(parts, options), 2U);
  EXPECT_EQ(fParts.Count(), 2U);
  EXPECT_EQ(sql, "INSERT INTO parts (id, name, price) VALUES (?, ?, ?)");
}

TEST_F(TableTest, InsertManyFailsOnACollisionAndReplaceManyDoesNot) {
  CreateAndFill();
  const std::vector<Part> parts{{3, "screw", {}}, {9, "nut", 2.0}};
  EXPECT_EQ(MessageOf([&] { fParts.InsertMany(parts); }), "UNIQUE constraint failed: parts.name");
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "2|nut|NULL"));
  EXPECT_EQ(fParts.ReplaceMany(parts), 2U);
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "3|screw|NULL", "9|nut|2.0"));
}

TEST_F(TableTest, InsertManyThrowsWhatCannotBeBound) {
  fParts.Create();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(fParts.InsertMany(std::vector<Part>{{1, "a", nan}}), std::domain_error);
  sqlite3_limit(fDatabase.fConnection, SQLITE_LIMIT_LENGTH, 100);
  const std::vector<Part> tooLong{{1, "a", {}}, {2, std::string(101, 'x'), {}}};
  EXPECT_EQ(MessageOf([&] { fParts.InsertMany(tooLong); }), "string or blob too big");
  EXPECT_EQ(fParts.Count(), 0U);
}

struct Numbered {
  std::optional<std::int64_t> id;
  std::string name;
};

class NumberedTest : public support::DatabaseTest {
 protected:
  NumberedTest() : fTable(fDatabase, "numbered", Key("id", &Numbered::id), Field("name", &Numbered::name)) {
    fTable.Create();
  }

  Table<Numbered> fTable;
};

TEST_F(NumberedTest, EmptyOptionalKeyIsNumberedBySQLite) {
  EXPECT_EQ(Rows("SELECT sql FROM sqlite_master").at(0),
            "CREATE TABLE numbered ( id INTEGER PRIMARY KEY, name TEXT NOT NULL )");
  EXPECT_EQ(fTable.Insert({{}, "a"}), 1);
  EXPECT_EQ(fTable.Insert({7, "b"}), 7);
  EXPECT_EQ(fTable.Insert({{}, "c"}), 8);
  EXPECT_EQ(fTable.Replace({{}, "d"}), 9);
  EXPECT_THAT(Rows("SELECT id, name FROM numbered"), ElementsAre("1|a", "7|b", "8|c", "9|d"));
  EXPECT_EQ(fTable.Select().First().value().id, 1);
}

TEST_F(NumberedTest, RecordWithoutItsOptionalKeyUpdatesNoRow) {
  fTable.Insert({{}, "a"});
  EXPECT_FALSE(fTable.Update({{}, "b"}));
  EXPECT_TRUE(fTable.Update({1, "c"}));
  EXPECT_THAT(Rows("SELECT id, name FROM numbered"), ElementsAre("1|c"));
}

// --- Updates ---------------------------------------------------------------------------------------------------------

TEST_F(TableTest, UpdateGivesTheRowOfTheKeyTheRecordsValues) {
  CreateAndFill();
  EXPECT_EQ(SqlOf([this] {
              EXPECT_TRUE(fParts.Update({2, "it's", 0.00001}));
            }),
            "UPDATE parts SET name =  'it''s', price =  (5902958103587057*1.0/4611686018427387904.0/128.0)"
            " WHERE id = 2");
  EXPECT_TRUE(fParts.Update({1, "bolt", {}}));
  EXPECT_THAT(Content(), ElementsAre("1|bolt|NULL", "2|it's|1.0e-05"));
}

TEST_F(TableTest, UpdateReturnsFalseIfThereIsNoSuchRow) {
  CreateAndFill();
  EXPECT_FALSE(fParts.Update({3, "screw", {}}));
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "2|nut|NULL"));
}

TEST_F(TableTest, UpdateFindsKeysAtBothLimits) {
  fParts.Create();
  fParts.Insert({kSmallest, "a", {}});
  fParts.Insert({kLargest, "b", {}});
  EXPECT_TRUE(fParts.Update({kSmallest, "c", {}}));
  EXPECT_TRUE(fParts.Update({kLargest, "d", {}}));
  EXPECT_THAT(Content(), ElementsAre("-9223372036854775808|c|NULL", "9223372036854775807|d|NULL"));
}

TEST_F(TableTest, FailedUpdateIsAnError) {
  CreateAndFill();
  EXPECT_EQ(MessageOf([this] { fParts.Update({2, "bolt", {}}); }), "UNIQUE constraint failed: parts.name");
  EXPECT_TRUE(fParts.Update({2, "screw", {}}));
}

TEST_F(TableTest, UpdateOfARecordWithoutAKeyIsAnError) {
  Table<Part> keyless(fDatabase, "parts", kName, kPrice);
  CreateAndFill();
  EXPECT_EQ(MessageOf([&] { keyless.Update({1, "x", {}}); }), support::IncompleteInput("WHERE"));
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "2|nut|NULL"));
}

TEST_F(TableTest, AssignmentsAreMadeInEveryRowOfTheTerm) {
  CreateAndFill();
  EXPECT_EQ(fParts.Update(kId > 0, {Set(kPrice, 1.5)}), 2);
  EXPECT_EQ(fParts.Update(kId == 2, {Set(kPrice, std::nullopt), Set(kName, "it's")}), 1);
  EXPECT_EQ(fParts.Update(kId == 1, {Set(kPrice, TrustedSql{"price * 2"})}), 1);
  EXPECT_EQ(fParts.Update(kId == 3, {Set(kPrice, 7)}), 0);
  EXPECT_THAT(Content(), ElementsAre("1|bolt|3.0", "2|it's|NULL"));
}

TEST_F(TableTest, AssignmentsAreSentInTheirOrder) {
  CreateAndFill();
  EXPECT_EQ(SqlOf([this] {
              fParts.Update(kId == 2, {Set(kPrice, TrustedSql{"price + 1"}), Set(kName, "x"), Set(kId, 5)});
            }),
            "UPDATE parts SET price =  (price + 1), name =  'x', id =  5 WHERE id = 2");
}

TEST_F(TableTest, UpdateWithAnEmptyTermIsAnErrorAndChangesNothing) {
  CreateAndFill();
  EXPECT_THROW(fParts.Update(Term(), {Set(kPrice, 1)}), Error);
  EXPECT_EQ(MessageOf([this] { fParts.Update(Term(), {Set(kPrice, 1)}); }), support::IncompleteInput("WHERE"));
  EXPECT_THAT(Content(), ElementsAre("1|bolt|0.25", "2|nut|NULL"));
  EXPECT_EQ(fParts.Update(Term(TrustedSql{"1"}), {Set(kPrice, 1)}), 2);
}

TEST_F(TableTest, UpdateWithoutAssignmentsIsAnError) {
  CreateAndFill();
  EXPECT_THROW(fParts.Update(kId == 1, {}), Error);
}

// --- Deletes and questions -------------------------------------------------------------------------------------------

TEST_F(TableTest, DeleteReturnsHowManyRowsItDeleted) {
  CreateAndFill();
  EXPECT_EQ(SqlOf([this] { EXPECT_EQ(fParts.Delete(kId == 1), 1); }), "DELETE FROM parts WHERE id = 1");
  EXPECT_EQ(fParts.Delete(kId == 1), 0);
  EXPECT_EQ(fParts.Delete(kId > 0), 1);
  EXPECT_THAT(Content(), IsEmpty());
}

TEST_F(TableTest, DeleteRefusesAnEmptyTermAndSendsNothing) {
  CreateAndFill();
  CallRecorder recorder;
  try {
    fParts.Delete(Term() && Term());
    FAIL();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "A delete without a condition would delete every row.");
  }
  EXPECT_THAT(recorder.Calls(), IsEmpty());
}

TEST_F(TableTest, DeleteAllDeletesEveryRow) {
  CreateAndFill();
  EXPECT_EQ(SqlOf([this] { fParts.DeleteAll(); }), "DELETE FROM parts");
  EXPECT_THAT(Content(), IsEmpty());
}

TEST_F(TableTest, CountAndHasTakeATermOrNone) {
  fParts.Create();
  EXPECT_EQ(fParts.Count(), 0U);
  EXPECT_FALSE(fParts.Has());
  fParts.Insert({1, "bolt", 0.25});
  fParts.Insert({2, "nut", {}});
  EXPECT_EQ(fParts.Count(), 2U);
  EXPECT_EQ(fParts.Count(kPrice < 1), 1U);
  EXPECT_EQ(fParts.Count(kPrice > 1), 0U);
  EXPECT_TRUE(fParts.Has());
  EXPECT_TRUE(fParts.Has(IsNull(kPrice)));
  EXPECT_FALSE(fParts.Has(kId == 3));
}

TEST_F(TableTest, WhatIsWrongWithATermIsAnErrorOfEveryOperation) {
  CreateAndFill();
  const Term wrong(TrustedSql{"missing"});
  constexpr char kMessage[] = "no such column: missing";
  EXPECT_EQ(MessageOf([&] { fParts.Count(wrong); }), kMessage);
  EXPECT_EQ(MessageOf([&] { fParts.Has(wrong); }), kMessage);
  EXPECT_EQ(MessageOf([&] { fParts.Delete(wrong); }), kMessage);
  EXPECT_EQ(MessageOf([&] { fParts.Update(wrong, {Set(kPrice, 1)}); }), kMessage);
  EXPECT_THROW(fParts.Count(wrong), Error);
  EXPECT_THROW(fParts.Has(wrong), Error);
  EXPECT_THROW(fParts.Delete(wrong), Error);
}

TEST_F(TableTest, OperationsOnAMissingTableAreErrors) {
  EXPECT_THROW(fParts.Count(), Error);
  EXPECT_THROW(fParts.Has(), Error);
  EXPECT_THROW(fParts.DeleteAll(), Error);
  EXPECT_THROW(fParts.CreateIndex(kPrice), Error);
  EXPECT_THROW(fParts.Drop(), Error);
  EXPECT_THROW(fParts.Update({1, "bolt", {}}), Error);
}

TEST_F(TableTest, ClosedDatabaseIsAnErrorOfCreateIfMissing) {
  sqldb::SQLDatabase closed(DatabasePath(), false);
  Table<Part> parts(closed, "parts", kId, kName, kPrice);
  EXPECT_THROW(parts.CreateIfMissing(), Error);
}

// --- Records ---------------------------------------------------------------------------------------------------------

// Members that lie where their neighbours leave room.
struct Odd {
  char first[3];
  bool flag;
  std::int8_t small;
  std::array<char, 5> tag;
  std::uint16_t number;
  char last[1];
  std::optional<std::int8_t> maybe;
};

TEST_F(TableTest, MembersMayLieAtOddOffsets) {
  static_assert(offsetof(Odd, flag) == 3 && offsetof(Odd, tag) == 5 && offsetof(Odd, last) == 12);
  // In another order than that of the members.
  Table<Odd> table(fDatabase, "odd", Field("maybe", &Odd::maybe), Field("last", &Odd::last), Field("tag", &Odd::tag),
                   Field("number", &Odd::number), Field("small", &Odd::small), Field("flag", &Odd::flag),
                   Field("first", &Odd::first));
  table.Create();
  table.Insert(Odd{{'a', 'b', 'c'}, true, -128, {'1', '2', '3', '4', '5'}, 65535, {'z'}, std::int8_t{127}});
  table.Insert(Odd{{}, false, 0, {}, 0, {}, {}});
  EXPECT_THAT(Rows("SELECT first, flag, small, tag, number, last, maybe FROM odd"),
              ElementsAre("abc|1|-128|12345|65535|z|127", "|0|0||0||NULL"));

  const std::vector<Odd> rows = table.Select().Rows();
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_EQ(std::memcmp(rows[0].first, "abc", 3), 0);
  EXPECT_TRUE(rows[0].flag);
  EXPECT_EQ(rows[0].small, -128);
  EXPECT_EQ(rows[0].tag, (std::array<char, 5>{'1', '2', '3', '4', '5'}));
  EXPECT_EQ(rows[0].number, 65535);
  EXPECT_EQ(rows[0].last[0], 'z');
  EXPECT_EQ(rows[0].maybe, std::int8_t{127});
  EXPECT_EQ(std::memcmp(rows[1].first, "\0\0\0", 3), 0);
  EXPECT_FALSE(rows[1].flag);
  EXPECT_EQ(rows[1].maybe, std::nullopt);
}

// A record that is more than its members.
class Document {
 public:
  virtual ~Document() = default;

  std::string title;
  std::vector<std::string> notStored = {"kept"};
  Blob picture;
  EncodedBytes signature;
  std::optional<std::string> note;
};

class Letter : public Document {
 public:
  std::int64_t id = 0;
};

TEST_F(TableTest, RecordMayHaveBasesAVirtualTableAndMembersThatAreNotStored) {
  Table<Letter> letters(
      fDatabase, "letters", Key("id", &Letter::id), Field<Letter, std::string>("title", &Letter::title),
      Field<Letter, Blob>("picture", &Letter::picture), Field<Letter, EncodedBytes>("signature", &Letter::signature),
      Field<Letter, std::optional<std::string>>("note", &Letter::note));
  letters.Create();
  Letter letter;
  letter.id = 4;
  letter.title = std::string(1000, 't');
  letter.picture = {0, 1, 255};
  letter.signature.bytes = {0, 39, 1};
  letter.note = std::string("a\0b", 3);
  letters.Insert(letter);

  const Letter read = letters.Select().First().value();
  EXPECT_EQ(read.id, 4);
  EXPECT_EQ(read.title, letter.title);
  EXPECT_EQ(read.picture, letter.picture);
  EXPECT_EQ(read.signature, letter.signature);
  EXPECT_EQ(read.note, letter.note);
  EXPECT_THAT(read.notStored, ElementsAre("kept"));

  letter.note.reset();
  EXPECT_TRUE(letters.Update(letter));
  EXPECT_EQ(letters.Select().First().value().note, std::nullopt);
}

TEST_F(TableTest, OneRecordMayHaveSeveralTablesOfDifferentFields) {
  CreateAndFill();
  Table<Part> names(fDatabase, "parts", kId, kName);
  const Part part = names.Select(kId == 1).First().value();
  EXPECT_EQ(part.name, "bolt");
  EXPECT_EQ(part.price, std::nullopt);
  EXPECT_TRUE(names.Update({1, "screw", 9.0}));
  EXPECT_THAT(Content(), ElementsAre("1|screw|0.25", "2|nut|NULL"));
}

TEST_F(TableTest, TableMayGoBeforeTheDatabaseAndItsStatementsGoWithIt) {
  auto parts = std::make_unique<Table<Part>>(fDatabase, "parts", kId, kName, kPrice);
  parts->Create();
  parts->Insert({1, "bolt", {}});
  parts.reset();
  EXPECT_EQ(StatementsOf(fDatabase.fConnection), 0);
  EXPECT_EQ(fParts.Count(), 1U);
}

}  // namespace
