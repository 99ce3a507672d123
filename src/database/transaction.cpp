#include "sqldb/database.h"

#include <string>

#include "wrapping.h"

namespace sqldb {

void SQLDatabase::BeginTransaction() {
  if (fTransactionDepth == 0) SendQuery("BEGIN TRANSACTION", nullptr, nullptr);
  fTransactionDepth = WrappingAdd(fTransactionDepth, 1);
}

void SQLDatabase::EndTransaction(bool commit, bool endAll) {
  if (!commit) fTransactionOK = false;
  fTransactionDepth = endAll ? 0 : WrappingAdd(fTransactionDepth, -1);
  if (fTransactionDepth != 0) return;
  if (fTransactionOK) {
    SendQuery("COMMIT TRANSACTION", nullptr, nullptr);
  } else {
    SendQuery("ROLLBACK TRANSACTION", nullptr, nullptr);
    // Only now: after a failed rollback the veto stands.
    fTransactionOK = true;
  }
}

void SQLDatabase::SetSynchronizationLevel(bool sync) {
  SendQuery(std::string("PRAGMA synchronous = ") + (sync ? "NORMAL" : "OFF"), nullptr, nullptr);
}

}  // namespace sqldb
