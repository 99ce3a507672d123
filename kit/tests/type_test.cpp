#include "sqldb/kit/type.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <sqlite3.h>

#include "encoded_size.h"
#include "kit_test.h"
#include "sqldb/database.h"
#include "sqldb/kit/term.h"
#include "sqldb/term.h"

namespace {

using kit_test::ThrownBy;
using sqldb::kit::Blob;
using sqldb::kit::ConversionError;
using sqldb::kit::Database;
using sqldb::kit::EncodedBytes;
using std::optional;
using ::testing::HasSubstr;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename T>
std::string LiteralOf(const T& value) {
  std::ostringstream text;
  sqldb::kit::Where("?", value).Core()->Print(text);
  // In the parentheses of the term, with a blank before them.
  const std::string sql = text.str();
  return sql.substr(2, sql.size() - 3);
}

Blob AllBytes() {
  Blob bytes;
  for (int byte = 0; byte <= 255; ++byte) bytes.push_back(static_cast<unsigned char>(byte));
  return bytes;
}

// Same bits, so that 0.0 and -0.0 differ.
template <typename Real>
bool SameBits(Real a, Real b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

class TypeTest : public ::testing::Test {
 protected:
  TypeTest() : fDatabase(":memory:") { fDatabase.Execute("CREATE TABLE t (integer_, real_ REAL, text_, blob_)"); }

  // By a parameter, by a literal, and by a column of the type's own affinity.
  template <typename T>
  void ExpectRoundTrip(const T& value, const std::string& storage) {
    EXPECT_EQ((fDatabase.One<T, std::string>("SELECT ?1, typeof(?1)", value)), std::make_tuple(value, storage));
    const std::string literal = LiteralOf(value);
    EXPECT_EQ((fDatabase.One<T, std::string>("SELECT " + literal + ", typeof(" + literal + ")")),
              std::make_tuple(value, storage));
    fDatabase.ExecuteScript(std::string("DROP TABLE t; CREATE TABLE t (v ") + sqldb::kit::detail::Codec<T>::kSql + ")");
    fDatabase.Execute("INSERT INTO t VALUES (?)", value);
    EXPECT_EQ((fDatabase.One<T, std::string>("SELECT v, typeof(v) FROM t")), std::make_tuple(value, storage));
    fDatabase.Execute("UPDATE t SET v = " + literal);
    EXPECT_EQ((fDatabase.One<T, std::string>("SELECT v, typeof(v) FROM t")), std::make_tuple(value, storage));
  }

  template <typename T>
  T ReadFrom(const std::string& expression) {
    return fDatabase.One<T>("SELECT " + expression + " AS c");
  }
  template <typename T>
  std::string UnfitFrom(const std::string& expression) {
    return std::string(ThrownBy<ConversionError>([&] { ReadFrom<T>(expression); }).Message());
  }

  template <typename Integer>
  void ExpectLimits() {
    using Limits = std::numeric_limits<Integer>;
    for (const Integer value : {Limits::min(), Integer{0}, Integer{1}, Limits::max()}) {
      SCOPED_TRACE(std::to_string(value));
      ExpectRoundTrip(value, "integer");
      EXPECT_EQ(LiteralOf(value), std::to_string(value));
    }
  }
  template <typename Integer>
  void ExpectErrorOutside() {
    using Limits = std::numeric_limits<Integer>;
    const auto below = std::to_string(std::int64_t{Limits::min()} - 1);
    const auto above = std::to_string(std::int64_t{Limits::max()} + 1);
    for (const std::string& stored : {below, above, std::string("-9223372036854775808"), std::string("4294967296")}) {
      EXPECT_EQ(UnfitFrom<Integer>(stored), "column c has an integer that does not fit into what it is read into");
    }
  }

  Database fDatabase;
};

// --- Integers --------------------------------------------------------------------------------------------------------

TEST_F(TypeTest, IntegersOfEveryWidthRoundTripAtBothLimits) {
  ExpectLimits<std::int8_t>();
  ExpectLimits<std::uint8_t>();
  ExpectLimits<std::int16_t>();
  ExpectLimits<std::uint16_t>();
  ExpectLimits<std::int32_t>();
  ExpectLimits<std::uint32_t>();
  ExpectLimits<std::int64_t>();
  ExpectLimits<long>();
  ExpectLimits<long long>();
}

TEST_F(TypeTest, IntegerOutsideTheTypeIsAnErrorWhenRead) {
  ExpectErrorOutside<std::int8_t>();
  ExpectErrorOutside<std::uint8_t>();
  ExpectErrorOutside<std::int16_t>();
  ExpectErrorOutside<std::uint16_t>();
  ExpectErrorOutside<std::int32_t>();
  ExpectErrorOutside<std::uint32_t>();
  EXPECT_THAT(UnfitFrom<std::uint64_t>("-1"), HasSubstr("does not fit"));
}

TEST_F(TypeTest, UnsignedIntegersOf64BitsRoundTripUpToTheSignedLimit) {
  constexpr std::uint64_t kLimit = 9223372036854775807U;
  for (const std::uint64_t value : {std::uint64_t{0}, kLimit - 1, kLimit}) ExpectRoundTrip(value, "integer");
  for (const std::uint64_t value : {kLimit + 1, std::uint64_t{18446744073709551615U}}) {
    const auto error = ThrownBy<ConversionError>([&] { fDatabase.One<int>("SELECT ?", value); });
    EXPECT_EQ(error.Message(), "An integer does not fit into 64 bits with a sign.");
    EXPECT_THROW(LiteralOf(value), ConversionError);
  }
}

TEST_F(TypeTest, RealThatIsAnIntegerIsReadAsOne) {
  EXPECT_EQ(ReadFrom<int>("2.0"), 2);
  EXPECT_EQ(ReadFrom<std::int64_t>("-9223372036854775808.0"), std::numeric_limits<std::int64_t>::min());
  for (const char* const other : {"1.5", "-0.5", "9223372036854775808.0", "1e300", "9e999", "-9e999"}) {
    EXPECT_EQ(UnfitFrom<std::int64_t>(other), "column c has a real number that is no integer of 64 bits") << other;
  }
}

TEST_F(TypeTest, BoolIsZeroOrOneAndNothingElse) {
  for (const bool value : {false, true}) ExpectRoundTrip(value, "integer");
  EXPECT_TRUE(ReadFrom<bool>("1.0"));
  EXPECT_EQ(UnfitFrom<bool>("2"), "column c has an integer that is neither 0 nor 1");
  EXPECT_THAT(UnfitFrom<bool>("-1"), HasSubstr("neither 0 nor 1"));
}

// --- Reals -----------------------------------------------------------------------------------------------------------

TEST_F(TypeTest, RealsRoundTripToTheLastBit) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {1.0,
                             -1.0,
                             0.1,
                             -0.1,
                             0.5,
                             1.0 / 3,
                             2.5e-5,
                             1e15,
                             9007199254740991.0,
                             9007199254740992.0,
                             1e22,
                             1e23,
                             123456789012.34567,
                             8.41e21,
                             9.5367431640625e-7,
                             2.2250738585072011e-308,
                             Limits::max(),
                             Limits::lowest(),
                             Limits::min(),
                             -Limits::min(),
                             Limits::denorm_min(),
                             3 * Limits::denorm_min(),
                             kInfinity,
                             -kInfinity}) {
    SCOPED_TRACE(LiteralOf(value));
    ExpectRoundTrip(value, "real");
  }
}

