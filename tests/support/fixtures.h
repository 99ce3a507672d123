#ifndef SQLDB_TESTS_FIXTURES_H
#define SQLDB_TESTS_FIXTURES_H

// What the tests of several subsystems need: a second connection to look at a file with, an opened database, and terms
// and values as an application would write them.

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "sqldb/sqldb.h"
#include "support/call_recorder.h"
#include "support/temporary_folder.h"

namespace support {

// What a call that would reach a dead object, or ends nothing, reports.
constexpr char kNotMet[] = "Condition is not met.";

// What an application's own piece throws, which is none of the library's failures.
struct OwnFailure {};

// For a shared pointer to what another owns.
template <typename T>
void DoNotDelete(T*) {}

// A connection that is not the library's and is never recorded: the other program that shares the file.
class OtherConnection {
 public:
  explicit OtherConnection(const std::string& path);
  ~OtherConnection();
  OtherConnection(const OtherConnection&) = delete;
  OtherConnection& operator=(const OtherConnection&) = delete;

  // Runs `sql` and returns its rows, columns joined by "|", NULL as "NULL". A failure fails the test.
  std::vector<std::string> Run(const std::string& sql);

  sqlite3* Connection() const { return fConnection; }

 private:
  sqlite3* fConnection = nullptr;
};

// Rows of `sql` on any connection, not recorded; see OtherConnection::Run.
std::vector<std::string> RowsOf(sqlite3* connection, const std::string& sql);

// Finalizes what failed queries left behind on `connection`, and returns how many statements that were.
int FinalizeLeftovers(sqlite3* connection);

// The message of the std::runtime_error that `action` throws; "(nothing thrown)" if it throws none.
template <typename Action>
std::string MessageOf(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(nothing thrown)";
}

// An open database with a file of its own. At the end of the test whatever failed queries left behind is finalized, so
// that the close is accepted and nothing leaks.
//
// The file lies in a folder that goes away or, if the environment has SQLDB_TEST_DATABASES, at that URI, with the
// folder's name in place of "%": "file:pool:/%.db?vfs=ceph". What SQLite is to load first is in SQLDB_TEST_MODULE.
class DatabaseTest : public ::testing::Test {
 protected:
  DatabaseTest();
  ~DatabaseTest() override;

  std::string DatabasePath() const;
  // Runs `sql` on the database's own connection, unrecorded, and returns its rows.
  std::vector<std::string> Rows(const std::string& sql) { return RowsOf(fDatabase.fConnection, sql); }
  // A registered table with the 32-bit integer columns named, created in the file, unrecorded.
  boost::shared_ptr<sqldb::SQLTableClass> MakeTable(const std::string& name, const std::vector<std::string>& columns);

  TemporaryFolder fFolder;
  sqldb::SQLDatabase fDatabase;
};

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

// A nullable 32-bit integer column without a table.
boost::shared_ptr<sqldb::SQLColumnBase> MakeColumn(const std::string& name);

// Prints a condition, but inherits the NotEmpty that says there is none.
class SilentTerm : public sqldb::SQLTermBase {
 public:
  std::ostream& Print(std::ostream& out) const override { return out << " a = 1"; }
};

// A term that prints a given text, which should begin with a blank.
class TextTerm : public sqldb::SQLTermBase {
 public:
  explicit TextTerm(std::string text, bool notEmpty = true) : fText(std::move(text)), fNotEmpty(notEmpty) {}
  std::ostream& Print(std::ostream& out) const override { return out << fText; }
  bool NotEmpty() const override {
    ++fAsked;
    return fNotEmpty;
  }

  std::string fText;
  bool fNotEmpty;
  // How often NotEmpty was called.
  mutable int fAsked = 0;
};

boost::shared_ptr<sqldb::SQLTermBase> MakeTerm(const std::string& text);

// A value that prints a given text and binds nothing.
class TextValue : public sqldb::SQLValueBase {
 public:
  explicit TextValue(std::string text) : fText(std::move(text)) {}
  std::ostream& Print(std::ostream& stream) const override { return stream << fText; }

  std::string fText;
};

boost::shared_ptr<sqldb::SQLValueBase> MakeValue(const std::string& text);

// A 64-bit integer bound to a parameter of its own. Notes "bind NAME" in `recorder`, if one is given.
class BoundInteger : public sqldb::SQLValueBase {
 public:
  explicit BoundInteger(std::int64_t value, CallRecorder* recorder = nullptr);
  std::ostream& Print(std::ostream& stream) const override;
  void BindingOpportunity(sqlite3_stmt* statement) const override;

  std::int64_t fValue;
  CallRecorder* fRecorder;
};

// Catches what is written to std::clog while it lives.
class ClogCapture {
 public:
  ClogCapture();
  ~ClogCapture();
  ClogCapture(const ClogCapture&) = delete;
  ClogCapture& operator=(const ClogCapture&) = delete;

  std::string Text() const { return fText.str(); }

 private:
  std::ostringstream fText;
  std::streambuf* fOriginal;
};

}  // namespace support

#endif  // SQLDB_TESTS_FIXTURES_H
