#ifndef SQLDB_KIT_VALUES_H
#define SQLDB_KIT_VALUES_H

// The values of statements: bound to a parameter, printed as a literal, NULL, or an SQL expression.
//
// An insert or replace takes any of them. An update binds nothing, so a bound value would be NULL there: it takes
// literals, NULL and expressions.

#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include <sqlite3.h>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "sqldb/kit/types.h"
#include "sqldb/value.h"

namespace sqldb::kit {

/// What an insert, a replace or an update takes: Bound, Literal, Null and Expression make one.
using Value = boost::shared_ptr<SQLValueBase>;

/// An SQL text that the program wrote: it goes into statements as it stands, so no part of it may be input.
struct TrustedSql {
  /// An expression, or a condition.
  std::string text;
};

/// A value bound to a parameter of its own, which is drawn once. Its content may be set anew between executions.
template <typename T>
class BoundValue : public SQLValueBase {
 public:
  /// Draws the parameter.
  explicit BoundValue(T value) : fValue(std::move(value)) { RememberParameterName(); }

  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }

  /// Skips a statement that does not have the parameter. Throws std::runtime_error with SQLite's description of the
  /// code if it refuses the value, one that is too long for instance.
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    const int parameter = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
    if (parameter == 0) return;
    const int result = Type<T>::Bind(statement, parameter, fValue);
    if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(result));
  }

  /// What is bound.
  T fValue;
};

/// A value that prints `text`.
class PrintedValue : public SQLValueBase {
 public:
  /// REQUIRES: `text` is SQL, never input.
  explicit PrintedValue(std::string text) : fText(std::move(text)) {}

  std::ostream& Print(std::ostream& stream) const override { return stream << fText; }

 private:
  std::string fText;
};

/// `value`, bound to a parameter. For an insert or a replace.
template <typename T>
boost::shared_ptr<BoundValue<T>> Bound(T value) {
  return boost::make_shared<BoundValue<T>>(std::move(value));
}
/// Characters up to the zero bytes at their end: Bound("text"), or an array that is full.
template <std::size_t N>
boost::shared_ptr<BoundValue<std::string>> Bound(const char (&text)[N]) {
  return Bound(std::string(detail::Unfilled(text, N)));
}

/// The literal that evaluates to exactly `value`; throws what Type<T>::Literal throws. Characters count up to the zero
/// bytes at their end, as in Bound.
template <typename T>
Value Literal(const T& value) {
  return boost::make_shared<PrintedValue>(Type<T>::Literal(value));
}

/// NULL.
inline Value Null() { return boost::make_shared<PrintedValue>("NULL"); }

/// What the expression yields.
inline Value Expression(TrustedSql sql) { return boost::make_shared<PrintedValue>("(" + std::move(sql.text) + ")"); }

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_VALUES_H
