// Values of all kinds, written by their literals and bound, and both compared with what they were.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "one_row.h"
#include "sqldb/kit/types.h"
#include "support/fixtures.h"

namespace {

using sqldb::kit::Blob;
using sqldb::kit::EncodedBytes;
using sqldb::kit::Type;

// The same numbers in every run, so that a failure comes back.
using Generator = std::mt19937_64;
constexpr Generator::result_type kSeed = 20240229;

double RealOf(std::uint64_t bits) {
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

std::uint64_t BitsOf(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// Equality that tells no two values apart that a table keeps apart, and none together that it does not. A table makes
// -0.0 of no value.
template <typename T>
bool IsSame(const T& a, const T& b) {
  return a == b;
}
bool IsSame(double a, double b) { return BitsOf(a == 0 ? 0.0 : a) == BitsOf(b == 0 ? 0.0 : b); }

class LiteralFuzzTest : public support::DatabaseTest {
 protected:
  LiteralFuzzTest() : fGenerator(kSeed) {
    fDatabase.SetSynchronizationLevel(false);
    Rows("PRAGMA journal_mode = MEMORY");
  }

  std::uint64_t Below(std::uint64_t limit) { return fGenerator() % limit; }

  // Writes every value of a batch with one statement each way, and reads them all back.
  template <typename T>
  void ExpectBothWays(const std::vector<T>& values) {
    Rows(std::string("CREATE TABLE IF NOT EXISTS fuzzed (id INTEGER PRIMARY KEY, written ") + Type<T>::kSql +
         ", bound " + Type<T>::kSql + ")");
    Rows("BEGIN");
    for (std::size_t begin = 0; begin < values.size(); begin += kBatch) {
      WriteBatch(values, begin, std::min(begin + kBatch, values.size()));
    }
    Bind(values);
    Rows("COMMIT");
    Compare(values);
  }

  Generator fGenerator;

 private:
  static constexpr std::size_t kBatch = 8;

  template <typename T>
  void WriteBatch(const std::vector<T>& values, std::size_t begin, std::size_t end) {
    std::string sql = "INSERT INTO fuzzed (id, written) VALUES ";
    for (std::size_t i = begin; i < end; ++i) {
      sql += (i == begin ? "(" : ",(") + std::to_string(i) + "," + Type<T>::Literal(values[i]) + ")";
    }
    fDatabase.SendQuery(sql, nullptr, nullptr);
  }

  template <typename T>
  void Bind(const std::vector<T>& values) {
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, "UPDATE fuzzed SET bound = ?1 WHERE id = ?2", -1, &statement,
                                 nullptr),
              SQLITE_OK);
    for (std::size_t i = 0; i < values.size(); ++i) {
      ASSERT_EQ(Type<T>::Bind(statement, 1, values[i]), SQLITE_OK);
      sqlite3_bind_int64(statement, 2, static_cast<sqlite3_int64>(i));
      ASSERT_EQ(sqlite3_step(statement), SQLITE_DONE);
      sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
  }

  template <typename T>
  void Compare(const std::vector<T>& values) {
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection,
                                 "SELECT written, bound, written IS bound AND typeof(written) = typeof(bound)"
                                 " FROM fuzzed ORDER BY id",
                                 -1, &statement, nullptr),
              SQLITE_OK);
    std::size_t rows = 0;
    std::size_t different = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      T written{};
      T bound{};
      bool isSame = false;
      Type<T>::Read(statement, 0, written);
      Type<T>::Read(statement, 1, bound);
      Type<bool>::Read(statement, 2, isSame);
      const T& value = values.at(rows++);
      if (isSame && IsSame(written, value) && IsSame(bound, value)) continue;
      if (++different <= 10) ADD_FAILURE() << Type<T>::Literal(value) << " comes back as " << Type<T>::Literal(written);
    }
    sqlite3_finalize(statement);
    EXPECT_EQ(rows, values.size());
    EXPECT_EQ(different, 0U);
  }
};

