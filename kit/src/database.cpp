#include "sqldb/kit/database.h"

#include <utility>

#include "binding.h"
#include "connection.h"
#include "opening.h"

namespace sqldb::kit {

Database::Database(const std::string& path, const Options& options)
    : fConnection(new detail::Connection(detail::OpenFile(path, options), options.keptStatements)) {
  detail::SetUp(*fConnection, path, options);
}

Database::Database(boost::shared_ptr<SQLDatabase> core)
    : fConnection(new detail::Connection(std::move(core), Options().keptStatements)) {
  detail::CheckEncoding(*fConnection);
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

void Database::ThrowMoved() { throw Error("The database has been moved.", SQLITE_MISUSE); }

void Database::ExecuteScript(std::string_view sql) { Connection()->RunScript(sql); }

Statement Database::Prepare(std::string_view sql) {
  detail::Connection& connection = *Connection();
  connection.CheckPragma(sql);
  const detail::Working working(connection);
  // Not to be found by its text: while it is held, each other use of that would be compiled anew.
  return Statement(detail::Lease(connection.fStatements.CompileOnce(connection.Handle(), std::string(sql))));
}

detail::RowReader Database::Reader(std::string_view sql, const detail::Argument* arguments, std::size_t count,
                                   const detail::RowShape& shape, detail::Values values) {
  detail::Lease lease(Connection()->Lend(sql));
  detail::BindAll(lease.Kept(), arguments, count, values);
  return detail::RowReader(std::move(lease), shape);
}

std::int64_t Database::Run(std::string_view sql, const detail::Argument* arguments, std::size_t count) {
  detail::Lease lease(Connection()->Lend(sql));
  detail::BindAll(lease.Kept(), arguments, count, detail::Values::kLasting);
  return lease.Finish();
}

}  // namespace sqldb::kit
