#ifndef CATALOG_STORE_H
#define CATALOG_STORE_H

// The catalogue's SQLite file and its one table. It is recognised by its application_id: a file that some other program
// made is never touched.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <boost/shared_ptr.hpp>

#include "columns.h"
#include "files.h"
#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/table.h"
#include "terms.h"
#include "transaction.h"

namespace catalog {

/// One row of a query, as far as the query asks for it.
struct FileRow {
  std::string fPath;
  std::int64_t fSize = 0;
  std::int64_t fModified = 0;
  std::string fHead;
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

class Store {
 public:
  /// Opens the file; throws Failure if it cannot be opened, or if there is a key and SQLite cannot encrypt. Looks into
  /// it no earlier than Ask and Change.
  Store(const Location& location, Access access);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// Runs `work` in a transaction that holds the file's shared lock from the start, so that nothing within it can
  /// meet a lock. Waits for a lock for two seconds, then throws. Throws Failure if the file is no catalogue.
  void Ask(const std::function<void()>& work);

  /// The same with the write lock. A new catalogue gets its table here.
  void Change(const std::function<void()>& work, Ending ending = Ending::kCommit);

  /// Another select over the table. `limit` 0: all rows.
  boost::shared_ptr<sqldb::SQLSelectClass> NewSelect(const Term& term, std::uint32_t limit = 0);

  /// True for the database file, under any name, and for the paths of the files that SQLite puts beside it, as long as
  /// they are in the file system.
  bool IsOwnFile(const std::string& path, const FileIdentity& identity) const;

  sqldb::SQLDatabase fDatabase;
  boost::shared_ptr<sqldb::SQLTableClass> fFiles;
  /// Absolute, without links.
  Column fPath;
  /// In bytes.
  Column fSize;
  /// Nanoseconds since 1970-01-01 00:00 UTC.
  Column fModified;
  /// The extension in lower case, or what `tag` made of it.
  Column fKind;
  /// The first 32 bytes, made text by sqlite_encode_binary.
  Column fHead;

 private:
  // True for a file without a table yet.
  bool CheckFormat();
  void CreateTable();

  Access fAccess;
  // What SQLite calls the file.
  std::string fFile;
  FileIdentity fIdentity;
};

/// Receives the rows of a performed select whose columns are some of fPath, fSize and fHead, in this order. Each column
/// itself knows how to get into the row.
class RowReceiver : public sqldb::SQLCursorBase {
 public:
  using Receive = std::function<void(const FileRow&)>;
  /// `offsets`: where each result column goes in a FileRow.
  RowReceiver(sqldb::SQLDatabase* database, const sqldb::OffsetSpec& offsets, Receive receive);

  bool ProcessRow(sqlite3_stmt* statement) override;

 private:
  sqldb::OffsetSpec fOffsets;
  Receive fReceive;
  FileRow fRow;
};

}  // namespace catalog

#endif  // CATALOG_STORE_H
