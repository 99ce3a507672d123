#include "varying_statement.h"

#include <sqlite3.h>

namespace sqldb::kit::detail {

namespace {

// In bytes. A statement that is larger is compiled for each use: it has so many values that it hardly comes again.
constexpr std::size_t kLargestKept = 8192;

void AddWhere(std::string& sql, std::string_view term) {
  if (!term.empty()) sql.append(" WHERE ").append(term);
}

std::string Written(const Piece* piece, bool asLiterals) {
  std::string sql;
  if (piece == nullptr) return sql;
  asLiterals ? WriteLiterals(sql, piece->Text(), piece->Values()) : WriteSql(sql, piece->Text());
  return sql;
}

}  // namespace

KeptStatement& VaryingStatement::Compile(const StatementKey& key) {
  sqlite3* const handle = fConnection.Handle();
  const Working working(fConnection);
  StatementStore& statements = fConnection.fStatements;
  // The limit and the offset beside them.
  constexpr std::size_t kOthers = 2;
  const auto most = static_cast<std::size_t>(sqlite3_limit(handle, SQLITE_LIMIT_VARIABLE_NUMBER, -1));
  fHasLiterals = ValueCount() + kOthers > most;
  if (fHasLiterals) return statements.CompileOnce(handle, Sql(true), Sql(false));
  const bool isKept = key.text.size() + key.secondPart.size() <= kLargestKept;
  return isKept ? statements.Compile(handle, key, Sql(false)) : statements.CompileOnce(handle, Sql(false));
}

std::size_t VaryingStatement::ValueCount() const {
  return fParts.first.ValueCount() + (fParts.second != nullptr ? fParts.second->ValueCount() : 0);
}

std::string VaryingStatement::Sql(bool asLiterals) const {
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

std::string VaryingStatement::SelectSql(std::string_view term, std::string_view order) const {
  std::string sql = fTable.SelectSql((fKind & kDistinct) != 0);
  AddWhere(sql, term);
  if (!order.empty()) sql.append(" ORDER BY ").append(order);
  if ((fKind & kLimited) != 0) sql += " LIMIT ? OFFSET ?";
  const bool isCount = (fKind & ~(kDistinct | kLimited)) == kCountRows;
  return isCount ? "SELECT COUNT(*) FROM (" + sql + ")" : sql;
}

}  // namespace sqldb::kit::detail
