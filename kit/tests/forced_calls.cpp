// The calls of SQLite that the kit makes and the library does not, with the results that a CallRecorder forces: see
// support/call_recorder.h. A pause is noted and takes no time while a recorder lives; of the others nothing is noted.
// Opening is in support/elsewhere.cpp.

#include <cstring>

#include <sqlite3.h>

#include "support/allocations.h"
#include "support/interposer.h"

using support::Interposer;
using support::Silence;

namespace {

// True, and the result in `result`, if this call of `function` is to be forced.
bool IsForced(const char* function, int& result) {
  return Interposer::Listening() && Interposer::TakeForced(function, result);
}

}  // namespace

#define REAL(function) support::Interposer::Next<decltype(function)>(#function)

extern "C" {

// What the forced result is, is the version.
int sqlite3_libversion_number() {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_libversion_number);
  int version = 0;
  return IsForced("libversion_number", version) ? version : real();
}

// Forced for this one text only, to SQLITE_OK as by an engine that encrypts.
int sqlite3_exec(sqlite3* connection, const char* sql, int (*take)(void*, int, char**, char**), void* user,
                 char** message) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_exec);
  int result = SQLITE_OK;
  if (std::strcmp(sql, "PRAGMA cipher_version") == 0 && IsForced("exec", result)) {
    if (result == SQLITE_OK) take(user, 0, nullptr, nullptr);
    return result;
  }
  const Silence silent;
  return real(connection, sql, take, user, message);
}

// Null if it is forced.
const char* sqlite3_db_filename(sqlite3* connection, const char* name) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_db_filename);
  int result = SQLITE_OK;
  return IsForced("db_filename", result) ? nullptr : real(connection, name);
}

// Without a message if it is forced.
int sqlite3_load_extension(sqlite3* connection, const char* file, const char* entry, char** message) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_load_extension);
  int result = SQLITE_OK;
  return IsForced("load_extension", result) ? result : real(connection, file, entry, message);
}

int sqlite3_create_module_v2(sqlite3* connection, const char* name, const sqlite3_module* module, void* user,
                             void (*destroy)(void*)) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_create_module_v2);
  int result = SQLITE_OK;
  return IsForced("create_module_v2", result) ? result : real(connection, name, module, user, destroy);
}

int sqlite3_declare_vtab(sqlite3* connection, const char* sql) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_declare_vtab);
  int result = SQLITE_OK;
  return IsForced("declare_vtab", result) ? result : real(connection, sql);
}

#if SQLITE_VERSION_NUMBER >= 3020000
int sqlite3_bind_pointer(sqlite3_stmt* statement, int parameter, void* pointer, const char* type,
                         void (*destroy)(void*)) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_bind_pointer);
  int result = SQLITE_OK;
  if (!IsForced("bind_pointer", result)) return real(statement, parameter, pointer, type, destroy);
  destroy(pointer);
  return result;
}
#endif

int sqlite3_sleep(int milliseconds) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_sleep);
  if (!Interposer::Simulated()) return real(milliseconds);
  support::Call call;
  call.function = "sleep";
  call.result = milliseconds;
  Interposer::Record(call);
  // Also inside of SQLite's own calls, where nothing else is forced.
  int slept = milliseconds;
  Interposer::TakeForced("sleep", slept);
  return slept;
}

}  // extern "C"
