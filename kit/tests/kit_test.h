#ifndef SQLDB_KIT_TESTS_KIT_TEST_H
#define SQLDB_KIT_TESTS_KIT_TEST_H

// What the tests of the kit have in common.

#include <cstddef>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include "sqldb/kit/failure.h"
#include "support/fixtures.h"

namespace kit_test {

// The Error that `action` throws. Throwing none, or something else, fails the test.
template <typename Action>
sqldb::kit::Error ErrorOf(Action action) {
  try {
    action();
  } catch (const sqldb::kit::Error& error) {
    return error;
  } catch (const std::exception& other) {
    ADD_FAILURE() << "not an Error: " << other.what();
    return {other.what(), SQLITE_OK};
  }
  ADD_FAILURE() << "nothing thrown";
  return {"(nothing thrown)", SQLITE_OK};
}

// A database with the table t, whose column a is unique, in a file that another connection works on as well. At the end
// of each test no statement may be left, no transaction be open and no veto stand.
class KitTest : public support::DatabaseTest {
 protected:
  KitTest() : fTable(MakeTable("t", {"a"})), fOther(DatabasePath()) {
    Rows("CREATE UNIQUE INDEX t_a ON t (a)");
    // Both have then read the schema: without it, already the compiling finds the file busy.
    Rows("SELECT * FROM t");
    fOther.Run("SELECT * FROM t");
  }

  void TearDown() override {
    if (!fDatabase.fIsOpen) return;
    EXPECT_EQ(Unfinalized(), 0);
    ExpectNoTransaction();
  }

  void ExpectNoTransaction() {
    EXPECT_EQ(fDatabase.fTransactionDepth, 0);
    EXPECT_TRUE(fDatabase.fTransactionOK);
    EXPECT_FALSE(IsInSQLiteTransaction());
  }
  bool IsInSQLiteTransaction() const { return sqlite3_get_autocommit(fDatabase.fConnection) == 0; }

  void Send(const std::string& sql) { fDatabase.SendQuery(sql, nullptr, nullptr); }
  void Write(int value) { Send("INSERT INTO t VALUES (" + std::to_string(value) + ")"); }
  // Fails in a single row for which the file may not grow; SQLite then rolls back whatever is open.
  void FillTheDisk() {
    Rows("PRAGMA max_page_count = 1");
    Send("INSERT INTO t VALUES (zeroblob(100000))");
  }
  // What the rest of the world sees.
  std::vector<std::string> Seen() { return support::OtherConnection(DatabasePath()).Run("SELECT a FROM t ORDER BY a"); }
  int Unfinalized() const {
    int count = 0;
    for (sqlite3_stmt* statement = sqlite3_next_stmt(fDatabase.fConnection, nullptr); statement != nullptr;
         statement = sqlite3_next_stmt(fDatabase.fConnection, statement)) {
      ++count;
    }
    return count;
  }

  using Cursor = sqldb::SQLStepCursor<std::uint32_t>;
  // Delivers the table's rows, in order.
  boost::shared_ptr<Cursor> MakeCursor() {
    sqldb::OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    const auto cursor = boost::make_shared<Cursor>(&fDatabase, offsets);
    cursor->fColumns = {fTable->GetColumn("a")};
    cursor->PrepareToQuery("SELECT a FROM t ORDER BY a");
    return cursor;
  }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  support::OtherConnection fOther;
};

}  // namespace kit_test

#endif  // SQLDB_KIT_TESTS_KIT_TEST_H
