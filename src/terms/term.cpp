#include "sqldb/term.h"

#include <ostream>

namespace sqldb {

SQLTermBase::~SQLTermBase() = default;

std::ostream& SQLTermBase::Print(std::ostream& out) const { return out; }

bool SQLTermBase::NotEmpty() const { return false; }

SQLEmptyTerm::~SQLEmptyTerm() = default;

bool SQLEmptyTerm::NotEmpty() const { return false; }

// Made before what a program makes at its start and released after that, also where the library is linked into it: the
// destructors of a program's globals may still count and select.
__attribute__((init_priority(101))) boost::shared_ptr<SQLTermBase> SQLEmptyTerm::EmptyTerm(new SQLEmptyTerm);

}  // namespace sqldb
