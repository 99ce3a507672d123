#include "poco_items.h"

#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/SQLite/Utility.h>

namespace bench {

namespace {

Poco::Data::Session Open() {
  // All but the first call are only counted.
  Poco::Data::SQLite::Connector::registerConnector();
  return Poco::Data::Session("SQLite", ":memory:");
}

}  // namespace

PocoItems::PocoItems() : session(Open()), fConnection(Poco::Data::SQLite::Utility::dbHandle(session)) {
  Send(kCreateItems);
  Send(kFillItems);
  Send("BEGIN");
}

void PocoItems::Send(const char* sql) { session << sql, Poco::Data::Keywords::now; }

}  // namespace bench
