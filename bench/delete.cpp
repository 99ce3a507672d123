// One row, by key, by one DELETE statement.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "poco_items.h"
#include "qt_items.h"
#include "soci_items.h"
#include "sqlitecpp_items.h"
#include "task.h"

namespace bench {

namespace {

using Poco::Data::Keywords::now;
using Poco::Data::Keywords::use;

class RawDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) {
      char text[64];
      std::snprintf(text, sizeof text, "DELETE FROM items WHERE id = %u", id);
      fItems.Send(text);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  RawItems fItems;
};

class SqldbDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) fItems.table->DeleteRecords(boost::make_shared<IdIs>(id));
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  SqldbItems fItems;
};

class SqliteCppDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) {
      SQLite::Statement query(fItems.database, "DELETE FROM items WHERE id = ?");
      query.bind(1, id);
      query.exec();
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  SqliteCppItems fItems;
};

class SociDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) {
      fItems.session << "DELETE FROM items WHERE id = :id", soci::use(id);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  SociItems fItems;
};

class QtDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("DELETE FROM items WHERE id = ?"));
      query.addBindValue(id);
      Execute(query);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  QtItems fItems;
};

class PocoDelete : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kItems; ++id) {
      fItems.session << "DELETE FROM items WHERE id = ?", use(id), now;
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kFillItems); }

 private:
  PocoItems fItems;
};

}  // namespace

void AddDelete(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawDelete>("delete", "SQLite", kItems));
  entries.push_back(MakeEntry<SqldbDelete>("delete", "sqldb", kItems));
  entries.push_back(MakeEntry<SqliteCppDelete>("delete", "SQLiteCpp", kItems));
  entries.push_back(MakeEntry<SociDelete>("delete", "SOCI", kItems));
  entries.push_back(MakeEntry<QtDelete>("delete", "Qt", kItems));
  entries.push_back(MakeEntry<PocoDelete>("delete", "POCO", kItems));
}

}  // namespace bench
