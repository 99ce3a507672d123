// SQLiteCpp. Its statements are kept as objects; texts are bound without a copy, as it offers.

#include <vector>

#include <SQLiteCpp/SQLiteCpp.h>

#include "layer.h"

namespace bench {

namespace {

constexpr char kFind[] = "SELECT id, name, price, note FROM parts WHERE id = ?";
constexpr char kScanItems[] = "SELECT id, quantity, price, stock FROM items";
constexpr char kSelectItems[] =
    "SELECT id, quantity, price, stock FROM items WHERE id > ? ORDER BY id LIMIT ? OFFSET ?";

void ReadNote(SQLite::Statement& query, std::optional<std::string>& note) {
  const SQLite::Column column = query.getColumn(3);
  if (column.isNull()) {
    note.reset();
  } else {
    note = column.getString();
  }
}

void Read(SQLite::Statement& query, Part& part) {
  part.id = query.getColumn(0).getInt64();
  part.name = query.getColumn(1).getString();
  part.price = query.getColumn(2).getDouble();
  ReadNote(query, part.note);
}

void Read(SQLite::Statement& query, NamedPart& part) {
  part.name = query.getColumn(0).getString();
  part.id = query.getColumn(1).getInt64();
  part.price = query.getColumn(2).getDouble();
  ReadNote(query, part.note);
}

void Bind(SQLite::Statement& query, const Part& part) {
  query.bind(1, part.id);
  query.bindNoCopy(2, part.name);
  query.bind(3, part.price);
  if (part.note) {
    query.bindNoCopy(4, *part.note);
  } else {
    query.bind(4);
  }
}

template <typename Row>
std::int64_t SumOfRow(SQLite::Statement& query) {
  Row row;
  if (!query.executeStep()) Fail("no row");
  Read(query, row);
  query.reset();
  return Sum(row);
}

std::int64_t SumOfRows(SQLite::Statement& query) {
  std::int64_t sum = 0;
  Part part;
  while (query.executeStep()) {
    Read(query, part);
    sum += Sum(part);
  }
  query.reset();
  return sum;
}

void Execute(SQLite::Statement& query) {
  query.exec();
  query.reset();
}

class SqliteCpp final : public Layer {
 public:
  explicit SqliteCpp(const Place& place)
      : fDatabase(place.path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE |
                                  (place.hasMutexes ? SQLite::OPEN_FULLMUTEX : SQLite::OPEN_NOMUTEX)) {}

  void Send(const std::string& sql) override { fDatabase.exec(sql); }
  std::int64_t Ask(const std::string& sql) override { return fDatabase.execAndGet(sql).getInt64(); }

  Work FindByInteger() override {
    return [find = Keep(kFind)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        find->bind(1, id);
        sum += SumOfRow<Part>(*find);
      }
      return sum;
    };
  }

  Work FindByText() override {
    return [find = Keep("SELECT name, id, price, note FROM named_parts WHERE name = ?")](std::int64_t times) {
      std::int64_t sum = 0;
      std::string name = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        name.replace(5, std::string::npos, std::to_string(id));
        find->bindNoCopy(1, name);
        sum += SumOfRow<NamedPart>(*find);
      }
      return sum;
    };
  }

  Work Range() override {
    return [select = Keep("SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->bind(1, id);
        select->bind(2, id + kRange);
        sum += SumOfRows(*select);
      }
      return sum;
    };
  }

  Work Scan() override {
    return [select = Keep("SELECT id, name, price, note FROM parts")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOfRows(*select);
      return sum;
    };
  }

