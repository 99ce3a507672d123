// Counts the allocations of each piece of work by each layer, SQLite's included, and checks that the layers did the
// same work and that sqldb and its kit make no more than they may. Prints WORK/LAYER, the figure of one unit, and what
// Run returned.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "items.h"
#include "task.h"

namespace {

std::uint64_t allocations = 0;

// What sqldb and its kit may make of one statement, or of one row, beyond the calls by hand. First what the application
// makes: its values, its term, its list of an order, its cursor; then what the library does. The kit's InsertMany,
// which is given all rows of a Run, makes nothing for a row, and compiles its statement.
const std::map<std::string, double> kMost = {
    {"insert/sqldb", 3 + 1},
    {"insert, reused values/sqldb", 1},
    {"insert, compiled once/sqldb kit", 0 + 23.0 / bench::kStatements},
    {"replace/sqldb", 3 + 1},
    {"update/sqldb", 2 + 0},
    {"update, reused values/sqldb", 0},
    {"delete/sqldb", 1 + 1},
    {"scan/sqldb", 0},
    {"callback scan/sqldb", 0},
    {"count/sqldb", 1 + 1},
    {"has/sqldb", 1 + 1},
    {"select/sqldb", 3 + 1},
    {"encode text/sqldb", 0},
    {"encode random bytes/sqldb", 0},
    {"encode random bytes, 4 KiB each/sqldb", 0},
    {"encode zeros/sqldb", 0},
    {"decode text/sqldb", 0},
    {"decode random bytes/sqldb", 0},
    {"decode in place text/sqldb", 0},
    {"decode in place random bytes/sqldb", 0},
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
    const std::string name = entry.work + "/" + entry.layer;
    const Result result = Measure(entry);
    std::printf("%s %.3f %lld\n", name.c_str(), result.allocations, static_cast<long long>(result.outcome));
    const Result& reference = first.emplace(entry.work, result).first->second;
    if (entry.sameOutcome && result.outcome != reference.outcome) {
      bench::Fail(name + " did something else than the first layer");
    }
    if (entry.layer != "sqldb" && entry.layer != "sqldb kit") continue;
    ++checked;
    const double most = kMost.at(name);
    if (result.allocations - reference.allocations > most + kSlack) {
      bench::Fail(name + " makes more than the " + std::to_string(most) + " that it may");
    }
  }
  if (checked != kMost.size()) bench::Fail("a work is not measured any more");
}
