#ifndef SQLDB_SRC_STATEMENTS_NAMES_H
#define SQLDB_SRC_STATEMENTS_NAMES_H

#include <vector>

#include <boost/shared_ptr.hpp>

#include "sqldb/column.h"
#include "text_stream.h"

namespace sqldb {

// Writes the columns' names, a blank before each and a comma between two.
inline void PrintNames(TextStream& text, const std::vector<boost::shared_ptr<SQLColumnBase>>& columns) {
  const char* separator = " ";
  for (const auto& column : columns) {
    text.Add(separator).Add(column->fName);
    separator = ", ";
  }
}

}  // namespace sqldb

#endif  // SQLDB_SRC_STATEMENTS_NAMES_H
