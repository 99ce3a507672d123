#ifndef SQLDB_BENCH_LAYERS_KIT_WIDE_H
#define SQLDB_BENCH_LAYERS_KIT_WIDE_H

// The works of the kit whose rows have up to 200 columns, each number of which is a type. They take far longer to
// compile than all the others.

#include "layer.h"
#include "sqldb/kit/database.h"

namespace bench {

// The database must live as long as the work.
Work InsertWideRows(sqldb::kit::Database& database, int columns);
Work ScanWideRows(sqldb::kit::Database& database, int columns);

}  // namespace bench

#endif  // SQLDB_BENCH_LAYERS_KIT_WIDE_H
