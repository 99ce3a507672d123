#include "duplicates.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "files.h"

namespace catalog {

namespace {

enum class Comparison { kSame, kDifferent, kFirstUnreadable, kSecondUnreadable };

Comparison CompareContents(const OpenFile& first, const OpenFile& second) {
  constexpr std::size_t kBlock = 65536;
  thread_local std::vector<char> firstBlock(kBlock);
  thread_local std::vector<char> secondBlock(kBlock);
  for (std::int64_t position = 0;; position += static_cast<std::int64_t>(kBlock)) {
    const std::int64_t length = first.ReadAt(position, firstBlock.data(), kBlock);
    if (length < 0) return Comparison::kFirstUnreadable;
    const std::int64_t secondLength = second.ReadAt(position, secondBlock.data(), kBlock);
    if (secondLength < 0) return Comparison::kSecondUnreadable;
    const auto count = static_cast<std::size_t>(length);
    if (length != secondLength || std::memcmp(firstBlock.data(), secondBlock.data(), count) != 0) {
      return Comparison::kDifferent;
    }
    if (count < kBlock) return Comparison::kSame;
  }
}

// Sorts the files of one group of candidates into groups of copies.
class Sorter {
 public:
  explicit Sorter(std::int64_t size) : fSize(size) {}

  // Returns false if the file at `path` cannot be compared.
  bool Add(const std::string& path) {
    const OpenFile file(path);
    if (file.Result() != Outcome::kRead || file.Size() != fSize) return false;
    for (Group& group : fGroups) {
      if (group.fIdentities.count(file.Identity()) == 0) {
        // Opened anew for each comparison: a group of candidates may have more members than a process may open.
        const OpenFile representative(group.fCopies.fPaths.front());
        if (representative.Result() != Outcome::kRead) continue;
        const Comparison comparison = CompareContents(representative, file);
        if (comparison == Comparison::kSecondUnreadable) return false;
        if (comparison != Comparison::kSame) continue;
        group.fIdentities.insert(file.Identity());
      }
      group.fCopies.fPaths.push_back(path);
      return true;
    }
    fGroups.push_back(Group{Copies{fSize, {path}, 0}, {file.Identity()}});
    return true;
  }

  void MoveTo(std::vector<Copies>& groups) {
    for (Group& group : fGroups) {
      group.fCopies.fFiles = group.fIdentities.size();
      // Mere hard links of one file waste nothing.
      if (group.fCopies.fFiles >= 2) groups.push_back(std::move(group.fCopies));
    }
  }

 private:
  struct Group {
    Copies fCopies;
    std::set<FileIdentity> fIdentities;
  };

  std::int64_t fSize;
  std::vector<Group> fGroups;
};

}  // namespace

Duplicates Compare(const std::vector<Candidates>& candidates) {
  Duplicates duplicates;
  for (const Candidates& group : candidates) {
    Sorter sorter(group.fSize);
    for (const std::string& path : group.fPaths) {
      if (!sorter.Add(path)) ++duplicates.fNotCompared;
    }
    sorter.MoveTo(duplicates.fGroups);
  }
  std::stable_sort(duplicates.fGroups.begin(), duplicates.fGroups.end(),
                   [](const Copies& a, const Copies& b) { return a.Waste() > b.Waste(); });
  return duplicates;
}

}  // namespace catalog
