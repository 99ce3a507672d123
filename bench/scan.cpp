// All rows of a table, four integer columns each, into a struct.

#include <vector>

#include <boost/make_shared.hpp>

#include "items.h"
#include "poco_items.h"
#include "qt_items.h"
#include "soci_items.h"
#include "sqlitecpp_items.h"
#include "task.h"

namespace bench {

namespace {

using Poco::Data::Keywords::into;
using Poco::Data::Keywords::now;

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

class SqliteCppScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      SQLite::Statement query(fItems.database, kScan);
      while (query.executeStep()) sum += Sum(query.getColumns<Item, 4>());
    }
    return sum;
  }

 private:
  SqliteCppItems fItems;
};

// Reads a hundred rows at a time into a vector for each column, which takes SOCI less than to read them one by one.
class SociScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) sum += Scan();
    return sum;
  }

 private:
  std::int64_t Scan() {
    constexpr std::size_t kRowsAtOnce = 100;
    std::vector<std::uint32_t> ids(kRowsAtOnce);
    std::vector<std::uint32_t> quantities(kRowsAtOnce);
    std::vector<std::uint32_t> prices(kRowsAtOnce);
    std::vector<std::uint32_t> stocks(kRowsAtOnce);
    soci::statement statement = (fItems.session.prepare << kScan, soci::into(ids), soci::into(quantities),
                                 soci::into(prices), soci::into(stocks));
    statement.execute();
    std::int64_t sum = 0;
    while (statement.fetch()) {
      for (std::size_t row = 0; row < ids.size(); ++row) {
        sum += Sum(Item{ids[row], quantities[row], prices[row], stocks[row]});
      }
      // The last rows may have been fewer.
      ids.resize(kRowsAtOnce);
      quantities.resize(kRowsAtOnce);
      prices.resize(kRowsAtOnce);
      stocks.resize(kRowsAtOnce);
    }
    return sum;
  }

  SociItems fItems;
};

class QtScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      QSqlQuery query = fItems.Prepare(QLatin1String(kScan));
      Execute(query);
      Item item{};
      while (query.next()) {
        item.id = query.value(0).toUInt();
        item.quantity = query.value(1).toUInt();
        item.price = query.value(2).toUInt();
        item.stock = query.value(3).toUInt();
        sum += Sum(item);
      }
    }
    return sum;
  }

 private:
  QtItems fItems;
};

// Reads all rows at once, for the same reason.
class PocoScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      std::vector<Item> items;
      fItems.session << kScan, into(items), now;
      for (const Item& item : items) sum += Sum(item);
    }
    return sum;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddScan(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawScan>("scan", "SQLite", kScans * kItems));
  entries.push_back(MakeEntry<SqldbScan>("scan", "sqldb", kScans * kItems));
  entries.push_back(MakeEntry<SqliteCppScan>("scan", "SQLiteCpp", kScans * kItems));
  entries.push_back(MakeEntry<SociScan>("scan", "SOCI", kScans * kItems));
  entries.push_back(MakeEntry<QtScan>("scan", "Qt", kScans * kItems));
  entries.push_back(MakeEntry<PocoScan>("scan", "POCO", kScans * kItems));
}

}  // namespace bench
