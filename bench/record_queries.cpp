// How many rows match, and whether one does, by key.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

class RawCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      char text[64];
      std::snprintf(text, sizeof text, "SELECT COUNT(ROWID) FROM items WHERE id = %u", id);
      sqlite3_stmt* const statement = fItems.Prepare(text);
      if (sqlite3_step(statement) != SQLITE_ROW) Fail("step");
      sum += sqlite3_column_int(statement, 0);
      sqlite3_finalize(statement);
    }
    return sum;
  }

 private:
  RawItems fItems;
};

class SqldbCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) sum += fItems.table->CountRecords(boost::make_shared<IdIs>(id));
    return sum;
  }

 private:
  SqldbItems fItems;
};

class RawHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      char text[64];
      std::snprintf(text, sizeof text, "SELECT ROWID FROM items WHERE id = %u LIMIT 1", id);
      sqlite3_stmt* const statement = fItems.Prepare(text);
      if (sqlite3_step(statement) == SQLITE_ROW) ++found;
      sqlite3_finalize(statement);
    }
    return found;
  }

 private:
  RawItems fItems;
};

class SqldbHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) found += fItems.table->HasTerm(boost::make_shared<IdIs>(id));
    return found;
  }

 private:
  SqldbItems fItems;
};

}  // namespace

void AddRecordQueries(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawCount>("count", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbCount>("count", "sqldb", kStatements));
  entries.push_back(MakeEntry<RawHas>("has", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbHas>("has", "sqldb", kStatements));
}

}  // namespace bench
