#include "indexer.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <vector>

#include <dirent.h>

#include "files.h"
#include "printable.h"
#include "sqldb/encoding.h"
#include "sqldb/insert.h"
#include "sqldb/select.h"
#include "values.h"

namespace catalog {

namespace {

std::string Encoded(const std::string& bytes) {
  const auto* const in = reinterpret_cast<const unsigned char*>(bytes.data());
  const int size = static_cast<int>(bytes.size());
  std::string text(static_cast<std::size_t>(sqlite_encode_binary(in, size, nullptr)) + 1, '\0');
  sqlite_encode_binary(in, size, reinterpret_cast<unsigned char*>(text.data()));
  text.pop_back();  // the terminating zero
  return text;
}

// Writes rows. An insert and a replace share one set of values, which are set anew for each row.
class RowWriter {
 public:
  explicit RowWriter(Store& store) : fInsert(store.fFiles->NewInsert()), fReplace(store.fFiles->NewReplace()) {
    for (sqldb::SQLInsertClass* const statement :
         {fInsert.get(), static_cast<sqldb::SQLInsertClass*>(fReplace.get())}) {
      statement->fColumns = {store.fPath, store.fSize, store.fModified, store.fKind, store.fHead};
      statement->fValues = {fPath, fSize, fModified, fKind, fHead};
    }
  }

  void Insert(const std::string& path, const Entry& file, const std::string& head) {
    Set(path, file, head);
    fInsert->PerformInsert(false);
  }

  void Replace(const std::string& path, const Entry& file, const std::string& head) {
    Set(path, file, head);
    fReplace->PerformReplace(false);
  }

 private:
  void Set(const std::string& path, const Entry& file, const std::string& head) {
    fPath->fText = path;
    fSize->fValue = file.fSize;
    fModified->fValue = file.fModified;
    fKind->fText = KindOf(path);
    fHead->fText = Encoded(head);
  }

  boost::shared_ptr<BoundText> fPath{new BoundText};
  boost::shared_ptr<BoundInteger> fSize{new BoundInteger};
  boost::shared_ptr<BoundInteger> fModified{new BoundInteger};
  boost::shared_ptr<BoundText> fKind{new BoundText};
  boost::shared_ptr<BoundText> fHead{new BoundText};
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  boost::shared_ptr<sqldb::SQLReplaceClass> fReplace;
};

// One run over one folder.
class Indexer {
 public:
  Indexer(Store& store, const std::string& folder, const std::function<void(std::uint64_t)>& progress)
      : fStore(store), fRoot(folder), fProgress(progress), fWriter(store) {}

  Summary Run() {
    LoadKnown();
    fPending.push_back(fRoot);
    while (!fPending.empty()) {
      const std::string folder = fPending.back();
      fPending.pop_back();
      InTransaction(fStore.fDatabase, [&] { IndexOne(folder); });
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
    sqldb::OffsetSpec offsets;
    offsets.PushOffset(offsetof(FileRow, fPath), 0);
    offsets.PushOffset(offsetof(FileRow, fSize), 0);
    offsets.PushOffset(offsetof(FileRow, fModified), 0);
    const boost::shared_ptr<sqldb::SQLStepCursor<FileRow>> cursor(
        new sqldb::SQLStepCursor<FileRow>(&fStore.fDatabase, offsets));
    auto select = fStore.NewSelect(Below(fStore.fPath, fRoot));
    select << fStore.fPath;
    select << fStore.fSize;
    select << fStore.fModified;
    select->fOrder = {{fStore.fPath, 1}};
    select->PrepareSelect(cursor);
    FileRow row;
    while (cursor->Step(row) == 0) fKnown.emplace_hint(fKnown.end(), row.fPath, Known{row.fSize, row.fModified});
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

    std::string head;
    const Outcome outcome = ReadFile(path, file, head);
    if (outcome == Outcome::kUnreadable) Spare(path);
    if (outcome != Outcome::kRead) return;
    if (isKnown) {
      fWriter.Replace(path, file, head);
      fKnown.erase(known);
      ++fSummary.fChanged;
    } else {
      fWriter.Insert(path, file, head);
      ++fSummary.fAdded;
    }
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
      fStore.fFiles->DeleteRecords(Equal(fStore.fPath, path));
      ++fSummary.fRemoved;
    }
  }

  static constexpr std::uint64_t kProgressStep = 1000;

  Store& fStore;
  std::string fRoot;
  const std::function<void(std::uint64_t)>& fProgress;
  RowWriter fWriter;
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
