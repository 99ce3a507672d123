#ifndef SQLDB_TESTS_ENGINE_H
#define SQLDB_TESTS_ENGINE_H

// What differs between versions of SQLite: libraries with its interface may be built from an old one. The texts are
// those of 3.15 and of 3.40.

#include <string>

#include <sqlite3.h>

namespace support {

// By number, such as 3035000 for 3.35.
inline bool IsOlderThan(int version) { return sqlite3_libversion_number() < version; }

// What it says of SQLITE_ERROR when it knows no more.
inline std::string LogicError() {
  return IsOlderThan(3025000) ? "SQL logic error or missing database" : "SQL logic error";
}

// What it says of a text that ends too soon, after `last`.
inline std::string IncompleteInput(const std::string& last) {
  return IsOlderThan(3025000) ? "near \"" + last + "\": syntax error" : "incomplete input";
}

}  // namespace support

#endif  // SQLDB_TESTS_ENGINE_H
