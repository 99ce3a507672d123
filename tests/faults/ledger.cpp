#include "faults/ledger.h"

#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace faults {

void MakeLedger(sqldb::SQLDatabase& database) {
  database.SendQuery("PRAGMA page_size = 512", nullptr, nullptr);
  ShrinkCache(database);
  database.SendQuery("CREATE TABLE ledger (stamp INTEGER, filling TEXT)", nullptr, nullptr);
}

void ShrinkCache(sqldb::SQLDatabase& database) { database.SendQuery("PRAGMA cache_size = 4", nullptr, nullptr); }

void Transact(sqldb::SQLDatabase& database, int stamp) {
  const std::string value = std::to_string(stamp);
  database.BeginTransaction();
  database.BeginTransaction();
  database.SendQuery("UPDATE ledger SET stamp = " + value, nullptr, nullptr);
  database.EndTransaction(true, false);
  database.BeginTransaction();
  for (int i = 0; i < kRowsEach; ++i) {
    database.SendQuery("INSERT INTO ledger VALUES (" + value + ", hex(randomblob(100)))", nullptr, nullptr);
  }
  database.EndTransaction(true, false);
  database.EndTransaction(true, false);
}

bool HasHotJournal(const std::string& path) {
  // Until a journal is complete, zeros stand in the place of its header.
  return std::ifstream(path + "-journal", std::ios::binary).get() > 0;
}

Verdict Inspect(const std::string& path) {
  Verdict verdict;
  sqlite3* connection = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
  std::vector<std::string> found;
  const auto collect = [](void* list, int count, char** values, char**) {
    for (int i = 0; i < count; ++i) static_cast<std::vector<std::string>*>(list)->push_back(values[i]);
    return 0;
  };
  const int checked = sqlite3_exec(connection, "PRAGMA integrity_check", collect, &found, nullptr);
  verdict.isCorrupt = checked != SQLITE_OK || found != std::vector<std::string>{"ok"};
  found.clear();
  const char* const summary = "SELECT count(*), ifnull(min(stamp), 0), ifnull(max(stamp), 0) FROM ledger";
  if (!verdict.isCorrupt && sqlite3_exec(connection, summary, collect, &found, nullptr) == SQLITE_OK) {
    const int stamp = std::stoi(found[1]);
    const bool isWhole = found[1] == found[2] && std::stoi(found[0]) == stamp * kRowsEach;
    if (isWhole) verdict.committed = stamp;
  }
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  return verdict;
}

void Tally::Add(const Verdict& verdict, int acknowledged) {
  ++rounds;
  if (verdict.isCorrupt) {
    ++corrupt;
  } else if (verdict.committed < 0) {
    ++partial;
  } else if (verdict.committed < acknowledged) {
    ++lost;
    if (verdict.committed < acknowledged - 1) ++lostSeveral;
  }
}

std::string Tally::Text() const {
  return std::to_string(rounds) + " rounds, " + std::to_string(corrupt) + " corrupt, " + std::to_string(partial) +
         " partial, " + std::to_string(lost) + " acknowledged but lost";
}

}  // namespace faults
