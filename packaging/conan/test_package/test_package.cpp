#include <sqldb/kit/kit.h>

struct Part {
  std::int64_t id;
};

int main() {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  sqldb::kit::Table<Part> parts(database, "parts", sqldb::kit::Key("id", &Part::id));
  parts.Create();
  parts.Insert({1});
  return parts.Core().CountRecords(nullptr) == 1 ? 0 : 1;
}
