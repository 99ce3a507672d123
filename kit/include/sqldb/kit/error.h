#ifndef SQLDB_KIT_ERROR_H
#define SQLDB_KIT_ERROR_H

// What the kit throws. Only what programs treat differently is a class of its own:
//
//   try {
//     parts.Insert(part);
//   } catch (const ConstraintError& error) {
//     Show(error.Message());  // UNIQUE constraint failed: parts.name
//   }
//
// std::bad_alloc, and what the application's own code throws, pass unchanged.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sqldb/export.h"

namespace sqldb::kit {

/// A failure, in SQLite's most telling words and with its result codes. What the kit itself refuses has the code of a
/// misuse, 21. To copy one throws nothing.
class SQLDB_EXPORT Error : public std::runtime_error {
 public:
  /// `code` is a primary or an extended result code, `sql` the text of the statement that failed; empty for none.
  Error(std::string_view message, int code, std::string_view sql = {});

  /// The primary result code, such as SQLITE_CONSTRAINT.
  int Code() const noexcept { return fExtendedCode & 0xFF; }
  /// The extended result code, such as SQLITE_CONSTRAINT_UNIQUE; the primary one if SQLite has no other.
  int ExtendedCode() const noexcept { return fExtendedCode; }
  /// SQLite's words alone. Valid as long as the object.
  std::string_view Message() const noexcept { return std::string_view(what(), fMessageSize); }
  /// The text of the statement, with its parameters but without their values; empty for none. Valid as long as the
  /// object.
  std::string_view Sql() const noexcept;

  /// Of a bulk write: the number of the record that could not be written, from 0; the number of all for the end of the
  /// last batch. Otherwise 0.
  std::size_t Record() const noexcept { return fRecord; }
  /// Of a bulk write: how many of the records before it stay. Otherwise 0.
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

/// A value or a row that a constraint forbids: UNIQUE, NOT NULL, CHECK, a foreign key, a primary key.
class SQLDB_EXPORT ConstraintError : public Error {
 public:
  using Error::Error;
  ~ConstraintError() override;
};

/// Another connection has the file or a table, for longer than was to be waited, or waiting could not help.
class SQLDB_EXPORT BusyError : public Error {
 public:
  using Error::Error;
  ~BusyError() override;
};

/// A value that does not fit into what it is read into, or that SQLite cannot store as it is. Names the column and what
/// is stored there, never the value.
class SQLDB_EXPORT ConversionError : public Error {
 public:
  using Error::Error;
  ~ConversionError() override;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_ERROR_H
