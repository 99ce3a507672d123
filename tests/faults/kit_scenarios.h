#ifndef SQLDB_TESTS_KIT_SCENARIOS_H
#define SQLDB_TESTS_KIT_SCENARIOS_H

// What an application does through the kit, to be interrupted at every point: together these use every operation of it.
// Each is all or nothing, as those of scenarios.h are, and checks the answers that it gets.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sqldb/kit/kit.h"

namespace faults {

// An open database and what a scenario needs around it.
struct KitWork {
  // Has the tables of MakeStock.
  std::optional<sqldb::kit::Database> database;
  std::string path;
  // Runs what is not the work of the kit, and is spared from failing.
  std::function<void(const std::function<void()>&)> undisturbed = [](const std::function<void()>& action) { action(); };
  // The rows that a transaction which goes on after failures has got into log, once it is committed: a row for each
  // number, with its square.
  std::vector<std::int64_t> written;
};

struct KitScenario {
  std::string name;
  // What it throws is the kit's.
  std::function<void(KitWork&)> run;
  // Whether it opens the database itself.
  bool opens = false;
  // Whether it goes on after failures: instead of all it may do what it has noted as written.
  bool goesOn = false;
  // Whether another connection has a part in it, for which the database has to be a file.
  bool hasOther = false;
};

const std::vector<KitScenario>& KitScenarios();

// Opens the database for the scenarios that do not do so themselves, with a wait for a busy file that is soon over.
void OpenDatabase(KitWork& work);

// Closes the database, if there is one. Returns false if SQLite refuses.
bool CloseDatabase(KitWork& work);

// What is left on the connection, of which there is to be nothing: running statements, transactions, levels. Empty for
// nothing.
std::string LeftBehind(const KitWork& work);

}  // namespace faults

#endif  // SQLDB_TESTS_KIT_SCENARIOS_H
