#include "sqldb/kit/types.h"

#include <array>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "one_row.h"
#include "sqldb/kit/table.h"
#include "support/fixtures.h"

namespace {

using sqldb::kit::Blob;
using sqldb::kit::Column;
using sqldb::kit::ColumnOptions;
using sqldb::kit::EncodedBytes;
using sqldb::kit::Field;
using sqldb::kit::kIsOptional;
using sqldb::kit::Table;
using sqldb::kit::Type;
using sqldb::kit::WithoutOptional;
using std::optional;
using support::MessageOf;
using support::OneRow;

static_assert(std::is_same_v<WithoutOptional<int>::type, int>);
static_assert(std::is_same_v<WithoutOptional<optional<int>>::type, int>);
static_assert(!kIsOptional<int> && !kIsOptional<std::string> && !kIsOptional<char[4]>);
static_assert(kIsOptional<optional<int>> && kIsOptional<optional<std::string>>);

// Whether Type<T> is defined.
template <typename T, typename = void>
constexpr bool kIsStored = false;
template <typename T>
constexpr bool kIsStored<T, std::void_t<decltype(Type<T>::kSql)>> = true;

static_assert(kIsStored<short> && kIsStored<int> && kIsStored<long long> && kIsStored<unsigned long long>);
static_assert(kIsStored<signed char> && kIsStored<unsigned char> && kIsStored<char[1]>);
static_assert(!kIsStored<char> && !kIsStored<wchar_t> && !kIsStored<char16_t> && !kIsStored<char32_t>);
#ifdef __cpp_char8_t
static_assert(!kIsStored<char8_t>);
#endif
static_assert(!kIsStored<long double> && !kIsStored<const char*> && !kIsStored<std::wstring>);

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

constexpr char kTooWide[] = "An integer does not fit into 64 bits with a sign.";
constexpr char kTooWideToRead[] = "An integer does not fit into what it is read into.";
constexpr char kTooLong[] = "A text is longer than the characters that it is read into.";
constexpr char kNotANumber[] = "NaN cannot be stored.";

// Same bits, so that 0.0 and -0.0 differ.
template <typename Real>
bool SameBits(Real a, Real b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

Blob AllBytes() {
  Blob bytes;
  for (int byte = 0; byte <= 255; ++byte) bytes.push_back(static_cast<unsigned char>(byte));
  return bytes;
}

class TypesTest : public support::DatabaseTest {
 protected:
  TypesTest() { fDatabase.SetSynchronizationLevel(false); }

  template <typename T>
  T ByBind(const T& value, const std::string& storage) {
    OneRow row(fDatabase.fConnection, "SELECT ?1, typeof(?1)");
    row.Bind(1, value);
    row.Step();
    EXPECT_EQ(row.Read<std::string>(1), storage);
    return row.Read<T>();
  }

  template <typename T>
  T ByLiteral(const T& value, const std::string& storage) {
    const std::string literal = Type<T>::Literal(value);
    OneRow row(fDatabase.fConnection, "SELECT " + literal + ", typeof(" + literal + ")");
    row.Step();
    EXPECT_EQ(row.Read<std::string>(1), storage) << literal;
    return row.Read<T>();
  }

  // By a column of a table, into which the value is inserted, and once more after an update, which writes literals.
  // Not by a table of records, which would be compiled anew for every type.
  template <typename T>
  T ByColumn(const T& value, const std::string& storage) {
    const std::string name = "t" + std::to_string(++fTables);
    const auto table = fDatabase.NewTable(name);
    const boost::shared_ptr<sqldb::SQLColumnBase> column = boost::make_shared<Column<T>>("value");
    table->AddColumn(column);
    table->Create();
    Insert(*table, column, boost::make_shared<sqldb::kit::BoundValue<T>>(value));
    EXPECT_EQ(Rows("SELECT typeof(value) FROM " + name).at(0), storage);
    T inserted{};
    ReadFirst(*table, *column, &inserted);
    Rows("UPDATE " + name + " SET value = " + Type<T>::Literal(value));
    T updated{};
    ReadFirst(*table, *column, &updated);
    EXPECT_EQ(updated, inserted);
    return inserted;
  }

  template <typename T>
  void ExpectRoundTrip(const T& value, const std::string& storage) {
    EXPECT_EQ(ByBind(value, storage), value);
    EXPECT_EQ(ByLiteral(value, storage), value);
    EXPECT_EQ(ByColumn(value, storage), value);
  }

  // What a T becomes that is read from the value of an expression.
  template <typename T>
  T ReadFrom(const std::string& expression) {
    OneRow row(fDatabase.fConnection, "SELECT " + expression);
    row.Step();
    return row.Read<T>();
  }

  template <typename Integer>
  void ExpectLimitsRoundTrip() {
    using Limits = std::numeric_limits<Integer>;
    for (const Integer value : {Limits::min(), Integer{0}, Integer{1}, Limits::max()}) {
      SCOPED_TRACE(std::to_string(value));
      ExpectRoundTrip(value, "integer");
      EXPECT_EQ(Type<Integer>::Literal(value), std::to_string(value));
    }
  }

  // For the types that are narrower than what SQLite stores.
  template <typename Integer>
  void ExpectRangeError() {
    using Limits = std::numeric_limits<Integer>;
    const auto below = std::to_string(std::int64_t{Limits::min()} - 1);
    const auto above = std::to_string(std::int64_t{Limits::max()} + 1);
    for (const std::string& stored : {below, above, std::string("-9223372036854775808"), std::string("4294967296")}) {
      SCOPED_TRACE(stored);
      EXPECT_THROW(ReadFrom<Integer>(stored), std::range_error);
      EXPECT_EQ(MessageOf([&] { ReadFrom<Integer>(stored); }), kTooWideToRead);
    }
  }

 private:
  // Assigns the column of the first row.
  class FirstRow : public sqldb::QueryCallback {
   public:
    FirstRow(const sqldb::SQLColumnBase& column, void* destination) : fColumn(column), fDestination(destination) {}
    bool ProcessRow(sqlite3_stmt* statement) override {
      fColumn.AssignTo(fDestination, statement, 0);
      return false;
    }

   private:
    const sqldb::SQLColumnBase& fColumn;
    void* fDestination;
  };

  void Insert(sqldb::SQLTableClass& table, const boost::shared_ptr<sqldb::SQLColumnBase>& column,
              const boost::shared_ptr<sqldb::SQLValueBase>& value) {
    const auto insert = table.NewInsert();
    insert->fColumns = {column};
    insert->fValues = {value};
    insert->PerformInsert(true);
  }

  void ReadFirst(const sqldb::SQLTableClass& table, const sqldb::SQLColumnBase& column, void* destination) {
    FirstRow row(column, destination);
    fDatabase.SendQuery("SELECT value FROM " + table.fName, &row, nullptr);
  }

  int fTables = 0;
};

TEST_F(TypesTest, EveryTypeHasItsSqlType) {
  EXPECT_STREQ(Type<std::int8_t>::kSql, "INTEGER");
  EXPECT_STREQ(Type<std::uint64_t>::kSql, "INTEGER");
  EXPECT_STREQ(Type<bool>::kSql, "INTEGER");
  EXPECT_STREQ(Type<float>::kSql, "REAL");
  EXPECT_STREQ(Type<double>::kSql, "REAL");
  EXPECT_STREQ(Type<std::string>::kSql, "TEXT");
  EXPECT_STREQ(Type<char[4]>::kSql, "TEXT");
  EXPECT_STREQ((Type<std::array<char, 4>>::kSql), "TEXT");
  EXPECT_STREQ(Type<Blob>::kSql, "BLOB");
  EXPECT_STREQ(Type<EncodedBytes>::kSql, "TEXT");
  EXPECT_STREQ(Type<optional<double>>::kSql, "REAL");
  EXPECT_STREQ(Type<optional<Blob>>::kSql, "BLOB");
}

// --- Columns ---------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, ColumnIsOfTheTypesSqlTypeAndSizeAndNotNull) {
  const Column<std::int16_t> column("n");
  EXPECT_EQ(column.fName, "n");
  EXPECT_EQ(column.fTable, nullptr);
  EXPECT_EQ(column.fSize, 2U);
  EXPECT_EQ(column.GetSpecAsString(), "INTEGER NOT NULL");
  EXPECT_EQ(column.IAmAKindOf(), "Column");
}

TEST_F(TypesTest, ColumnOfAnOptionalTypeTakesNull) {
  EXPECT_EQ(Column<optional<std::string>>("n").GetSpecAsString(), "TEXT");
}

TEST_F(TypesTest, ColumnHasItsOptions) {
  EXPECT_EQ(Column<std::string>("n", {false, true, ""}).GetSpecAsString(), "TEXT NOT NULL UNIQUE");
  EXPECT_EQ(Column<std::string>("n", {true, false, ""}).GetSpecAsString(), "TEXT NOT NULL PRIMARY KEY");
  EXPECT_EQ(Column<std::string>("n", {false, false, "NOCASE"}).GetSpecAsString(), "TEXT NOT NULL COLLATE NOCASE");
}

TEST_F(TypesTest, ColumnAssignsToItsTypeAtTheDestination) {
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, "SELECT 1, 'text'", -1, &statement, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  std::string text;
  Column<std::string>("n").AssignTo(&text, statement, 1);
  EXPECT_EQ(text, "text");
  optional<int> number;
  Column<optional<int>>("n").AssignTo(&number, statement, 0);
  EXPECT_EQ(number, 1);
  sqlite3_finalize(statement);
}

// --- Integers --------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, IntegersOfEveryWidthRoundTripAtBothLimits) {
  ExpectLimitsRoundTrip<std::int8_t>();
  ExpectLimitsRoundTrip<std::uint8_t>();
  ExpectLimitsRoundTrip<std::int16_t>();
  ExpectLimitsRoundTrip<std::uint16_t>();
  ExpectLimitsRoundTrip<std::int32_t>();
  ExpectLimitsRoundTrip<std::uint32_t>();
  ExpectLimitsRoundTrip<std::int64_t>();
  ExpectLimitsRoundTrip<long>();
  ExpectLimitsRoundTrip<long long>();
}

