// POCO Data. Its statements are kept as objects, though it compiles them anew for some executions. What a kept one
// uses, and what it reads into, stays the same object.

#include <vector>

#include <Poco/Data/RecordSet.h>
#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/SQLite/Utility.h>
#include <Poco/Data/Session.h>
#include <Poco/Data/Statement.h>
#include <Poco/Data/TypeHandler.h>
#include <Poco/Nullable.h>

#include "layer.h"

namespace bench {

namespace {

// A part as POCO reads it: a text that may be NULL has a type of its own.
struct Row {
  Poco::Int64 id = 0;
  std::string name;
  double price = 0;
  Poco::Nullable<std::string> note;

  void Set(const Part& part) {
    id = part.id;
    name = part.name;
    price = part.price;
    if (part.note) {
      note = *part.note;
    } else {
      note.clear();
    }
  }
};

}  // namespace

}  // namespace bench

// How POCO reads the rows, which are bound by their members.
template <>
class Poco::Data::TypeHandler<bench::Row> {
 public:
  static std::size_t size() { return 4; }
  static void extract(std::size_t position, bench::Row& row, const bench::Row& ifNull,
                      AbstractExtractor::Ptr extractor) {
    TypeHandler<Poco::Int64>::extract(position, row.id, ifNull.id, extractor);
    TypeHandler<std::string>::extract(position + 1, row.name, ifNull.name, extractor);
    TypeHandler<double>::extract(position + 2, row.price, ifNull.price, extractor);
    TypeHandler<Poco::Nullable<std::string>>::extract(position + 3, row.note, ifNull.note, extractor);
  }
  static void prepare(std::size_t position, const bench::Row& row, AbstractPreparator::Ptr preparator) {
    TypeHandler<Poco::Int64>::prepare(position, row.id, preparator);
    TypeHandler<std::string>::prepare(position + 1, row.name, preparator);
    TypeHandler<double>::prepare(position + 2, row.price, preparator);
    TypeHandler<Poco::Nullable<std::string>>::prepare(position + 3, row.note, preparator);
  }
};

template <>
class Poco::Data::TypeHandler<bench::Item> {
 public:
  static std::size_t size() { return 4; }
  static void extract(std::size_t position, bench::Item& item, const bench::Item& ifNull,
                      AbstractExtractor::Ptr extractor) {
    using Number = TypeHandler<std::uint32_t>;
    Number::extract(position, item.id, ifNull.id, extractor);
    Number::extract(position + 1, item.quantity, ifNull.quantity, extractor);
    Number::extract(position + 2, item.price, ifNull.price, extractor);
    Number::extract(position + 3, item.stock, ifNull.stock, extractor);
  }
  static void prepare(std::size_t position, const bench::Item& item, AbstractPreparator::Ptr preparator) {
    using Number = TypeHandler<std::uint32_t>;
    Number::prepare(position, item.id, preparator);
    Number::prepare(position + 1, item.quantity, preparator);
    Number::prepare(position + 2, item.price, preparator);
    Number::prepare(position + 3, item.stock, preparator);
  }
};

namespace bench {

namespace {

using namespace Poco::Data::Keywords;

constexpr char kScanItems[] = "SELECT id, quantity, price, stock FROM items";
constexpr char kSelectItems[] =
    "SELECT id, quantity, price, stock FROM items WHERE id > ? ORDER BY id LIMIT ? OFFSET ?";

template <typename Record>
Record RecordOf(const Row& row) {
  Record record;
  record.id = row.id;
  record.name = row.name;
  record.price = row.price;
  if (!row.note.isNull()) record.note = row.note.value();
  return record;
}

// A kept statement with what it uses and reads into.
struct Kept {
  explicit Kept(Poco::Data::Session& session) : statement(session) {}

  // Reads all rows at once, which takes POCO less than to read them one by one.
  std::int64_t SumOfRows() {
    rows.clear();
    statement.execute();
    std::int64_t sum = 0;
    for (const Row& read : rows) sum += Sum(RecordOf<Part>(read));
    return sum;
  }

