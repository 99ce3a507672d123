#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/fixtures.h"

using boost::shared_ptr;
using sqldb::SQLCursorBase;
using sqldb::SQLDatabase;
using sqldb::SQLSelectClass;
using sqldb::SQLTableClass;
using support::Call;
using support::CallRecorder;
using support::FinalizeLeftovers;
using support::kNotMet;
using support::MessageOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

static_assert(
    std::is_same_v<decltype(&SQLDatabase::NewTable), shared_ptr<SQLTableClass> (SQLDatabase::*)(const std::string&)>);
static_assert(
    std::is_same_v<decltype(&SQLDatabase::GetTable), shared_ptr<SQLTableClass> (SQLDatabase::*)(const std::string&)>);
static_assert(std::is_same_v<decltype(&SQLDatabase::GetTableFromTableClass),
                             shared_ptr<SQLTableClass> (SQLDatabase::*)(SQLTableClass*)>);
static_assert(std::is_same_v<decltype(&SQLDatabase::DropTable), void (SQLDatabase::*)(shared_ptr<SQLTableClass>)>);
static_assert(std::is_same_v<decltype(&SQLDatabase::RemoveSelect), void (SQLDatabase::*)(SQLSelectClass*)>);
static_assert(std::is_same_v<decltype(&SQLDatabase::RemoveCursor), void (SQLDatabase::*)(SQLCursorBase*)>);

// A column that does something when the table that files it is destroyed.
class Witness : public sqldb::SQLColumnBase {
 public:
  explicit Witness(std::function<void()> onDestruction)
      : SQLColumnBase(nullptr, "witness", "", 0, true, false, false, ""), fOnDestruction(std::move(onDestruction)) {}
  ~Witness() override { fOnDestruction(); }

 private:
  std::function<void()> fOnDestruction;
};

void AddWitness(SQLTableClass& table, std::function<void()> onDestruction) {
  table.AddColumn(shared_ptr<sqldb::SQLColumnBase>(new Witness(std::move(onDestruction))));
}

class RegistryTest : public support::DatabaseTest {
 protected:
  shared_ptr<SQLSelectClass> NewSelect() { return fDatabase.NewSelect(fSelected, 0); }

  shared_ptr<SQLTableClass> fSelected{new SQLTableClass(fDatabase, "items")};
};

TEST_F(RegistryTest, NewTableMakesAndRegistersATable) {
  CallRecorder recorder;
  const auto table = fDatabase.NewTable("items");
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(fDatabase.fTables, ElementsAre(table));
  EXPECT_EQ(table.use_count(), 2);
  EXPECT_EQ(&table->fDatabase, &fDatabase);
  EXPECT_EQ(table->fName, "items");
  EXPECT_FALSE(table->fCreated);
}

TEST_F(RegistryTest, TablesAreListedInOrderOfCreation) {
  const auto b = fDatabase.NewTable("b");
  const auto a = fDatabase.NewTable("a");
  const auto c = fDatabase.NewTable("c");
  EXPECT_THAT(fDatabase.fTables, ElementsAre(b, a, c));
}

TEST_F(RegistryTest, NewTableNeedsNoConnection) {
  SQLDatabase unopened(fFolder.Path("other.db"), false);
  const auto table = unopened.NewTable("items");
  EXPECT_EQ(unopened.GetTable("items"), table);
}

TEST_F(RegistryTest, TheSameNameTwiceGivesTwoTablesAndTheFirstIsFound) {
  const auto first = fDatabase.NewTable("items");
  const auto second = fDatabase.NewTable("items");
  EXPECT_NE(first, second);
  EXPECT_THAT(fDatabase.fTables, ElementsAre(first, second));
  EXPECT_EQ(fDatabase.GetTable("items"), first);
}

TEST_F(RegistryTest, AfterTheFirstIsDroppedTheSecondIsFound) {
  const auto first = fDatabase.NewTable("items");
  const auto second = fDatabase.NewTable("items");
  first->AddColumn(support::MakeColumn("a"));
  first->Create();
  fDatabase.DropTable(first);
  EXPECT_EQ(fDatabase.GetTable("items"), second);
}

