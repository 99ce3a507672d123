#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "catalog.h"
#include "duplicates.h"
#include "indexer.h"
#include "printable.h"
#include "store.h"
#include "threads/work.h"

namespace threads {

namespace {

using catalog::Access;
using catalog::FileRow;
using catalog::Store;

FileRow RowOf(std::int64_t number) {
  FileRow row;
  row.fPath = "/folder/it's " + std::to_string(number);
  row.fSize = number;
  row.fModified = -number;
  row.fKind = "k" + std::to_string(number % 3);
  row.fHead.bytes = {static_cast<unsigned char>(number), 0, 39, 1};
  return row;
}

bool IsIntact(const FileRow& row) {
  const FileRow right = RowOf(row.fSize);
  return row.fPath == right.fPath && row.fModified == right.fModified && row.fKind == right.fKind &&
         row.fHead == right.fHead;
}

void Fill(Store& store) {
  store.Change([&] {
    for (std::int64_t number = 0; number < 60; ++number) store.fFiles.Insert(RowOf(number));
  });
  const auto drop = [&] { store.fFiles.Delete(sqldb::kit::EveryRow()); };
  store.Change(drop, catalog::Ending::kRollBack);
  std::int64_t rows = 0;
  store.Ask([&] {
    for (const FileRow& row : store.fFiles.Select().OrderBy(catalog::kSize)) {
      Expect(row.fSize == rows++ && IsIntact(row), "a row of the catalogue is intact");
    }
  });
  Expect(rows == 60, "every row of the catalogue is there");
}

void Question(Store& store, const Shared& shared) {
  catalog::Filter filter;
  filter.fKind = "k1";
  filter.fLargerThan = 10;
  Expect(CountFiles(store, filter) == 16, "files are counted");
  Expect(LargestFiles(store, 2).back().fSize == 58, "the largest are found");
  int found = 0;
  FindFiles(store, "it's 5", [&found](const std::string&) { ++found; });
  Expect(found == 11, "files are found by a part of their path");
  Expect(FindCandidates(store).empty(), "files of different sizes are no candidates");
  Expect(TagFiles(store, "k1", "k2") == 20, "files are tagged");
  Expect(ForgetFiles(store, "/folder/it's 7") == 1, "a file is forgotten");
  Expect(ForgetFiles(store, "/folder") == 59, "what is below a folder is forgotten");
  std::ostringstream explanation;
  {
    // It takes the log for itself.
    const std::lock_guard<std::shared_mutex> lock(shared.fLog);
    ExplainLargest(store, explanation);
  }
  Expect(explanation.str().find("SQLite does not sort") != std::string::npos, "a query is explained");
}

void Index(Store& store, const std::string& folder) {
  std::filesystem::create_directory(folder);
  for (const char* const name : {"a.txt", "b.txt", "c"}) std::ofstream(folder + "/" + name) << "the same";
  const std::string indexable = catalog::IndexableFolder(folder);
  Expect(IndexFolder(store, indexable, [](std::uint64_t) {}).fAdded == 3, "a folder is indexed");
  Expect(IndexFolder(store, indexable, [](std::uint64_t) {}).fUnchanged == 3, "and is known then");
  const catalog::Duplicates duplicates = Compare(FindCandidates(store));
  Expect(duplicates.fGroups.size() == 1 && duplicates.fGroups[0].fFiles == 3, "copies are found");
  Expect(store.IsOwnFile(store.fDatabase.Core().fPath + "-journal", {}), "the journal is the catalogue's own");
}

bool IsRefused(const std::string& path, Access access) {
  try {
    Store store({path, std::nullopt}, access);
    store.Ask([] {});
  } catch (const std::runtime_error&) {
    return true;
  }
  return false;
}

}  // namespace

void TourCatalogue(const std::string& path, const Shared& shared) {
  {
    Store store({path, std::nullopt}, Access::kCreate);
    store.fDatabase.Execute("PRAGMA synchronous = OFF");
    Fill(store);
    Question(store, shared);
    Index(store, path + "-folder");
  }
  {
    Store store({"file:" + path, std::nullopt}, Access::kAsk);
    store.Ask([&] { Expect(store.fFiles.Count(catalog::Below("/")) == 3, "a catalogue is opened again"); });
  }
  Expect(IsRefused(path + "-missing", Access::kAsk), "a file that is not there is refused");
  Expect(IsRefused(path + "-folder/c", Access::kChange), "a file that is no catalogue is refused");
}

}  // namespace threads
