#ifndef SQLDB_KIT_SRC_BINDING_H
#define SQLDB_KIT_SRC_BINDING_H

// From values to parameters, without a call where there need be none.

#include <cstdint>

#include <sqlite3.h>

#include "sqldb/kit/lease.h"
#include "statement_store.h"

namespace sqldb::kit::detail {

// Throws the Error of what could not be bound.
[[noreturn]] void ThrowNotBound(sqlite3_stmt* statement, int result);

inline void CheckBound(sqlite3_stmt* statement, int result) {
  if (result != SQLITE_OK) ThrowNotBound(statement, result);
}

// By the function that the argument has for it. Throws what that throws.
void BindByAddress(sqlite3_stmt* statement, int parameter, const Argument& argument, Values lifetime);

// The same, at once for integers, which most arguments are.
inline void BindArgument(sqlite3_stmt* statement, int parameter, const Argument& argument, Values lifetime) {
  if (argument.bind == &BindInt) {
    const int value = *static_cast<const int*>(argument.value);
    CheckBound(statement, sqlite3_bind_int64(statement, parameter, value));
  } else if (argument.bind == &BindInt64) {
    const auto value = *static_cast<const std::int64_t*>(argument.value);
    CheckBound(statement, sqlite3_bind_int64(statement, parameter, value));
  } else {
    BindByAddress(statement, parameter, argument, lifetime);
  }
}

// Parts of BindAll.
void BindNamed(const KeptStatement& kept, const Argument* arguments, std::size_t count, Values lifetime);
[[noreturn]] void ThrowOtherCount(const KeptStatement& kept, std::size_t count);

// Binds all parameters. Throws Error if there are too few or too many, or if a name is not that of a parameter or there
// twice. REQUIRES: the connection has not let go.
inline void BindAll(const KeptStatement& kept, const Argument* arguments, std::size_t count, Values lifetime) {
  if (count != static_cast<std::size_t>(kept.parameterCount)) ThrowOtherCount(kept, count);
  if (count == 0) return;
  if (arguments[0].name != nullptr) return BindNamed(kept, arguments, count, lifetime);
  int parameter = 0;
  for (const Argument* argument = arguments; argument != arguments + count; ++argument) {
    BindArgument(kept.statement, ++parameter, *argument, lifetime);
  }
}

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_BINDING_H
