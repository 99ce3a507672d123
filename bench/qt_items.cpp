#include "qt_items.h"

#include <QSqlDriver>
#include <QSqlError>

namespace bench {

namespace {

// Qt keeps connections by name.
QString NewConnectionName() {
  static int last = 0;
  return QString::number(++last);
}

}  // namespace

QtItems::QtItems() : fDatabase(QSqlDatabase::addDatabase("QSQLITE", NewConnectionName())) {
  fDatabase.setDatabaseName(":memory:");
  if (!fDatabase.open()) Fail(fDatabase.lastError().text().toStdString());
  fConnection = *static_cast<sqlite3* const*>(fDatabase.driver()->handle().constData());
  Send(kCreateItems);
  Send(kFillItems);
  Send("BEGIN");
}

QtItems::~QtItems() {
  const QString name = fDatabase.connectionName();
  // A connection that is still referred to is not removed.
  fDatabase = QSqlDatabase();
  QSqlDatabase::removeDatabase(name);
}

void QtItems::Send(const char* sql) {
  QSqlQuery query = Prepare(sql);
  Execute(query);
}

QSqlQuery QtItems::Prepare(const QString& sql) {
  QSqlQuery query(fDatabase);
  query.setForwardOnly(true);
  if (!query.prepare(sql)) Fail(query.lastError().text().toStdString());
  return query;
}

void Execute(QSqlQuery& query) {
  if (!query.exec()) Fail(query.lastError().text().toStdString());
}

}  // namespace bench
