#include "indexer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>

#include "files.h"
#include "printable.h"

namespace catalog {

namespace {

// One run over one folder.
class Indexer {
 public:
  Indexer(Store& store, const std::string& folder, const std::function<void(std::uint64_t)>& progress)
      : fStore(store), fRoot(folder), fProgress(progress) {}

  Summary Run() {
    LoadKnown();
    fPending.push_back(fRoot);
    while (!fPending.empty()) {
      const std::string folder = fPending.back();
      fPending.pop_back();
      IndexOne(folder);
    }
    RemoveVanished();
    return fSummary;
  }

 private:
  struct Known {
    std::int64_t fSize;
    std::int64_t fModified;
  };

  // All that the catalogue has of the folder, in one go: a query for each file would cost far more.
  void LoadKnown() {
    for (const auto& [path, size, modified] : fStore.fDatabase.Query<std::string, std::int64_t, std::int64_t>(
             "SELECT path, size, modified FROM files WHERE path >= ? AND path < ? ORDER BY path", FirstBelow(fRoot),
             EndBelow(fRoot))) {
      fKnown.emplace_hint(fKnown.end(), path, Known{size, modified});
    }
  }

  void IndexOne(const std::string& folder) {
    std::vector<Entry> entries;
    const Outcome outcome = ListFolder(folder, entries);
    if (outcome == Outcome::kUnreadable) Spare(folder);
    if (outcome != Outcome::kRead) return;
    for (Entry& entry : entries) {
      const std::string path = Join(folder, entry.fName);
      switch (entry.fKind) {
        case Entry::Kind::kFolder:
          fPending.push_back(path);
          break;
        case Entry::Kind::kUnreadable:
          Spare(path);
          break;
        case Entry::Kind::kFile:
          if (!fStore.IsOwnFile(path, entry.fIdentity)) IndexFile(path, entry);
          break;
      }
    }
  }

  void IndexFile(const std::string& path, Entry& file) {
    if (++fSeen % kProgressStep == 0) fProgress(fSeen);
    const auto known = fKnown.find(path);
    const bool isKnown = known != fKnown.end();
    if (isKnown && known->second.fSize == file.fSize && known->second.fModified == file.fModified) {
      ++fSummary.fUnchanged;
      fKnown.erase(known);
      return;
    }

    kit::EncodedBytes head;
    const Outcome outcome = ReadFile(path, file, head.bytes);
    if (outcome == Outcome::kUnreadable) Spare(path);
    if (outcome != Outcome::kRead) return;
    fStore.fFiles.Replace(FileRow{path, file.fSize, file.fModified, KindOf(path), std::move(head)});
    ++(isKnown ? fSummary.fChanged : fSummary.fAdded);
    if (isKnown) fKnown.erase(known);
  }

  // Nobody can tell what became of the entries at and below `path`: they stay.
  void Spare(const std::string& path) {
    ++fSummary.fUnreadable;
    fKnown.erase(path);
    fKnown.erase(fKnown.lower_bound(FirstBelow(path)), fKnown.lower_bound(EndBelow(path)));
  }

  // What was in the catalogue and was not met.
  void RemoveVanished() {
    for (const auto& [path, ignored] : fKnown) {
      fStore.fFiles.Delete(path);
      ++fSummary.fRemoved;
    }
  }

  static constexpr std::uint64_t kProgressStep = 1000;

  Store& fStore;
  std::string fRoot;
  const std::function<void(std::uint64_t)>& fProgress;
  // The entries not met so far.
  std::map<std::string, Known> fKnown;
  // The folders still to be listed.
  std::vector<std::string> fPending;
  std::uint64_t fSeen = 0;
  Summary fSummary;
};

}  // namespace

std::string IndexableFolder(const std::string& folder) {
  DIR* const opened = opendir(folder.c_str());
  if (opened == nullptr) throw Failure("cannot index '" + Printable(folder) + "': " + std::strerror(errno));
  closedir(opened);
  std::error_code error;
  std::string path = std::filesystem::canonical(folder, error).string();
  if (error) throw Failure("cannot index '" + Printable(folder) + "': " + error.message());
  return path;
}

Summary IndexFolder(Store& store, const std::string& folder, const std::function<void(std::uint64_t)>& progress) {
  Summary summary;
  store.Change([&] { summary = Indexer(store, folder, progress).Run(); });
  return summary;
}

}  // namespace catalog
