// All rows of a table, four integer columns each, given to a function that reads them from the statement.

#include <Poco/Data/RecordSet.h>
#include <boost/make_shared.hpp>

#include "items.h"
#include "poco_items.h"
#include "qt_items.h"
#include "soci_items.h"
#include "sqlitecpp_items.h"
#include "task.h"

namespace bench {

namespace {

constexpr char kScan[] = "SELECT id, quantity, price, stock FROM items";

std::int64_t SumOfRow(sqlite3_stmt* statement) {
  std::int64_t sum = 0;
  for (int column = 0; column < 4; ++column) sum += sqlite3_column_int(statement, column);
  return sum;
}

class RawCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      sqlite3_stmt* const statement = fItems.Prepare(kScan);
      while (sqlite3_step(statement) == SQLITE_ROW) sum += SumOfRow(statement);
      sqlite3_finalize(statement);
    }
    return sum;
  }

 private:
  RawItems fItems;
};

class SummingCursor : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;

  bool ProcessRow(sqlite3_stmt* statement) override {
    fSum += SumOfRow(statement);
    return true;
  }

  std::int64_t fSum = 0;
};

class SqldbCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      boost::shared_ptr<sqldb::SQLSelectClass> select = fItems.database.NewSelect(fItems.table, 0);
      select << fItems.id << fItems.quantity << fItems.price << fItems.stock;
      const auto cursor = boost::make_shared<SummingCursor>(&fItems.database);
      select->PerformSelect(cursor);
      sum += cursor->fSum;
    }
    return sum;
  }

 private:
  SqldbItems fItems;
};

class SqliteCppCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      SQLite::Statement query(fItems.database, kScan);
      while (query.executeStep()) {
        for (int column = 0; column < 4; ++column) sum += query.getColumn(column).getInt();
      }
    }
    return sum;
  }

 private:
  SqliteCppItems fItems;
};

class SociCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      const soci::rowset<soci::row> rows = fItems.session.prepare << kScan;
      for (const soci::row& row : rows) {
        for (std::size_t column = 0; column < 4; ++column) sum += row.get<int>(column);
      }
    }
    return sum;
  }

 private:
  SociItems fItems;
};

class QtCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      QSqlQuery query = fItems.Prepare(QLatin1String(kScan));
      Execute(query);
      while (query.next()) {
        for (int column = 0; column < 4; ++column) sum += query.value(column).toInt();
      }
    }
    return sum;
  }

 private:
  QtItems fItems;
};

class PocoCallbackScan : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t sum = 0;
    for (std::uint32_t i = 0; i < kScans; ++i) {
      Poco::Data::Statement select = (fItems.session << kScan);
      select.setStorage("vector");
      select.execute();
      const Poco::Data::RecordSet rows(select);
      for (std::size_t row = 0; row < rows.rowCount(); ++row) {
        for (std::size_t column = 0; column < 4; ++column) sum += rows.value<Poco::Int64>(column, row);
      }
    }
    return sum;
  }

 private:
  PocoItems fItems;
};

}  // namespace

void AddCallbackScan(std::vector<Entry>& entries) {
  entries.push_back(MakeEntry<RawCallbackScan>("callback scan", "SQLite", kScans * kItems));
  entries.push_back(MakeEntry<SqldbCallbackScan>("callback scan", "sqldb", kScans * kItems));
  entries.push_back(MakeEntry<SqliteCppCallbackScan>("callback scan", "SQLiteCpp", kScans * kItems));
  entries.push_back(MakeEntry<SociCallbackScan>("callback scan", "SOCI", kScans * kItems));
  entries.push_back(MakeEntry<QtCallbackScan>("callback scan", "Qt", kScans * kItems));
  entries.push_back(MakeEntry<PocoCallbackScan>("callback scan", "POCO", kScans * kItems));
}

}  // namespace bench
