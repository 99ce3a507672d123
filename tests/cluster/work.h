#ifndef SQLDB_TESTS_CLUSTER_WORK_H
#define SQLDB_TESTS_CLUSTER_WORK_H

// What several processes do to one database, wherever it is kept: a table of rows that say who wrote them.

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "sqldb/sqldb.h"

namespace cluster {

/// An open database. Its temporary files stay in memory: a VFS may have no room for them.
class OpenDatabase : public sqldb::SQLDatabase {
 public:
  explicit OpenDatabase(const std::string& path);
};

/// The table "work", with the columns "writer" and "step".
class Work {
 public:
  explicit Work(sqldb::SQLDatabase& database);

  void Create() { fTable->Create(); }
  void Insert(std::uint32_t writer, std::uint32_t step);
  /// Reads every row with a step cursor, and returns how many there were.
  std::uint32_t Scan();

 private:
  sqldb::SQLDatabase& fDatabase;
  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
};

/// The first value of the last row of `sql`, as text.
std::string Answer(sqldb::SQLDatabase& database, const std::string& sql);

/// Milliseconds since some time in the past.
double Now();

/// The commands. Each opens the databases that it names, and prints what it has to tell.
void Create(const std::string& path);
/// Waits for a line of input, then commits `count` rows of `writer`, one after the other.
void Write(const std::string& path, std::uint32_t writer, std::uint32_t count);
/// Writes `count` rows of `writer` in one transaction, says so, and waits for a line of input before it commits.
void Hold(const std::string& path, std::uint32_t writer, std::uint32_t count);
/// Tells what is there, and how many seconds it had to wait for that.
void Look(const std::string& path);
/// Copies the database `from` to `to`.
void Backup(const std::string& from, const std::string& to);
void Vacuum(const std::string& from, const std::string& to);
/// Prints what work costs in each of two databases, as a table.
void Measure(const std::string& local, const std::string& remote);

}  // namespace cluster

#endif  // SQLDB_TESTS_CLUSTER_WORK_H
