#include <type_traits>

#include "support/fixtures.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLDatabase;
using sqldb::SQLDeleteClass;
using sqldb::SQLEmptyTerm;
using sqldb::SQLInsertClass;
using sqldb::SQLReplaceClass;
using sqldb::SQLTableClass;
using sqldb::SQLTermBase;
using sqldb::SQLUpdateClass;
using support::CallRecorder;
using support::DatabaseTest;
using support::kNotMet;
using support::MakeColumn;
using support::MakeTerm;
using support::MakeValue;
using support::MessageOf;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_same_v<decltype(&SQLTableClass::NewInsert), shared_ptr<SQLInsertClass> (SQLTableClass::*)()>);
static_assert(std::is_same_v<decltype(&SQLTableClass::NewReplace), shared_ptr<SQLReplaceClass> (SQLTableClass::*)()>);
static_assert(std::is_same_v<decltype(&SQLTableClass::NewUpdate), shared_ptr<SQLUpdateClass> (SQLTableClass::*)()>);
static_assert(std::is_same_v<decltype(&SQLTableClass::NewDelete),
                             shared_ptr<SQLDeleteClass> (SQLTableClass::*)(shared_ptr<SQLTermBase>)>);

class StatementFactoriesTest : public DatabaseTest {
 protected:
  shared_ptr<SQLTableClass> fTable = fDatabase.NewTable("items");
};

TEST_F(StatementFactoriesTest, InsertIsTheCallersAloneAndBlank) {
  const auto insert = fTable->NewInsert();
  EXPECT_EQ(insert.use_count(), 1);
  EXPECT_EQ(&insert->fTable, fTable.get());
  EXPECT_EQ(insert->fVerb, "INSERT");
  EXPECT_EQ(insert->fQuery.str(), "");
  EXPECT_THAT(insert->fColumns, IsEmpty());
  EXPECT_THAT(insert->fValues, IsEmpty());
}

TEST_F(StatementFactoriesTest, ReplaceIsTheCallersAloneAndBlank) {
  const auto replace = fTable->NewReplace();
  EXPECT_EQ(replace.use_count(), 1);
  EXPECT_EQ(&replace->fTable, fTable.get());
  EXPECT_EQ(replace->fVerb, "REPLACE");
  EXPECT_THAT(replace->fColumns, IsEmpty());
  EXPECT_THAT(replace->fValues, IsEmpty());
}

TEST_F(StatementFactoriesTest, UpdateIsTheCallersAloneAndBlank) {
  const auto update = fTable->NewUpdate();
  EXPECT_EQ(update.use_count(), 1);
  EXPECT_EQ(&update->fTable, fTable.get());
  EXPECT_THAT(update->fColumns, IsEmpty());
  EXPECT_THAT(update->fValues, IsEmpty());
  EXPECT_EQ(update->fTerm, nullptr);
}

TEST_F(StatementFactoriesTest, DeleteIsTheCallersAloneAndSharesTheTerm) {
  const auto term = MakeTerm(" a = 1");
  const auto statement = fTable->NewDelete(term);
  EXPECT_EQ(statement.use_count(), 1);
  EXPECT_EQ(statement->fDatabase, &fDatabase);
  EXPECT_EQ(statement->fTable, fTable.get());
  EXPECT_EQ(statement->fTerm, term);
  EXPECT_EQ(term.use_count(), 2);
  EXPECT_EQ(statement->fQuery, "");
}

TEST_F(StatementFactoriesTest, DeleteTakesANullTerm) { EXPECT_EQ(fTable->NewDelete(nullptr)->fTerm, nullptr); }

TEST_F(StatementFactoriesTest, DeleteWithTheEmptyTermEndsAtTheTablesName) {
  const auto statement = fTable->NewDelete(SQLEmptyTerm::EmptyTerm);
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM items");
}

TEST_F(StatementFactoriesTest, EveryStatementIsIndependentOfTheOthers) {
  const auto first = fTable->NewInsert();
  const auto second = fTable->NewInsert();
  first->fColumns.push_back(MakeColumn("a"));
  first->fValues.push_back(MakeValue("1"));
  first->SetupInsert();
  EXPECT_NE(first, second);
  EXPECT_THAT(second->fColumns, IsEmpty());
  EXPECT_THAT(second->fValues, IsEmpty());
  EXPECT_EQ(second->fQuery.str(), "");
  EXPECT_NE(fTable->NewReplace(), fTable->NewReplace());
  EXPECT_NE(fTable->NewUpdate(), fTable->NewUpdate());
  EXPECT_NE(fTable->NewDelete(nullptr), fTable->NewDelete(nullptr));
}

TEST_F(StatementFactoriesTest, NothingIsSentAndNothingIsFiled) {
  CallRecorder recorder;
  const auto insert = fTable->NewInsert();
  const auto replace = fTable->NewReplace();
  const auto update = fTable->NewUpdate();
  const auto statement = fTable->NewDelete(nullptr);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
  EXPECT_THAT(fDatabase.fTables, ElementsAre(fTable));
  EXPECT_THAT(fDatabase.fSelects, IsEmpty());
  EXPECT_THAT(fDatabase.fCursors, IsEmpty());
  EXPECT_EQ(fTable.use_count(), 2) << "statements do not own their table";
}

TEST_F(StatementFactoriesTest, NeitherCreatedNorWritableIsAsked) {
  ASSERT_FALSE(fTable->fCreated);
  fDatabase.fReadOnly = true;
  EXPECT_NE(fTable->NewInsert(), nullptr);
  EXPECT_NE(fTable->NewReplace(), nullptr);
  EXPECT_NE(fTable->NewUpdate(), nullptr);
  EXPECT_NE(fTable->NewDelete(nullptr), nullptr);
}

