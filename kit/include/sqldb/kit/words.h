#ifndef SQLDB_KIT_WORDS_H
#define SQLDB_KIT_WORDS_H

// A list of words that is cheap to build while it is short, and cheap to copy and to add to when it is long.

#include <cstddef>
#include <cstdint>

#include "sqldb/export.h"

namespace sqldb::kit::detail {

/// An address as a word.
inline std::uint64_t WordOf(const void* address) noexcept {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address));
}

/// Words with room for some in place, which need no memory of their own: a term of a few comparisons allocates nothing.
/// Copies share what is beyond that, and one that grows goes on in the shared memory where it can. Copies may be used
/// by different threads.
class SQLDB_EXPORT Words {
 public:
  /// None.
  Words() noexcept = default;
  /// Shares what does not fit in place, so that to copy never throws.
  Words(const Words& other) noexcept { Take(other); }
  Words(Words&& other) noexcept { Take(other); }
  Words& operator=(const Words& other) noexcept;
  ~Words() {
    if (fShared != nullptr) Release();
  }

  // Add appends. It throws std::bad_alloc, and the object is then as before. The first one that goes on from what
  // several share does so in place, any other one copies what it begins with.

  void Add(std::uint64_t word) {
    if (HasRoom(1)) {
      AddInPlace(word);
    } else {
      AddShared(word);
    }
  }
  void Add(const std::uint64_t* words, std::size_t count);
  /// Whether so many can be added in place.
  bool HasRoom(std::size_t count) const noexcept { return fShared == nullptr && fSize + count <= kRoom; }
  /// REQUIRES: there is room for them.
  template <typename... Word>
  void AddInPlace(Word... words) noexcept {
    std::uint64_t* next = fRoom + fSize;
    fSize += sizeof...(Word);
    ((*next++ = words), ...);
  }
  /// All words of another object, or of this one.
  void Add(const Words& words) {
    if (!HasRoom(words.fSize)) return Add(words.begin(), words.fSize);
    const std::uint64_t* next = words.begin();
    for (std::size_t i = 0; i < words.fSize; ++i) fRoom[fSize + i] = next[i];
    fSize += words.fSize;
  }

  /// How many there are.
  std::size_t Size() const noexcept { return fSize; }
  /// Valid until it is changed, moved or ends.
  const std::uint64_t* begin() const noexcept { return fShared == nullptr ? fRoom : SharedBegin(); }
  /// Behind the last one.
  const std::uint64_t* end() const noexcept { return begin() + fSize; }

 private:
  struct Shared;

  void AddShared(std::uint64_t word);
  const std::uint64_t* SharedBegin() const noexcept;
  void Share(const Words& other) noexcept;
  void Release() noexcept;
  void Take(const Words& other) noexcept {
    if (other.fShared == nullptr) {
      for (std::size_t i = 0; i < other.fSize; ++i) fRoom[i] = other.fRoom[i];
      fSize = other.fSize;
    } else {
      Share(other);
    }
  }

  // Words, of eight bytes: enough for some six comparisons. More would make each copy of a term larger.
  static constexpr std::size_t kRoom = 24;

  std::size_t fSize = 0;
  // Null: in place.
  Shared* fShared = nullptr;
  std::uint64_t fRoom[kRoom];
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_WORDS_H
