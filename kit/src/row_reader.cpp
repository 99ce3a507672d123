#include "sqldb/kit/row_reader.h"

#include <string>

#include "connection.h"
#include "record_values.h"
#include "step.h"

namespace sqldb::kit::detail {

namespace {

// How often the statement has compiled itself anew, because the schema or a bound pattern had changed.
int Compilations([[maybe_unused]] sqlite3_stmt* statement) {
#ifdef SQLITE_STMTSTATUS_REPREPARE
  return sqlite3_stmt_status(statement, SQLITE_STMTSTATUS_REPREPARE, 0);
#else
  return 0;
#endif
}

// A field's name may be quoted, as it stands in SQL; a column's is not.
std::string Unquoted(const char* nameInSql) {
  const char quote = *nameInSql;
  if (quote != '"' && quote != '`' && quote != '[') return nameInSql;
  const std::string_view name(nameInSql);
  std::string unquoted;
  for (std::size_t i = 1; i + 1 < name.size(); ++i) {
    unquoted += name[i];
    // A quote inside is doubled.
    if (name[i] == quote && quote != '[') ++i;
  }
  return unquoted;
}

// Finds the columns of a row, and says what is wrong with them.
class ColumnFinder {
 public:
  ColumnFinder(sqlite3_stmt* statement, const RowShape& shape)
      : fStatement(statement), fShape(shape), fColumnCount(sqlite3_column_count(statement)) {}

  std::vector<int> Find() const {
    const bool isAlone = fShape.count == 1 && fShape.pieces[0].layout != nullptr;
    if (!isAlone) CheckCount();
    std::vector<int> columns;
    columns.reserve(static_cast<std::size_t>(fShape.columnCount));
    int begin = 0;
    for (const RowPiece* piece = fShape.pieces; piece != fShape.pieces + fShape.count; ++piece) {
      const int end = isAlone ? fColumnCount : begin + ColumnCountOf(*piece);
      if (piece->layout == nullptr) columns.push_back(begin);
      for (int i = 0; piece->layout != nullptr && i < piece->layout->count; ++i) {
        columns.push_back(ColumnNamed(Unquoted(piece->layout->fields[i].name), begin, end));
      }
      begin = end;
    }
    return columns;
  }

 private:
  [[noreturn]] void Throw(const std::string& message) const {
    throw Error(message, SQLITE_MISUSE, sqlite3_sql(fStatement));
  }

  void CheckCount() const {
    if (fColumnCount == fShape.columnCount) return;
    Throw("The statement yields " + std::to_string(fColumnCount) + (fColumnCount == 1 ? " column" : " columns") +
          ", and a row is made of " + std::to_string(fShape.columnCount) + ".");
  }

  bool IsNamed(int column, std::string_view name) const {
    const char* const other = sqlite3_column_name(fStatement, column);
    if (other == nullptr) throw std::bad_alloc();
    const auto size = static_cast<int>(name.size());
    return sqlite3_strnicmp(other, name.data(), size) == 0 && other[size] == '\0';
  }

  int ColumnNamed(std::string_view name, int begin, int end) const {
    int found = -1;
    for (int column = begin; column != end; ++column) {
      if (!IsNamed(column, name)) continue;
      if (found >= 0) Throw("The statement yields the column " + std::string(name) + " twice" + Among(begin, end));
      found = column;
    }
    if (found < 0) Throw("The statement yields no column " + std::string(name) + Among(begin, end));
    return found;
  }

  // Nothing where it is all of them.
  std::string Among(int begin, int end) const {
    if (begin == 0 && end == fColumnCount) return ".";
    return " among its columns " + std::to_string(begin + 1) + " to " + std::to_string(end) + ".";
  }

  sqlite3_stmt* fStatement;
  const RowShape& fShape;
  int fColumnCount;
};

bool IsInOrder(const std::vector<int>& columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i] != static_cast<int>(i)) return false;
  }
  return true;
}

// Not inlined: what guards the stack of a function that makes strings would cost each row.
[[gnu::noinline]] void FindNamesAnew(KeptStatement& kept, const RowShape& shape, [[maybe_unused]] int compilations) {
  kept.map.shape = nullptr;
  kept.map.columns = ColumnFinder(kept.statement, shape).Find();
  if (IsInOrder(kept.map.columns)) kept.map.columns.clear();
#ifdef SQLITE_STMTSTATUS_REPREPARE
  kept.map.shape = &shape;
  kept.map.compilations = compilations;
#else
    // The engine does not count it, and is taken to have done so each time.
#endif
}

// A part of what reads row after row, and so without a call.
inline void FindNames(KeptStatement& kept, const RowShape& shape) {
  const int compilations = Compilations(kept.statement);
  const bool isFound = kept.map.shape == &shape && kept.map.compilations == compilations;
  if (!isFound) FindNamesAnew(kept, shape, compilations);
}

// Scalars take their columns as they come.
inline void FindColumns(KeptStatement& kept, const RowShape& shape) {
  const bool isFound = !shape.isNamed && sqlite3_column_count(kept.statement) == shape.columnCount;
  if (!isFound) FindNames(kept, shape);
}

inline void FindOrReset(KeptStatement& kept, const RowShape& shape) {
  try {
    FindColumns(kept, shape);
  } catch (...) {
    kept.Reset();
    throw;
  }
}

