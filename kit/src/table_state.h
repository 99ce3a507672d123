#ifndef SQLDB_KIT_SRC_TABLE_STATE_H
#define SQLDB_KIT_SRC_TABLE_STATE_H

// The tables that a connection knows, with the texts of their statements and a place for each statement whose text is
// always the same.

#include <cstddef>
#include <string>
#include <string_view>

#include "sqldb/kit/record.h"
#include "statement_store.h"

namespace sqldb::kit::detail {

// One table, as one struct describes it.
struct TableState {
  // Statements with a text that is always the same.
  enum Fixed { kFind, kInsert, kInsertOrIgnore, kUpsert, kReplace, kUpdate, kDelete, kFixedCount };

  TableState(const RecordLayout& of, std::string_view called) : layout(of), name(called) {}
  TableState(const TableState&) = delete;
  TableState& operator=(const TableState&) = delete;

  // Throws Error if this SQLite is too old for it.
  std::string Sql(Fixed which) const;
  std::string CreateSql(bool onlyIfMissing) const;
  // "SELECT id, name FROM parts".
  std::string SelectSql(bool isDistinct) const;
  // Does not compile if a column is missing: "SELECT parts.id, parts.name FROM parts". SQLite takes a quoted name that
  // is none for a text, unless it is qualified.
  std::string CheckSql() const;

  const RecordLayout& layout;
  const std::string name;
  KeptStatement* fixed[kFixedCount] = {};
  // How many handles there are.
  std::size_t users = 0;
  TableState* next = nullptr;
};

// Those of one connection. A table without handles stays for the next one, unless many others have come since.
class TableStates {
 public:
  explicit TableStates(StatementStore& statements) : fStatements(statements) {}
  ~TableStates();
  TableStates(const TableStates&) = delete;
  TableStates& operator=(const TableStates&) = delete;

  // One user more.
  TableState& Use(const RecordLayout& layout, std::string_view name);
  void Release(TableState& state) noexcept;

 private:
  static constexpr std::size_t kMostIdle = 64;

  TableState*& Link(const TableState& state) noexcept;
  void MoveToFront(TableState& state) noexcept;
  void DiscardOldestIdle() noexcept;

  StatementStore& fStatements;
  // From the one that was last given a handle, or lost its last one.
  TableState* fFirst = nullptr;
  std::size_t fIdle = 0;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_TABLE_STATE_H
