#ifndef CATALOG_STORE_H
#define CATALOG_STORE_H

// The catalogue's SQLite file and its one table. It is recognised by its application_id: a file that some other program
// made is never touched.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "files.h"
#include "sqldb/kit/kit.h"

namespace catalog {

namespace kit = sqldb::kit;

/// One row of the table, or of a query as far as the query asks for it.
struct FileRow {
  /// Absolute, without links.
  std::string fPath;
  /// In bytes.
  std::int64_t fSize = 0;
  /// Nanoseconds since 1970-01-01 00:00 UTC.
  std::int64_t fModified = 0;
  /// The extension in lower case, or what `tag` made of it.
  std::string fKind;
  /// The first 32 bytes.
  kit::EncodedBytes fHead;
};

enum class Access {
  kAsk,     // the file must be there
  kChange,  // the same, and be writable
  kCreate,  // as kChange, but a file that is missing or empty becomes a new catalogue
};

/// Where a catalogue is.
struct Location {
  /// A path, or what begins with "file:", a URI of SQLite's. What a URI stands for is for SQLite alone to know, and for
  /// the VFS that it may name. REQUIRES: SQLite is configured to read URIs.
  std::string fPath;
  /// What the file is encrypted with. REQUIRES: not empty, which would mean no encryption to SQLite.
  std::optional<std::string> fKey;
};

enum class Ending { kCommit, kRollBack };

/// Used by one thread at a time. Several stores may be used by several threads at the same time, on a file each.
class Store {
 public:
  /// Opens the file; throws Failure if it cannot be opened, or if there is a key and SQLite cannot encrypt. Looks into
  /// what it holds no earlier than Ask and Change.
  /// REQUIRES: the process has the file open nowhere else. It is opened and closed in passing here, upon which the
  /// system would take the locks of all who have it open.
  Store(const Location& location, Access access);

  /// Runs `work` in a transaction that holds the file's shared lock from the start, so that nothing within it can
  /// meet a lock. Waits for a lock for two seconds, then throws. Throws Failure if the file is no catalogue.
  void Ask(const std::function<void()>& work);

  /// The same with the write lock. A new catalogue gets its table here.
  void Change(const std::function<void()>& work, Ending ending = Ending::kCommit);

  /// Sends SQL of the program's own.
  void Send(const std::string& sql);

  /// The table with these fields only, for questions that need no others.
  template <typename... T>
  kit::Table<FileRow> Only(const kit::Field<FileRow, T>&... fields) {
    return kit::Table<FileRow>(fDatabase, "files", fields...);
  }

  /// Holds for the paths below `folder`, an absolute path. A range of the path's index, so that "/a/bc" is not taken to
  /// be below "/a/b".
  kit::Term Below(const std::string& folder) const { return fPath >= FirstBelow(folder) && fPath < EndBelow(folder); }

  /// True for the database file, under any name, and for the paths of the files that SQLite puts beside it, as long as
  /// they are in the file system.
  bool IsOwnFile(const std::string& path, const FileIdentity& identity) const;

  sqldb::SQLDatabase fDatabase;
  const kit::Field<FileRow, std::string> fPath = kit::Key("path", &FileRow::fPath);
  const kit::Field<FileRow, std::int64_t> fSize{"size", &FileRow::fSize};
  const kit::Field<FileRow, std::int64_t> fModified{"modified", &FileRow::fModified};
  const kit::Field<FileRow, std::string> fKind{"kind", &FileRow::fKind};
  const kit::Field<FileRow, kit::EncodedBytes> fHead{"head", &FileRow::fHead};
  kit::Table<FileRow> fFiles{fDatabase, "files", fPath, fSize, fModified, fKind, fHead};

 private:
  // True for a file without a table yet.
  bool CheckFormat();
  void CreateTable();

  Access fAccess;
  // What SQLite calls the file.
  std::string fFile;
  FileIdentity fIdentity;
};

}  // namespace catalog

#endif  // CATALOG_STORE_H
