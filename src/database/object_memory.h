#ifndef SQLDB_SRC_DATABASE_OBJECT_MEMORY_H
#define SQLDB_SRC_DATABASE_OBJECT_MEMORY_H

#include <cstddef>
#include <new>

namespace sqldb {

// The memory of the objects that a query makes and lets go of, one block of each kind kept for the next query: an
// application may look up as many rows as it has. Lives as long as its database and the objects, which may outlive the
// database; used by one thread at a time, as all of these are.
class ObjectMemory {
 public:
  // All objects of a kind are of one type.
  enum Kind { kSelect, kCursor, kColumn, kKinds };

  // Made for one database, which leaves it at its end.
  ObjectMemory() = default;
  ObjectMemory(const ObjectMemory&) = delete;
  ObjectMemory& operator=(const ObjectMemory&) = delete;
  void Leave() {
    if (--fUsers == 0) delete this;
  }

  void* Take(Kind kind, std::size_t size) {
    void* block = fKept[kind];
    if (block == nullptr) block = ::operator new(size);
    fKept[kind] = nullptr;
    ++fUsers;
    return block;
  }
  void GiveBack(Kind kind, void* block) {
    // Of two, the one that was in use last is the one that is in the cache.
    ::operator delete(fKept[kind]);
    fKept[kind] = block;
    Leave();
  }

 private:
  ~ObjectMemory() {
    for (void* const block : fKept) ::operator delete(block);
  }

  void* fKept[kKinds] = {};
  // The database, and each block that is taken.
  std::size_t fUsers = 1;
};

// For boost::allocate_shared.
template <typename T, ObjectMemory::Kind kKind>
class ObjectAllocator {
 public:
  using value_type = T;
  template <typename Other>
  struct rebind {
    using other = ObjectAllocator<Other, kKind>;
  };

  explicit ObjectAllocator(ObjectMemory& memory) : fMemory(&memory) {}
  template <typename Other>
  ObjectAllocator(const ObjectAllocator<Other, kKind>& other) : fMemory(other.fMemory) {}

  T* allocate(std::size_t) { return static_cast<T*>(fMemory->Take(kKind, sizeof(T))); }
  void deallocate(T* object, std::size_t) { fMemory->GiveBack(kKind, object); }

  ObjectMemory* fMemory;
};

}  // namespace sqldb

#endif  // SQLDB_SRC_DATABASE_OBJECT_MEMORY_H
