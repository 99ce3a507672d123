#ifndef SQLDB_KIT_SRC_ENCODED_SIZE_H
#define SQLDB_KIT_SRC_ENCODED_SIZE_H

#include <cstddef>
#include <stdexcept>

namespace sqldb::kit::detail {

// The number of bytes as the encoding counts them. Throws std::length_error for more than it can.
inline int CountForEncoding(std::size_t bytes) {
  // So many that their encoding, too, is counted by an int.
  constexpr std::size_t kMost = 2000000000;
  if (bytes > kMost) throw std::length_error("More bytes than a text can hold.");
  return static_cast<int>(bytes);
}

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_ENCODED_SIZE_H
