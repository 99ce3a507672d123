// A select with a term, an order that the key yields, a limit and an offset, into a struct.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

constexpr std::uint32_t kLimit = 10;
constexpr std::uint32_t kOffset = 5;
// Leaves the last select its rows.
constexpr std::uint32_t kSelects = kItems - kLimit - kOffset;

std::int64_t Sum(const Item& item) { return std::int64_t{item.id} + item.quantity + item.price + item.stock; }

class RawSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      char text[128];
      std::snprintf(text, sizeof text,
                    "SELECT id, quantity, price, stock FROM items WHERE id > %u ORDER BY id LIMIT %u OFFSET %u", id,
                    kLimit, kOffset);
      sqlite3_stmt* const statement = fItems.Prepare(text);
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

class IdIsMoreThan : public sqldb::SQLTermBase {
 public:
  explicit IdIsMoreThan(std::uint32_t id) : fId(id) {}
  std::ostream& Print(std::ostream& out) const override { return out << " id > " << fId; }
  bool NotEmpty() const override { return true; }

 private:
  std::uint32_t fId;
};

class SqldbSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      boost::shared_ptr<sqldb::SQLSelectClass> select = fItems.database.NewSelect(fItems.table, kLimit);
      select << fItems.id << fItems.quantity << fItems.price << fItems.stock;
      select->fTerm = boost::make_shared<IdIsMoreThan>(id);
      select->fOrder.push_back(sqldb::OrderItem{fItems.id, 1});
      select->fOffset = kOffset;
      const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Item>>(&fItems.database, fOffsets);
      select->PrepareSelect(cursor);
      Item item{};
      while (cursor->Step(item) == 0) sum += Sum(item);
    }
    return sum;
  }

 private:
  SqldbItems fItems;
  const sqldb::OffsetSpec fOffsets = SqldbItems::Offsets();
};

}  // namespace

void AddSelect(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawSelect>("select", "SQLite", kSelects));
  entries.push_back(MakeEntry<SqldbSelect>("select", "sqldb", kSelects));
}

}  // namespace bench
