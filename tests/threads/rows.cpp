#include <cstddef>
#include <stdexcept>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "threads/work.h"

namespace threads {

namespace {

struct Row {
  std::uint32_t fKey = 0;
  std::uint32_t fA = 0;
  std::uint32_t fB = 0;
  std::uint32_t fC = 0;
};

bool operator==(const Row& a, const Row& b) { return a.fKey == b.fKey && a.fA == b.fA && a.fB == b.fB && a.fC == b.fC; }

// No two of its values are the same.
Row RowOf(std::uint32_t key) { return Row{key, key + 0x40000000, key + 0x80000000, key + 0xC0000000}; }

}  // namespace

void BoundInteger::BindingOpportunity(sqlite3_stmt* statement) const {
  const int index = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
  if (index != 0) sqlite3_bind_int64(statement, index, static_cast<std::int32_t>(fValue));
}

void Expect(bool holds, const char* rule) {
  if (!holds) throw std::logic_error(std::string("not so: ") + rule);
}

Rows::Rows(const std::string& path, std::uint32_t writer)
    : fDatabase(path, false), fTable(fDatabase.NewTable("items")), fInsert(fTable->NewInsert()), fNext(writer << 26) {
  fDatabase.Open();
  // Nobody needs the file after a crash.
  fDatabase.SendQuery("PRAGMA journal_mode = MEMORY", nullptr, nullptr);
  fDatabase.SetSynchronizationLevel(false);
  for (const char* const name : {"key", "a", "b", "c"}) {
    fTable->AddColumn(boost::make_shared<IntegerColumn>(fTable.get(), name, true, false, false, ""));
    fInsert->fColumns.push_back(fTable->GetColumn(name));
  }
  fTable->Create();
}

std::uint32_t Rows::WriteAndCheck(std::uint32_t count) {
  fDatabase.BeginTransaction();
  Write(count);
  fDatabase.EndTransaction(true, false);
  const std::uint32_t wrong = CountWrong(count);
  fTable->DeleteRecords(sqldb::SQLEmptyTerm::EmptyTerm);
  fNext += count;
  return wrong;
}

void Rows::Write(std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    const Row row = RowOf(fNext + i);
    for (const std::uint32_t value : {row.fKey, row.fA, row.fB, row.fC}) {
      fInsert->fValues.push_back(boost::make_shared<BoundInteger>(value));
    }
    fInsert->PerformInsert(true);
  }
}

std::uint32_t Rows::CountWrong(std::uint32_t count) {
  sqldb::OffsetSpec offsets;
  for (const std::size_t offset : {offsetof(Row, fKey), offsetof(Row, fA), offsetof(Row, fB), offsetof(Row, fC)}) {
    offsets.PushOffset(static_cast<std::uint32_t>(offset), 0);
  }
  const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Row>>(&fDatabase, offsets);
  const auto select = fDatabase.NewSelect(fTable, 0);
  select->fColumns = fInsert->fColumns;
  select->fOrder = {{boost::make_shared<IntegerColumn>(nullptr, "ROWID", true, false, false, ""), 1}};
  select->PrepareSelect(cursor);
  std::uint32_t right = 0;
  Row row;
  while (cursor->Step(row) == 0) {
    if (row == RowOf(fNext + cursor->fRowCount - 1)) ++right;
  }
  Expect(cursor->fRowCount == count, "every row that was written is read");
  return count - right;
}

}  // namespace threads
