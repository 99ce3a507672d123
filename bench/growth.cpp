// Whether the time of one unit of work stays the same as the work grows: the table's rows, its columns, the objects
// that live at the same time. Takes Google Benchmark's options. Names are WORK/LAYER/SIZE.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "works.h"

namespace {

using bench::Company;
using bench::Layer;
using bench::LayerMaker;
using bench::Work;

// What a work needs for one size.
struct Grown {
  std::unique_ptr<Layer> layer;
  Work work;
  // How many units the work handles each time.
  std::int64_t units;
};

using Grow = Grown (*)(const LayerMaker& layer, std::int64_t size);

std::unique_ptr<Layer> ConnectTo(const LayerMaker& maker, const std::vector<std::string>& statements) {
  std::unique_ptr<Layer> layer = bench::Connect(maker, bench::Place{":memory:", true});
  for (const std::string& statement : statements) layer->Send(statement);
  layer->Send("BEGIN");
  return layer;
}

Grown ScanOfRows(const LayerMaker& maker, std::int64_t rows) {
  auto layer = ConnectTo(maker, bench::TableOfItems(rows));
  Work work = layer->ScanItems();
  return Grown{std::move(layer), std::move(work), rows};
}

Grown CountAmongRows(const LayerMaker& maker, std::int64_t rows) {
  auto layer = ConnectTo(maker, bench::TableOfItems(rows));
  Work work = layer->CountItem();
  return Grown{std::move(layer), std::move(work), 1};
}

// Columns c1, c2 and so on.
std::vector<std::string> WideTable(std::int64_t columns) {
  std::string list;
  std::string values;
  for (std::int64_t i = 1; i <= columns; ++i) {
    list += (i > 1 ? ", c" : "c") + std::to_string(i) + " INTEGER";
    values += (i > 1 ? ", i + " : "i + ") + std::to_string(i);
  }
  return {"CREATE TABLE wide (" + list + ")",
          "INSERT INTO wide WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < " +
              std::to_string(bench::kRows) + ") SELECT " + values + " FROM n"};
}

Grown InsertOfColumns(const LayerMaker& maker, std::int64_t columns) {
  auto layer = ConnectTo(maker, {WideTable(columns).front()});
  Work work = layer->InsertWide(static_cast<int>(columns));
  return Grown{std::move(layer), std::move(work), columns};
}

Grown ScanOfColumns(const LayerMaker& maker, std::int64_t columns) {
  auto layer = ConnectTo(maker, WideTable(columns));
  Work work = layer->ScanWide(static_cast<int>(columns));
  return Grown{std::move(layer), std::move(work), bench::kRows * columns};
}

template <Company kCompany>
Grown CountBeside(const LayerMaker& maker, std::int64_t others) {
  auto layer = ConnectTo(maker, bench::TableOfItems(bench::kRows));
  if (!layer->Add(kCompany, others)) return Grown{nullptr, {}, 0};
  Work work = layer->CountItem();
  return Grown{std::move(layer), std::move(work), 1};
}

// Kept from one measurement to the next, since the larger tables take longer to make than to measure.
const Grown& GrownTo(const LayerMaker& layer, Grow grow, std::int64_t size) {
  static Grown grown;
  static const LayerMaker* lastLayer = nullptr;
  static Grow lastGrow = nullptr;
  static std::int64_t lastSize = 0;
  if (lastLayer != &layer || lastGrow != grow || lastSize != size) {
    // The one before first: SQLite is set up anew.
    grown.work = {};
    grown.layer.reset();
    grown = grow(layer, size);
    lastLayer = &layer;
    lastGrow = grow;
    lastSize = size;
  }
  return grown;
}

void Measure(benchmark::State& state, const LayerMaker& layer, Grow grow) {
  const Grown& grown = GrownTo(layer, grow, state.range(0));
  for ([[maybe_unused]] auto iteration : state) benchmark::DoNotOptimize(grown.work(1));
  state.SetItemsProcessed(state.iterations() * grown.units);
}

struct GrowingWork {
  const char* name;
  Grow grow;
  std::vector<std::int64_t> sizes;
};

std::vector<GrowingWork> GrowingWorks() {
  const std::vector<std::int64_t> rows = {1000, 10000, 100000, 1000000, 10000000};
  const std::vector<std::int64_t> columns = {1, 2, 5, 10, 20, 50, 100, 200};
  const std::vector<std::int64_t> others = {1, 10, 100, 1000, 10000};
  return {
      {"scan, by rows", &ScanOfRows, rows},
      {"count, by rows", &CountAmongRows, rows},
      {"insert, by columns", &InsertOfColumns, columns},
      {"scan, by columns", &ScanOfColumns, columns},
      {"count, by live cursors", &CountBeside<Company::kCursors>, others},
      {"count, by tables", &CountBeside<Company::kTables>, others},
  };
}

// Those that the library is, and the calls by hand.
bool IsMeasured(const LayerMaker& layer) {
  return layer.make == &bench::MakeByHand || layer.make == &bench::MakeCore || layer.make == &bench::MakeKit;
}

}  // namespace

int main(int argc, char** argv) {
  for (const GrowingWork& work : GrowingWorks()) {
    for (const LayerMaker& layer : bench::Layers()) {
      if (!IsMeasured(layer) || !work.grow(layer, work.sizes.front()).work) continue;
      auto* const measurement = benchmark::RegisterBenchmark(
          (std::string(work.name) + "/" + layer.name).c_str(),
          [&layer, grow = work.grow](benchmark::State& state) { Measure(state, layer, grow); });
      for (const std::int64_t size : work.sizes) measurement->Arg(size);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
