#include "works.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include <sqlite3.h>

namespace bench {

namespace {

// The rows that a work finds.
enum class Data { kParts, kNoParts, kNamedParts, kIndexedParts, kPartsWithoutTransaction, kItems, kNoItems };

std::string Numbers(std::int64_t rows) {
  return "WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(rows) + ") ";
}

std::string FillParts(std::int64_t rows) {
  return "INSERT INTO parts " + Numbers(rows) +
         "SELECT i, 'part ' || i, i * 0.5, CASE i % 3 WHEN 0 THEN 'a note that is as long as most' END FROM n";
}

std::string FillItems(std::int64_t rows) {
  return "INSERT INTO items " + Numbers(rows) + "SELECT i, i * 7 % 100, i * 13 % 1000, i FROM n";
}

constexpr char kEmptyParts[] = "DELETE FROM parts";
constexpr char kEmptyItems[] = "DELETE FROM items";
// So few that compiling a statement is not lost in reading them.
constexpr std::int64_t kIndexedRows = 40;

std::vector<std::string> Statements(Data data) {
  std::vector<std::string> statements;
  switch (data) {
    case Data::kParts:
    case Data::kNoParts:
    case Data::kPartsWithoutTransaction:
      statements = TableOfParts(kRows);
      break;
    case Data::kNamedParts:
      statements = TableOfParts(kRows);
      statements.emplace_back("CREATE TABLE named_parts (name TEXT PRIMARY KEY, id INTEGER, price REAL, note TEXT)");
      statements.emplace_back("INSERT INTO named_parts SELECT name, id, price, note FROM parts");
      break;
    case Data::kIndexedParts:
      statements = TableOfParts(kIndexedRows);
      statements.emplace_back("CREATE INDEX parts_by_name ON parts (name COLLATE NOCASE)");
      break;
    case Data::kItems:
    case Data::kNoItems:
      statements = TableOfItems(kRows);
      break;
  }
  if (data != Data::kPartsWithoutTransaction) statements.emplace_back("BEGIN");
  if (data == Data::kNoParts) statements.emplace_back(kEmptyParts);
  if (data == Data::kNoItems) statements.emplace_back(kEmptyItems);
  return statements;
}

// A number for all that is in the table.
std::string Fingerprint(Data data) {
  if (data == Data::kItems || data == Data::kNoItems) {
    return "SELECT COALESCE(SUM(id % 1000 + quantity * 3 + price * 5 + COALESCE(stock, -1) * 7), 0) FROM items";
  }
  return "SELECT COALESCE(SUM(id * 3 + LENGTH(name) * 5 + CAST(price * 7 AS INTEGER) + COALESCE(LENGTH(note), -1) * "
         "11), "
         "0) FROM parts";
}

struct Description {
  std::string name;
  Work (Layer::*prepare)();
  Data data;
  std::int64_t times;
  // Rows or statements for each time.
  std::int64_t units = 1;
  // Makes the next Run find what the last one found; empty for nothing.
  std::string reset = {};
  Company company = Company::kNone;
};

constexpr std::int64_t kOthers = 1000;

// With kept statements.
std::vector<Description> PartWorks() {
  const std::string fill = FillParts(kRows);
  return {
      {"find by integer key", &Layer::FindByInteger, Data::kParts, kRows},
      {"find by text key", &Layer::FindByText, Data::kNamedParts, kRows},
      {"range of 100 rows", &Layer::Range, Data::kParts, kRows - kRange},
      {"scan, a row", &Layer::Scan, Data::kParts, 10, kRows},
      {"insert", &Layer::Insert, Data::kNoParts, kRows, 1, kEmptyParts},
      {"insert many, a row", &Layer::InsertMany, Data::kNoParts, kRows, 1, kEmptyParts},
      {"update by key", &Layer::Update, Data::kParts, kRows},
      {"replace", &Layer::Replace, Data::kParts, kRows},
      {"upsert", &Layer::Upsert, Data::kParts, kRows},
      {"delete by key", &Layer::Delete, Data::kParts, kRows, 1, fill},
      {"count by a term", &Layer::Count, Data::kParts, kRows},
      {"has by a term", &Layer::Has, Data::kParts, kRows},
      {"find, a held statement", &Layer::Held, Data::kParts, kRows},
      {"find, looked up by its text", &Layer::LookedUp, Data::kParts, kRows},
      {"filter of three comparisons", &Layer::Filter, Data::kParts, kRows - 2 * kFiltered},
      {"LIKE '%...'", &Layer::LikeEnd, Data::kIndexedParts, kRows / 5},
      {"LIKE '...%'", &Layer::LikeBeginning, Data::kIndexedParts, kRows / 5},
      {"empty transaction", &Layer::Transaction, Data::kPartsWithoutTransaction, kRows},
      {"find, beside 1000 idle statements", &Layer::FindByInteger, Data::kParts, kRows, 1, "",
       Company::kIdleStatements},
      {"find, beside 1000 open ranges", &Layer::FindByInteger, Data::kParts, kRows, 1, "", Company::kOpenRanges},
      {"update, beside 1000 idle statements", &Layer::Update, Data::kParts, kRows, 1, "", Company::kIdleStatements},
      {"update, beside 1000 open ranges", &Layer::Update, Data::kParts, kRows, 1, "", Company::kOpenRanges},
  };
}

// With statements that are compiled for each execution, where the layer can.
std::vector<Description> ItemWorks() {
  return {
      {"insert item", &Layer::InsertItem, Data::kNoItems, kRows, 1, kEmptyItems},
      {"insert item, reused values", &Layer::InsertItemReused, Data::kNoItems, kRows, 1, kEmptyItems},
      {"insert items, compiled once", &Layer::InsertItemsOnce, Data::kNoItems, kRows, 1, kEmptyItems},
      {"replace item", &Layer::ReplaceItem, Data::kItems, kRows},
      {"update item", &Layer::UpdateItem, Data::kItems, kRows},
      {"update item, reused values", &Layer::UpdateItemReused, Data::kItems, kRows},
      {"delete item", &Layer::DeleteItem, Data::kItems, kRows, 1, FillItems(kRows)},
      {"scan items", &Layer::ScanItems, Data::kItems, 10, kRows},
      {"callback scan of items", &Layer::ScanItemsByCallback, Data::kItems, 10, kRows},
      {"count items", &Layer::CountItem, Data::kItems, kRows},
      {"has item", &Layer::HasItem, Data::kItems, kRows},
      // The last one still has all its rows.
      {"select items", &Layer::SelectItems, Data::kItems, kRows - kLimit - kOffset},
  };
}

class LayerTask final : public Task {
 public:
  LayerTask(const LayerMaker& maker, const Description& work, bool hasMutexes)
      : fDescription(work), fLayer(Connect(maker, Place{":memory:", hasMutexes})) {
    for (const std::string& statement : Statements(work.data)) fLayer->Send(statement);
    if (work.company != Company::kNone && !fLayer->Add(work.company, kOthers)) return;
    fWork = (fLayer.get()->*work.prepare)();
  }

