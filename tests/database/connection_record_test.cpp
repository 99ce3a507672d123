#include "database/connection_record.h"

#include <functional>
#include <memory>
#include <set>

#include "support/allocations.h"
#include "support/fixtures.h"

using sqldb::ConnectionRecord;
using sqldb::SQLDatabase;
using support::CallRecorder;
using support::MessageOf;
using support::OwnFailure;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Notes what the database is like when it is told.
class Watcher : public sqldb::ConnectionWatcher {
 public:
  explicit Watcher(SQLDatabase& database) : ConnectionWatcher(&Tell), fDatabase(database) {
    ConnectionRecord::Of(database).Join(*this);
  }

  SQLDatabase& fDatabase;
  std::vector<const sqlite3*> fToldOf;
  bool fWasOpen = false;
  bool fWasDestroying = false;
  std::function<void()> fAction;

 private:
  static void Tell(ConnectionWatcher& self) noexcept {
    auto& watcher = static_cast<Watcher&>(self);
    watcher.fToldOf.push_back(watcher.fDatabase.fConnection);
    watcher.fWasOpen = watcher.fDatabase.fIsOpen;
    watcher.fWasDestroying = watcher.fDatabase.fDestroying;
    if (watcher.fAction) watcher.fAction();
  }
};

class ConnectionRecordTest : public support::DatabaseTest {
 protected:
  ConnectionRecordTest() : fRecord(ConnectionRecord::Of(fDatabase)) {}

  std::vector<const sqlite3_stmt*> Left() const {
    std::vector<const sqlite3_stmt*> statements;
    for (const ConnectionRecord::Leftover& leftover : fRecord.fLeftovers) statements.push_back(leftover.fStatement);
    return statements;
  }
  // All statements of the connection, the earliest first.
  std::vector<const sqlite3_stmt*> Alive() const {
    std::vector<const sqlite3_stmt*> statements;
    sqlite3_stmt* statement = nullptr;
    while ((statement = sqlite3_next_stmt(fDatabase.fConnection, statement)) != nullptr) {
      statements.insert(statements.begin(), statement);
    }
    return statements;
  }
  void FailToStep() {
    MessageOf([&] { fDatabase.SendQuery("SELECT abs(-9223372036854775808)", nullptr, nullptr); });
  }

  ConnectionRecord& fRecord;
};

TEST_F(ConnectionRecordTest, AWatcherIsToldOnceWhileTheConnectionStillWorks) {
  sqlite3* const connection = fDatabase.fConnection;
  Watcher watcher(fDatabase);
  watcher.fAction = [&] { EXPECT_THAT(Rows("SELECT 1"), ElementsAre("1")); };
  fDatabase.Close();
  EXPECT_THAT(watcher.fToldOf, ElementsAre(connection));
  EXPECT_TRUE(watcher.fWasOpen);
  fDatabase.Close();
  fDatabase.Open();
  EXPECT_EQ(watcher.fToldOf.size(), 1u);
}

TEST_F(ConnectionRecordTest, WhatTheWatcherLetsGoOfDoesNotKeepTheConnectionFromClosing) {
  sqlite3_stmt* kept = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(fDatabase.fConnection, "SELECT 1", -1, &kept, nullptr), SQLITE_OK);
  Watcher watcher(fDatabase);
  watcher.fAction = [&] { sqlite3_finalize(kept); };
  CallRecorder recorder;
  fDatabase.Close();
  EXPECT_EQ(recorder.Lines().back(), "close = 0");
}

TEST_F(ConnectionRecordTest, AWatcherIsToldBeforeTheConnectionIsReplaced) {
  for (void (SQLDatabase::*const open)() : {&SQLDatabase::Open, &SQLDatabase::Create, &SQLDatabase::CommonOpen}) {
    sqlite3* const connection = fDatabase.fConnection;
    Watcher watcher(fDatabase);
    (fDatabase.*open)();
    EXPECT_THAT(watcher.fToldOf, ElementsAre(connection));
    EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  }
}

TEST_F(ConnectionRecordTest, AnOpenThatFailsTellsNobody) {
  Watcher watcher(fDatabase);
  CallRecorder recorder;
  recorder.Force("open", SQLITE_CANTOPEN);
  EXPECT_EQ(MessageOf([&] { fDatabase.Open(); }), "Error encountered: 14.\n");
  EXPECT_THAT(watcher.fToldOf, IsEmpty());
  fRecord.Leave(watcher);
}

