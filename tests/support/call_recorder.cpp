#include "support/call_recorder.h"

#include <cstdlib>
#include <iostream>

#include <unistd.h>
#ifndef SQLDB_WRAPPED_CALLS
#include <dlfcn.h>
#endif

#include "support/allocations.h"
#include "support/interposer.h"

namespace support {

namespace {

CallRecorder* current = nullptr;
// Above 0 inside SQLite, inside fAfterCall, and while a Pause lives.
int silence = 0;

}  // namespace

Silence::Silence() { ++silence; }

Silence::~Silence() { --silence; }

#ifndef SQLDB_WRAPPED_CALLS
void* Interposer::NextSymbol(const char* name) {
  void* const symbol = dlsym(RTLD_NEXT, name);
  if (symbol == nullptr) {
    std::cerr << "no real " << name << "\n";
    std::abort();
  }
  return symbol;
}
#endif

std::string Call::Line() const {
  if (function == "errmsg" || function == "column_text") return function + (text.empty() ? "" : " " + text);
  if (function == "usleep" || function == "column_int" || function == "note") return function + " " + text;
  const std::string argument = text.empty() && function != "prepare" ? "" : " '" + text + "'";
  return function + argument + " = " + std::to_string(result);
}

CallRecorder::CallRecorder() {
  if (current != nullptr) std::abort();
  current = this;
}

CallRecorder::~CallRecorder() { current = nullptr; }

std::vector<std::string> CallRecorder::Lines() const {
  std::vector<std::string> lines;
  for (const Call& call : fCalls) lines.push_back(call.Line());
  return lines;
}

std::vector<Call> CallRecorder::CallsOf(const std::string& function) const {
  std::vector<Call> calls;
  for (const Call& call : fCalls) {
    if (call.function == function) calls.push_back(call);
  }
  return calls;
}

std::vector<std::string> CallRecorder::Sql() const {
  std::vector<std::string> texts;
  for (const Call& call : CallsOf("prepare")) texts.push_back(call.text);
  return texts;
}

void CallRecorder::Clear() {
  fCalls.clear();
  fForced.clear();
  fSlept = 0;
}

void CallRecorder::Note(const std::string& text) {
  Call call;
  call.function = "note";
  call.text = text;
  fCalls.push_back(call);
}

void CallRecorder::Force(const std::string& function, int result, int times, int skip) {
  fForced.push_back(Forced{function, result, times, skip});
}

CallRecorder::Pause::Pause() { ++silence; }

CallRecorder::Pause::~Pause() { --silence; }

bool Interposer::Listening() { return current != nullptr && silence == 0; }

bool Interposer::Simulated() { return current != nullptr; }

sqlite3* Interposer::ForcedConnection() { return current->fForcedConnection; }

const unsigned char* Interposer::ForcedText() { return reinterpret_cast<const unsigned char*>(current->fForcedText); }

void Interposer::Record(const Call& call) {
  current->fCalls.push_back(call);
  if (current->fAfterCall) {
    Silence silent;
    current->fAfterCall(call);
  }
}

void Interposer::Sleep(unsigned microseconds) {
  current->fSlept += microseconds;
  Call call;
  call.function = "usleep";
  call.text = std::to_string(microseconds);
  Record(call);
}

bool Interposer::TakeForced(const std::string& function, int& result) {
  for (CallRecorder::Forced& forced : current->fForced) {
    if (forced.function != function || forced.times == 0) continue;
    if (forced.skip > 0) {
      --forced.skip;
      return false;
    }
    --forced.times;
    result = forced.result;
    return true;
  }
  return false;
}

}  // namespace support

using support::Call;
using support::Interposer;
using support::Silence;

// OURS(f) is called in the place of REAL(f): found before it, or led there by the linker, see
// cmake/call_recorder.cmake.
#ifdef SQLDB_WRAPPED_CALLS
#define OURS(function) __wrap_##function
#define REAL(function) &__real_##function
#else
#define OURS(function) function
#define REAL(function) support::Interposer::Next<decltype(function)>(#function)
#endif
// SQLDB_OPENED_ELSEWHERE: sqlite3_open is in elsewhere.cpp, and is not noted.

extern "C" {

#ifdef SQLDB_WRAPPED_CALLS
decltype(sqlite3_open) __real_sqlite3_open;
decltype(sqlite3_close) __real_sqlite3_close;
decltype(sqlite3_errmsg) __real_sqlite3_errmsg;
decltype(sqlite3_prepare) __real_sqlite3_prepare;
decltype(sqlite3_step) __real_sqlite3_step;
decltype(sqlite3_finalize) __real_sqlite3_finalize;
decltype(sqlite3_column_int) __real_sqlite3_column_int;
decltype(sqlite3_column_text) __real_sqlite3_column_text;
decltype(sqlite3_create_collation) __real_sqlite3_create_collation;
decltype(usleep) __real_usleep;
#endif

#ifndef SQLDB_OPENED_ELSEWHERE
int OURS(sqlite3_open)(const char* path, sqlite3** connection) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_open);
  if (!Interposer::Listening()) return real(path, connection);
  Call call;
  call.function = "open";
  call.text = path;
  if (Interposer::TakeForced(call.function, call.result)) {
    *connection = Interposer::ForcedConnection();
  } else {
    Silence silent;
    call.result = real(path, connection);
  }
  call.out = *connection;
  Interposer::Record(call);
  return call.result;
}
#endif

