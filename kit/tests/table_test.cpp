#include "sqldb/kit/table.h"

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "kit_test.h"
#include "sqldb/table.h"
#include "sqldb/term.h"
#include "support/engine.h"

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::name;
using kit_test::note;
using kit_test::Part;
using kit_test::price;
using kit_test::StatementsOf;
using kit_test::ThrownBy;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

struct Line {
  int order = 0;
  std::string line;
  std::string what;
  std::optional<int> number;

  static constexpr auto Description() {
    // The key is not what comes first.
    return Describe("lines", Field("what", &Line::what), Key("order_id", &Line::order),
                    Field("number", &Line::number).Unique(), Key("line", &Line::line));
  }

  friend bool operator==(const Line& a, const Line& b) {
    return a.order == b.order && a.line == b.line && a.what == b.what && a.number == b.number;
  }
};

struct Numbered {
  std::optional<std::int64_t> id;
  std::string name;

  static constexpr auto Description() {
    return Describe("numbered", Key("id", &Numbered::id), Field("name", &Numbered::name).Unique());
  }
};

struct Word {
  std::string word;
  std::int64_t count = 0;

  static constexpr auto Description() {
    return Describe("words", Key("word", &Word::word).Collate("NOCASE"), Field("count", &Word::count));
  }
};

struct Tag {
  int a = 0;
  int b = 0;

  static constexpr auto Description() { return Describe("tags", Key("a", &Tag::a), Key("b", &Tag::b)); }
};

class TableTest : public testing::Test {
 protected:
  TableTest() {
    parts.Create();
    parts.Insert({1, "bolt", 0.25, std::nullopt});
    parts.Insert({2, "nut", 0.5, "round"});
    parts.Insert({3, "saw", 9.5, "sharp"});
  }
  ~TableTest() override { EXPECT_EQ(StatementsOf(database).running, 0); }

  std::vector<std::string> Content(const std::string& table = "parts") {
    return database.All<std::string>("SELECT id || ' ' || name || ' ' || price || ' ' || ifnull(note, '-') FROM " +
                                     table + " ORDER BY id");
  }
  std::string SchemaOf(const char* table) {
    return database.One<std::string>("SELECT sql FROM sqlite_master WHERE name = ?", table);
  }

  Database database{":memory:"};
  Table<Part> parts{database};
};

// --- The table itself ------------------------------------------------------------------------------------------------

struct Row {
  std::string key;
  std::int32_t number = 0;
  std::optional<std::int32_t> count;
  std::string name;
  std::optional<std::string> note;
  double price = 0;
  bool flag = false;
  char code[4] = {};
  Blob blob;
  EncodedBytes bytes;

  static constexpr auto Description() {
    return Describe("t", Key("k", &Row::key).Collate("NOCASE"), Field("number", &Row::number),
                    Field("count", &Row::count).Unique(), Field("name", &Row::name).Unique().Collate("RTRIM"),
                    Field("note", &Row::note).Collate("NOCASE"), Field("price", &Row::price), Field("flag", &Row::flag),
                    Field("code", &Row::code), Field("blob", &Row::blob), Field("bytes", &Row::bytes));
  }
};

TEST_F(TableTest, CreateWritesEveryFieldWithItsOptions) {
  Table<Row>(database).Create();
  EXPECT_EQ(SchemaOf("t"),
            "CREATE TABLE t (k TEXT PRIMARY KEY NOT NULL COLLATE NOCASE, number INTEGER NOT NULL,"
            " count INTEGER UNIQUE, name TEXT NOT NULL UNIQUE COLLATE RTRIM, note TEXT COLLATE NOCASE,"
            " price REAL NOT NULL, flag INTEGER NOT NULL, code TEXT NOT NULL, blob BLOB NOT NULL,"
            " bytes TEXT NOT NULL)");
  Table<Line>(database).Create();
  EXPECT_EQ(SchemaOf("lines"),
            "CREATE TABLE lines (what TEXT NOT NULL, order_id INTEGER NOT NULL, number INTEGER UNIQUE,"
            " line TEXT NOT NULL, PRIMARY KEY (order_id, line))");
  Table<Numbered>(database).Create();
  EXPECT_EQ(SchemaOf("numbered"), "CREATE TABLE numbered (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE)");
}

TEST_F(TableTest, CreateFailsIfTheTableIsThere) {
  EXPECT_EQ(ThrownBy([&] { parts.Create(); }).Message(), "table parts already exists");
}

TEST_F(TableTest, CreateIfMissingCreatesOnce) {
  parts.CreateIfMissing();
  EXPECT_EQ(parts.Count(), 3);
  const Table<Line> lines(database);
  lines.CreateIfMissing();
  lines.CreateIfMissing();
  EXPECT_EQ(lines.Count(), 0);
}

TEST_F(TableTest, CreateIfMissingIsNotDeceivedByAnotherName) {
  database.ExecuteScript("CREATE TABLE LINES (what, order_id, number, line, more); CREATE INDEX words ON parts (name)");
  Table<Line>(database).CreateIfMissing();
  EXPECT_THAT(SchemaOf("LINES"), HasSubstr("more"));
  EXPECT_EQ(ThrownBy([&] { Table<Word>(database).CreateIfMissing(); }).Message(),
            "there is already an index named words");
}

struct Quoted {
  int key = 0;
  std::string group;

  static constexpr auto Description() {
    return Describe("\"old things\"", Key("\"key\"", &Quoted::key), Field("\"group\"", &Quoted::group));
  }
};

