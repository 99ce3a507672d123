// The same small program on Qt SQL.

#include <cstdint>
#include <iostream>

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

struct Part {
  std::uint32_t id, quantity;
};

// Failures are told by return values only. The source is a database or a query.
template <typename Source>
void Check(bool succeeded, const Source& source) {
  if (!succeeded) qFatal("%s", qPrintable(source.lastError().text()));
}

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);  // finds the plugin for SQLite
  QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE");
  database.setDatabaseName(":memory:");
  Check(database.open(), database);

  QSqlQuery query;
  Check(query.exec("CREATE TABLE parts (id INTEGER, quantity INTEGER)"), query);

  Check(query.prepare("INSERT INTO parts (id, quantity) VALUES (?, ?)"), query);
  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    query.bindValue(0, part.id);
    query.bindValue(1, part.quantity);
    Check(query.exec(), query);
  }

  Check(query.exec("SELECT id, quantity FROM parts WHERE quantity > 0 LIMIT 10"), query);
  while (query.next()) {
    const Part part{query.value(0).toUInt(), query.value(1).toUInt()};
    std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
