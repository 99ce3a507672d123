#include "opening.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <utility>

#include <boost/make_shared.hpp>

#include "compile.h"
#include "literal.h"

namespace sqldb::kit::detail {

namespace {

[[noreturn]] void ThrowUnopened(const std::string& path, std::string_view why, int code, std::string_view sql = {}) {
  ThrowAsItIs("'" + path + "' cannot be opened: " + std::string(why), code, sql);
}

int FlagsOf(const Options& options) {
  // What is none gets another beginning: see Opened.
  int flags = SQLITE_OPEN_URI | (options.isSerialized ? SQLITE_OPEN_FULLMUTEX : SQLITE_OPEN_NOMUTEX);
  if (options.access == Access::kReadOnly) return flags | SQLITE_OPEN_READONLY;
  flags |= SQLITE_OPEN_READWRITE;
  return options.access == Access::kReadWrite ? flags : flags | SQLITE_OPEN_CREATE;
}

// A connection that is closed unless it is taken.
class Opened {
 public:
  Opened(const std::string& path, const Options& options, int flags) {
    const char* const vfs = options.vfs.empty() ? nullptr : options.vfs.c_str();
    const bool isPlain = !options.isUri && path.compare(0, 5, "file:") == 0;
    fResult = sqlite3_open_v2((isPlain ? "./" + path : path).c_str(), &fConnection, flags, vfs);
  }
  ~Opened() { sqlite3_close(fConnection); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  int Result() const { return fResult; }
  // What is in memory, or goes with the connection, has no name.
  bool IsFile() const {
    const char* const name = sqlite3_db_filename(fConnection, "main");
    return name != nullptr && name[0] != '\0';
  }
  std::string Why() const {
    if (fConnection == nullptr) return sqlite3_errstr(fResult);
    std::string why = sqlite3_errmsg(fConnection);
    const int reason = sqlite3_system_errno(fConnection);
    if (reason != 0) why.append(": ").append(std::system_category().message(reason));
    return why;
  }
  int Code() const { return fConnection != nullptr ? sqlite3_extended_errcode(fConnection) : fResult; }
  sqlite3* Handle() const { return fConnection; }
  sqlite3* Take() { return std::exchange(fConnection, nullptr); }

 private:
  sqlite3* fConnection = nullptr;
  int fResult;
};

constexpr char kIsThere[] = "it is there already";

// Throws Error if the file is there. SQLite itself has no word for that, so it is tried without being made. Where the
// file's name is the system's, it is made in one step then, so that of several that do so only one succeeds.
void CheckIsNew(const std::string& path, const Options& options) {
  const Opened opened(path, options, FlagsOf(options) & ~SQLITE_OPEN_CREATE);
  if (opened.Result() == SQLITE_OK && opened.IsFile()) ThrowUnopened(path, kIsThere, SQLITE_CANTOPEN);
  // Anything else than that it is missing says nothing about the file. Ceph's VFS has the system's number for that.
  const bool isMissing = opened.Result() == SQLITE_CANTOPEN || opened.Code() == -ENOENT;
  if (opened.Result() != SQLITE_OK && !isMissing) ThrowUnopened(path, opened.Why(), opened.Code());
#ifndef _WIN32
  if (!isMissing || options.isUri || !options.vfs.empty()) return;
  if (std::FILE* const made = std::fopen(path.c_str(), "wbx")) {
    std::fclose(made);
  } else if (errno == EEXIST) {
    ThrowUnopened(path, kIsThere, SQLITE_CANTOPEN);
  }
#endif
}

// An SQLite that cannot encrypt takes no notice of a key. One that can has a version to tell. Asked of no file, so that
// none is made then.
bool CanEncrypt() {
  const Opened memory(":memory:", Options(), SQLITE_OPEN_READWRITE);
  const auto take = [](void* canEncrypt, int, char**, char**) {
    *static_cast<bool*>(canEncrypt) = true;
    return 0;
  };
  bool canEncrypt = false;
  const int result = sqlite3_exec(memory.Handle(), "PRAGMA cipher_version", take, &canEncrypt, nullptr);
  if (memory.Result() == SQLITE_NOMEM || result == SQLITE_NOMEM) throw std::bad_alloc();
  return canEncrypt;
}

void CheckKey(const std::string& path, const std::string& key) {
  if (!CanEncrypt()) ThrowUnopened(path, "it has a key, and SQLite is built without encryption", SQLITE_MISUSE);
  if (key.find('\0') != std::string::npos) ThrowUnopened(path, "its key has a zero byte", SQLITE_MISUSE);
}

// Sends the key before all else, as the engine wants it. No message has it.
void SendKey(Connection& connection, const std::string& key) {
  std::string sql = "PRAGMA key = ";
  LiteralWriter(sql).TakeText(key);
  connection.Ask(sql);
}

// With the message of SQLite's own allocation.
struct Message {
  ~Message() { sqlite3_free(text); }
  char* text = nullptr;
};

void LoadModule(sqlite3* connection, const std::string& module) {
  Message message;
  // For this call only: SQL is not to load any.
  sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
  const int result = sqlite3_load_extension(connection, module.c_str(), nullptr, &message.text);
  sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  if (result == SQLITE_OK) return;
  const std::string why = message.text != nullptr ? message.text : sqlite3_errstr(result);
  throw Error("the module '" + module + "' cannot be loaded: " + why, result);
}

// To change the mode, SQLite reads the file and then wants it for itself alone. For that it waits for nobody, since two
// that did so would wait for each other; here they let go of it, and begin anew.
std::string ModeAfterWal(Connection& connection, int busyTimeout) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(busyTimeout);
  for (;;) {
    try {
      return connection.Ask("PRAGMA journal_mode = WAL");
    } catch (const BusyError&) {
      if (Clock::now() >= end) throw;
    }
    sqlite3_sleep(1);
  }
}

void EnterWal(Connection& connection, int busyTimeout) {
  const std::string mode = ModeAfterWal(connection, busyTimeout);
  if (mode != "wal") throw Error("it cannot be put into WAL mode, and stays in mode " + mode, SQLITE_CANTOPEN);
}

// In the order of Synchronous.
constexpr const char* kSynchronous[] = {"", "PRAGMA synchronous = OFF", "PRAGMA synchronous = NORMAL",
                                        "PRAGMA synchronous = FULL", "PRAGMA synchronous = EXTRA"};

void Configure(Connection& connection, const Options& options) {
  connection.WaitFor(options.busyTimeout);
  if (!options.module.empty()) LoadModule(connection.Handle(), options.module);
  // Reads the file, and so tells whether it is a database.
  CheckEncoding(connection);
  if (options.wal) EnterWal(connection, options.busyTimeout);
  connection.RunScript(kSynchronous[static_cast<std::size_t>(options.synchronous)]);
  connection.RunScript(options.foreignKeys ? "PRAGMA foreign_keys = ON" : "PRAGMA foreign_keys = OFF");
  connection.RunScript(options.setUp);
  CheckEncoding(connection);
}

}  // namespace

boost::shared_ptr<SQLDatabase> OpenFile(const std::string& path, const Options& options) {
  if (path.find('\0') != std::string::npos) ThrowUnopened(path, "its name has a zero byte", SQLITE_MISUSE);
  if (!options.key.empty()) CheckKey(path, options.key);
  if (options.access == Access::kCreate) CheckIsNew(path, options);
  auto core = boost::make_shared<SQLDatabase>(path, options.access == Access::kReadOnly);
  Opened opened(path, options, FlagsOf(options));
  if (opened.Result() != SQLITE_OK) ThrowUnopened(path, opened.Why(), opened.Code());
  core->fConnection = opened.Take();
  core->fIsOpen = true;
  sqlite3_extended_result_codes(core->fConnection, 1);
  return core;
}

void SetUp(Connection& connection, const std::string& path, const Options& options) {
  try {
    if (!options.key.empty()) SendKey(connection, options.key);
  } catch (const Error& error) {
    // Without the SQL, which has the key.
    ThrowUnopened(path, error.Message(), error.ExtendedCode());
  }
  try {
    Configure(connection, options);
  } catch (const Error& error) {
    std::string why(error.Message());
    if (error.Code() == SQLITE_NOTADB && !options.key.empty()) why += ", or has another key";
    ThrowUnopened(path, why, error.ExtendedCode(), error.Sql());
  }
}

void CheckEncoding(Connection& connection) {
  const std::string encoding = connection.Ask("PRAGMA encoding");
  if (encoding == "UTF-8") return;
  throw Error("its encoding is " + encoding + ", which cannot keep the bytes of every text; UTF-8 can", SQLITE_MISUSE);
}

}  // namespace sqldb::kit::detail
