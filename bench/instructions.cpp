// Run under Callgrind with --collect-atstart=no: counts the instructions of each statement by each layer. Writes
// one profile each, with "WORK/LAYER UNITS" as its trigger.

#include <string>

#include <valgrind/callgrind.h>

#include "task.h"

int main() {
  for (const bench::Entry& entry : bench::StatementEntries()) {
    const std::unique_ptr<bench::Task> task = entry.make();
    task->Run();
    task->Reset();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    task->Run();
    CALLGRIND_TOGGLE_COLLECT;
    const std::string name = entry.work + "/" + entry.layer + " " + std::to_string(entry.units);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
  }
}
