// The kit, which keeps its statements for every work.

#include <utility>
#include <vector>

#include "layer.h"
#include "layers/kit_wide.h"
#include "sqldb/kit/kit.h"
#include "sqldb/kit/transaction.h"

// The structs of the layers are described from outside.
template <>
struct sqldb::kit::Described<bench::Part> {
  static constexpr auto Description() {
    using bench::Part;
    return Describe("parts", Key("id", &Part::id), Field("name", &Part::name), Field("price", &Part::price),
                    Field("note", &Part::note));
  }
};

template <>
struct sqldb::kit::Described<bench::NamedPart> {
  static constexpr auto Description() {
    using bench::NamedPart;
    return Describe("named_parts", Key("name", &NamedPart::name), Field("id", &NamedPart::id),
                    Field("price", &NamedPart::price), Field("note", &NamedPart::note));
  }
};

template <>
struct sqldb::kit::Described<bench::Item> {
  static constexpr auto Description() {
    using bench::Item;
    return Describe("items", Key("id", &Item::id), Field("quantity", &Item::quantity), Field("price", &Item::price),
                    Field("stock", &Item::stock));
  }
};

namespace bench {

namespace {

using sqldb::kit::Column;
using sqldb::kit::Database;
using sqldb::kit::Describe;
using sqldb::kit::Field;
using sqldb::kit::Key;
using sqldb::kit::Like;
using sqldb::kit::Options;
using sqldb::kit::Rows;
using sqldb::kit::Set;
using sqldb::kit::Statement;
using sqldb::kit::Table;

// Items without some of their columns.
struct NewItem {
  std::uint32_t quantity;
  std::uint32_t price;
  std::uint32_t stock;

  static constexpr auto Description() {
    return Describe("items", Field("quantity", &NewItem::quantity), Field("price", &NewItem::price),
                    Field("stock", &NewItem::stock));
  }
};
struct PricedItem {
  std::uint32_t id;
  std::uint32_t quantity;
  std::uint32_t price;

  static constexpr auto Description() {
    return Describe("items", Key("id", &PricedItem::id), Field("quantity", &PricedItem::quantity),
                    Field("price", &PricedItem::price));
  }
};

constexpr Column kId(&Part::id);
constexpr Column kName(&Part::name);
constexpr Column kPrice(&Part::price);
constexpr Column kItemId(&Item::id);
constexpr Column kQuantity(&Item::quantity);

constexpr char kFind[] = "SELECT id, name, price, note FROM parts WHERE id = ?";
constexpr std::size_t kKeptStatements = 5000;

Options OptionsOf(const Place& place) {
  Options options;
  options.isSerialized = place.hasMutexes;
  // Room for what a work may have as company.
  options.keptStatements = kKeptStatements;
  return options;
}

template <typename Range>
std::int64_t SumOf(Range&& rows) {
  std::int64_t sum = 0;
  for (const auto& row : rows) sum += Sum(row);
  return sum;
}

class Kit final : public Layer {
 public:
  explicit Kit(const Place& place) : fDatabase(place.path, OptionsOf(place)) {}

  void Send(const std::string& sql) override { fDatabase.Execute(sql); }
  std::int64_t Ask(const std::string& sql) override { return fDatabase.One<std::int64_t>(sql); }

  bool Add(Company company, std::int64_t count) override {
    for (std::int64_t i = 0; i < count; ++i) AddOne(company, i);
    return true;
  }

