#include "sqldb/sqldb.h"
#ifdef WITH_KIT
#include "sqldb/kit/kit.h"
#endif

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

static bool KitWorks(const boost::shared_ptr<sqldb::SQLDatabase>& core) {
#ifdef WITH_KIT
  sqldb::kit::Database database(core);
  return database.One<int>("SELECT COUNT(*) FROM items WHERE id < ?", 2) == 1;
#else
  return core->fIsOpen;
#endif
}

int main() {
  const boost::shared_ptr<sqldb::SQLDatabase> database(new sqldb::SQLDatabase(":memory:", false));
  database->Open();
  const auto items = database->NewTable("items");
  items->AddColumn(
      boost::shared_ptr<sqldb::SQLColumnBase>(new sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>(
          items.get(), "id", false, false, true, "")));
  items->Create();
  items->SendQuery("INSERT INTO items VALUES (1), (2)", nullptr, nullptr);
  return items->CountRecords(nullptr) == 2 && KitWorks(database) && Careless(0, 1) == 2 ? 0 : 1;
}
