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

/// One row of the table.
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

  static constexpr auto Description() {
    return kit::Describe("files", kit::Key("path", &FileRow::fPath), kit::Field("size", &FileRow::fSize),
                         kit::Field("modified", &FileRow::fModified), kit::Field("kind", &FileRow::fKind),
                         kit::Field("head", &FileRow::fHead));
  }
};

inline constexpr kit::Column kPath(&FileRow::fPath);
inline constexpr kit::Column kSize(&FileRow::fSize);
inline constexpr kit::Column kKind(&FileRow::fKind);

/// Serves "largest" and "duplicates", which go by size.
inline constexpr char kIndexOfSize[] = "CREATE INDEX files_size ON files (size)";

/// Holds for the paths below `folder`, an absolute path. A range of the path's index, so that "/a/bc" is not taken to
/// be below "/a/b".
inline kit::Term Below(const std::string& folder) { return kPath >= FirstBelow(folder) && kPath < EndBelow(folder); }

enum class Access {
  kAsk,     // the file must be there
  kChange,  // the same, and be writable
  kCreate,  // as kChange, but a file that is missing or empty becomes a new catalogue
};

/// Where a catalogue is.
struct Location {
  /// A path, or what begins with "file:", a URI of SQLite's. What a URI stands for is for SQLite alone to know, and for
  /// the VFS that it may name.
  std::string fPath;
  /// What the file is encrypted with. REQUIRES: not empty, which would mean no encryption to SQLite.
  std::optional<std::string> fKey;
};

enum class Ending { kCommit, kRollBack };

/// Used by one thread at a time. Several stores may be used by several threads at the same time, on a file each.
class Store {
 public:
  /// Opens the file; throws Failure if it cannot be opened, or written to if that is asked for, or if there is a key
  /// and SQLite cannot encrypt. Whether it is a catalogue is looked at by Ask and Change.
  Store(const Location& location, Access access);

  /// Runs `work` in a transaction that holds the file's shared lock from the start, so that nothing within it can
  /// meet a lock. Waits for a lock for two seconds, then throws kit::BusyError. Throws Failure if the file is no
  /// catalogue.
  void Ask(const std::function<void()>& work);

  /// The same with the write lock. A new catalogue gets its table here, from the first of several programs that begin
  /// one at the same time.
  void Change(const std::function<void()>& work, Ending ending = Ending::kCommit);

  /// True for the database file, under any name, and for the paths of the files that SQLite puts beside it, as long as
  /// they are in the file system.
  bool IsOwnFile(const std::string& path, const FileIdentity& identity) const;

  kit::Database fDatabase;
  const kit::Table<FileRow> fFiles{fDatabase};

 private:
  std::int64_t Pragma(const std::string& name);
  void CheckFormat();
  void CreateTable();

  Access fAccess;
  // For messages.
  std::string fName;
  // What SQLite calls the file.
  std::string fFile;
  FileIdentity fIdentity;
};

}  // namespace catalog

#endif  // CATALOG_STORE_H
