#include "sqldb/kit/query.h"

#include <string>

#include <sqlite3.h>

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

void CheckColumns(const Lease& lease, int wanted) {
  if (lease.ColumnCount() == wanted) return;
  throw Error("The statement yields " + std::to_string(lease.ColumnCount()) + " columns, and a row has " +
                  std::to_string(wanted) + ".",
              SQLITE_MISUSE, sqlite3_sql(lease.Statement()));
}

void ThrowNotOneRow(const Lease& lease, bool isThereOne) {
  throw Error(isThereOne ? "The query yields more than one row." : "The query yields no row.", SQLITE_MISUSE,
              sqlite3_sql(lease.Statement()));
}

}  // namespace sqldb::kit::detail
