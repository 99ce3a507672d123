// The library alone, without the kit: a program that brings the classes for its values and its terms.

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <ostream>

#include <boost/make_shared.hpp>

#include <sqlite3.h>

#include <sqldb/sqldb.h>

namespace {

struct Part {
  std::uint32_t id, quantity;
};

// A value, bound to a parameter of its own.
struct Number : sqldb::SQLValueBase {
  explicit Number(std::uint32_t number) : fNumber(number) { RememberParameterName(); }
  std::ostream& Print(std::ostream& out) const override { return out << GetParameterName(); }
  void BindingOpportunity(sqlite3_stmt* statement) const override {
    sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, GetParameterName().c_str()), fNumber);
  }

  std::uint32_t fNumber;
};

// A condition. Its text begins with a blank.
struct InStock : sqldb::SQLTermBase {
  std::ostream& Print(std::ostream& out) const override { return out << " quantity > 0"; }
  bool NotEmpty() const override { return true; }
};

}  // namespace

int main() {
  sqldb::SQLDatabase database(":memory:", false);  // or the name of a file
  database.Open();

  const auto parts = database.NewTable("parts");
  using Int = sqldb::SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;
  const auto id = boost::make_shared<Int>(parts.get(), "id", false, false, false, "");
  const auto quantity = boost::make_shared<Int>(parts.get(), "quantity", false, false, false, "");
  parts->AddColumn(id);
  parts->AddColumn(quantity);
  parts->Create();

  const auto insert = parts->NewInsert();
  insert->fColumns = {id, quantity};
  for (const Part& part : {Part{1, 12}, Part{2, 0}, Part{3, 5}}) {
    insert->fValues = {boost::make_shared<Number>(part.id), boost::make_shared<Number>(part.quantity)};
    insert->PerformInsert(true);
  }

  const auto select = database.NewSelect(parts, 10);  // at most 10 rows
  select->fColumns = {id, quantity};
  select->fTerm = boost::make_shared<InStock>();
  sqldb::OffsetSpec offsets;  // where the columns go in a Part
  offsets.PushOffset(offsetof(Part, id), 0);
  offsets.PushOffset(offsetof(Part, quantity), 0);
  const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Part>>(&database, offsets);
  select->PrepareSelect(cursor);
  for (Part part{}; cursor->Step(part) == 0;) std::cout << "part " << part.id << ": " << part.quantity << "\n";
}
