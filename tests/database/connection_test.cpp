#include "support/fixtures.h"

using support::CallRecorder;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class ConnectionTest : public support::DatabaseTest {};

TEST_F(ConnectionTest, TransactionTalksToSQLiteOnce) {
  CallRecorder recorder;
  fDatabase.BeginTransaction();
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'BEGIN TRANSACTION' = 0", "step = 101", "finalize = 0"));
}

TEST_F(ConnectionTest, BusyIsThrownAtOnce) {
  MakeTable("items", {"a"});
  support::OtherConnection other(DatabasePath());
  other.Run("BEGIN EXCLUSIVE");
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fDatabase.SendQuery("INSERT INTO items VALUES (1)", nullptr, nullptr); }),
            "database is locked");
  EXPECT_EQ(recorder.Count("usleep"), 0u);
  other.Run("ROLLBACK");
}

}  // namespace
