// The last version that is too old for the kit's sources.
#include_next <sqlite3.h>

#undef SQLITE_VERSION_NUMBER
#define SQLITE_VERSION_NUMBER 3014002