TEST_F(ConnectionRecordTest, AWatcherIsToldOfTheDestructionWhetherTheDatabaseIsOpenOrNot) {
  for (const bool isOpen : {true, false}) {
    auto database = std::make_unique<SQLDatabase>(DatabasePath(), false);
    if (isOpen) database->Open();
    Watcher watcher(*database);
    database.reset();
    EXPECT_EQ(watcher.fToldOf.size(), 1u);
    EXPECT_TRUE(watcher.fWasDestroying);
  }
}

TEST_F(ConnectionRecordTest, WatchersJoinAndLeaveInAnyOrder) {
  Watcher first(fDatabase);
  Watcher second(fDatabase);
  Watcher third(fDatabase);
  fRecord.Leave(second);
  EXPECT_TRUE(fRecord.IsWatched());
  fDatabase.Close();
  EXPECT_EQ(first.fToldOf.size() + third.fToldOf.size(), 2u);
  EXPECT_THAT(second.fToldOf, IsEmpty());
  EXPECT_FALSE(fRecord.IsWatched());

  for (const bool earlierFirst : {true, false}) {
    Watcher a(fDatabase);
    Watcher b(fDatabase);
    fRecord.Leave(earlierFirst ? a : b);
    fRecord.Leave(earlierFirst ? b : a);
    EXPECT_FALSE(fRecord.IsWatched());
  }
  fDatabase.Open();
}

TEST_F(ConnectionRecordTest, AWatcherMayMakeAnotherOneLeave) {
  Watcher first(fDatabase);
  Watcher second(fDatabase);
  second.fAction = [&] { fRecord.Leave(first); };
  fDatabase.Close();
  EXPECT_THAT(first.fToldOf, IsEmpty());
}

