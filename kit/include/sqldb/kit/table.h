#ifndef SQLDB_KIT_TABLE_H
#define SQLDB_KIT_TABLE_H

// A table of records: the struct is described once, by its fields, and everything else follows.
//
//   Table<Part> parts(database, "parts", id, name, price);
//   parts.Create();
//   parts.Insert({1, "bolt", 0.25});
//   for (const Part& part : parts.Select(price < 1.0)) Use(part);
//
// What an operation cannot do it throws as Error, with SQLite's telling message, or as what a value's Type throws, and
// nothing of it is left behind: no statement in the connection, no text in a stream. Writes do not wait for a busy
// file; see retry.h.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "sqldb/database.h"
#include "sqldb/insert.h"
#include "sqldb/kit/bulk.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/failure.h"
#include "sqldb/kit/field.h"
#include "sqldb/kit/selection.h"
#include "sqldb/kit/values.h"
#include "sqldb/table.h"
#include "sqldb/update.h"

namespace sqldb::kit {

/// One table of one database. Not copyable. Make one for a table and keep it: the database keeps a table object for
/// each that was made.
/// REQUIRES: the database outlives it, and is open when an operation is called. Names are code, never input.
template <typename Record>
class Table {
 public:
  /// Sends nothing; see Create. One field at most is the key.
  template <typename... T>
  Table(SQLDatabase& database, const std::string& name, const Field<Record, T>&... fields)
      : fDatabase(database), fTable(database.NewTable(name)) {
    (fSlots.push_back(std::make_unique<detail::SlotOf<Record, T>>(fields)), ...);
    const auto source = boost::make_shared<RecordSource<Record>>();
    source->table = fTable;
    const Record record{};
    for (const auto& slot : fSlots) {
      fTable->AddColumn(slot->Column());
      source->columns.push_back(slot->Column());
      source->offsets.PushOffset(static_cast<std::uint32_t>(slot->Offset(record)), 0);
    }
    fSource = source;
    fInsert = SetUp(fTable->NewInsert());
    fReplace = SetUp(fTable->NewReplace());
  }

  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  /// Creates the table in the file; fails if it is there.
  void Create() {
    Run(fDatabase, [this] { fTable->Create(); });
  }

  /// Creates the table in the file unless it has a table of this name, whatever that looks like.
  /// REQUIRES: the table's name is without quotes and without a schema.
  void CreateIfMissing() {
    const std::string sql =
        "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = " + Type<std::string>::Literal(fTable->fName) +
        " COLLATE NOCASE";
    Exists exists;
    Run(fDatabase, [&] { fDatabase.SendQuery(sql, &exists, nullptr); });
    if (!exists.value) Create();
  }

  /// Drops the table in the file. The object stays usable: Create brings the table back.
  void Drop() {
    Run(fDatabase, [this] { fTable->Drop(); });
  }

  /// Creates an index for one field, named TABLE_COLUMN.
  template <typename T>
  void CreateIndex(const Field<Record, T>& field) {
    Run(fDatabase, [&] { fTable->CreateIndexForColumn(field.Name()); });
  }

  /// Inserts a row and returns its rowid, which is the key if that is an integer.
  std::int64_t Insert(const Record& record) { return Write(*fInsert, record); }

  /// The same, but a row with the same key, or the same value of a unique field, is replaced.
  std::int64_t Replace(const Record& record) { return Write(*fReplace, record); }

  /// Inserts all of `records`, a range of them, by one statement and in batches, and returns how many those were; see
  /// kit::InsertMany for transactions, progress and failures.
  template <typename Records>
  std::size_t InsertMany(const Records& records, const BulkOptions& options = {}) {
    return WriteMany("INSERT", records, options);
  }

  /// The same, but each row replaces those that Replace would.
  template <typename Records>
  std::size_t ReplaceMany(const Records& records, const BulkOptions& options = {}) {
    return WriteMany("REPLACE", records, options);
  }

  /// Gives the row that has the record's key the record's values. Returns false if there is no such row, or if the
  /// key is empty.
  /// REQUIRES: a key, and one field more.
  bool Update(const Record& record) {
    std::vector<Assignment> assignments;
    Term key;
    for (const auto& slot : fSlots) {
      Assignment assignment{slot->Column()->fName, slot->Literal(record)};
      if (slot->Column()->fIsPrimaryKey) {
        key = Term(TrustedSql{assignment.name + " = " + assignment.sql});
      } else {
        assignments.push_back(std::move(assignment));
      }
    }
    return Update(key, assignments) > 0;
  }

