#ifndef SQLDB_SRC_TEXT_STREAM_H
#define SQLDB_SRC_TEXT_STREAM_H

#include <locale>
#include <ostream>
#include <sstream>
#include <string>

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

  // The finished text. Throws if any of it was lost, even where a term caught the stream's exception and went on.
  std::string Text() {
    MakeExact(*this);
    return str();
  }
};

}  // namespace sqldb

#endif  // SQLDB_SRC_TEXT_STREAM_H
