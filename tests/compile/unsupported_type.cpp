#include "sqldb/column.h"

#ifdef MENDED
template <>
struct ColumnTraits<long double> {
  static std::string SQLColumnTypeString() { return "BLOB"; }
};
#endif

using WideColumn = sqldb::SQLColumnClass<long double, sizeof(long double), ColumnTraits<long double>>;

template <>
inline void WideColumn::AssignTo(void*, sqlite3_stmt*, int) const {}

boost::shared_ptr<sqldb::SQLColumnBase> MakeWide() {
  return boost::shared_ptr<sqldb::SQLColumnBase>(new WideColumn(nullptr, "wide", true, false, false, ""));
}
