#include "catalog.h"

#include <iostream>
#include <sstream>

#include "sqldb/database.h"

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
  sqldb::SQLDatabase& core = store.fDatabase.Core();
  const LogCapture capture;
  core.fExplainLevel = level;
  core.ExplainQuery("SELECT path, size FROM files ORDER BY size DESC LIMIT 10");
  core.fExplainLevel = 0;
  return capture.Text();
}

void WriteExplanation(Store& store, const std::string& circumstance, std::ostream& out) {
  constexpr std::uint8_t kEverything = 1;
  constexpr std::uint8_t kOnlySorts = 2;
  const bool sorts = !Explanation(store, kOnlySorts).empty();
  out << circumstance << ", SQLite " << (sorts ? "sorts" : "does not sort") << ":\n" << Explanation(store, kEverything);
}

}  // namespace

std::uint64_t CountFiles(Store& store, const Filter& filter) {
  kit::Term term;
  if (filter.fKind) term = term && kKind == *filter.fKind;
  if (filter.fLargerThan) term = term && kSize > *filter.fLargerThan;
  std::int64_t count = 0;
  store.Ask([&] { count = store.fFiles.Count(term); });
  return static_cast<std::uint64_t>(count);
}

std::vector<SizedFile> LargestFiles(Store& store, std::uint32_t count) {
  const kit::Table<SizedFile> files(store.fDatabase);
  std::vector<SizedFile> largest;
  store.Ask([&] { largest = files.Select().OrderBy(Descending(kSize)).Limit(count).All(); });
  return largest;
}

// LIKE would fold case and read "%" and "_" as wildcards; and on text, instr would look at characters, which not every
// name consists of.
void FindFiles(Store& store, const std::string& bytes, const std::function<void(const std::string& path)>& receive) {
  store.Ask([&] {
    for (const std::string& path : store.fDatabase.Query<std::string>(
             "SELECT path FROM files WHERE instr(CAST(path AS BLOB), ?) > 0 ORDER BY path",
             kit::Blob(bytes.begin(), bytes.end()))) {
      receive(path);
    }
  });
}

std::vector<Candidates> FindCandidates(Store& store) {
  constexpr char kAlike[] =
      "SELECT path, size, head FROM files"
      " JOIN (SELECT size, head FROM files WHERE size > 0 GROUP BY size, head HAVING COUNT(*) > 1) USING (size, head)"
      " ORDER BY size DESC, head, path";
  // The rows come sorted, so that a group is a run of equal ones.
  std::vector<Candidates> groups;
  kit::EncodedBytes last;
  store.Ask([&] {
    for (const auto& [path, size, head] : store.fDatabase.Query<std::string, std::int64_t, kit::EncodedBytes>(kAlike)) {
      if (groups.empty() || groups.back().fSize != size || head != last) {
        groups.push_back(Candidates{size, {}});
        last = head;
      }
      groups.back().fPaths.push_back(path);
    }
  });
  return groups;
}

std::uint64_t TagFiles(Store& store, const std::string& kind, const std::string& newKind) {
  std::int64_t count = 0;
  store.Change([&] { count = store.fFiles.Update(kKind == kind, Set(kKind, newKind)); });
  return static_cast<std::uint64_t>(count);
}

std::uint64_t ForgetFiles(Store& store, const std::string& path) {
  std::int64_t count = 0;
  store.Change([&] { count = store.fFiles.Delete(kPath == path || Below(path)); });
  return static_cast<std::uint64_t>(count);
}

void ExplainLargest(Store& store, std::ostream& out) {
  std::ostringstream text;
  const auto explain = [&] {
    store.fDatabase.Execute("DROP INDEX files_size");
    WriteExplanation(store, "Without an index on the size", text);
    store.fDatabase.Execute(kIndexOfSize);
    WriteExplanation(store, "With the index on the size", text);
  };
  store.Change(explain, Ending::kRollBack);
  out << text.str();
}

}  // namespace catalog
