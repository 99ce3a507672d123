#include <functional>
#include <map>
#include <type_traits>
#include <utility>

#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLColumnBase;
using sqldb::SQLDatabase;
using sqldb::SQLDeleteClass;
using sqldb::SQLInsertClass;
using sqldb::SQLReplaceClass;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using sqldb::SQLUpdateClass;
using support::CallRecorder;
using support::DatabaseTest;
using support::InMemoryOrder;
using support::IntegerColumn;
using support::kNotMet;
using support::MakeColumn;
using support::MessageOf;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_polymorphic_v<SQLTableClass>);
static_assert(!std::is_copy_constructible_v<SQLTableClass> && !std::is_copy_assignable_v<SQLTableClass>);
static_assert(!std::is_move_constructible_v<SQLTableClass> && !std::is_move_assignable_v<SQLTableClass>);
static_assert(std::is_constructible_v<SQLTableClass, SQLDatabase&, const std::string&>);

static_assert(std::is_same_v<decltype(SQLTableClass::fDatabase), SQLDatabase&>);
static_assert(std::is_same_v<decltype(SQLTableClass::fName), std::string>);
static_assert(std::is_same_v<decltype(SQLTableClass::fCreated), bool>);
static_assert(std::is_same_v<decltype(SQLTableClass::fColumns), std::map<std::string, shared_ptr<SQLColumnBase>>>);
static_assert(std::is_same_v<decltype(SQLTableClass::fInserts), std::vector<shared_ptr<SQLInsertClass>>>);
static_assert(std::is_same_v<decltype(SQLTableClass::fUpdates), std::vector<shared_ptr<SQLUpdateClass>>>);
static_assert(std::is_same_v<decltype(SQLTableClass::fNextSerial), std::uint16_t>);
static_assert(std::is_same_v<decltype(SQLTableClass::fDestroying), bool>);

template <typename Signature, typename Member>
constexpr bool Is(Member SQLTableClass::*) {
  return std::is_same_v<Signature, Member>;
}
static_assert(Is<void()>(&SQLTableClass::Initialize));
static_assert(Is<bool() const>(&SQLTableClass::IsWritable));
static_assert(Is<void(const std::string&, sqldb::QueryCallback*, sqldb::BindingCallback*)>(&SQLTableClass::SendQuery));
static_assert(Is<void(shared_ptr<SQLColumnBase>)>(&SQLTableClass::AddColumn));
static_assert(Is<bool(const std::string&) const>(&SQLTableClass::HasColumn));
static_assert(Is<shared_ptr<SQLColumnBase>(const std::string&)>(&SQLTableClass::GetColumn));
static_assert(Is<void()>(&SQLTableClass::Create));
static_assert(Is<void()>(&SQLTableClass::Drop));
static_assert(Is<void(const std::string&)>(&SQLTableClass::CreateIndexForColumn));
static_assert(Is<void(SQLInsertClass*)>(&SQLTableClass::RemoveInsert));
static_assert(Is<void(SQLUpdateClass*)>(&SQLTableClass::RemoveUpdate));

template <typename Lookup>
constexpr bool IsConstPredicate(bool (Lookup::*)(const shared_ptr<SQLTableClass>&) const) {
  return true;
}
static_assert(IsConstPredicate(&TableNameIs::operator()));
static_assert(IsConstPredicate(&TableClassIs::operator()));
static_assert(std::is_constructible_v<TableNameIs, const std::string&>);
static_assert(std::is_constructible_v<TableClassIs, SQLTableClass*>);

class TableTest : public DatabaseTest {
 protected:
  // The names of the file's tables and indexes.
  std::vector<std::string> FileContent() { return Rows("SELECT name FROM sqlite_master ORDER BY name"); }

  void AddColumns(std::initializer_list<const char*> names) {
    for (const char* const name : names) fTable->AddColumn(MakeColumn(name));
  }

  shared_ptr<SQLTableClass> fTable = fDatabase.NewTable("items");
};