  Work Insert() override { return Write("INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Update() override { return Write("UPDATE parts SET name = ?2, price = ?3, note = ?4 WHERE id = ?1"); }
  Work Replace() override { return Write("REPLACE INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Upsert() override {
    return Write(
        "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?) ON CONFLICT (id) DO UPDATE SET name = "
        "excluded.name, price = excluded.price, note = excluded.note");
  }

  Work Delete() override {
    return [remove = Keep("DELETE FROM parts WHERE id = ?")](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        remove->bind(1, id);
        Execute(*remove);
      }
      return std::int64_t{0};
    };
  }

  Work InsertMany() override {
    const std::vector<Part> list = fNewParts.List();
    return [list, insert = Keep("INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)")](std::int64_t) {
      for (const Part& part : list) {
        Bind(*insert, part);
        Execute(*insert);
      }
      return std::int64_t{0};
    };
  }

  Work Count() override {
    return [count = Keep("SELECT COUNT(*) FROM parts WHERE id = ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        count->bind(1, id);
        count->executeStep();
        sum += count->getColumn(0).getInt64();
        count->reset();
      }
      return sum;
    };
  }

  Work Has() override {
    return [has = Keep("SELECT 1 FROM parts WHERE id = ? LIMIT 1")](std::int64_t times) {
      std::int64_t found = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        has->bind(1, id);
        if (has->executeStep()) ++found;
        has->reset();
      }
      return found;
    };
  }

  Work Held() override { return FindByInteger(); }

  Work Filter() override {
    constexpr char kFilter[] = "SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ? AND price < ?";
    return [select = Keep(kFilter)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->bind(1, id);
        select->bind(2, id + 2 * kFiltered);
        select->bind(3, static_cast<double>(id + kFiltered) / 2);
        sum += SumOfRows(*select);
      }
      return sum;
    };
  }

  Work LikeEnd() override { return Like("%", ""); }
  Work LikeBeginning() override { return Like("part ", "%"); }

  Work Transaction() override {
    return [begin = Keep("BEGIN IMMEDIATE"), commit = Keep("COMMIT")](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        Execute(*begin);
        Execute(*commit);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        SQLite::Statement query(fDatabase, "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)");
        query.bind(1, i);
        query.bind(2, i + 1);
        query.bind(3, i + 2);
        query.exec();
      }
      return std::int64_t{0};
    };
  }

  Work InsertItemsOnce() override {
    return [query = Keep("INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)")](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        query->bind(1, i);
        query->bind(2, i + 1);
        query->bind(3, i + 2);
        Execute(*query);
      }
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        SQLite::Statement query(fDatabase, "REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)");
        query.bind(1, id);
        query.bind(2, id + 1);
        query.bind(3, id + 2);
        query.exec();
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        SQLite::Statement query(fDatabase, "UPDATE items SET quantity = ? WHERE id = ?");
        query.bind(1, id % 100);
        query.bind(2, id);
        query.exec();
      }
      return std::int64_t{0};
    };
  }

  Work DeleteItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        SQLite::Statement query(fDatabase, "DELETE FROM items WHERE id = ?");
        query.bind(1, id);
        query.exec();
      }
      return std::int64_t{0};
    };
  }

  Work ScanItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        SQLite::Statement query(fDatabase, kScanItems);
        while (query.executeStep()) sum += Sum(query.getColumns<Item, 4>());
      }
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        SQLite::Statement query(fDatabase, kScanItems);
        while (query.executeStep()) {
          for (int column = 0; column < 4; ++column) sum += query.getColumn(column).getInt();
        }
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        SQLite::Statement query(fDatabase, "SELECT COUNT(ROWID) FROM items WHERE id = ?");
        query.bind(1, id);
        query.executeStep();
        sum += query.getColumn(0).getInt();
      }
      return sum;
    };
  }

  Work HasItem() override {
    return [this](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        SQLite::Statement query(fDatabase, "SELECT ROWID FROM items WHERE id = ? LIMIT 1");
        query.bind(1, id);
        if (query.executeStep()) ++found;
      }
      return found;
    };
  }

  Work SelectItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        SQLite::Statement query(fDatabase, kSelectItems);
        query.bind(1, id);
        query.bind(2, kLimit);
        query.bind(3, kOffset);
        while (query.executeStep()) sum += Sum(query.getColumns<Item, 4>());
      }
      return sum;
    };
  }

 private:
  std::shared_ptr<SQLite::Statement> Keep(const char* sql) {
    return std::make_shared<SQLite::Statement>(fDatabase, sql);
  }

  Work Write(const char* sql) {
    return [this, write = Keep(sql)](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        Bind(*write, fNewParts(id));
        Execute(*write);
      }
      return std::int64_t{0};
    };
  }

  Work Like(const std::string& before, const std::string& after) {
    return [=, select = Keep("SELECT id, name, price, note FROM parts WHERE name LIKE ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        const std::string text = before + std::to_string(i % 10) + after;
        select->bindNoCopy(1, text);
        sum += SumOfRows(*select);
      }
      return sum;
    };
  }

  SQLite::Database fDatabase;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakeSqliteCpp(const Place& place) { return std::make_unique<SqliteCpp>(place); }

}  // namespace bench
