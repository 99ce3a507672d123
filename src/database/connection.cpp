#include "sqldb/database.h"

#include <sqlite3.h>

#include <boost/make_shared.hpp>

#include "database/connection_record.h"
#include "database/spares.h"
#include "sqldb/table.h"  // complete, for its destructor

namespace sqldb {

SQLDatabase::SQLDatabase(const std::string& path, bool readOnly)
    : fPath(path),
      fReadOnly(readOnly),
      fSpares(boost::make_shared<Spares>()),
      fRecord(boost::make_shared<ConnectionRecord>()),
      fLifetime(boost::make_shared<bool>()) {}

SQLDatabase::~SQLDatabase() {
  // First of all: what the release of the tables destroys must leave the lists alone.
  fDestroying = true;
  if (fConnection != nullptr && fIsOpen) Close();
  fRecord->TellOfTheEnd();
  // What the tables release finds no database any more.
  fLifetime.reset();
  // By the vector's own destructor libc++ would release the last one first.
  for (boost::shared_ptr<SQLTableClass>& table : fTables) table.reset();
}

void SQLDatabase::Create() { CommonOpen(); }

void SQLDatabase::Open() { CommonOpen(); }

void SQLDatabase::CommonOpen() {
  sqlite3* connection = nullptr;
  const int result = sqlite3_open(fPath.c_str(), &connection);
  if (result != SQLITE_OK) ThrowError(result);
  fRecord->TellOfTheEnd();
  fRecord->fLeftovers.clear();
  fConnection = connection;
  fIsOpen = true;
  // SQLite may hand out the address of a closed connection again.
  if (connection == fClosedConnection) fClosedConnection = nullptr;
}

void SQLDatabase::Close() {
  fRecord->TellOfTheEnd();
  if (sqlite3_close(Connection()) == SQLITE_OK) {
    fClosedConnection = fConnection;
    // Whatever was left, the application has finalized.
    fRecord->fLeftovers.clear();
  }
  fIsOpen = false;
}

int SQLDatabase::AddCollation(const std::string& name, int (*compare)(void*, int, const void*, int, const void*)) {
  sqlite3* const connection = Connection();
  // SQLite would crash.
  if (connection == nullptr) return SQLITE_MISUSE;
  return sqlite3_create_collation(connection, name.c_str(), SQLITE_UTF8, nullptr, compare);
}

}  // namespace sqldb