TEST_F(TableTest, CreateIfMissingTellsOfATableThatLacksAColumn) {
  database.Execute("CREATE TABLE words (word TEXT PRIMARY KEY)");
  EXPECT_THAT(std::string(ThrownBy([&] { Table<Word>(database).CreateIfMissing(); }).Message()),
              HasSubstr("no such column: words.count"));
  // In quotes, SQLite would take it for a text.
  database.Execute("CREATE TABLE \"old things\" (\"key\" INTEGER PRIMARY KEY)");
  EXPECT_THAT(std::string(ThrownBy([&] { Table<Quoted>(database).CreateIfMissing(); }).Message()),
              HasSubstr("no such column"));
}

TEST_F(TableTest, CreateIfMissingWorksWhereNothingCanBeWritten) {
  database.Execute("PRAGMA query_only = 1");
  parts.CreateIfMissing();
  EXPECT_THROW(Table<Line>(database).CreateIfMissing(), Error);
  database.Execute("PRAGMA query_only = 0");
}

TEST_F(TableTest, DropTakesTheTableAwayAndCreateBringsItBack) {
  EXPECT_EQ(parts.Count(id == 1), 1);
  parts.Drop();
  EXPECT_EQ(ThrownBy([&] { parts.Drop(); }).Message(), "no such table: parts");
  EXPECT_EQ(ThrownBy([&] { parts.Count(id == 1); }).Message(), "no such table: parts");
  EXPECT_THROW(parts.Get(1), Error);
  EXPECT_THROW(parts.Insert({1, "", 0, {}}), Error);
  EXPECT_THROW(parts.Has(), Error);
  EXPECT_THROW(parts.Delete(EveryRow()), Error);
  parts.Create();
  EXPECT_EQ(parts.Count(), 0);
  EXPECT_EQ(parts.Insert({1, "bolt", 0, {}}), 1);
}

TEST_F(TableTest, NamesMayBeQuotedAndQualified) {
  const Table<Quoted> quoted(database);
  quoted.CreateIfMissing();
  quoted.CreateIfMissing();
  quoted.Insert({1, "a"});
  if (!support::IsOlderThan(3024000)) quoted.Upsert({1, "b"});
  EXPECT_TRUE(quoted.Update({1, "c"}));
  constexpr Column group(&Quoted::group);
  EXPECT_EQ(quoted.Update(group == "c", Set(group, "d")), 1);
  EXPECT_EQ(quoted.Select(group > "a").OrderBy(group).One().group, "d");
  EXPECT_EQ(quoted.Select().Distinct().Count(), 1);
  EXPECT_TRUE(quoted.Delete(1));
  database.Execute("ATTACH ':memory:' AS other");
  const Table<Part> other(database, "other.parts");
  other.CreateIfMissing();
  other.CreateIfMissing();
  other.Insert({9, "i", 1, {}});
  EXPECT_EQ(other.Get(9).name, "i");
  EXPECT_EQ(parts.Find(9), std::nullopt);
}

TEST_F(TableTest, OneStructServesSeveralTables) {
  const Table<Part> old(database, "old_parts");
  old.Create();
  old.Insert({7, "old", 1, {}});
  EXPECT_EQ(old.Get(7).name, "old");
  EXPECT_EQ(parts.Find(7), std::nullopt);
  EXPECT_EQ(parts.Count(name == "old"), 0);
  EXPECT_EQ(old.Count(name == "old"), 1);
}

// --- By key ----------------------------------------------------------------------------------------------------------

TEST_F(TableTest, FindsARecordByItsKey) {
  EXPECT_EQ(parts.Find(2), (Part{2, "nut", 0.5, "round"}));
  EXPECT_EQ(parts.Find(4), std::nullopt);
  EXPECT_EQ(parts.Get(1).name, "bolt");
  const Error error = ThrownBy([&] { parts.Get(4); });
  EXPECT_EQ(error.Message(), "There is no such row in parts.");
  EXPECT_EQ(error.Code(), 12);
  EXPECT_EQ(error.Sql(), "SELECT id, name, price, note FROM parts WHERE id = ?");
  EXPECT_EQ(parts.Find(1.5), std::nullopt);
  EXPECT_EQ(parts.Find(2.0)->name, "nut");
}

TEST_F(TableTest, TakesKeysAtBothLimits) {
  EXPECT_EQ(parts.Insert({kSmallest, "a", 0, {}}), kSmallest);
  EXPECT_EQ(parts.Insert({kLargest, "b", 0, {}}), kLargest);
  EXPECT_EQ(parts.Insert({0, "c", 0, {}}), 0);
  EXPECT_TRUE(parts.Update({kSmallest, "d", 0, {}}));
  EXPECT_TRUE(parts.Update({kLargest, "e", 0, {}}));
  EXPECT_EQ(parts.Get(kSmallest).name, "d");
  EXPECT_EQ(parts.Get(kLargest).name, "e");
  EXPECT_TRUE(parts.Delete(kSmallest));
  EXPECT_TRUE(parts.Delete(kLargest));
  EXPECT_EQ(parts.Count(), 4);
}

TEST_F(TableTest, TakesTextKeysOfEveryKind) {
  const Table<Word> words(database);
  words.Create();
  const std::string zero("a\0b", 3);
  words.Insert({"a", 1});
  words.Insert({zero, 2});
  words.Insert({"", 3});
  EXPECT_EQ(words.Get("a").count, 1);
  EXPECT_EQ(words.Get("A").count, 1);
  EXPECT_EQ(words.Get(std::string("a")).count, 1);
  EXPECT_EQ(words.Get(std::string_view(zero).substr(0, 1)).count, 1);
  const char* const characters = "a";
  EXPECT_EQ(words.Get(characters).count, 1);
  EXPECT_EQ(words.Get(zero).count, 2);
  EXPECT_EQ(words.Get("").count, 3);
  EXPECT_TRUE(words.Update({"A", 4}));
  EXPECT_EQ(words.Get("a").word, "a");
  EXPECT_EQ(words.Get("a").count, 4);
  EXPECT_TRUE(words.Delete("a"));
  EXPECT_EQ(words.Count(), 2);
  const char* const null = nullptr;
  EXPECT_THROW(words.Find(null), Error);
}

