#include "faults/scenarios.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <new>
#include <stdexcept>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "support/fixtures.h"

namespace faults {

namespace {

using boost::make_shared;
using sqldb::OffsetSpec;
using sqldb::SQLColumnBase;
using sqldb::SQLCursorBase;
using sqldb::SQLDatabase;
using sqldb::SQLEmptyTerm;
using sqldb::SQLStepCursor;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using support::BoundInteger;
using support::IntegerColumn;
using support::MakeTerm;
using support::MakeValue;

using Table = boost::shared_ptr<SQLTableClass>;

struct Item {
  std::uint32_t id;
  std::uint32_t qty;
};

// Declares a table that the file has already, or is about to get.
Table Declare(SQLDatabase& database, const std::string& name) {
  const Table table = database.NewTable(name);
  table->AddColumn(make_shared<IntegerColumn>(table.get(), "id", false, false, true, ""));
  table->AddColumn(make_shared<IntegerColumn>(table.get(), "qty", true, false, false, ""));
  table->Initialize();
  return table;
}

// A cursor that sums up the second column of the rows it is handed.
class SummingCursor : public SQLCursorBase {
 public:
  explicit SummingCursor(SQLDatabase* database) : SQLCursorBase(database) {}
  bool ProcessRow(sqlite3_stmt* statement) override {
    fSum += sqlite3_column_int64(statement, 1);
    return true;
  }

  std::int64_t fSum = 0;
};

void FillRow(sqldb::SQLInsertClass& statement, int id, int qty) {
  statement.fValues = {make_shared<BoundInteger>(id), make_shared<BoundInteger>(qty)};
}

template <typename Statement>
void TakeColumns(Statement& statement, const Table& table) {
  statement.fColumns = {table->GetColumn("id"), table->GetColumn("qty")};
}

void CreateTable(SQLDatabase& database) {
  const Table table = database.NewTable("fresh");
  table->AddColumn(make_shared<IntegerColumn>(table.get(), "id", false, true, true, "NOCASE"));
  table->Create();
}

void DropTable(SQLDatabase& database) { database.DropTable(Declare(database, "items")); }

void CreateIndex(SQLDatabase& database) { Declare(database, "items")->CreateIndexForColumn("qty"); }

void InsertRow(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  const auto insert = items->NewInsert();
  TakeColumns(*insert, items);
  FillRow(*insert, 1000, 7);
  insert->PerformInsert(true);
}

void ReplaceRow(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  const auto replace = items->NewReplace();
  TakeColumns(*replace, items);
  FillRow(*replace, 5, 777);
  replace->PerformReplace(true);
}

void UpdateRows(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  const auto update = items->NewUpdate();
  update->fColumns = {items->GetColumn("qty")};
  update->fValues = {MakeValue("qty + 100")};
  update->fTerm = MakeTerm(" id % 2 = 0");
  update->PerformUpdate(true);
}

void DeleteRows(SQLDatabase& database) { Declare(database, "items")->NewDelete(MakeTerm(" id > 20"))->PerformDelete(); }

void DeleteEveryRecord(SQLDatabase& database) { Declare(database, "items")->DeleteRecords(SQLEmptyTerm::EmptyTerm); }

void StepThroughSelect(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  auto select = database.NewSelect(items, 20);
  select << items->GetColumn("id") << items->GetColumn("qty");
  select->fTerm = MakeTerm(" qty > 2");
  select->fOrder = {{items->GetColumn("qty"), 0}, {items->GetColumn("id"), 1}};
  select->fOffset = 3;
  select->fDistinct = true;
  OffsetSpec offsets;
  offsets.PushOffset(offsetof(Item, id), 0);
  offsets.PushOffset(offsetof(Item, qty), 0);
  const auto cursor = make_shared<SQLStepCursor<Item>>(&database, offsets);
  select->PrepareSelect(cursor);
  Item item{};
  while (cursor->Step(item) == 0) {
  }
}

// Every column twice, each into a buffer of its own.
void StepIntoBuffers(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  auto select = database.NewSelect(items, 20);
  OffsetSpec offsets;
  for (std::uint16_t buffer = 0; buffer < 4; ++buffer) {
    select << items->GetColumn(buffer % 2 == 0 ? "id" : "qty");
    offsets.PushOffset(0, buffer);
  }
  const auto cursor = make_shared<SQLStepCursor<std::uint32_t>>(&database, offsets);
  select->PrepareSelect(cursor);
  std::uint32_t id = 0;
  std::uint32_t qty = 0;
  std::uint32_t sameId = 0;
  std::uint32_t sameQty = 0;
  while (cursor->Step(id, &qty, &sameId, &sameQty) == 0) {
    if (id != sameId || qty != sameQty) throw std::logic_error("a value went to the wrong buffer");
  }
}

void PerformSelect(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  auto select = database.NewSelect(items, 0);
  select << items->GetColumn("id") << items->GetColumn("qty");
  select->PerformSelect(make_shared<SummingCursor>(&database));
}

void CountAndTest(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  items->CountRecords(MakeTerm(" qty > 2"));
  items->HasTerm(MakeTerm(" id = 7"));
}

void NestedTransactions(SQLDatabase& database) {
  const Table log = Declare(database, "log");
  const Table items = Declare(database, "items");
  const auto insert = log->NewInsert();
  TakeColumns(*insert, log);
  database.BeginTransaction();
  for (int i = 1; i <= 3; ++i) {
    database.BeginTransaction();
    FillRow(*insert, i, i * i);
    insert->PerformInsert(true);
    items->DeleteRecords(MakeTerm(" id = " + std::to_string(i)));
    database.EndTransaction(true, false);
  }
  database.EndTransaction(true, false);
}

// Longer than SQLite's cache, so that the file is written to before the end.
void LongTransaction(SQLDatabase& database) {
  const Table log = Declare(database, "log");
  const auto insert = log->NewInsert();
  TakeColumns(*insert, log);
  database.BeginTransaction();
  for (int i = 1; i <= 600; ++i) {
    FillRow(*insert, i, i * i);
    insert->PerformInsert(true);
  }
  database.EndTransaction(true, false);
}

void RolledBackTransaction(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  database.BeginTransaction();
  items->DeleteRecords(SQLEmptyTerm::EmptyTerm);
  database.EndTransaction(false, true);
}

// An inner level asks for the rollback, and the outermost one for a commit.
void VetoedTransaction(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  const std::uint32_t count = items->CountRecords(nullptr);
  database.BeginTransaction();
  database.BeginTransaction();
  items->DeleteRecords(MakeTerm(" id > 20"));
  database.EndTransaction(false, false);
  InsertRow(database);
  database.EndTransaction(true, false);
  if (items->CountRecords(nullptr) != count) throw std::logic_error("the veto was not heard");
}

void EndEveryLevel(SQLDatabase& database) {
  const Table items = Declare(database, "items");
  database.BeginTransaction();
  items->DeleteRecords(MakeTerm(" id > 20"));
  database.BeginTransaction();
  InsertRow(database);
  database.EndTransaction(true, true);
  if (sqlite3_get_autocommit(database.fConnection) == 0) throw std::logic_error("a level is left");
}

void ChangeSynchronization(SQLDatabase& database) {
  database.SetSynchronizationLevel(false);
  InsertRow(database);
  database.SetSynchronizationLevel(true);
}

void ExplainSort(SQLDatabase& database) {
  support::ClogCapture quiet;
  database.fExplainLevel = 2;
  database.fLogErrors = 1;
  database.ExplainQuery("SELECT id FROM items ORDER BY qty;DELETE FROM log");
}

void RegisterCollation(SQLDatabase& database) {
  const auto compare = [](void*, int left, const void*, int right, const void*) { return left - right; };
  if (database.AddCollation("by_length", compare) != SQLITE_OK) throw std::runtime_error("no collation");
  database.SendQuery("SELECT id FROM items ORDER BY CAST(qty AS TEXT) COLLATE by_length", nullptr, nullptr);
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {"create table", CreateTable},
      {"drop table", DropTable},
      {"create index", CreateIndex},
      {"insert", InsertRow},
      {"replace", ReplaceRow},
      {"update", UpdateRows},
      {"delete", DeleteRows},
      {"delete every record", DeleteEveryRecord},
      {"stepped select", StepThroughSelect},
      {"step into several buffers", StepIntoBuffers},
      {"performed select", PerformSelect},
      {"count and test", CountAndTest},
      {"nested transactions", NestedTransactions},
      {"long transaction", LongTransaction},
      {"rolled back transaction", RolledBackTransaction},
      {"vetoed transaction", VetoedTransaction},
      {"every level ended at once", EndEveryLevel},
      {"synchronization", ChangeSynchronization},
      {"explanation", ExplainSort},
      {"collation", RegisterCollation},
  };
  return scenarios;
}

const char* const kStockSql =
    // Small pages: more of them, and so more points at which to fail.
    "PRAGMA page_size = 512;"
    "CREATE TABLE items (id INTEGER NOT NULL PRIMARY KEY, qty INTEGER);"
    "CREATE TABLE log (id INTEGER NOT NULL PRIMARY KEY, qty INTEGER);"
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) "
    "INSERT INTO items SELECT i, i * 7 % 11 FROM n;";

