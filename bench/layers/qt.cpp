// Qt SQL. Its queries are prepared and kept, and read once from the first row to the last.

#include <vector>

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include "layer.h"

namespace bench {

namespace {

constexpr char kScanItems[] = "SELECT id, quantity, price, stock FROM items";

// Qt keeps connections by name.
QString NewConnectionName() {
  static int last = 0;
  return QString::number(++last);
}

void Execute(QSqlQuery& query) {
  if (!query.exec()) Fail(query.lastError().text().toStdString());
}

void Finish(QSqlQuery& query) {
  Execute(query);
  query.finish();
}

qlonglong Number(std::int64_t number) { return number; }

// The texts are converted, since those of Qt are of another encoding.
void ReadNote(const QSqlQuery& query, std::optional<std::string>& note) {
  const QVariant value = query.value(3);
  if (value.isNull()) {
    note.reset();
  } else {
    note = value.toString().toStdString();
  }
}

void Read(const QSqlQuery& query, Part& part) {
  part.id = query.value(0).toLongLong();
  part.name = query.value(1).toString().toStdString();
  part.price = query.value(2).toDouble();
  ReadNote(query, part.note);
}

void Read(const QSqlQuery& query, NamedPart& part) {
  part.name = query.value(0).toString().toStdString();
  part.id = query.value(1).toLongLong();
  part.price = query.value(2).toDouble();
  ReadNote(query, part.note);
}

void Read(const QSqlQuery& query, Item& item) {
  item.id = query.value(0).toUInt();
  item.quantity = query.value(1).toUInt();
  item.price = query.value(2).toUInt();
  item.stock = query.value(3).toUInt();
}

template <typename Row>
std::int64_t SumOfRow(QSqlQuery& query) {
  Execute(query);
  Row row;
  if (!query.next()) Fail("no row");
  Read(query, row);
  query.finish();
  return Sum(row);
}

template <typename Row>
std::int64_t SumOfRows(QSqlQuery& query) {
  Execute(query);
  std::int64_t sum = 0;
  Row row{};
  while (query.next()) {
    Read(query, row);
    sum += Sum(row);
  }
  query.finish();
  return sum;
}

void Bind(QSqlQuery& query, const Part& part) {
  query.bindValue(QStringLiteral(":id"), Number(part.id));
  query.bindValue(QStringLiteral(":name"), QString::fromStdString(part.name));
  query.bindValue(QStringLiteral(":price"), part.price);
  query.bindValue(QStringLiteral(":note"), part.note ? QVariant(QString::fromStdString(*part.note)) : QVariant());
}

class Qt final : public Layer {
 public:
  explicit Qt(const Place& place) : fDatabase(QSqlDatabase::addDatabase("QSQLITE", NewConnectionName())) {
    fDatabase.setDatabaseName(QString::fromStdString(place.path));
    if (!fDatabase.open()) Fail(fDatabase.lastError().text().toStdString());
  }
  ~Qt() override {
    const QString name = fDatabase.connectionName();
    // A connection that is still referred to is not removed.
    fDatabase = QSqlDatabase();
    QSqlDatabase::removeDatabase(name);
  }

  void Send(const std::string& sql) override {
    QSqlQuery query = Prepare(QString::fromStdString(sql));
    Execute(query);
  }
  std::int64_t Ask(const std::string& sql) override {
    QSqlQuery query = Prepare(QString::fromStdString(sql));
    Execute(query);
    query.next();
    return query.value(0).toLongLong();
  }

  Work FindByInteger() override {
    return [find = Keep(QStringLiteral("SELECT id, name, price, note FROM parts WHERE id = ?"))](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        find->bindValue(0, Number(id));
        sum += SumOfRow<Part>(*find);
      }
      return sum;
    };
  }

  Work FindByText() override {
    return [find = Keep(QStringLiteral("SELECT name, id, price, note FROM named_parts WHERE name = ?"))](
               std::int64_t times) {
      std::int64_t sum = 0;
      std::string name = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        name.replace(5, std::string::npos, std::to_string(id));
        find->bindValue(0, QString::fromStdString(name));
        sum += SumOfRow<NamedPart>(*find);
      }
      return sum;
    };
  }

