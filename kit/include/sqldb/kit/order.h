#ifndef SQLDB_KIT_ORDER_H
#define SQLDB_KIT_ORDER_H

// The order of the rows of a selection, entry by entry:
//
//   parts.Select().OrderBy(Descending(price)).OrderBy(name)
//
// The first entry decides; each further one decides between rows that are alike in those before it.

#include "sqldb/kit/operand.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit {

/// One entry of an order, which Ascending and Descending make. A value: copies are the same entry.
class Order {
 public:
  /// For the kit.
  explicit Order(detail::Piece parts) : fParts(static_cast<detail::Piece&&>(parts)) {}
  /// The same.
  const detail::Piece& Parts() const { return fParts; }

 private:
  detail::Piece fParts;
};

/// From the smallest value to the largest, NULL first. `expression` is a column or an Sql. Texts are ordered by the
/// collation of their column, by their bytes unless that has one.
template <typename A>
Order Ascending(const A& expression) {
  detail::RequireExpression<A>();
  detail::Piece piece;
  detail::Operand<A>::Add(piece, expression);
  return Order(static_cast<detail::Piece&&>(piece));
}
/// The other way round: from the largest value to the smallest, NULL last.
template <typename A>
Order Descending(const A& expression) {
  detail::RequireExpression<A>();
  detail::Piece piece;
  detail::Operand<A>::Add(piece, expression);
  piece.AddStatic(" DESC");
  return Order(static_cast<detail::Piece&&>(piece));
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_ORDER_H
