#ifndef SQLDB_KIT_SRC_OPENING_H
#define SQLDB_KIT_SRC_OPENING_H

// How a file is opened, and made what the options say.

#include <string>

#include <boost/shared_ptr.hpp>

#include "connection.h"
#include "sqldb/kit/database.h"

namespace sqldb::kit::detail {

// Opens the file, and does nothing else. Throws Error, which names the file; nothing is then left open.
boost::shared_ptr<SQLDatabase> OpenFile(const std::string& path, const Options& options);

// Does what the options say. Throws Error, which names the file.
void SetUp(Connection& connection, const std::string& path, const Options& options);

// Throws Error unless the texts of the database are UTF-8. Others would be changed where they are not well-formed.
void CheckEncoding(Connection& connection);

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_OPENING_H