TEST_F(TypesTest, SmallestIntegerHasALiteralOfItsOwn) {
  EXPECT_EQ(Type<std::int64_t>::Literal(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST_F(TypesTest, IntegerOutsideTheTypeIsARangeErrorWhenRead) {
  ExpectRangeError<std::int8_t>();
  ExpectRangeError<std::uint8_t>();
  ExpectRangeError<std::int16_t>();
  ExpectRangeError<std::uint16_t>();
  ExpectRangeError<std::int32_t>();
  ExpectRangeError<std::uint32_t>();
}

TEST_F(TypesTest, UnsignedIntegersOf64BitsRoundTripUpToTheSignedLimit) {
  constexpr std::uint64_t kLimit = 9223372036854775807U;
  for (const std::uint64_t value : {std::uint64_t{0}, kLimit - 1, kLimit}) ExpectRoundTrip(value, "integer");
}

TEST_F(TypesTest, UnsignedIntegerBeyond64BitsWithASignIsARangeErrorAndNothingIsBound) {
  for (const std::uint64_t value : {std::uint64_t{9223372036854775808U}, std::uint64_t{18446744073709551615U}}) {
    EXPECT_THROW(Type<std::uint64_t>::Literal(value), std::range_error);
    EXPECT_EQ(MessageOf([&] { Type<std::uint64_t>::Literal(value); }), kTooWide);
    EXPECT_THROW(ByBind(value, "null"), std::range_error);
    EXPECT_EQ(MessageOf([&] { ByBind(value, "null"); }), kTooWide);
  }
}

TEST_F(TypesTest, NegativeIntegerIsARangeErrorWhenReadIntoAnUnsignedOneOf64Bits) {
  EXPECT_THROW(ReadFrom<std::uint64_t>("-1"), std::range_error);
  EXPECT_THROW(ReadFrom<std::uint64_t>("-9223372036854775808"), std::range_error);
  EXPECT_EQ(MessageOf([&] { ReadFrom<std::uint64_t>("-1"); }), kTooWideToRead);
}

TEST_F(TypesTest, IntegerKeepsItsValueWhenTheReadFails) {
  OneRow row(fDatabase.fConnection, "SELECT 300");
  row.Step();
  std::int8_t value = 7;
  EXPECT_THROW(row.ReadInto(value), std::range_error);
  EXPECT_EQ(value, 7);
}

TEST_F(TypesTest, BoolIsOneOrZeroAndReadsEverythingButZeroAsTrue) {
  for (const bool value : {false, true}) ExpectRoundTrip(value, "integer");
  EXPECT_EQ(Type<bool>::Literal(false), "0");
  EXPECT_EQ(Type<bool>::Literal(true), "1");
  EXPECT_TRUE(ReadFrom<bool>("2"));
  EXPECT_TRUE(ReadFrom<bool>("-1"));
  EXPECT_TRUE(ReadFrom<bool>("4294967296"));
}

// --- Reals -----------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, RealsRoundTripToTheLastBit) {
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
                             9007199254740993.0,
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
                             -Limits::denorm_min(),
                             Limits::min() - Limits::denorm_min(),
                             3 * Limits::denorm_min(),
                             kInfinity,
                             -kInfinity}) {
    SCOPED_TRACE(Type<double>::Literal(value));
    ExpectRoundTrip(value, "real");
  }
}

