#include "catalog.h"

#include <iostream>
#include <sstream>

#include "sqldb/select.h"

namespace catalog {

namespace {

// Catches what the library writes to the log while it lives.
class LogCapture {
 public:
  LogCapture() : fOriginal(std::clog.rdbuf(fText.rdbuf())) {}
  ~LogCapture() { std::clog.rdbuf(fOriginal); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::string Text() const { return fText.str(); }

 private:
  std::ostringstream fText;
  std::streambuf* fOriginal;
};

// What the library logs at one of its levels about the query for the largest files.
std::string Explanation(Store& store, std::uint8_t level) {
  const auto files = store.fDatabase.GetTable("files");
  const auto select = store.fDatabase.NewSelect(files, 10);
  select->fColumns = {files->GetColumn("path"), files->GetColumn("size")};
  select->fOrder = {{files->GetColumn("size"), 0}};
  select->SetupSelect(boost::make_shared<sqldb::SQLCursorBase>(&store.fDatabase));
  const LogCapture capture;
  store.fDatabase.fExplainLevel = level;
  store.fDatabase.ExplainQuery(select->fQuery);
  store.fDatabase.fExplainLevel = 0;
  return capture.Text();
}

void WriteExplanation(Store& store, const std::string& circumstance, std::ostream& out) {
  constexpr std::uint8_t kEverything = 1;
  constexpr std::uint8_t kOnlySorts = 2;
  const bool sorts = !Explanation(store, kOnlySorts).empty();
  out << circumstance << ", SQLite " << (sorts ? "sorts" : "does not sort") << ":\n" << Explanation(store, kEverything);
}

}  // namespace

std::uint32_t CountFiles(Store& store, const Filter& filter) {
  kit::Term term;
  if (filter.fKind) term = term && store.fKind == *filter.fKind;
  if (filter.fLargerThan) term = term && store.fSize > *filter.fLargerThan;
  std::uint32_t count = 0;
  store.Ask([&] { count = store.fFiles.Count(term); });
  return count;
}

std::vector<FileRow> LargestFiles(Store& store, std::uint32_t count) {
  const auto sizes = store.Only(store.fPath, store.fSize);
  std::vector<FileRow> files;
  store.Ask([&] { files = sizes.Select().OrderBy(Descending(store.fSize)).Limit(count).Rows(); });
  return files;
}

// LIKE would fold case and read "%" and "_" as wildcards; and on text, instr would look at characters, which not every
// name consists of.
void FindFiles(Store& store, const std::string& bytes, const std::function<void(const std::string& path)>& receive) {
  const std::string blob = kit::Type<kit::Blob>::Literal(kit::Blob(bytes.begin(), bytes.end()));
  const kit::ColumnName<std::int64_t> position("instr(CAST(path AS BLOB), " + blob + ")");
  const auto paths = store.Only(store.fPath);
  store.Ask([&] {
    for (const FileRow& row : paths.Select(position > 0).OrderBy(store.fPath)) receive(row.fPath);
  });
}

std::vector<Candidates> FindCandidates(Store& store) {
  // The rows come sorted, so that a group is a run of equal ones. The last group is not yet closed.
  std::vector<Candidates> groups;
  kit::EncodedBytes head;
  const auto dropSingle = [&groups] {
    if (!groups.empty() && groups.back().fPaths.size() < 2) groups.pop_back();
  };
  const auto rows = store.Only(store.fPath, store.fSize, store.fHead);
  store.Ask([&] {
    const auto sorted =
        rows.Select(store.fSize > 0).OrderBy(Descending(store.fSize)).OrderBy(store.fHead).OrderBy(store.fPath);
    for (const FileRow& row : sorted) {
      if (groups.empty() || groups.back().fSize != row.fSize || head != row.fHead) {
        dropSingle();
        groups.push_back(Candidates{row.fSize, {}});
        head = row.fHead;
      }
      groups.back().fPaths.push_back(row.fPath);
    }
  });
  dropSingle();
  return groups;
}

std::uint64_t TagFiles(Store& store, const std::string& kind, const std::string& newKind) {
  std::int64_t count = 0;
  store.Change([&] { count = store.fFiles.Update(store.fKind == kind, {Set(store.fKind, newKind)}); });
  return static_cast<std::uint64_t>(count);
}

std::uint64_t ForgetFiles(Store& store, const std::string& path) {
  std::int64_t count = 0;
  store.Change([&] { count = store.fFiles.Delete(store.fPath == path || store.Below(path)); });
  return static_cast<std::uint64_t>(count);
}

void ExplainLargest(Store& store, std::ostream& out) {
  std::ostringstream text;
  const auto explain = [&] {
    store.Send("DROP INDEX files_size");
    WriteExplanation(store, "Without an index on the size", text);
    store.fFiles.CreateIndex(store.fSize);
    WriteExplanation(store, "With the index on the size", text);
  };
  store.Change(explain, Ending::kRollBack);
  out << text.str();
}

}  // namespace catalog