TEST_F(RegistryTest, LookupsSendNothingAndShareTheOwnership) {
  const auto table = fDatabase.NewTable("items");
  CallRecorder recorder;
  const auto byName = fDatabase.GetTable("items");
  const auto byAddress = fDatabase.GetTableFromTableClass(table.get());
  EXPECT_EQ(byName, table);
  EXPECT_EQ(byAddress, table);
  EXPECT_EQ(table.use_count(), 4);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(fDatabase.fTables, ElementsAre(table));
}

TEST_F(RegistryTest, NamesAreComparedByteForByte) {
  const auto table = fDatabase.NewTable("items");
  const auto other = fDatabase.NewTable("others");
  for (const std::string& name :
       {std::string("Items"), std::string("ITEMS"), std::string("item"), std::string("items "), std::string(" items"),
        std::string(""), std::string("items\0", 6)}) {
    EXPECT_EQ(MessageOf([&] { fDatabase.GetTable(name); }), kNotMet) << name;
  }
  EXPECT_THAT(fDatabase.fTables, ElementsAre(table, other));
}

TEST_F(RegistryTest, AnyNameIsFoundThatWasRegistered) {
  for (const std::string& name : {std::string(), std::string("no such\nname;"), std::string("a\0b", 3)}) {
    const auto table = fDatabase.NewTable(name);
    EXPECT_EQ(fDatabase.GetTable(name), table);
  }
}

TEST_F(RegistryTest, NothingIsFoundInAnEmptyRegistry) {
  EXPECT_EQ(MessageOf([&] { fDatabase.GetTable("items"); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fDatabase.GetTableFromTableClass(fSelected.get()); }), kNotMet);
}

TEST_F(RegistryTest, ATableIsFoundByItsAddressAmongEqualNames) {
  const auto first = fDatabase.NewTable("items");
  const auto second = fDatabase.NewTable("items");
  EXPECT_EQ(fDatabase.GetTableFromTableClass(second.get()), second);
  EXPECT_EQ(fDatabase.GetTableFromTableClass(first.get()), first);
}

TEST_F(RegistryTest, AnUnregisteredTableIsNotFoundByItsAddress) {
  const auto registered = fDatabase.NewTable("items");
  const auto other = fDatabase.NewTable("others");
  SQLTableClass unregistered(fDatabase, "items");
  EXPECT_EQ(MessageOf([&] { fDatabase.GetTableFromTableClass(&unregistered); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fDatabase.GetTableFromTableClass(nullptr); }), kNotMet);
  EXPECT_THAT(fDatabase.fTables, ElementsAre(registered, other));
}

TEST_F(RegistryTest, AnUnregisteredTableCannotCountOrTest) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fSelected->CountRecords(nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fSelected->HasTerm(nullptr); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
  EXPECT_THAT(fDatabase.fCursors, IsEmpty());
}

TEST_F(RegistryTest, ThePredicatesTellNameAndAddress) {
  const auto table = fDatabase.NewTable("items");
  const auto twin = fDatabase.NewTable("items");
  EXPECT_TRUE(TableNameIs("items")(table));
  EXPECT_FALSE(TableNameIs("Items")(table));
  EXPECT_TRUE(TableClassIs(table.get())(table));
  EXPECT_FALSE(TableClassIs(table.get())(twin));
}

TEST_F(RegistryTest, DropTableSendsTheDropAndThenForgetsTheTable) {
  const auto before = fDatabase.NewTable("before");
  const auto table = MakeTable("items", {"a"});
  const auto after = fDatabase.NewTable("after");
  CallRecorder recorder;
  recorder.fAfterCall = [&](const Call&) { EXPECT_THAT(fDatabase.fTables, ElementsAre(before, table, after)); };
  fDatabase.DropTable(table);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'DROP TABLE items;' = 0", "step = 101", "finalize = 0"));
  EXPECT_THAT(fDatabase.fTables, ElementsAre(before, after));
  EXPECT_THAT(Rows("SELECT name FROM sqlite_master"), IsEmpty());
}

