#include "sqldb/database.h"

#include <iostream>
#include <stdexcept>
#include <string>

#include <sqlite3.h>

#include "database/connection_record.h"

namespace sqldb {

namespace {

constexpr char kExplain[] = "EXPLAIN ";
constexpr int kOperationName = 1;  // column of EXPLAIN's result

// The values of SQLDatabase::fExplainLevel that are not "only what sorts".
constexpr int kOff = 0;
constexpr int kEverything = 1;

void AppendOperation(std::string& explanation, bool isFirst, sqlite3_stmt* statement) {
  if (!isFirst) explanation += ", ";
  // Null when memory runs out; the next step then fails.
  const unsigned char* const name = sqlite3_column_text(statement, kOperationName);
  if (name != nullptr) explanation += reinterpret_cast<const char*>(name);
}

// At once, so that what several threads explain does not mix.
void LogExplanation(const std::string& sql, const char* label, const std::string& explanation) {
  std::clog << "- (SQLDatabase::ExplainQuery) EXPLAIN Query: '" + sql + "'.\n" + "  " + label + ": '" + explanation +
                   "'.\n";
}

}  // namespace

void SQLDatabase::ThrowExplainError(sqlite3* connection, const char* ending) const {
  const std::string message = sqlite3_errmsg(connection);
  // The label says SendQuery on purpose: it is part of the log's format.
  if (fLogErrors != 0) std::clog << "- (SQLDatabase::SendQuery) Explain error: '" + message + ending;
  throw std::runtime_error(message);
}

void SQLDatabase::ExplainQuery(const std::string& sql) {
  if (fExplainLevel == kOff) return;

  sqlite3* const connection = Connection();
  std::string explanation;
  bool isFirst = true;
  std::string text = kExplain + sql;
  SentStatement sent(*this);
  while (true) {
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare(connection, text.c_str(), -1, &statement, &tail) != SQLITE_OK) {
      ThrowExplainError(connection, "' (C).\n");
    }
    sent.fStatement = statement;
    int result = sqlite3_step(statement);
    for (; result == SQLITE_ROW; result = sqlite3_step(statement)) {
      AppendOperation(explanation, isFirst, statement);
      isFirst = false;
    }
    if (result != SQLITE_DONE && result != SQLITE_OK) {
      sent.fHasFailed = true;
      ThrowExplainError(connection, "' (A).\n");
    }
    sent.fStatement = nullptr;
    if (sqlite3_finalize(statement) != SQLITE_OK) ThrowExplainError(connection, "' (B).\n");

    const char* const end = text.c_str() + text.size();
    if (tail == end) break;
    text = kExplain + std::string(tail, end);
  }

  if (fExplainLevel == kEverything) {
    LogExplanation(sql, "Explanation", explanation);
  } else if (explanation.find("Sort") != std::string::npos) {
    LogExplanation(sql, "Explanation (SORT!)", explanation);
  }
}

}  // namespace sqldb