  bool IsThere() const { return static_cast<bool>(fWork); }

  std::int64_t Run() override { return fWork(fDescription.times); }
  void Reset() override {
    if (!fDescription.reset.empty()) fLayer->Send(fDescription.reset);
  }
  std::int64_t Changes() override { return fLayer->Ask("SELECT total_changes()"); }
  std::int64_t Left() override { return fLayer->Ask(Fingerprint(fDescription.data)); }

 private:
  Description fDescription;
  std::unique_ptr<Layer> fLayer;
  Work fWork;
};

void Add(std::vector<Entry>& entries, const Description& work, const LayerMaker& layer, bool hasMutexes,
         const std::string& name) {
  entries.push_back(
      Entry{name, layer.name, work.times * work.units, [&layer, work, hasMutexes]() -> std::unique_ptr<Task> {
              auto task = std::make_unique<LayerTask>(layer, work, hasMutexes);
              return task->IsThere() ? std::move(task) : nullptr;
            }});
}

// Those whose figures are to hold with SQLite's mutexes as well.
bool IsWithMutexes(const LayerMaker& layer) { return layer.make == &MakeByHand || layer.make == &MakeKit; }

}  // namespace

void Fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

const std::vector<LayerMaker>& Layers() {
  static const std::vector<LayerMaker> layers = {
      {"SQLite", &MakeByHand}, {"sqldb", &MakeCore}, {"sqldb kit", &MakeKit}, {"SQLiteCpp", &MakeSqliteCpp},
      {"SOCI", &MakeSoci},     {"Qt", &MakeQt},      {"POCO", &MakePoco},
  };
  return layers;
}

std::unique_ptr<Layer> Connect(const LayerMaker& layer, const Place& place) {
  // Some layers have no way to ask for it when they open a database.
  if (sqlite3_shutdown() != SQLITE_OK ||
      sqlite3_config(place.hasMutexes ? SQLITE_CONFIG_SERIALIZED : SQLITE_CONFIG_MULTITHREAD) != SQLITE_OK) {
    Fail("SQLite cannot be told about mutexes");
  }
  return layer.make(place);
}

std::vector<std::string> TableOfParts(std::int64_t rows) {
  return {"CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, price REAL NOT NULL, note TEXT)",
          FillParts(rows)};
}

std::vector<std::string> TableOfItems(std::int64_t rows) {
  return {"CREATE TABLE items (id INTEGER PRIMARY KEY, quantity INTEGER, price INTEGER, stock INTEGER)",
          FillItems(rows)};
}

void AddStatements(std::vector<Entry>& entries) {
  for (const Description& work : PartWorks()) {
    for (const LayerMaker& layer : Layers()) Add(entries, work, layer, false, work.name);
    for (const LayerMaker& layer : Layers()) {
      if (IsWithMutexes(layer)) Add(entries, work, layer, true, work.name + ", mutexes on");
    }
  }
  for (const Description& work : ItemWorks()) {
    for (const LayerMaker& layer : Layers()) Add(entries, work, layer, true, work.name);
  }
}

}  // namespace bench