TEST_F(RegistryTest, ADroppedTableLivesOnWithItsHolder) {
  const auto table = MakeTable("items", {"a"});
  fDatabase.DropTable(table);
  EXPECT_EQ(table.use_count(), 1);
  EXPECT_FALSE(table->fCreated);
  EXPECT_NO_THROW(table->Create());
}

TEST_F(RegistryTest, DropTableReleasesATableThatNobodyElseHolds) {
  MakeTable("items", {"a"});
  bool destroyed = false;
  AddWitness(*fDatabase.GetTable("items"), [&] { destroyed = true; });
  fDatabase.DropTable(fDatabase.GetTable("items"));
  EXPECT_TRUE(destroyed);
}

TEST_F(RegistryTest, AFailedDropLeavesTheTableRegistered) {
  const auto table = fDatabase.NewTable("items");
  const auto other = fDatabase.NewTable("others");
  table->Initialize();
  EXPECT_EQ(MessageOf([&] { fDatabase.DropTable(table); }), "no such table: items");
  EXPECT_THAT(fDatabase.fTables, ElementsAre(table, other));
  EXPECT_TRUE(table->fCreated);
}

TEST_F(RegistryTest, ADropThatFailsAtAnyStageLeavesTheTableRegistered) {
  const auto table = fDatabase.NewTable("items");
  for (const char* const stage : {"prepare", "step", "finalize"}) {
    Rows("CREATE TABLE IF NOT EXISTS items ( a INTEGER )");
    CallRecorder recorder;
    recorder.Force(stage, SQLITE_IOERR);
    EXPECT_THROW(fDatabase.DropTable(table), std::runtime_error) << stage;
    EXPECT_THAT(fDatabase.fTables, ElementsAre(table));
    FinalizeLeftovers(fDatabase.fConnection);
  }
}

TEST_F(RegistryTest, DroppingAnUnlistedTableTakesTheLastEntryOff) {
  const auto first = fDatabase.NewTable("first");
  const auto second = fDatabase.NewTable("second");
  Rows("CREATE TABLE items ( a INTEGER )");
  CallRecorder recorder;
  fDatabase.DropTable(fSelected);
  EXPECT_THAT(recorder.Sql(), ElementsAre("DROP TABLE items;"));
  EXPECT_THAT(fDatabase.fTables, ElementsAre(first));
  EXPECT_EQ(second.use_count(), 1);
}

TEST_F(RegistryTest, DroppingAnUnlistedTableWithAnEmptyRegistryOnlySendsTheDrop) {
  Rows("CREATE TABLE items ( a INTEGER )");
  CallRecorder recorder;
  fDatabase.DropTable(fSelected);
  EXPECT_THAT(recorder.Sql(), ElementsAre("DROP TABLE items;"));
  EXPECT_THAT(fDatabase.fTables, IsEmpty());
}

TEST_F(RegistryTest, DropTableHeedsNoDestroyingFlag) {
  const auto table = MakeTable("items", {"a"});
  fDatabase.fDestroying = true;
  fDatabase.DropTable(table);
  fDatabase.fDestroying = false;
  EXPECT_THAT(fDatabase.fTables, IsEmpty());
}

TEST_F(RegistryTest, DropTableTakesTheFirstOfEqualEntries) {
  const auto table = MakeTable("items", {"a"});
  const auto other = fDatabase.NewTable("others");
  fDatabase.fTables.push_back(table);
  fDatabase.DropTable(table);
  EXPECT_THAT(fDatabase.fTables, ElementsAre(other, table));
}