std::vector<std::string> CallsFor(const std::string& sql) {
  return {"prepare '" + sql + "' = 0", "step = 101", "finalize = 0"};
}

TEST_F(TableTest, StartsEmptyAndNotCreated) {
  EXPECT_EQ(&fTable->fDatabase, &fDatabase);
  EXPECT_EQ(fTable->fName, "items");
  EXPECT_FALSE(fTable->fCreated);
  EXPECT_THAT(fTable->fColumns, IsEmpty());
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
  EXPECT_EQ(fTable->fNextSerial, 0);
  EXPECT_FALSE(fTable->fDestroying);
}

TEST_F(TableTest, MembersLieInTheirStatedOrder) {
  // The reference before them has no address of its own: it takes the room in front of the name.
  EXPECT_TRUE(InMemoryOrder(*fTable, fTable->fName, fTable->fCreated, fTable->fColumns, fTable->fInserts,
                            fTable->fUpdates, fTable->fNextSerial, fTable->fDestroying));
}

TEST_F(TableTest, ConstructionAndDestructionSendNothing) {
  MakeTable("kept", {"a"});
  CallRecorder recorder;
  {
    SQLTableClass table(fDatabase, "kept");
    table.Initialize();
    EXPECT_THAT(fDatabase.fTables.size(), 2u) << "only NewTable registers";
  }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(FileContent(), ElementsAre("kept"));
}

TEST_F(TableTest, InitializeDeclaresTheTableCreatedWithoutSending) {
  CallRecorder recorder;
  fTable->Initialize();
  EXPECT_TRUE(fTable->fCreated);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TableTest, IsWritableUnlessTheDatabaseIsReadOnly) {
  EXPECT_TRUE(fTable->IsWritable());
  SQLDatabase readOnly(fFolder.Path("other.db"), true);
  EXPECT_FALSE(readOnly.NewTable("items")->IsWritable());
}

TEST_F(TableTest, ReadOnlyIsReportedAndBlocksNothing) {
  fDatabase.fReadOnly = true;
  AddColumns({"a"});
  fTable->Create();
  EXPECT_FALSE(fTable->IsWritable());
  EXPECT_THAT(FileContent(), ElementsAre("items"));
}

TEST_F(TableTest, SendQueryForwardsTextCallbackAndBinding) {
  CallRecorder recorder;
  struct Rows : sqldb::QueryCallback {
    explicit Rows(CallRecorder& recorder) : fRecorder(recorder) {}
    bool ProcessRow(sqlite3_stmt*) override {
      fRecorder.Note("row");
      return true;
    }
    CallRecorder& fRecorder;
  } rows(recorder);
  struct Binding : sqldb::BindingCallback {
    explicit Binding(CallRecorder& recorder) : fRecorder(recorder) {}
    void BindingOpportunity(sqlite3_stmt*) const override { fRecorder.Note("bind"); }
    CallRecorder& fRecorder;
  } binding(recorder);
  fTable->SendQuery("SELECT 1", &rows, &binding);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0", "note bind", "step = 100", "note row",
                                            "step = 101", "finalize = 0"));
}

TEST_F(TableTest, SendQueryTakesNoCallbacks) {
  CallRecorder recorder;
  fTable->SendQuery("SELECT 1", nullptr, nullptr);
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'SELECT 1' = 0", "step = 100", "finalize = 0"));
}

TEST_F(TableTest, SendQueryPassesSQLitesMessageOn) {
  EXPECT_EQ(MessageOf([&] { fTable->SendQuery("nonsense", nullptr, nullptr); }), "near \"nonsense\": syntax error");
}

