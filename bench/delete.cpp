// One row, by key, by one DELETE statement.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

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

}  // namespace

void AddDelete(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawDelete>("delete", "SQLite", kItems));
  entries.push_back(MakeEntry<SqldbDelete>("delete", "sqldb", kItems));
}

}  // namespace bench
