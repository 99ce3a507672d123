#ifndef SQLDB_CURSOR_H
#define SQLDB_CURSOR_H

// A cursor runs the query of one select and receives its rows. SQLStepCursor copies each row into the application's
// memory; other cursors derive from SQLCursorBase and override ProcessRow.
//
// Order of calls for a step cursor: construct, SQLSelectClass::PrepareSelect, Step until it returns 1, release.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include "sqldb/export.h"

struct sqlite3;
struct sqlite3_stmt;

namespace sqldb {

class BindingCallback;
class QueryCallback;
class SQLColumnBase;
class SQLDatabase;

/// Base of all cursors. Every live cursor is listed in its database's `fCursors`.
class SQLDB_EXPORT SQLCursorBase {
 public:
  /// Takes the next serial number and joins the database's list.
  /// REQUIRES: `database` is not null.
  explicit SQLCursorBase(SQLDatabase* database);

  /// Leaves the database's list, if the database still lives. May throw in derived classes; see SQLStepCursor.
  virtual ~SQLCursorBase() noexcept(false);

  SQLCursorBase(const SQLCursorBase&) = delete;
  SQLCursorBase& operator=(const SQLCursorBase&) = delete;

  /// Handles one row of a performed select; see QueryCallback::ProcessRow. The base returns false: one row, then
  /// stop.
  virtual bool ProcessRow(sqlite3_stmt* statement);

  /// Gets ready to run `sql`, the text of a prepared select. The base does nothing.
  virtual void PrepareToQuery(const std::string& sql);

  /// SQLDatabase::SendQuery on the cursor's database. Throws "Condition is not met." if that is gone.
  void SendQuery(const std::string& sql, QueryCallback* callback, BindingCallback* binding);

  /// The result columns, in result order; replaced as a whole when a select sets the cursor up.
  std::vector<boost::shared_ptr<SQLColumnBase>> fColumns;
  /// The database the cursor runs on; not owned.
  SQLDatabase* fDatabase;
  /// 1 for the first cursor of the process, 2 for the next, across all databases.
  std::int32_t fSerialNumber;

  /// The serial number given last; 0 before the first cursor. Wraps after 2,147,483,647. Advances atomically: no two
  /// threads are given the same.
  /// REQUIRES: read and assigned only while no other thread makes a cursor.
  static std::int32_t sfCursorSerialNumber;

 protected:
  /// True when the database was destroyed before the cursor.
  bool IsOrphan() const { return fDatabaseLifetime.expired(); }

  /// True once a select was given a shared pointer to the cursor.
  bool IsShared() const { return fIsShared; }

  /// The handle to give to SQLite, null without a connection. Throws "Condition is not met." on an orphan.
  sqlite3* Connection() const;

  /// Throws SQLite's message for the connection; on an orphan "Condition is not met.".
  [[noreturn]] void ThrowMessage() const;

 private:
  friend class SQLSelectClass;

  boost::weak_ptr<void> fDatabaseLifetime;
  bool fIsShared = false;
};

/// Where one result column goes.
struct ItemOffset {
  /// Offset in bytes from the start of the buffer; need not be aligned.
  std::uint32_t fByteOffset = 0;
  /// 0: the record given to SQLStepCursor::Step. 1 to 3: the further buffers, in order.
  std::uint16_t fBuffer = 0;
};

/// Where the result columns go: entry i belongs to result column i, in the order in which the columns were added to
/// the select.
struct SQLDB_EXPORT OffsetSpec {
  /// No entries.
  OffsetSpec() = default;
  /// Copies the entries.
  OffsetSpec(const OffsetSpec&) = default;
  /// Takes over the entries.
  OffsetSpec(OffsetSpec&&) = default;
  /// Takes the place of the entries.
  OffsetSpec& operator=(const OffsetSpec&) = default;
  /// The same, taking them over.
  OffsetSpec& operator=(OffsetSpec&&) = default;

  /// Appends an entry: `byteOffset` bytes into buffer number `buffer`.
  void PushOffset(std::uint32_t byteOffset, std::uint16_t buffer);