TEST_F(TableTest, TakesCompositeKeysEverywhere) {
  const Table<Line> lines(database);
  lines.Create();
  for (int i = 0; i < 500; ++i) lines.Insert({i / 10, std::to_string(i % 10), "old", std::nullopt});
  EXPECT_TRUE(lines.Update({7, "3", "new", 5}));
  constexpr Column what(&Line::what);
  EXPECT_EQ(lines.Count(what == "new"), 1);
  EXPECT_EQ(lines.Get(7, "3"), (Line{7, "3", "new", 5}));
  EXPECT_EQ(lines.Find(7, "x"), std::nullopt);
  EXPECT_FALSE(lines.Update({77, "3", "new", 5}));
  EXPECT_FALSE(lines.InsertOrIgnore({7, "3", "other", 6}));
  if (!support::IsOlderThan(3024000)) {
    lines.Upsert({7, "3", "upserted", 5});
    lines.Upsert({70, "3", "upserted", {}});
    EXPECT_EQ(lines.Count(what == "upserted"), 2);
  }
  lines.Replace({7, "3", "replaced", 5});
  EXPECT_EQ(lines.Get(7, "3").what, "replaced");
  EXPECT_TRUE(lines.Delete(7, "3"));
  EXPECT_FALSE(lines.Delete(7, "3"));
  EXPECT_EQ(lines.Count(what == "old"), 499);
}

TEST_F(TableTest, TableOfNothingButAKeyWorks) {
  const Table<Tag> tags(database);
  tags.Create();
  tags.Insert({1, 2});
  if (!support::IsOlderThan(3024000)) tags.Upsert({1, 2});
  EXPECT_TRUE(tags.Update({1, 2}));
  EXPECT_FALSE(tags.Update({2, 1}));
  EXPECT_FALSE(tags.InsertOrIgnore({1, 2}));
  tags.Replace({1, 2});
  EXPECT_EQ(tags.Count(), 1);
  EXPECT_TRUE(tags.Find(1, 2).has_value());
}

TEST_F(TableTest, EmptyOptionalKeyIsNumberedBySQLite) {
  const Table<Numbered> numbered(database);
  numbered.Create();
  EXPECT_EQ(numbered.Insert({{}, "a"}), 1);
  EXPECT_EQ(numbered.Insert({7, "b"}), 7);
  EXPECT_EQ(numbered.Insert({{}, "c"}), 8);
  EXPECT_EQ(numbered.Insert({0, "zero"}), 0);
  numbered.Replace({{}, "d"});
  if (!support::IsOlderThan(3024000)) numbered.Upsert({{}, "e"});
  EXPECT_EQ(numbered.Get(9).name, "d");
  EXPECT_FALSE(numbered.Update({{}, "f"}));
  EXPECT_TRUE(numbered.Update({1, "g"}));
  EXPECT_FALSE(numbered.Find(std::nullopt).has_value());
}

TEST_F(TableTest, WithoutRowidWorksEverywhere) {
  database.ExecuteScript(
      "CREATE TABLE lines (what TEXT, order_id INTEGER, number INTEGER UNIQUE, line TEXT,"
      " PRIMARY KEY (order_id, line)) WITHOUT ROWID");
  const Table<Line> lines(database);
  lines.Insert({1, "a", "x", 1});
  EXPECT_TRUE(lines.InsertOrIgnore({1, "b", "y", 2}));
  EXPECT_EQ(lines.Count(), 2);
  EXPECT_TRUE(lines.Has());
  EXPECT_TRUE(lines.Has(Column(&Line::what) == "x"));
  EXPECT_TRUE(lines.Update({1, "a", "z", 1}));
  EXPECT_EQ(lines.Get(1, "a").what, "z");
  EXPECT_TRUE(lines.Delete(1, "a"));
  EXPECT_EQ(lines.Select().One().line, "b");
}

// --- Writing ---------------------------------------------------------------------------------------------------------

TEST_F(TableTest, FailedInsertIsAnErrorAndTheNextOneWorks) {
  const Error error = ThrownBy<ConstraintError>([&] { parts.Insert({1, "new", 0, {}}); });
  EXPECT_EQ(error.Message(), "UNIQUE constraint failed: parts.id");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_PRIMARYKEY);
  EXPECT_EQ(error.Sql(), "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)");
  EXPECT_EQ(parts.Insert({4, "new", 0, {}}), 4);
}

TEST_F(TableTest, OtherFailuresOfARowOfKeyZeroAreNotTakenForThat) {
  database.Execute("CREATE UNIQUE INDEX names ON parts (name)");
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              parts.Insert({0, "bolt", 0, {}});
            }).Message(),
            "UNIQUE constraint failed: parts.name");
}

TEST_F(TableTest, SecondRowOfKeyZeroIsToldAboutNumbering) {
  parts.Insert({0, "zero", 0, {}});
  const Error error = ThrownBy<ConstraintError>([&] { parts.Insert({0, "zero", 0, {}}); });
  EXPECT_EQ(error.Message(),
            "UNIQUE constraint failed: parts.id (the key is 0: SQLite numbers rows whose key is an empty"
            " std::optional)");
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_PRIMARYKEY);
  EXPECT_EQ(error.Sql(), "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)");
  const Table<Tag> tags(database);
  tags.Create();
  tags.Insert({0, 0});
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              tags.Insert({0, 0});
            }).Message(),
            "UNIQUE constraint failed: tags.a, tags.b");
  const Table<Numbered> numbered(database);
  numbered.Create();
  numbered.Insert({0, "a"});
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              numbered.Insert({5, "a"});
            }).Message(),
            "UNIQUE constraint failed: numbered.name");
}

