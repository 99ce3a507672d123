#include <sqldb/kit/kit.h>
#include <sqldb/sqldb.h>

struct Part {
  std::int64_t id = 0;

  static constexpr auto Description() { return sqldb::kit::Describe("parts", sqldb::kit::Key("id", &Part::id)); }
};

int main() {
  sqldb::kit::Database database(":memory:");
  const sqldb::kit::Table<Part> parts(database);
  parts.Create();
  parts.Insert({1});
  return parts.Count() == 1 && database.Core().fIsOpen ? 0 : 1;
}
