#include "sqldb/kit/term.h"

#include <ostream>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "piece_sql.h"
#include "sqldb/kit/error.h"
#include "sqldb/term.h"

namespace sqldb::kit {

namespace {

// A condition that is printed as it stands.
class TextTerm : public SQLTermBase {
 public:
  explicit TextTerm(const detail::Piece& parts) { detail::WriteLiterals(fText, parts.Text(), parts.Values()); }

  std::ostream& Print(std::ostream& out) const override { return out << ' ' << fText; }
  bool NotEmpty() const override { return true; }

 private:
  std::string fText;
};

detail::Piece GroupOf(const detail::Piece& piece) {
  detail::Piece group;
  group.AddGroup(piece);
  return group;
}

}  // namespace

namespace detail {

void ThisMemberIsNotDescribed() { throw Error("The member is not in the description of its struct.", SQLITE_MISUSE); }

namespace {

// A literal: with a parameter no index would serve.
std::string EscapeClause(char escape) {
  const auto byte = static_cast<unsigned char>(escape);
  if (byte == 0 || byte >= 0x80) throw Error("The escape of LIKE is one ASCII character.", SQLITE_MISUSE);
  return std::string(" ESCAPE '").append(escape == '\'' ? 2 : 1, escape) + "'";
}

}  // namespace

void AddLike(Piece& expression, std::string_view pattern, std::optional<char> escape) {
  if (pattern.find('\0') != std::string_view::npos) {
    throw Error("A pattern of LIKE cannot have a zero byte.", SQLITE_MISUSE);
  }
  // No index serves a pattern that begins so. SQLite need not compile the statement anew for each one if the parameter
  // does not stand alone.
  const bool isForAnIndex = !pattern.empty() && pattern[0] != '%' && pattern[0] != '_';
  expression.AddStatic(isForAnIndex ? " LIKE " : " LIKE (\'\' || ");
  expression.AddValue(ArgumentOf(pattern));
  if (!isForAnIndex) expression.AddStatic(")");
  if (escape) expression.AddText(EscapeClause(*escape));
}

}  // namespace detail

boost::shared_ptr<SQLTermBase> Term::Core() const {
  if (IsEmpty()) return SQLEmptyTerm::EmptyTerm;
  return boost::make_shared<TextTerm>(fParts);
}

// A row of operands goes on; one that has operands of another kind is in parentheses.
inline bool Term::IsOtherRow(Shape shape) const { return fShape > Shape::kNot && fShape != shape; }

inline Term::Term(const Term& first, Shape shape)
    : fParts(first.IsOtherRow(shape) ? GroupOf(first.fParts) : first.fParts), fShape(shape) {}

Term Term::Combine(const Term& a, const Term& b, Shape shape) {
  if (a.IsEmpty()) return b;
  if (b.IsEmpty()) return a;
  Term both(a, shape);
  both.fParts.Add(shape == Shape::kAnd ? detail::Token::kAnd : detail::Token::kOr);
  b.IsOtherRow(shape) ? both.fParts.AddGroup(b.fParts) : both.fParts.Add(b.fParts);
  return both;
}

Term Term::Negate(const Term& a) {
  if (a.IsEmpty()) return a;
  Term negated;
  if (a.fShape == Shape::kNot) {
    negated.fParts = a.fParts.InnerGroup();
    negated.fShape = a.fNegated;
    return negated;
  }
  negated.fParts.AddStatic("NOT ");
  negated.fParts.AddGroup(a.fParts);
  negated.fShape = Shape::kNot;
  negated.fNegated = a.fShape;
  return negated;
}

Term EveryRow() { return Where("1"); }

std::string EscapedForLike(std::string_view text, char escape) {
  std::string escaped;
  for (const char character : text) {
    if (character == '%' || character == '_' || character == escape) escaped += escape;
    escaped += character;
  }
  return escaped;
}

}  // namespace sqldb::kit
