// One column of one row, by key, by one UPDATE statement.

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

// The same with a value and a term that are kept and set anew for each row.
class SqldbUpdateReused : public Task {
 public:
  SqldbUpdateReused() : fUpdate(fItems.table->NewUpdate()) {
    fUpdate->fColumns = {fItems.quantity};
    fUpdate->fValues = {fQuantity};
    fUpdate->fTerm = fTerm;
  }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      fQuantity->fNumber = id % 100;
      fTerm->fId = id;
      fUpdate->PerformUpdate(false);
    }
    return fItems.Changes() - before;
  }

 private:
  SqldbItems fItems;
  boost::shared_ptr<sqldb::SQLUpdateClass> fUpdate;
  boost::shared_ptr<Literal> fQuantity = boost::make_shared<Literal>(0);
  boost::shared_ptr<IdIs> fTerm = boost::make_shared<IdIs>(0);
};

class SqliteCppUpdate : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      SQLite::Statement query(fItems.database, "UPDATE items SET quantity = ? WHERE id = ?");
      query.bind(1, id % 100);
      query.bind(2, id);
      query.exec();
    }
    return fItems.Changes() - before;
  }

 private:
  SqliteCppItems fItems;
};

class SociUpdate : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      const std::uint32_t quantity = id % 100;
      fItems.session << "UPDATE items SET quantity = :quantity WHERE id = :id", soci::use(quantity), soci::use(id);
    }
    return fItems.Changes() - before;
  }

 private:
  SociItems fItems;
};

class QtUpdate : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("UPDATE items SET quantity = ? WHERE id = ?"));
      query.addBindValue(id % 100);
      query.addBindValue(id);
      Execute(query);
    }
    return fItems.Changes() - before;
  }

 private:
  QtItems fItems;
};

class PocoUpdate : public Task {
 public:
  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      std::uint32_t quantity = id % 100;
      fItems.session << "UPDATE items SET quantity = ? WHERE id = ?", use(quantity), use(id), now;
    }
    return fItems.Changes() - before;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddUpdate(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawUpdate>("update", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbUpdate>("update", "sqldb", kStatements));
  entries.push_back(MakeEntry<SqliteCppUpdate>("update", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociUpdate>("update", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtUpdate>("update", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoUpdate>("update", "POCO", kStatements));
  entries.push_back(MakeEntry<RawUpdate>("update, reused values", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbUpdateReused>("update, reused values", "sqldb", kStatements));
}

}  // namespace bench