void MakeStock(const std::string& path) {
  RemoveDatabase(path);
  support::OtherConnection(path).Run(kStockSql);
}

std::string ContentsOf(sqlite3* connection) {
  std::string contents;
  const auto add = [&](const std::string& sql) {
    for (const std::string& row : support::RowsOf(connection, sql)) contents += row + "\n";
  };
  const std::vector<std::string> integrity = support::RowsOf(connection, "PRAGMA integrity_check");
  if (integrity.empty()) return "damaged beyond a check";
  if (integrity != std::vector<std::string>{"ok"}) return "damaged " + integrity.front();
  add("SELECT name, sql FROM sqlite_master ORDER BY name");
  const char* const tables = "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name";
  for (const std::string& table : support::RowsOf(connection, tables)) add("SELECT * FROM " + table);
  return contents;
}

std::string ContentsOf(const std::string& path) {
  const support::OtherConnection file(path);
  return ContentsOf(file.Connection());
}

void RemoveDatabase(const std::string& path) {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
}

void CopyDatabase(const std::string& from, const std::string& to) {
  RemoveDatabase(to);
  std::filesystem::copy_file(from, to);
}

Outcome OutcomeOf(const std::function<void()>& action) {
  try {
    action();
    return Outcome::kDone;
  } catch (const std::runtime_error&) {
    return Outcome::kRuntimeError;
  } catch (const std::bad_alloc&) {
    return Outcome::kBadAlloc;
  } catch (...) {
    return Outcome::kOther;
  }
}

std::vector<int> Points(int count, int most) {
  const int part = most / 3;
  const int stride = count > most ? (count - 2 * part) / part : 1;
  const int lastPart = count - part;
  std::vector<int> points;
  for (int n = 1; n <= count; n += n > part && n < lastPart ? std::min(stride, lastPart - n) : 1) points.push_back(n);
  return points;
}

}  // namespace faults
