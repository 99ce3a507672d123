#include "sqldb/kit/bulk.h"

#include "connection.h"
#include "record_values.h"
#include "step.h"

namespace sqldb::kit::detail {

BulkWriter::BulkWriter(const TableHandle& table, RecordWrite what, const BulkOptions& options)
    : fTable(table), fWhat(what), fBatch(options.batch) {}

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

void BulkWriter::EndBatch() {
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

bool BulkWriter::Write(const void* record) {
  try {
    if (fInBatch == 0) BeginBatch();
    BindRecord(fStatement.Statement(), fTable.Layout(), record);
    KeptStatement& kept = fStatement.Kept();
    try {
      while (StepOnce(kept)) {
      }
    } catch (const ConstraintError& error) {
      fTable.ThrowNotInserted(error, record);
    }
    kept.Reset();
    if (++fInBatch != fBatch) return false;
    EndBatch();
    return true;
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
