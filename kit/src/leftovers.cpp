#include "sqldb/kit/leftovers.h"

#include <string>
#include <typeinfo>

#include <sqlite3.h>

#include "compile.h"
#include "database/connection_record.h"
#include "levels.h"

namespace sqldb::kit {

namespace detail {

namespace {

// Takes the latest one off that has failed, so that it can be finalized last: what SQLite reports then is of that one.
sqlite3_stmt* TakeLatestFailure(std::vector<ConnectionRecord::Leftover>& all, std::uint64_t first) noexcept {
  for (auto entry = all.end(); entry != all.begin() && (--entry)->fNumber >= first;) {
    if (!entry->fHasFailed) continue;
    sqlite3_stmt* const statement = entry->fStatement;
    all.erase(entry);
    return statement;
  }
  return nullptr;
}

// Finalizes what was left behind from `first` on. Returns the connection that has a report of it, or null.
sqlite3* Release(const SQLDatabase& database, std::uint64_t first) noexcept {
  std::vector<ConnectionRecord::Leftover>& all = ConnectionRecord::Of(database).fLeftovers;
  sqlite3_stmt* const failed = TakeLatestFailure(all, first);
  while (!all.empty() && all.back().fNumber >= first) {
    sqlite3_stmt* const statement = all.back().fStatement;
    all.pop_back();
    sqlite3_finalize(statement);
  }
  sqlite3* const connection = sqlite3_db_handle(failed);
  return sqlite3_finalize(failed) == SQLITE_OK ? nullptr : connection;
}

// What is left behind is finalized however the telling ends.
class Releasing {
 public:
  Releasing(const SQLDatabase& database, std::uint64_t first) noexcept : fDatabase(database), fFirst(first) {}
  ~Releasing() { Release(fDatabase, fFirst); }
  Releasing(const Releasing&) = delete;
  Releasing& operator=(const Releasing&) = delete;

 private:
  const SQLDatabase& fDatabase;
  const std::uint64_t fFirst;
};

struct Report {
  explicit Report(sqlite3* connection)
      : message(sqlite3_errmsg(connection)), code(sqlite3_extended_errcode(connection)) {}
  bool IsFailure() const { return (code & 0xFF) != SQLITE_OK && (code & 0xFF) < SQLITE_ROW; }

  std::string message;
  int code;
};

[[noreturn]] void ThrowAs(const std::string& message, int code) {
  switch (code & 0xFF) {
    case SQLITE_CONSTRAINT:
      throw ConstraintError(message, code);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw BusyError(message, code);
    default:
      throw Error(message, code);
  }
}

[[noreturn]] void ThrowReport(const SQLDatabase& database, const Report& report) {
  // The commit hook's refusal, of which SQLite says nothing but that.
  if (report.code == SQLITE_CONSTRAINT_COMMITHOOK && database.fTransactionDepth > 0) ThrowRolledBack();
  ThrowAs(report.message, report.code);
}

// What the library's own failure comes to, after the release of what it left behind.
[[noreturn]] void ThrowTelling(const SQLDatabase& database, std::uint64_t first, const std::string& message) {
  sqlite3* const connection = database.fIsOpen ? database.fConnection : nullptr;
  // SQLite's text for most failed steps, as long as the statement is not finalized.
  const bool isVague = message == sqlite3_errstr(SQLITE_ERROR);
  // Before the release, which changes it. The statement of a cursor that the failure destroyed has been finalized, and
  // what that reported stands here.
  const Report last(connection);
  if (sqlite3* const telling = Release(database, first)) {
    const Report leftover(telling);
    if (isVague || message == leftover.message) ThrowReport(database, leftover);
  }
  if (connection == nullptr && message == last.message) throw Error("The database is not open.", SQLITE_MISUSE);
  if (last.IsFailure() && (isVague || message == last.message)) ThrowReport(database, last);
  // A rollback, for instance, has cleared the connection's code since.
  ThrowAs(message, message == sqlite3_errstr(SQLITE_BUSY) ? SQLITE_BUSY : SQLITE_ERROR);
}

}  // namespace

std::uint64_t NextLeftover(const SQLDatabase& database) noexcept { return ConnectionRecord::Of(database).fNextNumber; }

void ReleaseAndRethrow(SQLDatabase& database, std::uint64_t first) {
  const Releasing releasing(database, first);
  try {
    throw;
  } catch (const std::runtime_error& failure) {
    // What the core throws, and no class of somebody else's.
    if (typeid(failure) == typeid(std::runtime_error)) ThrowTelling(database, first, failure.what());
    throw;
  }
}

}  // namespace detail

std::optional<Error> ReleaseLeftovers(SQLDatabase& database) {
  sqlite3* const telling = detail::Release(database, 0);
  if (telling == nullptr) return std::nullopt;
  const detail::Report report(telling);
  return Error(report.message, report.code);
}

}  // namespace sqldb::kit
