#include "sqldb/kit/table_handle.h"

#include <string>

#include "binding.h"
#include "connection.h"
#include "piece_sql.h"
#include "record_values.h"
#include "step.h"
#include "table_state.h"

namespace sqldb::kit::detail {

namespace {

// Statements of a table with a text that varies. The texts are found again by their marks.
enum Kind : int {
  kCount = 1,
  kHas,
  kDeleteWhere,
  kUpdateWhere,
  kSelect,
  kCountRows,
  // Added to the last two.
  kDistinct = 16,
  kLimited = 32,
};

// A statement that is larger is compiled for each use: it has so many values that it hardly comes again.
constexpr std::size_t kLargestKept = 8192;

void AddWhere(std::string& sql, std::string_view term) {
  if (!term.empty()) sql.append(" WHERE ").append(term);
}

// A text in one part, or in two.
struct Parts {
  const Piece& first;
  // Null for none.
  const Piece* second = nullptr;
};

std::string_view AsKey(const Words& text) {
  return std::string_view(reinterpret_cast<const char*>(text.begin()), text.Size() * sizeof(std::uint64_t));
}

// Takes and compiles the statements of one table whose text varies.
class VaryingStatement {
 public:
  VaryingStatement(Connection& connection, const TableState& table, int kind, const Parts& parts)
      : fConnection(connection), fTable(table), fKind(kind), fParts(parts) {}

  // Without its values, lent to the caller. Throws Error.
  KeptStatement& Lend() {
    const StatementKey key = Key();
    KeptStatement* const kept = fConnection.fStatements.Find(key);
    return kept != nullptr ? *kept : Compile(key);
  }

  // Binds the values of the parts to what was lent. Those that end before the statement has run stay with it: cheaper
  // than a copy of each of them by SQLite.
  void Bind(KeptStatement& lent, Values lifetime) const {
    if (fHasLiterals) return;
    const int next = BindPart(lent, 1, fParts.first, lent.values, lifetime);
    if (fParts.second != nullptr) BindPart(lent, next, *fParts.second, lent.moreValues, lifetime);
  }

 private:
  static int BindPart(KeptStatement& lent, int first, const Piece& part, Words& kept, Values lifetime) {
    const bool isLasting = lifetime == Values::kLasting;
    return BindValues(lent.statement, first, isLasting ? part.Values() : kept = part.Values());
  }

  StatementKey Key() const {
    StatementKey key{AsKey(fParts.first.Text()), &fTable, fKind};
    if (fParts.second != nullptr) key.secondPart = AsKey(fParts.second->Text());
    return key;
  }

  std::size_t ValueCount() const {
    return fParts.first.ValueCount() + (fParts.second != nullptr ? fParts.second->ValueCount() : 0);
  }

  KeptStatement& Compile(const StatementKey& key) {
    sqlite3* const handle = fConnection.Handle();
    const Working working(fConnection);
    StatementStore& statements = fConnection.fStatements;
    // The limit and the offset beside them.
    constexpr std::size_t kOthers = 2;
    const auto most = static_cast<std::size_t>(sqlite3_limit(handle, SQLITE_LIMIT_VARIABLE_NUMBER, -1));
    fHasLiterals = ValueCount() + kOthers > most;
    if (fHasLiterals) return statements.CompileOnce(handle, Sql(true));
    const bool isKept = key.text.size() + key.secondPart.size() <= kLargestKept;
    return isKept ? statements.Compile(handle, key, Sql(false)) : statements.CompileOnce(handle, Sql(false));
  }

  static std::string Written(const Piece* piece, bool asLiterals) {
    std::string sql;
    if (piece == nullptr || piece->IsEmpty()) return sql;
    asLiterals ? WriteLiterals(sql, piece->Text(), piece->Values()) : WriteSql(sql, piece->Text());
    return sql;
  }

  std::string Sql(bool asLiterals) const {
    const std::string first = Written(&fParts.first, asLiterals);
    const std::string second = Written(fParts.second, asLiterals);
    std::string sql;
    switch (fKind) {
      case kCount:
        sql = "SELECT COUNT(*) FROM " + fTable.name;
        AddWhere(sql, first);
        return sql;
      case kHas:
        sql = "SELECT 1 FROM " + fTable.name;
        AddWhere(sql, first);
        return sql + " LIMIT 1";
      case kDeleteWhere:
        sql = "DELETE FROM " + fTable.name;
        AddWhere(sql, first);
        return sql;
      case kUpdateWhere:
        sql = "UPDATE " + fTable.name + " SET " + first;
        AddWhere(sql, second);
        return sql;
      default:
        return SelectSql(first, second);
    }
  }

