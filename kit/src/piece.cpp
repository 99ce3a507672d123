#include "sqldb/kit/piece.h"

#include <cstring>
#include <vector>

#include "literal.h"
#include "marks.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

enum class Kind : char { kNull, kInteger, kReal, kText, kBlob };

// Appends values, each as its kind and its bytes.
class ValueWriter final : public ValueSink {
 public:
  explicit ValueWriter(SharedBytes& values) : fValues(values) {}

  void TakeNull() override { Write(Kind::kNull, nullptr, 0); }
  void TakeInteger(std::int64_t value) override { Write(Kind::kInteger, &value, sizeof value); }
  void TakeReal(double value) override { Write(Kind::kReal, &value, sizeof value); }
  void TakeText(std::string_view text) override { WriteBytes(Kind::kText, text); }
  void TakeBlob(std::string_view bytes) override { WriteBytes(Kind::kBlob, bytes); }

 private:
  void Write(Kind kind, const void* bytes, std::size_t size) {
    char buffer[1 + sizeof(std::uint64_t)];
    buffer[0] = static_cast<char>(kind);
    if (size > 0) std::memcpy(buffer + 1, bytes, size);
    fValues.Append(std::string_view(buffer, 1 + size));
  }
  void WriteBytes(Kind kind, std::string_view bytes) {
    const std::uint64_t size = bytes.size();
    Write(kind, &size, sizeof size);
    fValues.Append(bytes);
  }

  SharedBytes& fValues;
};

// Hands values out again, in their order.
class ValueReader {
 public:
  explicit ValueReader(std::string_view values) : fLeft(values) {}

  bool IsAtEnd() const { return fLeft.empty(); }

  void Next(const Target& target) {
    const auto kind = static_cast<Kind>(fLeft[0]);
    fLeft.remove_prefix(1);
    switch (kind) {
      case Kind::kNull:
        return BindNull(target);
      case Kind::kInteger:
        return BindInteger(target, Read<std::int64_t>());
      case Kind::kReal:
        return BindReal(target, Read<double>());
      case Kind::kText:
        return BindText(target, ReadBytes());
      case Kind::kBlob:
        return BindBlob(target, ReadBytes());
    }
  }

 private:
  template <typename T>
  T Read() {
    T value;
    std::memcpy(&value, fLeft.data(), sizeof value);
    fLeft.remove_prefix(sizeof value);
    return value;
  }
  std::string_view ReadBytes() {
    const auto size = static_cast<std::size_t>(Read<std::uint64_t>());
    const std::string_view bytes = fLeft.substr(0, size);
    fLeft.remove_prefix(size);
    return bytes;
  }

  std::string_view fLeft;
};

// Writes marked text as SQL. Many operands in a row become a balanced tree: SQLite bounds the depth of an expression,
// which for a row of them is their number.
class SqlWriter {
 public:
  // `values` is null for question marks.
  SqlWriter(std::string& sql, ValueReader* values) : fSql(sql), fLiterals(sql), fValues(values) {}

  // Operands beside one another, or one.
  void WriteLevel(std::string_view text) {
    char mark = 0;
    const std::vector<std::string_view> operands = Split(text, mark);
    WriteOperands(operands, 0, operands.size(), mark == kOrMark ? " OR " : " AND ");
  }

 private:
  static constexpr std::size_t kMostInARow = 100;
  static constexpr int kDeepest = 1000;

  static std::vector<std::string_view> Split(std::string_view text, char& mark) {
    std::vector<std::string_view> operands;
    int depth = 0;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char character = text[i];
      if (character == kOpenMark) {
        ++depth;
      } else if (character == kCloseMark) {
        --depth;
      } else if (depth == 0 && (character == kAndMark || character == kOrMark)) {
        mark = character;
        operands.push_back(text.substr(begin, i - begin));
        begin = i + 1;
      }
    }
    operands.push_back(text.substr(begin));
    return operands;
  }

  void WriteOperands(const std::vector<std::string_view>& operands, std::size_t begin, std::size_t end,
                     const char* operation) {
    if (end - begin > kMostInARow) {
      const std::size_t middle = begin + (end - begin) / 2;
      fSql += '(';
      WriteOperands(operands, begin, middle, operation);
      fSql.append(")").append(operation).append("(");
      WriteOperands(operands, middle, end, operation);
      fSql += ')';
      return;
    }
    for (std::size_t i = begin; i < end; ++i) {
      if (i > begin) fSql += operation;
      WriteOperand(operands[i]);
    }
  }

  void WriteOperand(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == kParameterMark) {
        WriteParameter();
      } else if (text[i] == kOpenMark) {
        const std::size_t end = EndOfGroup(text, i);
        WriteGroup(text.substr(i + 1, end - i - 1));
        i = end;
      } else {
        fSql += text[i];
      }
    }
  }

  void WriteParameter() {
    if (fValues == nullptr) {
      fSql += '?';
    } else {
      fValues->Next(Target{nullptr, 0, false, &fLiterals});
    }
  }

  void WriteGroup(std::string_view text) {
    if (++fDepth > kDeepest) throw Error("The term is nested too deeply.", SQLITE_TOOBIG);
    fSql += '(';
    WriteLevel(text);
    fSql += ')';
    --fDepth;
  }

  static std::size_t EndOfGroup(std::string_view text, std::size_t open) {
    int depth = 0;
    std::size_t i = open;
    do {
      if (text[i] == kOpenMark) ++depth;
      if (text[i] == kCloseMark) --depth;
      ++i;
    } while (depth > 0);
    return i - 1;
  }

  std::string& fSql;
  LiteralWriter fLiterals;
  ValueReader* fValues;
  int fDepth = 0;
};

