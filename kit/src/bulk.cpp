#include "sqldb/kit/bulk.h"

#include <algorithm>
#include <limits>

#include "connection.h"
#include "record_values.h"
#include "step.h"

namespace sqldb::kit::detail {

BulkWriter::BulkWriter(const TableHandle& table, RecordWrite what, const BulkOptions& options)
    : fTable(table),
      fWhat(what),
      fBatch(options.batch != 0 ? options.batch : std::numeric_limits<std::size_t>::max()) {}

void BulkWriter::BeginBatch() {
  const ConnectionPointer& connection = fTable.Connection();
  const SQLDatabase& core = connection->Core();
  fIsInside = core.fTransactionDepth > 0 || !IsOver(core);
  if (core.fTransactionDepth > 0) {
    fSavepoint.emplace(connection);
  } else if (!fIsInside) {
    fTransaction.emplace(connection, Begin::kImmediate);
  }
  fStatement = Lease(fTable.Lend(fWhat));
}

// Not inlined: what guards the stack of a function that ends leases would cost each record.
[[gnu::noinline]] void BulkWriter::EndBatch() {
  fStatement = Lease();
  if (fSavepoint) fSavepoint->Release();
  if (fTransaction) fTransaction->Commit();
  fSavepoint.reset();
  fTransaction.reset();
  fWritten += fInBatch;
  fInBatch = 0;
}

// Of those before a failure. SQLite may have rolled back the transaction that they are a part of.
std::size_t BulkWriter::Kept() const {
  if (!fIsInside) return fWritten;
  const ConnectionPointer& connection = fTable.Connection();
  if (!connection->IsOpen() || IsOver(connection->Core())) return 0;
  return fSavepoint ? fWritten : fWritten + fInBatch;
}

std::size_t BulkWriter::Write(const void* records, std::size_t count, std::size_t size) {
  try {
    if (fInBatch == 0) BeginBatch();
    const std::size_t first = fInBatch;
    const std::size_t end = first + std::min(count, fBatch - first);
    const char* record = static_cast<const char*>(records);
    KeptStatement& kept = fStatement.Kept();
    const RecordLayout& layout = fTable.Layout();
    for (; fInBatch != end; ++fInBatch, record += size) {
      if (kept.statement == nullptr) ThrowLetGo(kept);
      BindRecord(kept.statement, layout, record);
      try {
        RunToEnd(kept);
      } catch (const ConstraintError& error) {
        fTable.ThrowNotInserted(error, record);
      }
    }
    if (end == fBatch) EndBatch();
    return end - first;
  } catch (Error& error) {
    error.SetRecord(fWritten + fInBatch, Kept());
    throw;
  }
}

bool BulkWriter::Finish() {
  if (fInBatch == 0) return false;
  try {
    EndBatch();
  } catch (Error& error) {
    error.SetRecord(fWritten + fInBatch, Kept());
    throw;
  }
  return true;
}

}  // namespace sqldb::kit::detail
