#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "work.h"

namespace cluster {

namespace {

constexpr int kRepeats = 15;

// How many milliseconds `action` takes: the median of several times.
template <typename Action>
double Time(Action action) {
  std::vector<double> times;
  for (int i = 0; i < kRepeats; ++i) {
    const double start = Now();
    action();
    times.push_back(Now() - start);
  }
  std::sort(times.begin(), times.end());
  return times[kRepeats / 2];
}

struct Costs {
  double fCommit;
  double fTransaction;
  double fScan;
};

Costs MeasureOne(const std::string& path) {
  OpenDatabase database(path);
  Work work(database);
  work.Create();
  Costs costs{};
  costs.fCommit = Time([&] { work.Insert(0, 0); });
  costs.fTransaction = Time([&] {
    database.BeginTransaction();
    for (std::uint32_t step = 1; step <= 1000; ++step) work.Insert(1, step);
    database.EndTransaction(true, false);
  });
  database.SendQuery(
      "DELETE FROM work; WITH RECURSIVE steps(step) AS (SELECT 1 UNION ALL SELECT step + 1 FROM steps WHERE step < "
      "100000) INSERT INTO work SELECT 2, step FROM steps",
      nullptr, nullptr);
  costs.fScan = Time([&] {
    // A connection that has read nothing yet, as a program that has just begun.
    OpenDatabase fresh(path);
    if (Work(fresh).Scan() != 100000) throw std::runtime_error("the scan found other rows than were written");
  });
  return costs;
}

void PrintRow(const char* work, double local, double remote) {
  std::printf("| %s | %.1f ms | %.1f ms | %.0f |\n", work, local, remote, remote / local);
}

}  // namespace

void Measure(const std::string& local, const std::string& remote) {
  const Costs file = MeasureOne(local);
  const Costs cluster = MeasureOne(remote);
  std::printf("| work | file | cluster | times as long |\n|---|---|---|---|\n");
  PrintRow("a commit", file.fCommit, cluster.fCommit);
  PrintRow("1,000 inserts in one transaction", file.fTransaction, cluster.fTransaction);
  PrintRow("the first scan of 100,000 rows", file.fScan, cluster.fScan);
}

}  // namespace cluster
