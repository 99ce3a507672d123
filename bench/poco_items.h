#ifndef SQLDB_BENCH_POCO_ITEMS_H
#define SQLDB_BENCH_POCO_ITEMS_H

#include <Poco/Data/Session.h>
#include <Poco/Data/Statement.h>
#include <Poco/Data/TypeHandler.h>

#include "items.h"

namespace bench {

// A connection of POCO Data, with the table, in a transaction.
class PocoItems {
 public:
  PocoItems();

  void Send(const char* sql);
  std::int64_t Changes() const { return sqlite3_total_changes64(fConnection); }

  Poco::Data::Session session;

 private:
  sqlite3* fConnection;
};

}  // namespace bench

// How POCO reads an Item, which is never bound.
template <>
class Poco::Data::TypeHandler<bench::Item> {
 public:
  static std::size_t size() { return 4; }
  static void extract(std::size_t position, bench::Item& item, const bench::Item& ifNull,
                      AbstractExtractor::Ptr extractor) {
    using Number = TypeHandler<std::uint32_t>;
    Number::extract(position, item.id, ifNull.id, extractor);
    Number::extract(position + 1, item.quantity, ifNull.quantity, extractor);
    Number::extract(position + 2, item.price, ifNull.price, extractor);
    Number::extract(position + 3, item.stock, ifNull.stock, extractor);
  }
  static void prepare(std::size_t position, const bench::Item& item, AbstractPreparator::Ptr preparator) {
    using Number = TypeHandler<std::uint32_t>;
    Number::prepare(position, item.id, preparator);
    Number::prepare(position + 1, item.quantity, preparator);
    Number::prepare(position + 2, item.price, preparator);
    Number::prepare(position + 3, item.stock, preparator);
  }
};

#endif  // SQLDB_BENCH_POCO_ITEMS_H
