#ifndef SQLDB_KIT_FAILURE_H
#define SQLDB_KIT_FAILURE_H

// What SQLite has to say about a failure, and what a failed query leaves behind.
//
//   try {
//     sqldb::kit::Run(database, [&] { insert->PerformInsert(true); });
//   } catch (const sqldb::kit::Error& error) {
//     if (error.ExtendedCode() != SQLITE_CONSTRAINT_UNIQUE) throw;  // what() is "UNIQUE constraint failed: t.a"
//   }

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <sqlite3.h>

#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/export.h"
#include "sqldb/kit/requirements.h"

namespace sqldb::kit {

/// A failure in SQLite's most telling words, which exist only once the failed statement is finalized, and with its
/// result codes.
class SQLDB_EXPORT Error : public std::runtime_error {
 public:
  /// `code` is a primary or an extended result code.
  Error(const std::string& message, int code) : std::runtime_error(message), fExtendedCode(code) {}

  /// The primary result code, such as SQLITE_CONSTRAINT. SQLITE_ERROR, too, for a failure that is not SQLite's.
  int Code() const noexcept { return fExtendedCode & 0xFF; }

  /// The extended result code, such as SQLITE_CONSTRAINT_UNIQUE; the primary one if SQLite has no other.
  int ExtendedCode() const noexcept { return fExtendedCode; }

