#ifndef SQLDB_BENCH_SOCI_ITEMS_H
#define SQLDB_BENCH_SOCI_ITEMS_H

#include <soci/soci.h>

#include "items.h"

namespace bench {

// A connection of SOCI, with the table, in a transaction.
class SociItems {
 public:
  SociItems() {
    Send(kCreateItems);
    Send(kFillItems);
    Send("BEGIN");
  }

  void Send(const char* sql) { session << sql; }
  // Asked of SQLite by a statement, because the header that gives access to the connection puts all of sqlite3.h into a
  // namespace and so cannot be included beside it. Two statements among a Run's thousand.
  std::int64_t Changes() {
    long long changes = 0;
    session << "SELECT total_changes()", soci::into(changes);
    return changes;
  }

  // The backend is named rather than linked, for the same reason.
  soci::session session{"sqlite3", ":memory:"};
};

}  // namespace bench

#endif  // SQLDB_BENCH_SOCI_ITEMS_H
