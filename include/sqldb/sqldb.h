#ifndef SQLDB_SQLDB_H
#define SQLDB_SQLDB_H

// The whole library. Include the single headers instead where compile time matters.

#include "sqldb/column.h"
#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/delete.h"
#include "sqldb/encoding.h"
#include "sqldb/insert.h"
#include "sqldb/select.h"
#include "sqldb/table.h"
#include "sqldb/term.h"
#include "sqldb/update.h"
#include "sqldb/value.h"

#endif  // SQLDB_SQLDB_H
