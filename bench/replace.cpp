// One row by one REPLACE statement, by key, with bound values.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

class RawReplace : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) Replace(id);
    return fItems.Changes() - before;
  }

 private:
  void Replace(std::uint32_t id) {
    char names[3][16];
    for (char(&name)[16] : names) std::snprintf(name, sizeof name, ":%d", ++fLastName);
    char text[128];
    std::snprintf(text, sizeof text, "REPLACE INTO items ( id, quantity, price ) VALUES (%s,%s,%s )", names[0],
                  names[1], names[2]);
    sqlite3_stmt* const statement = fItems.Prepare(text);
    const std::uint32_t numbers[] = {id, id + 1, id + 2};
    for (int column = 0; column < 3; ++column) {
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, names[column]), numbers[column]);
    }
    fItems.Finish(statement);
  }

  RawItems fItems;
  int fLastName = 0;
};

class SqldbReplace : public Task {
 public:
  SqldbReplace() : fReplace(fItems.table->NewReplace()) {
    fReplace->fColumns = {fItems.id, fItems.quantity, fItems.price};
  }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      fReplace->fValues.push_back(boost::make_shared<Number>(id));
      fReplace->fValues.push_back(boost::make_shared<Number>(id + 1));
      fReplace->fValues.push_back(boost::make_shared<Number>(id + 2));
      fReplace->PerformReplace(true);
    }
    return fItems.Changes() - before;
  }

 private:
  SqldbItems fItems;
  boost::shared_ptr<sqldb::SQLReplaceClass> fReplace;
};

}  // namespace

void AddReplace(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawReplace>("replace", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbReplace>("replace", "sqldb", kStatements));
}

}  // namespace bench
