#ifndef CATALOG_TESTS_PROGRAM_H
#define CATALOG_TESTS_PROGRAM_H

// Runs the program as a user would, in a folder of its own, and looks at the file it writes with SQLite's own shell.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace catalog_tests {

struct Finished {
  int fStatus = -1;
  std::string fOut;
  std::string fErr;
};

// The folder holds "tree", to be catalogued in "c.db" beside it. All names are relative to the folder, and the program
// runs in it.
class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest();
  ~ProgramTest() override;

  // The absolute path of `name`, without links.
  std::string Path(const std::string& name) const { return fFolder + "/" + name; }

  void WriteFile(const std::string& name, const std::string& content) const;
  void MakeFolder(const std::string& name) const;
  void SetTime(const std::string& name, std::int64_t seconds, long nanoseconds = 0) const;

  // catalog ARGUMENTS...
  Finished Catalog(const std::vector<std::string>& arguments) const { return Execute(CATALOG_PROGRAM, arguments); }
  // catalog c.db ARGUMENTS..., which must succeed and say nothing on standard error; returns its output.
  std::string Ask(std::vector<std::string> arguments) const;
  // The summary of "index", without the path and the seconds.
  std::string Index(const std::string& folder = "tree") const;
  // sqlite3 c.db SQL.
  std::string Shell(const std::string& sql, const std::string& database = "c.db") const;
  // All that the database holds, as SQL; proof that a failure left it alone.
  std::string Dump() const { return Shell(".dump") + Shell("PRAGMA application_id; PRAGMA user_version"); }
  // What is said of a database that the system does not open.
  std::string CannotOpen(const std::string& name, const std::string& reason) const {
    return "'" + Path(name) + "' cannot be opened: unable to open database file: " + reason;
  }
  // What is said of a file that is none of SQLite's, in its words, which older ones put differently.
  std::string NotADatabase(const std::string& name) const {
    return "'" + Path(name) + "' cannot be opened: " + sqlite3_errstr(SQLITE_NOTADB);
  }
  // The catalogue's paths below "tree", with "|" between them.
  std::string Paths() const;

  // From now on the programs run as a user whom permissions stop, to whom all files are given. False if that cannot be.
  bool BecomeOrdinary();

 private:
  Finished Execute(const std::string& program, const std::vector<std::string>& arguments) const;

  std::string fFolder;
  bool fIsOrdinary = false;
};

// Another program that holds a lock on the file.
class LockHolder {
 public:
  LockHolder(const std::string& path, const std::string& sql);
  ~LockHolder();
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;

 private:
  sqlite3* fConnection = nullptr;
};

}  // namespace catalog_tests

#endif  // CATALOG_TESTS_PROGRAM_H
