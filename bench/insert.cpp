// One row by one INSERT statement with bound values, compiled for each row or once for all.

#include <cstdio>
#include <vector>

#include <boost/make_shared.hpp>

#include "items.h"
#include "poco_items.h"
#include "qt_items.h"
#include "soci_items.h"
#include "sqldb/kit/bulk.h"
#include "sqlitecpp_items.h"
#include "task.h"

namespace bench {

namespace {

using Poco::Data::Keywords::now;
using Poco::Data::Keywords::use;

class RawInsert : public Task {
 public:
  RawInsert() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) Insert(i);
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  // With a new name for each parameter, as values that are made anew for each row have it.
  void Insert(std::uint32_t i) {
    char names[3][16];
    for (char(&name)[16] : names) std::snprintf(name, sizeof name, ":%d", ++fLastName);
    char text[128];
    std::snprintf(text, sizeof text, "INSERT INTO items ( quantity, price, stock ) VALUES (%s,%s,%s )", names[0],
                  names[1], names[2]);
    sqlite3_stmt* const statement = fItems.Prepare(text);
    const std::uint32_t numbers[] = {i, i + 1, i + 2};
    for (int column = 0; column < 3; ++column) {
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, names[column]), numbers[column]);
    }
    fItems.Finish(statement);
  }

  RawItems fItems;
  int fLastName = 0;
};

class SqldbInsert : public Task {
 public:
  SqldbInsert() : fInsert(fItems.table->NewInsert()) {
    fInsert->fColumns = {fItems.quantity, fItems.price, fItems.stock};
    Reset();
  }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      fInsert->fValues.push_back(boost::make_shared<Number>(i));
      fInsert->fValues.push_back(boost::make_shared<Number>(i + 1));
      fInsert->fValues.push_back(boost::make_shared<Number>(i + 2));
      fInsert->PerformInsert(true);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SqldbItems fItems;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
};

// The same with a text that stays the same.
class RawInsertReused : public Task {
 public:
  RawInsertReused() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      sqlite3_stmt* const statement = fItems.Prepare("INSERT INTO items ( quantity, price, stock ) VALUES (:1,:2,:3 )");
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":1"), i);
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":2"), i + 1);
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":3"), i + 2);
      fItems.Finish(statement);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  RawItems fItems;
};

// The same with values that are kept and set anew for each row.
class SqldbInsertReused : public Task {
 public:
  SqldbInsertReused() : fInsert(fItems.table->NewInsert()) {
    fInsert->fColumns = {fItems.quantity, fItems.price, fItems.stock};
    fInsert->fValues = {fQuantity, fPrice, fStock};
    Reset();
  }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      fQuantity->fNumber = i;
      fPrice->fNumber = i + 1;
      fStock->fNumber = i + 2;
      fInsert->PerformInsert(false);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SqldbItems fItems;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  boost::shared_ptr<Number> fQuantity = boost::make_shared<Number>(0);
  boost::shared_ptr<Number> fPrice = boost::make_shared<Number>(0);
  boost::shared_ptr<Number> fStock = boost::make_shared<Number>(0);
};

