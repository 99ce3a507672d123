#ifndef SQLDB_TEXT_STREAM_H
#define SQLDB_TEXT_STREAM_H

#include <locale>
#include <ostream>
#include <sstream>

namespace sqldb {

// Makes `stream` fit for SQL. The classic locale keeps a digit-grouping global locale out of the numbers ("LIMIT
// 1,000"). And a stream that swallows a failure goes quiet, so that a delete would be cut off before its WHERE and
// remove every row: this one throws.
inline void MakeExact(std::ostream& stream) {
  stream.imbue(std::locale::classic());
  stream.exceptions(std::ios::badbit | std::ios::failbit);
}

// The stream in which a statement's text is built.
class TextStream : public std::ostringstream {
 public:
  TextStream() { MakeExact(*this); }
};

}  // namespace sqldb

#endif  // SQLDB_TEXT_STREAM_H
