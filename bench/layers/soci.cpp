// SOCI. What a kept statement uses, and what it reads into, stays the same object from one execution to the next.

#include <vector>

#include <soci/soci.h>

#include "layer.h"

namespace bench {

namespace {

using soci::into;
using soci::use;

constexpr char kScanItems[] = "SELECT id, quantity, price, stock FROM items";

// SOCI has no std::int64_t of its own, and a NULL of a text is told by an indicator.
struct Row {
  long long id = 0;
  std::string name;
  double price = 0;
  std::string note;
  soci::indicator hasNote = soci::i_null;

  void Set(const Part& part) {
    id = part.id;
    name = part.name;
    price = part.price;
    hasNote = part.note ? soci::i_ok : soci::i_null;
    if (part.note) note = *part.note;
  }
};

template <typename Record>
Record RecordOf(const Row& row) {
  Record record;
  record.id = row.id;
  record.name = row.name;
  record.price = row.price;
  if (row.hasNote == soci::i_ok) record.note = row.note;
  return record;
}

// Reads parts.
struct Selection {
  explicit Selection(soci::session& session) : statement(session) {}

  void Prepare(const char* sql) {
    statement.exchange(into(row.id));
    statement.exchange(into(row.name));
    statement.exchange(into(row.price));
    statement.exchange(into(row.note, row.hasNote));
    statement.alloc();
    statement.prepare(sql);
    statement.define_and_bind();
  }

  std::int64_t SumOfRows() {
    std::int64_t sum = 0;
    statement.execute();
    while (statement.fetch()) sum += Sum(RecordOf<Part>(row));
    return sum;
  }

  soci::statement statement;
  Row row;
  long long from = 0;
  long long to = 0;
  double price = 0;
  std::string text;
};

class Soci final : public Layer {
 public:
  // The backend is named rather than linked: its header puts all of sqlite3.h into a namespace.
  explicit Soci(const Place& place) : fSession("sqlite3", place.path) {}

  void Send(const std::string& sql) override { fSession << sql; }
  std::int64_t Ask(const std::string& sql) override {
    long long value = 0;
    fSession << sql, into(value);
    return value;
  }

  Work FindByInteger() override {
    const auto find = std::make_shared<Selection>(fSession);
    find->statement.exchange(use(find->from));
    find->Prepare("SELECT id, name, price, note FROM parts WHERE id = :id");
    return [find](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        find->from = id;
        if (!find->statement.execute(true)) Fail("no row");
        sum += Sum(RecordOf<Part>(find->row));
      }
      return sum;
    };
  }

  Work FindByText() override {
    const auto find = std::make_shared<Selection>(fSession);
    find->statement.exchange(use(find->text));
    find->Prepare("SELECT id, name, price, note FROM named_parts WHERE name = :name");
    return [find](std::int64_t times) {
      std::int64_t sum = 0;
      find->text = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        find->text.replace(5, std::string::npos, std::to_string(id));
        if (!find->statement.execute(true)) Fail("no row");
        sum += Sum(RecordOf<NamedPart>(find->row));
      }
      return sum;
    };
  }

