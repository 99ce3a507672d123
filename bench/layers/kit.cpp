// The kit, which keeps its statements for every work.

#include <array>
#include <utility>
#include <vector>

#include "layer.h"
#include "sqldb/kit/kit.h"

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

using sqldb::kit::Database;
using sqldb::kit::Describe;
using sqldb::kit::Field;
using sqldb::kit::Key;
using sqldb::kit::Options;
using sqldb::kit::Rows;
using sqldb::kit::Statement;

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
    for (std::int64_t i = 0; i < count; ++i) {
      const std::string sql = "SELECT id FROM parts WHERE id > " + std::to_string(i % kRows - 1);
      if (company == Company::kIdleStatements) {
        fStatements.push_back(fDatabase.Prepare(sql));
      } else if (company == Company::kOpenRanges) {
        fRanges.push_back(fDatabase.Query<std::int64_t>(sql));
        fFirst.push_back(fRanges.back().begin());
      } else {
        return false;
      }
    }
    return true;
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

 private:
  Database fDatabase;
  std::vector<Statement> fStatements;
  std::vector<Rows<std::int64_t>> fRanges;
  std::vector<Rows<std::int64_t>::iterator> fFirst;
  NewParts fNewParts;
};

}  // namespace

std::unique_ptr<Layer> MakeKit(const Place& place) { return std::make_unique<Kit>(place); }

}  // namespace bench
