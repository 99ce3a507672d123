#ifndef SQLDB_KIT_PIECE_H
#define SQLDB_KIT_PIECE_H

// What conditions, orders and assignments are made of: SQL as tokens, which name the program's columns by the address
// of their names, and the values of its parameters. To build it, and to find the statement that it was compiled to
// before, costs little; SQL is written only when there is none.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/words.h"

namespace sqldb::kit::detail {

/// What a token is; the low byte of its first word.
enum class Token : std::uint64_t {
  /// A value.
  kParameter,
  /// Between the operands of a row of them, all of which are the same.
  kAnd,
  kOr,
  /// Parentheses.
  kOpen,
  kClose,
  /// The address of SQL that stays.
  kStatic,
  /// The addresses of a qualifier and a name that stay.
  kQualified,
  /// The addresses of a name and of a comparison that stay, with a value on its right.
  kCompared,
  /// In the rest of the word the number of bytes, which follow.
  kText,
};

/// SQL with parameters, and their values. Copies are cheap, and may be used by different threads. Each Add appends;
/// what it throws, std::bad_alloc or what a Type throws, leaves an object that is only to be destroyed.
class SQLDB_EXPORT Piece {
 public:
  /// One that stands alone: a parenthesis, AND, OR.
  void Add(Token token) { fText.Add(static_cast<std::uint64_t>(token)); }
  /// REQUIRES: `sql` stays.
  void AddStatic(const char* sql);
  /// REQUIRES: both stay. The first may be null.
  void AddColumn(const char* qualifier, const char* name);
  /// All of another one, with its values.
  void Add(const Piece& piece);
  /// The same, in parentheses.
  void AddGroup(const Piece& piece);
  /// What is in the parentheses of an AddStatic followed by an AddGroup.
  Piece InnerGroup() const;
  /// SQL that is copied.
  void AddText(std::string_view sql);
  /// SQL that the program wrote, as one operand, with a value for each question mark. Throws Error if there are more or
  /// fewer values, or other parameters; the object is then only to be destroyed.
  void AddSql(std::string_view sql, const Argument* values, std::size_t count);
  /// A parameter with this value.
  void AddValue(const Argument& value);
  /// The same for the most frequent kinds, without a call for the type. AddReal throws ConversionError for NaN.
  void AddInteger(std::int64_t value);
  void AddReal(double value);
  /// A column, what it is compared by, and a value: the most frequent condition, at the cost of one call. REQUIRES:
  /// it is empty; `name` and `operation` stay.
  void AddComparison(const char* name, const char* operation, std::int64_t value);
  void AddComparison(const char* name, const char* operation, double value);

  /// Whether nothing has been added.
  bool IsEmpty() const noexcept { return fText.Size() == 0; }
  /// Its tokens, by which a statement that was compiled before is found.
  const Words& Text() const noexcept { return fText; }
  /// One after the other, each with its kind.
  const Words& Values() const noexcept { return fValues; }
  /// How many values, and so parameters, there are.
  std::size_t ValueCount() const noexcept { return fValueCount; }

 private:
  void AddComparison(const char* name, const char* operation, std::uint64_t kind, std::uint64_t value);

  Words fText;
  Words fValues;
  std::size_t fValueCount = 0;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_PIECE_H
