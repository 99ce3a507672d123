// What SQLite has no memory for, or cannot do: its functions are called here in the place of its own ones, which are
// asked unless they are to fail. See cmake/call_recorder.cmake.

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <optional>
#include <string>

#include <dlfcn.h>
#include <sqlite3.h>

#include "kit_test.h"
#include "sqldb/kit/functions.h"
#include "sqldb/kit/table.h"

namespace {

// How often the function of this name is still to fail.
const char* failing = "";
int failures = 0;

bool Fails(const char* function) {
  if (failures == 0 || std::strcmp(function, failing) != 0) return false;
  --failures;
  return true;
}

template <typename Function>
Function* Next(const char* name) {
  void* const symbol = dlsym(RTLD_NEXT, name);
  if (symbol == nullptr) {
    std::cerr << "no real " << name << "\n";
    std::abort();
  }
  return reinterpret_cast<Function*>(symbol);
}

// While it lives, the next calls of the function fail. All of them must come.
class Failure {
 public:
  explicit Failure(const char* function, int times = 1) {
    failing = function;
    failures = times;
  }
  ~Failure() {
    EXPECT_EQ(failures, 0) << failing;
    failures = 0;
  }
  Failure(const Failure&) = delete;
  Failure& operator=(const Failure&) = delete;
};

}  // namespace

extern "C" {

void* sqlite3_aggregate_context(sqlite3_context* context, int size) {
  static auto* const real = Next<decltype(sqlite3_aggregate_context)>("sqlite3_aggregate_context");
  return Fails("aggregate_context") ? nullptr : real(context, size);
}

const unsigned char* sqlite3_value_text(sqlite3_value* value) {
  static auto* const real = Next<decltype(sqlite3_value_text)>("sqlite3_value_text");
  return Fails("value_text") ? nullptr : real(value);
}

const void* sqlite3_value_blob(sqlite3_value* value) {
  static auto* const real = Next<decltype(sqlite3_value_blob)>("sqlite3_value_blob");
  return Fails("value_blob") ? nullptr : real(value);
}

const char* sqlite3_column_name(sqlite3_stmt* statement, int column) {
  static auto* const real = Next<decltype(sqlite3_column_name)>("sqlite3_column_name");
  return Fails("column_name") ? nullptr : real(statement, column);
}

int sqlite3_bind_int64(sqlite3_stmt* statement, int parameter, sqlite3_int64 value) {
  static auto* const real = Next<decltype(sqlite3_bind_int64)>("sqlite3_bind_int64");
  return Fails("bind_int64") ? SQLITE_NOMEM : real(statement, parameter, value);
}

}  // extern "C"

namespace {

using namespace sqldb::kit;
using kit_test::id;
using kit_test::Part;
using kit_test::StatementsOf;
using kit_test::ThrownBy;

class EngineFailuresTest : public testing::Test {
 protected:
  EngineFailuresTest() {
    fParts.Create();
    fParts.Insert({1, "nut", 0.5, "round"});
  }
  ~EngineFailuresTest() override { EXPECT_EQ(StatementsOf(fDatabase).running, 0); }

  // The next calls of `function` fail in the action, and what is thrown says so. After that all is as before.
  template <typename Action>
  void ExpectNoMemory(const char* function, int times, Action action) {
    {
      const Failure failure(function, times);
      EXPECT_THROW(action(), std::bad_alloc) << function;
    }
    action();
  }

  Database fDatabase{":memory:"};
  Table<Part> fParts{fDatabase};
};

TEST_F(EngineFailuresTest, ATextThatCannotBeReadIsNotTakenForAnEmptyOne) {
  ExpectNoMemory("value_text", 1, [&] { fDatabase.One<std::string>("SELECT name FROM parts"); });
  ExpectNoMemory("value_text", 1, [&] { fDatabase.One<std::string, int>("SELECT name, 1 FROM parts"); });
  ExpectNoMemory("value_text", 1, [&] { fDatabase.One<std::array<char, 8>>("SELECT name FROM parts"); });
  ExpectNoMemory("value_text", 1, [&] { fParts.Get(1); });
}

TEST_F(EngineFailuresTest, ABlobThatCannotBeReadIsNotTakenForAnEmptyOne) {
  ExpectNoMemory("value_blob", 1, [&] { fDatabase.One<Blob>("SELECT x'00FF'"); });
  const Failure failure("value_blob");
  EXPECT_TRUE(fDatabase.One<Blob>("SELECT x''").empty());
}

TEST_F(EngineFailuresTest, AValueThatCannotBeBoundIsNotTakenForNull) {
  ExpectNoMemory("bind_int64", 1, [&] { fDatabase.One<int>("SELECT ?", 1); });
  ExpectNoMemory("bind_int64", 1, [&] { fDatabase.One<int>("SELECT ?", std::int64_t{1}); });
  ExpectNoMemory("bind_int64", 1, [&] { fParts.Find(std::int64_t{1}); });
  ExpectNoMemory("bind_int64", 1, [&] { fParts.Count(id == 1); });
  ExpectNoMemory("bind_int64", 1, [&] { fParts.Replace({1, "nut", 0.5, {}}); });
}

TEST_F(EngineFailuresTest, AColumnWhoseNameCannotBeReadIsNotTakenForAnotherOne) {
  ExpectNoMemory("column_name", 1, [&] { fDatabase.One<Part>("SELECT * FROM parts"); });
}

#ifdef SQLITE_STMTSTATUS_REPREPARE
TEST_F(EngineFailuresTest, NamesOfColumnsAreReadOnceForAStatement) {
  for (const char* const sql : {"SELECT * FROM parts", "SELECT note, price, name, id FROM parts"}) {
    fDatabase.One<Part>(sql);
    fDatabase.One<Part>(sql);
    failing = "column_name";
    failures = 1;
    EXPECT_NO_THROW(fDatabase.One<Part>(sql));
    EXPECT_NO_THROW(fDatabase.All<Part>(sql));
    EXPECT_EQ(failures, 1);
    failures = 0;
  }
}
#endif

struct Sum {
  void Step(int value) { sum += value; }
  int Result() const { return sum; }
  int sum = 0;
};

TEST_F(EngineFailuresTest, AnAggregateWithoutMemoryIsNotTakenForOneWithoutRows) {
  sqldb::kit::DefineAggregate<Sum>(fDatabase, "own_sum");
  ExpectNoMemory("aggregate_context", 1, [&] { EXPECT_EQ(fDatabase.One<int>("SELECT own_sum(7)"), 7); });
}

TEST_F(EngineFailuresTest, AMessageMayLackTheNameOfTheColumn) {
  const Failure failure("column_name");
  EXPECT_EQ(ThrownBy<ConversionError>([&] { fDatabase.One<int>("SELECT 'a' AS b"); }).Message(),
            "column  has a text, which cannot be read as an integer");
}

}  // namespace
