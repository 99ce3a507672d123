#include "sqldb/kit/words.h"

#include <atomic>
#include <cstring>
#include <new>

namespace sqldb::kit::detail {

// Memory that several Words begin with, and of which the longest one has all. Copies may be used by different threads.
struct Words::Shared {
  Shared(std::size_t size, std::size_t room) : users(1), used(size), capacity(room) {}

  std::uint64_t* Memory() { return reinterpret_cast<std::uint64_t*>(this + 1); }
  // Whether what follows `size` is free, and belongs from now on to whoever asks.
  bool Claim(std::size_t size, std::size_t larger) {
    return larger <= capacity && used.compare_exchange_strong(size, larger, std::memory_order_relaxed);
  }

  std::atomic<std::size_t> users;
  std::atomic<std::size_t> used;
  const std::size_t capacity;
};

const std::uint64_t* Words::SharedBegin() const noexcept { return fShared->Memory(); }

void Words::Share(const Words& other) noexcept {
  fSize = other.fSize;
  fShared = other.fShared;
  fShared->users.fetch_add(1, std::memory_order_relaxed);
}

void Words::Release() noexcept {
  if (fShared->users.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(fShared);
}

Words& Words::operator=(const Words& other) noexcept {
  if (this != &other) {
    if (fShared != nullptr) Release();
    fShared = nullptr;
    Take(other);
  }
  return *this;
}

void Words::AddShared(std::uint64_t word) { Add(&word, 1); }

void Words::Add(const std::uint64_t* words, std::size_t count) {
  const std::size_t size = fSize + count;
  if (HasRoom(count)) {
    std::memcpy(fRoom + fSize, words, count * sizeof *words);
    fSize = size;
    return;
  }
  // Otherwise another one has gone on from here in its own way, or there is no room.
  if (fShared == nullptr || !fShared->Claim(fSize, size)) {
    auto* const larger = new (::operator new(sizeof(Shared) + 2 * size * sizeof *words)) Shared(size, 2 * size);
    std::memcpy(larger->Memory(), begin(), fSize * sizeof *words);
    std::memcpy(larger->Memory() + fSize, words, count * sizeof *words);
    if (fShared != nullptr) Release();
    fShared = larger;
  } else {
    std::memcpy(fShared->Memory() + fSize, words, count * sizeof *words);
  }
  fSize = size;
}

}  // namespace sqldb::kit::detail
