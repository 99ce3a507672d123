#include "sqldb/kit/table_handle.h"

#include <string>
#include <utility>

#include "binding.h"
#include "connection.h"
#include "piece_sql.h"
#include "record_values.h"
#include "step.h"
#include "table_state.h"
#include "varying_statement.h"

namespace sqldb::kit::detail {

namespace {

// The use of a statement whose text varies for one operation, with its values.
class VaryingLoan : public Loan {
 public:
  // REQUIRES: the parts outlive the object.
  VaryingLoan(Connection& connection, const TableState& table, int kind, const Parts& parts)
      : VaryingLoan(VaryingStatement(connection, table, kind, parts)) {}

 private:
  explicit VaryingLoan(VaryingStatement statement) : Loan(statement.Lend()) {
    statement.Bind(Kept(), Values::kLasting);
  }
};

// The parts of a key in their order, as many as there are.
void BindKey(sqlite3_stmt* statement, const Argument* key, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    BindArgument(statement, static_cast<int>(i) + 1, key[i], Values::kLasting);
  }
}

KeptStatement& CompileFixed(Connection& connection, TableState& table, TableState::Fixed which) {
  sqlite3* const handle = connection.Handle();
  const Working working(connection);
  return connection.fStatements.Compile(handle, table.fixed[which], &table, table.Sql(which));
}

// A statement whose text is always the same, lent to the caller.
inline KeptStatement& Lent(Connection& connection, TableState& table, TableState::Fixed which) {
  KeptStatement* const kept = table.fixed[which];
  const bool isIdle = kept != nullptr && kept->users == 0;
  return isIdle ? connection.fStatements.Lend(*kept) : CompileFixed(connection, table, which);
}

// How many rows the statement has written.
std::int64_t Changes(const Loan& loan) {
  sqlite3* const handle = sqlite3_db_handle(loan.Statement());
#if SQLITE_VERSION_NUMBER >= 3037000
  return sqlite3_changes64(handle);
#else
  return sqlite3_changes(handle);
#endif
}

// Whether the only thing that it takes is 0.
class ZeroFinder final : public ValueSink {
 public:
  void TakeNull() override {}
  void TakeInteger(std::int64_t value) override { fIsZero = value == 0; }
  void TakeReal(double) override {}
  void TakeText(std::string_view) override {}
  void TakeBlob(std::string_view) override {}

  bool fIsZero = false;
};

bool IsKeyZero(const RecordLayout& layout, const void* record) {
  ZeroFinder finder;
  for (const FieldEntry* field = layout.fields; field != layout.fields + layout.count; ++field) {
    if (!field->isKey) continue;
    field->bind(Target{nullptr, 0, false, &finder}, static_cast<const char*>(record) + field->offset);
  }
  return layout.keyCount == 1 && finder.fIsZero;
}

// Null: that of the layout.
std::string_view NameOf(const RecordLayout& layout, std::string_view name) {
  if (!name.empty()) return name;
  if (name.data() != nullptr || layout.table == nullptr) throw Error("The name of the table is empty.", SQLITE_MISUSE);
  return layout.table;
}

}  // namespace

TableHandle::TableHandle(const Database& database, const RecordLayout& layout, std::string_view name)
    : fConnection(database.Connection()), fState(&fConnection->fTables.Use(layout, NameOf(layout, name))) {}

TableHandle::TableHandle(const TableHandle& other) noexcept : fConnection(other.fConnection), fState(other.fState) {
  ++fState->users;
}

TableHandle& TableHandle::operator=(const TableHandle& other) noexcept {
  TableHandle copy(other);
  std::swap(fConnection, copy.fConnection);
  std::swap(fState, copy.fState);
  return *this;
}

TableHandle::~TableHandle() { fConnection->fTables.Release(*fState); }

void TableHandle::Create(bool onlyIfMissing) const {
  const auto run = [&](std::string sql) {
    sqlite3* const handle = fConnection->Handle();
    const Working working(*fConnection);
    Lease lease(fConnection->fStatements.CompileOnce(handle, std::move(sql)));
    return lease;
  };
  run(fState->CreateSql(onlyIfMissing)).Finish();
  // One that was there may be another one, of which this tells.
  if (onlyIfMissing) run(fState->CheckSql());
}

void TableHandle::Drop() const {
  sqlite3* const handle = fConnection->Handle();
  const Working working(*fConnection);
  Lease(fConnection->fStatements.CompileOnce(handle, "DROP TABLE " + fState->name)).Finish();
}

void TableHandle::Find(const Argument* key, std::size_t count, void* optional, void* (*emplace)(void*)) const {
  const Loan loan(Lent(*fConnection, *fState, TableState::kFind));
  BindKey(loan.Statement(), key, count);
  if (loan.Step()) LoadRecord(loan.Statement(), fState->layout, emplace(optional));
}

