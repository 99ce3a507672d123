// The README's program on SQLiteCpp.

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

#include <SQLiteCpp/SQLiteCpp.h>

struct Part {
  std::int64_t id;
  std::string name;
  double price;
  std::optional<std::string> note;
};

void Insert(SQLite::Statement& insert, const Part& part) {
  insert.bind(1, part.id);
  insert.bind(2, part.name);
  insert.bind(3, part.price);
  if (part.note) {
    insert.bind(4, *part.note);
  } else {
    insert.bind(4);
  }
  insert.exec();
  insert.reset();
}

Part Read(SQLite::Statement& query) {
  Part part{query.getColumn(0).getInt64(), query.getColumn(1).getString(), query.getColumn(2).getDouble(), {}};
  if (!query.getColumn(3).isNull()) part.note = query.getColumn(3).getString();
  return part;
}

int main() {
  SQLite::Database database(":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  database.exec("CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, price REAL NOT NULL, note TEXT)");
  SQLite::Statement insert(database, "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)");
  Insert(insert, {1, "bolt", 0.25, std::nullopt});
  Insert(insert, {2, "wrench", 8.5, "size 13"});
  SQLite::Statement query(database, "SELECT id, name, price, note FROM parts WHERE price < ? ORDER BY price LIMIT ?");
  query.bind(1, 1.0);
  query.bind(2, 10);
  while (query.executeStep()) std::cout << Read(query).name << "\n";
}
