#include "sqldb/table.h"

#include <utility>

#include "sqldb/delete.h"
#include "sqldb/insert.h"
#include "sqldb/update.h"

namespace sqldb {

boost::shared_ptr<SQLInsertClass> SQLTableClass::NewInsert() {
  return boost::shared_ptr<SQLInsertClass>(new SQLInsertClass(*this));
}

boost::shared_ptr<SQLReplaceClass> SQLTableClass::NewReplace() {
  return boost::shared_ptr<SQLReplaceClass>(new SQLReplaceClass(*this));
}

boost::shared_ptr<SQLUpdateClass> SQLTableClass::NewUpdate() {
  return boost::shared_ptr<SQLUpdateClass>(new SQLUpdateClass(*this));
}

boost::shared_ptr<SQLDeleteClass> SQLTableClass::NewDelete(boost::shared_ptr<SQLTermBase> term) {
  return boost::shared_ptr<SQLDeleteClass>(new SQLDeleteClass(&fDatabase, *this, std::move(term)));
}

}  // namespace sqldb
