// The same small program on SQLiteCpp.

#include <cstdint>
#include <iostream>

#include <SQLiteCpp/SQLiteCpp.h>

struct Part {
  std::uint32_t id, quantity;
};

int main() {
  SQLite::Database database(":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  database.exec("CREATE TABLE parts (id INTEGER, quantity INTEGER)");

  SQLite::Statement insert(database, "INSERT INTO parts (id, quantity) VALUES (?, ?)");
  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    insert.bind(1, part.id);
    insert.bind(2, part.quantity);
    insert.exec();
    insert.reset();
  }

  SQLite::Statement select(database, "SELECT id, quantity FROM parts WHERE quantity > 0 LIMIT 10");
  while (select.executeStep()) {
    const Part part = select.getColumns<Part, 2>();
    std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
