#ifndef SQLDB_BENCH_TASK_H
#define SQLDB_BENCH_TASK_H

// A piece of work that the programs times, instructions and allocations measure.

#include <cstdint>
#include <functional>
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
  // or the length of the result.
  virtual std::int64_t Run() = 0;

  // Makes the next Run find what this one found. Not measured.
  virtual void Reset() {}

  // How many rows were written since the beginning, and a number for what is there now. Not measured either.
  virtual std::int64_t Changes() { return 0; }
  virtual std::int64_t Left() { return 0; }
};

struct Entry {
  std::string work;
  // "SQLite" for the calls made by hand, which all others are compared with, "sqldb", "sqldb kit", or the name of a
  // peer.
  std::string layer;
  // How many statements, rows or bytes a Run handles.
  std::int64_t units;
  // Null if the layer does not do the work.
  std::function<std::unique_ptr<Task>()> make;
  // Whether each layer returns and leaves the same. Only the encoded texts differ in their length.
  bool sameOutcome = true;
};

// How each work adds its entries.
template <typename T>
Entry MakeEntry(const char* work, const char* layer, std::int64_t units) {
  return Entry{work, layer, units, [] { return std::unique_ptr<Task>(new T); }};
}

void AddEncoding(std::vector<Entry>& entries);

}  // namespace bench

#endif  // SQLDB_BENCH_TASK_H