TEST_F(TypesTest, FloatsRoundTripToTheLastBit) {
  using Limits = std::numeric_limits<float>;
  for (const float value : {0.0F, 0.1F, -0.1F, 1.5F, 16777217.0F, Limits::max(), Limits::lowest(), Limits::min(),
                            Limits::denorm_min(), Limits::infinity(), -Limits::infinity()}) {
    SCOPED_TRACE(Type<float>::Literal(value));
    ExpectRoundTrip(value, "real");
  }
}

TEST_F(TypesTest, ZeroRoundTripsAndATableDropsItsSign) {
  ExpectRoundTrip(0.0, "real");
  EXPECT_TRUE(SameBits(ByBind(-0.0, "real"), -0.0));
  EXPECT_TRUE(SameBits(ByLiteral(-0.0, "real"), -0.0));
  EXPECT_TRUE(SameBits(ByColumn(-0.0, "real"), 0.0));
}

TEST_F(TypesTest, NotANumberIsADomainErrorBoundOrAsALiteral) {
  for (const double value : {kNaN, -kNaN}) {
    EXPECT_THROW(Type<double>::Literal(value), std::domain_error);
    EXPECT_THROW(ByBind(value, "null"), std::domain_error);
  }
  const auto whatOf = [](const auto& action) -> std::string {
    try {
      action();
    } catch (const std::domain_error& error) {
      return error.what();
    }
    return "(nothing thrown)";
  };
  EXPECT_EQ(whatOf([] { Type<double>::Literal(kNaN); }), kNotANumber);
  EXPECT_EQ(whatOf([this] { ByBind(kNaN, "null"); }), kNotANumber);
  EXPECT_EQ(whatOf([] { Type<float>::Literal(std::numeric_limits<float>::quiet_NaN()); }), kNotANumber);
  EXPECT_EQ(whatOf([this] { ByBind(std::numeric_limits<float>::quiet_NaN(), "null"); }), kNotANumber);
}

