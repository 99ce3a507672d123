#include "items.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace bench {

void Fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

RawItems::RawItems() {
  if (sqlite3_open(":memory:", &connection) != SQLITE_OK) Fail("open");
  Send(kCreateItems);
  Send(kFillItems);
  Send("BEGIN");
}

RawItems::~RawItems() { sqlite3_close(connection); }

void RawItems::Send(const char* sql) { Finish(Prepare(sql)); }

sqlite3_stmt* RawItems::Prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare(connection, sql, -1, &statement, nullptr) != SQLITE_OK) Fail(sqlite3_errmsg(connection));
  return statement;
}

void RawItems::Finish(sqlite3_stmt* statement) {
  if (sqlite3_step(statement) != SQLITE_DONE || sqlite3_finalize(statement) != SQLITE_OK) {
    Fail(sqlite3_errmsg(connection));
  }
}

SqldbItems::SqldbItems() : database(":memory:", false) {
  database.Open();
  Send(kCreateItems);
  Send(kFillItems);
  Send("BEGIN");
  table = database.NewTable("items");
  const auto add = [this](const char* name, bool isKey) {
    const boost::shared_ptr<sqldb::SQLColumnBase> column(new IntegerColumn(table.get(), name, true, false, isKey, ""));
    table->AddColumn(column);
    return column;
  };
  id = add("id", true);
  quantity = add("quantity", false);
  price = add("price", false);
  stock = add("stock", false);
}

sqldb::OffsetSpec SqldbItems::Offsets() {
  sqldb::OffsetSpec offsets;
  for (const std::size_t offset :
       {offsetof(Item, id), offsetof(Item, quantity), offsetof(Item, price), offsetof(Item, stock)}) {
    offsets.PushOffset(static_cast<std::uint32_t>(offset), 0);
  }
  return offsets;
}

}  // namespace bench
