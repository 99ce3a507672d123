#ifndef SQLDB_KIT_BULK_H
#define SQLDB_KIT_BULK_H

// Many records written by one statement and in batches, each of which is a transaction; see Table::InsertMany.

#include <cstddef>
#include <optional>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/table_handle.h"
#include "sqldb/kit/transaction.h"

namespace sqldb::kit {

/// How many records are written at once.
struct BulkOptions {
  /// How many of them are committed together; 0 for all.
  std::size_t batch = 1000;
};

/// What a report says to a bulk write.
enum class Progress {
  /// That it goes on.
  kGoOn,
  /// That it ends; what has been written stays.
  kStop,
};

namespace detail {

/// Writes records one after the other. Inside a transaction a batch is a savepoint; inside one that the program began
/// with SQL of its own it is nothing.
class SQLDB_EXPORT BulkWriter {
 public:
  BulkWriter(const TableHandle& table, RecordWrite what, const BulkOptions& options);

  /// Returns whether that ended a batch. What it throws ends the work, and undoes the batch that it began; an Error
  /// tells the number of the record.
  bool Write(const void* record);
  /// Ends the last batch. Returns whether there was one.
  bool Finish();
  /// How many records the ended batches had.
  std::size_t Written() const noexcept { return fWritten; }

 private:
  void BeginBatch();
  void EndBatch();

  const TableHandle& fTable;
  const RecordWrite fWhat;
  const std::size_t fBatch;
  std::size_t fWritten = 0;
  std::size_t fInBatch = 0;
  Lease fStatement;
  std::optional<Transaction> fTransaction;
  std::optional<Savepoint> fSavepoint;
};

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_BULK_H
