#include "store.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "printable.h"

namespace catalog {

namespace {

constexpr std::int64_t kApplicationId = 0x63746C67;  // "ctlg"
constexpr std::int64_t kFormat = 1;

bool IsUri(const std::string& path) { return path.compare(0, 5, "file:") == 0; }

// Opens the URI in passing: only a handle that is kept says why that fails, and without these flags SQLite would create
// what is missing.
void CheckUri(const std::string& uri, Access access) {
  const int flags = SQLITE_OPEN_URI | SQLITE_OPEN_READWRITE | (access == Access::kCreate ? SQLITE_OPEN_CREATE : 0);
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(uri.c_str(), &opened, flags, nullptr);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection(opened, sqlite3_close);
  if (result == SQLITE_OK) return;
  throw Failure("cannot open '" + Printable(uri) + "': " + Printable(sqlite3_errmsg(opened)));
}

// Opens the file in passing: only the system says why that fails, and SQLite would create what is missing. Returns the
// path in the one form in which no part of it means anything special to SQLite, and in which a walk meets it.
std::string ResolvedPath(const std::string& path, Access access) {
  const int flags = access == Access::kAsk ? O_RDONLY : access == Access::kChange ? O_RDWR : O_RDWR | O_CREAT;
  const int descriptor = open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
  if (descriptor < 0) throw Failure("cannot open '" + Printable(path) + "': " + std::strerror(errno));
  struct stat facts {};
  const bool isFile = fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
  close(descriptor);
  if (!isFile) throw Failure("cannot open '" + Printable(path) + "': not a regular file");
  return std::filesystem::canonical(path).string();
}

// Keeps the integer of a query's only row.
class OneInteger : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt* statement) override {
    fValue = sqlite3_column_int64(statement, 0);
    return false;
  }

  std::int64_t fValue = 0;
};

std::int64_t Pragma(sqldb::SQLDatabase& database, const std::string& name) {
  OneInteger answer;
  database.SendQuery("PRAGMA " + name, &answer, nullptr);
  return answer.fValue;
}

// An SQLite that cannot encrypt takes no notice of a key. One that can has a version to tell.
bool CanEncrypt() {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  return Pragma(database, "cipher_version") != 0;
}

// The path to open. Nothing is created before it is certain that it will be encrypted if it is to be.
std::string CheckedPath(const Location& location, Access access) {
  if (location.fKey && !CanEncrypt()) throw Failure("cannot use a key: this SQLite does not encrypt");
  if (!IsUri(location.fPath)) return ResolvedPath(location.fPath, access);
  CheckUri(location.fPath, access);
  return location.fPath;
}

}  // namespace

Store::Store(const Location& location, Access access)
    : fDatabase(CheckedPath(location, access), access == Access::kAsk), fAccess(access) {
  fDatabase.Open();
  // Before anything else.
  if (location.fKey) Send("PRAGMA key = " + kit::Type<std::string>::Literal(*location.fKey));
  // A VFS may have no room for temporary files.
  if (IsUri(location.fPath)) Send("PRAGMA temp_store = 2");
  // The cache, in KiB: room for what indexing a large tree changes. Without it SQLite would lock readers out half-way.
  Send("PRAGMA busy_timeout = 2000; PRAGMA cache_size = -65536");

  fFile = sqlite3_db_filename(fDatabase.fConnection, "main");
  struct stat facts {};
  if (stat(fFile.c_str(), &facts) == 0) fIdentity = {facts.st_dev, facts.st_ino};
}

// Reading the format takes the shared lock, and the transaction keeps it.
void Store::Ask(const std::function<void()>& work) {
  kit::Transaction transaction(fDatabase);
  kit::Run(fDatabase, [&] {
    CheckFormat();
    work();
  });
  transaction.Commit();
}

// The format is read in a transaction of its own: once it has the write lock, an empty file counts as one of a page.
// And a transaction that has begun with reading is refused the write lock at once where another waits for it.
void Store::Change(const std::function<void()>& work, Ending ending) {
  bool isNew = false;
  {
    const kit::Transaction reading(fDatabase);
    kit::Run(fDatabase, [&] { isNew = CheckFormat(); });
  }
  kit::Transaction transaction(fDatabase, kit::WriteLock::kAtOnce);
  kit::Run(fDatabase, [&] {
    if (isNew) CreateTable();
    work();
  });
  if (ending == Ending::kCommit) transaction.Commit();
}

void Store::Send(const std::string& sql) {
  kit::Run(fDatabase, [&] { fDatabase.SendQuery(sql, nullptr, nullptr); });
}

// By identity above all: to open and close the database's file a second time would make the system take SQLite's locks
// away from this process.
bool Store::IsOwnFile(const std::string& path, const FileIdentity& identity) const {
  if (identity == fIdentity) return true;
  if (path.compare(0, fFile.size(), fFile) != 0) return false;
  const std::string ending = path.substr(fFile.size());
  return ending == "-journal" || ending == "-wal" || ending == "-shm";
}

bool Store::CheckFormat() {
  if (fAccess == Access::kCreate && Pragma(fDatabase, "page_count") == 0) return true;
  if (Pragma(fDatabase, "application_id") != kApplicationId)
    throw Failure("'" + Printable(fDatabase.fPath) + "' is not a catalogue");
  if (Pragma(fDatabase, "user_version") != kFormat)
    throw Failure("'" + Printable(fDatabase.fPath) + "' is a catalogue of another version of this program");
  return false;
}

void Store::CreateTable() {
  fFiles.Create();
  // For "largest" and "duplicates", which go by size, and for "count" and "tag", which ask for a kind.
  fFiles.CreateIndex(fSize);
  fFiles.CreateIndex(fKind);
  Send("PRAGMA application_id = " + std::to_string(kApplicationId) +
       "; PRAGMA user_version = " + std::to_string(kFormat));
}

}  // namespace catalog
