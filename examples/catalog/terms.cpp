#include "terms.h"

#include <ostream>
#include <utility>

#include "literals.h"

namespace catalog {

namespace {

// "column operator literal".
class Comparison : public sqldb::SQLTermBase {
 public:
  Comparison(std::string left, const char* comparator, std::string right)
      : fLeft(std::move(left)), fComparator(comparator), fRight(std::move(right)) {}

  std::ostream& Print(std::ostream& out) const override {
    return out << " " << fLeft << " " << fComparator << " " << fRight;
  }
  bool NotEmpty() const override { return true; }

 private:
  std::string fLeft;
  const char* fComparator;
  std::string fRight;
};

// "instr(column, bytes)". LIKE would fold case and read "%" and "_" as wildcards; and on text, instr would look at
// characters, which not every name consists of.
class Occurrence : public sqldb::SQLTermBase {
 public:
  Occurrence(std::string column, const std::string& bytes) : fColumn(std::move(column)), fBytes(Quoted(bytes)) {}

  std::ostream& Print(std::ostream& out) const override {
    return out << " instr(CAST(" << fColumn << " AS BLOB), CAST(" << fBytes << " AS BLOB)) > 0";
  }
  bool NotEmpty() const override { return true; }

 private:
  std::string fColumn;
  std::string fBytes;
};

// "(left operator right)"; in parentheses, so that it may stand within another.
class Combination : public sqldb::SQLTermBase {
 public:
  Combination(Term left, const char* combinator, Term right)
      : fLeft(std::move(left)), fCombinator(combinator), fRight(std::move(right)) {}

  std::ostream& Print(std::ostream& out) const override {
    fLeft->Print(out << " (") << " " << fCombinator;
    return fRight->Print(out) << ")";
  }
  bool NotEmpty() const override { return true; }

 private:
  Term fLeft;
  const char* fCombinator;
  Term fRight;
};

Term Compare(const std::string& left, const char* comparator, const std::string& right) {
  return Term(new Comparison(left, comparator, right));
}

}  // namespace

Term Never() { return Compare("0", "=", "1"); }

Term Equal(const Column& column, const std::string& text) { return Compare(column->fName, "=", Quoted(text)); }

Term Larger(const Column& column, std::int64_t number) { return Compare(column->fName, ">", std::to_string(number)); }

Term Contains(const Column& column, const std::string& bytes) { return Term(new Occurrence(column->fName, bytes)); }

Term Below(const Column& column, const std::string& folder) {
  return And(Compare(column->fName, ">=", Quoted(FirstBelow(folder))),
             Compare(column->fName, "<", Quoted(EndBelow(folder))));
}

Term And(const Term& left, const Term& right) {
  if (!left->NotEmpty()) return right;
  if (!right->NotEmpty()) return left;
  return Term(new Combination(left, "AND", right));
}

Term Or(const Term& left, const Term& right) { return Term(new Combination(left, "OR", right)); }

std::string FirstBelow(const std::string& folder) { return folder == "/" ? folder : folder + "/"; }

std::string EndBelow(const std::string& folder) {
  std::string end = FirstBelow(folder);
  end.back() = '/' + 1;
  return end;
}

}  // namespace catalog
