#include "sqldb/cursor.h"

#include <cstddef>
#include <exception>

#include <sqlite3.h>
#include <unistd.h>

#include "sqldb/column.h"

namespace sqldb {

namespace {

constexpr int kBusyRetries = 600;
constexpr useconds_t kBusyWait = 100000;  // microseconds

}  // namespace

void OffsetSpec::PushOffset(std::uint32_t byteOffset, std::uint16_t buffer) {
  fItems.push_back(ItemOffset{byteOffset, buffer});
}

SQLStepCursorBase::SQLStepCursorBase(SQLDatabase* database, const OffsetSpec& offsets)
    : SQLCursorBase(database), fOffsets(offsets) {}

SQLStepCursorBase::~SQLStepCursorBase() noexcept(false) {
  if (fFinalized) return;
  const int result = sqlite3_finalize(fStatement);
  if (result != SQLITE_OK && MayThrowOnDestruction()) ThrowMessage();
  fFinalized = true;
}

// An exception that leaves the release of a shared pointer, or a destructor run by another exception, ends the process.
bool SQLStepCursorBase::MayThrowOnDestruction() const {
  // The object's weak pointer to itself has expired by now, but is only empty if no shared pointer ever owned it. One
  // made from a SQLCursorBase* does not set it; that is what IsShared adds.
  const bool isShared = IsShared() || !weak_from_this().empty();
  return !isShared && !IsOrphan() && std::uncaught_exceptions() == 0;
}

void SQLStepCursorBase::PrepareToQuery(const std::string& sql) {
  const char* ignoredTail = nullptr;
  if (sqlite3_prepare(Connection(), sql.c_str(), -1, &fStatement, &ignoredTail) != SQLITE_OK) ThrowMessage();
  fFinalized = false;
}

// Out of the way of the rows that come at once.
int SQLStepCursorBase::StepUntilFree() {
  int result = SQLITE_BUSY;
  for (int retry = 0; result == SQLITE_BUSY && retry < kBusyRetries; ++retry) {
    usleep(kBusyWait);
    result = sqlite3_step(fStatement);
  }
  if (result == SQLITE_BUSY) usleep(kBusyWait);
  return result;
}

bool SQLStepCursorBase::Advance() {
  int result = sqlite3_step(fStatement);
  if (result == SQLITE_BUSY) result = StepUntilFree();
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE && result != SQLITE_OK) ThrowMessage();
  return false;
}

int SQLStepCursorBase::StepInto(const std::vector<char*>& buffers) {
  if (!Advance()) return 1;
  sqlite3_stmt* const statement = fStatement;
  const std::vector<ItemOffset>& items = fOffsets.fItems;
  int index = 0;
  for (const boost::shared_ptr<SQLColumnBase>& column : fColumns) {
    const ItemOffset& item = items[static_cast<std::size_t>(index)];
    column->AssignTo(buffers[item.fBuffer] + item.fByteOffset, statement, index);
    ++index;
  }
  ++fRowCount;
  return 0;
}

}  // namespace sqldb
