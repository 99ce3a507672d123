// The README's uses once more, for a second table. Put behind its program, to see what that costs to compile.

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

#include <sqldb/kit/kit.h>

struct Crate {
  std::int64_t id = 0;
  std::string place;
  double weight = 0;
  std::optional<std::string> label;

  static constexpr auto Description() {
    using namespace sqldb::kit;
    return Describe("crates", Key("id", &Crate::id), Field("place", &Crate::place), Field("weight", &Crate::weight),
                    Field("label", &Crate::label));
  }
};

void PrintPlacesOfLightCrates(sqldb::kit::Database& database) {
  constexpr sqldb::kit::Column weight(&Crate::weight);
  sqldb::kit::Table<Crate> crates(database);
  crates.CreateIfMissing();
  crates.Insert({1, "shelf", 0.25, std::nullopt});
  crates.Insert({2, "floor", 8.5, "heavy"});
  for (const Crate& crate : crates.Select(weight < 1.0).OrderBy(weight).Limit(10)) {
    std::cout << crate.place << "\n";
  }
}
