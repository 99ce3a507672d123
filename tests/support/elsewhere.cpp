// Where the databases of a program of tests are. If the environment has SQLDB_TEST_DATABASES, a URI such as
// "file:pool:/%.db?vfs=ceph", then whatever the libraries would open in memory, or make in a TemporaryFolder, is there
// instead, with a name of its own in place of "%". What SQLite is to load first is in SQLDB_TEST_MODULE.
//
// The libraries find the functions that open a database here rather than in SQLite; see cmake/call_recorder.cmake. A
// CallRecorder can force the result of "open_v2", which then delivers null.

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sqlite3.h>

#include "support/interposer.h"

namespace {

template <typename Function>
Function* Next(const char* name) {
  void* const symbol = dlsym(RTLD_NEXT, name);
  if (symbol == nullptr) {
    std::cerr << "no real " << name << "\n";
    std::abort();
  }
  return reinterpret_cast<Function*>(symbol);
}

int Open(const char* path, sqlite3** connection, int flags, const char* vfs) {
  static auto* const open = Next<decltype(sqlite3_open_v2)>("sqlite3_open_v2");
  return open(path, connection, flags, vfs);
}

constexpr int kToMake = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;

// SQLite keeps it after the connection that loaded it has gone.
void LoadModule() {
  const char* const module = std::getenv("SQLDB_TEST_MODULE");
  if (module == nullptr) return;
  sqlite3* connection = nullptr;
  int result = Open(":memory:", &connection, kToMake, nullptr);
  sqlite3_enable_load_extension(connection, 1);
  if (result == SQLITE_OK) result = sqlite3_load_extension(connection, module, nullptr, nullptr);
  sqlite3_close(connection);
  if (result == SQLITE_OK) return;
  std::cerr << "cannot load " << module << "\n";
  std::abort();
}

// Empty for what is neither made in memory nor in a TemporaryFolder.
std::string NameOf(std::string_view path, int flags) {
  static std::atomic<int> number{0};
  static const std::string process = "sqldb-test-" + std::to_string(std::random_device()());
  if (path == ":memory:" && (flags & SQLITE_OPEN_CREATE) != 0) return process + "-" + std::to_string(++number);
  const std::size_t folder = path.rfind("/sqldb-test-");
  if (folder == std::string_view::npos) return {};
  std::string name(path.substr(folder + 1));
  for (char& character : name) {
    if (character == '/') character = '-';
  }
  return name;
}

// Empty if it is where `path` says.
std::string PlaceOf(const char* path, int flags) {
  const char* const elsewhere = std::getenv("SQLDB_TEST_DATABASES");
  if (elsewhere == nullptr || path == nullptr) return {};
  const std::string name = NameOf(path, flags);
  if (name.empty()) return {};
  static std::once_flag isLoaded;
  std::call_once(isLoaded, LoadModule);
  std::string place = elsewhere;
  return place.replace(place.find('%'), 1, name);
}

}  // namespace

extern "C" int sqlite3_open_v2(const char* path, sqlite3** connection, int flags, const char* vfs) {
  int result = SQLITE_OK;
  if (support::Interposer::Listening() && support::Interposer::TakeForced("open_v2", result)) {
    *connection = nullptr;
    return result;
  }
  const support::Silence silent;
  const std::string place = PlaceOf(path, flags);
  return place.empty() ? Open(path, connection, flags, vfs)
                       : Open(place.c_str(), connection, flags | SQLITE_OPEN_URI, vfs);
}

extern "C" int sqlite3_open(const char* path, sqlite3** connection) {
  return sqlite3_open_v2(path, connection, kToMake, nullptr);
}
