#ifndef SQLDB_KIT_LEFTOVERS_H
#define SQLDB_KIT_LEFTOVERS_H

// For programs that call the core: what SQLite has to say about a failure, and what a failed query leaves behind. What
// goes through the kit needs neither.
//
//   try {
//     Run(core, [&] { insert->PerformInsert(true); });
//   } catch (const ConstraintError& error) {
//     Show(error.Message());  // UNIQUE constraint failed: t.a
//   }

#include <cstdint>
#include <optional>

#include "sqldb/export.h"
#include "sqldb/kit/error.h"

namespace sqldb {

class SQLDatabase;

namespace kit {

namespace detail {

/// From which on the statements that are left behind are those of a Run.
SQLDB_EXPORT std::uint64_t NextLeftover(const SQLDatabase& database) noexcept;
/// Ends a Run whose action threw.
/// REQUIRES: an exception is being handled.
[[noreturn]] SQLDB_EXPORT void ReleaseAndRethrow(SQLDatabase& database, std::uint64_t first);

}  // namespace detail

/// Finalizes the statements that failed queries of the core left behind, all that SQLDatabase::SendQuery and
/// ExplainQuery compiled and nothing else: those of live cursors, of the kit, of the program and of SQLite's modules
/// stay. Left alone, a write that found the file busy keeps the connection from ever committing or closing; finalizing
/// it undoes what was written outside a transaction since. Returns what SQLite reports about the latest whose step had
/// failed; nothing if there is none.
///
/// Takes as long as there are such statements, however many others there are. Throws std::bad_alloc, if there is no
/// memory for what it returns; all are finalized then.
/// REQUIRES: the program has finalized none of them itself.
SQLDB_EXPORT std::optional<Error> ReleaseLeftovers(SQLDatabase& database);

/// Calls `action` and returns what it returns. If it throws, the statements that it left behind are finalized at once
/// as ReleaseLeftovers does it, and what the core reports as std::runtime_error is thrown as Error instead, with
/// SQLite's most telling words, which exist only once the failed statement is finalized, and with its result codes; as
/// ConstraintError or BusyError where it is one. A failure that is not SQLite's has the code SQLITE_ERROR. Anything
/// else passes unchanged, classes derived from std::runtime_error included.
///
/// What was left behind before stays. Calls may be nested. A failure of the core that `action` catches itself leaves
/// behind what SQLDatabase::SendQuery says, unless it came out of a Run of its own.
/// REQUIRES: the database outlives the call, and the program finalizes none of the statements left behind itself.
template <typename Action>
auto Run(SQLDatabase& database, Action&& action) -> decltype(action()) {
  const std::uint64_t first = detail::NextLeftover(database);
  try {
    return action();
  } catch (...) {
    detail::ReleaseAndRethrow(database, first);
  }
}

}  // namespace kit

}  // namespace sqldb

#endif  // SQLDB_KIT_LEFTOVERS_H