TEST_F(LiteralFuzzTest, IntegersComeBackAsTheyWere) {
  using Limits = std::numeric_limits<std::int64_t>;
  std::vector<std::int64_t> values = {Limits::min(), Limits::min() + 1, -1, 0, 1, Limits::max() - 1, Limits::max()};
  for (int bit = 0; bit < 63; ++bit) {
    const std::int64_t power = std::int64_t{1} << bit;
    values.insert(values.end(), {power - 1, power, power + 1, -power - 1, -power, 1 - power});
  }
  while (values.size() < 50000) values.push_back(static_cast<std::int64_t>(fGenerator()) >> Below(64));
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, RealsOfAnyBitsComeBackAsTheyWere) {
  std::vector<double> values;
  while (values.size() < 200000) {
    const double value = RealOf(fGenerator());
    if (!std::isnan(value)) values.push_back(value);
  }
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, RealsAtTheEdgesComeBackAsTheyWere) {
  using Limits = std::numeric_limits<double>;
  std::vector<double> values = {0.0,
                                -0.0,
                                Limits::infinity(),
                                -Limits::infinity(),
                                Limits::max(),
                                Limits::lowest(),
                                Limits::min(),
                                Limits::denorm_min()};
  // Every power of two and of ten, and both neighbours.
  const auto addWithNeighbours = [&values](double value) {
    for (const double each : {value, std::nextafter(value, 0.0), std::nextafter(value, Limits::infinity())}) {
      values.insert(values.end(), {each, -each});
    }
  };
  for (int exponent = -1074; exponent <= 1023; ++exponent) addWithNeighbours(std::ldexp(1.0, exponent));
  for (int exponent = -323; exponent <= 308; ++exponent) addWithNeighbours(std::pow(10.0, exponent));
  // Subnormals, and integers around 2^53.
  for (int i = 0; i < 5000; ++i) values.push_back(RealOf(fGenerator() >> (12 + Below(52))));
  for (int i = 0; i < 5000; ++i) values.push_back(std::ldexp(static_cast<double>(fGenerator() >> 11), -5 + i % 10));
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, DecimalsComeBackAsTheyWere) {
  // Digits and places as people write them, around the number of places where the literal's form changes.
  std::vector<double> values;
  for (int i = 0; i < 50000; ++i) {
    const std::uint64_t digits = fGenerator() >> Below(64);
    values.push_back(static_cast<double>(digits % 100000000000000000U) / std::pow(10.0, static_cast<double>(Below(8))));
  }
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, FloatsComeBackAsTheyWere) {
  std::vector<float> values;
  while (values.size() < 20000) {
    const auto bits = static_cast<std::uint32_t>(fGenerator());
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isnan(value)) values.push_back(value);
  }
  ExpectBothWays(values);
}

// Up to some forty pieces of what a careless literal trips over.
std::string Adversarial(Generator& generator) {
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
                                                   "\r"s,
                                                   "\x1A"s,
                                                   "\xC3"s,
                                                   "\xC3\xA4"s,
                                                   "\xE2\x82"s,
                                                   "\xE2\x82\xAC"s,
                                                   "\xF0\x9F\x98\x80"s,
                                                   "\xFF"s,
                                                   "\xFE"s,
                                                   "\x80"s,
                                                   "\xBF"s,
                                                   "\xEF\xBB\xBF"s,
                                                   "\xC0\x80"s,
                                                   "\xED\xA0\x80"s,
                                                   "a"s,
                                                   "bolt"s,
                                                   " "s};
  std::string text;
  for (auto left = generator() % 8 * (generator() % 6); left > 0; --left) {
    text += kPieces[static_cast<std::size_t>(generator() % kPieces.size())];
  }
  if (generator() % 4 == 0) text += static_cast<char>(generator());
  return text;
}

TEST_F(LiteralFuzzTest, TextsComeBackAsTheyWere) {
  std::vector<std::string> values = {"", "'", std::string(1, '\0')};
  for (int byte = 0; byte < 256; ++byte) values.emplace_back(1, static_cast<char>(byte));
  while (values.size() < 25000) values.push_back(Adversarial(fGenerator));
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, BlobsComeBackAsTheyWere) {
  std::vector<Blob> values;
  for (int i = 0; i < 25000; ++i) {
    const std::string text = Adversarial(fGenerator);
    values.emplace_back(text.begin(), text.end());
  }
  ExpectBothWays(values);
}

TEST_F(LiteralFuzzTest, EncodedBytesComeBackAsTheyWere) {
  std::vector<EncodedBytes> values;
  for (int i = 0; i < 25000; ++i) {
    const std::string text = Adversarial(fGenerator);
    values.push_back(EncodedBytes{{text.begin(), text.end()}});
  }
  ExpectBothWays(values);
}

}  // namespace