  Work Range() override {
    return [select = Keep(QStringLiteral("SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ?"))](
               std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->bindValue(0, Number(id));
        select->bindValue(1, Number(id + kRange));
        sum += SumOfRows<Part>(*select);
      }
      return sum;
    };
  }

  Work Scan() override {
    return [select = Keep(QStringLiteral("SELECT id, name, price, note FROM parts"))](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOfRows<Part>(*select);
      return sum;
    };
  }

  Work Insert() override {
    return Write(QStringLiteral("INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)"));
  }
  Work Update() override {
    return Write(QStringLiteral("UPDATE parts SET name = :name, price = :price, note = :note WHERE id = :id"));
  }
  Work Replace() override {
    return Write(QStringLiteral("REPLACE INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)"));
  }
  Work Upsert() override {
    return Write(
        QStringLiteral("INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note) ON "
                       "CONFLICT (id) DO UPDATE SET name = excluded.name, price = excluded.price, note = "
                       "excluded.note"));
  }

  Work Delete() override {
    return [remove = Keep(QStringLiteral("DELETE FROM parts WHERE id = ?"))](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        remove->bindValue(0, Number(id));
        Finish(*remove);
      }
      return std::int64_t{0};
    };
  }

  Work InsertMany() override {
    const std::vector<Part> list = fNewParts.List();
    return [list, insert = Keep(QStringLiteral(
                      "INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)"))](std::int64_t) {
      for (const Part& part : list) {
        Bind(*insert, part);
        Finish(*insert);
      }
      return std::int64_t{0};
    };
  }

  Work Count() override { return OneNumber(QStringLiteral("SELECT COUNT(*) FROM parts WHERE id = ?")); }
  Work Has() override { return OneNumber(QStringLiteral("SELECT 1 FROM parts WHERE id = ? LIMIT 1")); }

  Work Held() override { return FindByInteger(); }

  Work Filter() override {
    return [select =
                Keep(QStringLiteral("SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ? AND price < ?"))](
               std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->bindValue(0, Number(id));
        select->bindValue(1, Number(id + 2 * kFiltered));
        select->bindValue(2, static_cast<double>(id + kFiltered) / 2);
        sum += SumOfRows<Part>(*select);
      }
      return sum;
    };
  }

  Work LikeEnd() override { return Like("%", ""); }
  Work LikeBeginning() override { return Like("part ", "%"); }

  Work Transaction() override {
    return
        [begin = Keep(QStringLiteral("BEGIN IMMEDIATE")), commit = Keep(QStringLiteral("COMMIT"))](std::int64_t times) {
          for (std::int64_t i = 0; i < times; ++i) {
            Finish(*begin);
            Finish(*commit);
          }
          return std::int64_t{0};
        };
  }

  Work InsertItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        QSqlQuery query = Prepare(QStringLiteral("INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)"));
        query.addBindValue(i);
        query.addBindValue(i + 1);
        query.addBindValue(i + 2);
        Execute(query);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItemsOnce() override {
    return [query = Keep(QStringLiteral("INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)"))](
               std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        query->bindValue(0, i);
        query->bindValue(1, i + 1);
        query->bindValue(2, i + 2);
        Execute(*query);
      }
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        QSqlQuery query = Prepare(QStringLiteral("REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)"));
        query.addBindValue(id);
        query.addBindValue(id + 1);
        query.addBindValue(id + 2);
        Execute(query);
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        QSqlQuery query = Prepare(QStringLiteral("UPDATE items SET quantity = ? WHERE id = ?"));
        query.addBindValue(id % 100);
        query.addBindValue(id);
        Execute(query);
      }
      return std::int64_t{0};
    };
  }

  Work DeleteItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        QSqlQuery query = Prepare(QStringLiteral("DELETE FROM items WHERE id = ?"));
        query.addBindValue(id);
        Execute(query);
      }
      return std::int64_t{0};
    };
  }

  Work ScanItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        QSqlQuery query = Prepare(QLatin1String(kScanItems));
        sum += SumOfRows<Item>(query);
      }
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        QSqlQuery query = Prepare(QLatin1String(kScanItems));
        Execute(query);
        while (query.next()) {
          for (int column = 0; column < 4; ++column) sum += query.value(column).toInt();
        }
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        QSqlQuery query = Prepare(QStringLiteral("SELECT COUNT(ROWID) FROM items WHERE id = ?"));
        query.addBindValue(id);
        Execute(query);
        query.next();
        sum += query.value(0).toInt();
      }
      return sum;
    };
  }

  Work HasItem() override {
    return [this](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        QSqlQuery query = Prepare(QStringLiteral("SELECT ROWID FROM items WHERE id = ? LIMIT 1"));
        query.addBindValue(id);
        Execute(query);
        if (query.next()) ++found;
      }
      return found;
    };
  }

  Work SelectItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        QSqlQuery query = Prepare(
            QStringLiteral("SELECT id, quantity, price, stock FROM items WHERE id > ? ORDER BY id LIMIT ? OFFSET ?"));
        query.bindValue(0, id);
        query.bindValue(1, kLimit);
        query.bindValue(2, kOffset);
        sum += SumOfRows<Item>(query);
      }
      return sum;
    };
  }

 private:
  QSqlQuery Prepare(const QString& sql) {
    QSqlQuery query(fDatabase);
    query.setForwardOnly(true);
    if (!query.prepare(sql)) Fail(query.lastError().text().toStdString());
    return query;
  }

  std::shared_ptr<QSqlQuery> Keep(const QString& sql) { return std::make_shared<QSqlQuery>(Prepare(sql)); }

  Work Write(const QString& sql) {
    return [this, write = Keep(sql)](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        Bind(*write, fNewParts(id));
        Finish(*write);
      }
      return std::int64_t{0};
    };
  }

  // One number by key.
  Work OneNumber(const QString& sql) {
    return [select = Keep(sql)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->bindValue(0, Number(id));
        Execute(*select);
        if (select->next()) sum += select->value(0).toLongLong();
        select->finish();
      }
      return sum;
    };
  }

  Work Like(const std::string& before, const std::string& after) {
    return [before, after, select = Keep(QStringLiteral("SELECT id, name, price, note FROM parts WHERE name LIKE ?"))](
               std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        select->bindValue(0, QString::fromStdString(before + std::to_string(i % 10) + after));
        sum += SumOfRows<Part>(*select);
      }
      return sum;
    };
  }

  QSqlDatabase fDatabase;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakeQt(const Place& place) { return std::make_unique<Qt>(place); }

}  // namespace bench
