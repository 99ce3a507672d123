#include "load_other.h"

#include "sqldb/kit/transfer.h"

namespace sqldb::kit::detail {

template <typename T>
void LoadOther(sqlite3_stmt* statement, int column, void* value) {
  LoadAny<T>(statement, column, value);
}

template void LoadOther<std::int64_t>(sqlite3_stmt* statement, int column, void* value);
template void LoadOther<double>(sqlite3_stmt* statement, int column, void* value);
template void LoadOther<std::string>(sqlite3_stmt* statement, int column, void* value);
template void LoadOther<std::optional<std::string>>(sqlite3_stmt* statement, int column, void* value);

}  // namespace sqldb::kit::detail