TEST_F(TableTest, AddColumnFilesUnderTheNameAndCountsSerials) {
  const auto c = MakeColumn("c");
  const auto a = MakeColumn("a");
  CallRecorder recorder;
  fTable->AddColumn(c);
  fTable->AddColumn(a);
  EXPECT_EQ(c->fSerial, 0);
  EXPECT_EQ(a->fSerial, 1);
  EXPECT_EQ(fTable->fNextSerial, 2);
  EXPECT_THAT(fTable->fColumns, ElementsAre(testing::Pair("a", a), testing::Pair("c", c)));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TableTest, AddColumnLeavesTheColumnsTableAlone) {
  const auto orphan = MakeColumn("a");
  const auto other = fDatabase.NewTable("other");
  const shared_ptr<SQLColumnBase> foreign(new IntegerColumn(other.get(), "b", true, false, false, ""));
  fTable->AddColumn(orphan);
  fTable->AddColumn(foreign);
  EXPECT_EQ(orphan->fTable, nullptr);
  EXPECT_EQ(foreign->fTable, other.get());
}

TEST_F(TableTest, AddingUnderAnExistingNameReplacesAndReleasesTheOldColumn) {
  boost::weak_ptr<SQLColumnBase> old;
  {
    const auto column = MakeColumn("a");
    old = column;
    fTable->AddColumn(column);
  }
  EXPECT_FALSE(old.expired());
  const auto replacement = MakeColumn("a");
  fTable->AddColumn(replacement);
  EXPECT_TRUE(old.expired());
  EXPECT_THAT(fTable->fColumns, ElementsAre(testing::Pair("a", replacement)));
  EXPECT_EQ(replacement->fSerial, 1);
  EXPECT_EQ(fTable->fNextSerial, 2);
}

TEST_F(TableTest, SerialsWrapAfterSixteenBits) {
  const auto first = MakeColumn("first");
  fTable->AddColumn(first);
  const auto filler = MakeColumn("filler");
  for (int i = 0; i < 65535; ++i) fTable->AddColumn(filler);
  EXPECT_EQ(filler->fSerial, 65535);
  EXPECT_EQ(fTable->fNextSerial, 0);

  const auto wrapped = MakeColumn("wrapped");
  fTable->AddColumn(wrapped);
  EXPECT_EQ(wrapped->fSerial, 0);
  EXPECT_EQ(fTable->fNextSerial, 1);
  EXPECT_FALSE(LessSerial(first, wrapped));
  EXPECT_FALSE(LessSerial(wrapped, first));
  EXPECT_TRUE(LessSerial(wrapped, filler));
}

TEST_F(TableTest, HasColumnComparesExactly) {
  AddColumns({"count"});
  const SQLTableClass& table = *fTable;
  EXPECT_TRUE(table.HasColumn("count"));
  EXPECT_FALSE(table.HasColumn("Count"));
  EXPECT_FALSE(table.HasColumn("coun"));
  EXPECT_FALSE(table.HasColumn("count "));
  EXPECT_FALSE(table.HasColumn(""));
}

TEST_F(TableTest, GetColumnReturnsTheFiledColumn) {
  const auto column = MakeColumn("count");
  fTable->AddColumn(column);
  AddColumns({"other"});
  EXPECT_EQ(fTable->GetColumn("count"), column);
}

TEST_F(TableTest, GetColumnOfAnUnknownNameThrowsAndFilesNothing) {
  AddColumns({"count"});
  EXPECT_EQ(MessageOf([&] { fTable->GetColumn("Count"); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->GetColumn(""); }), kNotMet);
  EXPECT_EQ(fTable->fColumns.size(), 1u);
}

TEST_F(TableTest, CreateSendsTheDefinitionsInOneStatement) {
  fTable->AddColumn(shared_ptr<SQLColumnBase>(new IntegerColumn(fTable.get(), "id", false, false, true, "")));
  AddColumns({"count"});
  CallRecorder recorder;
  fTable->Create();
  EXPECT_EQ(recorder.Lines(), CallsFor("CREATE TABLE items ( id INTEGER NOT NULL PRIMARY KEY, count INTEGER );"));
  EXPECT_TRUE(fTable->fCreated);
  EXPECT_THAT(FileContent(), ElementsAre("items"));
}

