#include <string>
#include <thread>

#include <boost/make_shared.hpp>

#include "threads/work.h"

namespace threads {

namespace {

struct Item {
  std::int64_t fId = 0;
  std::int64_t fNegative = 0;

  static constexpr auto Description() {
    using namespace sqldb::kit;
    return Describe("items", Key("id", &Item::fId), Field("negative", &Item::fNegative));
  }
};

// Nobody needs the file after a crash. The others may have it for long.
sqldb::kit::Options PatientAndCareless() {
  sqldb::kit::Options options;
  options.synchronous = sqldb::kit::Synchronous::kOff;
  options.busyTimeout = 60000;
  return options;
}

class Items {
 public:
  explicit Items(const std::string& path) : fDatabase(path, PatientAndCareless()) {}

  // Waits for the others.
  std::int64_t CountIntact() {
    std::int64_t count = 0;
    for (const Item& item : fTable.Select()) {
      Expect(item.fNegative == -item.fId, "a row of the common file is intact");
      ++count;
    }
    return count;
  }

  sqldb::kit::Database fDatabase;
  sqldb::kit::Table<Item> fTable{fDatabase};
};

}  // namespace

void CreateOneFile(const std::string& path) { Items(path).fTable.Create(); }

void WriteToOneFile(const std::string& path, std::uint32_t writer, std::uint32_t count) {
  Items items(path);
  std::int64_t seen = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::int64_t id = std::int64_t{writer} * count + i;
    sqldb::kit::InTransaction(items.fDatabase, [&] { items.fTable.Insert(Item{id, -id}); });
    const std::int64_t now = items.CountIntact();
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
