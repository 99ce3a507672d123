#include "step.h"

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

void ThrowLetGo(const KeptStatement& kept) { throw Error("The database has been closed.", SQLITE_MISUSE, kept.Sql()); }

void ThrowFailedStep(KeptStatement& kept, int result) {
  // The message first, which the reset may change.
  try {
    kept.connection->ThrowStepError(sqlite3_db_handle(kept.statement), result, kept.Sql());
  } catch (...) {
    kept.Reset();
    throw;
  }
}

}  // namespace sqldb::kit::detail
