#include "layers/kit_wide.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>

#include "sqldb/kit/query.h"

namespace bench {

namespace {

using sqldb::kit::Database;

template <std::size_t>
using Number = std::uint32_t;

template <std::size_t>
Number<0> One() {
  return 1;
}

template <std::size_t... I>
Work InsertBy(Database& database, std::index_sequence<I...>) {
  std::string marks = "?";
  for (std::size_t i = 1; i < sizeof...(I); ++i) marks += ",?";
  return [&database, sql = "INSERT INTO wide VALUES (" + marks + ")"](std::int64_t times) {
    for (std::int64_t i = 0; i < times; ++i) database.Execute(sql, One<I>()...);
    return std::int64_t{0};
  };
}

std::int64_t Last(std::uint32_t row) { return row; }
template <typename... T>
std::int64_t Last(const std::tuple<T...>& row) {
  return std::get<sizeof...(T) - 1>(row);
}

template <std::size_t... I>
Work ScanBy(Database& database, std::index_sequence<I...>) {
  return [&database](std::int64_t times) {
    std::int64_t sum = 0;
    for (std::int64_t i = 0; i < times; ++i) {
      for (const auto& row : database.Query<Number<I>...>("SELECT * FROM wide")) sum += Last(row);
    }
    return sum;
  };
}

template <typename Make>
Work ForColumns(int columns, Make make) {
  switch (columns) {
    case 1:
      return make(std::make_index_sequence<1>());
    case 2:
      return make(std::make_index_sequence<2>());
    case 5:
      return make(std::make_index_sequence<5>());
    case 10:
      return make(std::make_index_sequence<10>());
    case 20:
      return make(std::make_index_sequence<20>());
    case 50:
      return make(std::make_index_sequence<50>());
    case 100:
      return make(std::make_index_sequence<100>());
    case 200:
      return make(std::make_index_sequence<200>());
    default:
      Fail("a number of columns that is no type");
  }
}

}  // namespace

Work InsertWideRows(Database& database, int columns) {
  return ForColumns(columns, [&](auto i) { return InsertBy(database, i); });
}

Work ScanWideRows(Database& database, int columns) {
  return ForColumns(columns, [&](auto i) { return ScanBy(database, i); });
}

}  // namespace bench