  std::string SelectSql(std::string_view term, std::string_view order) const {
    std::string sql = fTable.SelectSql((fKind & kDistinct) != 0);
    AddWhere(sql, term);
    if (!order.empty()) sql.append(" ORDER BY ").append(order);
    if ((fKind & kLimited) != 0) sql += " LIMIT ? OFFSET ?";
    const bool isCount = (fKind & ~(kDistinct | kLimited)) == kCountRows;
    return isCount ? "SELECT COUNT(*) FROM (" + sql + ")" : sql;
  }

  Connection& fConnection;
  const TableState& fTable;
  const int fKind;
  const Parts fParts;
  // Instead of parameters.
  bool fHasLiterals = false;
};

// The use of one of them for one operation, with its values.
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

}  // namespace

TableHandle::TableHandle(const Database& database, const RecordLayout& layout, std::string_view name)
    : fConnection(database.Connection()),
      fState(&fConnection->fTables.Use(layout, name.empty() ? std::string_view(layout.table) : name)) {}

TableHandle::TableHandle(const TableHandle& other) noexcept : fConnection(other.fConnection), fState(other.fState) {
  ++fState->users;
}

TableHandle& TableHandle::operator=(const TableHandle& other) noexcept {
  if (this == &other) return *this;
  ++other.fState->users;
  fConnection->fTables.Release(*fState);
  fConnection = other.fConnection;
  fState = other.fState;
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
    loan.Step();
  } catch (const ConstraintError& error) {
    const bool isOfKey =
        error.ExtendedCode() == SQLITE_CONSTRAINT_PRIMARYKEY || error.ExtendedCode() == SQLITE_CONSTRAINT_ROWID;
    if (!isOfKey || !IsKeyZero(fState->layout, record)) throw;
    throw ConstraintError(std::string(error.Message()) +
                              " (the key is 0: SQLite numbers rows whose key is an empty "
                              "std::optional)",
                          error.ExtendedCode(), error.Sql());
  }
  return sqlite3_last_insert_rowid(sqlite3_db_handle(loan.Statement()));
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
  loan.Step();
  return Changes(loan) > 0;
}

bool TableHandle::Delete(const Argument* key, std::size_t count) const {
  const Loan loan(Lent(*fConnection, *fState, TableState::kDelete));
  BindKey(loan.Statement(), key, count);
  loan.Step();
  return Changes(loan) > 0;
}

std::int64_t TableHandle::UpdateWhere(const Term& term, const Piece& assignments) const {
  if (term.IsEmpty()) throw Error("An update without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const VaryingLoan loan(*fConnection, *fState, kUpdateWhere, Parts{assignments, &term.Parts()});
  loan.Step();
  return Changes(loan);
}

std::int64_t TableHandle::DeleteWhere(const Term& term) const {
  if (term.IsEmpty()) throw Error("A delete without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const VaryingLoan loan(*fConnection, *fState, kDeleteWhere, Parts{term.Parts()});
  loan.Step();
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

Lease TableHandle::Select(const RowsWanted& wanted, Values lifetime) const {
  return SelectAs(kSelect, wanted, lifetime);
}

Lease TableHandle::SelectAs(int kind, const RowsWanted& wanted, Values lifetime) const {
  const bool isLimited = wanted.limit >= 0 || wanted.offset != 0;
  if (wanted.isDistinct) kind |= kDistinct;
  if (isLimited) kind |= kLimited;
  VaryingStatement statement(*fConnection, *fState, kind,
                             Parts{wanted.term, wanted.order.IsEmpty() ? nullptr : &wanted.order});
  Lease lease(statement.Lend());
  statement.Bind(lease.Kept(), lifetime);
  if (isLimited) {
    // The last two, also where the others are literals.
    const int last = lease.Kept().parameterCount;
    BindInteger(Target{lease.Statement(), last - 1, true}, wanted.limit);
    BindInteger(Target{lease.Statement(), last, true}, wanted.offset);
  }
  return lease;
}

std::int64_t TableHandle::CountRows(const RowsWanted& wanted) const {
  Lease lease = SelectAs(kCountRows, wanted, Values::kLasting);
  lease.Step();
  return sqlite3_column_int64(lease.Statement(), 0);
}

}  // namespace sqldb::kit::detail
