#ifndef SQLDB_KIT_SELECTION_H
#define SQLDB_KIT_SELECTION_H

// Rows of a table, as a range of records:
//
//   for (const Part& part : parts.Select(price < 1.0).OrderBy(name).Limit(10)) Use(part);
//   std::vector<Part> cheap = parts.Select(price < 1.0).All();
//
// A page at a time, each behind the last row of the one before:
//
//   Term behind;  // empty for the first page
//   std::vector<Message> page = messages.Select(behind).OrderBy(day).OrderBy(id).Limit(20).All();
//   if (!page.empty()) behind = RowOf(day, id) > RowOf(page.back().day, page.back().id);
//
// Order of calls: Table::Select, what narrows and orders in any order, then as often as wanted a loop or one of First,
// One, All and Count.

#include <cstdint>
#include <optional>
#include <vector>

#include "sqldb/kit/order.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/table_handle.h"
#include "sqldb/kit/term.h"

namespace sqldb::kit {

/// Which rows of a table, and in which order: a value, which has run nothing yet. Each begin(), First, One, All and
/// Count runs a query of its own, which leaves others of the selection alone. Its term, its orders and their values are
/// its own, and it may outlive its table; every use after the end of the database throws Error. What narrows or orders
/// returns another selection, and leaves this one as it is.
///
/// Queries throw Error, among others if the table or one of its columns is not there; ConversionError, which names the
/// column, for a value that does not fit the member that it is read into; and what a Type throws.
///
/// A row is read when the iterator comes to it, into the same object: copy what is to stay. Until the loop is left, the
/// query stands on a row, so that other connections may have to wait; in WAL mode a write of this connection may fail
/// with SQLITE_BUSY_SNAPSHOT. Rows that are written to the table meanwhile may still come or not. All takes all rows at
/// once, and is for loops that write.
template <typename Record>
class Selection {
 public:
  /// What the table's struct is.
  using value_type = Record;
  /// An input iterator, in C++20 too: it goes through the rows once, from the first to the last. What it points to is
  /// valid until it is advanced.
  using iterator = detail::RowIterator<Record>;
  /// The same: the records of a selection are not to be changed.
  using const_iterator = iterator;

  /// For the kit; see Table::Select.
  Selection(const detail::TableHandle& ofTable, const Term& condition) : fWanted(ofTable, condition.Parts()) {}

  /// Orders by a column or an Sql, ascending, after the orders given before: those decide first. Without an order rows
  /// come as SQLite finds them. NULL comes first, texts as the collation of their column has it.
  template <typename A>
  Selection OrderBy(const A& expression) const {
    return OrderBy(Ascending(expression));
  }
  /// Orders by `order`, which Ascending and Descending make, after the orders given before.
  Selection OrderBy(const Ordering& order) const {
    Selection ordered = *this;
    ordered.fWanted.AddOrder(order.Parts());
    return ordered;
  }
  /// At most `limit` rows, of those behind the offset; 0 for none, a negative number for no limit. The last one given
  /// holds.
  Selection Limit(std::int64_t limit) const {
    Selection limited = *this;
    limited.fWanted.limit = limit;
    return limited;
  }
  /// Passes over the first `offset` rows, which costs as much as to read them; none if it is negative. The last one
  /// given holds.
  Selection Offset(std::int64_t offset) const {
    Selection later = *this;
    later.fWanted.offset = offset;
    return later;
  }
  /// Of records that are the same in all fields only one, as the collations of the columns compare them.
  Selection Distinct() const {
    Selection distinct = *this;
    distinct.fWanted.isDistinct = true;
    return distinct;
  }

  /// Runs the query and reads its first row. What is thrown, here and while rows are read, leaves the iterator at the
  /// end, and no query running. Iterators stay valid when the selection ends. A copy of one goes on together with it,
  /// and the query ends with the last of them, or behind the last row.
  iterator begin() const { return iterator(Reader(detail::Values::kTemporary)); }
  /// Behind the last row.
  iterator end() const { return iterator(); }

  /// The first row, in the order given; none if there is no row. Further ones are not looked for.
  std::optional<Record> First() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadFirst<Record>(reader);
  }
  /// The only row. Throws Error with the code 21 if there is none, or more than one.
  Record One() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadOne<Record>(reader);
  }
  /// All rows, in order; an empty vector if there is none.
  std::vector<Record> All() const {
    detail::RowReader reader = Reader(detail::Values::kLasting);
    return detail::ReadAll<Record>(reader);
  }
  /// How many rows there are, with regard to limit, offset and Distinct. None of them is read into a record.
  std::int64_t Count() const { return fWanted.Count(); }

 private:
  detail::RowReader Reader(detail::Values lifetime) const {
    return detail::RowReader(fWanted.Select(lifetime), detail::LayoutOf<Record>());
  }

  detail::RowsWanted fWanted;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_SELECTION_H
