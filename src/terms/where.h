#ifndef SQLDB_SRC_TERMS_WHERE_H
#define SQLDB_SRC_TERMS_WHERE_H

#include <ostream>

#include <boost/shared_ptr.hpp>

#include "sqldb/term.h"

namespace sqldb {

// Writes " WHERE" and the term, which brings its own leading blank; nothing for a null or empty term.
inline void PrintWhere(std::ostream& out, const boost::shared_ptr<SQLTermBase>& term) {
  if (!term || !term->NotEmpty()) return;
  out << " WHERE";
  term->Print(out);
}

}  // namespace sqldb

#endif  // SQLDB_SRC_TERMS_WHERE_H
