#include "sqldb/column.h"

#include <cstring>

#include <sqlite3.h>

template <>
struct ColumnTraits<double> {
  static std::string SQLColumnTypeString() { return "REAL"; }
};

using RealColumn = sqldb::SQLColumnClass<double, sizeof(double), ColumnTraits<double>>;

#ifdef MENDED
template <>
inline void RealColumn::AssignTo(void* destination, sqlite3_stmt* statement, int columnIndex) const {
  const double value = sqlite3_column_double(statement, columnIndex);
  std::memcpy(destination, &value, sizeof value);
}
#endif

boost::shared_ptr<sqldb::SQLColumnBase> MakePrice() {
  return boost::shared_ptr<sqldb::SQLColumnBase>(new RealColumn(nullptr, "price", true, false, false, ""));
}