TEST_F(TypesTest, RealLiteralIsADecimalWhereThatIsExact) {
  EXPECT_EQ(Type<double>::Literal(0.0), "0.0");
  EXPECT_EQ(Type<double>::Literal(-0.0), "-0.0");
  EXPECT_EQ(Type<double>::Literal(1.0), "1.0");
  EXPECT_EQ(Type<double>::Literal(-2.0), "-2.0");
  EXPECT_EQ(Type<double>::Literal(0.1), "0.1");
  EXPECT_EQ(Type<double>::Literal(-19.99), "-19.99");
  EXPECT_EQ(Type<double>::Literal(0.0001), "0.0001");
  EXPECT_EQ(Type<double>::Literal(9007199254740991.0), "9007199254740991.0");
  EXPECT_EQ(Type<double>::Literal(12345678901.2345), "12345678901.2345");
  EXPECT_EQ(Type<double>::Literal(-99999999999999.9), "-99999999999999.9");
  EXPECT_EQ(Type<float>::Literal(0.25F), "0.25");
}

TEST_F(TypesTest, RealLiteralIsAProductOrQuotientElsewhere) {
  EXPECT_EQ(Type<double>::Literal(0.00001), "(5902958103587057*1.0/4611686018427387904.0/128.0)");
  EXPECT_EQ(Type<double>::Literal(3764275380523.3853), "(7709235979311893*1.0/2048.0)");
  EXPECT_EQ(Type<double>::Literal(123456789012.3456), "(8090864124713081*1.0/65536.0)");
  EXPECT_EQ(Type<double>::Literal(-123456789012.3456), "(-8090864124713081*1.0/65536.0)");
  EXPECT_EQ(Type<double>::Literal(9007199254740992.0), "(4503599627370496*1.0*2.0)");
  EXPECT_EQ(Type<double>::Literal(-9007199254740992.0), "(-4503599627370496*1.0*2.0)");
  EXPECT_EQ(Type<double>::Literal(std::ldexp(1.0, 53 + 62)), "(4503599627370496*1.0*4611686018427387904.0*2.0)");
  EXPECT_EQ(Type<double>::Literal(std::ldexp(1.0, 52 + 62)), "(4503599627370496*1.0*4611686018427387904.0)");
  EXPECT_EQ(Type<float>::Literal(0.1F), "(7205759511166976*1.0/72057594037927936.0)");
}

