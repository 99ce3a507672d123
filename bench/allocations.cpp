// Counts the allocations of each piece of work by each layer, SQLite's included, and checks that the layers did the
// same work and that sqldb makes no more than it may. Prints WORK/LAYER, the figure of one unit, and what Run returned.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "items.h"
#include "task.h"

namespace {

std::uint64_t allocations = 0;

// What sqldb may make of one statement, or of one row, beyond the calls by hand. First what the application makes: its
// values, its term, its list of an order; then what the library does.
const std::map<std::string, double> kMostOfSqldb = {
    {"insert", 3 + 1},
    {"insert, reused values", 1},
    {"replace", 3 + 1},
    {"update", 2 + 0},
    {"update, reused values", 0},
    {"delete", 1 + 1},
    {"scan", 0},
    {"callback scan", 0},
    {"count", 1 + 0},
    {"has", 1 + 0},
    {"select", 2 + 9},
    {"encode text", 0},
    {"encode random bytes", 0},
    {"decode text", 0},
    {"decode random bytes", 0},
    {"decode in place text", 0},
    {"decode in place random bytes", 0},
};
// What is made once in a Run, such as a larger page cache or the select of a scan.
constexpr double kSlack = 0.02;

}  // namespace

// glibc's own names for what these functions replace.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}

}  // extern "C"

struct Result {
  double allocations;
  std::int64_t outcome;
};

Result Measure(const bench::Entry& entry) {
  const std::unique_ptr<bench::Task> task = entry.make();
  const std::int64_t first = task->Run();
  task->Reset();
  const std::uint64_t before = allocations;
  const std::int64_t second = task->Run();
  const std::uint64_t after = allocations;
  if (first != second) bench::Fail(entry.work + "/" + entry.layer + ": the second run did something else");
  return Result{static_cast<double>(after - before) / static_cast<double>(entry.units), second};
}

int main() {
  // By work, those of the layer that the others are compared with.
  std::map<std::string, Result> first;
  std::size_t checked = 0;
  for (const bench::Entry& entry : bench::AllEntries()) {
    const Result result = Measure(entry);
    std::printf("%s/%s %.3f %lld\n", entry.work.c_str(), entry.layer.c_str(), result.allocations,
                static_cast<long long>(result.outcome));
    const Result& reference = first.emplace(entry.work, result).first->second;
    if (entry.sameOutcome && result.outcome != reference.outcome) {
      bench::Fail(entry.work + "/" + entry.layer + " did something else than the first layer");
    }
    if (entry.layer != "sqldb") continue;
    ++checked;
    const double most = kMostOfSqldb.at(entry.work);
    if (result.allocations - reference.allocations > most + kSlack) {
      bench::Fail(entry.work + ": sqldb makes more than the " + std::to_string(most) + " that it may");
    }
  }
  if (checked != kMostOfSqldb.size()) bench::Fail("a work is not measured any more");
}
