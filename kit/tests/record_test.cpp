#include "sqldb/kit/record.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"

namespace {

using namespace sqldb::kit;
using ::testing::ElementsAre;

struct Plain {
  std::int64_t id = 0;
  std::string text;
};

constexpr Field<Plain, std::string> kText("text", &Plain::text);

static_assert(std::is_same_v<decltype(kText.Unique()), Field<Plain, std::string>>);
static_assert(std::is_same_v<decltype(Key("id", &Plain::id)), Field<Plain, std::int64_t>>);
// The name is a literal, so that no input becomes one.
static_assert(!std::is_constructible_v<Field<Plain, std::string>, std::string, std::string Plain::*>);
static_assert(!std::is_constructible_v<Field<Plain, std::string>, const char*, std::string Plain::*>);

TEST(Record, AFieldIsAConstantWithoutOptions) {
  static_assert(!kText.IsKey() && !kText.IsUnique() && kText.Collation() == nullptr);
  EXPECT_STREQ(kText.Name(), "text");
  EXPECT_EQ(kText.Member(), &Plain::text);
}

TEST(Record, OptionsAddUpInACopy) {
  constexpr auto field = kText.Unique().Collate("NOCASE").PrimaryKey();
  static_assert(field.IsUnique() && field.IsKey());
  EXPECT_STREQ(field.Collation(), "NOCASE");
  EXPECT_STREQ(field.Name(), "text");
  EXPECT_EQ(field.Member(), &Plain::text);
  static_assert(!kText.IsKey() && !kText.IsUnique() && kText.Collation() == nullptr);
  static_assert(Key("id", &Plain::id).IsKey() && !Key("id", &Plain::id).IsUnique());
}

struct Outside {
  int number = 0;
};

}  // namespace

template <>
struct sqldb::kit::Described<Outside> {
  static constexpr auto Description() { return Describe("outside", Key("number", &Outside::number)); }
};

namespace {

TEST(Record, AStructThatIsNotYoursIsDescribedBesideIt) {
  Database database(":memory:");
  const Table<Outside> table(database);
  table.Create();
  table.Insert({5});
  EXPECT_EQ(table.Get(5).number, 5);
  EXPECT_EQ(database.One<Outside>("SELECT 7 AS number").number, 7);
}

TEST(Record, ALocalStructIsDescribedInItself) {
  struct Local {
    int a = 0;
    static constexpr auto Description() { return Describe("local", Field("a", &Local::a)); }
  };
  Database database(":memory:");
  const Table<Local> table(database);
  table.Create();
  table.Insert({3});
  EXPECT_EQ(table.Select().One().a, 3);
}

template <typename T>
struct Pair {
  T first{};
  T second{};
  static constexpr auto Description() {
    return Describe("pairs", Field("first", &Pair::first), Field("second", &Pair::second));
  }
};

TEST(Record, EachInstanceOfATemplateHasADescription) {
  Database database(":memory:");
  const Table<Pair<int>> numbers(database, "numbers");
  const Table<Pair<std::string>> texts(database, "texts");
  numbers.Create();
  texts.Create();
  numbers.Insert({1, 2});
  texts.Insert({"1", "2"});
  EXPECT_EQ(database.One<std::string>("SELECT typeof(first) FROM numbers"), "integer");
  EXPECT_EQ(database.One<std::string>("SELECT typeof(first) FROM texts"), "text");
  EXPECT_EQ(texts.Select().One().second, "2");
}

// Members that lie where their neighbours leave room.
struct Odd {
  char first[3];
  bool flag;
  std::int8_t small;
  std::array<char, 5> tag;
  std::uint16_t number;
  char last[1];
  std::optional<std::int8_t> maybe;

  // In another order than that of the members.
  static constexpr auto Description() {
    return Describe("odd", Field("maybe", &Odd::maybe), Field("last", &Odd::last), Field("tag", &Odd::tag),
                    Field("number", &Odd::number), Field("small", &Odd::small), Field("flag", &Odd::flag),
                    Field("first", &Odd::first));
  }
};

TEST(Record, MembersMayLieAtOddOffsetsAndInAnyOrder) {
  static_assert(offsetof(Odd, flag) == 3 && offsetof(Odd, tag) == 5 && offsetof(Odd, last) == 12);
  Database database(":memory:");
  const Table<Odd> table(database);
  table.Create();
  table.Insert(Odd{{'a', 'b', 'c'}, true, -128, {'1', '2', '3', '4', '5'}, 65535, {'z'}, std::int8_t{127}});
  table.Insert(Odd{{}, false, 0, {}, 0, {}, {}});
  EXPECT_EQ(database.One<std::string>("SELECT first || flag || small || tag || number || last || maybe FROM odd"
                                      " WHERE flag"),
            "abc1-1281234565535z127");
  const std::vector<Odd> rows = table.Select().All();
  ASSERT_EQ(rows.size(), 2U);
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
};

struct Stamped {
  std::int64_t mark = 0;
};

class Letter : public Stamped, public Document {
 public:
  alignas(64) std::int64_t id = 0;
  EncodedBytes signature;

