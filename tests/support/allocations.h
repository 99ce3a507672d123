#ifndef SQLDB_TESTS_ALLOCATIONS_H
#define SQLDB_TESTS_ALLOCATIONS_H

// Counts the calls of operator new, and makes one of them fail. The test program replaces the global operator new, so
// the library's calls are seen too; SQLite's allocations, which are malloc's, are not. Each thread has its own figures.
//
//   AllocationFailure failure(3);
//   EXPECT_THROW(statement->PerformDelete(), std::bad_alloc);

#include <cstdint>

namespace support {

// The number of operator new calls since construction.
class AllocationCount {
 public:
  AllocationCount();
  std::uint64_t Count() const;

 private:
  std::uint64_t fStart;
};

// While it lives, the `nth` call of operator new, counted from 1, throws std::bad_alloc, once. At most one lives at a
// time.
class AllocationFailure {
 public:
  explicit AllocationFailure(std::uint64_t nth);
  ~AllocationFailure();
  AllocationFailure(const AllocationFailure&) = delete;
  AllocationFailure& operator=(const AllocationFailure&) = delete;

  // True once the call came and failed.
  bool Happened() const;
};

// While one lives nothing is counted and nothing fails: for the test's own bookkeeping in the middle of the work.
class AllocationPause {
 public:
  AllocationPause();
  ~AllocationPause();
  AllocationPause(const AllocationPause&) = delete;
  AllocationPause& operator=(const AllocationPause&) = delete;
};

}  // namespace support

#endif  // SQLDB_TESTS_ALLOCATIONS_H
