#include <string>
#include <thread>

#include <boost/make_shared.hpp>

#include "threads/work.h"

namespace threads {

namespace {

struct Item {
  std::int64_t fId = 0;
  std::int64_t fNegative = 0;
};

class Items {
 public:
  explicit Items(const std::string& path) : fDatabase(path, false) { fDatabase.Open(); }

  // The rows that a step cursor reads, which waits for the others.
  std::int64_t CountIntact() {
    std::int64_t count = 0;
    for (const Item& item : fTable.Select()) {
      Expect(item.fNegative == -item.fId, "a row of the common file is intact");
      ++count;
    }
    return count;
  }

  sqldb::SQLDatabase fDatabase;
  sqldb::kit::Table<Item> fTable{fDatabase, "items", sqldb::kit::Key("id", &Item::fId),
                                 sqldb::kit::Field("negative", &Item::fNegative)};
};

}  // namespace

void CreateOneFile(const std::string& path) { Items(path).fTable.Create(); }

void WriteToOneFile(const std::string& path, std::uint32_t writer, std::uint32_t count) {
  Items items(path);
  sqldb::kit::RetryWhileBusy(items.fDatabase, [&] { items.fDatabase.SetSynchronizationLevel(false); });
  std::int64_t seen = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::int64_t id = std::int64_t{writer} * count + i;
    sqldb::kit::InTransaction(items.fDatabase, [&] { items.fTable.Insert(Item{id, -id}); });
    const std::int64_t now = sqldb::kit::RetryWhileBusy(items.fDatabase, [&] { return items.CountIntact(); });
    Expect(now > seen, "no row of the common file is lost");
    seen = now;
  }
}

void CheckOneFile(const std::string& path, std::uint32_t writers, std::uint32_t count) {
  Expect(Items(path).CountIntact() == std::int64_t{writers} * count, "every row of the common file is there");
}

void HandOver(const std::string& path) {
  Items items(path);
  std::thread([&] { items.fTable.Create(); }).join();
  std::thread([&] { items.fTable.Insert(Item{1, -1}); }).join();
  auto selection = boost::make_shared<sqldb::kit::Selection<Item>>(items.fTable.Select());
  auto row = selection->begin();
  std::thread([&] {
    Expect(row->fId == 1, "a row is read by another thread");
    ++row;
    Expect(row == selection->end(), "and so is the end");
    selection.reset();
  }).join();
}

}  // namespace threads
