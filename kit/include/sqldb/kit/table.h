#ifndef SQLDB_KIT_TABLE_H
#define SQLDB_KIT_TABLE_H

// A table as records of a described struct: found, written and deleted by their key, or by a term.
//
//   Table<Part> parts(database);
//   parts.CreateIfMissing();
//   parts.Insert({1, "bolt", 0.25});
//   if (std::optional<Part> part = parts.Find(1)) ...
//   for (const Part& part : parts.Select(price < 1.0).OrderBy(name)) ...
//   parts.Update(price < 1.0, Set(price, Sql<double>("price * ?", 2)));
//   parts.Delete(1);
//
// What an operation does, it has done when it returns, and what it throws leaves nothing behind but what it says. No
// value is ever read as SQL. Several operations are done as one in a transaction, see transaction.h; what a table
// cannot do, Database::Execute and Query do, on the same rows.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "sqldb/kit/assignment.h"
#include "sqldb/kit/bulk.h"
#include "sqldb/kit/database.h"
#include "sqldb/kit/key.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/record.h"
#include "sqldb/kit/selection.h"
#include "sqldb/kit/table_handle.h"
#include "sqldb/kit/term.h"

namespace sqldb::kit {

namespace detail {

/// Whether the description names a table.
template <typename Record>
constexpr bool HasTable() {
  return Described<Record>::Description().table != nullptr;
}

/// Makes a record in a std::optional<Record> and returns its address.
template <typename Record>
void* EmplaceRecord(void* optional) {
  return &static_cast<std::optional<Record>*>(optional)->emplace();
}

/// Whether Records goes from one Record to the one behind it: where its iterators are pointers, and in a vector. Others
/// may have such elements, too, and go through them in a way of their own.
template <typename Records, typename Record>
constexpr bool kIsArrayOf =
    std::is_same_v<std::decay_t<decltype(*std::begin(std::declval<const Records&>()))>, Record>&&
        std::is_pointer_v<decltype(std::begin(std::declval<const Records&>()))>&& std::is_same_v<
            decltype(std::begin(std::declval<const Records&>())), decltype(std::end(std::declval<const Records&>()))>;
template <typename Allocator, typename Record>
inline constexpr bool kIsArrayOf<std::vector<Record, Allocator>, Record> = true;

}  // namespace detail

/// The records of one table of a database. It connects to nothing and costs little: make one wherever it is needed.
/// Copies are the same table. It keeps nothing of the rows, so that each operation sees the file as it is. What
/// outlives the database can be destroyed; every use throws Error.
///
/// Record is a described struct, see record.h. Without a key it has no Find, Get, Upsert, UpsertMany, Update and Delete
/// by record or key: they do not compile.
///
/// Every operation throws Error: if there is no such table or column, BusyError if others keep the file busy,
/// ConstraintError if a constraint forbids what is written, ConversionError for a value that cannot be stored, or that
/// does not fit the member that it is read into; also what a Type throws. Nothing is written then. An operation may be
/// used inside a loop over the same table, and inside the functions of a Type.
///
/// A row is what the description says of it: other columns of the table are not read, keep what they have when it is
/// updated, and get their default when it is inserted. Values are bound where they are, without a copy, until an
/// operation returns.
///
/// A name without a schema is looked up when a statement is compiled: give main.parts where an attached file has a
/// table of the same name.
template <typename Record>
class Table {
 public:
  /// The table that the description names. It is not looked for yet, and may be missing. Throws Error if the database
  /// has been moved.
  explicit Table(const Database& openDatabase) : fTable(openDatabase, detail::LayoutOf<Record>(), {}) {
    static_assert(detail::HasTable<Record>(),
                  R"(The description names no table: Describe("parts", ...), or Table<Part>(database, "parts").)");
  }
  /// Another table or view that has the columns of the description. The name is copied. What has no rows of its own, a
  /// view or a query in parentheses, serves Find, Select, Count and Has, and is written only if SQLite can, which
  /// counts no row for what INSTEAD OF triggers do:
  ///
  ///     const Table<Part> old(database, "\"old parts\"");
  ///     const Table<Part> cheap(database, "(SELECT * FROM parts WHERE price < 1)");
  ///
  /// REQUIRES: `tableName` is SQL, never input: "parts", "main.parts", "\"old parts\"".
  Table(const Database& openDatabase, std::string_view tableName)
      : fTable(openDatabase, detail::LayoutOf<Record>(), tableName) {}

  /// Creates the table, with a column for each field in their order, of the type that its Type is stored as, NOT NULL
  /// unless it is a std::optional, and with what the field says beside that; see Field. Throws Error if it is there.
  void Create() const { fTable.Create(false); }
  /// Creates the table unless it is there. One that is there stays as it is, and nothing is written then. Throws Error
  /// if it lacks a column of the description; types, keys and further columns are not looked at.
  void CreateIfMissing() const { fTable.Create(true); }
  /// Drops the table with its rows and indexes; throws Error if it is not there, and BusyError with the code 6 while a
  /// range of the same connection stands on a row. Create brings it back, for this object too.
  void Drop() const { fTable.Drop(); }