TEST_F(TypesTest, InfinityHasALiteral) {
  EXPECT_EQ(Type<double>::Literal(kInfinity), "9e999");
  EXPECT_EQ(Type<double>::Literal(-kInfinity), "-9e999");
}

TEST_F(TypesTest, RealLiteralStandsAsAnOperand) {
  EXPECT_EQ(ReadFrom<double>("8 / " + Type<double>::Literal(std::ldexp(1.0, 60))), std::ldexp(1.0, -57));
  EXPECT_EQ(ReadFrom<double>("1 - " + Type<double>::Literal(-0.5)), 1.5);
  EXPECT_EQ(ReadFrom<double>("1 - " + Type<double>::Literal(-kInfinity)), kInfinity);
}

TEST_F(TypesTest, LiteralsOfRealsDoNotDependOnTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* const name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  }
  EXPECT_EQ(Type<double>::Literal(0.5), "0.5");
  EXPECT_EQ(Type<double>::Literal(9007199254740992.0), "(4503599627370496*1.0*2.0)");
  std::setlocale(LC_ALL, before.c_str());
}

// --- Texts -----------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, TextsOfAnyBytesRoundTrip) {
  for (const std::string& text :
       {std::string(), std::string("a"), std::string("it's"), std::string("'"), std::string("''"),
        std::string("\"`[]\\%_?:1"), std::string("a\0b", 3), std::string("\0", 1), std::string("\0\0'\0", 4),
        std::string("tail\0", 5), std::string("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), std::string("\xFF\xFE\xC3"),
        std::string("\xED\xA0\x80"), std::string("\xEF\xBB\xBFmark"), std::string("-- no comment\n/* none"),
        std::string(100000, '\'')}) {
    ExpectRoundTrip(text, "text");
  }
}

TEST_F(TypesTest, TextLiteralDoublesItsQuotes) {
  EXPECT_EQ(Type<std::string>::Literal(""), "''");
  EXPECT_EQ(Type<std::string>::Literal("a"), "'a'");
  EXPECT_EQ(Type<std::string>::Literal("'it''s'"), "'''it''''s'''");
}

TEST_F(TypesTest, TextLiteralGoesByWayOfABlobWhereAZeroByteIs) {
  EXPECT_EQ(Type<std::string>::Literal(std::string("a\0'\xFF", 4)), "CAST(x'610027FF' AS TEXT)");
}

TEST_F(TypesTest, FullArrayNeedsNoZeroByteBehindIt) {
  const std::array<char, 3> full = {'a', 'b', 'c'};
  EXPECT_EQ((Type<std::array<char, 3>>::Literal(full)), "'abc'");
  EXPECT_EQ((ByBind(full, "text")), full);
}

template <std::size_t N>
bool SameCharacters(const char (&characters)[N], const char* expected) {
  return std::memcmp(characters, expected, N) == 0;
}

