#ifndef SQLDB_TESTS_WITNESS_H
#define SQLDB_TESTS_WITNESS_H

// What the tests of lifetimes and layouts look with.

#include <functional>
#include <utility>

namespace support {

// A column, cursor, term or value that reports its destruction.
template <typename Base>
class Witness : public Base {
 public:
  template <typename... Arguments>
  explicit Witness(std::function<void()> atDestruction, Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...), fAtDestruction(std::move(atDestruction)) {}
  ~Witness() override { fAtDestruction(); }

 private:
  std::function<void()> fAtDestruction;
};

template <typename Member>
bool InMemoryOrder(const Member&) {
  return true;
}

// True when the members given lie in memory in the order given.
template <typename First, typename Second, typename... Rest>
bool InMemoryOrder(const First& first, const Second& second, const Rest&... rest) {
  return std::less<const void*>()(&first, &second) && InMemoryOrder(second, rest...);
}

}  // namespace support

#endif  // SQLDB_TESTS_WITNESS_H