  Poco::Data::Statement statement;
  Row row;
  std::vector<Row> rows;
  Poco::Int64 from = 0;
  Poco::Int64 to = 0;
  double price = 0;
  std::string text;
};

Poco::Data::Session Open(const Place& place) {
  // All but the first call are only counted.
  Poco::Data::SQLite::Connector::registerConnector();
  return Poco::Data::Session("SQLite", place.path);
}

class PocoData final : public Layer {
 public:
  explicit PocoData(const Place& place) : fSession(Open(place)) {}

  void Send(const std::string& sql) override { fSession << sql, now; }
  std::int64_t Ask(const std::string& sql) override {
    Poco::Int64 value = 0;
    fSession << sql, into(value), now;
    return value;
  }

  Work FindByInteger() override {
    const auto find = std::make_shared<Kept>(fSession);
    find->statement << "SELECT id, name, price, note FROM parts WHERE id = ?", into(find->row), use(find->from);
    return [find](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        find->from = id;
        if (find->statement.execute() != 1) Fail("no row");
        sum += Sum(RecordOf<Part>(find->row));
      }
      return sum;
    };
  }

  Work FindByText() override {
    const auto find = std::make_shared<Kept>(fSession);
    find->statement << "SELECT id, name, price, note FROM named_parts WHERE name = ?", into(find->row), use(find->text);
    return [find](std::int64_t times) {
      std::int64_t sum = 0;
      find->text = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        find->text.replace(5, std::string::npos, std::to_string(id));
        if (find->statement.execute() != 1) Fail("no row");
        sum += Sum(RecordOf<NamedPart>(find->row));
      }
      return sum;
    };
  }

  Work Range() override {
    const auto select = std::make_shared<Kept>(fSession);
    select->statement << "SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ?", into(select->rows),
        use(select->from), use(select->to);
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
    const auto select = std::make_shared<Kept>(fSession);
    select->statement << "SELECT id, name, price, note FROM parts", into(select->rows);
    return [select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += select->SumOfRows();
      return sum;
    };
  }

  Work Insert() override { return Write("INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Update() override {
    const auto update = std::make_shared<Kept>(fSession);
    Row& row = update->row;
    update->statement << "UPDATE parts SET name = ?, price = ?, note = ? WHERE id = ?", use(row.name), use(row.price),
        use(row.note), use(row.id);
    return Writing(update);
  }
  Work Replace() override { return Write("REPLACE INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Upsert() override {
    return Write(
        "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?) ON CONFLICT (id) DO UPDATE SET name = "
        "excluded.name, price = excluded.price, note = excluded.note");
  }

  Work Delete() override {
    const auto remove = std::make_shared<Kept>(fSession);
    remove->statement << "DELETE FROM parts WHERE id = ?", use(remove->from);
    return [remove](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        remove->from = id;
        remove->statement.execute();
      }
      return std::int64_t{0};
    };
  }

  // The values of all rows together, a list for each column.
  Work InsertMany() override {
    const std::vector<Part> list = fNewParts.List();
    return [this, list](std::int64_t) {
      std::vector<Poco::Int64> ids;
      std::vector<std::string> names;
      std::vector<double> prices;
      std::vector<Poco::Nullable<std::string>> notes;
      for (const Part& part : list) {
        ids.push_back(part.id);
        names.push_back(part.name);
        prices.push_back(part.price);
        notes.push_back(part.note ? Poco::Nullable<std::string>(*part.note) : Poco::Nullable<std::string>());
      }
      fSession << "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)", use(ids), use(names), use(prices),
          use(notes), now;
      return std::int64_t{0};
    };
  }

  Work Count() override { return Number("SELECT COUNT(*) FROM parts WHERE id = ?"); }
  Work Has() override { return Number("SELECT 1 FROM parts WHERE id = ? LIMIT 1"); }

  Work Held() override { return FindByInteger(); }

  Work Filter() override {
    const auto select = std::make_shared<Kept>(fSession);
    select->statement << "SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ? AND price < ?",
        into(select->rows), use(select->from), use(select->to), use(select->price);
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
    const auto begin = std::make_shared<Kept>(fSession);
    const auto commit = std::make_shared<Kept>(fSession);
    begin->statement << "BEGIN IMMEDIATE";
    commit->statement << "COMMIT";
    return [begin, commit](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        begin->statement.execute();
        commit->statement.execute();
      }
      return std::int64_t{0};
    };
  }