TEST_F(TableTest, CreateKeepsTheOrderOfAddition) {
  AddColumns({"c", "a", "b"});
  CallRecorder recorder;
  fTable->Create();
  EXPECT_THAT(recorder.Sql(), ElementsAre("CREATE TABLE items ( c INTEGER, a INTEGER, b INTEGER );"));
}

TEST_F(TableTest, CreateKeepsTheOrderOfAdditionAmongManyColumns) {
  std::string expected = "CREATE TABLE items (";
  for (int i = 0; i < 60; ++i) {
    const std::string name = "n" + std::to_string(i * 37 % 60);
    fTable->AddColumn(MakeColumn(name));
    expected += (i == 0 ? " " : ", ") + name + " INTEGER";
  }
  CallRecorder recorder;
  fTable->Create();
  EXPECT_THAT(recorder.Sql(), ElementsAre(expected + " );"));
}

TEST_F(TableTest, CreateWritesAReplacedColumnLast) {
  AddColumns({"a", "b"});
  fTable->AddColumn(shared_ptr<SQLColumnBase>(new IntegerColumn(nullptr, "a", false, false, false, "")));
  CallRecorder recorder;
  fTable->Create();
  EXPECT_THAT(recorder.Sql(), ElementsAre("CREATE TABLE items ( b INTEGER, a INTEGER NOT NULL );"));
}

TEST_F(TableTest, CreateOfATableWithoutColumnsIsSentAndRefused) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fTable->Create(); }), "near \")\": syntax error");
  EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'CREATE TABLE items ( );' = 1", "errmsg"));
  EXPECT_FALSE(fTable->fCreated);
}

TEST_F(TableTest, CreateOfATableThatTheFileHasAlreadyFails) {
  MakeTable("items", {"a"});
  AddColumns({"a"});
  EXPECT_EQ(MessageOf([&] { fTable->Create(); }), "table items already exists");
  EXPECT_FALSE(fTable->fCreated);
}

TEST_F(TableTest, FailedSecondCreateLeavesTheTableCreated) {
  AddColumns({"a"});
  fTable->Create();
  EXPECT_EQ(MessageOf([&] { fTable->Create(); }), "table items already exists");
  EXPECT_TRUE(fTable->fCreated);
}

TEST_F(TableTest, CreateThatFailsAtItsStepLeavesTheTableUncreated) {
  AddColumns({"a"});
  CallRecorder recorder;
  recorder.Force("step", SQLITE_FULL);
  EXPECT_NE(MessageOf([&] { fTable->Create(); }), "(nothing thrown)");
  EXPECT_FALSE(fTable->fCreated);
}

TEST_F(TableTest, CreatedIsSetOnlyOnceTheStatementIsThrough) {
  AddColumns({"a"});
  CallRecorder recorder;
  std::vector<bool> seen;
  recorder.fAfterCall = [&](const support::Call&) { seen.push_back(fTable->fCreated); };
  fTable->Create();
  fTable->Drop();
  EXPECT_THAT(seen, ElementsAre(false, false, false, true, true, true));
}

TEST_F(TableTest, DropSendsOneStatementAndKeepsTheColumns) {
  AddColumns({"a", "b"});
  fTable->Create();
  CallRecorder recorder;
  fTable->Drop();
  EXPECT_EQ(recorder.Lines(), CallsFor("DROP TABLE items;"));
  EXPECT_FALSE(fTable->fCreated);
  EXPECT_EQ(fTable->fColumns.size(), 2u);
  EXPECT_THAT(FileContent(), IsEmpty());
  EXPECT_EQ(fDatabase.GetTable("items"), fTable) << "only DropTable takes it off the registry";
}

TEST_F(TableTest, DropThenCreateSendsBothAndLeavesTheTableCreated) {
  AddColumns({"b", "a"});
  fTable->Create();
  CallRecorder recorder;
  fTable->Drop();
  fTable->Create();
  EXPECT_THAT(recorder.Sql(), ElementsAre("DROP TABLE items;", "CREATE TABLE items ( b INTEGER, a INTEGER );"));
  EXPECT_TRUE(fTable->fCreated);
  EXPECT_THAT(FileContent(), ElementsAre("items"));
}

