#ifndef SQLDB_KIT_MIGRATIONS_H
#define SQLDB_KIT_MIGRATIONS_H

// The versions of a program's file, from the empty one to the newest:
//
//   const auto lower = [](Database& database) { database.Execute("UPDATE parts SET name = lower(name)"); };
//   Migrations()
//       .Add("parts", "CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT NOT NULL)")
//       .Add("names in lower case", lower)
//       .Run(database);
//
// The file has its version in PRAGMA user_version: how many of the steps it has behind it. So a step is never changed
// once a program with it has been used; what has to be different is the next one's work.
//
// Not included by kit.h.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "sqldb/export.h"
#include "sqldb/kit/database.h"

namespace sqldb::kit {

/// What Migrations::Run is about to do.
struct MigrationStep {
  /// From 1; the file's version after it.
  int number;
  /// How many the program knows.
  int count;
  /// As it was given to Add. Valid during the call.
  const std::string& name;
};

/// Whether references between tables are enforced while a step runs.
enum class ForeignKeys {
  /// As the database has it.
  kAsTheyAre,
  /// Not: to drop a table SQLite would first delete its rows, and with them what refers to those. So a table is made
  /// anew in such a step: create new_parts, copy the rows, drop parts, rename new_parts to parts. (In this order: to
  /// rename the old one would take along what refers to it.) At the end no row of the database, attached files apart,
  /// may refer to one that is not there.
  kOff,
};

/// An ordered list of named steps. A value: build it where it is run, or keep a copy.
class SQLDB_EXPORT Migrations {
 public:
  /// What a step does that is more than SQL. It uses the database, but neither begins nor ends its transaction.
  using Action = std::function<void(Database&)>;
  /// Is called before each step that Run takes, in the step's transaction. What it throws ends the work, as what a step
  /// throws does.
  using Report = std::function<void(const MigrationStep&)>;

  /// Adds the next step: any number of statements. The name is for people: for Report, and for the message of a
  /// failure.
  /// REQUIRES: `sql` is SQL, never input.
  Migrations& Add(std::string name, std::string sql, ForeignKeys foreignKeys = ForeignKeys::kAsTheyAre);
  /// The same, with a function. REQUIRES: it can be called, more than once if several databases are brought forward.
  Migrations& Add(std::string name, Action action, ForeignKeys foreignKeys = ForeignKeys::kAsTheyAre);

  /// Takes the steps that the file has not behind it, and returns how many those were. Each is a transaction of its
  /// own, which takes the write lock before it looks at the version: of several programs that open the file at once one
  /// takes the step, and the others wait, as long as Options::busyTimeout says, and find it taken.
  ///
  /// A step that fails leaves the file as it was before it, and the steps before it stay. Its Error has its number and
  /// its name before the message, and all else that it had, but for a class of the program's own; what else the
  /// function throws passes as it is. A step fails, too, that ends its transaction. What SQLite does in no transaction
  /// is no step: VACUUM fails, and it takes no notice of PRAGMA journal_mode and foreign_keys.
  ///
  /// Throws Error with the code 21, and does nothing, if the file's version is none that the program knows, such as
  /// that of a newer one, or if a transaction is open.
  /// REQUIRES: no step adds further ones, or closes or moves the database.
  int Run(Database& database, const Report& report = {}) const;

 private:
  struct Step {
    std::string name;
    Action action;
    ForeignKeys foreignKeys;
  };

  bool Take(Database& database, int number, const Report& report) const;

  std::vector<Step> fSteps;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_MIGRATIONS_H