TEST_F(TypeTest, FloatsRoundTripToTheLastBit) {
  using Limits = std::numeric_limits<float>;
  for (const float value : {0.0F, 0.1F, -0.1F, 1.5F, 16777217.0F, Limits::max(), Limits::lowest(), Limits::min(),
                            Limits::denorm_min(), Limits::infinity(), -Limits::infinity()}) {
    ExpectRoundTrip(value, "real");
  }
}

TEST_F(TypeTest, RealThatNoFloatHoldsIsAnError) {
  for (const char* const value : {"0.1", "1e300", "-1e300", "16777217.0"}) {
    EXPECT_EQ(UnfitFrom<float>(value), "column c has a real number that no float holds exactly") << value;
  }
  EXPECT_EQ(ReadFrom<float>("0.25"), 0.25F);
  EXPECT_EQ(ReadFrom<float>("9e999"), std::numeric_limits<float>::infinity());
}

TEST_F(TypeTest, SignOfZeroIsKeptButByATable) {
  EXPECT_TRUE(SameBits(fDatabase.One<double>("SELECT ?", -0.0), -0.0));
  EXPECT_TRUE(SameBits(ReadFrom<double>(LiteralOf(-0.0)), -0.0));
}

TEST_F(TypeTest, NotANumberIsAnErrorRatherThanNull) {
  for (const double value : {kNaN, -kNaN}) {
    EXPECT_EQ(ThrownBy<ConversionError>([&] { fDatabase.One<double>("SELECT ?", value); }).Message(),
              "NaN cannot be stored.");
    EXPECT_THROW(LiteralOf(value), ConversionError);
    EXPECT_THROW(LiteralOf(optional<double>(value)), ConversionError);
    EXPECT_THROW(LiteralOf(static_cast<float>(value)), ConversionError);
  }
}

