// The calls of SQLite that only the kit makes, on their way to the CallRecorder.

#include <string>

#include <sqlite3.h>

#include "support/allocations.h"
#include "support/call_recorder.h"
#include "support/interposer.h"

namespace {

using support::Call;
using support::Interposer;
using support::Silence;

enum class WhenForced { kIsNotForwarded, kIsForwarded };

// Notes a call that returns a result code, or answers it with a forced one.
template <typename Function, typename... Arguments>
int Note(Function* real, const char* function, WhenForced forced, const void* handle, Arguments... arguments) {
  const support::AllocationPause unseen;
  if (!Interposer::Listening()) return real(arguments...);
  Call call;
  call.function = function;
  call.handle = handle;
  int result = 0;
  const bool isForced = Interposer::TakeForced(function, result);
  if (!isForced || forced == WhenForced::kIsForwarded) {
    const Silence silent;
    call.result = real(arguments...);
  }
  if (isForced) call.result = result;
  Interposer::Record(call);
  return call.result;
}

}  // namespace

#define REAL(function) Interposer::Next<decltype(function)>(#function)

extern "C" {

int sqlite3_open_v2(const char* path, sqlite3** connection, int flags, const char* vfs) {
  static auto* const real = REAL(sqlite3_open_v2);
  if (Interposer::Listening()) *connection = nullptr;
  return Note(real, "open_v2", WhenForced::kIsNotForwarded, nullptr, path, connection, flags, vfs);
}

int sqlite3_prepare_v2(sqlite3* connection, const char* sql, int length, sqlite3_stmt** statement, const char** tail) {
  static auto* const real = REAL(sqlite3_prepare_v2);
  return Note(real, "prepare_v2", WhenForced::kIsNotForwarded, connection, connection, sql, length, statement, tail);
}

int sqlite3_prepare_v3(sqlite3* connection, const char* sql, int length, unsigned flags, sqlite3_stmt** statement,
                       const char** tail) {
  static auto* const real = REAL(sqlite3_prepare_v3);
  return Note(real, "prepare_v3", WhenForced::kIsNotForwarded, connection, connection, sql, length, flags, statement,
              tail);
}

// It resets also if it returns what the statement failed with.
int sqlite3_reset(sqlite3_stmt* statement) {
  static auto* const real = REAL(sqlite3_reset);
  return Note(real, "reset", WhenForced::kIsForwarded, statement, statement);
}

// Numbers and NULL need no memory: SQLite refuses them only to who binds what is not there, or while it runs.
int sqlite3_bind_int64(sqlite3_stmt* statement, int number, sqlite3_int64 value) {
  static auto* const real = REAL(sqlite3_bind_int64);
  return Note(real, "bind_number", WhenForced::kIsNotForwarded, statement, statement, number, value);
}

int sqlite3_bind_double(sqlite3_stmt* statement, int number, double value) {
  static auto* const real = REAL(sqlite3_bind_double);
  return Note(real, "bind_number", WhenForced::kIsNotForwarded, statement, statement, number, value);
}

int sqlite3_bind_null(sqlite3_stmt* statement, int number) {
  static auto* const real = REAL(sqlite3_bind_null);
  return Note(real, "bind_number", WhenForced::kIsNotForwarded, statement, statement, number);
}

int sqlite3_bind_text64(sqlite3_stmt* statement, int number, const char* text, sqlite3_uint64 size,
                        void (*destructor)(void*), unsigned char encoding) {
  static auto* const real = REAL(sqlite3_bind_text64);
  return Note(real, "bind", WhenForced::kIsNotForwarded, statement, statement, number, text, size, destructor,
              encoding);
}

int sqlite3_bind_blob64(sqlite3_stmt* statement, int number, const void* bytes, sqlite3_uint64 size,
                        void (*destructor)(void*)) {
  static auto* const real = REAL(sqlite3_bind_blob64);
  return Note(real, "bind", WhenForced::kIsNotForwarded, statement, statement, number, bytes, size, destructor);
}

// It takes the value also if it fails.
int sqlite3_bind_pointer(sqlite3_stmt* statement, int number, void* value, const char* type,
                         void (*destructor)(void*)) {
  static auto* const real = REAL(sqlite3_bind_pointer);
  return Note(real, "bind", WhenForced::kIsForwarded, statement, statement, number, value, type, destructor);
}

int sqlite3_create_module_v2(sqlite3* connection, const char* name, const sqlite3_module* module, void* data,
                             void (*destructor)(void*)) {
  static auto* const real = REAL(sqlite3_create_module_v2);
  return Note(real, "create_module", WhenForced::kIsNotForwarded, connection, connection, name, module, data,
              destructor);
}

}  // extern "C"