struct Coded {
  char code[4];
};

TEST_F(TypesTest, ArrayOfCharactersRoundTripsFullShorterAndEmpty) {
  Table<Coded> table(fDatabase, "t", Field("code", &Coded::code));
  table.Create();
  for (const char* const bytes : {"abcd", "ab\0\0", "\0\0\0\0", "a\0b\0", "\0\0\0d", "'''\0"}) {
    Coded record;
    std::memcpy(record.code, bytes, 4);
    table.DeleteAll();
    table.Insert(record);
    EXPECT_EQ(Rows("SELECT typeof(code) FROM t").at(0), "text");
    EXPECT_TRUE(SameCharacters(table.Select().First().value().code, bytes));
    Rows("UPDATE t SET code = " + Type<char[4]>::Literal(record.code));
    EXPECT_TRUE(SameCharacters(table.Select().First().value().code, bytes));
    std::memset(record.code, '#', 4);
    OneRow row(fDatabase.fConnection, "SELECT code FROM t");
    row.Step();
    row.ReadInto(record.code);
    EXPECT_TRUE(SameCharacters(record.code, bytes));
  }
}

TEST_F(TypesTest, ArrayOfCharactersIsStoredWithoutTheZeroBytesAtItsEnd) {
  EXPECT_EQ(Type<char[4]>::Literal({'a', 'b', '\0', '\0'}), "'ab'");
  EXPECT_EQ(Type<char[4]>::Literal({'a', '\0', 'b', '\0'}), "CAST(x'610062' AS TEXT)");
  EXPECT_EQ(Type<char[4]>::Literal({'\0', '\0', '\0', '\0'}), "''");
  EXPECT_EQ((Type<std::array<char, 4>>::Literal({'a', 'b', '\0', '\0'})), "'ab'");
  OneRow row(fDatabase.fConnection, "SELECT ?1, ?2");
  row.Bind<char[4]>(1, {'a', 'b', '\0', '\0'});
  row.Bind<std::array<char, 4>>(2, {'\0', '\0', '\0', '\0'});
  row.Step();
  EXPECT_EQ(row.Read<std::string>(0), "ab");
  EXPECT_EQ(row.Read<optional<std::string>>(1), "");
}

TEST_F(TypesTest, StandardArrayOfCharactersRoundTrips) {
  using Characters = std::array<char, 4>;
  for (const Characters& value : {Characters{'a', 'b', 'c', 'd'}, Characters{'a', 'b'}, Characters{},
                                  Characters{'a', '\0', 'b'}, Characters{'\'', '\'', '\'', '\''}}) {
    ExpectRoundTrip(value, "text");
  }
  ExpectRoundTrip(std::array<char, 0>{}, "text");
}

TEST_F(TypesTest, TextThatIsTooLongForTheCharactersIsALengthErrorWhenRead) {
  OneRow row(fDatabase.fConnection, "SELECT 'abcde'");
  row.Step();
  char code[4] = {'k', 'e', 'p', 't'};
  std::array<char, 4> array = {'k', 'e', 'p', 't'};
  EXPECT_THROW(row.ReadInto(code), std::length_error);
  EXPECT_THROW(row.ReadInto(array), std::length_error);
  EXPECT_TRUE(SameCharacters(code, "kept"));
  EXPECT_EQ(array, (std::array<char, 4>{'k', 'e', 'p', 't'}));
  try {
    row.ReadInto(code);
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(), kTooLong);
  }
}

// --- Bytes -----------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, BlobsRoundTrip) {
  ExpectRoundTrip(Blob{}, "blob");
  ExpectRoundTrip(Blob{0}, "blob");
  ExpectRoundTrip(AllBytes(), "blob");
}

TEST_F(TypesTest, BlobReplacesWhatItIsReadInto) {
  OneRow row(fDatabase.fConnection, "SELECT x'0102', x''");
  row.Step();
  Blob value = AllBytes();
  row.ReadInto(value, 0);
  EXPECT_EQ(value, (Blob{1, 2}));
  row.ReadInto(value, 1);
  EXPECT_EQ(value, Blob{});
}

