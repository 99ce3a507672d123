#ifndef CATALOG_VALUES_H
#define CATALOG_VALUES_H

// What the catalogue writes into columns. Inserts and replaces bind their values; an update never does, so the value of
// an update prints itself in full.
//
// A bound value keeps its parameter's name for life. Setting a new content and performing the same statement again
// therefore costs no new values.

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "sqldb/value.h"

namespace catalog {

class BoundInteger : public sqldb::SQLValueBase {
 public:
  BoundInteger() { RememberParameterName(); }

  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override;

  std::int64_t fValue = 0;
};

/// Any bytes. REQUIRES: `fText` stays as it is while a statement runs that it is bound to.
class BoundText : public sqldb::SQLValueBase {
 public:
  BoundText() { RememberParameterName(); }

  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override;

  std::string fText;
};

class LiteralText : public sqldb::SQLValueBase {
 public:
  explicit LiteralText(std::string text) : fText(std::move(text)) {}

  std::ostream& Print(std::ostream& stream) const override;

 private:
  std::string fText;
};

}  // namespace catalog

#endif  // CATALOG_VALUES_H
