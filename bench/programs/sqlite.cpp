// The same small program on SQLite alone: its calls, with statements that finalize themselves and failures that throw.

#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <sqlite3.h>

struct Part {
  std::uint32_t id, quantity;
};

struct Close {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

void Check(int code, sqlite3* database) {
  if (code != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database));
}

Database Open(const char* name) {
  sqlite3* handle = nullptr;
  const int code = sqlite3_open(name, &handle);
  Database database(handle);
  Check(code, handle);
  return database;
}

Statement Prepare(sqlite3* database, const char* text) {
  sqlite3_stmt* handle = nullptr;
  Check(sqlite3_prepare_v2(database, text, -1, &handle, nullptr), database);
  return Statement(handle);
}

bool Step(sqlite3_stmt* statement) {
  const int code = sqlite3_step(statement);
  if (code != SQLITE_ROW && code != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(statement)));
  return code == SQLITE_ROW;
}

int main() {
  const Database database = Open(":memory:");
  Check(sqlite3_exec(database.get(), "CREATE TABLE parts (id INTEGER, quantity INTEGER)", nullptr, nullptr, nullptr),
        database.get());

  const Statement insert = Prepare(database.get(), "INSERT INTO parts (id, quantity) VALUES (?, ?)");
  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    Check(sqlite3_bind_int64(insert.get(), 1, part.id), database.get());
    Check(sqlite3_bind_int64(insert.get(), 2, part.quantity), database.get());
    Step(insert.get());
    Check(sqlite3_reset(insert.get()), database.get());
  }

  const Statement select = Prepare(database.get(), "SELECT id, quantity FROM parts WHERE quantity > 0 LIMIT 10");
  while (Step(select.get())) {
    const Part part{static_cast<std::uint32_t>(sqlite3_column_int64(select.get(), 0)),
                    static_cast<std::uint32_t>(sqlite3_column_int64(select.get(), 1))};
    std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
