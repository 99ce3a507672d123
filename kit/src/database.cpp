#include "sqldb/kit/database.h"

#include <utility>

#include <boost/make_shared.hpp>

#include "connection.h"

namespace sqldb::kit {

namespace {

int FlagsOf(const Options& options) {
  // One thread at a time uses a connection, so SQLite need not lock it.
  int flags = SQLITE_OPEN_NOMUTEX;
  switch (options.access) {
    case Access::kCreate:
    case Access::kReadWriteCreate:
      flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
      break;
    case Access::kReadWrite:
      flags |= SQLITE_OPEN_READWRITE;
      break;
    case Access::kReadOnly:
      flags |= SQLITE_OPEN_READONLY;
      break;
  }
  if (options.isUri) flags |= SQLITE_OPEN_URI;
  return flags;
}

// Opened, but not yet set up.
boost::shared_ptr<SQLDatabase> Open(const std::string& path, const Options& options) {
  auto core = boost::make_shared<SQLDatabase>(path, options.access == Access::kReadOnly);
  sqlite3* connection = nullptr;
  const int result =
      sqlite3_open_v2(path.c_str(), &connection, FlagsOf(options), options.vfs.empty() ? nullptr : options.vfs.c_str());
  if (result != SQLITE_OK) {
    const int code = connection != nullptr ? sqlite3_extended_errcode(connection) : result;
    const std::string why = connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(result);
    sqlite3_close(connection);
    throw Error("'" + path + "' cannot be opened: " + why, code);
  }
  core->fConnection = connection;
  core->fIsOpen = true;
  return core;
}

}  // namespace

Database::Database(const std::string& path, const Options& options)
    : fConnection(new detail::Connection(Open(path, options), options.keptStatements)) {
  detail::Connection& connection = *fConnection;
  sqlite3* const handle = connection.Handle();
  sqlite3_extended_result_codes(handle, 1);
  connection.WaitFor(options.busyTimeout);
  Execute(options.foreignKeys ? "PRAGMA foreign_keys = ON" : "PRAGMA foreign_keys = OFF");
  if (options.wal) Execute("PRAGMA journal_mode = WAL");
}

Database::Database(boost::shared_ptr<SQLDatabase> core)
    : fConnection(new detail::Connection(std::move(core), Options().keptStatements)) {
  fConnection->Handle();
}

Database::~Database() { Close(); }

Database& Database::operator=(Database&& other) noexcept {
  if (this != &other) {
    Close();
    fConnection = std::move(other.fConnection);
  }
  return *this;
}

SQLDatabase& Database::Core() const { return Connection()->Core(); }

void Database::Close() noexcept {
  if (fConnection.Get() != nullptr) fConnection->Close();
}

const detail::ConnectionPointer& Database::Connection() const {
  if (fConnection.Get() == nullptr) throw Error("The database has been moved.", SQLITE_MISUSE);
  return fConnection;
}

void Database::ExecuteScript(std::string_view sql) { Connection()->RunScript(sql); }

Statement Database::Prepare(std::string_view sql) {
  Connection();
  return Statement(detail::Lease(fConnection, sql));
}

detail::Lease Database::Begin(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                              detail::Values values) {
  Connection();
  detail::Lease lease(fConnection, sql);
  lease.Bind(arguments, count, values);
  return lease;
}

detail::RowReader Database::Reader(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                                   const detail::RowShape& shape) {
  return detail::RowReader(Begin(sql, arguments, count, detail::Values::kLasting), shape, detail::ColumnOrder::kByName);
}

std::int64_t Database::Run(std::string_view sql, const detail::Argument* arguments, std::size_t count) {
  return Begin(sql, arguments, count, detail::Values::kLasting).Finish();
}

}  // namespace sqldb::kit