TEST_F(StatementFactoriesTest, DestructionLeavesTheTablesListsUnchanged) {
  const auto insert = fTable->NewInsert();
  const auto update = fTable->NewUpdate();
  fTable->fInserts = {insert};
  fTable->fUpdates = {update};
  CallRecorder recorder;
  fTable->NewInsert().reset();
  fTable->NewReplace().reset();
  fTable->NewUpdate().reset();
  fTable->NewDelete(nullptr).reset();
  EXPECT_THAT(fTable->fInserts, ElementsAre(insert));
  EXPECT_THAT(fTable->fUpdates, ElementsAre(update));
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

// An application may file a statement without sharing it. Its destructor takes such an entry off.
TEST_F(StatementFactoriesTest, DestructionTakesTheStatementsOwnEntryOff) {
  const auto leaveAlone = [](const void*) {};
  {
    SQLInsertClass insert(*fTable);
    SQLUpdateClass update(*fTable);
    fTable->fInserts.push_back(shared_ptr<SQLInsertClass>(&insert, leaveAlone));
    fTable->fUpdates.push_back(shared_ptr<SQLUpdateClass>(&update, leaveAlone));
  }
  EXPECT_THAT(fTable->fInserts, IsEmpty());
  EXPECT_THAT(fTable->fUpdates, IsEmpty());
}

TEST_F(StatementFactoriesTest, StatementsOfTheTableWorkOnTheFile) {
  const auto table = MakeTable("stock", {"id", "qty"});
  const auto insert = table->NewInsert();
  insert->fColumns = {table->GetColumn("id"), table->GetColumn("qty")};
  insert->fValues = {MakeValue("1"), MakeValue("10")};
  insert->PerformInsert(true);
  insert->fValues = {MakeValue("2"), MakeValue("20")};
  insert->PerformInsert(true);
  const auto update = table->NewUpdate();
  update->fColumns = {table->GetColumn("qty")};
  update->fValues = {MakeValue("11")};
  update->fTerm = MakeTerm(" id = 1");
  update->PerformUpdate(true);
  table->NewDelete(MakeTerm(" id = 2"))->PerformDelete();
  EXPECT_THAT(Rows("SELECT id, qty FROM stock"), ElementsAre("1|11"));
}

class OrphanStatementsTest : public DatabaseTest {
 protected:
  // Statements that would work if their table lived.
  OrphanStatementsTest() {
    fTable = boost::shared_ptr<SQLTableClass>(new SQLTableClass(fDatabase, "items"));
    fInsert = fTable->NewInsert();
    fReplace = fTable->NewReplace();
    fUpdate = fTable->NewUpdate();
    fDelete = fTable->NewDelete(nullptr);
    fInsert->fColumns = fReplace->fColumns = fUpdate->fColumns = {MakeColumn("a")};
    fInsert->fValues = fReplace->fValues = fUpdate->fValues = {MakeValue("1")};
    fUpdate->fTerm = MakeTerm(" 1");
  }

  void ExpectEverythingThrows() {
    CallRecorder recorder;
    EXPECT_EQ(MessageOf([&] { fInsert->PerformInsert(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { fReplace->PerformReplace(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { fUpdate->PerformUpdate(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { fDelete->PerformDelete(); }), kNotMet);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    EXPECT_EQ(fInsert->fValues.size(), 1u);
    EXPECT_EQ(fReplace->fValues.size(), 1u);
    EXPECT_EQ(fUpdate->fValues.size(), 1u);
  }

  void DestroyAll() {
    CallRecorder recorder;
    fInsert.reset();
    fReplace.reset();
    fUpdate.reset();
    fDelete.reset();
    EXPECT_THAT(recorder.Lines(), IsEmpty());
  }

  shared_ptr<SQLTableClass> fTable;
  shared_ptr<SQLInsertClass> fInsert;
  shared_ptr<SQLReplaceClass> fReplace;
  shared_ptr<SQLUpdateClass> fUpdate;
  shared_ptr<SQLDeleteClass> fDelete;
};

TEST_F(OrphanStatementsTest, EveryOperationThrowsOnceTheTableIsGone) {
  fTable.reset();
  ExpectEverythingThrows();
  EXPECT_EQ(MessageOf([&] { fInsert->SetupInsert(); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fReplace->SetupInsert(); }), kNotMet);
  EXPECT_EQ(MessageOf([&] { fDelete->SetUpDelete(); }), kNotMet);
  EXPECT_EQ(fInsert->fQuery.str(), "");
  EXPECT_EQ(fDelete->fQuery, "");
}

TEST_F(OrphanStatementsTest, AreDestroyedQuietlyAfterTheirTable) {
  fTable.reset();
  DestroyAll();
}

// The table is still there to be asked, its database is not.
TEST(StatementsOfAnOrphanTableTest, ThrowAndAreDestroyedQuietly) {
  support::TemporaryFolder folder;
  shared_ptr<SQLTableClass> table;
  {
    SQLDatabase database(folder.Path("gone.db"), false);
    database.Open();
    table = database.NewTable("items");
  }
  CallRecorder recorder;
  {
    const auto insert = table->NewInsert();
    const auto update = table->NewUpdate();
    update->fTerm = MakeTerm(" 1");
    EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { table->NewReplace()->PerformReplace(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { update->PerformUpdate(true); }), kNotMet);
    EXPECT_EQ(MessageOf([&] { table->NewDelete(nullptr)->PerformDelete(); }), kNotMet);
  }
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

}  // namespace
