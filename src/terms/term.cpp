#include "sqldb/term.h"

#include <ostream>

namespace sqldb {

SQLTermBase::~SQLTermBase() = default;

std::ostream& SQLTermBase::Print(std::ostream& out) const { return out; }

bool SQLTermBase::NotEmpty() const { return false; }

SQLEmptyTerm::~SQLEmptyTerm() = default;

bool SQLEmptyTerm::NotEmpty() const { return false; }

boost::shared_ptr<SQLTermBase> SQLEmptyTerm::EmptyTerm(new SQLEmptyTerm);

}  // namespace sqldb
