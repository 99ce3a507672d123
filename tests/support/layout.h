#ifndef SQLDB_TESTS_LAYOUT_H
#define SQLDB_TESTS_LAYOUT_H

// How a class lies in memory, as far as those who link the library rely on it: its members' order and its virtual
// table.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace support {

template <typename Member>
bool InMemoryOrder(const Member&) {
  return true;
}

// True when the members given lie in memory in the order given.
template <typename First, typename Second, typename... Rest>
bool InMemoryOrder(const First& first, const Second& second, const Rest&... rest) {
  return std::less<const void*>()(&first, &second) && InMemoryOrder(second, rest...);
}

// The slot of a virtual member function in its class's table, counted from 0, -1 for one that is not virtual. A virtual
// destructor takes two slots. Reads member pointers as the Itanium C++ ABI lays them out.
template <typename Member>
int VirtualSlot(Member member) {
  std::uintptr_t words[2];
  static_assert(sizeof member == sizeof words, "not an Itanium member function pointer");
  std::memcpy(words, &member, sizeof words);
  if (((words[0] | words[1]) & 1) == 0) return -1;
  return static_cast<int>(words[0] / sizeof(void*));
}

}  // namespace support

#endif  // SQLDB_TESTS_LAYOUT_H