// One statement compiled once for all rows.
class RawInsertPrepared : public Task {
 public:
  RawInsertPrepared() { Reset(); }
  ~RawInsertPrepared() override { sqlite3_finalize(fStatement); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      sqlite3_bind_int64(fStatement, 1, i);
      sqlite3_bind_int64(fStatement, 2, i + 1);
      sqlite3_bind_int64(fStatement, 3, i + 2);
      if (sqlite3_step(fStatement) != SQLITE_DONE) Fail("step");
      sqlite3_reset(fStatement);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  RawItems fItems;
  sqlite3_stmt* fStatement = fItems.Prepare("INSERT INTO items ( quantity, price, stock ) VALUES (?,?,? )");
};

// The same with the kit, which compiles it once in a Run. The rows are there before.
class KitInsertPrepared : public Task {
 public:
  KitInsertPrepared() {
    for (std::uint32_t i = 1; i <= kStatements; ++i) fRows.push_back(Item{0, i, i + 1, i + 2});
    Reset();
  }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    sqldb::kit::InsertMany(fItems.database, "INSERT INTO items ( quantity, price, stock ) VALUES (?,?,? )", fRows,
                           [](sqlite3_stmt* statement, const Item& row) {
                             sqlite3_bind_int64(statement, 1, row.quantity);
                             sqlite3_bind_int64(statement, 2, row.price);
                             sqlite3_bind_int64(statement, 3, row.stock);
                           });
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SqldbItems fItems;
  std::vector<Item> fRows;
};

class SqliteCppInsert : public Task {
 public:
  SqliteCppInsert() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      SQLite::Statement query(fItems.database, "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)");
      query.bind(1, i);
      query.bind(2, i + 1);
      query.bind(3, i + 2);
      query.exec();
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SqliteCppItems fItems;
};

class SociInsert : public Task {
 public:
  SociInsert() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      const std::uint32_t price = i + 1;
      const std::uint32_t stock = i + 2;
      fItems.session << "INSERT INTO items (quantity, price, stock) VALUES (:quantity, :price, :stock)", soci::use(i),
          soci::use(price), soci::use(stock);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SociItems fItems;
};

class QtInsert : public Task {
 public:
  QtInsert() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      QSqlQuery query = fItems.Prepare(QStringLiteral("INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)"));
      query.addBindValue(i);
      query.addBindValue(i + 1);
      query.addBindValue(i + 2);
      Execute(query);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  QtItems fItems;
};

class PocoInsert : public Task {
 public:
  PocoInsert() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      std::uint32_t price = i + 1;
      std::uint32_t stock = i + 2;
      fItems.session << "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)", use(i), use(price), use(stock),
          now;
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  PocoItems fItems;
};

class SqliteCppInsertPrepared : public Task {
 public:
  SqliteCppInsertPrepared() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      fQuery.bind(1, i);
      fQuery.bind(2, i + 1);
      fQuery.bind(3, i + 2);
      fQuery.exec();
      fQuery.reset();
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SqliteCppItems fItems;
  SQLite::Statement fQuery{fItems.database, "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)"};
};

class SociInsertPrepared : public Task {
 public:
  SociInsertPrepared() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      fQuantity = i;
      fPrice = i + 1;
      fStock = i + 2;
      fStatement.execute(true);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  SociItems fItems;
  std::uint32_t fQuantity = 0;
  std::uint32_t fPrice = 0;
  std::uint32_t fStock = 0;
  soci::statement fStatement =
      (fItems.session.prepare << "INSERT INTO items (quantity, price, stock) VALUES (:quantity, :price, :stock)",
       soci::use(fQuantity), soci::use(fPrice), soci::use(fStock));
};

class QtInsertPrepared : public Task {
 public:
  QtInsertPrepared() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      fQuery.bindValue(0, i);
      fQuery.bindValue(1, i + 1);
      fQuery.bindValue(2, i + 2);
      Execute(fQuery);
    }
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  QtItems fItems;
  QSqlQuery fQuery = fItems.Prepare(QStringLiteral("INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)"));
};

// POCO compiles a statement anew each time it is executed. What it executes for many rows after compiling it once takes
// the values of all of them together.
class PocoInsertPrepared : public Task {
 public:
  PocoInsertPrepared() { Reset(); }

  std::int64_t Run() override {
    const std::int64_t before = fItems.Changes();
    std::vector<std::uint32_t> quantities(kStatements);
    std::vector<std::uint32_t> prices(kStatements);
    std::vector<std::uint32_t> stocks(kStatements);
    for (std::uint32_t i = 1; i <= kStatements; ++i) {
      quantities[i - 1] = i;
      prices[i - 1] = i + 1;
      stocks[i - 1] = i + 2;
    }
    fItems.session << "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)", use(quantities), use(prices),
        use(stocks), now;
    return fItems.Changes() - before;
  }
  void Reset() override { fItems.Send(kEmptyItems); }

 private:
  PocoItems fItems;
};

}  // namespace

void AddInsert(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawInsert>("insert", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbInsert>("insert", "sqldb", kStatements));
  entries.push_back(MakeEntry<SqliteCppInsert>("insert", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociInsert>("insert", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtInsert>("insert", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoInsert>("insert", "POCO", kStatements));
  entries.push_back(MakeEntry<RawInsertReused>("insert, reused values", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbInsertReused>("insert, reused values", "sqldb", kStatements));
  entries.push_back(MakeEntry<RawInsertPrepared>("insert, compiled once", "SQLite", kStatements));
  entries.push_back(MakeEntry<KitInsertPrepared>("insert, compiled once", "sqldb kit", kStatements));
  entries.push_back(MakeEntry<SqliteCppInsertPrepared>("insert, compiled once", "SQLiteCpp", kStatements));
  entries.push_back(MakeEntry<SociInsertPrepared>("insert, compiled once", "SOCI", kStatements));
  entries.push_back(MakeEntry<QtInsertPrepared>("insert, compiled once", "Qt", kStatements));
  entries.push_back(MakeEntry<PocoInsertPrepared>("insert, compiled once", "POCO", kStatements));
}

}  // namespace bench
