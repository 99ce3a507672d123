// Run under Callgrind with --collect-atstart=no: counts the instructions of each statement by each layer. Writes one
// profile each, with "WORK/LAYER UNITS" as its trigger; --callgrind-out-file needs a %p. Given a text, only those whose
// "WORK/LAYER" contains it.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <valgrind/callgrind.h>

#include "task.h"
#include "works.h"

namespace {

void Measure(const bench::Entry& entry) {
  const std::unique_ptr<bench::Task> task = entry.make();
  if (task == nullptr) return;
  task->Run();
  task->Reset();
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  task->Run();
  CALLGRIND_TOGGLE_COLLECT;
  const std::string name = entry.work + "/" + entry.layer + " " + std::to_string(entry.units);
  CALLGRIND_DUMP_STATS_AT(name.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string wanted = argc > 1 ? argv[1] : "";
  std::vector<bench::Entry> entries;
  bench::AddStatements(entries);
  for (const bench::Entry& entry : entries) {
    if ((entry.work + "/" + entry.layer).find(wanted) == std::string::npos) continue;
    // Each in a process of its own: what the allocator does depends on the gaps that the work before it left.
    const pid_t child = fork();
    if (child == 0) {
      Measure(entry);
      std::_Exit(EXIT_SUCCESS);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
      std::fprintf(stderr, "%s/%s could not be measured\n", entry.work.c_str(), entry.layer.c_str());
      return EXIT_FAILURE;
    }
  }
}