TEST_F(TypesTest, BlobLiteralIsHexadecimal) {
  EXPECT_EQ(Type<Blob>::Literal({}), "x''");
  EXPECT_EQ(Type<Blob>::Literal({0x00, 0x0F, 0xA0, 0xFF, 0x27}), "x'000FA0FF27'");
}

TEST(EncodedBytesTest, AreAsManyAsTheEncodingCanCount) {
  EXPECT_EQ(sqldb::kit::detail::EncodableSize(2000000000), 2000000000);
  EXPECT_THAT([] { sqldb::kit::detail::EncodableSize(2000000001); },
              ::testing::ThrowsMessage<std::length_error>("More bytes than a text can hold."));
}

TEST_F(TypesTest, EncodedBytesRoundTrip) {
  ExpectRoundTrip(EncodedBytes{}, "text");
  ExpectRoundTrip(EncodedBytes{{0}}, "text");
  ExpectRoundTrip(EncodedBytes{{'\'', 0, 1, 0x27, 0xFF}}, "text");
  ExpectRoundTrip(EncodedBytes{AllBytes()}, "text");
}

TEST_F(TypesTest, EncodedBytesAreStoredInTheirEncoding) {
  EXPECT_EQ(Type<EncodedBytes>::Literal({}), "'x'");
  // The offset 1, and bytes less that.
  EXPECT_EQ(Type<EncodedBytes>::Literal({{'b', 'c'}}),
            "'\x01"
            "ab'");
}

TEST_F(TypesTest, EmptyTextIsReadAsNoEncodedBytes) {
  OneRow row(fDatabase.fConnection, "SELECT '', NULL, 'x'");
  row.Step();
  for (int column = 0; column < 3; ++column) {
    EncodedBytes value{{1, 2, 3}};
    row.ReadInto(value, column);
    EXPECT_EQ(value, EncodedBytes{});
  }
}

TEST_F(TypesTest, EncodedBytesAreEqualWhenTheirBytesAre) {
  EXPECT_TRUE((EncodedBytes{{1, 2}} == EncodedBytes{{1, 2}}));
  EXPECT_FALSE((EncodedBytes{{1, 2}} == EncodedBytes{{1, 3}}));
  EXPECT_TRUE((EncodedBytes{{1, 2}} != EncodedBytes{{1}}));
  EXPECT_FALSE((EncodedBytes{{1}} != EncodedBytes{{1}}));
}

// --- NULL ------------------------------------------------------------------------------------------------------------

TEST_F(TypesTest, OptionalOfEveryTypeTellsNullFromZeroAndEmpty) {
  const auto expect = [this](const auto& nothing, const char* storage) {
    using Optional = std::decay_t<decltype(nothing)>;
    ExpectRoundTrip(Optional(), "null");
    ExpectRoundTrip(nothing, storage);
    EXPECT_EQ(Type<Optional>::Literal({}), "NULL");
    EXPECT_EQ(Type<Optional>::Literal(nothing), Type<typename Optional::value_type>::Literal(*nothing));
  };
  expect(optional<std::int8_t>(std::int8_t{0}), "integer");
  expect(optional<std::int64_t>(0), "integer");
  expect(optional<std::uint64_t>(0U), "integer");
  expect(optional<bool>(false), "integer");
  expect(optional<float>(0.0F), "real");
  expect(optional<double>(0.0), "real");
  expect(optional<std::string>(""), "text");
  expect(optional<std::array<char, 3>>(std::array<char, 3>{}), "text");
  expect(optional<Blob>(Blob{}), "blob");
  expect(optional<EncodedBytes>(EncodedBytes{}), "text");
}

TEST_F(TypesTest, OptionalReadsOverWhatItHolds) {
  OneRow row(fDatabase.fConnection, "SELECT NULL, 5");
  row.Step();
  optional<int> value = 7;
  row.ReadInto(value, 0);
  EXPECT_EQ(value, std::nullopt);
  row.ReadInto(value, 1);
  EXPECT_EQ(value, 5);
}