TEST_F(ConnectionRecordTest, SuccessLeavesNothing) {
  MakeTable("t", {"a"});
  fDatabase.SendQuery("INSERT INTO t VALUES (1); SELECT a FROM t", nullptr, nullptr);
  fDatabase.fExplainLevel = 2;
  fDatabase.ExplainQuery("SELECT a FROM t");
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(ConnectionRecordTest, WhatDoesNotCompileLeavesNothing) {
  MessageOf([&] { fDatabase.SendQuery("SELECT missing", nullptr, nullptr); });
  MessageOf([&] { fDatabase.SendQuery("SELECT 1; ", nullptr, nullptr); });
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(ConnectionRecordTest, AStatementThatFailedToStepIsRecorded) {
  FailToStep();
  ASSERT_THAT(Left(), ::testing::SizeIs(1));
  EXPECT_EQ(Left(), Alive());
  EXPECT_TRUE(fRecord.fLeftovers[0].fHasFailed);
}

TEST_F(ConnectionRecordTest, AStatementWhoseEndFailedIsNotLeft) {
  CallRecorder recorder;
  recorder.Force("finalize", SQLITE_ERROR);
  MessageOf([&] { fDatabase.SendQuery("SELECT 1", nullptr, nullptr); });
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(ConnectionRecordTest, AStatementWhoseCallbacksThrowIsRecorded) {
  class Rows : public sqldb::QueryCallback {
    bool ProcessRow(sqlite3_stmt*) override { throw OwnFailure(); }
  } rows;
  class Binding : public sqldb::BindingCallback {
    void BindingOpportunity(sqlite3_stmt*) const override { throw OwnFailure(); }
  } binding;
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1", &rows, nullptr), OwnFailure);
  EXPECT_THROW(fDatabase.SendQuery("SELECT 2", nullptr, &binding), OwnFailure);
  EXPECT_THROW(fDatabase.SendQuery("SELECT 3; ", nullptr, &binding), OwnFailure);
  EXPECT_EQ(Left(), Alive());
  EXPECT_EQ(Left().size(), 3u);
  for (const ConnectionRecord::Leftover& leftover : fRecord.fLeftovers) EXPECT_FALSE(leftover.fHasFailed);
}

TEST_F(ConnectionRecordTest, AnExplanationThatFailedToStepIsRecorded) {
  fDatabase.fExplainLevel = 2;
  CallRecorder recorder;
  recorder.Force("step", SQLITE_ERROR);
  MessageOf([&] { fDatabase.ExplainQuery("SELECT 1"); });
  EXPECT_EQ(Left(), Alive());
  ASSERT_EQ(Left().size(), 1u);
  EXPECT_TRUE(fRecord.fLeftovers[0].fHasFailed);
  recorder.Force("finalize", SQLITE_ERROR);
  MessageOf([&] { fDatabase.ExplainQuery("SELECT 1"); });
  EXPECT_EQ(Left().size(), 1u);
}

TEST_F(ConnectionRecordTest, StatementsOfCursorsAreNotRecorded) {
  MakeTable("t", {"a"});
  support::OtherConnection(DatabasePath()).Run("CREATE TABLE u (b)");
  MessageOf([&] { fDatabase.GetTable("t")->CountRecords(nullptr); });
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(ConnectionRecordTest, ThereIsRoomForAllThatIsBeingSentAtOnce) {
  class Nested : public sqldb::QueryCallback {
   public:
    explicit Nested(SQLDatabase& database) : fDatabase(database) {}
    bool ProcessRow(sqlite3_stmt*) override {
      if (--fLevels > 0) fDatabase.SendQuery("SELECT 1", this, nullptr);
      fRoom = ConnectionRecord::Of(fDatabase).fLeftovers.capacity();
      throw OwnFailure();
    }
    SQLDatabase& fDatabase;
    int fLevels = 40;
    std::size_t fRoom = 0;
  } nested(fDatabase);
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1", &nested, nullptr), OwnFailure);
  EXPECT_EQ(Left().size(), 40u);
  EXPECT_GE(nested.fRoom, 40u);
  EXPECT_EQ(fRecord.fLeftovers.capacity(), nested.fRoom);
}

TEST_F(ConnectionRecordTest, NothingIsSentIfThereIsNoRoom) {
  while (fRecord.fLeftovers.size() < fRecord.fLeftovers.capacity()) FailToStep();
  const std::string sql = "SELECT 1";
  CallRecorder recorder;
  {
    const support::AllocationFailure failure(1);
    EXPECT_THROW(fDatabase.SendQuery(sql, nullptr, nullptr), std::bad_alloc);
  }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  fDatabase.SendQuery(sql, nullptr, nullptr);
}

// AddressSanitizer does not hand out an address again so soon; every other build does.
TEST_F(ConnectionRecordTest, WhatTheApplicationFinalizedItselfDoesNotPileUp) {
  std::set<const sqlite3_stmt*> addresses;
  for (int i = 0; i < 100; ++i) {
    FailToStep();
    addresses.insert(Left().back());
    support::FinalizeLeftovers(fDatabase.fConnection);
  }
  EXPECT_EQ(Left().size(), addresses.size());
  fDatabase.Close();
  EXPECT_THAT(Left(), IsEmpty());
  fDatabase.Open();
}

TEST_F(ConnectionRecordTest, WhatWasLeftOnAConnectionThatWasReplacedIsForgotten) {
  sqlite3* const before = fDatabase.fConnection;
  FailToStep();
  fDatabase.Open();
  EXPECT_THAT(Left(), IsEmpty());
  support::FinalizeLeftovers(before);
  EXPECT_EQ(sqlite3_close(before), SQLITE_OK);
}

TEST_F(ConnectionRecordTest, WhatIsLeftAfterTheConnectionWasReplacedInsideTheQueryIsNotRecorded) {
  class Opening : public sqldb::QueryCallback {
   public:
    explicit Opening(SQLDatabase& database) : fDatabase(database) {}
    bool ProcessRow(sqlite3_stmt*) override {
      fDatabase.Open();
      throw OwnFailure();
    }
    SQLDatabase& fDatabase;
  } opening(fDatabase);
  sqlite3* const before = fDatabase.fConnection;
  EXPECT_THROW(fDatabase.SendQuery("SELECT 1", &opening, nullptr), OwnFailure);
  EXPECT_THAT(Left(), IsEmpty());
  support::FinalizeLeftovers(before);
  EXPECT_EQ(sqlite3_close(before), SQLITE_OK);
}

TEST_F(ConnectionRecordTest, ARefusedCloseKeepsTheRecord) {
  FailToStep();
  fDatabase.Close();
  EXPECT_EQ(Left(), Alive());
  EXPECT_EQ(Left().size(), 1u);
  fDatabase.fIsOpen = true;
}

}  // namespace