// A table whose rows have a key that the struct does not declare as SQLite's own.
struct Unnumbered {
  std::int64_t rowid = 0;
  std::string name;

  static constexpr auto Description() {
    return Describe("plain", Key("rowid", &Unnumbered::rowid), Field("name", &Unnumbered::name));
  }
};

struct Counted {
  std::int64_t id = 0;
  std::int64_t count = 0;
  static constexpr auto Description() {
    return Describe("counted", Key("id", &Counted::id), Field("count", &Counted::count));
  }
};

TEST_F(TableTest, OnlyAKeyOfZeroIsToldAboutNumbering) {
  const Table<Counted> counted(database);
  counted.Create();
  counted.Insert({1, 0});
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              counted.Insert({1, 0});
            }).Message(),
            "UNIQUE constraint failed: counted.id");
}

TEST_F(TableTest, SecondRowOfRowidZeroIsToldAboutNumberingToo) {
  database.Execute("CREATE TABLE plain (name TEXT)");
  const Table<Unnumbered> plain(database);
  plain.Insert({0, "a"});
  plain.Insert({1, "a"});
  const Error error = ThrownBy<ConstraintError>([&] { plain.Insert({0, "a"}); });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_ROWID);
  EXPECT_THAT(std::string(error.Message()), HasSubstr("the key is 0"));
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              plain.Insert({1, "a"});
            }).Message(),
            "UNIQUE constraint failed: plain.rowid");
}

// A record whose only field is its key.
template <typename T>
struct Alone {
  T key;

  static constexpr auto Description() { return Describe("alone", Key("key", &Alone::key)); }
};

TEST_F(TableTest, OnlyAKeyThatIsTheNumberZeroIsToldAboutNumbering) {
  const auto expectPlain = [&](const auto& record) {
    const Table<std::decay_t<decltype(record)>> alone(database);
    alone.Create();
    alone.Insert(record);
    const Error error = ThrownBy<ConstraintError>([&] { alone.Insert(record); });
    EXPECT_EQ(error.ExtendedCode(), SQLITE_CONSTRAINT_PRIMARYKEY);
    EXPECT_EQ(error.Message(), "UNIQUE constraint failed: alone.key");
    alone.Drop();
  };
  expectPlain(Alone<std::string>{"0"});
  expectPlain(Alone<std::string>{""});
  expectPlain(Alone<double>{0});
  expectPlain(Alone<Blob>{{0}});
  expectPlain(Alone<std::int64_t>{1});
  // A key that SQLite numbers is at fault for nothing; here it is what a trigger inserts.
  const Table<Numbered> numbered(database);
  numbered.Create();
  database.Execute("CREATE TRIGGER t AFTER INSERT ON numbered BEGIN INSERT INTO parts VALUES (1, '', 0, NULL); END");
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              numbered.Insert({{}, "a"});
            }).Message(),
            "UNIQUE constraint failed: parts.id");
}

TEST_F(TableTest, MoreValuesThanAStatementTakesAreLiterals) {
  sqlite3_limit(database.Core().fConnection, SQLITE_LIMIT_VARIABLE_NUMBER, 10);
  Term any = name == "none";
  for (int i = 2; i < 20; ++i) any = any || id == i;
  EXPECT_EQ(parts.Count(any), 2);
  EXPECT_TRUE(parts.Has(any));
  EXPECT_EQ(parts.Select(any).OrderBy(Descending(id)).Limit(1).Offset(1).All().at(0).id, 2);
  EXPECT_EQ(parts.Update(any, Set(name, "it's"), Set(note, std::nullopt)), 2);
  EXPECT_THAT(Content(), ElementsAre("1 bolt 0.25 -", "2 it's 0.5 -", "3 it's 9.5 -"));
  EXPECT_EQ(parts.Delete(any), 2);
  EXPECT_EQ(parts.Count(), 1);
}

TEST_F(TableTest, ValueThatCannotBeStoredIsAnErrorAndTheNextWriteWorks) {
  EXPECT_EQ(ThrownBy<ConversionError>([&] {
              parts.Insert({4, "x", kNan, {}});
            }).Message(),
            "column price: NaN cannot be stored.");
  EXPECT_THROW(parts.Replace({1, "x", kNan, {}}), ConversionError);
  EXPECT_THROW(parts.Update({1, "x", kNan, {}}), ConversionError);
  EXPECT_THROW(parts.InsertOrIgnore({4, "x", kNan, {}}), ConversionError);
  sqlite3_limit(database.Core().fConnection, SQLITE_LIMIT_LENGTH, 200);
  EXPECT_EQ(ThrownBy([&] { parts.Insert({4, std::string(201, 'x'), 0, {}}); }).Message(), "string or blob too big");
  EXPECT_EQ(ThrownBy([&] { parts.Count(name == std::string(201, 'x')); }).Message(), "string or blob too big");
  EXPECT_EQ(parts.Insert({4, "x", 0, {}}), 4);
  EXPECT_TRUE(parts.Update({1, "y", 0, {}}));
}

TEST_F(TableTest, InsertOrIgnoreSaysWhetherItDid) {
  EXPECT_TRUE(parts.InsertOrIgnore({4, "x", 0, {}}));
  EXPECT_FALSE(parts.InsertOrIgnore({4, "y", 0, {}}));
  EXPECT_EQ(parts.Get(4).name, "x");
  const Table<Numbered> numbered(database);
  numbered.Create();
  EXPECT_TRUE(numbered.InsertOrIgnore({{}, "a"}));
  EXPECT_FALSE(numbered.InsertOrIgnore({{}, "a"}));
  database.Execute("CREATE TABLE strict (id INTEGER PRIMARY KEY, name TEXT, price REAL, note TEXT NOT NULL)");
  EXPECT_FALSE(Table<Part>(database, "strict").InsertOrIgnore({1, "a", 0, {}}));
}

