#ifndef SQLDB_KIT_TESTS_KIT_TEST_H
#define SQLDB_KIT_TESTS_KIT_TEST_H

// What the tests of the kit have in common.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sqlite3.h>

#include "sqldb/database.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/database.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/record.h"

namespace kit_test {

// The exception of type E that `action` throws. Throwing none, or something else, fails the test.
template <typename E = sqldb::kit::Error, typename Action>
E ThrownBy(Action action) {
  try {
    action();
  } catch (const E& error) {
    return error;
  } catch (const std::exception& other) {
    ADD_FAILURE() << "another exception: " << other.what();
    return E(other.what(), 0);
  }
  ADD_FAILURE() << "nothing thrown";
  return E("(nothing thrown)", 0);
}

// The same where what is thrown tells no more than its type.
template <typename E, typename Action>
void ExpectThrown(Action action) {
  EXPECT_THROW(action(), E);
}

// How many compiled statements the connection has, and how many of them stand on a row.
struct StatementCount {
  int all = 0;
  int running = 0;
};
inline StatementCount StatementsOf(const sqldb::kit::Database& database) {
  StatementCount count;
  sqlite3* const handle = database.Core().fConnection;
  for (sqlite3_stmt* each = sqlite3_next_stmt(handle, nullptr); each != nullptr;
       each = sqlite3_next_stmt(handle, each)) {
    ++count.all;
    if (sqlite3_stmt_busy(each) != 0) ++count.running;
  }
  return count;
}

struct Part {
  std::int64_t id = 0;
  std::string name;
  double price = 0;
  std::optional<std::string> note;

  static constexpr auto Description() {
    using namespace sqldb::kit;
    return Describe("parts", Key("id", &Part::id), Field("name", &Part::name), Field("price", &Part::price),
                    Field("note", &Part::note));
  }

  friend bool operator==(const Part& a, const Part& b) {
    return a.id == b.id && a.name == b.name && a.price == b.price && a.note == b.note;
  }
};

inline constexpr sqldb::kit::Column id(&Part::id);
inline constexpr sqldb::kit::Column name(&Part::name);
inline constexpr sqldb::kit::Column price(&Part::price);
inline constexpr sqldb::kit::Column note(&Part::note);

}  // namespace kit_test

#endif  // SQLDB_KIT_TESTS_KIT_TEST_H
