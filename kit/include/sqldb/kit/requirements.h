#ifndef SQLDB_KIT_REQUIREMENTS_H
#define SQLDB_KIT_REQUIREMENTS_H

// What the kit needs beyond what the core does. Where it is missing, one sentence of README.md says so, before the
// compiler complains about its use.

#include <charconv>

#include <sqlite3.h>

#include "sqldb/export.h"

#ifndef __cpp_rtti
#error "sqldb::kit needs RTTI."
#endif

#if SQLITE_VERSION_NUMBER < 3015000
#error "sqldb::kit needs SQLite 3.15 or newer."
#endif

// libc++ has it long before it has all that the macro stands for.
#if defined(_LIBCPP_VERSION) ? _LIBCPP_VERSION < 14000 : !defined(__cpp_lib_to_chars)
#error "sqldb::kit needs std::to_chars for double: libstdc++ 11 or newer, or libc++ 14 or newer."
#endif

#endif  // SQLDB_KIT_REQUIREMENTS_H
