// Measures how long each piece of work takes each layer. Takes Google Benchmark's options.

#include <benchmark/benchmark.h>

#include "task.h"
#include "works.h"

namespace {

void Measure(benchmark::State& state, const bench::Entry& entry) {
  const std::unique_ptr<bench::Task> task = entry.make();
  // What is set up once, such as the schema that SQLite reads, is not to be paid for by whoever comes first.
  task->Run();
  task->Reset();
  for ([[maybe_unused]] auto iteration : state) {
    benchmark::DoNotOptimize(task->Run());
    state.PauseTiming();
    task->Reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * entry.units);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<bench::Entry> entries;
  bench::AddStatements(entries);
  bench::AddEncoding(entries);
  for (const bench::Entry& entry : entries) {
    if (entry.make() == nullptr) continue;
    benchmark::RegisterBenchmark((entry.work + "/" + entry.layer).c_str(), [entry](benchmark::State& state) {
      Measure(state, entry);
    })->Unit(benchmark::kMicrosecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