int OURS(sqlite3_close)(sqlite3* connection) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_close);
  if (!Interposer::Listening()) return real(connection);
  Call call;
  call.function = "close";
  call.handle = connection;
  if (!Interposer::TakeForced(call.function, call.result)) {
    Silence silent;
    call.result = real(connection);
  }
  Interposer::Record(call);
  return call.result;
}

const char* OURS(sqlite3_errmsg)(sqlite3* connection) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_errmsg);
  if (!Interposer::Listening()) return real(connection);
  Call call;
  call.function = "errmsg";
  call.handle = connection;
  const char* message = nullptr;
  {
    Silence silent;
    message = real(connection);
  }
  call.out = message;
  Interposer::Record(call);
  return message;
}

int OURS(sqlite3_prepare)(sqlite3* connection, const char* sql, int length, sqlite3_stmt** statement,
                          const char** tail) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_prepare);
  if (!Interposer::Listening()) return real(connection, sql, length, statement, tail);
  Call call;
  call.function = "prepare";
  call.text = sql;
  call.handle = connection;
  call.number = length;
  if (Interposer::TakeForced(call.function, call.result)) {
    *statement = nullptr;
  } else {
    Silence silent;
    call.result = real(connection, sql, length, statement, tail);
  }
  call.out = *statement;
  Interposer::Record(call);
  return call.result;
}

int OURS(sqlite3_step)(sqlite3_stmt* statement) {
  static auto* const real = REAL(sqlite3_step);
  // What the kit offers to SQLite may allocate in it.
  if (!Interposer::Listening()) return real(statement);
  const support::AllocationPause unseen;
  Call call;
  call.function = "step";
  call.handle = statement;
  if (!Interposer::TakeForced(call.function, call.result)) {
    Silence silent;
    call.result = real(statement);
  }
  Interposer::Record(call);
  return call.result;
}

int OURS(sqlite3_finalize)(sqlite3_stmt* statement) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_finalize);
  if (!Interposer::Listening()) return real(statement);
  Call call;
  call.function = "finalize";
  call.handle = statement;
  {
    Silence silent;
    call.result = real(statement);
  }
  Interposer::TakeForced(call.function, call.result);
  Interposer::Record(call);
  return call.result;
}

int OURS(sqlite3_column_int)(sqlite3_stmt* statement, int column) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_column_int);
  if (!Interposer::Listening()) return real(statement, column);
  Call call;
  call.function = "column_int";
  call.text = std::to_string(column);
  call.handle = statement;
  {
    Silence silent;
    call.result = real(statement, column);
  }
  Interposer::Record(call);
  return call.result;
}

const unsigned char* OURS(sqlite3_column_text)(sqlite3_stmt* statement, int column) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_column_text);
  if (!Interposer::Listening()) return real(statement, column);
  Call call;
  call.function = "column_text";
  call.text = std::to_string(column);
  call.handle = statement;
  const unsigned char* text = nullptr;
  if (!Interposer::TakeForced(call.function, call.result)) {
    text = Interposer::ForcedText();
    if (text == nullptr) {
      Silence silent;
      text = real(statement, column);
    }
  }
  call.out = text;
  Interposer::Record(call);
  return text;
}

int OURS(sqlite3_create_collation)(sqlite3* connection, const char* name, int encoding, void* user,
                                   int (*compare)(void*, int, const void*, int, const void*)) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(sqlite3_create_collation);
  if (!Interposer::Listening()) return real(connection, name, encoding, user, compare);
  Call call;
  call.function = "create_collation";
  call.text = name;
  call.handle = connection;
  call.number = encoding;
  call.out = user;
  if (!Interposer::TakeForced(call.function, call.result)) {
    Silence silent;
    call.result = real(connection, name, encoding, user, compare);
  }
  Interposer::Record(call);
  return call.result;
}

int OURS(usleep)(useconds_t microseconds) {
  const support::AllocationPause unseen;
  static auto* const real = REAL(usleep);
  if (!Interposer::Simulated()) return real(microseconds);
  // SQLite's own waits, too, take no time; only the library's are noted.
  if (Interposer::Listening()) Interposer::Sleep(microseconds);
  return 0;
}

}  // extern "C"
