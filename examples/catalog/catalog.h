#ifndef CATALOG_CATALOG_H
#define CATALOG_CATALOG_H

// What can be asked of a catalogue, and changed in it by hand. Filling it from the file system is indexer.h.

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "store.h"

namespace catalog {

/// Which files to count; what is not set does not restrict.
struct Filter {
  std::optional<std::string> fKind;
  /// In bytes; a file of exactly this size is not counted.
  std::optional<std::int64_t> fLargerThan;
};

/// What is asked of a file where only its size matters.
struct SizedFile {
  std::string fPath;
  /// In bytes.
  std::int64_t fSize = 0;

  static constexpr auto Description() {
    return kit::Describe("files", kit::Key("path", &SizedFile::fPath), kit::Field("size", &SizedFile::fSize));
  }
};

/// Files of one size that begin with the same bytes. They may still differ.
struct Candidates {
  std::int64_t fSize = 0;
  std::vector<std::string> fPaths;
};

std::uint64_t CountFiles(Store& store, const Filter& filter);

/// The `count` largest files, the largest first.
std::vector<SizedFile> LargestFiles(Store& store, std::uint32_t count);

/// Calls `receive` with each path that `bytes` occur in, in order.
void FindFiles(Store& store, const std::string& bytes, const std::function<void(const std::string& path)>& receive);

/// Groups of two files and more, the largest files first. Empty files are left out.
std::vector<Candidates> FindCandidates(Store& store);

/// Gives all files of `kind` the kind `newKind`; returns how many those were.
std::uint64_t TagFiles(Store& store, const std::string& kind, const std::string& newKind);

/// Removes the file or folder at `path`, with all that is below, from the catalogue. Returns how many files those were,
/// 0 if the catalogue has none there.
std::uint64_t ForgetFiles(Store& store, const std::string& path);

/// Writes how SQLite would find the largest files, without the index on the size and with it. The catalogue stays as it
/// is. REQUIRES: no other thread writes to std::clog, whose buffer is exchanged meanwhile.
void ExplainLargest(Store& store, std::ostream& out);

}  // namespace catalog

#endif  // CATALOG_CATALOG_H
