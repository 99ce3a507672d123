#include "sqldb/kit/words.h"

#include <cstring>
#include <new>

namespace sqldb::kit::detail {

// Memory that several Words begin with, and of which the longest one has all.
struct Words::Shared {
  std::size_t users;
  std::size_t used;
  std::size_t capacity;

  std::uint64_t* Memory() { return reinterpret_cast<std::uint64_t*>(this + 1); }
};

const std::uint64_t* Words::SharedBegin() const noexcept { return fShared->Memory(); }

void Words::Share(const Words& other) noexcept {
  fSize = other.fSize;
  fShared = other.fShared;
  ++fShared->users;
}

void Words::Release() noexcept {
  if (--fShared->users == 0) ::operator delete(fShared);
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
  if (fShared == nullptr && size <= kRoom) {
    for (std::size_t i = 0; i < count; ++i) fRoom[fSize + i] = words[i];
    fSize = size;
    return;
  }
  // Otherwise another one has gone on from here in its own way, or there is no room.
  if (fShared == nullptr || fShared->used != fSize || fShared->capacity < size) {
    auto* const larger = static_cast<Shared*>(::operator new(sizeof(Shared) + 2 * size * sizeof *words));
    *larger = Shared{1, fSize, 2 * size};
    if (fSize > 0) std::memcpy(larger->Memory(), begin(), fSize * sizeof *words);
    if (count > 0) std::memcpy(larger->Memory() + fSize, words, count * sizeof *words);
    if (fShared != nullptr) Release();
    fShared = larger;
  } else if (count > 0) {
    std::memcpy(fShared->Memory() + fSize, words, count * sizeof *words);
  }
  fShared->used = size;
  fSize = size;
}

}  // namespace sqldb::kit::detail
