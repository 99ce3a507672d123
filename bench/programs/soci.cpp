// The same small program on SOCI.

#include <iostream>

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

// SOCI takes an unsigned int for an int and would store the larger ones as negative numbers.
struct Part {
  long long id, quantity;
};

int main() {
  soci::session database(soci::sqlite3, ":memory:");
  database << "CREATE TABLE parts (id INTEGER, quantity INTEGER)";

  // What is used and what is read into stays the same object from one execution to the next.
  Part part{};
  soci::statement insert = (database.prepare << "INSERT INTO parts (id, quantity) VALUES (:id, :quantity)",
                            soci::use(part.id), soci::use(part.quantity));
  for (const Part& next : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    part = next;
    insert.execute(true);
  }

  soci::statement select = (database.prepare << "SELECT id, quantity FROM parts WHERE quantity > 0 LIMIT 10",
                            soci::into(part.id), soci::into(part.quantity));
  select.execute();
  while (select.fetch()) std::cout << "part " << part.id << ": " << part.quantity << "\n";
}
