// The core, with the value and term classes that an application brings. It compiles each statement for its execution,
// so it has none of the works with kept ones.

#include <cstddef>
#include <ostream>
#include <vector>

#include <sqlite3.h>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "layer.h"
#include "sqldb/sqldb.h"

namespace bench {

namespace {

using IntegerColumn = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;
using Column = boost::shared_ptr<sqldb::SQLColumnBase>;

// A number bound to a parameter of its own.
class Number : public sqldb::SQLValueBase {
 public:
  explicit Number(std::uint32_t number) : fNumber(number) { RememberParameterName(); }
  std::ostream& Print(std::ostream& stream) const override { return stream << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, GetParameterName().c_str()), fNumber);
  }

  std::uint32_t fNumber;
};

// A number printed into the text, as an update needs it.
class Literal : public sqldb::SQLValueBase {
 public:
  explicit Literal(std::uint32_t number) : fNumber(number) {}
  std::ostream& Print(std::ostream& stream) const override { return stream << fNumber; }

  std::uint32_t fNumber;
};

// The row with one id.
class IdIs : public sqldb::SQLTermBase {
 public:
  explicit IdIs(std::uint32_t id) : fId(id) {}
  std::ostream& Print(std::ostream& out) const override { return out << " id = " << fId; }
  bool NotEmpty() const override { return true; }

  std::uint32_t fId;
};

class IdIsMoreThan : public sqldb::SQLTermBase {
 public:
  explicit IdIsMoreThan(std::uint32_t id) : fId(id) {}
  std::ostream& Print(std::ostream& out) const override { return out << " id > " << fId; }
  bool NotEmpty() const override { return true; }

 private:
  std::uint32_t fId;
};

class SummingCursor : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;

  bool ProcessRow(sqlite3_stmt* statement) override {
    for (int column = 0; column < 4; ++column) fSum += sqlite3_column_int(statement, column);
    return true;
  }

  std::int64_t fSum = 0;
};

// The table of the items and its columns.
struct Items {
  explicit Items(sqldb::SQLDatabase& database) : table(database.NewTable("items")) {
    id = Add("id", true);
    quantity = Add("quantity", false);
    price = Add("price", false);
    stock = Add("stock", false);
  }

  Column Add(const char* name, bool isKey) const {
    const Column column(new IntegerColumn(table.get(), name, true, false, isKey, ""));
    table->AddColumn(column);
    return column;
  }

  // Where the columns of an Item go.
  static sqldb::OffsetSpec Offsets() {
    sqldb::OffsetSpec offsets;
    for (const std::size_t offset :
         {offsetof(Item, id), offsetof(Item, quantity), offsetof(Item, price), offsetof(Item, stock)}) {
      offsets.PushOffset(static_cast<std::uint32_t>(offset), 0);
    }
    return offsets;
  }

  boost::shared_ptr<sqldb::SQLTableClass> table;
  Column id;
  Column quantity;
  Column price;
  Column stock;
};

class Core final : public Layer {
 public:
  explicit Core(const Place& place) : fDatabase(place.path, false) { fDatabase.Open(); }

  void Send(const std::string& sql) override { fDatabase.SendQuery(sql.c_str(), nullptr, nullptr); }
  std::int64_t Ask(const std::string& sql) override {
    std::int64_t value = 0;
    const auto read = [](void* into, int, char** columns, char**) {
      *static_cast<std::int64_t*>(into) = std::stoll(columns[0]);
      return 0;
    };
    if (sqlite3_exec(fDatabase.fConnection, sql.c_str(), read, &value, nullptr) != SQLITE_OK) Fail("exec");
    return value;
  }

  bool Add(Company company, std::int64_t count) override {
    if (company != Company::kCursors && company != Company::kTables) return false;
    for (std::int64_t i = 0; i < count; ++i) {
      if (company == Company::kTables) {
        fDatabase.NewTable("other");
      } else {
        fCursors.push_back(boost::make_shared<sqldb::SQLCursorBase>(&fDatabase));
      }
    }
    return true;
  }