TEST_F(TableTest, UpsertInsertsOrUpdatesAndKeepsWhatRefersToTheRow) {
  if (support::IsOlderThan(3024000)) {
    EXPECT_THAT(std::string(ThrownBy([&] { parts.Upsert({1, "", 0, {}}); }).Message()), HasSubstr("3.24"));
    return;
  }
  database.Execute("CREATE TABLE uses (part INTEGER REFERENCES parts (id) ON DELETE CASCADE)");
  database.Execute("INSERT INTO uses VALUES (1), (2)");
  parts.Upsert({1, "screw", 2, "new"});
  parts.Upsert({9, "nail", 3, {}});
  EXPECT_THAT(Content(), ElementsAre("1 screw 2.0 new", "2 nut 0.5 round", "3 saw 9.5 sharp", "9 nail 3.0 -"));
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM uses"), 2);
  // Replace deletes the row that was there.
  parts.Replace({1, "screw", 2, "new"});
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM uses"), 1);
}

TEST_F(TableTest, UpsertFailsForTheValueOfAnotherUniqueField) {
  if (support::IsOlderThan(3024000)) return;
  const Table<Numbered> numbered(database);
  numbered.Create();
  numbered.Insert({1, "a"});
  numbered.Insert({2, "b"});
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              numbered.Upsert({2, "a"});
            }).Message(),
            "UNIQUE constraint failed: numbered.name");
  EXPECT_EQ(ThrownBy<ConstraintError>([&] {
              numbered.Upsert({3, "a"});
            }).Message(),
            "UNIQUE constraint failed: numbered.name");
  numbered.Replace({3, "a"});
  EXPECT_EQ(numbered.Find(1), std::nullopt);
  EXPECT_EQ(numbered.Get(3).name, "a");
}

struct Cell {
  std::int64_t row = 0;
  std::int64_t column = 0;
  std::string text;
  std::optional<double> value;

  static constexpr auto Description() {
    return Describe("cells", Key("y", &Cell::row), Key("x", &Cell::column), Field("t", &Cell::text),
                    Field("v", &Cell::value));
  }
};

TEST_F(TableTest, EachOperationIsAStatementOfTheseWords) {
  if (support::IsOlderThan(3024000)) GTEST_SKIP() << "Upsert needs SQLite 3.24";
  const Table<Cell> cells(database);
  cells.CreateIfMissing();
  const Cell cell{1, 2, "a", 0.5};
  cells.Insert(cell);
  cells.InsertOrIgnore(cell);
  cells.Upsert(cell);
  cells.Replace(cell);
  cells.Update(cell);
  EXPECT_TRUE(cells.Find(1, 2));
  cells.Delete(1, 2);
  std::vector<std::string> texts;
  sqlite3* const handle = database.Core().fConnection;
  for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
       each = sqlite3_next_stmt(handle, each)) {
    const std::string text = sqlite3_sql(each);
    if (text.find("cells") != std::string::npos) texts.push_back(text);
  }
  EXPECT_THAT(texts,
              ::testing::UnorderedElementsAre(
                  "INSERT INTO cells (y, x, t, v) VALUES (?, ?, ?, ?)",
                  "INSERT OR IGNORE INTO cells (y, x, t, v) VALUES (?, ?, ?, ?)",
                  "INSERT INTO cells (y, x, t, v) VALUES (?, ?, ?, ?) ON CONFLICT (y, x) DO UPDATE SET"
                  " t = excluded.t, v = excluded.v",
                  "REPLACE INTO cells (y, x, t, v) VALUES (?, ?, ?, ?)",
                  "UPDATE cells SET t = ?3, v = ?4 WHERE y = ?1 AND x = ?2",
                  "SELECT y, x, t, v FROM cells WHERE y = ? AND x = ?", "DELETE FROM cells WHERE y = ? AND x = ?"));
  EXPECT_EQ(database.One<std::string>("SELECT sql FROM sqlite_master WHERE name = 'cells'"),
            "CREATE TABLE cells (y INTEGER NOT NULL, x INTEGER NOT NULL, t TEXT NOT NULL, v REAL, PRIMARY KEY (y, x))");
}

TEST_F(TableTest, UpdateGivesTheRowOfTheKeyTheRecordsValues) {
  EXPECT_TRUE(parts.Update({1, "it's", 0.00001, "new"}));
  EXPECT_FALSE(parts.Update({4, "none", 0, {}}));
  EXPECT_THAT(Content(), ElementsAre("1 it's 1.0e-05 new", "2 nut 0.5 round", "3 saw 9.5 sharp"));
  // Also where nothing changes.
  EXPECT_TRUE(parts.Update({2, "nut", 0.5, "round"}));
}

TEST_F(TableTest, UpdateByTermReturnsHowManyRowsItChanged) {
  EXPECT_EQ(parts.Update(price < 1.0, Set(price, Sql<double>("price * ?", 2)), Set(note, std::nullopt)), 2);
  EXPECT_EQ(parts.Update(id == 3, Set(name, note), Set(note, name)), 1);
  EXPECT_EQ(parts.Update(id == 9, Set(name, "x")), 0);
  EXPECT_THAT(Content(), ElementsAre("1 bolt 0.5 -", "2 nut 1.0 -", "3 sharp 9.5 saw"));
  EXPECT_EQ(parts.Update(EveryRow(), Set(id, Sql<int>("id + ?", 10))), 3);
  EXPECT_EQ(parts.Update(Like(name, "%'%"), Set(name, "it's ?")), 0);
  EXPECT_EQ(parts.Count(id > 10), 3);
}

