#ifndef CATALOG_INDEXER_H
#define CATALOG_INDEXER_H

// Brings the catalogue up to date with a folder and all that is below it. Entries of other places stay as they are.

#include <cstdint>
#include <functional>
#include <string>

#include "store.h"

namespace catalog {

struct Summary {
  std::uint64_t fAdded = 0;
  /// Size or time differ from the catalogue's.
  std::uint64_t fChanged = 0;
  std::uint64_t fRemoved = 0;
  std::uint64_t fUnchanged = 0;
  /// Files and folders that could not be read. What the catalogue has of them stays.
  std::uint64_t fUnreadable = 0;
};

/// The one path by which the catalogue knows the folder `folder`. Throws Failure if it cannot be listed.
std::string IndexableFolder(const std::string& folder);

/// Indexes `folder`, all or nothing. Calls `progress` now and then with the number of files seen so far.
/// REQUIRES: `folder` is from IndexableFolder.
Summary IndexFolder(Store& store, const std::string& folder, const std::function<void(std::uint64_t)>& progress);

}  // namespace catalog

#endif  // CATALOG_INDEXER_H