  /// The entries, one for each result column.
  std::vector<ItemOffset> fItems;
};

/// All of SQLStepCursor<T> that does not depend on T.
class SQLDB_EXPORT SQLStepCursorBase : public SQLCursorBase, public boost::enable_shared_from_this<SQLStepCursorBase> {
 public:
  /// Finalizes the statement. If the last step failed, SQLite repeats the failure; the destructor throws its message
  /// only where that can reach a caller: no boost::shared_ptr ever held the cursor, no other exception is in flight,
  /// and the database lives. Otherwise it ends quietly, since an exception cannot leave a shared pointer's release.
  /// REQUIRES: a cursor whose last step failed is not destroyed by a std::shared_ptr, std::unique_ptr,
  /// boost::scoped_ptr or container, nor as a member of an object that is owned so, by a boost::shared_ptr included;
  /// nor by a boost::shared_ptr made from a SQLCursorBase*, unless a select was given it. A derived class does not
  /// add boost::enable_shared_from_this again. These cannot be told from a delete by hand, and end the process.
  ~SQLStepCursorBase() noexcept(false) override;

  /// Compiles the first statement of `sql`; the rest is ignored. Throws SQLite's message, also when the file is busy:
  /// compiling does not wait; `fStatement` is then null, and the call may be repeated.
  /// REQUIRES: called once with success. A second statement takes the place of the first, which is left behind.
  void PrepareToQuery(const std::string& sql) override;

  /// Where each result column goes.
  OffsetSpec fOffsets;
  /// Rows delivered so far.
  std::uint32_t fRowCount = 0;
  /// The compiled statement, owned; null before PrepareToQuery.
  sqlite3_stmt* fStatement = nullptr;
  /// True while there is no statement to finalize.
  bool fFinalized = true;

 protected:
  /// Registers with `database`; see SQLCursorBase.
  SQLStepCursorBase(SQLDatabase* database, const OffsetSpec& offsets);
  /// The same, taking `offsets` over.
  SQLStepCursorBase(SQLDatabase* database, OffsetSpec&& offsets);

  /// The arguments up to the first null one, with null in place of the others.
  static std::array<char*, 4> CollectBuffers(void* first, void* second, void* third, void* fourth) {
    if (second == nullptr) third = nullptr;
    if (third == nullptr) fourth = nullptr;
    return {static_cast<char*>(first), static_cast<char*>(second), static_cast<char*>(third),
            static_cast<char*>(fourth)};
  }

  /// The work of SQLStepCursor::Step, with what CollectBuffers gives.
  int StepInto(const std::array<char*, 4>& buffers);
  /// The work of SQLStepCursor::StepIt.
  int StepInto(const std::vector<char*>& buffers);

 private:
  template <typename Buffers>
  int FetchRow(const Buffers& buffers);
  bool AdvanceUnlessDone(int result);
  bool MayThrowOnDestruction() const;
};

/// Runs one prepared select and copies its rows, one at a time, into the application's memory. T is the type of the
/// record that the rows go to.
///
/// Usually held through a boost::shared_ptr<SQLCursorBase>, as SQLSelectClass::PrepareSelect takes it.
template <typename T>
class SQLDB_EXPORT SQLStepCursor : public SQLStepCursorBase {
 public:
  /// Copies `offsets`.
  /// REQUIRES: one offset per result column, by the time of the first row.
  SQLStepCursor(SQLDatabase* database, const OffsetSpec& offsets) : SQLStepCursorBase(database, offsets) {}
  /// Takes `offsets` over.
  SQLStepCursor(SQLDatabase* database, OffsetSpec&& offsets) : SQLStepCursorBase(database, std::move(offsets)) {}

  /// Fetches the next row into `record` and the further buffers; the first null buffer ends the list. Returns 0 when
  /// a row was delivered, 1 when there is none left, the buffers untouched. Stepping on after a 1 starts the query
  /// again.
  ///
  /// While the file is busy, sleeps a tenth of a second and tries again, up to 600 times, a minute in all; then, and
  /// on every other failure, throws SQLite's message ("Condition is not met." if the database is gone), the buffers
  /// untouched. The statement stays, and is finalized with the cursor. What a column's AssignTo throws passes
  /// through; the columns before it are then stored, and the row is not counted.
  /// REQUIRES: PrepareToQuery succeeded; otherwise the message is whatever the connection had last. Every buffer that
  /// an offset names is given, and is large enough for its value.
  int Step(T& record, void* second = nullptr, void* third = nullptr, void* fourth = nullptr) {
    return StepInto(CollectBuffers(std::addressof(record), second, third, fourth));
  }

  /// Step with the buffers in a list, the record first.
  int StepIt(const std::vector<char*>& buffers) { return StepInto(buffers); }
};

}  // namespace sqldb

#endif  // SQLDB_CURSOR_H
