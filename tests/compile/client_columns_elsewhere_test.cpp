#include <cstddef>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client_columns.h"

namespace client {

Shop::Shop() {
  fDatabase.Open();
  fItems = fDatabase.NewTable("items");
  fItems->AddColumn(MakeColumn<std::int64_t>("id"));
  fItems->AddColumn(MakeColumn<double>("price"));
  fItems->AddColumn(MakeColumn<std::string>("name"));
  fItems->AddColumn(MakeColumn<std::uint32_t>("quantity"));
  fItems->Create();
  fDatabase.SendQuery("INSERT INTO items VALUES (9000000000, 2.5, 'tea; green', 7), (9000000001, -0.125, NULL, 8)",
                      nullptr, nullptr);
}

// Offsets need not follow the columns' order, nor a standard-layout type: the test measures them.
sqldb::SQLStepCursor<Item>* Shop::PrepareAll(boost::shared_ptr<sqldb::SQLCursorBase>& cursor) {
  const Item sample{};
  const auto offsetOf = [&sample](const void* member) {
    return static_cast<std::uint32_t>(static_cast<const char*>(member) - reinterpret_cast<const char*>(&sample));
  };
  sqldb::OffsetSpec offsets;
  for (const void* const member :
       {static_cast<const void*>(&sample.name), static_cast<const void*>(&sample.id),
        static_cast<const void*>(&sample.quantity), static_cast<const void*>(&sample.price)}) {
    offsets.PushOffset(offsetOf(member), 0);
  }
  auto* const stepper = new sqldb::SQLStepCursor<Item>(&fDatabase, offsets);
  cursor.reset(stepper);
  fSelect = fDatabase.NewSelect(fItems, 0);
  fSelect << fItems->GetColumn("name") << fItems->GetColumn("id") << fItems->GetColumn("quantity")
          << fItems->GetColumn("price");
  fSelect->fOrder = {{fItems->GetColumn("id"), 1}};
  fSelect->PrepareSelect(cursor);
  return stepper;
}

}  // namespace client

namespace {

TEST(ClientColumnsTest, DeclareTheirOwnTypes) {
  client::Shop shop;
  EXPECT_EQ(shop.fItems->GetColumn("id")->GetSpecAsString(), "BIGINT");
  EXPECT_EQ(shop.fItems->GetColumn("price")->GetSpecAsString(), "REAL");
  EXPECT_EQ(shop.fItems->GetColumn("name")->GetSpecAsString(), "TEXT");
  EXPECT_EQ(shop.fItems->GetColumn("name")->fSize, sizeof(std::string));
}

TEST(ClientColumnsTest, AreOfTheTemplatesKind) {
  EXPECT_EQ(client::MakeColumn<double>("price")->IAmAKindOf(), "SQLColumnClass");
}

// A row of one value, from this file's own instantiations.
template <typename T>
T SingleValue(client::Shop& shop, const std::string& expression) {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  auto* const stepper = new sqldb::SQLStepCursor<T>(&shop.fDatabase, offsets);
  const boost::shared_ptr<sqldb::SQLCursorBase> cursor(stepper);
  auto select = shop.fDatabase.NewSelect(shop.fItems, 1);
  select << client::MakeColumn<T>(expression);
  select->PrepareSelect(cursor);
  T value{};
  EXPECT_EQ(stepper->Step(value), 0);
  return value;
}

TEST(ClientColumnsTest, ReadOneValueEachInTheSecondFile) {
  client::Shop shop;
  EXPECT_EQ(SingleValue<std::int64_t>(shop, "MAX(id)"), 9000000001);
  EXPECT_EQ(SingleValue<double>(shop, "SUM(price)"), 2.375);
  EXPECT_EQ(SingleValue<std::string>(shop, "UPPER('a')"), "A");
}

}  // namespace
