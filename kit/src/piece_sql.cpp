#include "piece_sql.h"

#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "binding.h"
#include "literal.h"
#include "piece_values.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

using Word = const std::uint64_t*;
using Span = std::pair<Word, Word>;

Token TokenOf(Word word) { return static_cast<Token>(*word & kKindMask); }

std::size_t TextSize(Word word) { return static_cast<std::size_t>(*word >> kKindBits); }

const char* Address(Word word) {
  const auto value = static_cast<std::uintptr_t>(*word);
  const char* address;
  std::memcpy(&address, &value, sizeof address);
  return address;
}

Word Behind(Word word) {
  switch (TokenOf(word)) {
    case Token::kStatic:
      return word + 2;
    case Token::kQualified:
    case Token::kCompared:
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

  void Write(Span text) {
    AddLevel(text, 0);
    while (!fTasks.empty()) {
      const Task task = fTasks.back();
      fTasks.pop_back();
      if (task.kind == Task::kSql) {
        fSql += task.sql;
      } else if (task.kind == Task::kOperands) {
        AddOperands(task);
      } else {
        WriteOperand(task);
      }
    }
  }

 private:
  static constexpr std::size_t kMostInARow = 100;
  static constexpr int kDeepest = 1000;

  // What is still to be written.
  struct Task {
    enum Kind { kSql, kOperands, kOperand };

    Kind kind;
    // Of parentheses.
    int depth;
    // What is written; or what stands between the operands.
    const char* sql;
    // Operands, by their place in fOperands.
    std::size_t begin;
    std::size_t end;
    // The operand, or what is left of it.
    Span text;
  };

  void AddSql(const char* sql) { fTasks.push_back(Task{Task::kSql, 0, sql, 0, 0, {}}); }

  // Operands beside one another, or one.
  void AddLevel(Span text, int depth) {
    if (depth > kDeepest) throw Error("The term is nested too deeply.", SQLITE_TOOBIG);
    const std::size_t first = fOperands.size();
    const char* const operation = Split(text);
    fTasks.push_back(Task{Task::kOperands, depth, operation, first, fOperands.size(), {}});
  }

  // Appends the operands, and returns what stands between them.
  const char* Split(Span text) {
    const char* operation = " AND ";
    int depth = 0;
    Word begin = text.first;
    for (Word word = text.first; word != text.second; word = Behind(word)) {
      const Token token = TokenOf(word);
      if (token == Token::kOpen) ++depth;
      if (token == Token::kClose) --depth;
      if (depth > 0 || (token != Token::kAnd && token != Token::kOr)) continue;
      if (token == Token::kOr) operation = " OR ";
      fOperands.emplace_back(begin, word);
      begin = Behind(word);
    }
    fOperands.emplace_back(begin, text.second);
    return operation;
  }

  // What comes last is added first.
  void AddOperands(const Task& row) {
    if (row.end - row.begin > kMostInARow) {
      const std::size_t middle = row.begin + (row.end - row.begin) / 2;
      AddSql(")");
      fTasks.push_back(Task{Task::kOperands, row.depth, row.sql, middle, row.end, {}});
      AddSql("(");
      AddSql(row.sql);
      AddSql(")");
      fTasks.push_back(Task{Task::kOperands, row.depth, row.sql, row.begin, middle, {}});
      AddSql("(");
      return;
    }
    for (std::size_t i = row.end; i > row.begin; --i) {
      fTasks.push_back(Task{Task::kOperand, row.depth, nullptr, 0, 0, fOperands[i - 1]});
      if (i - 1 > row.begin) AddSql(row.sql);
    }
  }

  void WriteOperand(const Task& operand) {
    for (Word word = operand.text.first; word != operand.text.second; word = Behind(word)) {
      if (TokenOf(word) != Token::kOpen) {
        WriteToken(word);
        continue;
      }
      const Word close = CloseOf(word);
      fTasks.push_back(Task{Task::kOperand, operand.depth, nullptr, 0, 0, {Behind(close), operand.text.second}});
      AddSql(")");
      AddLevel({Behind(word), close}, operand.depth + 1);
      AddSql("(");
      return;
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
      case Token::kCompared:
        fSql.append(Address(word + 1)).append(Address(word + 2));
        return WriteParameter();
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
  // The next one is the last.
  std::vector<Task> fTasks;
  std::vector<Span> fOperands;
};

}  // namespace

void WriteSql(std::string& sql, const Words& text) { SqlWriter(sql, nullptr).Write({text.begin(), text.end()}); }

void WriteLiterals(std::string& sql, const Words& text, const Words& values) {
  ValueReader reader(values.begin());
  SqlWriter(sql, &reader).Write({text.begin(), text.end()});
}

namespace {

// Returns what is behind the value. Not inlined: most values are integers, which need none of it.
[[gnu::noinline]] Word BindAny(sqlite3_stmt* statement, int parameter, Word value) {
  ValueReader reader(value);
  reader.Next(Target{statement, parameter, true});
  return reader.Position();
}

}  // namespace

int BindValues(sqlite3_stmt* statement, int first, const Words& values) {
  int parameter = first;
  const Word end = values.end();
  for (Word value = values.begin(); value != end; ++parameter) {
    if (static_cast<Kind>(*value) == Kind::kInteger) {
      CheckBound(statement, sqlite3_bind_int64(statement, parameter, static_cast<std::int64_t>(value[1])));
      value += 2;
    } else {
      value = BindAny(statement, parameter, value);
    }
  }
  return parameter;
}

}  // namespace sqldb::kit::detail
