// All rows of a table, four integer columns each, into a struct.

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

constexpr char kScan[] = "SELECT id, quantity, price, stock FROM items";

std::int64_t Sum(const Item& item) { return std::int64_t{item.id} + item.quantity + item.price + item.stock; }

class RawScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      sqlite3_stmt* const statement = fItems.Prepare(kScan);
      Item item{};
      while (sqlite3_step(statement) == SQLITE_ROW) {
        item.id = static_cast<std::uint32_t>(sqlite3_column_int(statement, 0));
        item.quantity = static_cast<std::uint32_t>(sqlite3_column_int(statement, 1));
        item.price = static_cast<std::uint32_t>(sqlite3_column_int(statement, 2));
        item.stock = static_cast<std::uint32_t>(sqlite3_column_int(statement, 3));
        sum += Sum(item);
      }
      sqlite3_finalize(statement);
    }
    return sum;
  }

 private:
  RawItems fItems;
};

class SqldbScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      boost::shared_ptr<sqldb::SQLSelectClass> select = fItems.database.NewSelect(fItems.table, 0);
      select << fItems.id << fItems.quantity << fItems.price << fItems.stock;
      const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Item>>(&fItems.database, SqldbItems::Offsets());
      select->PrepareSelect(cursor);
      Item item{};
      while (cursor->Step(item) == 0) sum += Sum(item);
    }
    return sum;
  }

 private:
  SqldbItems fItems;
};

}  // namespace

void AddScan(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawScan>("scan", "SQLite", kScans * kItems));
  entries.push_back(MakeEntry<SqldbScan>("scan", "sqldb", kScans * kItems));
}

}  // namespace bench
