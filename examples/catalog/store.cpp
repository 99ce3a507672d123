#include "store.h"

#include <filesystem>
#include <system_error>

#include <sqlite3.h>
#include <sys/stat.h>

#include "printable.h"
#include "sqldb/database.h"

namespace catalog {

namespace {

constexpr std::int64_t kApplicationId = 0x63746C67;  // "ctlg"
constexpr std::int64_t kFormat = 1;

bool IsUri(const std::string& path) { return path.compare(0, 5, "file:") == 0; }

// The path in the one form in which no part of it means anything special to SQLite, and in which a walk meets it.
std::string ResolvedPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::absolute(path);
  const std::filesystem::path canonical = std::filesystem::weakly_canonical(whole, error);
  return error ? whole.string() : canonical.string();
}

// SQLite would wait for somebody to write into a pipe.
void RefuseOtherThanFiles(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (!exists(status) || is_regular_file(status)) return;
  throw Failure("'" + Printable(path) + "' cannot be opened: not a regular file");
}

kit::Options OptionsFor(const Location& location, Access access) {
  kit::Options options;
  options.access = access == Access::kAsk      ? kit::Access::kReadOnly
                   : access == Access::kChange ? kit::Access::kReadWrite
                                               : kit::Access::kReadWriteCreate;
  options.isUri = IsUri(location.fPath);
  options.key = location.fKey.value_or("");
  options.busyTimeout = 2000;
  // In KiB: room for what indexing a large tree changes. Without it SQLite would lock readers out half-way.
  options.setUp = "PRAGMA cache_size = -65536;";
  // A VFS may have no room for temporary files.
  if (options.isUri) options.setUp += "PRAGMA temp_store = 2;";
  return options;
}

kit::Database Opened(const Location& location, Access access) {
  const bool isUri = IsUri(location.fPath);
  const std::string path = isUri ? location.fPath : ResolvedPath(location.fPath);
  if (!isUri) RefuseOtherThanFiles(path);
  try {
    return kit::Database(path, OptionsFor(location, access));
  } catch (const kit::Error& error) {
    std::string reason = Printable(std::string(error.Message()));
    if (error.Code() == SQLITE_NOTADB && !location.fKey) reason += ", or has a key";
    throw Failure(reason);
  }
}

}  // namespace

Store::Store(const Location& location, Access access)
    : fDatabase(Opened(location, access)), fAccess(access), fName("'" + Printable(fDatabase.Core().fPath) + "'") {
  sqlite3* const connection = fDatabase.Core().fConnection;
  // SQLite opens what may only be read without a word.
  if (access != Access::kAsk && sqlite3_db_readonly(connection, "main") == 1) {
    throw Failure(fName + " cannot be written to");
  }
  fFile = sqlite3_db_filename(connection, "main");
  struct stat facts {};
  if (stat(fFile.c_str(), &facts) == 0) fIdentity = {facts.st_dev, facts.st_ino};
}

// Reading the format takes the shared lock, and the transaction keeps it.
void Store::Ask(const std::function<void()>& work) {
  kit::Transaction transaction(fDatabase, kit::Begin::kDeferred);
  CheckFormat();
  work();
  transaction.Commit();
}

// Whether the file is empty is seen only before the transaction: once that has the write lock, it counts as one of a
// page. Another program may have made the table in between.
void Store::Change(const std::function<void()>& work, Ending ending) {
  const bool wasEmpty = fAccess == Access::kCreate && Pragma("page_count") == 0;
  // No lock is taken on a file of another program.
  if (!wasEmpty) CheckFormat();
  kit::Transaction transaction(fDatabase);
  if (wasEmpty && Pragma("schema_version") == 0) {
    CreateTable();
  } else {
    CheckFormat();
  }
  work();
  if (ending == Ending::kCommit) transaction.Commit();
}

// By identity above all: to open and close the database's file a second time would make the system take SQLite's locks
// away from this process.
bool Store::IsOwnFile(const std::string& path, const FileIdentity& identity) const {
  if (identity == fIdentity) return true;
  if (path.compare(0, fFile.size(), fFile) != 0) return false;
  const std::string ending = path.substr(fFile.size());
  return ending == "-journal" || ending == "-wal" || ending == "-shm";
}

std::int64_t Store::Pragma(const std::string& name) { return fDatabase.One<std::int64_t>("PRAGMA " + name); }

void Store::CheckFormat() {
  if (Pragma("application_id") != kApplicationId) throw Failure(fName + " is not a catalogue");
  if (Pragma("user_version") != kFormat) throw Failure(fName + " is a catalogue of another version of this program");
}

void Store::CreateTable() {
  fFiles.Create();
  fDatabase.Execute(kIndexOfSize);
  // For "count" and "tag", which ask for a kind.
  fDatabase.Execute("CREATE INDEX files_kind ON files (kind)");
  fDatabase.ExecuteScript("PRAGMA application_id = " + std::to_string(kApplicationId) +
                          "; PRAGMA user_version = " + std::to_string(kFormat));
}

}  // namespace catalog
