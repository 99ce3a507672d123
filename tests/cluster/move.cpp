#include <stdexcept>
#include <string>

#include <sqlite3.h>

#include "work.h"

namespace cluster {

void Backup(const std::string& from, const std::string& to) {
  OpenDatabase source(from);
  OpenDatabase copy(to);
  sqlite3_backup* const backup = sqlite3_backup_init(copy.fConnection, "main", source.fConnection, "main");
  if (backup == nullptr) throw std::runtime_error(sqlite3_errmsg(copy.fConnection));
  sqlite3_backup_step(backup, -1);
  const int result = sqlite3_backup_finish(backup);
  if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(result));
}

void Vacuum(const std::string& from, const std::string& to) {
  OpenDatabase source(from);
  source.SendQuery("VACUUM INTO '" + to + "'", nullptr, nullptr);
}

}  // namespace cluster
