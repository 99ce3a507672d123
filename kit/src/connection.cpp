#include "connection.h"

#include <algorithm>
#include <new>
#include <utility>

#include "compile.h"
#include "list_module.h"

namespace sqldb::kit::detail {

namespace {

// Finalizes a statement that is not kept.
struct Finalizer {
  ~Finalizer() { sqlite3_finalize(fStatement); }
  sqlite3_stmt* fStatement;
};

}  // namespace

Connection::Connection(boost::shared_ptr<SQLDatabase> core, std::size_t mostKept)
    : ConnectionWatcher(&End), fStatements(*this, mostKept), fCore(std::move(core)) {
  if (!fCore || !fCore->fIsOpen) ThrowNotOpen();
  OfferLists(fCore->fConnection);
  if (!ConnectionRecord::Of(*fCore).IsWatched()) SetFirstHooks(*fCore);
  ConnectionRecord::Of(*fCore).Join(*this);
  fIsWatching = true;
}

void Connection::ThrowNotOpen() { throw Error("The database is not open.", SQLITE_MISUSE); }

// Pauses of 1, 2, 4, ... 128 ms: shorter ones at first, since most locks are short.
int Connection::Wait(void* connection, int tries) {
  auto& self = *static_cast<Connection*>(connection);
  if (!self.fIsWorking) return 0;
  constexpr int kLongest = 7;
  if (tries == 0) self.fWaited = 0;
  const int pause = std::min(1 << std::min(tries, kLongest), self.fBusyTimeout - self.fWaited);
  if (pause <= 0) return 0;
  // An engine that can only sleep for whole seconds has waited for longer.
  self.fWaited += std::max(pause, sqlite3_sleep(pause));
  return 1;
}

void Connection::WaitFor(int busyTimeout) {
  fBusyTimeout = busyTimeout;
  sqlite3_busy_handler(Handle(), &Wait, this);
}

template <typename Take>
std::string_view Connection::RunFirst(std::string_view sql, Take take) {
  // Before it is compiled, which is when SQLite acts on most of them.
  CheckPragma(sql);
  const Working working(*this);
  std::string_view text = sql;
  const Finalizer finalizer{CompileFirst(Handle(), text)};
  sqlite3_stmt* const statement = finalizer.fStatement;
  // A semicolon or a comment.
  if (statement == nullptr) return sql.substr(text.size());
  if (sqlite3_stmt_readonly(statement) == 0) fLevels.BeforeWrite(Core());
  int step = sqlite3_step(statement);
  for (; step == SQLITE_ROW; step = sqlite3_step(statement)) take(statement);
  if (step != SQLITE_DONE) ThrowStepError(Handle(), step, text);
  return sql.substr(text.size());
}

void Connection::CheckPragma(std::string_view sql) const {
  const Pragma pragma = PragmaOf(sql);
  if (fBusyTimeout != 0 && pragma.IsNamed("busy_timeout")) {
    throw Error("How long a busy file is waited for is said by Options::busyTimeout; this would end the waiting.",
                SQLITE_MISUSE, sql);
  }
  if (pragma.IsNamed("encoding") && pragma.value.find("16") != std::string_view::npos) {
    throw Error("Only UTF-8 can keep the bytes of every text.", SQLITE_MISUSE, sql);
  }
}

void Connection::ThrowStepError(sqlite3* handle, int result, std::string_view sql) const {
  // The refusal of the commit hook, by which SQLite has rolled back.
  const bool isRefused = sqlite3_extended_errcode(handle) == SQLITE_CONSTRAINT_COMMITHOOK;
  if (isRefused && fCore->fTransactionDepth > 0) ThrowRolledBack();
  ThrowError(handle, result, sql);
}

KeptStatement& Connection::Compile(std::string_view sql) {
  CheckPragma(sql);
  const Working working(*this);
  return fStatements.Compile(Handle(), StatementKey{sql}, std::string(sql));
}

void Connection::RunScript(std::string_view sql) {
  CheckSize(sql);
  const std::string whole(sql);
  std::string_view rest = whole;
  while (!IsEmptySql(rest)) rest = RunFirst(rest, [](sqlite3_stmt*) {});
}

std::string Connection::Ask(std::string_view sql) {
  std::string answer;
  const std::string whole(sql);
  RunFirst(whole, [&answer](sqlite3_stmt* statement) {
    const unsigned char* const text = sqlite3_column_text(statement, 0);
    if (text == nullptr) throw std::bad_alloc();
    answer = reinterpret_cast<const char*>(text);
  });
  return answer;
}

void Connection::LetGo() noexcept {
  fIsWatching = false;
  fLevels.End(*fCore);
  fStatements.LetGo();
  if (fBusyTimeout != 0) sqlite3_busy_handler(fCore->fConnection, nullptr, nullptr);
  if (!ConnectionRecord::Of(*fCore).IsWatched()) RemoveHooks(*fCore);
}

void Connection::End(ConnectionWatcher& self) noexcept {
  auto& connection = static_cast<Connection&>(self);
  connection.LetGo();
  // Whoever destroys it was never kept from that by the pointer.
  if (connection.fCore->fDestroying) connection.fCore.reset();
}

void Connection::Close() noexcept {
  if (fIsWatching) {
    ConnectionRecord::Of(*fCore).Leave(*this);
    LetGo();
  }
  fCore.reset();
}

ConnectionPointer::ConnectionPointer(Connection* connection) noexcept : fConnection(connection) {
  if (fConnection != nullptr) fConnection->AddUser();
}

ConnectionPointer::~ConnectionPointer() {
  if (fConnection != nullptr) fConnection->RemoveUser();
}

}  // namespace sqldb::kit::detail
