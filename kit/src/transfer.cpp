#include "sqldb/kit/transfer.h"

namespace sqldb::kit::detail {

void LoadInt(sqlite3_stmt* statement, int column, void* value) { LoadAny<int>(statement, column, value); }

void LoadInt64(sqlite3_stmt* statement, int column, void* value) { LoadAny<std::int64_t>(statement, column, value); }

void LoadDouble(sqlite3_stmt* statement, int column, void* value) { LoadAny<double>(statement, column, value); }

void LoadString(sqlite3_stmt* statement, int column, void* value) { LoadAny<std::string>(statement, column, value); }

void LoadOptionalString(sqlite3_stmt* statement, int column, void* value) {
  LoadAny<std::optional<std::string>>(statement, column, value);
}

void BindInt(const Target& target, const void* value) { BindAny<int>(target, value); }

void BindInt64(const Target& target, const void* value) { BindAny<std::int64_t>(target, value); }

void BindString(const Target& target, const void* value) { BindAny<std::string>(target, value); }

void BindOptionalString(const Target& target, const void* value) { BindAny<std::optional<std::string>>(target, value); }

}  // namespace sqldb::kit::detail
