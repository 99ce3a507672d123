#include "connection.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace sqldb::kit::detail {

namespace {

// FNV-1a, over eight bytes at a time: texts of statements differ somewhere, and are compared as well.
std::uint64_t Hash(std::string_view text) {
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::uint64_t hash = 0xCBF29CE484222325 ^ text.size();
  const char* position = text.data();
  std::size_t left = text.size();
  for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t), position += sizeof(std::uint64_t)) {
    std::uint64_t block;
    std::memcpy(&block, position, sizeof block);
    hash = (hash ^ block) * kPrime;
    hash ^= hash >> 29;
  }
  std::uint64_t rest = 0;
  if (left > 0) std::memcpy(&rest, position, left);
  hash = (hash ^ rest) * kPrime;
  return hash ^ (hash >> 32);
}

// Blanks and comments, which may stand behind a statement.
bool IsEmptySql(std::string_view sql) {
  while (!sql.empty()) {
    if (sql[0] == ' ' || sql[0] == '\t' || sql[0] == '\n' || sql[0] == '\r' || sql[0] == '\f' || sql[0] == ';') {
      sql.remove_prefix(1);
    } else if (sql.substr(0, 2) == "--") {
      sql.remove_prefix(std::min(sql.find('\n'), sql.size()));
    } else if (sql.substr(0, 2) == "/*") {
      const std::size_t end = sql.find("*/", 2);
      sql.remove_prefix(end == std::string_view::npos ? sql.size() : end + 2);
    } else {
      return false;
    }
  }
  return true;
}

sqlite3_stmt* Compile(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  const auto size = static_cast<int>(sql.size());
#ifdef SQLITE_PREPARE_PERSISTENT
  const int result = sqlite3_prepare_v3(connection, sql.data(), size, SQLITE_PREPARE_PERSISTENT, &statement, &tail);
#else
  const int result = sqlite3_prepare_v2(connection, sql.data(), size, &statement, &tail);
#endif
  if (result != SQLITE_OK) ThrowError(connection, result, sql);
  if (statement == nullptr) throw Error("There is no statement in the text.", SQLITE_MISUSE, sql);
  if (!IsEmptySql(sql.substr(static_cast<std::size_t>(tail - sql.data())))) {
    sqlite3_finalize(statement);
    throw Error("There are several statements in the text; ExecuteScript runs them all.", SQLITE_MISUSE, sql);
  }
  return statement;
}

// Finalizes a statement that is not kept.
struct Finalizer {
  ~Finalizer() { sqlite3_finalize(fStatement); }
  sqlite3_stmt* fStatement;
};

}  // namespace

void ThrowError(sqlite3* connection, int code, std::string_view sql) {
  const int extended = sqlite3_extended_errcode(connection);
  if ((extended & 0xFF) == (code & 0xFF)) code = extended;
  const char* const message = sqlite3_errmsg(connection);
  switch (code & 0xFF) {
    case SQLITE_NOMEM:
      throw std::bad_alloc();
    case SQLITE_CONSTRAINT:
      throw ConstraintError(message, code, sql);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw BusyError(message, code, sql);
    default:
      throw Error(message, code, sql);
  }
}

KeptStatement* StatementStore::Find(std::uint64_t hash, std::string_view sql) {
  for (KeptStatement* kept = Bucket(hash); kept != nullptr; kept = kept->nextOfBucket) {
    if (kept->hash == hash && kept->sql == sql) return kept;
  }
  return nullptr;
}

KeptStatement& StatementStore::Take(sqlite3* connection, std::string_view sql) {
  const std::uint64_t hash = Hash(sql);
  KeptStatement* const found = Find(hash, sql);
  if (found != nullptr && !found->isLent) {
    found->isLent = true;
    return *found;
  }
  Spread();
  auto made = std::make_unique<KeptStatement>();
  made->hash = hash;
  made->sql = sql;
  made->statement = Compile(connection, made->sql);
  made->parameterCount = sqlite3_bind_parameter_count(made->statement);
  made->columnCount = sqlite3_column_count(made->statement);
  made->isWriting = sqlite3_stmt_readonly(made->statement) == 0;
  made->isLent = true;
  made->isFound = found == nullptr;
  Enter(*made);
  return *made.release();
}

void StatementStore::Enter(KeptStatement& kept) noexcept {
  if (kept.isFound) {
    kept.nextOfBucket = Bucket(kept.hash);
    Bucket(kept.hash) = &kept;
  }
  Link(kept);
  ++fCount;
}

void StatementStore::Link(KeptStatement& kept) noexcept {
  kept.newer = nullptr;
  kept.older = fNewest;
  (fNewest != nullptr ? fNewest->newer : fOldest) = &kept;
  fNewest = &kept;
}

void StatementStore::Unlink(KeptStatement& kept) noexcept {
  (kept.newer != nullptr ? kept.newer->older : fNewest) = kept.older;
  (kept.older != nullptr ? kept.older->newer : fOldest) = kept.newer;
}

void StatementStore::Leave(KeptStatement& kept) noexcept {
  if (kept.isFound) {
    KeptStatement** link = &Bucket(kept.hash);
    while (*link != &kept) link = &(*link)->nextOfBucket;
    *link = kept.nextOfBucket;
  }
  Unlink(kept);
  --fCount;
}

void StatementStore::GiveBack(KeptStatement& kept) noexcept {
  if (kept.statement == nullptr) {
    delete &kept;
    return;
  }
  sqlite3_reset(kept.statement);
  kept.isLent = false;
  if (&kept != fNewest) {
    Unlink(kept);
    Link(kept);
  }
  if (kept.isFound && fCount <= fMost) return;
  KeptStatement* victim = &kept;
  if (kept.isFound) {
    // One that is lent goes when it comes back.
    victim = fOldest;
    while (victim->isLent) victim = victim->newer;
  }
  Leave(*victim);
  sqlite3_finalize(victim->statement);
  delete victim;
}

void StatementStore::LetGo() noexcept {
  while (fNewest != nullptr) {
    KeptStatement& kept = *fNewest;
    Leave(kept);
    sqlite3_finalize(std::exchange(kept.statement, nullptr));
    if (!kept.isLent) delete &kept;
  }
}

// So that a bucket has about one statement.
void StatementStore::Spread() {
  if (fCount < fBuckets.size()) return;
  std::vector<KeptStatement*> larger(2 * fBuckets.size());
  fBuckets.swap(larger);
  for (KeptStatement* kept = fOldest; kept != nullptr; kept = kept->newer) {
    if (!kept->isFound) continue;
    kept->nextOfBucket = Bucket(kept->hash);
    Bucket(kept->hash) = kept;
  }
}

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
  if (!self.fIsStepping) return 0;
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
  while (!IsEmptySql(sql)) {
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int result = sqlite3_prepare_v2(Handle(), sql.data(), static_cast<int>(sql.size()), &statement, &tail);
    if (result != SQLITE_OK) ThrowError(Handle(), result, sql);
    const std::string_view text = sql.substr(0, static_cast<std::size_t>(tail - sql.data()));
    sql.remove_prefix(text.size());
    int step = SQLITE_ROW;
    fIsStepping = true;
    while (step == SQLITE_ROW) step = sqlite3_step(statement);
    fIsStepping = false;
    const Finalizer finalizer{statement};
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