  Work InsertItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        std::uint32_t price = i + 1;
        std::uint32_t stock = i + 2;
        fSession << "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)", use(i), use(price), use(stock), now;
      }
      return std::int64_t{0};
    };
  }

  // The values of all rows together.
  Work InsertItemsOnce() override {
    return [this](std::int64_t times) {
      const auto size = static_cast<std::size_t>(times);
      std::vector<std::uint32_t> quantities(size);
      std::vector<std::uint32_t> prices(size);
      std::vector<std::uint32_t> stocks(size);
      for (std::uint32_t i = 1; i <= times; ++i) {
        quantities[i - 1] = i;
        prices[i - 1] = i + 1;
        stocks[i - 1] = i + 2;
      }
      fSession << "INSERT INTO items (quantity, price, stock) VALUES (?, ?, ?)", use(quantities), use(prices),
          use(stocks), now;
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        std::uint32_t quantity = id + 1;
        std::uint32_t price = id + 2;
        fSession << "REPLACE INTO items (id, quantity, price) VALUES (?, ?, ?)", use(id), use(quantity), use(price),
            now;
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        std::uint32_t quantity = id % 100;
        fSession << "UPDATE items SET quantity = ? WHERE id = ?", use(quantity), use(id), now;
      }
      return std::int64_t{0};
    };
  }

  Work DeleteItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) fSession << "DELETE FROM items WHERE id = ?", use(id), now;
      return std::int64_t{0};
    };
  }

  // Reads all rows at once, which takes POCO less than to read them one by one.
  Work ScanItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        std::vector<Item> items;
        fSession << kScanItems, into(items), now;
        for (const Item& item : items) sum += Sum(item);
      }
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        Poco::Data::Statement select = (fSession << kScanItems);
        select.setStorage("vector");
        select.execute();
        const Poco::Data::RecordSet rows(select);
        for (std::size_t row = 0; row < rows.rowCount(); ++row) {
          for (std::size_t column = 0; column < 4; ++column) sum += rows.value<Poco::Int64>(column, row);
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
        fSession << "SELECT COUNT(ROWID) FROM items WHERE id = ?", into(count), use(id), now;
        sum += count;
      }
      return sum;
    };
  }

  Work HasItem() override {
    return [this](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        Poco::Int64 row = 0;
        Poco::Data::Statement select = (fSession << "SELECT ROWID FROM items WHERE id = ? LIMIT 1", into(row), use(id));
        if (select.execute() != 0) ++found;
      }
      return found;
    };
  }

  Work SelectItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        std::vector<Item> items;
        fSession << kSelectItems, into(items), use(id), bind(kLimit), bind(kOffset), now;
        for (const Item& item : items) sum += Sum(item);
      }
      return sum;
    };
  }

 private:
  Work Writing(const std::shared_ptr<Kept>& write) {
    return [this, write](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        write->row.Set(fNewParts(id));
        write->statement.execute();
      }
      return std::int64_t{0};
    };
  }
  Work Write(const char* sql) {
    const auto write = std::make_shared<Kept>(fSession);
    Row& row = write->row;
    write->statement << sql, use(row.id), use(row.name), use(row.price), use(row.note);
    return Writing(write);
  }

  // One number by key.
  Work Number(const char* sql) {
    const auto select = std::make_shared<Kept>(fSession);
    select->statement << sql, into(select->to), use(select->from);
    return [select](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        select->from = id;
        if (select->statement.execute() != 0) sum += select->to;
      }
      return sum;
    };
  }

  Work Like(const std::string& before, const std::string& after) {
    const auto select = std::make_shared<Kept>(fSession);
    select->statement << "SELECT id, name, price, note FROM parts WHERE name LIKE ?", into(select->rows),
        use(select->text);
    return [=](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        select->text = before + std::to_string(i % 10) + after;
        sum += select->SumOfRows();
      }
      return sum;
    };
  }

  Poco::Data::Session fSession;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakePoco(const Place& place) { return std::make_unique<PocoData>(place); }

}  // namespace bench
