#ifndef SQLDB_KIT_BULK_H
#define SQLDB_KIT_BULK_H

// Many records written by one statement and in batches, each of which is a transaction; see Table::InsertMany.
//
//   BulkOptions options;
//   options.batch = 10000;
//   parts.InsertMany(all, options, [&](std::size_t written) {
//     Show(written);
//     return isCancelled ? Progress::kStop : Progress::kGoOn;
//   });

#include <cstddef>
#include <optional>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/table_handle.h"
#include "sqldb/kit/transaction.h"

namespace sqldb::kit {

/// How many records are written at once: all of them, so that all are written or none, unless told otherwise. A smaller
/// batch lets other connections write in between, tells earlier how far the work has come, and has less to undo and to
/// write again when one of its records fails.
struct BulkOptions {
  /// How many of them are committed together; 0 for all. The last batch may be smaller.
  std::size_t batch = 0;
};

/// What a report says to a bulk write, after each batch and when nothing of the write is open: the report may use the
/// database. What it throws ends the write, too, and passes through; the batches that it was told of stay.
enum class Progress {
  /// That it goes on with the next record.
  kGoOn,
  /// That it ends as if there were no more records; what has been written stays.
  kStop,
};

namespace detail {

/// Writes records one after the other. Inside a transaction a batch is a savepoint; inside one that the program began
/// with SQL of its own it is nothing, and what was written before a failure stays.
///
/// Order of calls: Write until it has taken all records, then Finish. Destroyed without it, it undoes the batch that it
/// has begun.
class SQLDB_EXPORT BulkWriter {
 public:
  /// Begins nothing yet.
  /// REQUIRES: the table outlives the object.
  BulkWriter(const TableHandle& table, RecordWrite what, const BulkOptions& options);

  /// Begins a batch if none has begun, which waits for the write lock, and writes records of the table's struct, which
  /// stand one every `size` bytes, until the batch is full. Returns how many it wrote, at least one. What it throws
  /// ends the work; the object is then to be destroyed, which undoes the batch. An Error tells the number of the record
  /// and how many stay.
  /// REQUIRES: there is a record.
  std::size_t Write(const void* records, std::size_t count, std::size_t size);
  /// Whether the last Write has ended its batch.
  bool IsBatchEnded() const noexcept { return fInBatch == 0; }
  /// Ends the last batch. Returns whether there was one. Throws as Write does.
  bool Finish();
  /// How many records the batches had that have ended.
  std::size_t Written() const noexcept { return fWritten; }

 private:
  void BeginBatch();
  void EndBatch();
  std::size_t Kept() const;

  const TableHandle& fTable;
  const RecordWrite fWhat;
  const std::size_t fBatch;
  std::size_t fWritten = 0;
  std::size_t fInBatch = 0;
  // Whether the batch is a part of a transaction that was there before.
  bool fIsInside = false;
  Lease fStatement;
  std::optional<Transaction> fTransaction;
  std::optional<Savepoint> fSavepoint;
};

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_BULK_H