bool IsOfName(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' ||
         byte >= 0x80;
}

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
  const bool isFollowed = i + 1 < sql.size() && IsOfName(sql[i + 1]);
  return isFollowed && (sql[i] == '?' || sql[i] == ':' || sql[i] == '@' || sql[i] == '$') &&
         (i == 0 || !IsOfName(sql[i - 1]));
}

}  // namespace

// Memory that several SharedBytes begin with, and of which the longest one has all.
struct SharedBytes::Shared {
  std::size_t users;
  std::size_t used;
  std::size_t capacity;

  char* Memory() { return reinterpret_cast<char*>(this + 1); }
};

void SharedBytes::Take(const SharedBytes& other) noexcept {
  fSize = other.fSize;
  fShared = other.fShared;
  if (fShared != nullptr) {
    ++fShared->users;
  } else {
    std::memcpy(fRoom, other.fRoom, fSize);
  }
}

SharedBytes& SharedBytes::operator=(const SharedBytes& other) noexcept {
  if (this != &other) {
    if (fShared != nullptr) Release();
    Take(other);
  }
  return *this;
}

void SharedBytes::Release() noexcept {
  if (--fShared->users == 0) ::operator delete(fShared);
}

std::string_view SharedBytes::View() const noexcept {
  return std::string_view(fShared != nullptr ? fShared->Memory() : fRoom, fSize);
}

void SharedBytes::Append(std::string_view bytes) {
  const std::size_t size = fSize + bytes.size();
  if (fShared == nullptr && size <= kRoom) {
    std::memcpy(fRoom + fSize, bytes.data(), bytes.size());
    fSize = size;
    return;
  }
  // Otherwise another one has gone on from here in its own way, or there is no room.
  if (fShared == nullptr || fShared->used != fSize || fShared->capacity < size) {
    auto* const larger = static_cast<Shared*>(::operator new(sizeof(Shared) + 2 * size));
    *larger = Shared{1, fSize, 2 * size};
    std::memcpy(larger->Memory(), View().data(), fSize);
    if (fShared != nullptr) Release();
    fShared = larger;
  }
  std::memcpy(fShared->Memory() + fSize, bytes.data(), bytes.size());
  fShared->used = size;
  fSize = size;
}

void Piece::AddSql(const char* sql) { fText.Append(sql); }

void Piece::AddColumn(const char* qualifier, const char* name) {
  if (qualifier != nullptr) {
    fText.Append(qualifier);
    fText.Append(".");
  }
  fText.Append(name);
}

void Piece::AddValue(const Argument& value) {
  if (value.name != nullptr) throw Error("Give the values of a term in order, not by name.", SQLITE_MISUSE);
  ValueWriter writer(fValues);
  value.bind(Target{nullptr, 0, false, &writer}, value.value);
  AddMark(kParameterMark);
  ++fValueCount;
}

void Piece::Add(const Piece& piece) {
  fText.Append(piece.Text());
  fValues.Append(piece.Values());
  fValueCount += piece.fValueCount;
}

void Piece::AddGroup(const Piece& piece) {
  AddMark(kOpenMark);
  Add(piece);
  AddMark(kCloseMark);
}

void Piece::AddSql(std::string_view sql, const Argument* values, std::size_t count) {
  const auto fail = [&](const char* why) { throw Error(why, SQLITE_MISUSE, sql); };
  AddMark(kOpenMark);
  std::size_t given = 0;
  for (std::size_t i = 0; i < sql.size();) {
    if (sql[i] >= kParameterMark && sql[i] <= kCloseMark) fail("Give characters below a blank as values.");
    if (const std::size_t behind = BehindQuoted(sql, i); behind != i) {
      fText.Append(sql.substr(i, behind - i));
      i = behind;
      continue;
    }
    if (IsOtherParameter(sql, i)) fail("The parameters of a term are question marks.");
    if (sql[i] != '?') {
      fText.Append(sql.substr(i, 1));
    } else {
      if (given == count) fail("There are more question marks than values.");
      AddValue(values[given++]);
    }
    ++i;
  }
  if (given != count) fail("There are more values than question marks.");
  // A comment to the end of the line would go on.
  if (sql.find("--") != std::string_view::npos) fText.Append("\n");
  AddMark(kCloseMark);
}

void WriteSql(std::string& sql, std::string_view text) { SqlWriter(sql, nullptr).WriteLevel(text); }

void WriteLiterals(std::string& sql, std::string_view text, std::string_view values) {
  ValueReader reader(values);
  SqlWriter(sql, &reader).WriteLevel(text);
}

int BindValues(sqlite3_stmt* statement, int first, std::string_view values, Values lifetime) {
  ValueReader reader(values);
  Target target{statement, first, lifetime == Values::kLasting};
  for (; !reader.IsAtEnd(); ++target.parameter) reader.Next(target);
  return target.parameter;
}

}  // namespace sqldb::kit::detail
