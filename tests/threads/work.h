#ifndef SQLDB_TESTS_THREADS_WORK_H
#define SQLDB_TESTS_THREADS_WORK_H

// What each thread does, with databases of its own.

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <string>

#include <boost/shared_ptr.hpp>

#include "sqldb/kit/kit.h"
#include "sqldb/sqldb.h"

namespace threads {

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

// A 32-bit integer bound to a parameter of its own.
class BoundInteger : public sqldb::SQLValueBase {
 public:
  explicit BoundInteger(std::uint32_t value) : fValue(value) { RememberParameterName(); }
  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override;

 private:
  std::uint32_t fValue;
};

// A term that prints its text.
class TextTerm : public sqldb::SQLTermBase {
 public:
  explicit TextTerm(std::string text) : fText(std::move(text)) {}
  std::ostream& Print(std::ostream& out) const override { return out << fText; }
  bool NotEmpty() const override { return true; }

 private:
  std::string fText;
};

// What the statements of all threads use at the same time, and nobody changes.
struct Shared {
  const boost::shared_ptr<sqldb::SQLTermBase> fTerm{new TextTerm(" b > 1")};
  const boost::shared_ptr<sqldb::SQLColumnBase> fColumn{new IntegerColumn(nullptr, "b", true, false, false, "")};
  const boost::shared_ptr<sqldb::SQLValueBase> fValue{new BoundInteger(7)};
  const sqldb::kit::Term fKitTerm = sqldb::kit::Sql<std::int64_t>("id") > 1;
  // std::clog is one for the whole process: shared by those who write to it, exclusive for those who exchange its
  // buffer.
  mutable std::shared_mutex fLog;
};

// Throws std::logic_error.
void Expect(bool holds, const char* rule);

// Rows of four columns, each written by an insert with new values. Every column of a row says which row it is, so that
// a value in a wrong column is seen.
class Rows {
 public:
  // The table is made in the file at `path`. The rows of two writers differ.
  Rows(const std::string& path, std::uint32_t writer);

  // Writes `count` rows, reads them back and deletes them. Returns how many of them were wrong or missing.
  std::uint32_t WriteAndCheck(std::uint32_t count);

 private:
  void Write(std::uint32_t count);
  std::uint32_t CountWrong(std::uint32_t count);

  sqldb::SQLDatabase fDatabase;
  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  std::uint32_t fNext;
};

// Each goes through every operation of one part, and throws when one does not do what it is to do. The files that it
// makes begin with `path`, and are new.
void TourCore(const std::string& path, const Shared& shared);
void TourKit(const std::string& path, const Shared& shared);
void TourCatalogue(const std::string& path, const Shared& shared);

// One of several threads that write to one file at once, a database each. Adds `count` rows between those of others.
void CreateOneFile(const std::string& path);
void WriteToOneFile(const std::string& path, std::uint32_t writer, std::uint32_t count);
// Throws unless each of `writers` has written its `count` rows.
void CheckOneFile(const std::string& path, std::uint32_t writers, std::uint32_t count);

// A database that threads hand on to one another.
void HandOver(const std::string& path);

}  // namespace threads

#endif  // SQLDB_TESTS_THREADS_WORK_H