  /// The record with this key, whose parts are given in the order of the fields; none if there is no such row. A number
  /// is given for a number, a text of any kind for a text; NULL finds nothing.
  ///
  ///     if (const std::optional<Part> part = parts.Find(1)) Use(*part);
  ///     const std::optional<Line> line = lines.Find(7, "bolt");
  template <typename... K>
  std::optional<Record> Find(const K&... key) const {
    const detail::Arguments<K...> arguments = detail::KeyOf<Record>(key...);
    std::optional<Record> record;
    fTable.Find(arguments.all, arguments.kCount, &record, &detail::EmplaceRecord<Record>);
    return record;
  }
  /// The same; throws Error with the code 12 if there is no such row.
  template <typename... K>
  Record Get(const K&... key) const {
    std::optional<Record> record = Find(key...);
    if (!record) fTable.ThrowNotFound();
    return *std::move(record);
  }

  /// Inserts a row and returns its rowid, which is the key if that is one integer; of no meaning for a table WITHOUT
  /// ROWID, and where SQL makes SQLite insert nothing (a view, UNIQUE ON CONFLICT IGNORE, RAISE(IGNORE)). Throws
  /// ConstraintError if the key, or the value of a unique field, is there already. A key that is an empty std::optional
  /// is numbered; the record stays as it is:
  ///
  ///     part.id = parts.Insert(part);
  std::int64_t Insert(const Record& record) const { return fTable.Insert(&record); }
  /// Inserts a row unless its key, the value of a unique field, a NOT NULL or a CHECK is against it, and returns
  /// whether it did. A reference that leads nowhere throws ConstraintError all the same.
  bool InsertOrIgnore(const Record& record) const {
    return fTable.Write(detail::RecordWrite::kInsertOrIgnore, &record);
  }
  /// Inserts a row, or gives the row with the same key the record's values, and leaves what refers to it alone. Throws
  /// ConstraintError for the value of another unique field, and, though the row is there, if a column that is not
  /// described is NOT NULL and has no default. Needs SQLite 3.24.
  /// REQUIRES: the key of the description is the table's primary key, or UNIQUE in it.
  void Upsert(const Record& record) const {
    detail::RequireKey<Record>();
    fTable.Write(detail::RecordWrite::kUpsert, &record);
  }
  /// Inserts a row in the place of those with the same key or the same value of a unique field. Those are deleted, and
  /// with them the rows that refer to them, where the reference cascades, and the values of columns that are not
  /// described; Upsert deletes nothing.
  void Replace(const Record& record) const { fTable.Write(detail::RecordWrite::kReplace, &record); }
  /// Inserts all of `records`, a range of Record, and returns how many those are: all or none, or batch by batch if the
  /// options say so. Each batch is a transaction of its own, or inside a transaction a part of that: what it throws
  /// undoes the batch, and the batches before stay. An Error tells by Record and Written which record failed, and how
  /// many stay. `report` is called after each batch with the number of records written so far; it returns
  /// Progress::kStop to end the work. Without records nothing is done or reported.
  ///
  ///     try {
  ///       parts.InsertMany(all, options, [&](std::size_t) { return isLate() ? Progress::kStop : Progress::kGoOn; });
  ///     } catch (const ConstraintError& error) {
  ///       Show(error.Message(), error.Record(), error.Written());
  ///     }
  ///
  /// Inside a transaction that the program has begun with SQL of its own there are no batches to undo: what was written
  /// before a failure stays, and is the program's to roll back.
  /// REQUIRES: `records` does not change meanwhile.
  template <typename Records, typename Report>
  std::size_t InsertMany(const Records& records, const BulkOptions& options, Report&& report) const {
    return WriteMany(detail::RecordWrite::kInsert, records, options, report);
  }
  /// The same, without a report.
  template <typename Records>
  std::size_t InsertMany(const Records& records, const BulkOptions& options = {}) const {
    return InsertMany(records, options, [](std::size_t) { return Progress::kGoOn; });
  }
  /// The same: `parts.InsertMany({{1, "bolt"}, {2, "nut"}})`.
  std::size_t InsertMany(std::initializer_list<Record> records) const {
    return InsertMany<std::initializer_list<Record>>(records);
  }
  /// The same, but each record is written as Upsert does it: inserted, or into the row with its key.
  template <typename Records, typename Report>
  std::size_t UpsertMany(const Records& records, const BulkOptions& options, Report&& report) const {
    detail::RequireKey<Record>();
    return WriteMany(detail::RecordWrite::kUpsert, records, options, report);
  }
  /// The same, without a report.
  template <typename Records>
  std::size_t UpsertMany(const Records& records, const BulkOptions& options = {}) const {
    return UpsertMany(records, options, [](std::size_t) { return Progress::kGoOn; });
  }
  /// The same: `parts.UpsertMany({{1, "bolt"}, {2, "nut"}})`.
  std::size_t UpsertMany(std::initializer_list<Record> records) const {
    return UpsertMany<std::initializer_list<Record>>(records);
  }
  /// Gives the row with the record's key the record's values. Returns false if there is no such row, or the key is
  /// empty; true also if nothing changes. To give a row another key, Set it in the Update below.
  bool Update(const Record& record) const {
    detail::RequireKey<Record>();
    return fTable.Write(detail::RecordWrite::kUpdate, &record);
  }
  /// Makes the assignments in every row for which `term` holds, and returns how many those are, whether or not
  /// something changes. The assignments see the row as it was before all of them. Throws Error with the code 21, and
  /// does nothing, for an empty term, which may be one whose parts all vanished: EveryRow says that it is meant.
  ///
  ///     parts.Update(price > 9.0, Set(price, 9.0), Set(note, "reduced"));
  ///     parts.Update(EveryRow(), Set(note, std::nullopt));
  template <typename... A>
  std::int64_t Update(const Term& term, const Assignment& first, const A&... others) const {
    static_assert((std::is_same_v<A, Assignment> && ...), "After the term: Set(column, value), ...");
    detail::Piece assignments;
    assignments.Add(first.Parts());
    ((assignments.AddStatic(", "), assignments.Add(others.Parts())), ...);
    return fTable.UpdateWhere(term, assignments);
  }
  /// The same with assignments that were put together at run time. Without any it changes nothing, and returns 0.
  ///
  ///     std::vector<Assignment> changes;
  ///     if (newPrice) changes.push_back(Set(price, *newPrice));
  ///     if (isSold) changes.push_back(Set(note, "sold"));
  ///     parts.Update(id == 7, changes);
  std::int64_t Update(const Term& term, const std::vector<Assignment>& assignments) const {
    if (assignments.empty()) return 0;
    detail::Piece all;
    for (const Assignment& assignment : assignments) {
      if (!all.IsEmpty()) all.AddStatic(", ");
      all.Add(assignment.Parts());
    }
    return fTable.UpdateWhere(term, all);
  }
  /// Deletes the row with this key, given as for Find. Returns false if there is none.
  template <typename... K>
  bool Delete(const K&... key) const {
    const detail::Arguments<K...> arguments = detail::KeyOf<Record>(key...);
    return fTable.Delete(arguments.all, arguments.kCount);
  }
  /// Deletes the rows for which `term` holds, and returns how many those were; those that a reference takes with them
  /// are not counted. Throws Error for an empty term, as Update does.
  std::int64_t Delete(const Term& term) const { return fTable.DeleteWhere(term); }

