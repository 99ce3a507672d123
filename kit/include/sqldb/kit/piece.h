#ifndef SQLDB_KIT_PIECE_H
#define SQLDB_KIT_PIECE_H

// What conditions, orders and assignments are made of: SQL, and the values of its parameters.

#include <cstddef>
#include <string_view>

#include "sqldb/export.h"
#include "sqldb/kit/lease.h"

namespace sqldb::kit::detail {

/// Bytes with room for a few in place. Copies share what is beyond that, and one that grows goes on in the shared
/// memory where it can.
class SQLDB_EXPORT SharedBytes {
 public:
  SharedBytes() noexcept = default;
  SharedBytes(const SharedBytes& other) noexcept { Take(other); }
  SharedBytes(SharedBytes&& other) noexcept { Take(other); }
  SharedBytes& operator=(const SharedBytes& other) noexcept;
  ~SharedBytes() {
    if (fShared != nullptr) Release();
  }

  /// Throws std::bad_alloc, and is then as before.
  void Append(std::string_view bytes);
  /// Valid until it is changed.
  std::string_view View() const noexcept;

 private:
  struct Shared;

  void Take(const SharedBytes& other) noexcept;
  void Release() noexcept;

  static constexpr std::size_t kRoom = 64;

  std::size_t fSize = 0;
  // Null: in place.
  Shared* fShared = nullptr;
  char fRoom[kRoom];
};

/// SQL with parameters, and their values. The text has marks for parameters, AND, OR and parentheses, which become SQL
/// when a statement is compiled.
class SQLDB_EXPORT Piece {
 public:
  /// REQUIRES: no marks.
  void AddSql(const char* sql);
  /// SQL that the program wrote, as one operand, with a value for each question mark. Throws Error if there are more or
  /// fewer values, or other parameters.
  void AddSql(std::string_view sql, const Argument* values, std::size_t count);
  /// A parameter with this value.
  void AddValue(const Argument& value);
  void AddColumn(const char* qualifier, const char* name);
  void AddName(const char* name) { fText.Append(name); }
  void AddMark(char mark) { fText.Append(std::string_view(&mark, 1)); }
  void Add(const Piece& piece);
  /// The same, in parentheses.
  void AddGroup(const Piece& piece);

  bool IsEmpty() const noexcept { return fText.View().empty(); }
  /// With marks.
  std::string_view Text() const noexcept { return fText.View(); }
  /// One after the other, each with its kind.
  std::string_view Values() const noexcept { return fValues.View(); }
  std::size_t ValueCount() const noexcept { return fValueCount; }

 private:
  SharedBytes fText;
  SharedBytes fValues;
  std::size_t fValueCount = 0;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_PIECE_H
