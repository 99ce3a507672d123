#ifndef SQLDB_TESTS_LEDGER_H
#define SQLDB_TESTS_LEDGER_H

// A table that shows whether transactions came through whole: transaction number n stamps every row with n and adds
// rows stamped n, so that a file holds n times kRowsEach rows, all with the stamp n, for the last one committed.

#include <string>

#include "sqldb/sqldb.h"

namespace faults {

constexpr int kRowsEach = 20;

// Makes the table, with small pages and a cache so small that transactions reach the file before they are committed.
void MakeLedger(sqldb::SQLDatabase& database);

// Reopened connections start with SQLite's usual cache: makes it small again.
void ShrinkCache(sqldb::SQLDatabase& database);

// Runs transaction number `stamp`, with one nested level for each half of it.
void Transact(sqldb::SQLDatabase& database, int stamp);

// Tells whether the next to open the file will roll a transaction back.
bool HasHotJournal(const std::string& path);

struct Verdict {
  bool isCorrupt = false;
  // The last transaction that is there as a whole; -1 if one is there in part.
  int committed = -1;
};

// Looks at a file with the default VFS; recovers it first if it has a hot journal.
Verdict Inspect(const std::string& path);

// What many rounds found.
struct Tally {
  void Add(const Verdict& verdict, int acknowledged);
  std::string Text() const;

  int rounds = 0;
  int corrupt = 0;
  int partial = 0;
  int lost = 0;
  // Of the lost ones, those that lost more than the transaction acknowledged last.
  int lostSeveral = 0;
};

}  // namespace faults

#endif  // SQLDB_TESTS_LEDGER_H
