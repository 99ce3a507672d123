#ifndef CATALOG_DUPLICATES_H
#define CATALOG_DUPLICATES_H

// Finds out which candidates really are copies of each other, by reading them to the end.

#include <cstdint>
#include <string>
#include <vector>

#include "catalog.h"

namespace catalog {

/// Files with the same contents.
struct Copies {
  std::int64_t fSize = 0;
  std::vector<std::string> fPaths;
  /// How many files those paths name; fewer than the paths where some are hard links.
  std::uint64_t fFiles = 0;

  /// The bytes that all but one of the files take.
  std::int64_t Waste() const { return fSize * static_cast<std::int64_t>(fFiles - 1); }
};

struct Duplicates {
  /// Groups of two files and more, the most wasteful first.
  std::vector<Copies> fGroups;
  /// Candidates that are gone, changed since they were indexed, or unreadable.
  std::uint64_t fNotCompared = 0;
};

Duplicates Compare(const std::vector<Candidates>& candidates);

}  // namespace catalog

#endif  // CATALOG_DUPLICATES_H
