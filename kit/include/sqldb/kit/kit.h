#ifndef SQLDB_KIT_KIT_H
#define SQLDB_KIT_KIT_H

// What most applications need on top of the library: columns of all common types, values and terms, tables of records,
// transactions, and what to do after a failure. Headers only; an application of the library like any other.

#include "sqldb/kit/bulk.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/failure.h"
#include "sqldb/kit/field.h"
#include "sqldb/kit/retry.h"
#include "sqldb/kit/selection.h"
#include "sqldb/kit/table.h"
#include "sqldb/kit/terms.h"
#include "sqldb/kit/transaction.h"
#include "sqldb/kit/types.h"
#include "sqldb/kit/values.h"

#endif  // SQLDB_KIT_KIT_H