TEST_F(TypeTest, IntegerIsReadAsARealIfThatHoldsItExactly) {
  EXPECT_EQ(ReadFrom<double>("7"), 7.0);
  EXPECT_EQ(ReadFrom<double>("9007199254740992"), 9007199254740992.0);
  EXPECT_EQ(ReadFrom<double>("9007199254740994"), 9007199254740994.0);
  EXPECT_EQ(ReadFrom<double>("-36028797018963976"), -36028797018963976.0);
  EXPECT_EQ(ReadFrom<double>("9223372036854774784"), 9223372036854774784.0);
  EXPECT_EQ(ReadFrom<double>("-9223372036854775808"), -9223372036854775808.0);
  EXPECT_EQ(UnfitFrom<double>("9007199254740993"), "column c has an integer that no double holds exactly");
  for (const char* const other :
       {"-9007199254740993", "36028797018963972", "9223372036854774783", "9223372036854775807"}) {
    EXPECT_THAT(UnfitFrom<double>(other), HasSubstr("no double holds")) << other;
  }
}

// --- Texts -----------------------------------------------------------------------------------------------------------

TEST_F(TypeTest, TextsOfAnyBytesRoundTrip) {
  for (const std::string& text :
       {std::string(), std::string("a"), std::string("it's"), std::string("''"), std::string("\"`[]\\%_?:1"),
        std::string("a\0b", 3), std::string("\0", 1), std::string("\0\0'\0", 4), std::string("tail\0", 5),
        std::string("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), std::string("\xFF\xFE\xC3"), std::string("\xED\xA0\x80"),
        std::string("\xEF\xBB\xBFmark"), std::string("-- no comment\n/* none"), std::string(100000, '\'')}) {
    ExpectRoundTrip(text, "text");
  }
}

TEST_F(TypeTest, TextIsNoNumberNorIsANumberAText) {
  EXPECT_EQ(UnfitFrom<int>("'2'"), "column c has a text, which cannot be read as an integer");
  EXPECT_EQ(UnfitFrom<double>("'2.5'"), "column c has a text, which cannot be read as a real number");
  EXPECT_EQ(UnfitFrom<std::string>("2"), "column c has an integer, which cannot be read as a text");
  EXPECT_EQ(UnfitFrom<std::string>("2.5"), "column c has a real number, which cannot be read as a text");
  EXPECT_EQ(UnfitFrom<std::string>("x'00'"), "column c has a blob, which cannot be read as a text");
  EXPECT_EQ(UnfitFrom<Blob>("'a'"), "column c has a text, which cannot be read as a blob");
}

TEST_F(TypeTest, ArraysOfCharactersRoundTripFullShorterAndEmpty) {
  using Characters = std::array<char, 4>;
  for (const Characters& value :
       {Characters{'a', 'b', 'c', 'd'}, Characters{'a', 'b'}, Characters{}, Characters{'\'', '\'', '\'', '\''}}) {
    ExpectRoundTrip(value, "text");
  }
  ExpectRoundTrip(std::array<char, 0>{}, "text");
  EXPECT_EQ(fDatabase.One<int>("SELECT length(?)", Characters{'a', 'b'}), 2);
  // What is left there of a longer text is none of it.
  EXPECT_EQ(fDatabase.One<Characters>("SELECT ?", Characters{'a', '\0', 'b'}), (Characters{'a'}));
  EXPECT_EQ(UnfitFrom<Characters>("CAST(x'610062' AS TEXT)"),
            "column c has a text with a zero byte, at which the characters that it is read into would end");
}

struct Coded {
  char code[4];
  static constexpr auto Description() { return sqldb::kit::Describe(sqldb::kit::Field("code", &Coded::code)); }
};

TEST_F(TypeTest, CharactersOfAMemberAreFilledUpWithZeroBytes) {
  const auto code = [&](const char* text) {
    const Coded coded = fDatabase.One<Coded>("SELECT ? AS code", text);
    return std::string(coded.code, 4);
  };
  EXPECT_EQ(code("abcd"), "abcd");
  EXPECT_EQ(code("ab"), std::string("ab\0\0", 4));
  EXPECT_EQ(code(""), std::string(4, '\0'));
  EXPECT_EQ(ThrownBy<ConversionError>([&] { code("abcde"); }).Message(),
            "column code has a text that is longer than the characters that it is read into");
}

// --- Bytes -----------------------------------------------------------------------------------------------------------

TEST_F(TypeTest, BlobsRoundTrip) {
  ExpectRoundTrip(Blob{}, "blob");
  ExpectRoundTrip(Blob{0}, "blob");
  ExpectRoundTrip(AllBytes(), "blob");
}

TEST(EncodedBytesTest, SoManyBytesAreEncodedAsTheirTextCanHold) {
  EXPECT_EQ(sqldb::kit::detail::CountForEncoding(2000000000), 2000000000);
  EXPECT_THROW(sqldb::kit::detail::CountForEncoding(2000000001), std::length_error);
}

TEST_F(TypeTest, EncodedBytesRoundTripInTheirEncoding) {
  for (const EncodedBytes& value : {EncodedBytes{}, EncodedBytes{{0}}, EncodedBytes{AllBytes()}}) {
    ExpectRoundTrip(value, "text");
  }
  EXPECT_EQ(LiteralOf(EncodedBytes{}), "'x'");
  EXPECT_EQ(LiteralOf(EncodedBytes{{'b', 'c'}}),
            "'\x01"
            "ab'");
  EXPECT_EQ(ReadFrom<EncodedBytes>("''"), EncodedBytes{});
  EXPECT_TRUE((EncodedBytes{{1, 2}} != EncodedBytes{{1}}));
}

// --- NULL ------------------------------------------------------------------------------------------------------------

TEST_F(TypeTest, OptionalOfEveryTypeTellsNullFromZeroAndEmpty) {
  const auto expect = [this](const auto& nothing, const char* storage) {
    using Optional = std::decay_t<decltype(nothing)>;
    ExpectRoundTrip(Optional(), "null");
    ExpectRoundTrip(nothing, storage);
    EXPECT_EQ(LiteralOf(Optional()), "NULL");
  };
  expect(optional<std::int8_t>(std::int8_t{0}), "integer");
  expect(optional<std::uint64_t>(0U), "integer");
  expect(optional<bool>(false), "integer");
  expect(optional<float>(0.0F), "real");
  expect(optional<double>(0.0), "real");
  expect(optional<std::string>(""), "text");
  expect(optional<std::array<char, 3>>(std::array<char, 3>{}), "text");
  expect(optional<Blob>(Blob{}), "blob");
  expect(optional<EncodedBytes>(EncodedBytes{}), "text");
}

TEST_F(TypeTest, NullIsAnErrorForWhatIsNotOptional) {
  EXPECT_EQ(UnfitFrom<int>("NULL"), "column c has NULL, which cannot be read as an integer");
  EXPECT_EQ(UnfitFrom<bool>("NULL"), "column c has NULL, which cannot be read as an integer");
  EXPECT_EQ(UnfitFrom<double>("NULL"), "column c has NULL, which cannot be read as a real number");
  EXPECT_EQ(UnfitFrom<float>("NULL"), "column c has NULL, which cannot be read as a real number");
  EXPECT_EQ(UnfitFrom<std::string>("NULL"), "column c has NULL, which cannot be read as a text");
  EXPECT_EQ((UnfitFrom<std::array<char, 2>>("NULL")), "column c has NULL, which cannot be read as a text");
  EXPECT_EQ(UnfitFrom<Blob>("NULL"), "column c has NULL, which cannot be read as a blob");
  EXPECT_EQ(UnfitFrom<EncodedBytes>("NULL"), "column c has NULL, which cannot be read as a text");
}

TEST_F(TypeTest, OptionalPassesOnWhatItsTypeThrows) {
  EXPECT_THAT(UnfitFrom<optional<std::int8_t>>("128"), HasSubstr("does not fit"));
  EXPECT_THAT(UnfitFrom<optional<int>>("'a'"), HasSubstr("a text"));
}

// --- Types of the application ----------------------------------------------------------------------------------------

enum class Colour { kRed = 1, kGreen = 2 };
enum class Wide : std::uint64_t { kNone = 0, kAll = 18446744073709551615U };
struct Maybe {
  bool isThere = false;
  int number = 0;
};
struct UnknownColour {};

}  // namespace

