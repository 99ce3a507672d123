#ifndef SQLDB_SRC_DATABASE_SPARES_H
#define SQLDB_SRC_DATABASE_SPARES_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "database/object_memory.h"
#include "sqldb/cursor.h"

namespace sqldb {

// The memory of a list or text that is not needed any more, kept for the next of its kind.
template <typename List>
class Spare {
 public:
  // Gives the memory to `list`. REQUIRES: `list` is empty.
  void Lend(List& list) { list = std::move(fKept); }
  // Takes the memory of `list`, if that is more than what is kept.
  // REQUIRES: what it still holds releases nothing of the application's, whose destructors may end the database.
  void TakeBack(List& list) {
    const std::size_t capacity = list.capacity();
    if (capacity <= fKept.capacity() || capacity * sizeof(typename List::value_type) > kMost) return;
    fKept = std::move(list);
    fKept.clear();
  }

 private:
  // Bytes. The memory of a longer list is not kept.
  static constexpr std::size_t kMost = 4096;

  List fKept;
};

// What a database keeps for its selects and their cursors, so that one query after the other allocates next to nothing.
struct Spares {
  Spares() = default;
  ~Spares() { fObjects.Leave(); }
  Spares(const Spares&) = delete;
  Spares& operator=(const Spares&) = delete;

  using Columns = std::vector<boost::shared_ptr<SQLColumnBase>>;

  Spare<Columns> fColumnsOfSelect;
  Spare<Columns> fColumnsOfCursor;
  Spare<std::vector<ItemOffset>> fOffsets;
  Spare<std::string> fText;
  ObjectMemory& fObjects = *new ObjectMemory;
};

}  // namespace sqldb

#endif  // SQLDB_SRC_DATABASE_SPARES_H