void TableHandle::ThrowNotFound() const {
  throw Error("There is no such row in " + fState->name + ".", SQLITE_NOTFOUND, fState->Sql(TableState::kFind));
}

std::int64_t TableHandle::Insert(const void* record) const {
  const Loan loan(Lent(*fConnection, *fState, TableState::kInsert));
  BindRecord(loan.Statement(), fState->layout, record);
  try {
    loan.Finish();
  } catch (const ConstraintError& error) {
    ThrowNotInserted(error, record);
  }
  return sqlite3_last_insert_rowid(sqlite3_db_handle(loan.Statement()));
}

void TableHandle::ThrowNotInserted(const ConstraintError& error, const void* record) const {
  const bool isOfKey =
      error.ExtendedCode() == SQLITE_CONSTRAINT_PRIMARYKEY || error.ExtendedCode() == SQLITE_CONSTRAINT_ROWID;
  if (!isOfKey || !IsKeyZero(fState->layout, record)) throw;
  throw ConstraintError(std::string(error.Message()) +
                            " (the key is 0: SQLite numbers rows whose key is an empty "
                            "std::optional)",
                        error.ExtendedCode(), error.Sql());
}

KeptStatement& TableHandle::Lend(RecordWrite what) const {
  static constexpr TableState::Fixed kFixed[] = {TableState::kInsert, TableState::kInsertOrIgnore, TableState::kUpsert,
                                                 TableState::kReplace, TableState::kUpdate};
  return Lent(*fConnection, *fState, kFixed[static_cast<int>(what)]);
}

const RecordLayout& TableHandle::Layout() const noexcept { return fState->layout; }

bool TableHandle::Write(RecordWrite what, const void* record) const {
  const Loan loan(Lend(what));
  BindRecord(loan.Statement(), fState->layout, record);
  loan.Finish();
  return Changes(loan) > 0;
}

bool TableHandle::Delete(const Argument* key, std::size_t count) const {
  const Loan loan(Lent(*fConnection, *fState, TableState::kDelete));
  BindKey(loan.Statement(), key, count);
  loan.Finish();
  return Changes(loan) > 0;
}

std::int64_t TableHandle::UpdateWhere(const Term& term, const Piece& assignments) const {
  if (term.IsEmpty()) throw Error("An update without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const VaryingLoan loan(*fConnection, *fState, kUpdateWhere, Parts{assignments, &term.Parts()});
  loan.Finish();
  return Changes(loan);
}

std::int64_t TableHandle::DeleteWhere(const Term& term) const {
  if (term.IsEmpty()) throw Error("A delete without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const VaryingLoan loan(*fConnection, *fState, kDeleteWhere, Parts{term.Parts()});
  loan.Finish();
  return Changes(loan);
}

std::int64_t TableHandle::Count(const Term& term) const {
  const VaryingLoan loan(*fConnection, *fState, kCount, Parts{term.Parts()});
  loan.Step();
  return sqlite3_column_int64(loan.Statement(), 0);
}

bool TableHandle::Has(const Term& term) const {
  return VaryingLoan(*fConnection, *fState, kHas, Parts{term.Parts()}).Step();
}

RowsWanted::RowsWanted(const TableHandle& ofTable, const Piece& condition) : table(ofTable), term(condition) {}
RowsWanted::RowsWanted(const RowsWanted& other) = default;
RowsWanted& RowsWanted::operator=(const RowsWanted& other) = default;
RowsWanted::~RowsWanted() = default;

void RowsWanted::AddOrder(const Piece& entry) {
  if (!order.IsEmpty()) order.AddStatic(", ");
  order.Add(entry);
}

Lease RowsWanted::Select(Values lifetime) const { return SelectAs(kSelect, lifetime); }

Lease RowsWanted::SelectAs(int kind, Values lifetime) const {
  const bool isLimited = limit >= 0 || offset != 0;
  if (isDistinct) kind |= kDistinct;
  if (isLimited) kind |= kLimited;
  VaryingStatement statement(*table.fConnection, *table.fState, kind, Parts{term, &order});
  Lease lease(statement.Lend());
  statement.Bind(lease.Kept(), lifetime);
  if (isLimited) {
    // The last two, also where the others are literals.
    const int last = lease.Kept().parameterCount;
    BindInteger(Target{lease.Statement(), last - 1, true}, limit);
    BindInteger(Target{lease.Statement(), last, true}, offset);
  }
  return lease;
}

std::int64_t RowsWanted::Count() const {
  Lease lease = SelectAs(kCountRows, Values::kLasting);
  lease.Step();
  return sqlite3_column_int64(lease.Statement(), 0);
}

}  // namespace sqldb::kit::detail
