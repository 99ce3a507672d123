#ifndef SQLDB_KIT_ERROR_H
#define SQLDB_KIT_ERROR_H

// What the kit throws. Only what programs treat differently is a class of its own:
//
//   try {
//     parts.Insert(part);
//   } catch (const ConstraintError& error) {
//     Show(error.Message());  // UNIQUE constraint failed: parts.name
//   } catch (const Error& error) {
//     Log(error.what(), error.ExtendedCode());  // no such table: parts, in: INSERT INTO parts ...
//   }
//
// A statement that fails has done nothing, unless its SQL says otherwise (ON CONFLICT FAIL), and a transaction around
// it goes on, unless SQLite has rolled it back; see transaction.h. What threw can be used again.
//
// std::bad_alloc, and what the application's own code throws, pass unchanged; but what a function of SQL throws goes
// through SQLite, see functions.h.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sqldb/export.h"

namespace sqldb::kit {

/// A failure, in SQLite's most telling words and with its result codes. What the kit itself refuses has the code of a
/// misuse, 21; the few exceptions say so where they are thrown. what() is the message and, if there is a statement,
/// ", in: " and its text; a zero byte in them is shown as U+FFFD. To copy one throws nothing.
class SQLDB_EXPORT Error : public std::runtime_error {
 public:
  /// `code` is a primary or an extended result code, `sql` the text of the statement that failed; empty for none. Both
  /// texts are copied. A program may throw one for what it has called SQLite itself.
  Error(std::string_view message, int code, std::string_view sql = {});

  /// The primary result code, such as SQLITE_CONSTRAINT, 19: the extended one without what makes it special.
  int Code() const noexcept { return fExtendedCode & 0xFF; }
  /// The extended result code, such as SQLITE_CONSTRAINT_UNIQUE, 2067; the primary one if SQLite has no other.
  int ExtendedCode() const noexcept { return fExtendedCode; }
  /// SQLite's words alone, and what the kit adds to some of them. Valid as long as the object.
  std::string_view Message() const noexcept { return std::string_view(what(), fMessageSize); }
  /// The text of the statement, with its parameters but without their values; empty for none. Of a table's operations
  /// it is what the kit has written: a term with more values than SQLite takes parameters has them as literals. Valid
  /// as long as the object.
  std::string_view Sql() const noexcept;

  /// Of a bulk write: the number of the record that could not be written, from 0. If it is the end of a batch that
  /// failed, which a reference that is looked at only then makes it do, the number of the record behind that batch; of
  /// the last batch that is the number of all. Otherwise 0.
  std::size_t Record() const noexcept { return fRecord; }
  /// Of a bulk write: how many of the records before it stay, in the file or, inside a transaction, as a part of that.
  /// Otherwise 0.
  std::size_t Written() const noexcept { return fWritten; }
  /// For the kit.
  void SetRecord(std::size_t record, std::size_t written) noexcept {
    fRecord = record;
    fWritten = written;
  }

 private:
  int fExtendedCode;
  // what() is the message, and the text of the statement after it.
  std::size_t fMessageSize;
  std::size_t fRecord = 0;
  std::size_t fWritten = 0;
};

/// A value or a row that a constraint forbids: UNIQUE, NOT NULL, CHECK, a foreign key, a primary key, or a trigger by
/// RAISE. The code is 19, and the extended one tells which. A foreign key that is DEFERRED is thrown by what commits.
class SQLDB_EXPORT ConstraintError : public Error {
 public:
  using Error::Error;
  ~ConstraintError() override;
};

/// Another connection has the file, for longer than was to be waited, or waiting could not help: the code is 5, and the
/// extended one 517 where the transaction or the range has to begin anew. Or this connection is in its own way, with
/// the code 6: a table is dropped while a range stands on a row. Nothing of the statement was done; after a plain 5 it
/// may be repeated.
class SQLDB_EXPORT BusyError : public Error {
 public:
  using Error::Error;
  ~BusyError() override;
};

/// A value that does not fit into what it is read into, or that SQLite cannot store as it is. Names the column and what
/// is stored there, never the value. The code is 20. If it is thrown for a value that is to be stored, nothing was
/// written; for one that is read, a query has done what it does, which matters only if it writes (RETURNING).
class SQLDB_EXPORT ConversionError : public Error {
 public:
  using Error::Error;
  ~ConversionError() override;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_ERROR_H
