// One column of one row, by key, by one UPDATE statement.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

class RawUpdate : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      char text[128];
      std::snprintf(text, sizeof text, "UPDATE items SET quantity =  %u WHERE id = %u", id % 100, id);
      fItems.Send(text);
    }
    return fItems.Changes() - before;
  }

 private:
  RawItems fItems;
};

class SqldbUpdate : public Task {
 public:
  SqldbUpdate() : fUpdate(fItems.table->NewUpdate()) { fUpdate->fColumns = {fItems.quantity}; }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      fUpdate->fValues.push_back(boost::make_shared<Literal>(id % 100));
      fUpdate->fTerm = boost::make_shared<IdIs>(id);
      fUpdate->PerformUpdate(true);
    }
    return fItems.Changes() - before;
  }

 private:
  SqldbItems fItems;
  boost::shared_ptr<sqldb::SQLUpdateClass> fUpdate;
};

}  // namespace

void AddUpdate(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawUpdate>("update", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbUpdate>("update", "sqldb", kStatements));
}

}  // namespace bench
