// Counts the allocations of each piece of work by each layer, SQLite's included, and checks that the layers did the
// same work and that sqldb and its kit make no more than they may. Prints WORK/LAYER, the figure of one unit, and what
// Run returned.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "layer.h"
#include "task.h"
#include "works.h"

namespace {

std::uint64_t allocations = 0;

// What sqldb may make of one statement, or of one row, beyond the calls by hand. First what the application makes: its
// values, its term, its list of an order, its cursor; then what the library does. The kit makes nothing.
const std::map<std::string, double> kMost = {
    {"insert item", 3 + 1},
    {"insert item, reused values", 1},
    {"replace item", 3 + 1},
    {"update item", 2 + 0},
    {"update item, reused values", 0},
    {"delete item", 1 + 1},
    {"scan items", 0},
    {"callback scan of items", 0},
    {"count items", 1 + 1},
    {"has item", 1 + 1},
    {"select items", 3 + 1},
    {"encode text", 0},
    {"encode random bytes", 0},
    {"encode random bytes, 4 KiB each", 0},
    {"encode zeros", 0},
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

Result Measure(const bench::Entry& entry, bench::Task& task) {
  task.Run();
  task.Reset();
  const std::int64_t changes = task.Changes();
  const std::uint64_t before = allocations;
  const std::int64_t sum = task.Run();
  const std::uint64_t made = allocations - before;
  const std::int64_t outcome = sum + (task.Changes() - changes) + task.Left();
  return Result{static_cast<double>(made) / static_cast<double>(entry.units), outcome};
}

int main() {
  // By work, those of the layer that the others are compared with.
  std::map<std::string, Result> first;
  std::size_t checkedOfCore = 0;
  std::string complaints;
  std::vector<bench::Entry> entries;
  bench::AddStatements(entries);
  bench::AddEncoding(entries);
  for (const bench::Entry& entry : entries) {
    const std::unique_ptr<bench::Task> task = entry.make();
    if (task == nullptr) continue;
    const std::string name = entry.work + "/" + entry.layer;
    const Result result = Measure(entry, *task);
    std::printf("%s %.3f %lld\n", name.c_str(), result.allocations, static_cast<long long>(result.outcome));
    const Result& reference = first.emplace(entry.work, result).first->second;
    if (entry.sameOutcome && result.outcome != reference.outcome) {
      bench::Fail(name + " did something else than the first layer");
    }
    if (entry.layer != "sqldb" && entry.layer != "sqldb kit") continue;
    const bool isCore = entry.layer == "sqldb";
    if (isCore) ++checkedOfCore;
    const double most = isCore ? kMost.at(entry.work) : 0;
    if (result.allocations - reference.allocations > most + kSlack) {
      complaints += name + " makes more than the " + std::to_string(most) + " that it may\n";
    }
  }
  if (!complaints.empty()) bench::Fail(complaints);
  if (checkedOfCore != kMost.size()) bench::Fail("a work is not measured any more");
}
