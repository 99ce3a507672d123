#ifndef SQLDB_VALUE_H
#define SQLDB_VALUE_H

// A value is what a statement writes into one column. Values are the application's own: derive from SQLValueBase and
// override Print, and BindingOpportunity for a value that is bound.
//
//   class BoundText : public sqldb::SQLValueBase {
//    public:
//     explicit BoundText(std::string text) : fText(std::move(text)) { RememberParameterName(); }
//     std::ostream& Print(std::ostream& out) const override { return out << GetParameterName(); }
//     void BindingOpportunity(sqlite3_stmt* statement) const override {
//       const int index = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
//       if (index != 0) sqlite3_bind_text(statement, index, fText.data(), int(fText.size()), SQLITE_TRANSIENT);
//     }
//    private:
//     std::string fText;
//   };

#include <cstdint>
#include <iosfwd>
#include <string>

#include <boost/shared_ptr.hpp>

#include "sqldb/export.h"

struct sqlite3_stmt;

namespace sqldb {

/// One value of an insert, replace or update. May be shared between statements. A copy has the same parameter name.
class SQLDB_EXPORT SQLValueBase {
 public:
  /// A value without a parameter name.
  SQLValueBase();
  virtual ~SQLValueBase();

  /// Writes the SQL that stands for the value, its parameter name or a literal, and returns `stream`. The base writes
  /// nothing. In an update the text must stand on its own: update values are never bound, and SQLite reads an unbound
  /// parameter as NULL.
  virtual std::ostream& Print(std::ostream& stream) const;

  /// Binds the value to the parameter named GetParameterName(). Called once per execution of an insert or replace,
  /// for each of its values in order, and also for any further statement of the text and for a null one. The base
  /// does nothing.
  virtual void BindingOpportunity(sqlite3_stmt* statement) const;

  /// Draws the value's parameter number from the process-wide sequence: one that no other value, of any thread, has
  /// drawn since the sequence began or wrapped. A later call draws a new one.
  /// REQUIRES: called before the statement's text is built, by a value that prints its name.
  void RememberParameterName();

  /// ":" and the number in decimal; empty while there is none.
  std::string GetParameterName() const;

  /// The parameter number; 0 for none.
  std::int32_t fParameterNumber = 0;

  /// The number drawn last, by any value of the process; 0 before the first. Wraps after 2,147,483,647 to the smallest
  /// negative number, and SQLite refuses the names of negative numbers; 0 is never drawn. Advances atomically.
  /// REQUIRES: read and assigned only while no other thread draws.
  static std::int32_t gLastNamedParameterSequence;
};

}  // namespace sqldb

/// Writes a blank and then the value, and returns what its Print returns: the right-hand side of an update.
SQLDB_EXPORT std::ostream& AddValueToUpdate(std::ostream& stream, boost::shared_ptr<sqldb::SQLValueBase> value);

#endif  // SQLDB_VALUE_H
