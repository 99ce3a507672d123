// The same small program on POCO Data.

#include <cstdint>
#include <iostream>

#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/Session.h>

using namespace Poco::Data::Keywords;
using Poco::Data::Session;
using Poco::Data::Statement;

struct Part {
  std::uint32_t id, quantity;
};

int main() {
  Poco::Data::SQLite::Connector::registerConnector();
  Session session("SQLite", ":memory:");
  session << "CREATE TABLE parts (id INTEGER, quantity INTEGER)", now;

  // What is used and what is read into stays the same object from one execution to the next.
  Part part{};
  Statement insert(session);
  insert << "INSERT INTO parts (id, quantity) VALUES (?, ?)", use(part.id), use(part.quantity);
  for (const Part& next : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    part = next;
    insert.execute();
  }

  Statement select(session);
  select << "SELECT id, quantity FROM parts WHERE quantity > 0 LIMIT 10", into(part.id), into(part.quantity),
      range(0, 1);  // a row at a time
  while (!select.done()) {
    if (select.execute() > 0) std::cout << "part " << part.id << ": " << part.quantity << "\n";
  }
}
