// The same small program on sqldb with its kit.

#include <cstdint>
#include <iostream>

#include <sqldb/kit/kit.h>

using namespace sqldb::kit;

struct Part {
  std::uint32_t id, quantity;

  static constexpr auto Description() {
    return Describe("parts", Field("id", &Part::id), Field("quantity", &Part::quantity));
  }
};

int main() {
  Database database(":memory:");
  Table<Part> parts(database);
  parts.Create();

  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) parts.Insert(part);

  constexpr Column quantity(&Part::quantity);
  for (const Part& part : parts.Select(quantity > 0).Limit(10)) {
    std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
