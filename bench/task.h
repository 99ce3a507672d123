#ifndef SQLDB_BENCH_TASK_H
#define SQLDB_BENCH_TASK_H

// What is measured: pieces of work, each done by several layers over SQLite in the same way and on the same data. The
// programs times, instructions and allocations run all of them.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// A piece of work as one layer does it. What it needs is set up by its constructor.
class Task {
 public:
  Task() = default;
  virtual ~Task() = default;
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  // Does the work, as many units of it as the Entry says. This is what is measured. Returns a sum of all that was read,
  // the number of rows written, or the length of the result.
  virtual std::int64_t Run() = 0;

  // Makes the next Run find what this one found. Not measured.
  virtual void Reset() {}
};

struct Entry {
  std::string work;
  // "SQLite" for the calls made by hand, which all others are compared with, "sqldb", "sqldb kit", or the name of a
  // peer.
  std::string layer;
  // How many statements, rows or bytes a Run handles.
  std::int64_t units;
  std::unique_ptr<Task> (*make)();
  // Whether Run returns the same for every layer. Only the encoded texts differ in their length.
  bool sameOutcome = true;
};

// Every piece of work by every layer, grouped by work, each group led by what it is compared with.
std::vector<Entry> AllEntries();
// Without the encoding.
std::vector<Entry> StatementEntries();

// How each work adds its entries.
template <typename T>
Entry MakeEntry(const char* work, const char* layer, std::int64_t units) {
  return Entry{work, layer, units, [] { return std::unique_ptr<Task>(new T); }};
}

void AddInsert(std::vector<Entry>& entries);
void AddReplace(std::vector<Entry>& entries);
void AddUpdate(std::vector<Entry>& entries);
void AddDelete(std::vector<Entry>& entries);
void AddScan(std::vector<Entry>& entries);
void AddCallbackScan(std::vector<Entry>& entries);
void AddRecordQueries(std::vector<Entry>& entries);
void AddSelect(std::vector<Entry>& entries);
void AddEncoding(std::vector<Entry>& entries);

}  // namespace bench

#endif  // SQLDB_BENCH_TASK_H
