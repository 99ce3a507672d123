#ifndef SQLDB_KIT_SRC_LIST_MODULE_H
#define SQLDB_KIT_SRC_LIST_MODULE_H

#include <sqlite3.h>

namespace sqldb::kit::detail {

// Gives the table-valued function list(?) to a connection, if the engine can hand a list to it. Throws Error.
void OfferLists(sqlite3* connection);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_LIST_MODULE_H
