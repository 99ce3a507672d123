#ifndef SQLDB_SRC_DATABASE_OBJECT_MEMORY_H
#define SQLDB_SRC_DATABASE_OBJECT_MEMORY_H

#include <atomic>
#include <cstddef>
#include <new>

namespace sqldb {

// The memory of the objects that a query makes and lets go of, one block of each kind kept for the next query: an
// application may look up as many rows as it has. Lives as long as its database and the objects, which may outlive the
// database. Whoever was given one of the objects may release it in another thread, so that blocks are taken and given
// back atomically.
class ObjectMemory {
 public:
  // All objects of a kind are of one type.
  enum Kind { kSelect, kCursor, kColumn, kKinds };

  // Made for one database, which leaves it at its end.
  ObjectMemory() = default;
  ObjectMemory(const ObjectMemory&) = delete;
  ObjectMemory& operator=(const ObjectMemory&) = delete;
  void Leave() {
    if (fUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  void* Take(Kind kind, std::size_t size) {
    void* block = fKept[kind].exchange(nullptr, std::memory_order_acquire);
    if (block == nullptr) block = ::operator new(size);
    fUsers.fetch_add(1, std::memory_order_relaxed);
    return block;
  }
  void GiveBack(Kind kind, void* block) {
    // Of two, the one that was in use last is the one that is in the cache.
    ::operator delete(fKept[kind].exchange(block, std::memory_order_acq_rel));
    Leave();
  }

 private:
  ~ObjectMemory() {
    for (const std::atomic<void*>& block : fKept) ::operator delete(block.load(std::memory_order_relaxed));
  }

  std::atomic<void*> fKept[kKinds] = {};
  // The database, and each block that is taken.
  std::atomic<std::size_t> fUsers{1};
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