  static constexpr auto Description() {
    return Describe("letters", Key("id", &Letter::id), Field("title", &Letter::title),
                    Field("picture", &Letter::picture), Field("signature", &Letter::signature),
                    Field("mark", &Letter::mark));
  }
};

TEST(Record, MembersMayBeThoseOfBasesAlsoOfTheSecond) {
  Database database(":memory:");
  const Table<Letter> letters(database);
  letters.Create();
  Letter letter;
  letter.id = 4;
  letter.mark = 9;
  letter.title = std::string("a\0b", 3);
  letter.picture = {0, 1, 255};
  letter.signature.bytes = {0, 39, 1};
  letters.Insert(letter);
  const Letter read = letters.Get(4);
  EXPECT_EQ(read.id, 4);
  EXPECT_EQ(read.mark, 9);
  EXPECT_EQ(read.title, letter.title);
  EXPECT_EQ(read.picture, letter.picture);
  EXPECT_EQ(read.signature, letter.signature);
  EXPECT_THAT(read.notStored, ElementsAre("kept"));
  letter.title = "new";
  EXPECT_TRUE(letters.Update(letter));
  EXPECT_EQ(letters.Get(4).title, "new");
}

TEST(Record, ColumnsOfBasesAreNamedByTheirRecord) {
  const Column mark = ColumnOf<Letter>(&Letter::mark);
  constexpr Column title = ColumnOf<Letter>(&Letter::title);
  EXPECT_STREQ(mark.Name(), "mark");
  EXPECT_STREQ(title.Name(), "title");
}

struct Unread {
  std::unique_ptr<int> owned;
  int number = 0;
  static constexpr auto Description() { return Describe("unread", Key("number", &Unread::number)); }
};

TEST(Record, MayHaveMembersThatCanOnlyBeMoved) {
  Database database(":memory:");
  const Table<Unread> table(database);
  table.Create();
  Unread unread;
  unread.number = 3;
  table.Insert(unread);
  EXPECT_EQ(table.Get(3).number, 3);
  EXPECT_EQ(table.Select().All().size(), 1U);
  int sum = 0;
  for (const Unread& each : table.Select()) sum += each.number;
  EXPECT_EQ(sum, 3);
}

// A description is a constant as a rule. Here it is made while the program runs, by the same functions.
TEST(Record, IsDescribedWhileTheProgramRunsToo) {
  struct Sheet {
    int number = 0;
    std::string title;
  };
  const auto description =
      Describe("sheets", Key("number", &Sheet::number), Field("title", &Sheet::title).Unique().Collate("NOCASE"));
  EXPECT_STREQ(description.table, "sheets");
  const auto& [number, title] = description.fields;
  EXPECT_TRUE(number.IsKey());
  EXPECT_FALSE(number.IsUnique());
  EXPECT_EQ(number.Collation(), nullptr);
  EXPECT_STREQ(title.Name(), "title");
  EXPECT_EQ(title.Member(), &Sheet::title);
  EXPECT_FALSE(title.IsKey());
  EXPECT_TRUE(title.IsUnique());
  EXPECT_STREQ(title.Collation(), "NOCASE");
  EXPECT_EQ(Describe(Field("title", &Sheet::title)).table, nullptr);
  EXPECT_STREQ(Described<kit_test::Part>::Description().table, "parts");

  const auto both = std::make_index_sequence<2>();
  EXPECT_TRUE(detail::AreNamesDifferent(description.fields, both));
  const auto twice = Describe(Field("title", &Sheet::title), Field("title", &Sheet::title));
  EXPECT_FALSE(detail::AreNamesDifferent(twice.fields, both));
}

TEST(Record, ItsKeyIsCheckedWhileTheProgramRunsToo) {
  EXPECT_TRUE(detail::HasTable<kit_test::Part>());
  EXPECT_EQ(detail::KeyCount<kit_test::Part>(), 1U);
  const auto one = std::make_index_sequence<1>();
  EXPECT_TRUE((detail::CanBeKeys<kit_test::Part, int>(one)));
  EXPECT_FALSE((detail::CanBeKeys<kit_test::Part, std::string>(one)));
  EXPECT_FALSE((detail::CanBeKey<kit_test::Part, int>(1)));
}

}  // namespace