TEST_F(RegistryTest, ATableReleasedByADropFindsTheRegistryInOrder) {
  auto table = MakeTable("items", {"a"});
  const auto other = MakeTable("others", {"a"});
  std::vector<shared_ptr<SQLTableClass>> seen;
  AddWitness(*table, [&] {
    seen = fDatabase.fTables;
    fDatabase.DropTable(other);
  });
  fDatabase.DropTable(std::move(table));
  EXPECT_THAT(seen, ElementsAre(other));
  EXPECT_THAT(fDatabase.fTables, IsEmpty());
}

TEST_F(RegistryTest, SelectsAreListedWhileTheyLive) {
  const auto first = NewSelect();
  auto second = NewSelect();
  const auto third = NewSelect();
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(first.get(), second.get(), third.get()));
  CallRecorder recorder;
  second.reset();
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(first.get(), third.get()));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(RegistryTest, CursorsAreListedWhileTheyLive) {
  const SQLCursorBase first(&fDatabase);
  auto second = std::make_unique<SQLCursorBase>(&fDatabase);
  const SQLCursorBase third(&fDatabase);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&first, second.get(), &third));
  CallRecorder recorder;
  second.reset();
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&first, &third));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(RegistryTest, RemovingAnUnlistedSelectTakesTheLastEntryOff) {
  const auto stranger = NewSelect();
  fDatabase.RemoveSelect(stranger.get());
  const auto first = NewSelect();
  const auto second = NewSelect();
  fDatabase.RemoveSelect(stranger.get());
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(first.get()));
}

TEST_F(RegistryTest, RemovingAnUnlistedCursorTakesTheLastEntryOff) {
  SQLCursorBase stranger(&fDatabase);
  fDatabase.RemoveCursor(&stranger);
  const SQLCursorBase first(&fDatabase);
  const SQLCursorBase second(&fDatabase);
  fDatabase.RemoveCursor(&stranger);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&first));
}

TEST_F(RegistryTest, RemovingFromEmptyListsDoesNothing) {
  const auto select = NewSelect();
  SQLCursorBase cursor(&fDatabase);
  for (int i = 0; i < 2; ++i) {
    fDatabase.RemoveSelect(select.get());
    fDatabase.RemoveCursor(&cursor);
    EXPECT_THAT(fDatabase.fSelects, IsEmpty());
    EXPECT_THAT(fDatabase.fCursors, IsEmpty());
  }
}

TEST_F(RegistryTest, TheFirstOfEqualEntriesIsRemoved) {
  const auto select = NewSelect();
  const auto otherSelect = NewSelect();
  fDatabase.fSelects.push_back(select.get());
  fDatabase.RemoveSelect(select.get());
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(otherSelect.get(), select.get()));

  SQLCursorBase cursor(&fDatabase);
  const SQLCursorBase otherCursor(&fDatabase);
  fDatabase.fCursors.push_back(&cursor);
  fDatabase.RemoveCursor(&cursor);
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&otherCursor, &cursor));
}

TEST_F(RegistryTest, TheDestroyingFlagMakesRemovalsDoNothing) {
  const auto select = NewSelect();
  SQLCursorBase cursor(&fDatabase);
  fDatabase.fDestroying = true;
  fDatabase.RemoveSelect(select.get());
  fDatabase.RemoveCursor(&cursor);
  EXPECT_THAT(fDatabase.fSelects, ElementsAre(select.get()));
  EXPECT_THAT(fDatabase.fCursors, ElementsAre(&cursor));
  fDatabase.fDestroying = false;
}

TEST_F(RegistryTest, WhatIsDestroyedUnderTheDestroyingFlagLeavesTheListsAlone) {
  auto select = NewSelect();
  auto cursor = std::make_unique<SQLCursorBase>(&fDatabase);
  fDatabase.fDestroying = true;
  select.reset();
  cursor.reset();
  fDatabase.fDestroying = false;
  EXPECT_EQ(fDatabase.fSelects.size(), 1u);
  EXPECT_EQ(fDatabase.fCursors.size(), 1u);
  fDatabase.fSelects.clear();
  fDatabase.fCursors.clear();
}

