#ifndef SQLDB_SRC_TERMS_WHERE_H
#define SQLDB_SRC_TERMS_WHERE_H

#include <boost/shared_ptr.hpp>

#include "sqldb/term.h"
#include "text_stream.h"

namespace sqldb {

// Writes " WHERE" and the term, which brings its own leading blank; nothing for a null or empty term.
inline void PrintWhere(TextStream& text, const boost::shared_ptr<SQLTermBase>& term) {
  if (!term || !term->NotEmpty()) return;
  text.Add(" WHERE");
  term->Print(text);
}

}  // namespace sqldb

#endif  // SQLDB_SRC_TERMS_WHERE_H
