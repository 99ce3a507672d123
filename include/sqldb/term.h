#ifndef SQLDB_TERM_H
#define SQLDB_TERM_H

// A term is the condition of a WHERE clause. Terms with content are the application's own: derive from SQLTermBase,
// override both operations, and begin the printed text with a blank, since none is written after " WHERE".
//
//   class PriceBelow : public sqldb::SQLTermBase {
//    public:
//     explicit PriceBelow(int cents) : fCents(cents) {}
//     std::ostream& Print(std::ostream& out) const override { return out << " price < " << fCents; }
//     bool NotEmpty() const override { return true; }
//    private:
//     int fCents;
//   };

#include <iosfwd>

#include <boost/shared_ptr.hpp>

#include "sqldb/export.h"

namespace sqldb {

/// The condition of a statement. One term may serve several statements at once.
class SQLDB_EXPORT SQLTermBase {
 public:
  virtual ~SQLTermBase();

  /// Writes the condition, a leading blank included, and returns `out`. The text is code: it is neither quoted nor
  /// put in parentheses. The base writes nothing. What it throws passes through, and nothing is sent.
  ///
  /// The stream is like new each time, in the classic locale, and throws on failure. Only what is stored in it by
  /// iword, pword or register_callback is still there in later texts of the table.
  virtual std::ostream& Print(std::ostream& out) const;

  /// True when there is something to print. A select or a delete does not print a term that says false. The base
  /// returns false.
  virtual bool NotEmpty() const;
};

/// The absence of a condition: every row. An update cannot use it, since it prints " WHERE" without asking.
class SQLDB_EXPORT SQLEmptyTerm : public SQLTermBase {
 public:
  ~SQLEmptyTerm() override;

  bool NotEmpty() const override;

  /// The one to pass wherever a term is expected. Made before the program's globals and released after them, in a
  /// static build too, unless those are given an init_priority.
  static boost::shared_ptr<SQLTermBase> EmptyTerm;
};

}  // namespace sqldb

#endif  // SQLDB_TERM_H
