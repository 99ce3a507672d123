#include "sqldb/kit/piece.h"

#include <cstring>

#include <sqlite3.h>

#include "compile.h"
#include "piece_values.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Behind a text, a quoted name or a comment that begins at `begin`; the place of anything else.
std::size_t BehindQuoted(std::string_view sql, std::size_t begin) {
  const auto behind = [&](std::size_t found, std::size_t size) {
    return found == std::string_view::npos ? sql.size() : found + size;
  };
  switch (sql[begin]) {
    case '\'':
    case '"':
    case '`':
      return behind(sql.find(sql[begin], begin + 1), 1);
    case '[':
      return behind(sql.find(']', begin + 1), 1);
    case '-':
      return sql.substr(begin, 2) == "--" ? behind(sql.find('\n', begin), 1) : begin;
    case '/':
      return sql.substr(begin, 2) == "/*" ? behind(sql.find("*/", begin + 2), 2) : begin;
    default:
      return begin;
  }
}

bool IsOtherParameter(std::string_view sql, std::size_t i) {
  const char next = i + 1 < sql.size() ? sql[i + 1] : ' ';
  switch (sql[i]) {
    case '?':
      return IsDigit(next);
    case ':':
    case '@':
    case '#':
      return IsOfName(next);
    case '$':
      // It may stand in a name, though not begin one.
      return i == 0 || !(IsOfName(sql[i - 1]) || sql[i - 1] == '$');
    default:
      return false;
  }
}

}  // namespace

void AddBytes(Words& words, std::uint64_t kind, std::string_view bytes) {
  words.Add(kind | static_cast<std::uint64_t>(bytes.size()) << kKindBits);
  for (; bytes.size() > sizeof(std::uint64_t); bytes.remove_prefix(sizeof(std::uint64_t))) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data(), sizeof word);
    words.Add(word);
  }
  std::uint64_t last = 0;
  if (bytes.empty()) return;
  std::memcpy(&last, bytes.data(), bytes.size());
  words.Add(last);
}

void Piece::AddText(std::string_view sql) { AddBytes(fText, static_cast<std::uint64_t>(Token::kText), sql); }

void Piece::AddGroup(const Piece& piece) {
  Add(Token::kOpen);
  Add(piece);
  Add(Token::kClose);
}

Piece Piece::InnerGroup() const {
  Piece inner;
  // The static SQL with its address, and the parentheses.
  constexpr std::size_t kBefore = 3;
  inner.fText.Add(fText.begin() + kBefore, fText.Size() - kBefore - 1);
  inner.fValues = fValues;
  inner.fValueCount = fValueCount;
  return inner;
}

void Piece::AddStatic(const char* sql) {
  Add(Token::kStatic);
  fText.Add(WordOf(sql));
}

void Piece::AddColumn(const char* qualifier, const char* name) {
  if (qualifier == nullptr) return AddStatic(name);
  Add(Token::kQualified);
  fText.Add(WordOf(qualifier));
  fText.Add(WordOf(name));
}

void Piece::Add(const Piece& piece) {
  fText.Add(piece.fText);
  fValues.Add(piece.fValues);
  fValueCount += piece.fValueCount;
}

void Piece::AddInteger(std::int64_t value) {
  fValues.Add(static_cast<std::uint64_t>(Kind::kInteger));
  fValues.Add(static_cast<std::uint64_t>(value));
  Add(Token::kParameter);
  ++fValueCount;
}

void Piece::AddReal(double value) {
  if (value != value) ThrowUnfit("NaN cannot be stored.");
  ValueWriter(fValues).TakeReal(value);
  Add(Token::kParameter);
  ++fValueCount;
}

void Piece::AddComparison(const char* name, const char* operation, std::int64_t value) {
  AddComparison(name, operation, static_cast<std::uint64_t>(Kind::kInteger), static_cast<std::uint64_t>(value));
}

void Piece::AddComparison(const char* name, const char* operation, double value) {
  if (value != value) ThrowUnfit("NaN cannot be stored.");
  std::uint64_t word;
  std::memcpy(&word, &value, sizeof word);
  AddComparison(name, operation, static_cast<std::uint64_t>(Kind::kReal), word);
}

inline void Piece::AddComparison(const char* name, const char* operation, std::uint64_t kind, std::uint64_t value) {
  fText.AddInPlace(static_cast<std::uint64_t>(Token::kCompared), WordOf(name), WordOf(operation));
  fValues.AddInPlace(kind, value);
  ++fValueCount;
}

void Piece::AddValue(const Argument& value) {
  if (value.name != nullptr) throw Error("Give the values of a term in order, not by name.", SQLITE_MISUSE);
  ValueWriter writer(fValues);
  value.bind(Target{nullptr, 0, false, &writer}, value.value);
  Add(Token::kParameter);
  ++fValueCount;
}

void Piece::AddSql(std::string_view sql, const Argument* values, std::size_t count) {
  const auto fail = [&](const char* why) { throw Error(why, SQLITE_MISUSE, sql); };
  Add(Token::kOpen);
  std::size_t given = 0;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < sql.size();) {
    const std::size_t behind = BehindQuoted(sql, i);
    if (IsOtherParameter(sql, i)) fail("The parameters of a term are question marks.");
    if (sql[i] == '?') {
      if (given == count) fail("There are more question marks than values.");
      AddText(sql.substr(begin, i - begin));
      // As a literal it must not become one with what it stands beside: "a-?", "LIKE?OR".
      if (i > 0 && (sql[i - 1] == '-' || IsOfName(sql[i - 1]))) AddStatic(" ");
      AddValue(values[given++]);
      begin = i + 1;
      if (begin < sql.size() && IsOfName(sql[begin])) AddStatic(" ");
    }
    i = behind > i ? behind : i + 1;
  }
  if (given != count) fail("There are more values than question marks.");
  AddText(sql.substr(begin));
  // A comment to the end of the line would go on.
  if (sql.find("--") != std::string_view::npos) AddText("\n");
  Add(Token::kClose);
}

}  // namespace sqldb::kit::detail
