#include "work.h"

#include <chrono>
#include <cmath>
#include <cstddef>
#include <iostream>

#include <sqlite3.h>

#include <boost/make_shared.hpp>
#include "sqldb/kit/leftovers.h"

namespace cluster {

namespace {

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

struct Row {
  std::uint32_t fWriter = 0;
  std::uint32_t fStep = 0;
};

class Number : public sqldb::SQLValueBase {
 public:
  explicit Number(std::uint32_t number) : fNumber(number) { RememberParameterName(); }
  std::ostream& Print(std::ostream& out) const override { return out << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, GetParameterName().c_str()), fNumber);
  }

 private:
  std::uint32_t fNumber;
};

class LastText : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt* statement) override {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    fText = text != nullptr ? text : "NULL";
    return true;
  }

  std::string fText;
};

void WaitForInput() {
  std::cout << std::flush;
  std::string line;
  std::getline(std::cin, line);
}

}  // namespace

OpenDatabase::OpenDatabase(const std::string& path) : SQLDatabase(path, false) {
  Open();
  SendQuery("PRAGMA temp_store = 2", nullptr, nullptr);
}

Work::Work(sqldb::SQLDatabase& database)
    : fDatabase(database), fTable(database.NewTable("work")), fInsert(fTable->NewInsert()) {
  for (const char* const name : {"writer", "step"}) {
    fTable->AddColumn(boost::make_shared<IntegerColumn>(fTable.get(), name, false, false, false, ""));
    fInsert->fColumns.push_back(fTable->GetColumn(name));
  }
}

void Work::Insert(std::uint32_t writer, std::uint32_t step) {
  fInsert->fValues = {boost::make_shared<Number>(writer), boost::make_shared<Number>(step)};
  fInsert->PerformInsert(true);
}

std::uint32_t Work::Scan() {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(offsetof(Row, fWriter), 0);
  offsets.PushOffset(offsetof(Row, fStep), 0);
  const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Row>>(&fDatabase, offsets);
  const auto select = fDatabase.NewSelect(fTable, 0);
  select->fColumns = fInsert->fColumns;
  select->PrepareSelect(cursor);
  Row row;
  while (cursor->Step(row) == 0) {
  }
  return cursor->fRowCount;
}

std::string Answer(sqldb::SQLDatabase& database, const std::string& sql) {
  LastText answer;
  database.SendQuery(sql, &answer, nullptr);
  return answer.fText;
}

double Now() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Create(const std::string& path) {
  OpenDatabase database(path);
  Work(database).Create();
}

void Write(const std::string& path, std::uint32_t writer, std::uint32_t count) {
  OpenDatabase database(path);
  Work work(database);
  std::cout << "ready\n";
  WaitForInput();
  for (std::uint32_t step = 1; step <= count; ++step) work.Insert(writer, step);
  std::cout << "wrote\n";
}

void Look(const std::string& path) {
  const double start = Now();
  OpenDatabase database(path);
  std::cout << Answer(database,
                      "SELECT ifnull(group_concat(found, '; '), 'nothing') FROM (SELECT 'writer ' || writer || ': ' || "
                      "count(*) || ' rows, ' || count(DISTINCT step) || ' steps, the last ' || max(step) AS found FROM "
                      "work GROUP BY writer)")
            << "; integrity " << Answer(database, "PRAGMA integrity_check")
            << "\n"
            // How often another writer than before had its turn.
            << "turns "
            << Answer(
                   database,
                   "SELECT count(*) FROM work AS a JOIN work AS b ON b.rowid = a.rowid + 1 WHERE a.writer <> b.writer")
            << "\nanswered after " << std::lround((Now() - start) / 1000) << "\n";
}

void Hold(const std::string& path, std::uint32_t writer, std::uint32_t count) {
  OpenDatabase database(path);
  // So small that most of what is written reaches the file, and has to be taken back from there.
  database.SendQuery("PRAGMA cache_size = 5", nullptr, nullptr);
  Work work(database);
  database.BeginTransaction();
  for (std::uint32_t step = 1; step <= count; ++step) work.Insert(writer, step);
  std::cout << "holding\n";
  WaitForInput();
  // Says more about a failure than the core may.
  sqldb::kit::Run(database, [&] { database.EndTransaction(true, false); });
  std::cout << "committed\n";
}

}  // namespace cluster
