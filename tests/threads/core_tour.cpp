#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "threads/work.h"

namespace threads {

namespace {

using boost::make_shared;
using boost::shared_ptr;
using sqldb::SQLDatabase;

// Keeps the integers of a query's first column.
class Integers : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt* statement) override {
    fValues.push_back(sqlite3_column_int(statement, 0));
    return true;
  }

  std::vector<int> fValues;
};

std::vector<int> IntegersOf(SQLDatabase& database, const std::string& sql) {
  Integers integers;
  database.SendQuery(sql, &integers, nullptr);
  return integers.fValues;
}

// Binds 5 to the first parameter.
class Five : public sqldb::BindingCallback {
 public:
  void BindingOpportunity(sqlite3_stmt* statement) const override { sqlite3_bind_int(statement, 1, 5); }
};

// Adds up the first column of the rows of a performed select.
class Adder : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;
  bool ProcessRow(sqlite3_stmt* statement) override {
    fSum += sqlite3_column_int(statement, 0);
    return true;
  }

  int fSum = 0;
};

template <typename Action>
bool Throws(const char* message, Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return std::strcmp(error.what(), message) == 0;
  }
  return false;
}

int CompareBackwards(void*, int, const void* a, int, const void* b) { return -std::memcmp(a, b, 1); }

class CoreTour {
 public:
  CoreTour(const std::string& path, const Shared& shared) : fDatabase(path, false), fShared(shared) {}

  void Open() {
    fDatabase.Create();
    fDatabase.SetSynchronizationLevel(true);
    fDatabase.SetSynchronizationLevel(false);
    Expect(fDatabase.AddCollation("backwards", CompareBackwards) == SQLITE_OK, "a collation is added");
    Expect(IntegersOf(fDatabase, "SELECT 'a' < 'b' COLLATE backwards") == std::vector<int>{0}, "it compares");
  }

  void DeclareTables() {
    fTable = fDatabase.NewTable("t");
    for (const char* const name : {"a", "b", "c"}) {
      fTable->AddColumn(make_shared<IntegerColumn>(fTable.get(), name, true, false, std::strcmp(name, "a") == 0, ""));
    }
    Expect(fTable->HasColumn("c") && !fTable->HasColumn("d"), "a table knows its columns");
    Expect(fTable->GetColumn("a")->GetSpecAsString() == "INTEGER PRIMARY KEY", "a column describes itself");
    Expect(fTable->GetColumn("a")->IAmAKindOf() == "SQLColumnClass", "a column knows what it is");
    fTable->Create();
    fTable->CreateIndexForColumn("b");
    Expect(fTable->IsWritable() && fTable->fCreated, "a table is created");
    Expect(fDatabase.GetTable("t") == fTable, "a table is found by its name");
    Expect(fDatabase.GetTableFromTableClass(fTable.get()) == fTable, "a table is found by its object");
  }

  void Insert() {
    const auto insert = fTable->NewInsert();
    insert->fColumns = Columns();
    for (std::uint32_t i = 1; i <= 4; ++i) {
      insert->fValues = {Value(i), Value(i % 3), fShared.fValue};
      insert->PerformInsert(i != 4);
    }
    insert->fQuery.str("");
    insert->SetupInsert();
    Expect(insert->fQuery.str().find("INSERT INTO t ( a, b, c ) VALUES (:") == 0, "an insert has its text");
    const auto replace = fTable->NewReplace();
    replace->fColumns = Columns();
    replace->fValues = {Value(4), Value(2), Value(9)};
    replace->PerformReplace(true);
    fTable->fInserts.push_back(replace);
    Five five;
    fTable->SendQuery("INSERT INTO t VALUES (:a, 2, 7)", nullptr, &five);
    // (1, 1, 7), (2, 2, 7), (3, 0, 7), (4, 2, 9), (5, 2, 7)
    Expect(IntegersOf(fDatabase, "SELECT a * 100 + b * 10 + c FROM t ORDER BY a") ==
               std::vector<int>{117, 227, 307, 429, 527},
           "every value is in its column");
  }

