#ifndef SQLDB_BENCH_SQLITECPP_ITEMS_H
#define SQLDB_BENCH_SQLITECPP_ITEMS_H

#include <SQLiteCpp/SQLiteCpp.h>

#include "items.h"

namespace bench {

// A connection of SQLiteCpp, with the table, in a transaction.
class SqliteCppItems {
 public:
  SqliteCppItems() {
    Send(kCreateItems);
    Send(kFillItems);
    Send("BEGIN");
  }

  void Send(const char* sql) { database.exec(sql); }
  std::int64_t Changes() const { return database.getTotalChanges(); }

  SQLite::Database database{":memory:", SQLite::OPEN_READWRITE};
};

}  // namespace bench

#endif  // SQLDB_BENCH_SQLITECPP_ITEMS_H
