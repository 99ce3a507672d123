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

struct MemberPointer {
  std::uintptr_t function;    // where it is, or for a virtual one its place in the virtual table, in bytes
  std::uintptr_t adjustment;  // of the object's address
};

template <typename Member>
MemberPointer AsWords(Member member) {
  MemberPointer words;
  static_assert(sizeof member == sizeof words, "not an Itanium member function pointer");
  std::memcpy(&words, &member, sizeof words);
  return words;
}

struct HasVirtual {
  virtual ~HasVirtual() = default;
  virtual void Second() {}
};

// The slot of a virtual member function in its class's table, counted from 0, -1 for one that is not virtual. A virtual
// destructor takes two slots. Reads member pointers as the Itanium C++ ABI lays them out: bit 0 of the function tells a
// virtual one, but where an address needs that bit (on ARM it tells Thumb code), bit 0 of the adjustment does.
template <typename Member>
int VirtualSlot(Member member) {
  const MemberPointer words = AsWords(member);
  const bool toldByAdjustment = (AsWords(&HasVirtual::Second).adjustment & 1) != 0;
  if (((toldByAdjustment ? words.adjustment : words.function) & 1) == 0) return -1;
  return static_cast<int>(words.function / sizeof(void*));
}

}  // namespace support

#endif  // SQLDB_TESTS_LAYOUT_H
