#include "piece_sql.h"

#include <string_view>
#include <utility>
#include <vector>

#include "literal.h"
#include "piece_values.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

using Word = const std::uint64_t*;
using Span = std::pair<Word, Word>;

Token TokenOf(Word word) { return static_cast<Token>(*word & kKindMask); }

std::size_t TextSize(Word word) { return static_cast<std::size_t>(*word >> kKindBits); }

const char* Address(Word word) { return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(*word)); }

Word Behind(Word word) {
  switch (TokenOf(word)) {
    case Token::kStatic:
      return word + 2;
    case Token::kQualified:
      return word + 3;
    case Token::kText:
      return word + 1 + (TextSize(word) + sizeof *word - 1) / sizeof *word;
    default:
      return word + 1;
  }
}

// Writes tokens as SQL. Many operands in a row become a balanced tree: SQLite bounds the depth of an expression, which
// for a row of them is their number.
class SqlWriter {
 public:
  // `values` is null for question marks.
  SqlWriter(std::string& sql, ValueReader* values) : fSql(sql), fLiterals(sql), fValues(values) {}

  // Operands beside one another, or one.
  void WriteLevel(Span text) {
    const char* operation = " AND ";
    const std::vector<Span> operands = Split(text, operation);
    WriteOperands(operands, 0, operands.size(), operation);
  }

 private:
  static constexpr std::size_t kMostInARow = 100;
  static constexpr int kDeepest = 1000;

  static std::vector<Span> Split(Span text, const char*& operation) {
    std::vector<Span> operands;
    int depth = 0;
    Word begin = text.first;
    for (Word word = text.first; word != text.second; word = Behind(word)) {
      const Token token = TokenOf(word);
      if (token == Token::kOpen) ++depth;
      if (token == Token::kClose) --depth;
      if (depth > 0 || (token != Token::kAnd && token != Token::kOr)) continue;
      if (token == Token::kOr) operation = " OR ";
      operands.emplace_back(begin, word);
      begin = Behind(word);
    }
    operands.emplace_back(begin, text.second);
    return operands;
  }

  void WriteOperands(const std::vector<Span>& operands, std::size_t begin, std::size_t end, const char* operation) {
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

  void WriteOperand(Span text) {
    for (Word word = text.first; word != text.second; word = Behind(word)) {
      if (TokenOf(word) == Token::kOpen) {
        const Word close = CloseOf(word);
        WriteGroup({word + 1, close});
        word = close;
      } else {
        WriteToken(word);
      }
    }
  }

  void WriteToken(Word word) {
    switch (TokenOf(word)) {
      case Token::kParameter:
        return WriteParameter();
      case Token::kStatic:
        fSql += Address(word + 1);
        return;
      case Token::kQualified:
        fSql.append(Address(word + 1)).append(".").append(Address(word + 2));
        return;
      default:
        fSql.append(reinterpret_cast<const char*>(word + 1), TextSize(word));
    }
  }

  void WriteParameter() {
    if (fValues == nullptr) {
      fSql += '?';
    } else {
      fValues->Next(Target{nullptr, 0, false, &fLiterals});
    }
  }

  void WriteGroup(Span text) {
    if (++fDepth > kDeepest) throw Error("The term is nested too deeply.", SQLITE_TOOBIG);
    fSql += '(';
    WriteLevel(text);
    fSql += ')';
    --fDepth;
  }

  static Word CloseOf(Word open) {
    int depth = 0;
    Word word = open;
    while (true) {
      if (TokenOf(word) == Token::kOpen) ++depth;
      if (TokenOf(word) == Token::kClose && --depth == 0) return word;
      word = Behind(word);
    }
  }

  std::string& fSql;
  LiteralWriter fLiterals;
  ValueReader* fValues;
  int fDepth = 0;
};

}  // namespace

void WriteSql(std::string& sql, const Words& text) { SqlWriter(sql, nullptr).WriteLevel({text.begin(), text.end()}); }

void WriteLiterals(std::string& sql, const Words& text, const Words& values) {
  ValueReader reader(values);
  SqlWriter(sql, &reader).WriteLevel({text.begin(), text.end()});
}

int BindValues(sqlite3_stmt* statement, int first, const Words& values, Values lifetime) {
  ValueReader reader(values);
  int parameter = first;
  for (; !reader.IsAtEnd(); ++parameter) {
    if (!reader.BindAtOnce(statement, parameter))
      reader.Next(Target{statement, parameter, lifetime == Values::kLasting});
  }
  return parameter;
}

}  // namespace sqldb::kit::detail