// A database whose end is part of the test.
class TeardownTest : public ::testing::Test {
 protected:
  TeardownTest() : fDatabase(new SQLDatabase(fFolder.Path("test.db"), false)) { fDatabase->Open(); }

  support::TemporaryFolder fFolder;
  std::unique_ptr<SQLDatabase> fDatabase;
};

TEST_F(TeardownTest, TablesAreReleasedFirstToLastAfterTheClose) {
  CallRecorder recorder;
  for (const char* const name : {"b", "a", "c"}) {
    AddWitness(*fDatabase->NewTable(name), [&recorder, name] { recorder.Note(name); });
  }
  fDatabase.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0", "note b", "note a", "note c"));
}

TEST_F(TeardownTest, WhatATableReleasesFindsNoDatabase) {
  std::string message;
  AddWitness(*fDatabase->NewTable("items"),
             [&message, kept = fDatabase->NewTable("kept")] { message = MessageOf([&] { kept->IsWritable(); }); });
  fDatabase.reset();
  EXPECT_EQ(message, "Condition is not met.");
}

TEST_F(TeardownTest, TheFlagIsUpWhileTheTablesAreReleased) {
  bool sawFlag = false;
  AddWitness(*fDatabase->NewTable("items"),
             [&sawFlag, database = fDatabase.get()] { sawFlag = database->fDestroying && !database->fIsOpen; });
  fDatabase.reset();
  EXPECT_TRUE(sawFlag);
}

TEST_F(TeardownTest, CreatedTablesStayInTheFile) {
  const auto table = fDatabase->NewTable("items");
  table->AddColumn(support::MakeColumn("a"));
  table->Create();
  fDatabase.reset();
  EXPECT_THAT(support::OtherConnection(fFolder.Path("test.db")).Run("SELECT name FROM sqlite_master"),
              ElementsAre("items"));
}

TEST_F(TeardownTest, WhatDiesBetweenFlagAndReleaseLeavesTheListsAlone) {
  auto select = fDatabase->NewSelect(fDatabase->NewTable("items"), 0);
  auto cursor = std::make_unique<SQLCursorBase>(fDatabase.get());
  CallRecorder recorder;
  bool closed = false;
  recorder.fAfterCall = [&, database = fDatabase.get()](const Call&) {
    closed = true;
    select.reset();
    cursor.reset();
    EXPECT_EQ(database->fSelects.size(), 1u);
    EXPECT_EQ(database->fCursors.size(), 1u);
  };
  fDatabase.reset();
  EXPECT_TRUE(closed);
}

TEST_F(TeardownTest, SelectsAndCursorsThatDieWithATableAreHarmless) {
  auto select = fDatabase->NewSelect(fDatabase->NewTable("selected"), 0);
  auto cursor = std::make_unique<SQLCursorBase>(fDatabase.get());
  AddWitness(*fDatabase->NewTable("items"), [&] {
    select.reset();
    cursor.reset();
  });
  CallRecorder recorder;
  fDatabase.reset();
  EXPECT_EQ(select, nullptr);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 0"));
}

TEST_F(TeardownTest, APreparedCursorThatDiesWithATableFinalizesItsStatement) {
  sqlite3* const connection = fDatabase->fConnection;
  const sqldb::OffsetSpec offsets;
  auto cursor = std::make_unique<sqldb::SQLStepCursor<std::uint32_t>>(fDatabase.get(), offsets);
  cursor->PrepareToQuery("SELECT 1");
  AddWitness(*fDatabase->NewTable("items"), [&] { cursor.reset(); });
  CallRecorder recorder;
  fDatabase.reset();
  EXPECT_THAT(recorder.Lines(), ElementsAre("close = 5", "finalize = 0"));
  CallRecorder::Pause pause;
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
}