template <>
struct sqldb::kit::Type<Colour> {
  using Stored = std::string;
  static Stored Store(Colour colour) { return colour == Colour::kRed ? "red" : "green"; }
  static Colour Load(const Stored& stored) {
    if (stored != "red" && stored != "green") throw UnknownColour();
    return stored == "red" ? Colour::kRed : Colour::kGreen;
  }
};

template <>
struct sqldb::kit::Type<Wide> {
  using Stored = std::uint64_t;
  static Stored Store(Wide wide) { return static_cast<Stored>(wide); }
  static Wide Load(Stored stored) { return static_cast<Wide>(stored); }
};

template <>
struct sqldb::kit::Type<Maybe> {
  using Stored = std::optional<int>;
  static Stored Store(const Maybe& maybe) { return maybe.isThere ? Stored(maybe.number) : std::nullopt; }
  static Maybe Load(const Stored& stored) { return Maybe{stored.has_value(), stored.value_or(0)}; }
};

namespace {

TEST_F(TypeTest, ApplicationSaysWhatItsTypeIsStoredAs) {
  ExpectRoundTrip(Colour::kGreen, "text");
  ExpectRoundTrip(optional<Colour>(), "null");
  ExpectRoundTrip(optional<Colour>(Colour::kRed), "text");
  EXPECT_EQ(LiteralOf(Colour::kRed), "'red'");
  auto rows = fDatabase.Query<std::string>("SELECT ?", Colour::kRed);
  EXPECT_EQ(*rows.begin(), "red");
}

TEST_F(TypeTest, WhatATypeThrowsPasses) { EXPECT_THROW(ReadFrom<Colour>("'blue'"), UnknownColour); }

TEST_F(TypeTest, EnumeratorBeyond64BitsWithASignIsAnErrorRatherThanNegative) {
  EXPECT_EQ(fDatabase.One<Wide>("SELECT ?", Wide::kNone), Wide::kNone);
  EXPECT_THROW(fDatabase.One<Wide>("SELECT ?", Wide::kAll), ConversionError);
}

TEST_F(TypeTest, TypeMayBeStoredAsNull) {
  EXPECT_EQ(fDatabase.One<std::string>("SELECT typeof(?)", Maybe{}), "null");
  EXPECT_FALSE(ReadFrom<Maybe>("NULL").isThere);
  EXPECT_EQ(ReadFrom<Maybe>("7").number, 7);
}

// --- Any values, bound and as literals -------------------------------------------------------------------------------

// The same numbers in every run, so that a failure comes back.
class AnyValuesTest : public ::testing::Test {
 protected:
  AnyValuesTest() : fDatabase(":memory:"), fGenerator(20240229) {}

