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
constexpr std::size_t kMaxBuffers = 4;

}  // namespace

void OffsetSpec::PushOffset(std::uint32_t byteOffset, std::uint16_t buffer) {
  fItems.push_back(ItemOffset{byteOffset, buffer});
}

SQLStepCursorBase::SQLStepCursorBase(SQLDatabase* database, const OffsetSpec& offsets)
    : SQLCursorBase(database), fOffsets(offsets) {
  // So that no row allocates.
  fBuffers.reserve(kMaxBuffers);
}

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

const std::vector<char*>& SQLStepCursorBase::CollectBuffers(void* first, void* second, void* third, void* fourth) {
  fBuffers.clear();
  for (void* const buffer : {first, second, third, fourth}) {
    if (buffer == nullptr) break;
    fBuffers.push_back(static_cast<char*>(buffer));
  }
  return fBuffers;
}

int SQLStepCursorBase::StepInto(const std::vector<char*>& buffers) {
  int result = sqlite3_step(fStatement);
  for (int retry = 0; result == SQLITE_BUSY && retry < kBusyRetries; ++retry) {
    usleep(kBusyWait);
    result = sqlite3_step(fStatement);
  }
  if (result == SQLITE_BUSY) usleep(kBusyWait);

  if (result == SQLITE_DONE || result == SQLITE_OK) return 1;
  if (result != SQLITE_ROW) ThrowMessage();

  for (std::size_t i = 0; i < fColumns.size(); ++i) {
    const ItemOffset& item = fOffsets.fItems[i];
    fColumns[i]->AssignTo(buffers[item.fBuffer] + item.fByteOffset, fStatement, static_cast<int>(i));
  }
  ++fRowCount;
  return 0;
}

}  // namespace sqldb
