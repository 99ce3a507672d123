// The same small program on sqldb with its kit.

#include <cstdint>
#include <iostream>

#include <sqldb/kit/kit.h>

using namespace sqldb::kit;

struct Part {
  std::uint32_t id, quantity;
};

int main() {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  const auto quantity = Field("quantity", &Part::quantity);
  Table<Part> parts(database, "parts", Field("id", &Part::id), quantity);
  parts.Create();

  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) parts.Insert(part);

  for (const Part& part : parts.Select(quantity > 0u).Limit(10)) {
    std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
