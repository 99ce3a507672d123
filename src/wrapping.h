#ifndef SQLDB_SRC_WRAPPING_H
#define SQLDB_SRC_WRAPPING_H

#include <cstdint>

namespace sqldb {

// `counter` + `step` in two's complement, without the undefined overflow of signed arithmetic.
inline std::int32_t WrappingAdd(std::int32_t counter, std::int32_t step) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(counter) + static_cast<std::uint32_t>(step));
}

}  // namespace sqldb

#endif  // SQLDB_SRC_WRAPPING_H