  std::uint64_t Below(std::uint64_t limit) { return fGenerator() % limit; }

  // Each is written both ways, and comes back as it was both times, as one and the same value to SQLite.
  template <typename T>
  void ExpectBothWays(const std::vector<T>& values) {
    auto bound = fDatabase.Prepare("SELECT ?");
    std::size_t different = 0;
    for (const T& value : values) {
      const std::string literal = LiteralOf(value);
      sqlite3_stmt* statement = nullptr;
      ASSERT_EQ(
          sqlite3_prepare_v2(fDatabase.Core().fConnection, ("SELECT " + literal).c_str(), -1, &statement, nullptr),
          SQLITE_OK);
      ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
      T written{};
      sqldb::kit::detail::Codec<T>::Load(sqldb::kit::detail::ColumnOf(statement, 0), written);
      sqlite3_finalize(statement);
      if (IsSame(written, value) && IsSame(bound.One<T>(value), value)) continue;
      if (++different <= 10) ADD_FAILURE() << literal << " comes back as " << LiteralOf(written);
    }
    EXPECT_EQ(different, 0U);
  }

  template <typename T>
  static bool IsSame(const T& a, const T& b) {
    return a == b;
  }
  static bool IsSame(double a, double b) { return SameBits(a, b); }

  double AnyReal() {
    const std::uint64_t bits = fGenerator();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return std::isnan(value) ? AnyReal() : value;
  }
  // Up to some forty pieces of what a careless literal trips over.
  std::string AnyText() {
    using namespace std::string_literals;
    static const std::vector<std::string> kPieces = {"'"s,
                                                     "''"s,
                                                     "\""s,
                                                     "\0"s,
                                                     "\\"s,
                                                     "\\'"s,
                                                     "%"s,
                                                     "_"s,
                                                     ";"s,
                                                     "--"s,
                                                     "/*"s,
                                                     "*/"s,
                                                     "?1"s,
                                                     ":1"s,
                                                     "x'00'"s,
                                                     "`"s,
                                                     "]"s,
                                                     "\n"s,
                                                     "\x1A"s,
                                                     "\xC3"s,
                                                     "\xC3\xA4"s,
                                                     "\xE2\x82"s,
                                                     "\xF0\x9F\x98\x80"s,
                                                     "\xFF"s,
                                                     "\xEF\xBB\xBF"s,
                                                     "\xED\xA0\x80"s,
                                                     "a"s};
    std::string text;
    for (auto left = Below(8) * Below(6); left > 0; --left)
      text += kPieces[static_cast<std::size_t>(Below(kPieces.size()))];
    if (Below(4) == 0) text += static_cast<char>(fGenerator());
    return text;
  }

