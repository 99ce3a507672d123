#ifndef SQLDB_KIT_BULK_H
#define SQLDB_KIT_BULK_H

// Many rows by one statement, compiled once.
//
//   sqldb::kit::InsertMany(database, "INSERT INTO items (name, price) VALUES (?, ?)", items,
//                          [](sqlite3_stmt* statement, const Item& item) {
//                            sqlite3_bind_text(statement, 1, item.name.c_str(), -1, SQLITE_STATIC);
//                            sqlite3_bind_int64(statement, 2, item.price);
//                          });

#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <sqlite3.h>

#include "sqldb/database.h"
#include "sqldb/kit/failure.h"
#include "sqldb/kit/retry.h"
#include "sqldb/kit/transaction.h"

namespace sqldb::kit {

/// How InsertMany goes about it.
struct BulkOptions {
  /// How many rows are committed together; 0 for all of them.
  std::size_t batch = 1000;
  /// Called after each batch with the number of rows written so far. Returning false ends the work.
  std::function<bool(std::size_t)> progress;
  /// For each batch: how long to go on while the file is busy. No row is bound twice on that account.
  Patience patience;
};

namespace detail {

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

inline Statement Compile(SQLDatabase& database, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(ConnectionOf(database), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw LastReport(database);
  }
  if (statement == nullptr) throw Error("There is no statement in the text.", SQLITE_MISUSE);
  return Statement(statement);
}

/// What it returns, an INSERT with RETURNING for instance, is dropped.
inline void Execute(SQLDatabase& database, sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result != SQLITE_DONE && result != SQLITE_ROW) throw LastReport(database);
  sqlite3_reset(statement);
}

}  // namespace detail

/// Executes `sql`, one statement that writes, once for each of `rows`: `bind(statement, row)` binds the parameters, of
/// which those that it leaves out keep what they had for the row before. Returns how many rows that were.
///
/// Each batch is a transaction of its own; see BulkOptions. Throws Error, or what `bind` and `progress` throw: what
/// `bind` had begun with its batch is rolled back, and the batches before stay. Inside a transaction the batches are
/// levels of it, and after a failure it can only be rolled back; inside one that the application began with a query
/// of its own ("BEGIN") that is for the application to do.
/// REQUIRES: `bind` neither executes nor finalizes the statement, and throws if SQLite refuses a value. What it binds
/// as SQLITE_STATIC lives as long as its row. `rows` does not change meanwhile.
template <typename Rows, typename Bind>
std::size_t InsertMany(SQLDatabase& database, const std::string& sql, const Rows& rows, Bind bind,
                       const BulkOptions& options = {}) {
  const detail::Statement statement = RetryWhileBusy(
      database, [&] { return detail::Compile(database, sql); }, options.patience);
  const bool isLevel = database.fTransactionDepth > 0 || detail::IsOver(database);
  std::size_t written = 0;
  auto row = std::begin(rows);
  const auto end = std::end(rows);
  while (row != end) {
    detail::Waiting waiting(options.patience);
    std::optional<Transaction> transaction;
    if (isLevel) {
      const auto begin = [&] { transaction.emplace(database, WriteLock::kAtOnce); };
      detail::RetryWhileBusy(database, begin, waiting);
    }
    Run(database, [&] {
      std::size_t count = 0;
      do {
        bind(statement.get(), *row);
        detail::Execute(database, statement.get());
        ++row;
        ++count;
      } while (row != end && count != options.batch);
      written += count;
    });
    if (transaction) detail::CommitWhileBusy(*transaction, waiting);
    if (options.progress && !options.progress(written)) break;
  }
  return written;
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_BULK_H
