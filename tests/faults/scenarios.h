#ifndef SQLDB_TESTS_SCENARIOS_H
#define SQLDB_TESTS_SCENARIOS_H

// The work that the fault tests interrupt at every point: each scenario is one thing that an application does with the
// library, and together they use every statement, cursor, transaction and the explanation. A scenario that writes is
// all or nothing: afterwards the file holds what it held before or what the whole scenario makes of it.

#include <functional>
#include <string>
#include <vector>

#include "sqldb/sqldb.h"

namespace faults {

struct Scenario {
  std::string name;
  // Works on an open database that has the tables of MakeStock. What it throws is the library's.
  std::function<void(sqldb::SQLDatabase&)> run;
};

const std::vector<Scenario>& Scenarios();

// Makes the tables that the scenarios use: items (id, qty) with 300 rows, and log (id, qty), empty.
extern const char* const kStockSql;

// Makes a new file with these tables.
void MakeStock(const std::string& path);

// All that the file holds, schema included, as one text; integrity is checked first, and a damaged file gives a
// text that starts with "damaged".
std::string ContentsOf(const std::string& path);
std::string ContentsOf(sqlite3* connection);

// Removes the file and what SQLite keeps beside it.
void RemoveDatabase(const std::string& path);

// Copies a database file, without a journal.
void CopyDatabase(const std::string& from, const std::string& to);

// What went out of an interrupted action.
enum class Outcome { kDone, kRuntimeError, kBadAlloc, kOther };
Outcome OutcomeOf(const std::function<void()>& action);

// The places among `count` at which to fail: all of them, or, if there are more than `most`, a third of `most` from
// each end and as many between, evenly spread. For a scenario that does the same many times over.
std::vector<int> Points(int count, int most);

}  // namespace faults

#endif  // SQLDB_TESTS_SCENARIOS_H
