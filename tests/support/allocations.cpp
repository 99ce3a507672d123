#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t count = 0;
thread_local int pauses = 0;
// Calls left until the one that fails; 0: none will.
thread_local std::uint64_t countdown = 0;
thread_local bool happened = false;

void* Allocate(std::size_t size) noexcept {
  if (pauses == 0) {
    ++count;
    if (countdown != 0 && --countdown == 0) {
      happened = true;
      return nullptr;
    }
  }
  return std::malloc(size != 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace support {

AllocationCount::AllocationCount() : fStart(count) {}

std::uint64_t AllocationCount::Count() const { return count - fStart; }

AllocationFailure::AllocationFailure(std::uint64_t nth) {
  happened = false;
  countdown = nth;
}

AllocationFailure::~AllocationFailure() { countdown = 0; }

bool AllocationFailure::Happened() const { return happened; }

AllocationPause::AllocationPause() { ++pauses; }

AllocationPause::~AllocationPause() { --pauses; }

}  // namespace support

// Every form that takes no alignment: a sanitizer brings its own, and memory must go back the way it came.
void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