// The columns of a row, one after the other.
class ColumnsOfRow {
 public:
  ColumnsOfRow(sqlite3_stmt* statement, const int* columns) : fStatement(statement), fColumns(columns) {}

  int Next() { return At(fNext++); }
  bool AreNull(int count) const {
    for (int i = 0; i < count; ++i) {
      if (sqlite3_column_type(fStatement, At(fNext + i)) != SQLITE_NULL) return false;
    }
    return true;
  }
  void Skip(int count) { fNext += count; }

 private:
  int At(int index) const { return fColumns != nullptr ? fColumns[index] : index; }

  sqlite3_stmt* fStatement;
  const int* fColumns;
  int fNext = 0;
};

void LoadPiece(sqlite3_stmt* statement, ColumnsOfRow& columns, const RowPiece& piece, void* place) {
  if (piece.layout == nullptr) {
    LoadField(statement, columns.Next(), *piece.scalar, place);
    return;
  }
  const RecordLayout& layout = *piece.layout;
  if (piece.emplace != nullptr) {
    place = piece.emplace(place, !columns.AreNull(layout.count));
    if (place == nullptr) {
      columns.Skip(layout.count);
      return;
    }
  }
  for (const FieldEntry* field = layout.fields; field != layout.fields + layout.count; ++field) {
    LoadField(statement, columns.Next(), *field, place);
  }
}

void LoadPieces(const KeptStatement& kept, const RowShape& shape, bool areMapped, void* const* places) {
  ColumnsOfRow columns(kept.statement, areMapped ? kept.map.columns.data() : nullptr);
  for (int i = 0; i < shape.count; ++i) LoadPiece(kept.statement, columns, shape.pieces[i], places[i]);
}

// Whether the columns of the result have another order than what a row is made of.
inline bool AreMapped(const KeptStatement& kept, const RowShape* shape) {
  return shape != nullptr && shape->isNamed && !kept.map.columns.empty();
}

// Reads the row on which the statement stands.
inline void LoadOrReset(KeptStatement& kept, const RowShape* shape, const RecordLayout* only, void* const* places) {
  try {
    const bool areMapped = AreMapped(kept, shape);
    if (areMapped || only == nullptr) return LoadPieces(kept, *shape, areMapped, places);
    LoadRecord(kept.statement, *only, places[0]);
  } catch (...) {
    kept.Reset();
    throw;
  }
}

inline bool StepFirst(KeptStatement& kept, const RowShape* shape) {
  if (kept.statement == nullptr) ThrowLetGo(kept);
  if (kept.isUsed) kept.Reset();
  const bool isThere = StepOnce(kept);
  if (shape != nullptr) FindOrReset(kept, *shape);
  return isThere;
}

[[noreturn]] void ThrowNotOneRow(const KeptStatement& kept, const char* message) {
  throw Error(message, SQLITE_MISUSE, kept.Sql());
}

}  // namespace

RowReader::RowReader(Lease&& lease, const RowShape& shape)
    : fLease(std::move(lease)), fShape(&shape), fOnly(shape.only) {
  KeptStatement& kept = fLease.Kept();
  // What was found before is looked at again when it has run, and so is what an old statement yields: it may have to
  // compile itself anew. One that writes cannot wait for that.
  const bool isKnown = kept.map.shape == &shape || (kept.isOld && !kept.isWriting);
  if (!isKnown) FindColumns(kept, shape);
}

RowReader::RowReader(Lease&& lease, const RecordLayout& layout) noexcept : fLease(std::move(lease)), fOnly(&layout) {}

bool RowReader::First() { return StepFirst(fLease.Kept(), fShape); }

bool RowReader::LoadFirst(void* const* places) {
  KeptStatement& kept = fLease.Kept();
  if (!StepFirst(kept, fShape)) return false;
  LoadOrReset(kept, fShape, fOnly, places);
  return true;
}

bool RowReader::LoadFirstAndFinish(void* const* places) {
  KeptStatement& kept = fLease.Kept();
  const bool isThere = StepFirst(kept, fShape);
  if (isThere) LoadOrReset(kept, fShape, fOnly, places);
  if (kept.isWriting) Finish();
  return isThere;
}

void RowReader::LoadOnly(void* const* places) {
  KeptStatement& kept = fLease.Kept();
  if (!StepFirst(kept, fShape)) ThrowNotOneRow(kept, "The query yields no row.");
  LoadOrReset(kept, fShape, fOnly, places);
  if (Next()) ThrowNotOneRow(kept, "The query yields more than one row.");
}

bool RowReader::Next() {
  KeptStatement& kept = fLease.Kept();
  // To step one that is not running would run it anew.
  if (kept.isRunning) return StepOnce(kept);
  fLease.Statement();
  return false;
}

bool RowReader::LoadNext(void* const* places) {
  KeptStatement& kept = fLease.Kept();
  if (!kept.isRunning) return Next();
  if (!StepOnce(kept)) return false;
  LoadOrReset(kept, fShape, fOnly, places);
  return true;
}

void RowReader::LoadAll(void* rows, void (*append)(void* rows, void** places), void** places) {
  for (bool isThere = First(); isThere; isThere = Next()) {
    append(rows, places);
    LoadOrReset(fLease.Kept(), fShape, fOnly, places);
  }
}

void RowReader::Load(void* const* places) { LoadOrReset(fLease.Kept(), fShape, fOnly, places); }

void RowReader::Finish() {
  while (Next()) {
  }
}

}  // namespace sqldb::kit::detail