TEST_F(TableTest, UpdateTakesAssignmentsOfRunTime) {
  std::vector<Assignment> changes;
  EXPECT_EQ(parts.Update(EveryRow(), changes), 0);
  EXPECT_THAT(Content(), ElementsAre("1 bolt 0.25 -", "2 nut 0.5 round", "3 saw 9.5 sharp"));
  changes.push_back(Set(name, "screw"));
  EXPECT_EQ(parts.Update(id == 1, changes), 1);
  changes.push_back(Set(price, Sql<double>("price + ?", 1)));
  changes.push_back(Set(note, std::nullopt));
  EXPECT_EQ(parts.Update(id >= 2, changes), 2);
  EXPECT_THAT(Content(), ElementsAre("1 screw 0.25 -", "2 screw 1.5 -", "3 screw 10.5 -"));
  EXPECT_THROW(parts.Update(Term(), changes), Error);
}

struct Rare {
  std::int64_t id = 0;
  Blob bytes;
  static constexpr auto Description() { return Describe("rare", Key("id", &Rare::id), Field("bytes", &Rare::bytes)); }
};

TEST_F(TableTest, ATermBeyondTheLimitOfParametersKeepsItsValuesOutOfErrors) {
  sqlite3_limit(database.Core().fConnection, SQLITE_LIMIT_VARIABLE_NUMBER, 4);
  const std::vector<std::string> names(8, "secret");
  const Table<Part> missing(database, "missing");
  const Error error = ThrownBy([&] { missing.Count(In(name, names)); });
  EXPECT_EQ(std::string(error.what()).find("secret"), std::string::npos) << error.what();
  EXPECT_NE(error.Sql().find("name IN (?, ?"), std::string_view::npos) << error.Sql();
}

TEST_F(TableTest, AWriteThatYieldsARowHasEndedWhenItReturns) {
  database.Execute("PRAGMA count_changes = ON");
  database.ExecuteScript("CREATE TABLE child (id INTEGER PRIMARY KEY REFERENCES parts DEFERRABLE INITIALLY DEFERRED)");
  struct Child {
    std::int64_t id = 0;
    static constexpr auto Description() { return Describe("child", Key("id", &Child::id)); }
  };
  EXPECT_THROW(Table<Child>(database).Insert({77}), ConstraintError);
  EXPECT_THROW(Table<Child>(database).InsertMany(std::vector<Child>{{77}}), ConstraintError);
}

TEST_F(TableTest, ATableHasAName) {
  struct Nameless {
    std::int64_t id = 0;
    static constexpr auto Description() { return Describe(Key("id", &Nameless::id)); }
  };
  EXPECT_EQ(ThrownBy([&] { Table<Nameless>(database, std::string_view()); }).Code(), SQLITE_MISUSE);
  EXPECT_EQ(ThrownBy([&] { Table<Part>(database, std::string()); }).Message(), "The name of the table is empty.");
}

TEST_F(TableTest, ValuesAreBoundAndNeverRead) {
  const Table<Rare> rare(database);
  rare.Create();
  rare.Insert({1, {}});
  // As a literal, each of these bytes would be two of the text.
  sqlite3_limit(database.Core().fConnection, SQLITE_LIMIT_SQL_LENGTH, 100000);
  const Blob large(90000, 0x27);
  EXPECT_TRUE(rare.Update({1, large}));
  constexpr Column bytes(&Rare::bytes);
  EXPECT_EQ(rare.Update(Column(&Rare::id) == 1, Set(bytes, large)), 1);
  EXPECT_EQ(rare.Count(bytes == large), 1);
  EXPECT_EQ(rare.Get(1).bytes, large);
  for (const std::string& text :
       {std::string("a\0b'", 4), std::string("'); DROP TABLE parts; --"), std::string("?1")}) {
    EXPECT_EQ(parts.Update(id == 1, Set(name, text), Set(note, text)), 1);
    EXPECT_EQ(parts.Get(1).name, text);
    EXPECT_EQ(parts.Select(name == text && note == text).One().id, 1);
  }
}

TEST_F(TableTest, DeletesByKeyAndByTerm) {
  EXPECT_TRUE(parts.Delete(1));
  EXPECT_FALSE(parts.Delete(1));
  EXPECT_EQ(parts.Delete(price > 1), 1);
  EXPECT_EQ(parts.Delete(price > 1), 0);
  EXPECT_EQ(parts.Delete(EveryRow()), 1);
  EXPECT_THAT(Content(), IsEmpty());
}

TEST_F(TableTest, EmptyTermChangesAndDeletesNothing) {
  for (const Term& term : {Term(), Term() && Term(), !Term()}) {
    const Error deleted = ThrownBy([&] { parts.Delete(term); });
    EXPECT_EQ(deleted.Message(), "A delete without a condition: say EveryRow() if it is meant.");
    EXPECT_EQ(deleted.Code(), 21);
    const Error updated = ThrownBy([&] { parts.Update(term, Set(price, 1)); });
    EXPECT_EQ(updated.Message(), "An update without a condition: say EveryRow() if it is meant.");
    EXPECT_EQ(updated.Code(), 21);
  }
  EXPECT_EQ(parts.Count(price != 1), 3);
}

