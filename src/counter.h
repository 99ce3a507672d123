#ifndef SQLDB_SRC_COUNTER_H
#define SQLDB_SRC_COUNTER_H

#include <cstdint>

namespace sqldb {

// Adds 1 to `counter`, wrapping in two's complement, and returns the sum, which no other thread is given. Orders
// nothing else. Not a std::atomic, since `counter` is a public integer.
inline std::int32_t Draw(std::int32_t& counter) { return __atomic_add_fetch(&counter, 1, __ATOMIC_RELAXED); }

}  // namespace sqldb

#endif  // SQLDB_SRC_COUNTER_H
