#include "connection.h"

#include <algorithm>
#include <utility>

#include "compile.h"

namespace sqldb::kit::detail {

namespace {

// Finalizes a statement that is not kept.
struct Finalizer {
  ~Finalizer() { sqlite3_finalize(fStatement); }
  sqlite3_stmt* fStatement;
};

}  // namespace

Connection::Connection(boost::shared_ptr<SQLDatabase> core, std::size_t mostKept)
    : fStatements(mostKept), fCore(std::move(core)) {}

SQLDatabase& Connection::Core() const {
  if (!fCore || !fCore->fIsOpen) throw Error("The database is not open.", SQLITE_MISUSE);
  return *fCore;
}

sqlite3* Connection::Handle() const { return Core().fConnection; }

// Pauses of 1, 2, 4, ... 128 ms: shorter ones at first, since most locks are short.
int Connection::Wait(void* connection, int tries) {
  auto& self = *static_cast<Connection*>(connection);
  if (!self.fIsWorking) return 0;
  constexpr int kLongest = 7;
  const int waited = tries <= kLongest ? (1 << tries) - 1 : (1 << kLongest) * (tries - kLongest + 1) - 1;
  const int pause = std::min(1 << std::min(tries, kLongest), self.fBusyTimeout - waited);
  if (pause <= 0) return 0;
  sqlite3_sleep(pause);
  return 1;
}

void Connection::WaitFor(int busyTimeout) {
  fBusyTimeout = busyTimeout;
  sqlite3_busy_handler(Handle(), &Wait, this);
}

void Connection::RunScript(std::string_view sql) {
  const Working working(*this);
  while (!IsEmptySql(sql)) {
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int result = sqlite3_prepare_v2(Handle(), sql.data(), static_cast<int>(sql.size()), &statement, &tail);
    if (result != SQLITE_OK) ThrowError(Handle(), result, sql);
    const std::string_view text = sql.substr(0, static_cast<std::size_t>(tail - sql.data()));
    sql.remove_prefix(text.size());
    int step = SQLITE_ROW;
    const Finalizer finalizer{statement};
    while (step == SQLITE_ROW) step = sqlite3_step(statement);
    if (step != SQLITE_DONE) ThrowError(Handle(), step, text);
  }
}

void Connection::Close() noexcept {
  fStatements.LetGo();
  if (!fCore) return;
  if (fCore->fIsOpen && fBusyTimeout != 0) sqlite3_busy_handler(fCore->fConnection, nullptr, nullptr);
  if (fCore.use_count() == 1 && fCore->fIsOpen) fCore->Close();
  fCore.reset();
}

ConnectionPointer::ConnectionPointer(Connection* connection) noexcept : fConnection(connection) {
  if (fConnection != nullptr) ++fConnection->fUsers;
}

ConnectionPointer::~ConnectionPointer() {
  if (fConnection != nullptr && --fConnection->fUsers == 0) delete fConnection;
}

}  // namespace sqldb::kit::detail