// The count of another statement, by a trigger or one before, is not that of this one.
TEST_F(TableTest, CountsOnlyTheRowsOfTheOperation) {
  database.ExecuteScript(
      "CREATE TABLE log (x); CREATE TRIGGER t AFTER UPDATE ON parts BEGIN INSERT INTO log VALUES (1), (2), (3); END;"
      "CREATE TRIGGER d AFTER DELETE ON parts BEGIN INSERT INTO log VALUES (1), (2), (3); END");
  EXPECT_EQ(parts.Update(price < 1, Set(price, 0)), 2);
  EXPECT_EQ(parts.Update(price > 100, Set(price, 0)), 0);
  EXPECT_FALSE(parts.Update({99, "", 0, {}}));
  EXPECT_EQ(parts.Delete(price == 0), 2);
  EXPECT_FALSE(parts.Delete(99));
  EXPECT_EQ(database.One<int>("SELECT COUNT(*) FROM log"), 12);
}

// --- Counting --------------------------------------------------------------------------------------------------------

TEST_F(TableTest, CountAndHasTakeATermOrNone) {
  EXPECT_EQ(parts.Count(), 3);
  EXPECT_EQ(parts.Count(price < 1), 2);
  EXPECT_EQ(parts.Count(price > 100), 0);
  EXPECT_TRUE(parts.Has());
  EXPECT_TRUE(parts.Has(IsNull(note)));
  EXPECT_FALSE(parts.Has(id == 9));
  parts.Delete(EveryRow());
  EXPECT_EQ(parts.Count(), 0);
  EXPECT_FALSE(parts.Has());
}

struct Shadowed {
  std::optional<int> rowid;
  static constexpr auto Description() { return Describe("shadowed", Field("rowid", &Shadowed::rowid)); }
};

TEST_F(TableTest, CountAndHasWorkForViewsExpressionsAndEveryTable) {
  database.Execute("CREATE VIEW cheap AS SELECT * FROM parts WHERE price < 1");
  const Table<Part> cheap(database, "cheap");
  EXPECT_EQ(cheap.Count(), 2);
  EXPECT_TRUE(cheap.Has(name == "nut"));
  EXPECT_EQ(cheap.Select().OrderBy(id).All().size(), 2U);
  const Table<Part> expression(database, "(SELECT * FROM parts WHERE id > 1)");
  EXPECT_EQ(expression.Count(), 2);
  EXPECT_EQ(expression.Count(price < 1), 1);
  EXPECT_TRUE(expression.Has(price < 1));
  EXPECT_EQ(expression.Get(3).name, "saw");
  // Where rowid is a column like others, and has no value.
  const Table<Shadowed> shadowed(database);
  shadowed.Create();
  shadowed.Insert({{}});
  shadowed.Insert({{}});
  EXPECT_EQ(shadowed.Count(), 2);
  EXPECT_TRUE(shadowed.Has());
  EXPECT_TRUE(shadowed.Has(IsNull(Column(&Shadowed::rowid))));
}

TEST_F(TableTest, CountHasSixtyFourBits) {
  const Table<Part> many(database,
                         "(WITH a(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM a LIMIT 100) SELECT a.x AS id, '' AS"
                         " name, 0.0 AS price, NULL AS note FROM a)");
  EXPECT_EQ(many.Count(id <= std::int64_t{1} << 40), 100);
  static_assert(std::is_same_v<decltype(many.Count()), std::int64_t>);
  static_assert(std::is_same_v<decltype(many.Select().Count()), std::int64_t>);
}

TEST_F(TableTest, TermServesTheCoreAsWell) {
  const Term term = price < 1.0 && !(name == "nut");
  EXPECT_EQ(database.Core().NewTable("parts")->CountRecords(term.Core()), 1U);
  EXPECT_EQ(database.Core().NewTable("parts")->CountRecords(Term().Core()), 3U);
}

// --- Statements ------------------------------------------------------------------------------------------------------

// A record that, while it is written, writes another one.
struct Nested;
struct Reentrant {
  int number = 0;
};
const Table<Nested>* gNested = nullptr;

}  // namespace

template <>
struct sqldb::kit::Type<Reentrant> {
  using Stored = std::int64_t;
  static std::int64_t Store(const Reentrant& value);
  static Reentrant Load(std::int64_t stored) { return Reentrant{static_cast<int>(stored)}; }
};

namespace {

struct Nested {
  std::string name;
  Reentrant number;
  std::string last;
  static constexpr auto Description() {
    return Describe("nested", Key("name", &Nested::name), Field("number", &Nested::number),
                    Field("last", &Nested::last));
  }
};

}  // namespace

std::int64_t sqldb::kit::Type<Reentrant>::Store(const Reentrant& value) {
  if (value.number > 0) {
    Nested inner;
    inner.name = "inner of a name that is longer than others";
    inner.number.number = value.number - 1;
    inner.name += std::to_string(inner.number.number);
    inner.last = "a text that is so long that it is kept on the heap";
    gNested->Insert(inner);
  }
  return value.number;
}

