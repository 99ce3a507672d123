#ifndef SQLDB_KIT_SRC_VARYING_STATEMENT_H
#define SQLDB_KIT_SRC_VARYING_STATEMENT_H

// The statements of one table whose text depends on a term, an order or assignments. They are found again by the tokens
// of these, without a text being written.

#include <string>
#include <string_view>

#include "connection.h"
#include "piece_sql.h"
#include "sqldb/kit/piece.h"
#include "table_state.h"

namespace sqldb::kit::detail {

// What such a statement does.
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

// A text in one part, or in two: the term and the order, or the assignments and the term.
struct Parts {
  const Piece& first;
  // Null for none.
  const Piece* second = nullptr;
};

// Takes and compiles one of them.
class VaryingStatement {
 public:
  // REQUIRES: all of them, and what the parts refer to, outlive the object.
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
  static std::string_view AsKey(const Words& text) {
    return std::string_view(reinterpret_cast<const char*>(text.begin()), text.Size() * sizeof(std::uint64_t));
  }
  StatementKey Key() const {
    StatementKey key{AsKey(fParts.first.Text()), &fTable, fKind};
    if (fParts.second != nullptr) key.secondPart = AsKey(fParts.second->Text());
    return key;
  }
  static int BindPart(KeptStatement& lent, int first, const Piece& part, Words& kept, Values lifetime) {
    const bool isLasting = lifetime == Values::kLasting;
    return BindValues(lent.statement, first, isLasting ? part.Values() : kept = part.Values());
  }

  KeptStatement& Compile(const StatementKey& key);
  std::size_t ValueCount() const;
  std::string Sql(bool asLiterals) const;
  std::string SelectSql(std::string_view term, std::string_view order) const;

  Connection& fConnection;
  const TableState& fTable;
  const int fKind;
  const Parts fParts;
  // Instead of parameters.
  bool fHasLiterals = false;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_VARYING_STATEMENT_H
