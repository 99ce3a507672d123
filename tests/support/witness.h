#ifndef SQLDB_TESTS_WITNESS_H
#define SQLDB_TESTS_WITNESS_H

// What the tests of lifetimes look with.

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

}  // namespace support

#endif  // SQLDB_TESTS_WITNESS_H
