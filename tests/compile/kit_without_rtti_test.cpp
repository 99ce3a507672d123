#include "sqldb/kit/kit.h"

#include <optional>
#include <string>
#include <tuple>

#ifdef __cpp_rtti
#error "this is to be compiled without RTTI"
#endif

namespace {

using namespace sqldb::kit;

bool FindsWhatItInserts(Database& database) {
  database.Execute("INSERT INTO parts VALUES (?, ?, ?)", 1, "bolt", 0.25);
  for (const auto& [name, price] :
       database.Query<std::string, std::optional<double>>("SELECT name, price FROM parts")) {
    if (name != "bolt" || price != 0.25) return false;
  }
  return database.One<int>("SELECT COUNT(*) FROM parts WHERE name = :name", Named(":name", "bolt")) == 1;
}

// The library throws it, and the program knows its class all the same.
bool CatchesAConstraint(Database& database) {
  try {
    database.Execute("INSERT INTO parts VALUES (?, ?, NULL)", 1, "nut");
  } catch (const ConstraintError& error) {
    return error.Message() == "UNIQUE constraint failed: parts.id";
  }
  return false;
}

}  // namespace

int main() {
  Database database(":memory:");
  database.Execute("CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT, price REAL)");
  return FindsWhatItInserts(database) && CatchesAConstraint(database) ? 0 : 1;
}
