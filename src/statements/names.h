#ifndef SQLDB_SRC_STATEMENTS_NAMES_H
#define SQLDB_SRC_STATEMENTS_NAMES_H

#include <ostream>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "sqldb/column.h"

namespace sqldb {

// Writes the columns' names, a blank before each and a comma between two.
inline void PrintNames(std::ostream& out, const std::vector<boost::shared_ptr<SQLColumnBase>>& columns) {
  const char* separator = " ";
  for (const auto& column : columns) {
    out << separator << column->fName;
    separator = ", ";
  }
}

}  // namespace sqldb

#endif  // SQLDB_SRC_STATEMENTS_NAMES_H
