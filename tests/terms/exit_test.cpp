// A global of a program that has the library linked into it. Its destructor runs when the library's own globals may be
// gone, and finds the empty term alive.

#include <cstdio>
#include <cstdlib>

#include <boost/weak_ptr.hpp>

#include "sqldb/term.h"

namespace {

class Global {
 public:
  Global() : fTerm(sqldb::SQLEmptyTerm::EmptyTerm) {}
  ~Global() {
    if (!fTerm.expired() && !sqldb::SQLEmptyTerm::EmptyTerm->NotEmpty()) return;
    std::fputs("There is no empty term.\n", stderr);
    std::_Exit(1);
  }

 private:
  // Empty if the term was not there at the program's start, expired if it is not at its end.
  boost::weak_ptr<sqldb::SQLTermBase> fTerm;
};

Global global;

}  // namespace

int main() {}