  /// Makes the assignments in every row for which `term` holds, and returns how many those are. An empty term fails
  /// with SQLite's "incomplete input": to change every row, say so with Term(TrustedSql{"1"}).
  std::int64_t Update(const Term& term, const std::vector<Assignment>& assignments) {
    const boost::shared_ptr<SQLUpdateClass> update = fTable->NewUpdate();
    for (const Assignment& assignment : assignments) {
      update->fColumns.push_back(detail::OnlyNamed(assignment.name));
      update->fValues.emplace_back(boost::make_shared<PrintedValue>(assignment.sql));
    }
    update->fTerm = term;
    Run(fDatabase, [&] { update->PerformUpdate(true); });
    return Changes();
  }

  /// Deletes the rows for which `term` holds, and returns how many those were. Throws std::invalid_argument for an
  /// empty term, which may be one whose parts all vanished; see DeleteAll.
  std::int64_t Delete(const Term& term) {
    if (term.IsEmpty()) throw std::invalid_argument("A delete without a condition would delete every row.");
    Run(fDatabase, [&] { fTable->DeleteRecords(term); });
    return Changes();
  }

  /// Deletes every row.
  void DeleteAll() {
    Run(fDatabase, [this] { fTable->DeleteRecords(nullptr); });
  }

  /// The rows for which `term` holds, all if it is empty.
  Selection<Record> Select(Term term = {}) const { return Selection<Record>(fSource, std::move(term)); }

  /// How many rows `term` holds for.
  std::uint32_t Count(const Term& term = {}) {
    return Run(fDatabase, [&] { return fTable->CountRecords(term); });
  }

  /// Whether `term` holds for a row.
  bool Has(const Term& term = {}) {
    return Run(fDatabase, [&] { return fTable->HasTerm(term); });
  }

  /// The table of the core, for what is not here.
  SQLTableClass& Core() { return *fTable; }

 private:
  struct Exists : QueryCallback {
    bool ProcessRow(sqlite3_stmt*) override {
      value = true;
      return false;
    }
    bool value = false;
  };

  // Binds one member of the record that is being written.
  class MemberValue : public SQLValueBase {
   public:
    MemberValue(const detail::Slot<Record>& slot, const Record* const& current) : fSlot(slot), fCurrent(current) {
      RememberParameterName();
    }

    std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
    void BindingOpportunity(sqlite3_stmt* statement) const override {
      const int parameter = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
      const int result = fSlot.Bind(statement, parameter, *fCurrent);
      if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(result));
    }

   private:
    const detail::Slot<Record>& fSlot;
    const Record* const& fCurrent;
  };

  // SQLite before 3.37 counts no further than an int.
  std::int64_t Changes() const {
#if SQLITE_VERSION_NUMBER >= 3037000
    return sqlite3_changes64(fDatabase.fConnection);
#else
    return sqlite3_changes(fDatabase.fConnection);
#endif
  }

  template <typename Statement>
  boost::shared_ptr<Statement> SetUp(boost::shared_ptr<Statement> statement) {
    for (const auto& slot : fSlots) {
      statement->fColumns.push_back(slot->Column());
      statement->fValues.push_back(boost::make_shared<MemberValue>(*slot, fCurrent));
    }
    return statement;
  }

  std::int64_t Write(SQLInsertClass& statement, const Record& record) {
    fCurrent = &record;
    // What an earlier failure left would be sent again, in front of this.
    statement.fQuery.str("");
    Run(fDatabase, [&] { statement.PerformInsert(false); });
    return sqlite3_last_insert_rowid(fDatabase.fConnection);
  }

  template <typename Records>
  std::size_t WriteMany(const char* verb, const Records& records, const BulkOptions& options) {
    std::string names;
    std::string parameters;
    for (const auto& slot : fSlots) {
      const char* const separator = names.empty() ? "" : ", ";
      names += separator + slot->Column()->fName;
      parameters += std::string(separator) + "?";
    }
    const std::string sql =
        std::string(verb) + " INTO " + fTable->fName + " (" + names + ") VALUES (" + parameters + ")";
    const auto bind = [this](sqlite3_stmt* statement, const Record& record) {
      int parameter = 0;
      for (const auto& slot : fSlots) {
        const int result = slot->Bind(statement, ++parameter, record);
        if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(result));
      }
    };
    return kit::InsertMany(fDatabase, sql, records, bind, options);
  }

  SQLDatabase& fDatabase;
  boost::shared_ptr<SQLTableClass> fTable;
  std::vector<std::unique_ptr<detail::Slot<Record>>> fSlots;
  boost::shared_ptr<const RecordSource<Record>> fSource;
  boost::shared_ptr<SQLInsertClass> fInsert;
  boost::shared_ptr<SQLReplaceClass> fReplace;
  const Record* fCurrent = nullptr;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TABLE_H