TEST_F(TableTest, FailedDropKeepsTheCreatedFlag) {
  EXPECT_EQ(MessageOf([&] { fTable->Drop(); }), "no such table: items");
  EXPECT_FALSE(fTable->fCreated);
  fTable->Initialize();
  EXPECT_EQ(MessageOf([&] { fTable->Drop(); }), "no such table: items");
  EXPECT_TRUE(fTable->fCreated);
}

TEST_F(TableTest, IndexIsNamedAfterTableAndColumn) {
  AddColumns({"count"});
  fTable->Create();
  CallRecorder recorder;
  fTable->CreateIndexForColumn("count");
  EXPECT_EQ(recorder.Lines(), CallsFor("CREATE INDEX items_count on items (count);"));
  EXPECT_THAT(FileContent(), ElementsAre("items", "items_count"));
  EXPECT_TRUE(fTable->fCreated);
}

TEST_F(TableTest, IndexedColumnIsNotLookedUp) {
  MakeTable("things", {"a"});
  CallRecorder recorder;
  SQLTableClass things(fDatabase, "things");
  things.CreateIndexForColumn("a");
  EXPECT_THAT(recorder.Sql(), ElementsAre("CREATE INDEX things_a on things (a);"));
  EXPECT_FALSE(things.fCreated);
}

TEST_F(TableTest, FailedIndexKeepsTheCreatedFlag) {
  AddColumns({"a"});
  EXPECT_EQ(MessageOf([&] { fTable->CreateIndexForColumn("a"); }), "no such table: main.items");
  EXPECT_FALSE(fTable->fCreated);
  fTable->Create();
  const std::string message = MessageOf([&] { fTable->CreateIndexForColumn("b"); });
  EXPECT_EQ(message, sqlite3_errmsg(fDatabase.fConnection));
  EXPECT_EQ(sqlite3_errcode(fDatabase.fConnection), SQLITE_ERROR);
  EXPECT_TRUE(fTable->fCreated);
}

TEST_F(TableTest, NamesAreWrittenUnquoted) {
  const auto table = fDatabase.NewTable("my order");
  table->AddColumn(MakeColumn("group"));
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { table->Create(); }), "near \"order\": syntax error");
  EXPECT_EQ(MessageOf([&] { table->Drop(); }), "near \"order\": syntax error");
  EXPECT_EQ(MessageOf([&] { table->CreateIndexForColumn("group"); }), "near \"order_group\": syntax error");
  EXPECT_THAT(recorder.Sql(), ElementsAre("CREATE TABLE my order ( group INTEGER );", "DROP TABLE my order;",
                                          "CREATE INDEX my order_group on my order (group);"));
}

TEST_F(TableTest, RemovingWhatIsNotListedChangesNothing) {
  const auto listedInsert = fTable->NewInsert();
  const auto listedUpdate = fTable->NewUpdate();
  const auto insert = fTable->NewInsert();
  const auto update = fTable->NewUpdate();
  fTable->RemoveInsert(insert.get());
  fTable->RemoveUpdate(update.get());
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
  fTable->fInserts = {listedInsert};
  fTable->fUpdates = {listedUpdate};
  fTable->RemoveInsert(insert.get());
  fTable->RemoveInsert(nullptr);
  fTable->RemoveUpdate(update.get());
  fTable->RemoveUpdate(nullptr);
  EXPECT_THAT(fTable->fInserts, ElementsAre(listedInsert));
  EXPECT_THAT(fTable->fUpdates, ElementsAre(listedUpdate));
}

