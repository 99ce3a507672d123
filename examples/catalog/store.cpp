#include "store.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "literals.h"
#include "printable.h"
#include "sqldb/select.h"

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

// An SQLite that cannot encrypt takes no notice of a key. One that can has a version to tell.
bool CanEncrypt() {
  class AnyRow : public sqldb::QueryCallback {
   public:
    bool ProcessRow(sqlite3_stmt*) override { return fIsThere = true; }

    bool fIsThere = false;
  };
  AnyRow version;
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  database.SendQuery("PRAGMA cipher_version", &version, nullptr);
  return version.fIsThere;
}

// The path to open. Nothing is created before it is certain that it will be encrypted if it is to be.
std::string CheckedPath(const Location& location, Access access) {
  if (location.fKey && !CanEncrypt()) throw Failure("cannot use a key: this SQLite does not encrypt");
  if (!IsUri(location.fPath)) return ResolvedPath(location.fPath, access);
  CheckUri(location.fPath, access);
  return location.fPath;
}

std::int64_t Pragma(sqldb::SQLDatabase& database, const std::string& name) {
  OneInteger answer;
  database.SendQuery("PRAGMA " + name, &answer, nullptr);
  return answer.fValue;
}

template <typename ColumnClass>
Column AddColumn(sqldb::SQLTableClass& table, const std::string& name, bool isPrimaryKey = false) {
  Column column(new ColumnClass(&table, name, false, false, isPrimaryKey, ""));
  table.AddColumn(column);
  return column;
}

}  // namespace

Store::Store(const Location& location, Access access)
    : fDatabase(CheckedPath(location, access), access == Access::kAsk), fAccess(access) {
  fDatabase.Open();
  // Before anything else.
  if (location.fKey) fDatabase.SendQuery("PRAGMA key = " + Quoted(*location.fKey), nullptr, nullptr);
  // A VFS may have no room for temporary files.
  if (IsUri(location.fPath)) fDatabase.SendQuery("PRAGMA temp_store = 2", nullptr, nullptr);
  // The cache, in KiB: room for what indexing a large tree changes. Without it SQLite would lock readers out half-way.
  fDatabase.SendQuery("PRAGMA busy_timeout = 2000; PRAGMA cache_size = -65536", nullptr, nullptr);

  fFiles = fDatabase.NewTable("files");
  fPath = AddColumn<TextColumn>(*fFiles, "path", true);
  fSize = AddColumn<IntegerColumn>(*fFiles, "size");
  fModified = AddColumn<IntegerColumn>(*fFiles, "modified");
  fKind = AddColumn<TextColumn>(*fFiles, "kind");
  fHead = AddColumn<TextColumn>(*fFiles, "head");

  fFile = sqlite3_db_filename(fDatabase.fConnection, "main");
  struct stat facts {};
  if (stat(fFile.c_str(), &facts) == 0) fIdentity = {facts.st_dev, facts.st_ino};
}

Store::~Store() { FinalizeLeftovers(fDatabase); }

// Reading the format takes the shared lock, and the transaction keeps it.
void Store::Ask(const std::function<void()>& work) {
  InTransaction(fDatabase, [&] {
    CheckFormat();
    work();
  });
}

// The format is read in a transaction of its own. One that has begun with reading is refused the write lock at once
// where another waits for it.
void Store::Change(const std::function<void()>& work, Ending ending) {
  bool isNew = false;
  InTransaction(fDatabase, [&] { isNew = CheckFormat(); });
  const auto lockAndWork = [&] {
    if (isNew) {
      CreateTable();
    } else {
      fFiles->DeleteRecords(Never());
    }
    work();
  };
  InTransaction(fDatabase, lockAndWork, ending);
}

boost::shared_ptr<sqldb::SQLSelectClass> Store::NewSelect(const Term& term, std::uint32_t limit) {
  auto select = fDatabase.NewSelect(fFiles, limit);
  select->fTerm = term;
  return select;
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
  fFiles->Initialize();
  return false;
}

void Store::CreateTable() {
  fFiles->Create();
  // For "largest" and "duplicates", which go by size, and for "count" and "tag", which ask for a kind.
  fFiles->CreateIndexForColumn(fSize->fName);
  fFiles->CreateIndexForColumn(fKind->fName);
  fDatabase.SendQuery("PRAGMA application_id = " + std::to_string(kApplicationId) +
                          "; PRAGMA user_version = " + std::to_string(kFormat),
                      nullptr, nullptr);
}

RowReceiver::RowReceiver(sqldb::SQLDatabase* database, const sqldb::OffsetSpec& offsets, Receive receive)
    : SQLCursorBase(database), fOffsets(offsets), fReceive(std::move(receive)) {}

bool RowReceiver::ProcessRow(sqlite3_stmt* statement) {
  auto* const row = reinterpret_cast<char*>(&fRow);
  for (std::size_t i = 0; i < fColumns.size(); ++i) {
    fColumns[i]->AssignTo(row + fOffsets.fItems[i].fByteOffset, statement, static_cast<int>(i));
  }
  fReceive(fRow);
  return true;
}

}  // namespace catalog