 private:
  int fExtendedCode;
};

namespace detail {

using Statements = std::vector<sqlite3_stmt*>;

inline void Sort(Statements& statements) { std::sort(statements.begin(), statements.end(), std::less<>()); }

/// REQUIRES: `sorted` is.
inline bool Contains(const Statements& sorted, sqlite3_stmt* statement) {
  return std::binary_search(sorted.begin(), sorted.end(), statement, std::less<>());
}

inline Statements HeldByCursors(const SQLDatabase& database) {
  Statements held;
  for (const SQLCursorBase* const cursor : database.fCursors) {
    const auto* const stepping = dynamic_cast<const SQLStepCursorBase*>(cursor);
    if (stepping != nullptr && !stepping->fFinalized) held.push_back(stepping->fStatement);
  }
  Sort(held);
  return held;
}

/// Null unless the database is open: its own pointer is stale after a Close.
inline sqlite3* ConnectionOf(const SQLDatabase& database) { return database.fIsOpen ? database.fConnection : nullptr; }

/// The statements of the connection that no live cursor holds, the latest first. Not those of cursors, which may be
/// finalized meanwhile, and their addresses used again.
inline Statements Unheld(const SQLDatabase& database) {
  Statements unheld;
  sqlite3* const connection = ConnectionOf(database);
  if (connection == nullptr) return unheld;
  sqlite3_stmt* statement = sqlite3_next_stmt(connection, nullptr);
  // So that it costs one call where there is nothing.
  if (statement == nullptr) return unheld;
  const Statements held = HeldByCursors(database);
  for (; statement != nullptr; statement = sqlite3_next_stmt(connection, statement)) {
    if (!Contains(held, statement)) unheld.push_back(statement);
  }
  return unheld;
}

inline bool IsAlive(sqlite3* connection, sqlite3_stmt* wanted) {
  sqlite3_stmt* statement = sqlite3_next_stmt(connection, nullptr);
  while (statement != nullptr && statement != wanted) statement = sqlite3_next_stmt(connection, statement);
  return statement != nullptr;
}

/// As the modules of SQLite write it, full-text search for instance: 'main'.'notes_content'.
inline bool NamesSchemaInQuotes(std::string_view sql) {
  for (std::size_t end = sql.find("'."); end != std::string_view::npos; end = sql.find("'.", end + 1)) {
    const std::size_t begin = sql.find_last_of("' ,(|", end - 1);
    if (begin != std::string_view::npos && sql[begin] == '\'') return true;
  }
  return false;
}

/// As the values of an insert have it, ":12".
inline bool HasNamedParameter(sqlite3_stmt* statement) {
  const char* const name = sqlite3_bind_parameter_name(statement, 1);
  return name != nullptr && *name != '?';
}

/// What the connection reported last.
inline Error LastReport(const SQLDatabase& database) {
  sqlite3* const connection = ConnectionOf(database);
  return Error(sqlite3_errmsg(connection), sqlite3_extended_errcode(connection));
}

/// REQUIRES: `spared` is sorted.
inline std::optional<Error> Release(SQLDatabase& database, const Statements& spared) {
  std::optional<Error> latest;
  const Statements unheld = Unheld(database);
  // The earliest first: its end may be that of what a module compiled for it.
  for (auto entry = unheld.rbegin(); entry != unheld.rend(); ++entry) {
    sqlite3_stmt* const statement = *entry;
    if (Contains(spared, statement) || !IsAlive(database.fConnection, statement)) continue;
    // The one inside a blob handle has no text.
    const char* const sql = sqlite3_sql(statement);
    if (sql == nullptr) continue;
    // What a module keeps for itself is idle, or stands on a row while the statement runs that it serves.
    if (sqlite3_data_count(statement) > 0 && NamesSchemaInQuotes(sql)) continue;
    const bool isRunning = sqlite3_stmt_busy(statement) != 0;
    const bool hasFailed = sqlite3_reset(statement) != SQLITE_OK;
    if (hasFailed) latest = LastReport(database);
    // The last for those that were never run, since a value could not be bound.
    if (isRunning || hasFailed || HasNamedParameter(statement)) sqlite3_finalize(statement);
  }
  return latest;
}

/// `failure` as an Error, after the release of what it left behind.
inline Error Telling(SQLDatabase& database, const Statements& spared, const std::runtime_error& failure) {
  const std::string message = failure.what();
  // SQLite's text for most failed steps, as long as the statement is not finalized.
  const bool isVague = message == sqlite3_errstr(SQLITE_ERROR);
  // Before the release, which changes it. The statement of a cursor that the failure destroyed has been finalized, and
  // what that reported stands here.
  Error last = LastReport(database);
  const bool hasFailed = last.Code() != SQLITE_OK && last.Code() < SQLITE_ROW;
  const std::optional<Error> leftover = Release(database, spared);
  if (leftover && (isVague || message == leftover->what())) return *leftover;
  if (hasFailed && (isVague || message == last.what())) return last;
  // A rollback, for instance, has cleared the connection's code since.
  return Error(message, message == sqlite3_errstr(SQLITE_BUSY) ? SQLITE_BUSY : SQLITE_ERROR);
}

inline Statements SortedUnheld(const SQLDatabase& database) {
  Statements unheld = Unheld(database);
  Sort(unheld);
  return unheld;
}

/// Ends a Run whose action threw. Not in Run itself, of which a program has many.
/// REQUIRES: an exception is being handled.
[[noreturn]] inline void ReleaseAndRethrow(SQLDatabase& database, const Statements& before) {
  try {
    throw;
  } catch (const std::runtime_error& failure) {
    if (typeid(failure) == typeid(std::runtime_error)) throw Telling(database, before, failure);
    Release(database, before);
    throw;
  } catch (...) {
    Release(database, before);
    throw;
  }
}

}  // namespace detail

/// Finalizes the statements that failed queries left behind, and spares those that live step cursors hold. Left alone,
/// a write that found the file busy keeps the connection from ever committing or closing; finalizing it undoes what
/// was written outside a transaction since. Returns what SQLite reports about the latest statement that had failed;
/// nothing if none had. Does nothing on a database that is not open.
///
/// A statement that was never run, because its binding threw, is known by a parameter with a name, as in an insert of
/// bound values; another such one stays. So do blob handles and the statements that SQLite's modules keep for
/// themselves.
/// REQUIRES: the connection has no statements that the application compiled itself, and no query is running: neither
/// ProcessRow nor BindingOpportunity nor the callbacks of InsertMany call this.
inline std::optional<Error> ReleaseLeftovers(SQLDatabase& database) { return detail::Release(database, {}); }

/// Calls `action` and returns what it returns. If it throws, the statements that it left behind are finalized at once
/// as ReleaseLeftovers does it, and what the library reports as std::runtime_error is thrown as Error instead. Anything
/// else passes unchanged, classes derived from std::runtime_error included.
///
/// Statements that were there before stay. Calls may be nested.
/// REQUIRES: the database outlives the call. `action` finalizes no statement that the application compiled itself
/// before the call, and when it throws keeps none that it compiled itself. A failure of the library that it catches
/// itself leaves behind what SQLDatabase::SendQuery says, unless it came out of a Run of its own.
template <typename Action>
auto Run(SQLDatabase& database, Action action) -> decltype(action()) {
  const detail::Statements before = detail::SortedUnheld(database);
  try {
    return action();
  } catch (...) {
    detail::ReleaseAndRethrow(database, before);
  }
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_FAILURE_H
