// A select with a term, an order that the key yields, a limit and an offset, into a struct.

#include <cstdio>
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

using Poco::Data::Keywords::bind;
using Poco::Data::Keywords::into;
using Poco::Data::Keywords::now;
using Poco::Data::Keywords::use;

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

constexpr char kBoundSelect[] =
    "SELECT id, quantity, price, stock FROM items WHERE id > ? ORDER BY id LIMIT ? OFFSET ?";

class SqliteCppSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      SQLite::Statement query(fItems.database, kBoundSelect);
      query.bind(1, id);
      query.bind(2, kLimit);
      query.bind(3, kOffset);
      while (query.executeStep()) sum += Sum(query.getColumns<Item, 4>());
    }
    return sum;
  }

 private:
  SqliteCppItems fItems;
};

class SociSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      Item item{};
      soci::statement statement =
          (fItems.session.prepare
               << "SELECT id, quantity, price, stock FROM items WHERE id > :id ORDER BY id LIMIT :limit OFFSET :offset",
           soci::into(item.id), soci::into(item.quantity), soci::into(item.price), soci::into(item.stock),
           soci::use(id), soci::use(kLimit), soci::use(kOffset));
      statement.execute();
      while (statement.fetch()) sum += Sum(item);
    }
    return sum;
  }

 private:
  SociItems fItems;
};

class QtSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      QSqlQuery query = fItems.Prepare(
          QStringLiteral("SELECT id, quantity, price, stock FROM items WHERE id > ? ORDER BY id LIMIT ? OFFSET ?"));
      query.bindValue(0, id);
      query.bindValue(1, kLimit);
      query.bindValue(2, kOffset);
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

class PocoSelect : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 0; id < kSelects; ++id) {
      std::vector<Item> items;
      fItems.session << kBoundSelect, into(items), use(id), bind(kLimit), bind(kOffset), now;
      for (const Item& item : items) sum += Sum(item);
    }
    return sum;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddSelect(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawSelect>("select", "SQLite", kSelects));
  entries.push_back(MakeEntry<SqldbSelect>("select", "sqldb", kSelects));
  entries.push_back(MakeEntry<SqliteCppSelect>("select", "SQLiteCpp", kSelects));
  entries.push_back(MakeEntry<SociSelect>("select", "SOCI", kSelects));
  entries.push_back(MakeEntry<QtSelect>("select", "Qt", kSelects));
  entries.push_back(MakeEntry<PocoSelect>("select", "POCO", kSelects));
}

}  // namespace bench
