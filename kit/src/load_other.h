#ifndef SQLDB_KIT_SRC_LOAD_OTHER_H
#define SQLDB_KIT_SRC_LOAD_OTHER_H

#include <sqlite3.h>

namespace sqldb::kit::detail {

// LoadAny, not to be inlined into what is called for each column of each row.
template <typename T>
void LoadOther(sqlite3_stmt* statement, int column, void* value);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_LOAD_OTHER_H
