#ifndef SQLDB_KIT_KIT_H
#define SQLDB_KIT_KIT_H

// What most programs need: a database, its tables, and any SQL with typed parameters and rows. Begin with database.h
// and table.h. All of the kit but functions.h and migrations.h, which not all programs need, and leftovers.h, which
// is for programs that call the core.

#include "sqldb/kit/database.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/list.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/record.h"
#include "sqldb/kit/statement.h"
#include "sqldb/kit/table.h"
#include "sqldb/kit/transaction.h"
#include "sqldb/kit/type.h"

#endif  // SQLDB_KIT_KIT_H
