// One row by one REPLACE statement, by key, with bound values.

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

class SqliteCppReplace : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      SQLite::Statement query(fItems.database, "REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)");
      query.bind(1, id);
      query.bind(2, id + 1);
      query.bind(3, id + 2);
      query.exec();
    }
    return fItems.Changes() - before;
  }

 private:
  SqliteCppItems fItems;
};

class SociReplace : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      const std::uint32_t quantity = id + 1;
      const std::uint32_t price = id + 2;
      fItems.session << "REPLACE INTO items (id, quantity, price) VALUES (:id, :quantity, :price)", soci::use(id),
          soci::use(quantity), soci::use(price);
    }
    return fItems.Changes() - before;
  }

 private:
  SociItems fItems;
};

class QtReplace : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)"));
      query.addBindValue(id);
      query.addBindValue(id + 1);
      query.addBindValue(id + 2);
      Execute(query);
    }
    return fItems.Changes() - before;
  }

 private:
  QtItems fItems;
};

class PocoReplace : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      std::uint32_t quantity = id + 1;
      std::uint32_t price = id + 2;
      fItems.session << "REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)", use(id), use(quantity), use(price),
          now;
    }
    return fItems.Changes() - before;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddReplace(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawReplace>("replace", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbReplace>("replace", "sqldb", kStatements));
  entries.push_back(MakeEntry<SqliteCppReplace>("replace", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociReplace>("replace", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtReplace>("replace", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoReplace>("replace", "POCO", kStatements));
}

}  // namespace bench