namespace {

TEST_F(TableTest, InsertMayBeEnteredAgainFromAType) {
  const Table<Nested> nested(database);
  nested.Create();
  gNested = &nested;
  nested.Insert({"outer of a name that is longer than others", {3}, "outer of a text that is longer than others"});
  EXPECT_EQ(nested.Count(), 4);
  EXPECT_EQ(nested.Get("outer of a name that is longer than others").last,
            "outer of a text that is longer than others");
  EXPECT_EQ(nested.Get("inner of a name that is longer than others2").number.number, 2);
  gNested = nullptr;
}

TEST_F(TableTest, StatementsAreCompiledOnce) {
  const auto useAll = [&](int round) {
    parts.Insert({100 + round, "x", 0, {}});
    parts.InsertOrIgnore({100 + round, "x", 0, {}});
    parts.Replace({100 + round, "y", 0, {}});
    parts.Update({100 + round, "z", 0, {}});
    parts.Update(id == 100 + round, Set(name, std::to_string(round)));
    parts.Count(id == round && Like(name, "x%"));
    parts.Has(name == std::to_string(round));
    parts.Select(id > round).OrderBy(name).Limit(round).All();
    parts.Select(In(id, {round, round + 1})).Distinct().Count();
    parts.Delete(100 + round);
    parts.Delete(id == round + 1000);
  };
  useAll(0);
  const int before = StatementsOf(database).all;
  for (int round = 1; round < 20; ++round) useAll(round);
  EXPECT_EQ(StatementsOf(database).all, before);
}

TEST_F(TableTest, StatementsAreToldApartByTableAndOperation) {
  const Table<Part> other(database, "other");
  other.Create();
  const Term term = id >= 1;
  EXPECT_EQ(parts.Count(term), 3);
  EXPECT_EQ(other.Count(term), 0);
  EXPECT_TRUE(parts.Has(term));
  EXPECT_FALSE(other.Has(term));
  EXPECT_EQ(parts.Select(term).All().size(), 3U);
  EXPECT_EQ(parts.Select(term).Count(), 3);
  EXPECT_EQ(parts.Select(term).Limit(1).Count(), 1);
  EXPECT_EQ(parts.Select(term).Distinct().Limit(1).All().size(), 1U);
  EXPECT_EQ(parts.Select().OrderBy(Sql<bool>("id >= ?", 1)).All().size(), 3U);
  EXPECT_EQ(other.Delete(term), 0);
  EXPECT_EQ(parts.Count(), 3);
  EXPECT_EQ(parts.Delete(term), 3);
}

// Older engines do not count it.
#ifdef SQLITE_STMTSTATUS_REPREPARE
TEST_F(TableTest, IndexServesLikeByItsPattern) {
  database.Execute("CREATE INDEX by_name ON parts (name COLLATE NOCASE)");
  for (int i = 0; i < 20; ++i) parts.Insert({10 + i, "n" + std::to_string(i), 0, {}});
  struct Work {
    int scanned;
    int compilations;
  };
  // What the statement that ends so has done for the term.
  const auto workFor = [&](const Term& term, const std::string& end) {
    parts.Count(term);
    sqlite3* const handle = database.Core().fConnection;
    for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
         each = sqlite3_next_stmt(handle, each)) {
      const std::string sql = sqlite3_sql(each);
      if (sql != "SELECT COUNT(*) FROM parts WHERE name LIKE " + end) continue;
      return Work{sqlite3_stmt_status(each, SQLITE_STMTSTATUS_FULLSCAN_STEP, 1),
                  sqlite3_stmt_status(each, SQLITE_STMTSTATUS_REPREPARE, 1)};
    }
    return Work{-1, -1};
  };
  EXPECT_EQ(workFor(Like(name, "bo%"), "?").scanned, 0);
  EXPECT_EQ(workFor(Like(name, "n%"), "?").scanned, 0);
  EXPECT_EQ(workFor(Like(name, "bo\\%%", '\\'), "? ESCAPE '\\'").scanned, 0);
  // No index serves these, so they are not compiled anew.
  for (const char* const pattern : {"%lt", "_olt", ""}) {
    const Work work = workFor(Like(name, pattern), "('' || ?)");
    EXPECT_EQ(work.scanned, 22) << pattern;
    EXPECT_EQ(work.compilations, 0) << pattern;
  }
}
#endif

TEST_F(TableTest, ChangedSchemaIsSeen) {
  EXPECT_EQ(parts.Get(1).name, "bolt");
  database.Execute("ALTER TABLE parts ADD COLUMN more TEXT");
  EXPECT_EQ(parts.Get(1).name, "bolt");
  EXPECT_EQ(parts.Select().All().size(), 3U);
  EXPECT_EQ(parts.Insert({9, "x", 1, {}}), 9);
}

TEST_F(TableTest, WorksOnADatabaseThatHasBeenMoved) {
  Database moved = std::move(database);
  EXPECT_EQ(parts.Count(), 3);
  EXPECT_EQ(Table<Part>(moved).Get(1).name, "bolt");
  EXPECT_EQ(parts.Insert({7, "x", 1, {}}), 7);
  database = std::move(moved);
}

TEST_F(TableTest, EveryUseOfAClosedDatabaseThrows) {
  EXPECT_EQ(parts.Count(id == 1), 1);
  EXPECT_EQ(parts.Get(1).id, 1);
  Database other(":memory:");
  const Table<Part> gone(other);
  gone.Create();
  gone.Find(1);
  gone.Count(id == 1);
  other.Close();
  constexpr char kMessage[] = "The database is not open.";
  const Part part{1, "x", 0, {}};
  for (const auto& use : std::vector<std::function<void()>>{
           [&] { gone.Create(); }, [&] { gone.CreateIfMissing(); }, [&] { gone.Drop(); }, [&] { gone.Find(1); },
           [&] { gone.Get(1); }, [&] { gone.Insert(part); }, [&] { gone.InsertOrIgnore(part); },
           [&] { gone.Upsert(part); }, [&] { gone.Replace(part); }, [&] { gone.Update(part); },
           [&] { gone.Update(id == 1, Set(name, "")); }, [&] { gone.Delete(1); }, [&] { gone.Delete(id == 1); },
           [&] { gone.Count(id == 1); }, [&] { gone.Has(); }, [&] { gone.Select().All(); },
           [&] { gone.Select(id == 1).First(); }, [&] { gone.Select().Count(); }}) {
    const Error error = ThrownBy(use);
    EXPECT_EQ(error.Message(), kMessage);
    EXPECT_EQ(error.Code(), 21);
  }
}

}  // namespace
