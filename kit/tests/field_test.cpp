#include "sqldb/kit/field.h"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

namespace {

using sqldb::kit::Assignment;
using sqldb::kit::Blob;
using sqldb::kit::ColumnName;
using sqldb::kit::Field;
using sqldb::kit::Key;
using sqldb::kit::Set;
using sqldb::kit::TrustedSql;

struct Part {
  std::int64_t id;
  std::string name;
  std::optional<double> price;
  char code[4];
  std::array<char, 4> tag;
  std::optional<std::string> note;
  std::int8_t small;
  Blob picture;
};

const auto kName = Field("name", &Part::name);
const auto kPrice = Field("price", &Part::price);
const auto kCode = Field("code", &Part::code);
const auto kTag = Field("tag", &Part::tag);
const auto kNote = Field("note", &Part::note);

static_assert(std::is_same_v<decltype(kName), const Field<Part, std::string>>);
static_assert(std::is_same_v<decltype(kCode), const Field<Part, char[4]>>);
static_assert(std::is_same_v<decltype(kName.Unique()), Field<Part, std::string>>);
static_assert(std::is_same_v<decltype(kName.Collate("NOCASE")), Field<Part, std::string>>);
static_assert(std::is_same_v<decltype(Key("id", &Part::id)), Field<Part, std::int64_t>>);
static_assert(std::is_base_of_v<ColumnName<std::string>, Field<Part, std::string>>);

// Whether a Field can be set to a Value.
template <typename Member, typename Value, typename = void>
constexpr bool kSets = false;
template <typename Member, typename Value>
constexpr bool kSets<Member, Value,
                     std::void_t<decltype(Set(std::declval<const Field<Part, Member>&>(), std::declval<Value>()))>> =
    true;

static_assert(kSets<double, int> && kSets<std::optional<double>, std::nullopt_t>);
static_assert(!kSets<double, std::nullopt_t> && !kSets<std::string, std::nullopt_t>);
static_assert(!kSets<std::string, double> && !kSets<double, std::string> && !kSets<double, std::optional<double>>);

std::string TextOf(const Assignment& assignment) { return assignment.name + " = " + assignment.sql; }

TEST(FieldTest, FieldHasItsNameAndItsMemberAndNoOptions) {
  EXPECT_EQ(kName.Name(), "name");
  EXPECT_EQ(kName.Member(), &Part::name);
  EXPECT_FALSE(kName.Options().isPrimaryKey);
  EXPECT_FALSE(kName.Options().isUnique);
  EXPECT_EQ(kName.Options().collation, "");
}

TEST(FieldTest, OptionsAddUpInACopy) {
  const auto field = kName.Unique().Collate("NOCASE");
  EXPECT_EQ(field.Name(), "name");
  EXPECT_EQ(field.Member(), &Part::name);
  EXPECT_TRUE(field.Options().isUnique);
  EXPECT_FALSE(field.Options().isPrimaryKey);
  EXPECT_EQ(field.Options().collation, "NOCASE");
  EXPECT_FALSE(kName.Options().isUnique);
  EXPECT_EQ(kName.Options().collation, "");
}

TEST(FieldTest, KeyIsTheFieldAsPrimaryKey) {
  EXPECT_TRUE(Key("id", &Part::id).Options().isPrimaryKey);
  EXPECT_FALSE(Key("id", &Part::id).Options().isUnique);
  EXPECT_EQ(Key("id", &Part::id).Name(), "id");
  EXPECT_EQ(Key("id", &Part::id).Member(), &Part::id);
  EXPECT_TRUE(kName.PrimaryKey().Options().isPrimaryKey);
  EXPECT_FALSE(kName.Options().isPrimaryKey);
}

TEST(FieldTest, FieldIsAColumnInTerms) {
  EXPECT_EQ((kName == "bolt" && kPrice < 1 && kCode != "ab" && IsNull(kNote)).Text(),
            "(((name = 'bolt') AND (price < 1.0)) AND (code <> 'ab')) AND (note IS NULL)");
  EXPECT_EQ((kName.Unique().Collate("NOCASE") == kNote).Text(), "name = note");
  EXPECT_EQ(In(Key("id", &Part::id), {1, 5}).Text(), "id IN (1, 5)");
  EXPECT_EQ(Between(kPrice, 1, 2).Text(), "price BETWEEN 1.0 AND 2.0");
  EXPECT_EQ(Like(kName, "b%").Text(), "name LIKE 'b%'");
}

TEST(FieldTest, AssignmentIsTheLiteralOfTheValue) {
  EXPECT_EQ(TextOf(Set(kName, "it's")), "name = 'it''s'");
  EXPECT_EQ(TextOf(Set(Key("id", &Part::id), std::numeric_limits<std::int64_t>::min())), "id = -9223372036854775808");
  EXPECT_EQ(TextOf(Set(Field("picture", &Part::picture), Blob{1})), "picture = x'01'");
  EXPECT_EQ(TextOf(Set(kPrice, 1)), "price = 1.0");
  EXPECT_EQ(TextOf(Set(kNote, "text")), "note = 'text'");
  EXPECT_EQ(TextOf(Set(kNote, std::string())), "note = ''");
}

TEST(FieldTest, OptionalFieldIsSetToNullByNulloptOrAnEmptyOptional) {
  EXPECT_EQ(TextOf(Set(kPrice, std::nullopt)), "price = NULL");
  EXPECT_EQ(TextOf(Set(kPrice, std::optional<double>())), "price = NULL");
  EXPECT_EQ(TextOf(Set(kPrice, std::optional<double>(0.5))), "price = 0.5");
  EXPECT_EQ(TextOf(Set(kNote, std::nullopt)), "note = NULL");
}

TEST(FieldTest, AssignedExpressionIsInParentheses) {
  EXPECT_EQ(TextOf(Set(kPrice, TrustedSql{"price * 1.1"})), "price = (price * 1.1)");
  EXPECT_EQ(TextOf(Set(kCode, TrustedSql{"name"})), "code = (name)");
}

TEST(FieldTest, CharactersAreSetToTextsThatFit) {
  const char full[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(TextOf(Set(kCode, "")), "code = ''");
  EXPECT_EQ(TextOf(Set(kCode, "ab")), "code = 'ab'");
  EXPECT_EQ(TextOf(Set(kCode, "abc")), "code = 'abc'");
  EXPECT_EQ(TextOf(Set(kCode, "abcd")), "code = 'abcd'");
  EXPECT_EQ(TextOf(Set(kCode, full)), "code = 'abcd'");
  EXPECT_EQ(TextOf(Set(kCode, std::string("it's"))), "code = 'it''s'");
  EXPECT_EQ(TextOf(Set(kTag, "abcd")), "tag = 'abcd'");
  EXPECT_EQ(TextOf(Set(kTag, std::array<char, 4>{'a', 'b'})), "tag = 'ab'");
}

TEST(FieldTest, CharactersAreNotSetToATextThatIsLonger) {
  constexpr char kMessage[] = "A text is longer than the characters that it is assigned to.";
  const auto messageOf = [](const auto& action) -> std::string {
    try {
      action();
    } catch (const std::length_error& error) {
      return error.what();
    }
    return "(nothing thrown)";
  };
  EXPECT_EQ(messageOf([] { Set(kCode, "abcde"); }), kMessage);
  EXPECT_EQ(messageOf([] { Set(kTag, std::string("abcde")); }), kMessage);
  EXPECT_EQ(messageOf([] { Set(kTag, "abcd"); }), "(nothing thrown)");
}

TEST(FieldTest, AssignmentThrowsWhatTheTypeThrows) {
  EXPECT_THROW(Set(kPrice, std::numeric_limits<double>::quiet_NaN()), std::domain_error);
}

struct Base {
  int inherited;
};
struct Derived : Base {
  int own;
};

TEST(FieldTest, InheritedMemberIsAFieldOfTheDerivedRecord) {
  const Field<Derived, int> field("inherited", &Derived::inherited);
  Derived record{};
  record.*field.Member() = 5;
  EXPECT_EQ(record.inherited, 5);
}

}  // namespace
