#include "catalog.h"

#include <cstddef>
#include <iostream>
#include <sstream>
#include <type_traits>
#include <utility>

#include "sqldb/select.h"
#include "sqldb/update.h"
#include "values.h"

namespace catalog {

namespace {

using Select = boost::shared_ptr<sqldb::SQLSelectClass>;
using Cursor = boost::shared_ptr<sqldb::SQLCursorBase>;

static_assert(std::is_standard_layout_v<FileRow>, "offsetof needs it");

Select SelectLargest(Store& store, std::uint32_t count) {
  Select select = store.NewSelect(sqldb::SQLEmptyTerm::EmptyTerm, count);
  select << store.fPath;
  select << store.fSize;
  select->fOrder = {{store.fSize, 0}};
  return select;
}

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

// What the library logs about the query at one of its levels.
std::string Explanation(Store& store, const Select& select, std::uint8_t level) {
  select->SetupSelect(Cursor(new sqldb::SQLCursorBase(&store.fDatabase)));
  const LogCapture capture;
  store.fDatabase.fExplainLevel = level;
  store.fDatabase.ExplainQuery(select->fQuery);
  store.fDatabase.fExplainLevel = 0;
  return capture.Text();
}

void WriteExplanation(Store& store, const std::string& circumstance, std::ostream& out) {
  constexpr std::uint32_t kCount = 10;
  constexpr std::uint8_t kEverything = 1;
  constexpr std::uint8_t kOnlySorts = 2;
  const bool sorts = !Explanation(store, SelectLargest(store, kCount), kOnlySorts).empty();
  out << circumstance << ", SQLite " << (sorts ? "sorts" : "does not sort") << ":\n"
      << Explanation(store, SelectLargest(store, kCount), kEverything);
}

}  // namespace

std::uint32_t CountFiles(Store& store, const Filter& filter) {
  Term term = sqldb::SQLEmptyTerm::EmptyTerm;
  if (filter.fKind) term = And(term, Equal(store.fKind, *filter.fKind));
  if (filter.fLargerThan) term = And(term, Larger(store.fSize, *filter.fLargerThan));
  std::uint32_t count = 0;
  store.Ask([&] { count = store.fFiles->CountRecords(term); });
  return count;
}

std::vector<FileRow> LargestFiles(Store& store, std::uint32_t count) {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(offsetof(FileRow, fPath), 0);
  offsets.PushOffset(offsetof(FileRow, fSize), 0);
  std::vector<FileRow> files;
  store.Ask([&] {
    const boost::shared_ptr<sqldb::SQLStepCursor<FileRow>> cursor(
        new sqldb::SQLStepCursor<FileRow>(&store.fDatabase, offsets));
    const Select select = SelectLargest(store, count);
    select->PrepareSelect(cursor);
    FileRow row;
    while (cursor->Step(row) == 0) files.push_back(row);
  });
  return files;
}

void FindFiles(Store& store, const std::string& bytes, const std::function<void(const std::string& path)>& receive) {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(offsetof(FileRow, fPath), 0);
  store.Ask([&] {
    Select select = store.NewSelect(Contains(store.fPath, bytes));
    select << store.fPath;
    select->fOrder = {{store.fPath, 1}};
    select->PerformSelect(
        Cursor(new RowReceiver(&store.fDatabase, offsets, [&receive](const FileRow& row) { receive(row.fPath); })));
  });
}

std::vector<Candidates> FindCandidates(Store& store) {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(offsetof(FileRow, fPath), 0);
  offsets.PushOffset(offsetof(FileRow, fSize), 0);
  offsets.PushOffset(offsetof(FileRow, fHead), 0);

  // The rows come sorted, so that a group is a run of equal ones. The last group is not yet closed.
  std::vector<Candidates> groups;
  std::string head;
  const auto dropSingle = [&groups] {
    if (!groups.empty() && groups.back().fPaths.size() < 2) groups.pop_back();
  };
  const auto add = [&](const FileRow& row) {
    if (groups.empty() || groups.back().fSize != row.fSize || head != row.fHead) {
      dropSingle();
      groups.push_back(Candidates{row.fSize, {}});
      head = row.fHead;
    }
    groups.back().fPaths.push_back(row.fPath);
  };
  store.Ask([&] {
    Select select = store.NewSelect(Larger(store.fSize, 0));
    select << store.fPath;
    select << store.fSize;
    select << store.fHead;
    select->fOrder = {{store.fSize, 0}, {store.fHead, 1}, {store.fPath, 1}};
    select->PerformSelect(Cursor(new RowReceiver(&store.fDatabase, offsets, add)));
  });
  dropSingle();
  return groups;
}

std::uint32_t TagFiles(Store& store, const std::string& kind, const std::string& newKind) {
  const Term term = Equal(store.fKind, kind);
  std::uint32_t count = 0;
  store.Change([&] {
    count = store.fFiles->CountRecords(term);
    const auto update = store.fFiles->NewUpdate();
    update->fColumns = {store.fKind};
    update->fValues = {boost::shared_ptr<sqldb::SQLValueBase>(new LiteralText(newKind))};
    update->fTerm = term;
    update->PerformUpdate(true);
  });
  return count;
}

std::uint32_t ForgetFiles(Store& store, const std::string& path) {
  const Term term = Or(Equal(store.fPath, path), Below(store.fPath, path));
  std::uint32_t count = 0;
  store.Change([&] {
    if (!store.fFiles->HasTerm(term)) return;
    count = store.fFiles->CountRecords(term);
    store.fFiles->DeleteRecords(term);
  });
  return count;
}

void ExplainLargest(Store& store, std::ostream& out) {
  std::ostringstream text;
  const auto explain = [&] {
    store.fDatabase.SendQuery("DROP INDEX files_size", nullptr, nullptr);
    WriteExplanation(store, "Without an index on the size", text);
    store.fFiles->CreateIndexForColumn(store.fSize->fName);
    WriteExplanation(store, "With the index on the size", text);
  };
  store.Change(explain, Ending::kRollBack);
  out << text.str();
}

}  // namespace catalog