  /// The rows for which `term` holds, all if it is empty. Runs nothing yet; the selection has a copy of the term, and
  /// may outlive this object.
  ///
  ///     for (const Part& part : parts.Select(price < 1.0).OrderBy(name).Limit(10)) Use(part);
  Selection<Record> Select(const Term& term = {}) const { return Selection<Record>(fTable, term); }
  /// How many rows `term` holds for; all if it is empty. Of every table, view and expression, with 64 bits.
  std::int64_t Count(const Term& term = {}) const { return fTable.Count(term); }
  /// Whether `term` holds for a row; if it is empty, whether there is one. Looks no further than the first.
  bool Has(const Term& term = {}) const { return fTable.Has(term); }

 private:
  // Whatever ends it, the batch that is under way is undone by the end of the writer.
  template <typename Records, typename Report>
  std::size_t WriteMany(detail::RecordWrite what, const Records& records, const BulkOptions& options,
                        Report& report) const {
    detail::BulkWriter writer(fTable, what, options);
    if constexpr (detail::kIsArrayOf<Records, Record>) {
      const auto count = static_cast<std::size_t>(std::end(records) - std::begin(records));
      // None has no address.
      if (count > 0 && !WriteArray(writer, &*std::begin(records), count, report)) return writer.Written();
    } else {
      for (const Record& record : records) {
        if (!WriteArray(writer, &record, 1, report)) return writer.Written();
      }
    }
    if (writer.Finish()) report(writer.Written());
    return writer.Written();
  }
  // Returns false if the report ends the work.
  template <typename Report>
  static bool WriteArray(detail::BulkWriter& writer, const Record* records, std::size_t count, Report& report) {
    while (count > 0) {
      const std::size_t written = writer.Write(records, count, sizeof(Record));
      if (writer.IsBatchEnded() && report(writer.Written()) == Progress::kStop) return false;
      records += written;
      count -= written;
    }
    return true;
  }

  detail::TableHandle fTable;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TABLE_H