TEST_F(TableTest, RemovalErasesTheFirstMatchOnlyAndReleasesIt) {
  const auto a = fTable->NewInsert();
  const auto b = fTable->NewInsert();
  fTable->fInserts = {a, b, a};
  fTable->RemoveInsert(a.get());
  EXPECT_THAT(fTable->fInserts, ElementsAre(b, a));
  EXPECT_EQ(a.use_count(), 2);

  const auto c = fTable->NewUpdate();
  const auto d = fTable->NewUpdate();
  fTable->fUpdates = {c, d, c};
  fTable->RemoveUpdate(c.get());
  EXPECT_THAT(fTable->fUpdates, ElementsAre(d, c));
  EXPECT_EQ(c.use_count(), 2);
}

TEST_F(TableTest, EachRemovalLooksAtItsOwnListOnly) {
  const auto insert = fTable->NewInsert();
  const auto update = fTable->NewUpdate();
  fTable->fInserts = {insert};
  fTable->fUpdates = {update};
  fTable->RemoveInsert(insert.get());
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, ElementsAre(update));
  fTable->RemoveUpdate(update.get());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
}

TEST_F(TableTest, RemovalDoesNothingWhileTheTableIsDestroyed) {
  const auto insert = fTable->NewInsert();
  const auto update = fTable->NewUpdate();
  fTable->fInserts = {insert};
  fTable->fUpdates = {update};
  fTable->fDestroying = true;
  fTable->RemoveInsert(insert.get());
  fTable->RemoveUpdate(update.get());
  EXPECT_THAT(fTable->fInserts, ElementsAre(insert));
  EXPECT_THAT(fTable->fUpdates, ElementsAre(update));
}

// The statement's destructor comes back to the list that just let it go.
TEST_F(TableTest, RemovalOfAStatementThatOnlyTheListOwnsDestroysIt) {
  const auto otherInsert = fTable->NewInsert();
  const auto otherUpdate = fTable->NewUpdate();
  fTable->fInserts = {fTable->NewReplace(), otherInsert};
  fTable->fUpdates = {fTable->NewUpdate(), otherUpdate};
  const boost::weak_ptr<SQLInsertClass> insert = fTable->fInserts.front();
  const boost::weak_ptr<SQLUpdateClass> update = fTable->fUpdates.front();
  fTable->RemoveInsert(fTable->fInserts.front().get());
  fTable->RemoveUpdate(fTable->fUpdates.front().get());
  EXPECT_TRUE(insert.expired());
  EXPECT_TRUE(update.expired());
  EXPECT_THAT(fTable->fInserts, ElementsAre(otherInsert));
  EXPECT_THAT(fTable->fUpdates, ElementsAre(otherUpdate));
}

TEST_F(TableTest, FiledStatementLivesOnWithoutItsMaker) {
  boost::weak_ptr<SQLInsertClass> insert;
  {
    const auto made = fTable->NewInsert();
    fTable->fInserts.push_back(made);
    insert = made;
  }
  EXPECT_FALSE(insert.expired());
  EXPECT_EQ(fTable->fInserts.size(), 1u);
}

// Says when it is destroyed.
template <typename Base>
class Tattler : public Base {
 public:
  template <typename... Arguments>
  explicit Tattler(std::function<void()> tell, Arguments&&... arguments)
      : Base(std::forward<Arguments>(arguments)...), fTell(std::move(tell)) {}
  Tattler(const Tattler&) = delete;
  Tattler& operator=(const Tattler&) = delete;
  ~Tattler() override { fTell(); }

 private:
  std::function<void()> fTell;
};

