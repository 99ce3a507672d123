#ifndef SQLDB_KIT_TABLE_HANDLE_H
#define SQLDB_KIT_TABLE_HANDLE_H

// What Table and Selection are made of: the operations on a table, without the type of its records.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sqldb/export.h"
#include "sqldb/kit/database.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/piece.h"
#include "sqldb/kit/record.h"
#include "sqldb/kit/term.h"

namespace sqldb::kit::detail {

struct TableState;

/// What is written with a record as a whole.
enum class RecordWrite { kInsert, kInsertOrIgnore, kUpsert, kReplace, kUpdate };

/// A table of a connection, by the layout of its records. Copies are the same; all of them share what is known of the
/// table: its statements, of which each has a place of its own, and their texts. A record is a `void*` to what the
/// layout describes.
///
/// Everything throws Error, ConstraintError and BusyError as Table says, and what the Types of the record throw; no
/// statement is then left running.
class SQLDB_EXPORT TableHandle {
 public:
  /// `name` is a null view for that of the layout.
  TableHandle(const Database& database, const RecordLayout& layout, std::string_view name);
  TableHandle(const TableHandle& other) noexcept;
  TableHandle& operator=(const TableHandle& other) noexcept;
  ~TableHandle();

  /// Makes the table that the layout describes. `onlyIfMissing`: if there is one with this name, looks whether it has
  /// the columns instead.
  void Create(bool onlyIfMissing) const;
  /// Takes the table away with all its rows.
  void Drop() const;

  /// If there is a row with the key, reads it into what `emplace` makes of `optional`.
  void Find(const Argument* key, std::size_t count, void* optional, void* (*emplace)(void* optional)) const;
  /// The Error of a Get that finds nothing, which names the table.
  [[noreturn]] void ThrowNotFound() const;

  /// The statement that writes a record, without values, lent to the caller.
  KeptStatement& Lend(RecordWrite what) const;
  /// What its records are.
  const RecordLayout& Layout() const noexcept;
  /// Never null.
  const ConnectionPointer& Connection() const noexcept { return fConnection; }
  /// Returns the rowid.
  std::int64_t Insert(const void* record) const;
  /// Throws the error that is being handled, with advice if the key of the record may be what is wrong.
  [[noreturn]] void ThrowNotInserted(const ConstraintError& error, const void* record) const;
  /// Returns whether a row was written.
  bool Write(RecordWrite what, const void* record) const;
  /// Returns whether there was a row with this key.
  bool Delete(const Argument* key, std::size_t count) const;

  // By a term, which is compiled for each form that it takes, and kept. The first two throw Error for an empty term,
  // and return how many rows it held for.

  std::int64_t UpdateWhere(const Term& term, const Piece& assignments) const;
  std::int64_t DeleteWhere(const Term& term) const;
  std::int64_t Count(const Term& term) const;
  bool Has(const Term& term) const;

 private:
  friend struct RowsWanted;

  ConnectionPointer fConnection;
  TableState* fState;
};

/// Which rows of a table, and in which order. To copy it is compiled once: each step of a chain does.
struct SQLDB_EXPORT RowsWanted {
  /// Those for which the condition holds, all if it is empty.
  RowsWanted(const TableHandle& ofTable, const Piece& condition);
  RowsWanted(const RowsWanted& other);
  RowsWanted& operator=(const RowsWanted& other);
  ~RowsWanted();

  /// Behind the orders that it has.
  void AddOrder(const Piece& entry);

  /// The statement that yields the rows, with its values.
  Lease Select(Values lifetime) const;
  /// How many that would be; none of them is read.
  std::int64_t Count() const;

  /// Whose rows.
  TableHandle table;
  /// Which rows; empty for all.
  Piece term;
  /// Its entries, with commas between them; empty for none.
  Piece order;
  /// Negative for none.
  std::int64_t limit = -1;
  /// Negative for none, too.
  std::int64_t offset = 0;
  /// Whether rows that are the same in all fields count once.
  bool isDistinct = false;

 private:
  Lease SelectAs(int kind, Values lifetime) const;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_TABLE_HANDLE_H