  Database fDatabase;
  std::mt19937_64 fGenerator;
};

TEST_F(AnyValuesTest, IntegersComeBackAsTheyWere) {
  std::vector<std::int64_t> values;
  for (int bit = 0; bit < 63; ++bit) {
    const std::int64_t power = std::int64_t{1} << bit;
    values.insert(values.end(), {power - 1, power, power + 1, -power - 1, -power, 1 - power});
  }
  while (values.size() < 5000) values.push_back(static_cast<std::int64_t>(fGenerator()) >> Below(64));
  ExpectBothWays(values);
}

TEST_F(AnyValuesTest, RealsComeBackAsTheyWere) {
  std::vector<double> values = {0.0, -0.0};
  while (values.size() < 10000) values.push_back(AnyReal());
  for (int exponent = -1074; exponent <= 1023; ++exponent) values.push_back(std::ldexp(1.0, exponent));
  for (int exponent = -323; exponent <= 308; ++exponent) values.push_back(std::pow(10.0, exponent));
  ExpectBothWays(values);
}

// Digits and places as people write them, around the number of places where the literal's form changes.
TEST_F(AnyValuesTest, DecimalsComeBackAsTheyWere) {
  std::vector<double> values;
  while (values.size() < 10000) {
    const std::uint64_t digits = fGenerator() >> Below(64);
    values.push_back(static_cast<double>(digits % 100000000000000000U) / std::pow(10.0, static_cast<double>(Below(8))));
  }
  ExpectBothWays(values);
}

TEST_F(AnyValuesTest, TextsAndBlobsComeBackAsTheyWere) {
  std::vector<std::string> texts = {"", "'", std::string(1, '\0')};
  for (int byte = 0; byte < 256; ++byte) texts.emplace_back(1, static_cast<char>(byte));
  while (texts.size() < 5000) texts.push_back(AnyText());
  ExpectBothWays(texts);
  std::vector<Blob> blobs;
  std::vector<EncodedBytes> encoded;
  for (const std::string& text : texts) {
    blobs.emplace_back(text.begin(), text.end());
    encoded.push_back(EncodedBytes{blobs.back()});
  }
  ExpectBothWays(blobs);
  ExpectBothWays(encoded);
}

TEST(AnyValues, LiteralStandsAsAnOperand) {
  Database database(":memory:");
  EXPECT_EQ(database.One<double>("SELECT 8 / " + LiteralOf(std::ldexp(1.0, 60))), std::ldexp(1.0, -57));
  EXPECT_EQ(database.One<double>("SELECT 1 - " + LiteralOf(-0.5)), 1.5);
  EXPECT_EQ(database.One<double>("SELECT 1 - " + LiteralOf(-kInfinity)), kInfinity);
}

TEST(AnyValues, LiteralsAreWhatTheyAlwaysWere) {
  EXPECT_EQ(LiteralOf(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(LiteralOf(0.1), "0.1");
  EXPECT_EQ(LiteralOf(-0.0), "-0.0");
  EXPECT_EQ(LiteralOf(-2.0), "-2.0");
  EXPECT_EQ(LiteralOf(-12345678901.2345), "-12345678901.2345");
  EXPECT_EQ(LiteralOf(123456789012.3456), "(8090864124713081*1.0/65536.0)");
  EXPECT_EQ(LiteralOf(0.00001), "(5902958103587057*1.0/4611686018427387904.0/128.0)");
  EXPECT_EQ(LiteralOf(-0.00001), "-(5902958103587057*1.0/4611686018427387904.0/128.0)");
  EXPECT_EQ(LiteralOf(9007199254740992.0), "(4503599627370496*1.0*2.0)");
  EXPECT_EQ(LiteralOf(kInfinity), "9e999");
  EXPECT_EQ(LiteralOf(std::string("'it''s'")), "'''it''''s'''");
  EXPECT_EQ(LiteralOf(std::string("a\0'\xFF", 4)), "+CAST(x'610027FF' AS TEXT)");
  EXPECT_EQ(LiteralOf(Blob{0x00, 0x0F, 0xA0, 0xFF, 0x27}), "x'000FA0FF27'");
}

}  // namespace
