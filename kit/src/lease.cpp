#include "sqldb/kit/lease.h"

#include <cstring>
#include <string>

#include "binding.h"
#include "compile.h"
#include "connection.h"
#include "step.h"

namespace sqldb::kit::detail {

namespace {

std::string Plural(std::size_t number, const char* noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

[[noreturn]] void ThrowMisuse(const std::string& message, const KeptStatement& kept) {
  throw Error(message, SQLITE_MISUSE, kept.Sql());
}

// The place of the parameter that an argument names; all of them are then named.
int PlaceOf(const KeptStatement& kept, const Argument* arguments, std::size_t index) {
  const char* const name = arguments[index].name;
  for (std::size_t i = 0; i < index; ++i) {
    if (std::strcmp(arguments[i].name, name) == 0)
      ThrowMisuse("The parameter " + std::string(name) + " is given twice.", kept);
  }
  const int place = sqlite3_bind_parameter_index(kept.statement, name);
  if (place == 0) ThrowMisuse("The statement has no parameter " + std::string(name) + ".", kept);
  return place;
}

// In 64 bits where the engine has them: more than 2^31 rows may be changed while a program runs.
std::int64_t Changes(sqlite3* connection) {
#if SQLITE_VERSION_NUMBER >= 3037000
  return sqlite3_changes64(connection);
#else
  return sqlite3_changes(connection);
#endif
}

std::int64_t TotalChanges(sqlite3* connection) {
#if SQLITE_VERSION_NUMBER >= 3037000
  return sqlite3_total_changes64(connection);
#else
  return sqlite3_total_changes(connection);
#endif
}

}  // namespace

void BindNothing(const Target& target, const void*) { BindNull(target); }

void BindView(const Target& target, const void* value) {
  BindText(target, *static_cast<const std::string_view*>(value));
}

void BindCharacters(const Target& target, const void* value) {
  if (value == nullptr) throw Error("A text is a null pointer; std::nullopt stands for NULL.", SQLITE_MISUSE);
  BindText(target, static_cast<const char*>(value));
}

Lease::Lease(const Lease& other) noexcept : fKept(other.fKept) {
  if (fKept != nullptr) ++fKept->users;
}

void Lease::GiveBack() const noexcept { StatementStore::GiveBack(*fKept); }

sqlite3_stmt* Lease::Statement() const {
  if (fKept->statement == nullptr) ThrowLetGo(*fKept);
  return fKept->statement;
}

bool Lease::IsWriting() const noexcept { return fKept->isWriting; }

Hold::Hold(const Lease& lease) noexcept : fKept(&lease.Kept()) { ++fKept->holders; }

void Hold::End() const noexcept { --fKept->holders; }

void BindByAddress(sqlite3_stmt* statement, int parameter, const Argument& argument, Values lifetime) {
  argument.bind(Target{statement, parameter, lifetime == Values::kLasting}, argument.value);
}

void ThrowOtherCount(const KeptStatement& kept, std::size_t count) {
  ThrowMisuse("The statement has " + Plural(static_cast<std::size_t>(kept.parameterCount), "parameter") +
                  ", and is given " + Plural(count, "value") + ".",
              kept);
}

void BindNamed(const KeptStatement& kept, const Argument* arguments, std::size_t count, Values lifetime) {
  for (std::size_t i = 0; i < count; ++i) {
    BindArgument(kept.statement, PlaceOf(kept, arguments, i), arguments[i], lifetime);
  }
}

bool Lease::Step() { return StepOnce(*fKept); }

std::int64_t Lease::Finish() {
  sqlite3* const connection = sqlite3_db_handle(Statement());
  const std::int64_t before = TotalChanges(connection);
  while (Step()) {
  }
  // Not what an earlier statement has changed, which is what a CREATE would tell, nor what a function called by a
  // SELECT has.
  const std::int64_t changes = !IsWriting() || TotalChanges(connection) == before ? 0 : Changes(connection);
  fKept->Reset();
  return changes;
}

}  // namespace sqldb::kit::detail
