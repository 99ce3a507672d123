#include "sqldb/kit/table_handle.h"

#include <string>

#include "connection.h"
#include "piece_sql.h"
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
  // Empty for none.
  const Piece& second;
};

const Piece& Nothing() {
  static const Piece nothing{};
  return nothing;
}

std::string_view AsKey(const Words& text) {
  return std::string_view(reinterpret_cast<const char*>(text.begin()), text.Size() * sizeof(std::uint64_t));
}

// Takes and compiles the statements of one table whose text varies.
class VaryingStatement {
 public:
  VaryingStatement(Connection& connection, const TableState& table, int kind, const Parts& parts)
      : fConnection(connection), fTable(table), fKind(kind), fParts(parts) {}

  // With the values of the parts.
  Lease Take(Values lifetime) const {
    if (!HasSecond()) return Take(AsKey(fParts.first.Text()), lifetime);
    Piece key = fParts.first;
    key.Add(Token::kPart);
    key.Add(fParts.second);
    return Take(AsKey(key.Text()), lifetime);
  }

 private:
  bool HasSecond() const { return !fParts.second.IsEmpty(); }

  Lease Take(std::string_view key, Values lifetime) const {
    KeptStatement* const kept = fConnection.fStatements.Find(StatementKey{key, &fTable, fKind});
    if (kept == nullptr) return Compile(key, lifetime);
    Lease lease(*kept);
    Bind(lease, lifetime);
    return lease;
  }

  // Values that end before the statement has run stay with it: cheaper than a copy of each of them by SQLite.
  void Bind(const Lease& lease, Values lifetime) const {
    const Words* first = &fParts.first.Values();
    const Words* second = &fParts.second.Values();
    if (lifetime == Values::kTemporary) {
      KeptStatement& kept = lease.Kept();
      first = &(kept.values = *first);
      second = &(kept.moreValues = *second);
    }
    const int next = BindValues(lease.Statement(), 1, *first, Values::kLasting);
    if (HasSecond()) BindValues(lease.Statement(), next, *second, Values::kLasting);
  }

  Lease Compile(std::string_view key, Values lifetime) const {
    sqlite3* const handle = fConnection.Handle();
    const Working working(fConnection);
    StatementStore& statements = fConnection.fStatements;
    // The limit and the offset beside them.
    constexpr std::size_t kOthers = 2;
    const auto most = static_cast<std::size_t>(sqlite3_limit(handle, SQLITE_LIMIT_VARIABLE_NUMBER, -1));
    const std::size_t values = fParts.first.ValueCount() + fParts.second.ValueCount();
    if (values + kOthers > most) return Lease(statements.CompileOnce(handle, Sql(true)));
    std::string sql = Sql(false);
    const bool isKept = key.size() <= kLargestKept;
    Lease lease(isKept ? statements.Compile(handle, StatementKey{key, &fTable, fKind}, std::move(sql))
                       : statements.CompileOnce(handle, std::move(sql)));
    Bind(lease, lifetime);
    return lease;
  }

  static std::string Written(const Piece& piece, bool asLiterals) {
    std::string sql;
    if (piece.IsEmpty()) return sql;
    asLiterals ? WriteLiterals(sql, piece.Text(), piece.Values()) : WriteSql(sql, piece.Text());
    return sql;
  }