  Work Range() override {
    const auto select = std::make_shared<Selection>(fSession);
    select->statement.exchange(use(select->from));
    select->statement.exchange(use(select->to));
    select->Prepare("SELECT id, name, price, note FROM parts WHERE id >= :from AND id < :to");
    return [select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->from = id;
        select->to = id + kRange;
        sum += select->SumOfRows();
      }
      return sum;
    };
  }

  Work Scan() override {
    const auto select = std::make_shared<Selection>(fSession);
    select->Prepare("SELECT id, name, price, note FROM parts");
    return [select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += select->SumOfRows();
      return sum;
    };
  }

  Work Insert() override {
    return Write("INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)");
  }
  Work Update() override {
    const auto row = std::make_shared<Row>();
    return Writing(row, std::make_shared<soci::statement>(
                            (fSession.prepare << "UPDATE parts SET name = :name, price = :price, note = :note "
                                                 "WHERE id = :id",
                             use(row->name), use(row->price), use(row->note, row->hasNote), use(row->id))));
  }
  Work Replace() override {
    return Write("REPLACE INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)");
  }
  Work Upsert() override {
    return Write(
        "INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note) ON CONFLICT (id) DO "
        "UPDATE SET name = excluded.name, price = excluded.price, note = excluded.note");
  }

  Work Delete() override {
    const auto key = std::make_shared<long long>();
    const auto remove =
        std::make_shared<soci::statement>((fSession.prepare << "DELETE FROM parts WHERE id = :id", use(*key)));
    return [key, remove](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        *key = id;
        remove->execute(true);
      }
      return std::int64_t{0};
    };
  }

  Work InsertMany() override {
    const std::vector<Part> list = fNewParts.List();
    const auto row = std::make_shared<Row>();
    const auto insert = Prepare("INSERT INTO parts (id, name, price, note) VALUES (:id, :name, :price, :note)", *row);
    return [list, row, insert](std::int64_t) {
      for (const Part& part : list) {
        row->Set(part);
        insert->execute(true);
      }
      return std::int64_t{0};
    };
  }

  Work Count() override { return Number("SELECT COUNT(*) FROM parts WHERE id = :id"); }
  Work Has() override { return Number("SELECT 1 FROM parts WHERE id = :id LIMIT 1"); }

  Work Held() override { return FindByInteger(); }

  Work Filter() override {
    const auto select = std::make_shared<Selection>(fSession);
    select->statement.exchange(use(select->from));
    select->statement.exchange(use(select->to));
    select->statement.exchange(use(select->price));
    select->Prepare("SELECT id, name, price, note FROM parts WHERE id >= :from AND id < :to AND price < :price");
    return [select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->from = id;
        select->to = id + 2 * kFiltered;
        select->price = static_cast<double>(id + kFiltered) / 2;
        sum += select->SumOfRows();
      }
      return sum;
    };
  }

  Work LikeEnd() override { return Like("%", ""); }
  Work LikeBeginning() override { return Like("part ", "%"); }

  Work Transaction() override {
    const auto begin = std::make_shared<soci::statement>((fSession.prepare << "BEGIN IMMEDIATE"));
    const auto commit = std::make_shared<soci::statement>((fSession.prepare << "COMMIT"));
    return [begin, commit](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        begin->execute(true);
        commit->execute(true);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        const std::uint32_t price = i + 1;
        const std::uint32_t stock = i + 2;
        fSession << "INSERT INTO items (quantity, price, stock) VALUES (:quantity, :price, :stock)", use(i), use(price),
            use(stock);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItemsOnce() override {
    const auto item = std::make_shared<Item>();
    const auto insert = std::make_shared<soci::statement>(
        (fSession.prepare << "INSERT INTO items (quantity, price, stock) VALUES (:quantity, :price, :stock)",
         use(item->quantity), use(item->price), use(item->stock)));
    return [item, insert](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        *item = Item{0, i, i + 1, i + 2};
        insert->execute(true);
      }
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        const std::uint32_t quantity = id + 1;
        const std::uint32_t price = id + 2;
        fSession << "REPLACE INTO items (id, quantity, price) VALUES (:id, :quantity, :price)", use(id), use(quantity),
            use(price);
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        const std::uint32_t quantity = id % 100;
        fSession << "UPDATE items SET quantity = :quantity WHERE id = :id", use(quantity), use(id);
      }
      return std::int64_t{0};
    };
  }

  Work DeleteItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) fSession << "DELETE FROM items WHERE id = :id", use(id);
      return std::int64_t{0};
    };
  }

  // Reads a hundred rows at a time into a vector for each column, which takes SOCI less than to read them one by one.
  Work ScanItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += ScanByColumns();
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        const soci::rowset<soci::row> rows = fSession.prepare << kScanItems;
        for (const soci::row& row : rows) {
          for (std::size_t column = 0; column < 4; ++column) sum += row.get<int>(column);
        }
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        int count = 0;
        fSession << "SELECT COUNT(ROWID) FROM items WHERE id = :id", into(count), use(id);
        sum += count;
      }
      return sum;
    };
  }

  Work HasItem() override {
    return [this](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        long long row = 0;
        fSession << "SELECT ROWID FROM items WHERE id = :id LIMIT 1", into(row), use(id);
        if (fSession.got_data()) ++found;
      }
      return found;
    };
  }

  Work SelectItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        Item item{};
        soci::statement statement =
            (fSession.prepare
                 << "SELECT id, quantity, price, stock FROM items WHERE id > :id ORDER BY id LIMIT :limit OFFSET "
                    ":offset",
             into(item.id), into(item.quantity), into(item.price), into(item.stock), use(id), use(kLimit),
             use(kOffset));
        statement.execute();
        while (statement.fetch()) sum += Sum(item);
      }
      return sum;
    };
  }

 private:
  std::shared_ptr<soci::statement> Prepare(const char* sql, Row& row) {
    return std::make_shared<soci::statement>(
        (fSession.prepare << sql, use(row.id), use(row.name), use(row.price), use(row.note, row.hasNote)));
  }

  Work Writing(const std::shared_ptr<Row>& row, const std::shared_ptr<soci::statement>& write) {
    return [this, row, write](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        row->Set(fNewParts(id));
        write->execute(true);
      }
      return std::int64_t{0};
    };
  }
  Work Write(const char* sql) {
    const auto row = std::make_shared<Row>();
    return Writing(row, Prepare(sql, *row));
  }

  // One number by key.
  Work Number(const char* sql) {
    const auto key = std::make_shared<long long>();
    const auto number = std::make_shared<long long>();
    const auto select = std::make_shared<soci::statement>((fSession.prepare << sql, into(*number), use(*key)));
    return [key, number, select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        *key = id;
        if (select->execute(true)) sum += *number;
      }
      return sum;
    };
  }

  Work Like(const std::string& before, const std::string& after) {
    const auto select = std::make_shared<Selection>(fSession);
    select->statement.exchange(use(select->text));
    select->Prepare("SELECT id, name, price, note FROM parts WHERE name LIKE :pattern");
    return [=](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        select->text = before + std::to_string(i % 10) + after;
        sum += select->SumOfRows();
      }
      return sum;
    };
  }

  std::int64_t ScanByColumns() {
    constexpr std::size_t kRowsAtOnce = 100;
    std::vector<std::uint32_t> ids(kRowsAtOnce);
    std::vector<std::uint32_t> quantities(kRowsAtOnce);
    std::vector<std::uint32_t> prices(kRowsAtOnce);
    std::vector<std::uint32_t> stocks(kRowsAtOnce);
    soci::statement statement =
        (fSession.prepare << kScanItems, into(ids), into(quantities), into(prices), into(stocks));
    statement.execute();
    std::int64_t sum = 0;
    while (statement.fetch()) {
      for (std::size_t row = 0; row < ids.size(); ++row) {
        sum += Sum(Item{ids[row], quantities[row], prices[row], stocks[row]});
      }
      // The last rows may have been fewer.
      ids.resize(kRowsAtOnce);
      quantities.resize(kRowsAtOnce);
      prices.resize(kRowsAtOnce);
      stocks.resize(kRowsAtOnce);
    }
    return sum;
  }

  soci::session fSession;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakeSoci(const Place& place) { return std::make_unique<Soci>(place); }

}  // namespace bench
