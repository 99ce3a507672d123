#include "client_columns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(ClientColumnsTest, StepIntoAStruct) {
  client::Shop shop;
  boost::shared_ptr<sqldb::SQLCursorBase> cursor;
  auto* const stepper = shop.PrepareAll(cursor);

  client::Item item{0, 0, "before", 0};
  ASSERT_EQ(stepper->Step(item), 0);
  EXPECT_EQ(item.id, 9000000000);
  EXPECT_EQ(item.price, 2.5);
  EXPECT_EQ(item.name, "tea; green");
  EXPECT_EQ(item.quantity, 7u);

  ASSERT_EQ(stepper->Step(item), 0);
  EXPECT_EQ(item.id, 9000000001);
  EXPECT_EQ(item.price, -0.125);
  EXPECT_EQ(item.name, "");
  EXPECT_EQ(item.quantity, 8u);

  EXPECT_EQ(stepper->Step(item), 1);
}

// Both files' specialisations are one function, found through the same class.
TEST(ClientColumnsTest, ReadARowThatTheSecondFilePrepared) {
  client::Shop shop;
  const boost::shared_ptr<sqldb::SQLColumnBase> own = client::MakeColumn<double>("price");
  const boost::shared_ptr<sqldb::SQLColumnBase> other = shop.fItems->GetColumn("price");
  const sqldb::SQLColumnBase& here = *own;
  const sqldb::SQLColumnBase& there = *other;
  EXPECT_EQ(typeid(here), typeid(there));
}

}  // namespace