  Work FindByInteger() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) sum += Sum(parts.Find(id).value());
      return sum;
    };
  }

  Work FindByText() override {
    return [parts = Table<NamedPart>(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      std::string name = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        name.replace(5, std::string::npos, std::to_string(id));
        sum += Sum(parts.Find(name).value());
      }
      return sum;
    };
  }

  Work Range() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) sum += SumOf(parts.Select(kId >= id && kId < id + kRange));
      return sum;
    };
  }

  Work Scan() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOf(parts.Select());
      return sum;
    };
  }

  Work Insert() override {
    return ForEach([parts = fParts](const Part& part) { parts.Insert(part); });
  }
  Work Update() override {
    return ForEach([parts = fParts](const Part& part) { parts.Update(part); });
  }
  Work Replace() override {
    return ForEach([parts = fParts](const Part& part) { parts.Replace(part); });
  }
  Work Upsert() override {
    return ForEach([parts = fParts](const Part& part) { parts.Upsert(part); });
  }

  Work InsertMany() override {
    return [parts = fParts, list = fNewParts.List()](std::int64_t) {
      parts.InsertMany(list);
      return std::int64_t{0};
    };
  }

  Work Delete() override {
    return [parts = fParts](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) parts.Delete(id);
      return std::int64_t{0};
    };
  }

  Work Count() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) sum += parts.Count(kId == id);
      return sum;
    };
  }

  Work Has() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t found = 0;
      for (std::int64_t id = 1; id <= times; ++id) found += parts.Has(kId == id) ? 1 : 0;
      return found;
    };
  }

  Work Held() override {
    const auto find = std::make_shared<Statement>(fDatabase.Prepare(kFind));
    return [find](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) sum += Sum(find->First<Part>(id).value());
      return sum;
    };
  }

  Work LookedUp() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) sum += SumOf(fDatabase.Query<Part>(kFind, id));
      return sum;
    };
  }

  Work Filter() override {
    return [parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        const double price = static_cast<double>(id + kFiltered) / 2;
        sum += SumOf(parts.Select(kId >= id && kId < id + 2 * kFiltered && kPrice < price));
      }
      return sum;
    };
  }

  Work LikeEnd() override { return ForEachPattern("%", ""); }
  Work LikeBeginning() override { return ForEachPattern("part ", "%"); }

  Work Transaction() override {
    return [this](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        sqldb::kit::Transaction transaction(fDatabase);
        transaction.Commit();
      }
      return std::int64_t{0};
    };
  }

  Work InsertItem() override {
    return [items = Table<NewItem>(fDatabase)](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) items.Insert({i, i + 1, i + 2});
      return std::int64_t{0};
    };
  }
  // Values are never anything but members.
  Work InsertItemReused() override { return InsertItem(); }

  Work InsertItemsOnce() override {
    std::vector<NewItem> list;
    for (std::uint32_t i = 1; i <= kRows; ++i) list.push_back({i, i + 1, i + 2});
    return [items = Table<NewItem>(fDatabase), list](std::int64_t) {
      items.InsertMany(list);
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [items = Table<PricedItem>(fDatabase)](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) items.Replace({id, id + 1, id + 2});
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) items.Update(kItemId == id, Set(kQuantity, id % 100));
      return std::int64_t{0};
    };
  }
  Work UpdateItemReused() override { return UpdateItem(); }

  Work DeleteItem() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) items.Delete(id);
      return std::int64_t{0};
    };
  }

  Work ScanItems() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOf(items.Select());
      return sum;
    };
  }

  // Nothing is given to a function; what comes nearest are rows without a struct.
  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        for (const auto& [id, quantity, price, stock] :
             fDatabase.Query<int, int, int, int>("SELECT id, quantity, price, stock FROM items")) {
          sum += id + quantity + price + stock;
        }
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) sum += items.Count(kItemId == id);
      return sum;
    };
  }

  Work HasItem() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) found += items.Has(kItemId == id) ? 1 : 0;
      return found;
    };
  }

  Work SelectItems() override {
    return [items = Table<Item>(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        sum += SumOf(items.Select(kItemId > id).OrderBy(kItemId).Limit(kLimit).Offset(kOffset));
      }
      return sum;
    };
  }

  Work InsertWide(int columns) override { return InsertWideRows(fDatabase, columns); }
  Work ScanWide(int columns) override { return ScanWideRows(fDatabase, columns); }

 private:
  void AddOne(Company company, std::int64_t number) {
    const std::string sql = "SELECT 1 WHERE 1 < " + std::to_string(number + 2);
    switch (company) {
      case Company::kNone:
        break;
      case Company::kIdleStatements:
        fDatabase.Execute(sql);
        break;
      case Company::kOpenRanges:
        fRanges.push_back(fDatabase.Query<std::int64_t>("SELECT id FROM parts"));
        fFirst.push_back(fRanges.back().begin());
        break;
      case Company::kCursors:
        fRanges.push_back(fDatabase.Query<std::int64_t>(sql));
        break;
      case Company::kTables:
        fTables.push_back(Table<Item>(fDatabase, "items AS other" + std::to_string(number)));
        break;
    }
  }

  template <typename Write>
  Work ForEach(Write write) {
    return [this, write](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) write(fNewParts(id));
      return std::int64_t{0};
    };
  }

  Work ForEachPattern(const std::string& before, const std::string& after) {
    return [=, parts = fParts](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        const std::string pattern = before + std::to_string(i % 10) + after;
        sum += SumOf(parts.Select(Like(kName, pattern)));
      }
      return sum;
    };
  }

  Database fDatabase;
  Table<Part> fParts{fDatabase};
  std::vector<Table<Item>> fTables;
  std::vector<Rows<std::int64_t>> fRanges;
  std::vector<Rows<std::int64_t>::iterator> fFirst;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakeKit(const Place& place) { return std::make_unique<Kit>(place); }

}  // namespace bench
