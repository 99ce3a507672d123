#ifndef SQLDB_BENCH_QT_ITEMS_H
#define SQLDB_BENCH_QT_ITEMS_H

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include "items.h"

namespace bench {

// A connection of Qt SQL, with the table, in a transaction.
class QtItems {
 public:
  QtItems();
  ~QtItems();
  QtItems(const QtItems&) = delete;
  QtItems& operator=(const QtItems&) = delete;

  void Send(const char* sql);
  // Compiles `sql`, for rows that are read once from the first to the last.
  QSqlQuery Prepare(const QString& sql);
  std::int64_t Changes() const { return sqlite3_total_changes64(fConnection); }

 private:
  QSqlDatabase fDatabase;
  sqlite3* fConnection = nullptr;
};

// Executes a query that must not fail.
void Execute(QSqlQuery& query);

}  // namespace bench

#endif  // SQLDB_BENCH_QT_ITEMS_H