  Work InsertItem() override {
    const Items items(fDatabase);
    const auto insert = items.table->NewInsert();
    insert->fColumns = {items.quantity, items.price, items.stock};
    return [items, insert](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        insert->fValues.push_back(boost::make_shared<Number>(i));
        insert->fValues.push_back(boost::make_shared<Number>(i + 1));
        insert->fValues.push_back(boost::make_shared<Number>(i + 2));
        insert->PerformInsert(true);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItemReused() override {
    const Items items(fDatabase);
    const auto insert = items.table->NewInsert();
    const auto quantity = boost::make_shared<Number>(0);
    const auto price = boost::make_shared<Number>(0);
    const auto stock = boost::make_shared<Number>(0);
    insert->fColumns = {items.quantity, items.price, items.stock};
    insert->fValues = {quantity, price, stock};
    return [=](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        quantity->fNumber = i;
        price->fNumber = i + 1;
        stock->fNumber = i + 2;
        insert->PerformInsert(false);
      }
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    const Items items(fDatabase);
    const auto replace = items.table->NewReplace();
    replace->fColumns = {items.id, items.quantity, items.price};
    return [items, replace](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        replace->fValues.push_back(boost::make_shared<Number>(id));
        replace->fValues.push_back(boost::make_shared<Number>(id + 1));
        replace->fValues.push_back(boost::make_shared<Number>(id + 2));
        replace->PerformReplace(true);
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    const Items items(fDatabase);
    const auto update = items.table->NewUpdate();
    update->fColumns = {items.quantity};
    return [items, update](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        update->fValues.push_back(boost::make_shared<Literal>(id % 100));
        update->fTerm = boost::make_shared<IdIs>(id);
        update->PerformUpdate(true);
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItemReused() override {
    const Items items(fDatabase);
    const auto update = items.table->NewUpdate();
    const auto quantity = boost::make_shared<Literal>(0);
    const auto term = boost::make_shared<IdIs>(0);
    update->fColumns = {items.quantity};
    update->fValues = {quantity};
    update->fTerm = term;
    return [=](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        quantity->fNumber = id % 100;
        term->fId = id;
        update->PerformUpdate(false);
      }
      return std::int64_t{0};
    };
  }

  Work DeleteItem() override {
    return [items = Items(fDatabase)](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) items.table->DeleteRecords(boost::make_shared<IdIs>(id));
      return std::int64_t{0};
    };
  }

  Work ScanItems() override {
    return [this, items = Items(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        boost::shared_ptr<sqldb::SQLSelectClass> select = fDatabase.NewSelect(items.table, 0);
        select << items.id << items.quantity << items.price << items.stock;
        sum += SumOf(*select, Items::Offsets());
      }
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this, items = Items(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        boost::shared_ptr<sqldb::SQLSelectClass> select = fDatabase.NewSelect(items.table, 0);
        select << items.id << items.quantity << items.price << items.stock;
        const auto cursor = boost::make_shared<SummingCursor>(&fDatabase);
        select->PerformSelect(cursor);
        sum += cursor->fSum;
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [items = Items(fDatabase)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) sum += items.table->CountRecords(boost::make_shared<IdIs>(id));
      return sum;
    };
  }

  Work HasItem() override {
    return [items = Items(fDatabase)](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) found += items.table->HasTerm(boost::make_shared<IdIs>(id));
      return found;
    };
  }

  Work SelectItems() override {
    return [this, items = Items(fDatabase), offsets = Items::Offsets()](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        boost::shared_ptr<sqldb::SQLSelectClass> select = fDatabase.NewSelect(items.table, kLimit);
        select << items.id << items.quantity << items.price << items.stock;
        select->fTerm = boost::make_shared<IdIsMoreThan>(id);
        select->fOrder.push_back(sqldb::OrderItem{items.id, 1});
        select->fOffset = kOffset;
        sum += SumOf(*select, offsets);
      }
      return sum;
    };
  }

  Work InsertWide(int columns) override {
    const Wide wide(fDatabase, columns);
    const auto insert = wide.table->NewInsert();
    insert->fColumns = wide.columns;
    for (int i = 0; i < columns; ++i) insert->fValues.push_back(boost::make_shared<Number>(1));
    return [wide, insert](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) insert->PerformInsert(false);
      return std::int64_t{0};
    };
  }

  Work ScanWide(int columns) override {
    sqldb::OffsetSpec offsets;
    for (int i = 0; i < columns; ++i) offsets.PushOffset(static_cast<std::uint32_t>(i) * 4, 0);
    return [this, offsets, wide = Wide(fDatabase, columns),
            row = std::vector<std::uint32_t>(static_cast<std::size_t>(columns))](std::int64_t times) mutable {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        const auto select = fDatabase.NewSelect(wide.table, 0);
        select->fColumns = wide.columns;
        const auto cursor = boost::make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&fDatabase, offsets);
        select->PrepareSelect(cursor);
        while (cursor->Step(row[0]) == 0) sum += row.back();
      }
      return sum;
    };
  }

 private:
  // The table wide.
  struct Wide {
    Wide(sqldb::SQLDatabase& database, int count) : table(database.NewTable("wide")) {
      for (int i = 1; i <= count; ++i) {
        columns.push_back(
            boost::make_shared<IntegerColumn>(table.get(), "c" + std::to_string(i), true, false, false, ""));
        table->AddColumn(columns.back());
      }
    }

    boost::shared_ptr<sqldb::SQLTableClass> table;
    std::vector<Column> columns;
  };

  std::int64_t SumOf(sqldb::SQLSelectClass& select, const sqldb::OffsetSpec& offsets) {
    const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Item>>(&fDatabase, offsets);
    select.PrepareSelect(cursor);
    std::int64_t sum = 0;
    Item item{};
    while (cursor->Step(item) == 0) sum += Sum(item);
    return sum;
  }

  sqldb::SQLDatabase fDatabase;
  std::vector<boost::shared_ptr<sqldb::SQLCursorBase>> fCursors;
};

}  // namespace

std::unique_ptr<Layer> MakeCore(const Place& place) { return std::make_unique<Core>(place); }

}  // namespace bench
