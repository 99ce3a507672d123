// Whether the time of one unit of work stays the same as the work grows: the table's rows, its columns, the cursors
// that live at the same time. Takes Google Benchmark's options. Names are WORK/LAYER/SIZE.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include "items.h"

namespace {

using bench::IntegerColumn;
using bench::RawItems;
using bench::SqldbItems;

using Column = boost::shared_ptr<sqldb::SQLColumnBase>;

// The table with so many rows; made once for all measurements, since that takes longer than most of them.
template <typename Items>
Items& ItemsOf(std::int64_t rows) {
  static std::map<std::int64_t, std::unique_ptr<Items>> made;
  std::unique_ptr<Items>& items = made[rows];
  if (items == nullptr) {
    items = std::make_unique<Items>();
    const std::string fill = "INSERT INTO items WITH RECURSIVE n(i) AS (SELECT " + std::to_string(bench::kItems) +
                             " + 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(rows) +
                             ") SELECT i, i * 7 % 100, i * 13 % 1000, i FROM n";
    if (rows > bench::kItems) items->Send(fill.c_str());
  }
  return *items;
}

// ---------------------------------------------------------------------------------------------------------------------
// Rows

void ScanRowsRaw(benchmark::State& state) {
  RawItems& items = ItemsOf<RawItems>(state.range(0));
  for ([[maybe_unused]] auto iteration : state) {
    sqlite3_stmt* const statement = items.Prepare("SELECT id, quantity, price, stock FROM items");
    std::int64_t sum = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      for (int column = 0; column < 4; ++column) sum += sqlite3_column_int(statement, column);
    }
    sqlite3_finalize(statement);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ScanRowsSqldb(benchmark::State& state) {
  SqldbItems& items = ItemsOf<SqldbItems>(state.range(0));
  for ([[maybe_unused]] auto iteration : state) {
    auto select = items.database.NewSelect(items.table, 0);
    select << items.id << items.quantity << items.price << items.stock;
    const auto cursor = boost::make_shared<sqldb::SQLStepCursor<bench::Item>>(&items.database, SqldbItems::Offsets());
    select->PrepareSelect(cursor);
    std::int64_t sum = 0;
    for (bench::Item item; cursor->Step(item) == 0;) {
      sum += std::int64_t{item.id} + item.quantity + item.price + item.stock;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void CountRowsRaw(benchmark::State& state) {
  RawItems& items = ItemsOf<RawItems>(state.range(0));
  for ([[maybe_unused]] auto iteration : state) {
    sqlite3_stmt* const statement = items.Prepare("SELECT COUNT(ROWID) FROM items WHERE id = 500");
    sqlite3_step(statement);
    benchmark::DoNotOptimize(sqlite3_column_int(statement, 0));
    sqlite3_finalize(statement);
  }
  state.SetItemsProcessed(state.iterations());
}

void CountRowsSqldb(benchmark::State& state) {
  SqldbItems& items = ItemsOf<SqldbItems>(state.range(0));
  const auto term = boost::make_shared<bench::IdIs>(500);
  for ([[maybe_unused]] auto iteration : state) benchmark::DoNotOptimize(items.table->CountRecords(term));
  state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------------------------------------------------
// Columns

// "c1, c2, c3", each with what comes before and after it.
std::string ListOf(std::int64_t columns, const std::string& before, const std::string& after) {
  std::string list;
  for (std::int64_t i = 1; i <= columns; ++i) {
    list += (i == 1 ? "" : ", ") + before + std::to_string(i) + after;
  }
  return list;
}

std::string CreateWide(std::int64_t columns) { return "CREATE TABLE wide (" + ListOf(columns, "c", " INTEGER") + ")"; }

void InsertColumnsRaw(benchmark::State& state) {
  const std::int64_t columns = state.range(0);
  RawItems items;
  items.Send(CreateWide(columns).c_str());
  const std::string text =
      "INSERT INTO wide (" + ListOf(columns, "c", "") + ") VALUES (" + ListOf(columns, ":", "") + ")";
  std::vector<std::string> names;
  for (std::int64_t i = 1; i <= columns; ++i) names.push_back(":" + std::to_string(i));
  for ([[maybe_unused]] auto iteration : state) {
    sqlite3_stmt* const statement = items.Prepare(text.c_str());
    for (const std::string& name : names) {
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, name.c_str()), 1);
    }
    items.Finish(statement);
  }
  state.SetItemsProcessed(state.iterations() * columns);
}

// A table of so many columns.
class Wide {
 public:
  explicit Wide(std::int64_t columns) : table(items.database.NewTable("wide")) {
    for (std::int64_t i = 1; i <= columns; ++i) {
      const Column column =
          boost::make_shared<IntegerColumn>(table.get(), "c" + std::to_string(i), true, false, false, "");
      table->AddColumn(column);
      list.push_back(column);
    }
    table->Create();
  }

  SqldbItems items;
  boost::shared_ptr<sqldb::SQLTableClass> table;
  std::vector<Column> list;
};

void InsertColumnsSqldb(benchmark::State& state) {
  Wide wide(state.range(0));
  const auto insert = wide.table->NewInsert();
  insert->fColumns = wide.list;
  for (std::size_t i = 0; i < wide.list.size(); ++i) insert->fValues.push_back(boost::make_shared<bench::Number>(1));
  for ([[maybe_unused]] auto iteration : state) insert->PerformInsert(false);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

constexpr int kWideRows = 1000;

std::string FillWide(std::int64_t columns) {
  return "INSERT INTO wide WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 1000) SELECT " +
         ListOf(columns, "i + ", "") + " FROM n";
}

void ScanColumnsRaw(benchmark::State& state) {
  const int columns = static_cast<int>(state.range(0));
  RawItems items;
  items.Send(CreateWide(columns).c_str());
  items.Send(FillWide(columns).c_str());
  std::vector<std::uint32_t> row(static_cast<std::size_t>(columns));
  const std::string text = "SELECT " + ListOf(columns, "c", "") + " FROM wide";
  for ([[maybe_unused]] auto iteration : state) {
    sqlite3_stmt* const statement = items.Prepare(text.c_str());
    while (sqlite3_step(statement) == SQLITE_ROW) {
      for (int column = 0; column < columns; ++column) {
        row[static_cast<std::size_t>(column)] = static_cast<std::uint32_t>(sqlite3_column_int(statement, column));
      }
      benchmark::DoNotOptimize(row.data());
      benchmark::ClobberMemory();
    }
    sqlite3_finalize(statement);
  }
  state.SetItemsProcessed(state.iterations() * kWideRows * columns);
}

void ScanColumnsSqldb(benchmark::State& state) {
  Wide wide(state.range(0));
  wide.items.Send(FillWide(state.range(0)).c_str());
  std::vector<std::uint32_t> row(wide.list.size());
  sqldb::OffsetSpec offsets;
  for (std::uint32_t i = 0; i < row.size(); ++i) offsets.PushOffset(i * 4, 0);
  for ([[maybe_unused]] auto iteration : state) {
    auto select = wide.items.database.NewSelect(wide.table, 0);
    select->fColumns = wide.list;
    const auto cursor = boost::make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&wide.items.database, offsets);
    select->PrepareSelect(cursor);
    while (cursor->Step(row[0]) == 0) {
      benchmark::DoNotOptimize(row.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kWideRows * state.range(0));
}

// ---------------------------------------------------------------------------------------------------------------------
// Live cursors and tables

// Each query makes a cursor and takes it off the database's list again, behind all the others.
void CountBesideCursors(benchmark::State& state) {
  SqldbItems items;
  std::vector<boost::shared_ptr<sqldb::SQLCursorBase>> others;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    others.push_back(boost::make_shared<sqldb::SQLCursorBase>(&items.database));
  }
  const auto term = boost::make_shared<bench::IdIs>(500);
  for ([[maybe_unused]] auto iteration : state) benchmark::DoNotOptimize(items.table->CountRecords(term));
  state.SetItemsProcessed(state.iterations());
}

// A counting query finds its table in the database's list, behind all the others.
void CountBesideTables(benchmark::State& state) {
  SqldbItems items;
  for (std::int64_t i = 1; i < state.range(0); ++i) items.database.NewTable("other");
  const auto last = items.database.NewTable("items");
  const auto term = boost::make_shared<bench::IdIs>(500);
  for ([[maybe_unused]] auto iteration : state) benchmark::DoNotOptimize(last->CountRecords(term));
  state.SetItemsProcessed(state.iterations());
}

void Rows(benchmark::internal::Benchmark* work) { work->RangeMultiplier(10)->Range(1000, 10000000); }
void Columns(benchmark::internal::Benchmark* work) {
  for (const int columns : {1, 2, 5, 10, 20, 50, 100, 200}) work->Arg(columns);
}
void Objects(benchmark::internal::Benchmark* work) { work->RangeMultiplier(10)->Range(1, 10000); }

}  // namespace

BENCHMARK(ScanRowsRaw)->Name("scan, by rows/SQLite")->Apply(Rows);
BENCHMARK(ScanRowsSqldb)->Name("scan, by rows/sqldb")->Apply(Rows);
BENCHMARK(CountRowsRaw)->Name("count, by rows/SQLite")->Apply(Rows);
BENCHMARK(CountRowsSqldb)->Name("count, by rows/sqldb")->Apply(Rows);
BENCHMARK(InsertColumnsRaw)->Name("insert, by columns/SQLite")->Apply(Columns);
BENCHMARK(InsertColumnsSqldb)->Name("insert, by columns/sqldb")->Apply(Columns);
BENCHMARK(ScanColumnsRaw)->Name("scan, by columns/SQLite")->Apply(Columns);
BENCHMARK(ScanColumnsSqldb)->Name("scan, by columns/sqldb")->Apply(Columns);
BENCHMARK(CountBesideCursors)->Name("count, by live cursors/sqldb")->Apply(Objects);
BENCHMARK(CountBesideTables)->Name("count, by tables/sqldb")->Apply(Objects);

BENCHMARK_MAIN();
