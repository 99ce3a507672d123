#include "sqldb/kit/migrations.h"

#include <utility>

#include <sqlite3.h>

#include "connection.h"
#include "levels.h"
#include "sqldb/kit/error.h"
#include "sqldb/kit/query.h"
#include "sqldb/kit/transaction.h"

namespace sqldb::kit {

namespace {

int VersionOf(Database& database) { return database.One<int>("PRAGMA user_version"); }

// Refuses one that the program does not know.
int VersionOf(Database& database, int newest) {
  const int version = VersionOf(database);
  if (version >= 0 && version <= newest) return version;
  throw Error("The file has version " + std::to_string(version) + ", and the program knows those up to " +
                  std::to_string(newest) + ".",
              SQLITE_MISUSE);
}

// SQLite takes no notice of the switch inside a transaction, so this begins before it and ends after it.
class ForeignKeysOff {
 public:
  ForeignKeysOff(Database& database, ForeignKeys wanted)
      : fConnection(database.Connection()),
        fIsOff(wanted == ForeignKeys::kOff && database.One<bool>("PRAGMA foreign_keys")) {
    if (fIsOff) database.ExecuteScript("PRAGMA foreign_keys = OFF");
  }
  // By SQLite itself, which needs no memory of the kit's for it.
  ~ForeignKeysOff() {
    if (!fIsOff || !fConnection->IsOpen()) return;
    sqlite3_db_config(fConnection->Core().fConnection, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
  }
  ForeignKeysOff(const ForeignKeysOff&) = delete;
  ForeignKeysOff& operator=(const ForeignKeysOff&) = delete;

 private:
  const detail::ConnectionPointer fConnection;
  const bool fIsOff;
};

void CheckReferences(Database& database) {
  const auto violation =
      database.First<std::string, std::optional<std::int64_t>, std::string, int>("PRAGMA foreign_key_check");
  if (!violation) return;
  const auto& [child, row, parent, number] = *violation;
  throw ConstraintError("a row of " + child + " refers to one that is not in " + parent, SQLITE_CONSTRAINT_FOREIGNKEY);
}

// The version would be written without it.
void CheckStillOpen(const SQLDatabase& core) {
  if (core.fTransactionDepth == 1 && !detail::IsOver(core)) return;
  throw Error("its transaction has ended, or a part of it has not", SQLITE_ABORT_ROLLBACK);
}

// The same with the step before the message.
template <typename E>
E OfStep(const E& error, int number, const std::string& name) {
  E told("step " + std::to_string(number) + ", " + name + ": " + std::string(error.Message()), error.ExtendedCode(),
         error.Sql());
  told.SetRecord(error.Record(), error.Written());
  return told;
}

}  // namespace

Migrations& Migrations::Add(std::string name, std::string sql, ForeignKeys foreignKeys) {
  return Add(
      std::move(name), [text = std::move(sql)](Database& database) { database.ExecuteScript(text); }, foreignKeys);
}

Migrations& Migrations::Add(std::string name, Action action, ForeignKeys foreignKeys) {
  fSteps.push_back(Step{std::move(name), std::move(action), foreignKeys});
  return *this;
}

int Migrations::Run(Database& database, const Report& report) const {
  if (!detail::IsOver(database.Core())) {
    throw Error("Migrations begin transactions of their own, and one is open.", SQLITE_MISUSE);
  }
  const int newest = static_cast<int>(fSteps.size());
  int version = VersionOf(database, newest);
  int taken = 0;
  while (version < newest) {
    if (Take(database, version, report)) {
      ++version;
      ++taken;
    } else {
      version = VersionOf(database, newest);
    }
  }
  return taken;
}

// Returns false if another program has taken it meanwhile.
bool Migrations::Take(Database& database, int number, const Report& report) const {
  const Step& step = fSteps[static_cast<std::size_t>(number)];
  const ForeignKeysOff off(database, step.foreignKeys);
  Transaction transaction(database);
  if (VersionOf(database) != number) return false;
  if (report) report(MigrationStep{number + 1, static_cast<int>(fSteps.size()), step.name});
  try {
    step.action(database);
    // Elsewhere SQLite has seen to it.
    if (step.foreignKeys == ForeignKeys::kOff) CheckReferences(database);
    CheckStillOpen(database.Core());
    database.ExecuteScript("PRAGMA user_version = " + std::to_string(number + 1));
    transaction.Commit();
  } catch (const ConstraintError& error) {
    throw OfStep(error, number + 1, step.name);
  } catch (const BusyError& error) {
    throw OfStep(error, number + 1, step.name);
  } catch (const ConversionError& error) {
    throw OfStep(error, number + 1, step.name);
  } catch (const Error& error) {
    throw OfStep(error, number + 1, step.name);
  }
  return true;
}

}  // namespace sqldb::kit