  std::string Sql(bool asLiterals) const {
    const std::string first = Written(fParts.first, asLiterals);
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
};

// The parts of a key in their order, as many as there are.
void BindKey(sqlite3_stmt* statement, const Argument* key, std::size_t count) {
  Target target{statement, 0, true};
  for (std::size_t i = 0; i < count; ++i) {
    ++target.parameter;
    key[i].bind(target, key[i].value);
  }
}

// How many rows the connection has written last.
std::int64_t Changes(const Lease& lease) {
  sqlite3* const handle = sqlite3_db_handle(lease.Statement());
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

Lease TableHandle::Fixed(int which) const {
  KeptStatement*& place = fState->fixed[which];
  if (place != nullptr && place->users == 0) {
    return Lease(fConnection->fStatements.Lend(*place));
  }
  sqlite3* const handle = fConnection->Handle();
  const Working working(*fConnection);
  return Lease(
      fConnection->fStatements.Compile(handle, place, fState, fState->Sql(static_cast<TableState::Fixed>(which))));
}

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
  Lease lease = Fixed(TableState::kFind);
  BindKey(lease.Statement(), key, count);
  if (lease.Step()) LoadRecord(lease.Statement(), 0, fState->layout, emplace(optional));
}

void TableHandle::ThrowNotFound() const {
  throw Error("There is no such row in " + fState->name + ".", SQLITE_NOTFOUND, fState->Sql(TableState::kFind));
}

std::int64_t TableHandle::Insert(const void* record) const {
  Lease lease = Fixed(TableState::kInsert);
  BindRecord(Target{lease.Statement(), 1, true}, fState->layout, record);
  try {
    lease.Step();
  } catch (const ConstraintError& error) {
    const bool isOfKey =
        error.ExtendedCode() == SQLITE_CONSTRAINT_PRIMARYKEY || error.ExtendedCode() == SQLITE_CONSTRAINT_ROWID;
    if (!isOfKey || !IsKeyZero(fState->layout, record)) throw;
    throw ConstraintError(std::string(error.Message()) +
                              " (the key is 0: SQLite numbers rows whose key is an empty "
                              "std::optional)",
                          error.ExtendedCode(), error.Sql());
  }
  return sqlite3_last_insert_rowid(sqlite3_db_handle(lease.Statement()));
}

Lease TableHandle::Prepared(RecordWrite what) const {
  static constexpr TableState::Fixed kFixed[] = {TableState::kInsert, TableState::kInsertOrIgnore, TableState::kUpsert,
                                                 TableState::kReplace, TableState::kUpdate};
  return Fixed(kFixed[static_cast<int>(what)]);
}

const RecordLayout& TableHandle::Layout() const noexcept { return fState->layout; }

bool TableHandle::Write(RecordWrite what, const void* record) const {
  Lease lease = Prepared(what);
  BindRecord(Target{lease.Statement(), 1, true}, fState->layout, record);
  lease.Step();
  return Changes(lease) > 0;
}

bool TableHandle::Delete(const Argument* key, std::size_t count) const {
  Lease lease = Fixed(TableState::kDelete);
  BindKey(lease.Statement(), key, count);
  lease.Step();
  return Changes(lease) > 0;
}

std::int64_t TableHandle::UpdateWhere(const Term& term, const Piece& assignments) const {
  if (term.IsEmpty()) throw Error("An update without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const Parts parts{assignments, term.Parts()};
  Lease lease = VaryingStatement(*fConnection, *fState, kUpdateWhere, parts).Take(Values::kLasting);
  lease.Step();
  return Changes(lease);
}

std::int64_t TableHandle::DeleteWhere(const Term& term) const {
  if (term.IsEmpty()) throw Error("A delete without a condition: say EveryRow() if it is meant.", SQLITE_MISUSE);
  const Parts parts{term.Parts(), Nothing()};
  Lease lease = VaryingStatement(*fConnection, *fState, kDeleteWhere, parts).Take(Values::kLasting);
  lease.Step();
  return Changes(lease);
}

std::int64_t TableHandle::Count(const Term& term) const {
  const Parts parts{term.Parts(), Nothing()};
  Lease lease = VaryingStatement(*fConnection, *fState, kCount, parts).Take(Values::kLasting);
  lease.Step();
  return sqlite3_column_int64(lease.Statement(), 0);
}

bool TableHandle::Has(const Term& term) const {
  const Parts parts{term.Parts(), Nothing()};
  return VaryingStatement(*fConnection, *fState, kHas, parts).Take(Values::kLasting).Step();
}

Lease TableHandle::Select(const RowsWanted& wanted, Values lifetime) const {
  return SelectAs(kSelect, wanted, lifetime);
}

Lease TableHandle::SelectAs(int kind, const RowsWanted& wanted, Values lifetime) const {
  const bool isLimited = wanted.limit >= 0 || wanted.offset != 0;
  if (wanted.isDistinct) kind |= kDistinct;
  if (isLimited) kind |= kLimited;
  const Parts parts{wanted.term, wanted.order};
  Lease lease = VaryingStatement(*fConnection, *fState, kind, parts).Take(lifetime);
  if (isLimited) {
    // The last two, also where the others are literals.
    const int last = sqlite3_bind_parameter_count(lease.Statement());
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