TEST_F(TypesTest, OptionalPassesOnWhatItsTypeThrows) {
  EXPECT_THROW(ReadFrom<optional<std::int8_t>>("128"), std::range_error);
  EXPECT_THROW(Type<optional<double>>::Literal(kNaN), std::domain_error);
  EXPECT_THROW(ByBind(optional<double>(kNaN), "null"), std::domain_error);
}

TEST_F(TypesTest, NullIsReadAsZeroOrEmptyIntoOtherTypes) {
  OneRow row(fDatabase.fConnection, "SELECT NULL");
  row.Step();
  const auto expect = [&row](auto value, const auto& expected) {
    row.ReadInto(value);
    EXPECT_EQ(value, expected);
  };
  expect(std::int8_t{7}, 0);
  expect(std::int64_t{7}, 0);
  expect(std::uint64_t{7}, 0U);
  expect(true, false);
  expect(7.0F, 0.0F);
  expect(7.0, 0.0);
  expect(std::string("old"), "");
  expect(std::array<char, 3>{'o', 'l', 'd'}, (std::array<char, 3>{}));
  expect(Blob{7}, Blob{});
  expect(EncodedBytes{{7}}, EncodedBytes{});
  char code[4] = {'o', 'l', 'd', '!'};
  row.ReadInto(code);
  EXPECT_TRUE(SameCharacters(code, "\0\0\0\0"));
}

// --- Want of memory --------------------------------------------------------------------------------------------------

#if SQLITE_VERSION_NUMBER >= 3031000

// SQLite gets no memory beyond what it has while one lives.
class NoMoreMemory {
 public:
  NoMoreMemory() : fBefore(sqlite3_hard_heap_limit64(sqlite3_memory_used())) {}
  ~NoMoreMemory() { sqlite3_hard_heap_limit64(fBefore); }
  NoMoreMemory(const NoMoreMemory&) = delete;
  NoMoreMemory& operator=(const NoMoreMemory&) = delete;

 private:
  sqlite3_int64 fBefore;
};

TEST_F(TypesTest, TextThatSQLiteHasNoMemoryForIsBadAllocRatherThanEmpty) {
  Rows("PRAGMA encoding = 'UTF-16'; CREATE TABLE t (value TEXT); INSERT INTO t VALUES (printf('%.*c', 1000000, 'x'))");
  OneRow row(fDatabase.fConnection, "SELECT value FROM t");
  row.Step();
  std::string value;
  const NoMoreMemory limit;
  EXPECT_THROW(row.ReadInto(value), std::bad_alloc);
}

TEST_F(TypesTest, BlobThatSQLiteHasNoMemoryForIsBadAllocRatherThanEmpty) {
  // Nor any of what a connection sets aside for small needs, such as that of a number's digits.
  ASSERT_EQ(sqlite3_db_config(fDatabase.fConnection, SQLITE_DBCONFIG_LOOKASIDE, nullptr, 0, 0), SQLITE_OK);
  OneRow row(fDatabase.fConnection, "SELECT 12345");
  row.Step();
  Blob value;
  const NoMoreMemory limit;
  EXPECT_THROW(row.ReadInto(value), std::bad_alloc);
}

#endif

// --- A type of the application ---------------------------------------------------------------------------------------

enum class Colour { kRed = 1, kGreen = 2 };

}  // namespace

template <>
struct sqldb::kit::Type<Colour> {
  static constexpr const char* kSql = "INTEGER";
  static void Read(sqlite3_stmt* statement, int column, Colour& value) {
    value = static_cast<Colour>(sqlite3_column_int(statement, column));
  }
  static int Bind(sqlite3_stmt* statement, int parameter, const Colour& value) {
    return sqlite3_bind_int(statement, parameter, static_cast<int>(value));
  }
  static std::string Literal(const Colour& value) { return std::to_string(static_cast<int>(value)); }
};

namespace {

TEST_F(TypesTest, ApplicationMayDescribeATypeOfItsOwn) {
  ExpectRoundTrip(Colour::kGreen, "integer");
  ExpectRoundTrip(optional<Colour>(), "null");
  ExpectRoundTrip(optional<Colour>(Colour::kRed), "integer");
  EXPECT_EQ((sqldb::kit::ColumnName<Colour>("colour") == Colour::kGreen).Text(), "colour = 2");
}

}  // namespace
