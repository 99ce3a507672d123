// One row by one INSERT statement with bound values, compiled for each row.

#include <cstdio>

#include <boost/make_shared.hpp>

#include "items.h"
#include "task.h"

namespace bench {

namespace {

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

// One statement compiled once for all rows, which sqldb does not do: the other way to write this program.
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

}  // namespace

void AddInsert(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawInsert>("insert", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbInsert>("insert", "sqldb", kStatements));
  entries.push_back(MakeEntry<RawInsertReused>("insert, reused values", "SQLite", kStatements));
  entries.push_back(MakeEntry<SqldbInsertReused>("insert, reused values", "sqldb", kStatements));
  entries.push_back(MakeEntry<RawInsertPrepared>("insert, compiled once", "SQLite", kStatements));
}

}  // namespace bench