  void Update() {
    const auto update = fTable->NewUpdate();
    update->fColumns = {fTable->GetColumn("c")};
    update->fValues = {make_shared<Literal>(8)};
    update->fTerm = make_shared<TextTerm>(" a = 3");
    update->PerformUpdate(true);
    fTable->fUpdates.push_back(update);
    Expect(IntegersOf(fDatabase, "SELECT c FROM t WHERE a = 3") == std::vector<int>{8}, "an update changes its row");
  }

  void Ask() {
    Expect(fTable->CountRecords(fShared.fTerm) == 3, "rows are counted");
    Expect(fTable->CountRecords(sqldb::SQLEmptyTerm::EmptyTerm) == 5, "all rows are counted");
    Expect(fTable->HasTerm(fShared.fTerm), "a term that holds is found");
    Expect(!fTable->HasTerm(make_shared<TextTerm>(" b > 2")), "a term that does not hold is not found");
  }

  void Step() {
    auto select = fDatabase.NewSelect(fTable, 2);
    select << fTable->GetColumn("a") << fShared.fColumn << fTable->GetColumn("c");
    select->fTerm = fShared.fTerm;
    select->fOrder = {{fTable->GetColumn("a"), 0}};
    select->fOffset = 1;
    sqldb::OffsetSpec offsets;
    offsets.PushOffset(0, 0);
    offsets.PushOffset(4, 1);
    offsets.PushOffset(0, 1);
    const auto cursor = make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&fDatabase, offsets);
    select->PrepareSelect(cursor);
    std::uint32_t a = 0;
    std::uint32_t more[2] = {};
    Expect(cursor->Step(a, more) == 0 && a == 4 && more[1] == 2 && more[0] == 9, "a row goes to its buffers");
    const std::vector<char*> buffers{reinterpret_cast<char*>(&a), reinterpret_cast<char*>(more)};
    Expect(cursor->StepIt(buffers) == 0 && a == 2 && more[1] == 2 && more[0] == 7, "so does the next");
    Expect(cursor->Step(a, more) == 1 && cursor->fRowCount == 2, "the rows come to an end");
  }

  void Perform() {
    const auto select = fDatabase.NewSelect(fTable, 0);
    select->fColumns = {fShared.fColumn};
    select->fTerm = sqldb::SQLEmptyTerm::EmptyTerm;
    select->fDistinct = true;
    const auto adder = make_shared<Adder>(&fDatabase);
    select->PerformSelect(adder);
    Expect(adder->fSum == 3, "a performed select gives every row to its cursor");
    Expect(fDatabase.fSelects.size() == 1 && fDatabase.fCursors.size() == 1, "the database lists what lives");
    Integers integers;
    adder->SendQuery("SELECT 3; SELECT 4", &integers, nullptr);
    Expect(integers.fValues == std::vector<int>{3, 4}, "a cursor sends a query");
  }

  void Transact() {
    fDatabase.BeginTransaction();
    fDatabase.BeginTransaction();
    fDatabase.SendQuery("DELETE FROM t", nullptr, nullptr);
    fDatabase.EndTransaction(false, false);
    fDatabase.EndTransaction(true, false);
    Expect(fTable->CountRecords(nullptr) == 5, "a veto rolls all back");
    fDatabase.BeginTransaction();
    fDatabase.BeginTransaction();
    fDatabase.SendQuery("UPDATE t SET c = 0", nullptr, nullptr);
    fDatabase.EndTransaction(true, true);
    Expect(IntegersOf(fDatabase, "SELECT max(c) FROM t") == std::vector<int>{0}, "the end of all levels commits");
  }

  // Writes three pieces to the log.
  void Explain() {
    const std::shared_lock<std::shared_mutex> lock(fShared.fLog);
    fDatabase.fExplainLevel = 1;
    fDatabase.ExplainQuery("SELECT * FROM t");
    fDatabase.fExplainLevel = 2;
    fDatabase.ExplainQuery("SELECT * FROM t ORDER BY c");
    fDatabase.fLogErrors = 1;
    Expect(Throws("no such table: u", [this] { fDatabase.ExplainQuery("SELECT * FROM u"); }), "an error is explained");
  }

  void Fail() {
    Expect(Throws("no such table: u", [this] { fTable->SendQuery("SELECT * FROM u", nullptr, nullptr); }),
           "SQLite's message is thrown");
    Expect(Throws("Condition is not met.", [this] { fDatabase.GetTable("u"); }), "what is not found is told");
    // Not by opening what cannot be opened, which leaves a handle behind.
    Expect(Throws("Error encountered: 14.\n", [] { ThrowError(14); }), "so is a code");
    auto database = std::make_unique<SQLDatabase>("unopened", false);
    sqldb::SQLCursorBase orphan(database.get());
    database.reset();
    Expect(Throws("Condition is not met.", [&] { orphan.SendQuery("SELECT 1", nullptr, nullptr); }),
           "a cursor tells that its database is gone");
  }

  void Encode() {
    unsigned char bytes[256];
    for (unsigned i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<unsigned char>(i);
    unsigned char encoded[300];
    const int length = sqlite_encode_binary(bytes, sizeof bytes, encoded);
    Expect(std::strlen(reinterpret_cast<const char*>(encoded)) == static_cast<std::size_t>(length),
           "bytes are encoded");
    unsigned char decoded[300];
    Expect(sqlite_decode_binary(encoded, decoded) == 256 && std::memcmp(bytes, decoded, 256) == 0, "and decoded");
  }

  void Delete() {
    const auto statement = fTable->NewDelete(fShared.fTerm);
    statement->SetUpDelete();
    Expect(statement->fQuery == "DELETE FROM t WHERE b > 1", "a delete has its text");
    statement->PerformDelete();
    Expect(fTable->CountRecords(nullptr) == 2, "a delete deletes its rows");
    fTable->DeleteRecords(sqldb::SQLEmptyTerm::EmptyTerm);
    Expect(!fTable->HasTerm(nullptr), "all rows are deleted");
  }

  void Close() {
    fTable->Drop();
    fTable->Create();
    fDatabase.DropTable(fTable);
    fTable.reset();
    fDatabase.Close();
    fDatabase.Open();
    Expect(IntegersOf(fDatabase, "SELECT count(*) FROM sqlite_master") == std::vector<int>{0},
           "a dropped table is gone");
    const auto later = fDatabase.NewTable("t");
    later->Initialize();
    Expect(later->fCreated, "a table that is there is declared");
  }

 private:
  // A value that prints its number.
  class Literal : public sqldb::SQLValueBase {
   public:
    explicit Literal(int value) : fValue(value) {}
    std::ostream& Print(std::ostream& stream) const override { return stream << fValue; }

   private:
    int fValue;
  };

  static shared_ptr<sqldb::SQLValueBase> Value(std::uint32_t value) { return make_shared<BoundInteger>(value); }

  std::vector<shared_ptr<sqldb::SQLColumnBase>> Columns() {
    return {fTable->GetColumn("a"), fTable->GetColumn("b"), fTable->GetColumn("c")};
  }

  SQLDatabase fDatabase;
  const Shared& fShared;
  shared_ptr<sqldb::SQLTableClass> fTable;
};

}  // namespace

void TourCore(const std::string& path, const Shared& shared) {
  auto tour = std::make_unique<CoreTour>(path, shared);
  tour->Open();
  tour->DeclareTables();
  tour->Insert();
  tour->Update();
  tour->Ask();
  tour->Step();
  tour->Perform();
  tour->Transact();
  tour->Explain();
  tour->Fail();
  tour->Encode();
  tour->Delete();
  tour->Close();
}

}  // namespace threads
