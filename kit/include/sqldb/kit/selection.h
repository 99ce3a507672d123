#ifndef SQLDB_KIT_SELECTION_H
#define SQLDB_KIT_SELECTION_H

// Rows of a table, as a range of records:
//
//   for (const Part& part : parts.Select(price < 1.0).OrderBy(name).Limit(10)) Use(part);
//   std::vector<Part> cheap = parts.Select(price < 1.0).All();

#include <cstdint>
#include <optional>
#include <vector>

#include "sqldb/kit/order.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/table_handle.h"
#include "sqldb/kit/term.h"

namespace sqldb::kit {

/// Which rows of a table, and in which order: a value, which has run nothing yet. Each begin(), First, One, All, Count
/// and Has runs a query. Its term, its orders and their values are its own.
///
/// A row is read when the iterator comes to it, into the same object: copy what is to stay. Until then the query stands
/// on a row, so that other connections may have to wait; in WAL mode a write of this connection may fail with
/// SQLITE_BUSY_SNAPSHOT. All takes all rows at once.
template <typename Record>
class Selection {
 public:
  /// Of a record.
  using value_type = Record;
  /// An input iterator, in C++20 too.
  using iterator = detail::RowIterator<Record>;
  /// The same: the records of a selection are not to be changed.
  using const_iterator = iterator;

  /// See Table::Select.
  Selection(const detail::TableHandle& ofTable, const Term& condition) : fTable(ofTable), fWanted(condition.Parts()) {}

  /// Orders by a column or an Sql, ascending, after the orders given before.
  template <typename A>
  Selection OrderBy(const A& expression) const {
    return OrderBy(Ascending(expression));
  }
  /// Orders by `order`, after the orders given before.
  Selection OrderBy(const Order& order) const {
    Selection ordered = *this;
    ordered.fWanted.AddOrder(order.Parts());
    return ordered;
  }
  /// At most `limit` rows; a negative number is no limit.
  Selection Limit(std::int64_t limit) const {
    Selection limited = *this;
    limited.fWanted.limit = limit;
    return limited;
  }
  /// Passes over the first `offset` rows.
  Selection Offset(std::int64_t offset) const {
    Selection later = *this;
    later.fWanted.offset = offset;
    return later;
  }
  /// Of records that are the same in all fields only one.
  Selection Distinct() const {
    Selection distinct = *this;
    distinct.fWanted.isDistinct = true;
    return distinct;
  }

  /// Runs the query and reads its first row. Throws Error, here and while rows are read, and what a Type throws; the
  /// iterator is then at the end. Iterators stay valid when the selection ends.
  iterator begin() const { return iterator(Reader(detail::Values::kTemporary)); }
  /// Behind the last row.
  iterator end() const { return iterator(); }

  /// The first row; none if there is no row.
  std::optional<Record> First() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadFirst<Record>(reader);
  }
  /// The only row. Throws Error if there is none, or more than one.
  Record One() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadOne<Record>(reader);
  }
  /// All rows, in order.
  std::vector<Record> All() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadAll<Record>(reader);
  }
  /// How many rows there are, with regard to limit, offset and Distinct.
  std::int64_t Count() const { return fTable.CountRows(fWanted); }

 private:
  detail::RowReader Reader(detail::Values lifetime) const {
    return detail::RowReader(fTable.Select(fWanted, lifetime), detail::ShapeOf<Record>(),
                             detail::ColumnOrder::kAsWritten);
  }

  detail::TableHandle fTable;
  detail::RowsWanted fWanted;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_SELECTION_H
