#include "sqldb/cursor.h"

#include <cstddef>
#include <cstring>
#include <exception>
#include <typeinfo>
#include <utility>

#include <sqlite3.h>
#include <unistd.h>

#include "database/spares.h"
#include "schema/integer_column.h"
#include "sqldb/database.h"

namespace sqldb {

namespace {

constexpr int kBusyRetries = 600;
constexpr useconds_t kBusyWait = 100000;  // microseconds

// By which the library's own column is recognised. Without RTTI none is.
#ifdef __cpp_rtti
const std::type_info* TypeOf(const SQLColumnBase& column) { return &typeid(column); }
const std::type_info* TypeOfIntegerColumn() { return &typeid(IntegerColumn); }
#else
const void* TypeOf(const SQLColumnBase&) { return nullptr; }
const void* TypeOfIntegerColumn() {
  static constexpr char kNone = 0;
  return &kNone;
}
#endif

}  // namespace

void OffsetSpec::PushOffset(std::uint32_t byteOffset, std::uint16_t buffer) {
  fItems.push_back(ItemOffset{byteOffset, buffer});
}

SQLStepCursorBase::SQLStepCursorBase(SQLDatabase* database, const OffsetSpec& offsets) : SQLCursorBase(database) {
  database->fSpares->fOffsets.Lend(fOffsets.fItems);
  fOffsets = offsets;
}

SQLStepCursorBase::SQLStepCursorBase(SQLDatabase* database, OffsetSpec&& offsets)
    : SQLCursorBase(database), fOffsets(std::move(offsets)) {}

SQLStepCursorBase::~SQLStepCursorBase() noexcept(false) {
  if (!fFinalized) {
    const int result = sqlite3_finalize(fStatement);
    if (result != SQLITE_OK && MayThrowOnDestruction()) ThrowMessage();
    fFinalized = true;
  }
  if (!IsOrphan()) fDatabase->fSpares->fOffsets.TakeBack(fOffsets.fItems);
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

// What a step that delivered no row at once comes to, out of the way of those that did. Returns false if there is none
// left.
bool SQLStepCursorBase::AdvanceUnlessDone(int result) {
  for (int retry = 0; result == SQLITE_BUSY && retry < kBusyRetries; ++retry) {
    usleep(kBusyWait);
    result = sqlite3_step(fStatement);
  }
  if (result == SQLITE_BUSY) usleep(kBusyWait);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE && result != SQLITE_OK) ThrowMessage();
  return false;
}

// A part of both functions that follow it: another call would be felt in every row.
template <typename Buffers>
__attribute__((always_inline)) inline int SQLStepCursorBase::FetchRow(const Buffers& buffers) {
  const int result = sqlite3_step(fStatement);
  if (result != SQLITE_ROW && !AdvanceUnlessDone(result)) return 1;
  sqlite3_stmt* const statement = fStatement;
  const auto* const integer = TypeOfIntegerColumn();
  // Looked at here, where the standard library's checks see an entry that is missing.
  if (!fColumns.empty()) static_cast<void>(fOffsets.fItems[fColumns.size() - 1]);
  const ItemOffset* const items = fOffsets.fItems.data();
  std::size_t index = 0;
  // The end is not kept: it would take the register that `integer` needs.
  auto entry = fColumns.begin();
  while (entry != fColumns.end()) {
    const SQLColumnBase& column = **entry;
    // The library's own column is recognised, since a virtual call costs as much as all the rest. Its type's address
    // will do: where another library has a copy of the type, the column is called like any other.
    if (__builtin_expect(TypeOf(column) == integer, 1)) {
      const std::uint32_t value = IntegerOf(statement, static_cast<int>(index));
      std::memcpy(buffers[items[index].fBuffer] + items[index].fByteOffset, &value, sizeof value);
    } else {
      column.AssignTo(buffers[items[index].fBuffer] + items[index].fByteOffset, statement, static_cast<int>(index));
    }
    ++entry;
    ++index;
  }
  ++fRowCount;
  return 0;
}

int SQLStepCursorBase::StepInto(const std::array<char*, 4>& buffers) { return FetchRow(buffers); }

int SQLStepCursorBase::StepInto(const std::vector<char*>& buffers) { return FetchRow(buffers); }

}  // namespace sqldb
