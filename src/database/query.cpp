#include "sqldb/database.h"

#include <sqlite3.h>

#include "database/connection_record.h"

namespace sqldb {

QueryCallback::~QueryCallback() = default;

BindingCallback::~BindingCallback() = default;

void SQLDatabase::SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding) {
  sqlite3* const connection = Connection();
  const char* position = sql.c_str();
  const char* const end = position + sql.size();
  SentStatement sent(*this);
  bool more = true;
  while (more && position < end) {
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare(connection, position, -1, &statement, &tail) != SQLITE_OK) ThrowMessageOf(connection);
    sent.fStatement = statement;
    if (binding != nullptr) binding->BindingOpportunity(statement);

    int result = sqlite3_step(statement);
    while (callback != nullptr && result == SQLITE_ROW) {
      more = callback->ProcessRow(statement);
      if (!more) break;
      result = sqlite3_step(statement);
    }
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE) {
      sent.fHasFailed = true;
      ThrowMessageOf(connection);
    }

    sent.fStatement = nullptr;
    if (sqlite3_finalize(statement) != SQLITE_OK) ThrowMessageOf(connection);
    position = tail;
  }
}

}  // namespace sqldb
