// How many rows match, and whether one does, by key.

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

using Poco::Data::Keywords::into;
using Poco::Data::Keywords::now;
using Poco::Data::Keywords::use;

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

class SqliteCppCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      SQLite::Statement query(fItems.database, "SELECT COUNT(ROWID) FROM items WHERE id = ?");
      query.bind(1, id);
      query.executeStep();
      sum += query.getColumn(0).getInt();
    }
    return sum;
  }

 private:
  SqliteCppItems fItems;
};

class SociCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      int count = 0;
      fItems.session << "SELECT COUNT(ROWID) FROM items WHERE id = :id", soci::into(count), soci::use(id);
      sum += count;
    }
    return sum;
  }

 private:
  SociItems fItems;
};

class QtCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("SELECT COUNT(ROWID) FROM items WHERE id = ?"));
      query.addBindValue(id);
      Execute(query);
      query.next();
      sum += query.value(0).toInt();
    }
    return sum;
  }

 private:
  QtItems fItems;
};

class PocoCount : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      int count = 0;
      fItems.session << "SELECT COUNT(ROWID) FROM items WHERE id = ?", into(count), use(id), now;
      sum += count;
    }
    return sum;
  }

 private:
  PocoItems fItems;
};

class SqliteCppHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      SQLite::Statement query(fItems.database, "SELECT ROWID FROM items WHERE id = ? LIMIT 1");
      query.bind(1, id);
      if (query.executeStep()) ++found;
    }
    return found;
  }

 private:
  SqliteCppItems fItems;
};

class SociHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      long long row = 0;
      fItems.session << "SELECT ROWID FROM items WHERE id = :id LIMIT 1", soci::into(row), soci::use(id);
      if (fItems.session.got_data()) ++found;
    }
    return found;
  }

 private:
  SociItems fItems;
};

class QtHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("SELECT ROWID FROM items WHERE id = ? LIMIT 1"));
      query.addBindValue(id);
      Execute(query);
      if (query.next()) ++found;
    }
    return found;
  }

 private:
  QtItems fItems;
};

class PocoHas : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t found = 0;
    for (std::uint32_t id = 1; id <= kStatements; ++id) {
      Poco::Int64 row = 0;
      Poco::Data::Statement select =
          (fItems.session << "SELECT ROWID FROM items WHERE id = ? LIMIT 1", into(row), use(id));
      if (select.execute() != 0) ++found;
    }
    return found;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddRecordQueries(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawCount>("count", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbCount>("count", "sqldb", kStatements));
  entries.push_back(MakeEntry<SqliteCppCount>("count", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociCount>("count", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtCount>("count", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoCount>("count", "POCO", kStatements));
  entries.push_back(MakeEntry<RawHas>("has", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbHas>("has", "sqldb", kStatements));
  entries.push_back(MakeEntry<SqliteCppHas>("has", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociHas>("has", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtHas>("has", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoHas>("has", "POCO", kStatements));
}

}  // namespace bench
