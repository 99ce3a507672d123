// Counts the allocations of each piece of work by each layer, SQLite's included, and checks that the layers did the
// same work. With --check fails if sqldb makes more than it may.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "task.h"

namespace {

std::uint64_t allocations = 0;

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

int main() {
  std::map<std::string, std::int64_t> outcomes;
  for (const bench::Entry& entry : bench::AllEntries()) {
    const std::unique_ptr<bench::Task> task = entry.make();
    const std::int64_t first = task->Run();
    task->Reset();
    const std::uint64_t before = allocations;
    const std::int64_t second = task->Run();
    const double each = static_cast<double>(allocations - before) / static_cast<double>(entry.units);
    std::printf("%s/%s %.4f %lld\n", entry.work.c_str(), entry.layer.c_str(), each, static_cast<long long>(second));
    if (first != second) {
      std::fprintf(stderr, "bench: the second run did something else than the first\n");
      return 1;
    }
    if (entry.sameOutcome && outcomes.emplace(entry.work, second).first->second != second) {
      std::fprintf(stderr, "bench: %s/%s did something else than the first layer\n", entry.work.c_str(),
                   entry.layer.c_str());
      return 1;
    }
  }
}