TEST_F(TableTest, DestructionRaisesItsFlagThenReleasesUpdatesInsertsAndColumns) {
  std::vector<std::string> told;
  auto* const table = new SQLTableClass(fDatabase, "items");
  const auto tell = [&told, table](const char* what) {
    return [&told, table, what] { told.push_back(std::string(what) + (table->fDestroying ? "" : " too early")); };
  };
  table->AddColumn(
      shared_ptr<SQLColumnBase>(new Tattler<IntegerColumn>(tell("column"), table, "a", true, false, false, "")));
  table->fInserts = {table->NewInsert()};
  table->fInserts[0]->fValues = {shared_ptr<sqldb::SQLValueBase>(new Tattler<support::TextValue>(tell("insert"), "1"))};
  table->fUpdates = {table->NewUpdate()};
  table->fUpdates[0]->fValues = {shared_ptr<sqldb::SQLValueBase>(new Tattler<support::TextValue>(tell("update"), "1"))};
  CallRecorder recorder;
  delete table;
  EXPECT_THAT(told, ElementsAre("update", "insert", "column"));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

// An application's value may do anything when it goes, and the list must be whole by then.
TEST_F(TableTest, ReleaseOfAnErasedStatementMayFileAnotherOne) {
  const auto second = fTable->NewUpdate();
  const auto third = fTable->NewUpdate();
  const auto late = fTable->NewUpdate();
  fTable->fUpdates = {fTable->NewUpdate(), second, third};
  fTable->fUpdates.shrink_to_fit();
  fTable->fUpdates[0]->fValues = {
      shared_ptr<sqldb::SQLValueBase>(new Tattler<support::TextValue>([&] { fTable->fUpdates.push_back(late); }, "1"))};
  fTable->RemoveUpdate(fTable->fUpdates[0].get());
  EXPECT_THAT(fTable->fUpdates, ElementsAre(second, third, late));
}

TEST_F(TableTest, ColumnsHeldElsewhereOutliveTheTable) {
  const auto column = MakeColumn("a");
  {
    SQLTableClass table(fDatabase, "gone");
    table.AddColumn(column);
    EXPECT_EQ(column.use_count(), 2);
  }
  EXPECT_EQ(column.use_count(), 1);
}

class OrphanTableTest : public testing::Test {
 protected:
  OrphanTableTest() {
    SQLDatabase database(fFolder.Path("gone.db"), true);
    database.Open();
    fTable = database.NewTable("items");
    fTable->AddColumn(MakeColumn("a"));
  }

  support::TemporaryFolder fFolder;
  shared_ptr<SQLTableClass> fTable;
};

TEST_F(OrphanTableTest, WhatWouldReachTheDatabaseThrows) {
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { fTable->IsWritable(); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->SendQuery("SELECT 1", nullptr, nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->SendQuery("", nullptr, nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->Create(); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->CreateIndexForColumn("a"); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->CountRecords(nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->HasTerm(nullptr); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fTable->DeleteRecords(nullptr); }), kNotMet);
  EXPECT_FALSE(fTable->fCreated);
  fTable->Initialize();
  EXPECT_EQ(MessageOf([&] { fTable->Drop(); }), kNotMet);
  EXPECT_TRUE(fTable->fCreated);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(OrphanTableTest, ColumnsAreStillAtHand) {
  fTable->AddColumn(MakeColumn("b"));
  EXPECT_TRUE(fTable->HasColumn("a"));
  EXPECT_EQ(fTable->GetColumn("b")->fSerial, 1);
}

TEST_F(OrphanTableTest, IsDestroyedQuietlyWithItsStatements) {
  fTable->fInserts = {fTable->NewInsert()};
  fTable->fUpdates = {fTable->NewUpdate()};
  CallRecorder recorder;
  fTable.reset();
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TableTest, TableNameIsComparesExactly) {
  const TableNameIs isItems("items");
  EXPECT_EQ(isItems.fName, "items");
  EXPECT_TRUE(isItems(fTable));
  EXPECT_FALSE(isItems(fDatabase.NewTable("Items")));
  EXPECT_FALSE(isItems(fDatabase.NewTable("items ")));
  EXPECT_FALSE(isItems(fDatabase.NewTable("item")));
}

TEST_F(TableTest, TableClassIsComparesIdentity) {
  const TableClassIs isTable(fTable.get());
  EXPECT_EQ(isTable.fTable, fTable.get());
  EXPECT_TRUE(isTable(fTable));
  EXPECT_FALSE(isTable(fDatabase.NewTable("items")));
}

}  // namespace
