#include "sqldb/sqldb.h"