TEST_F(TeardownTest, NeitherSelectsNorCursorsAreDestroyed) {
  struct MortalCursor : SQLCursorBase {
    explicit MortalCursor(SQLDatabase* database, bool& destroyed) : SQLCursorBase(database), fDestroyed(destroyed) {}
    ~MortalCursor() override { fDestroyed = true; }
    bool& fDestroyed;
  };
  bool destroyed = false;
  auto cursor = std::make_unique<MortalCursor>(fDatabase.get(), destroyed);
  auto select = fDatabase->NewSelect(fDatabase->NewTable("items"), 3);
  fDatabase.reset();
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(select->fLimit, 3u);
}

TEST_F(TeardownTest, ASelectThatOutlivesTheDatabaseIsDestroyedQuietly) {
  auto select = fDatabase->NewSelect(fDatabase->NewTable("items"), 0);
  fDatabase.reset();
  CallRecorder recorder;
  EXPECT_NO_THROW(select.reset());
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TeardownTest, ACursorThatOutlivesTheDatabaseIsDestroyedQuietly) {
  auto cursor = std::make_unique<SQLCursorBase>(fDatabase.get());
  fDatabase.reset();
  CallRecorder recorder;
  EXPECT_NO_THROW(cursor.reset());
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TeardownTest, ASelectThatOutlivesTheDatabaseCannotBeRun) {
  const auto select = fDatabase->NewSelect(fDatabase->NewTable("items"), 0);
  const sqldb::OffsetSpec offsets;
  const shared_ptr<SQLCursorBase> prepared(new sqldb::SQLStepCursor<std::uint32_t>(fDatabase.get(), offsets));
  const shared_ptr<SQLCursorBase> performed(new SQLCursorBase(fDatabase.get()));
  fDatabase.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { select->PrepareSelect(prepared); }), kNotMet);
  // The select owns the callback it made last only.
  delete std::exchange(select->fCallback, nullptr);
  EXPECT_EQ(MessageOf([&] { select->PerformSelect(performed); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

// What reaches the database through a table.
struct Reach {
  const char* fName;
  std::function<void(SQLTableClass&)> fAction;
};

class OrphanTableTest : public TeardownTest, public ::testing::WithParamInterface<Reach> {};

INSTANTIATE_TEST_SUITE_P(
    All, OrphanTableTest,
    ::testing::Values(Reach{"SendQuery", [](SQLTableClass& table) { table.SendQuery("SELECT 1", nullptr, nullptr); }},
                      Reach{"SendEmptyQuery", [](SQLTableClass& table) { table.SendQuery("", nullptr, nullptr); }},
                      Reach{"Create", [](SQLTableClass& table) { table.Create(); }},
                      Reach{"Drop", [](SQLTableClass& table) { table.Drop(); }},
                      Reach{"CreateIndexForColumn", [](SQLTableClass& table) { table.CreateIndexForColumn("a"); }},
                      Reach{"IsWritable", [](SQLTableClass& table) { table.IsWritable(); }},
                      Reach{"CountRecords", [](SQLTableClass& table) { table.CountRecords(nullptr); }},
                      Reach{"HasTerm", [](SQLTableClass& table) { table.HasTerm(nullptr); }},
                      Reach{"DeleteRecords", [](SQLTableClass& table) { table.DeleteRecords(nullptr); }}),
    [](const auto& test) { return test.param.fName; });

TEST_P(OrphanTableTest, WhateverReachesTheDatabaseThrows) {
  const auto table = fDatabase->NewTable("items");
  table->AddColumn(support::MakeColumn("a"));
  table->Initialize();
  fDatabase.reset();
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { GetParam().fAction(*table); }), kNotMet);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_TRUE(table->fCreated);
}

TEST_F(TeardownTest, ATableThatOutlivesTheDatabaseStillKnowsItsColumns) {
  auto table = fDatabase->NewTable("items");
  table->AddColumn(support::MakeColumn("a"));
  fDatabase.reset();
  EXPECT_EQ(table.use_count(), 1);
  table->AddColumn(support::MakeColumn("b"));
  EXPECT_TRUE(table->HasColumn("a"));
  EXPECT_EQ(table->GetColumn("b")->fSerial, 1);
  EXPECT_NO_THROW(table.reset());
}

}  // namespace
