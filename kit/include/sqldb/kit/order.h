#ifndef SQLDB_KIT_ORDER_H
#define SQLDB_KIT_ORDER_H

// The order of the rows of a selection, entry by entry:
//
//   parts.Select().OrderBy(Descending(price)).OrderBy(name)
//
// The first entry decides; each further one decides between rows that are alike in those before it. Rows that are alike
// in all entries come as SQLite finds them, which may differ from one call to the next: who reads page by page ends the
// order with the key.

#include "sqldb/kit/operand.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit {

/// One entry of an order, which Ascending and Descending make. A value: copies are the same entry. It keeps copies of
/// the values of an Sql, and belongs to no table. An order that a user chooses is one of several:
///
///     parts.Select().OrderBy(byPrice ? Descending(price) : Ascending(name)).All();
class Ordering {
 public:
  /// For the kit.
  const detail::Piece& Parts() const { return fParts; }

 private:
  template <typename A>
  friend Ordering Ascending(const A& expression);
  template <typename A>
  friend Ordering Descending(const A& expression);
  Ordering() = default;

  detail::Piece fParts;
};

/// From the smallest value to the largest, NULL first. `expression` is a column or an Sql. Texts are ordered by the
/// collation of their column, by their bytes unless that has one.
template <typename A>
Ordering Ascending(const A& expression) {
  detail::RequireExpression<A>();
  Ordering order;
  detail::Operand<A>::Add(order.fParts, expression);
  return order;
}
/// The other way round: from the largest value to the smallest, NULL last. An index serves both directions.
template <typename A>
Ordering Descending(const A& expression) {
  detail::RequireExpression<A>();
  Ordering order;
  detail::Operand<A>::Add(order.fParts, expression);
  order.fParts.AddStatic(" DESC");
  return order;
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_ORDER_H
