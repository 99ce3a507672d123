// sqldb_cluster_probe [--load MODULE] COMMAND DB [ARGUMENT...]: works on databases that several processes share, in
// files or, with a module that brings a VFS for it, in a cluster. See work.h for the commands.

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "work.h"

namespace {

using Arguments = std::vector<std::string>;

// The module stays in the process after the connection that loaded it has gone.
void Load(const std::string& module) {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  sqlite3_enable_load_extension(database.fConnection, 1);
  char* message = nullptr;
  if (sqlite3_load_extension(database.fConnection, module.c_str(), nullptr, &message) == SQLITE_OK) return;
  const std::string reason = message != nullptr ? message : "no reason given";
  sqlite3_free(message);
  throw std::runtime_error(reason);
}

std::uint32_t Number(const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text)); }

void Run(Arguments arguments) {
  if (arguments.size() > 1 && arguments[0] == "--load") {
    Load(arguments[1]);
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  const std::string command = arguments.empty() ? "" : arguments[0];
  arguments.resize(4);
  const std::string& path = arguments[1];
  if (command == "create") return cluster::Create(path);
  if (command == "write") return cluster::Write(path, Number(arguments[2]), Number(arguments[3]));
  if (command == "hold") return cluster::Hold(path, Number(arguments[2]), Number(arguments[3]));
  if (command == "look") return cluster::Look(path);
  if (command == "backup") return cluster::Backup(path, arguments[2]);
  if (command == "vacuum") return cluster::Vacuum(path, arguments[2]);
  if (command == "measure") return cluster::Measure(path, arguments[2]);
  throw std::runtime_error("unknown command");
}

}  // namespace

int main(int count, char** values) {
  try {
    Run(Arguments(values + 1, values + count));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
