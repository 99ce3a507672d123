#include "module.h"

#include <memory>

#include <sqlite3.h>

#include "printable.h"

namespace catalog {

Module::Module(const std::string& path) {
  fDatabase.Open();
  sqlite3_enable_load_extension(fDatabase.fConnection, 1);
  char* text = nullptr;
  const int result = sqlite3_load_extension(fDatabase.fConnection, path.c_str(), nullptr, &text);
  const std::unique_ptr<char, void (*)(void*)> reason(text, sqlite3_free);
  if (result == SQLITE_OK) return;
  throw Failure("cannot load '" + Printable(path) + "': " + Printable(reason ? reason.get() : sqlite3_errstr(result)));
}

}  // namespace catalog
