#include "sqldb/sqldb.h"

#ifdef _GLIBCXX_ASSERTIONS
#error "the library's own definitions reach its users"
#endif

// Warnings under the flags with which the library itself is compiled.
static int Careless(int unused, long wide) {
  int nowhere = 0;
  int none[0];
  int narrow = wide;
  if (sizeof none != 0)
    ;
  for (int wide = 0; wide < 1; ++wide) narrow += (int)1.5;
  return narrow;
}

int main() {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  const auto items = database.NewTable("items");
  items->AddColumn(
      boost::shared_ptr<sqldb::SQLColumnBase>(new sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>(
          items.get(), "id", false, false, true, "")));
  items->Create();
  items->SendQuery("INSERT INTO items VALUES (1), (2)", nullptr, nullptr);
  return items->CountRecords(nullptr) == 2 && Careless(0, 1) == 2 ? 0 : 1;
}
