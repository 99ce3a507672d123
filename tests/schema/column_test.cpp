#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <sstream>
#include <type_traits>

#include "support/fixtures.h"
#include "support/layout.h"

namespace {

using boost::shared_ptr;
using sqldb::SQLColumnBase;
using sqldb::SQLTableClass;
using support::CallRecorder;
using support::DatabaseTest;
using support::InMemoryOrder;
using support::IntegerColumn;
using support::VirtualSlot;
using testing::ElementsAre;

static_assert(std::has_virtual_destructor_v<SQLColumnBase>);
static_assert(std::is_base_of_v<SQLColumnBase, IntegerColumn>);
static_assert(std::is_convertible_v<IntegerColumn*, SQLColumnBase*>, "publicly derived");
static_assert(sizeof(IntegerColumn) == sizeof(SQLColumnBase), "no members of its own");

static_assert(std::is_same_v<decltype(SQLColumnBase::fTable), SQLTableClass*>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fName), std::string>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fSqlType), std::string>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fCollation), std::string>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fCanBeNull), bool>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fIsUnique), bool>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fIsPrimaryKey), bool>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fSize), std::uint32_t>);
static_assert(std::is_same_v<decltype(SQLColumnBase::fSerial), std::uint16_t>);

static_assert(
    std::is_same_v<decltype(&SQLColumnBase::AssignTo), void (SQLColumnBase::*)(void*, sqlite3_stmt*, int) const>);
static_assert(std::is_same_v<decltype(&SQLColumnBase::IAmAKindOf), std::string (SQLColumnBase::*)() const>);
static_assert(std::is_same_v<decltype(&SQLColumnBase::GetSpecAsString), std::string (SQLColumnBase::*)() const>);
static_assert(
    std::is_same_v<decltype(&IntegerColumn::AssignTo), void (IntegerColumn::*)(void*, sqlite3_stmt*, int) const>);
static_assert(std::is_same_v<decltype(&IntegerColumn::IAmAKindOf), std::string (IntegerColumn::*)() const>);
static_assert(std::is_same_v<decltype(&ColumnTraits<std::uint32_t>::SQLColumnTypeString), std::string (*)()>);
static_assert(std::is_constructible_v<SQLColumnBase, SQLTableClass*, const std::string&, std::string, std::uint32_t,
                                      bool, bool, bool, const std::string&>);
static_assert(
    std::is_constructible_v<IntegerColumn, SQLTableClass*, const std::string&, bool, bool, bool, const std::string&>);

static_assert(std::is_same_v<decltype(&LessSerial), bool (*)(shared_ptr<SQLColumnBase>, shared_ptr<SQLColumnBase>)>);
static_assert(std::is_same_v<decltype(&AddColumnDefToQuery::operator()),
                             void (AddColumnDefToQuery::*)(shared_ptr<SQLColumnBase>)>);
static_assert(std::is_same_v<decltype(AddColumnDefToQuery::fStream), std::ostream&>);
static_assert(std::is_same_v<decltype(AddColumnDefToQuery::fFirst), bool>);
static_assert(std::is_constructible_v<AddColumnDefToQuery, std::ostream&>);
static_assert(std::is_constructible_v<PushColumn, std::vector<shared_ptr<SQLColumnBase>>&>);

// Nobody may follow it.
SQLTableClass* UnreadableTable() { return reinterpret_cast<SQLTableClass*>(std::uintptr_t{16}); }

std::string SpecOf(bool canBeNull, bool isUnique, bool isPrimaryKey, const std::string& collation) {
  return IntegerColumn(nullptr, "id", canBeNull, isUnique, isPrimaryKey, collation).GetSpecAsString();
}

shared_ptr<SQLColumnBase> ColumnWithSerial(std::uint16_t serial) {
  const auto column = support::MakeColumn("any");
  column->fSerial = serial;
  return column;
}

// A traits class need not be ColumnTraits.
struct CentsTraits {
  static std::string SQLColumnTypeString() { return "DECIMAL(10,2)"; }
};
using CentsColumn = sqldb::SQLColumnClass<std::uint16_t, 7, CentsTraits>;

}  // namespace

template <>
inline void CentsColumn::AssignTo(void*, sqlite3_stmt*, int) const {}

namespace {

// A statement that stands on its first row.
class Row {
 public:
  Row(sqlite3* connection, const std::string& sql) {
    CallRecorder::Pause pause;
    EXPECT_EQ(sqlite3_prepare_v2(connection, sql.c_str(), -1, &fStatement, nullptr), SQLITE_OK) << sql;
    EXPECT_EQ(sqlite3_step(fStatement), SQLITE_ROW) << sql;
  }
  ~Row() {
    CallRecorder::Pause pause;
    sqlite3_finalize(fStatement);
  }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;

  sqlite3_stmt* Statement() const { return fStatement; }

 private:
  sqlite3_stmt* fStatement = nullptr;
};

TEST(ColumnTest, BaseKeepsEveryArgumentInItsMember) {
  const SQLColumnBase column(UnreadableTable(), "price", "REAL", 8, true, false, true, "NOCASE");
  EXPECT_EQ(column.fTable, UnreadableTable());
  EXPECT_EQ(column.fName, "price");
  EXPECT_EQ(column.fSqlType, "REAL");
  EXPECT_EQ(column.fSize, 8u);
  EXPECT_TRUE(column.fCanBeNull);
  EXPECT_FALSE(column.fIsUnique);
  EXPECT_TRUE(column.fIsPrimaryKey);
  EXPECT_EQ(column.fCollation, "NOCASE");
  EXPECT_EQ(column.fSerial, 0);
}

TEST(ColumnTest, BaseTakesTheFlagsAsNullableThenUniqueThenPrimaryKey) {
  for (const int set : {0, 1, 2}) {
    const SQLColumnBase column(nullptr, "a", "TEXT", 1, set == 0, set == 1, set == 2, "");
    EXPECT_EQ(column.fCanBeNull, set == 0);
    EXPECT_EQ(column.fIsUnique, set == 1);
    EXPECT_EQ(column.fIsPrimaryKey, set == 2);
  }
}

TEST(ColumnTest, TypedColumnTakesTheFlagsAsNullableThenUniqueThenPrimaryKey) {
  for (const int set : {0, 1, 2}) {
    const IntegerColumn column(nullptr, "a", set == 0, set == 1, set == 2, "");
    EXPECT_EQ(column.fCanBeNull, set == 0);
    EXPECT_EQ(column.fIsUnique, set == 1);
    EXPECT_EQ(column.fIsPrimaryKey, set == 2);
  }
}

TEST(ColumnTest, EmptyNameAndTypeAreAccepted) {
  const SQLColumnBase column(nullptr, "", "", 0, true, false, false, "");
  EXPECT_EQ(column.fName, "");
  EXPECT_EQ(column.fSqlType, "");
  EXPECT_EQ(column.fSize, 0u);
  EXPECT_EQ(column.GetSpecAsString(), "");
}

TEST(ColumnTest, MembersLieInTheirStatedOrder) {
  const SQLColumnBase column(nullptr, "a", "TEXT", 1, true, false, false, "");
  EXPECT_TRUE(InMemoryOrder(column, column.fTable, column.fName, column.fSqlType, column.fCollation, column.fCanBeNull,
                            column.fIsUnique, column.fIsPrimaryKey, column.fSize, column.fSerial));
}

TEST(ColumnTest, VirtualOperationsKeepTheirSlots) {
  EXPECT_EQ(VirtualSlot(&SQLColumnBase::AssignTo), 2);
  EXPECT_EQ(VirtualSlot(&SQLColumnBase::IAmAKindOf), 3);
  EXPECT_EQ(VirtualSlot(&IntegerColumn::AssignTo), 2);
  EXPECT_EQ(VirtualSlot(&IntegerColumn::IAmAKindOf), 3);
  EXPECT_EQ(VirtualSlot(&SQLColumnBase::GetSpecAsString), -1);
}

TEST(ColumnTest, IntegerColumnIsFourBytesOfTypeInteger) {
  const IntegerColumn column(UnreadableTable(), "id", false, false, true, "BINARY");
  EXPECT_EQ(column.fSqlType, "INTEGER");
  EXPECT_EQ(column.fSize, 4u);
  EXPECT_EQ(column.fTable, UnreadableTable());
  EXPECT_EQ(column.fName, "id");
  EXPECT_EQ(column.fCollation, "BINARY");
  EXPECT_EQ(column.fSerial, 0);
  EXPECT_EQ(ColumnTraits<std::uint32_t>::SQLColumnTypeString(), "INTEGER");
}

TEST(ColumnTest, TypedColumnAsksItsTraitsForTheTypeAndTakesItsSizeFromTheTemplate) {
  const CentsColumn column(nullptr, "cents", true, false, false, "");
  EXPECT_EQ(column.fSqlType, "DECIMAL(10,2)");
  EXPECT_EQ(column.fSize, 7u);
  EXPECT_EQ(column.GetSpecAsString(), "DECIMAL(10,2)");
}

TEST(ColumnTest, EveryTypedColumnIsOfOneKind) {
  const shared_ptr<SQLColumnBase> integer(new IntegerColumn(nullptr, "a", true, false, false, ""));
  const shared_ptr<SQLColumnBase> cents(new CentsColumn(nullptr, "a", true, false, false, ""));
  EXPECT_EQ(integer->IAmAKindOf(), "SQLColumnClass");
  EXPECT_EQ(cents->IAmAKindOf(), "SQLColumnClass");
}

TEST(ColumnTest, BaseNamesItselfAsItsKind) {
  EXPECT_EQ(SQLColumnBase(nullptr, "a", "TEXT", 1, true, false, false, "").IAmAKindOf(), "SQLColumnBase");
}

TEST(ColumnSpecTest, NullableColumnWithoutFlagsIsItsTypeAlone) { EXPECT_EQ(SpecOf(true, false, false, ""), "INTEGER"); }

TEST(ColumnSpecTest, ColumnThatCannotBeNullSaysNotNull) {
  EXPECT_EQ(SpecOf(false, false, false, ""), "INTEGER NOT NULL");
}

TEST(ColumnSpecTest, UniqueColumnSaysUnique) { EXPECT_EQ(SpecOf(true, true, false, ""), "INTEGER UNIQUE"); }

TEST(ColumnSpecTest, PrimaryKeyColumnSaysPrimaryKey) {
  EXPECT_EQ(SpecOf(true, false, true, ""), "INTEGER PRIMARY KEY");
}

TEST(ColumnSpecTest, CollationFollowsCollate) {
  EXPECT_EQ(SpecOf(true, false, false, "NOCASE"), "INTEGER COLLATE NOCASE");
}

TEST(ColumnSpecTest, CollationOfOneBlankIsWrittenAsItStands) {
  EXPECT_EQ(SpecOf(true, false, false, " "), "INTEGER COLLATE  ");
}

TEST(ColumnSpecTest, ClausesComeInAFixedOrder) {
  EXPECT_EQ(SpecOf(false, true, true, "NOCASE"), "INTEGER NOT NULL UNIQUE PRIMARY KEY COLLATE NOCASE");
}

TEST(ColumnSpecTest, EmptyTypeLeavesTheClausesWithTheirLeadingBlank) {
  EXPECT_EQ(SQLColumnBase(nullptr, "a", "", 0, false, false, false, "").GetSpecAsString(), " NOT NULL");
}

TEST(ColumnSpecTest, FollowsTheMembersOfTheMoment) {
  IntegerColumn column(nullptr, "a", true, false, false, "");
  column.fSqlType = "TEXT";
  column.fIsUnique = true;
  EXPECT_EQ(column.GetSpecAsString(), "TEXT UNIQUE");
}

TEST(ColumnTest, BaseAssignLeavesTheDestinationUntouchedAndAsksNothing) {
  CallRecorder recorder;
  const SQLColumnBase column(nullptr, "a", "TEXT", 4, true, false, false, "");
  std::uint32_t destination = 0xABABABAB;
  column.AssignTo(&destination, nullptr, 0);
  EXPECT_EQ(destination, 0xABABABAB);
  EXPECT_THAT(recorder.Lines(), ElementsAre());
}

class AssignTest : public DatabaseTest {
 protected:
  // What the integer column makes of the value of an SQL expression.
  std::uint32_t Assigned(const std::string& expression) {
    const Row row(fDatabase.fConnection, "SELECT " + expression);
    std::uint32_t value = 0xABABABAB;
    fColumn.AssignTo(&value, row.Statement(), 0);
    return value;
  }

  IntegerColumn fColumn{UnreadableTable(), "a", true, false, false, ""};
};

TEST_F(AssignTest, ReadsTheGivenResultColumnOnceAsAnInt) {
  const Row row(fDatabase.fConnection, "SELECT 11, 22, 33");
  CallRecorder recorder;
  std::uint32_t value = 0;
  fColumn.AssignTo(&value, row.Statement(), 1);
  EXPECT_EQ(value, 22u);
  EXPECT_THAT(recorder.Lines(), ElementsAre("column_int 1"));
  EXPECT_EQ(recorder.Calls().front().handle, row.Statement());
}

TEST_F(AssignTest, NullIsStoredAsZero) { EXPECT_EQ(Assigned("NULL"), 0u); }

TEST_F(AssignTest, NegativeIntegerIsStoredAsItsTwosComplement) {
  EXPECT_EQ(Assigned("-1"), 0xFFFFFFFF);
  EXPECT_EQ(Assigned("-2147483648"), 0x80000000);
}

TEST_F(AssignTest, UpperHalfOfThirtyTwoBitsSurvives) { EXPECT_EQ(Assigned("4294967295"), 0xFFFFFFFF); }

TEST_F(AssignTest, IntegerBeyondThirtyTwoBitsKeepsItsLowBits) { EXPECT_EQ(Assigned("4294967296 * 7 + 5"), 5u); }

TEST_F(AssignTest, OtherTypesAreConvertedBySQLite) {
  EXPECT_EQ(Assigned("'12 apples'"), 12u);
  EXPECT_EQ(Assigned("3.9"), 3u);
}

TEST_F(AssignTest, WritesExactlyFourBytesAtAnyAlignment) {
  const Row row(fDatabase.fConnection, "SELECT 16909060");
  const std::uint32_t expected = 16909060;
  for (std::size_t offset = 0; offset < 8; ++offset) {
    unsigned char memory[16];
    unsigned char untouched[sizeof memory];
    std::memset(memory, 0xAB, sizeof memory);
    std::memset(untouched, 0xAB, sizeof untouched);
    std::memcpy(untouched + offset, &expected, sizeof expected);
    fColumn.AssignTo(memory + offset, row.Statement(), 0);
    EXPECT_EQ(std::memcmp(memory, untouched, sizeof memory), 0) << "at offset " << offset;
  }
}

TEST_F(AssignTest, IsReachedThroughTheBase) {
  const shared_ptr<SQLColumnBase> column = support::MakeColumn("a");
  const Row row(fDatabase.fConnection, "SELECT 7");
  std::uint32_t value = 0;
  column->AssignTo(&value, row.Statement(), 0);
  EXPECT_EQ(value, 7u);
}

TEST(AddColumnDefToQueryTest, StartsWithoutAComma) {
  std::ostringstream text;
  AddColumnDefToQuery add(text);
  EXPECT_TRUE(add.fFirst);
  EXPECT_EQ(&add.fStream, &text);
  EXPECT_EQ(text.str(), "");
  add(support::MakeColumn("count"));
  EXPECT_FALSE(add.fFirst);
  EXPECT_EQ(text.str(), " count INTEGER");
}

TEST(AddColumnDefToQueryTest, SeparatesDefinitionsByACommaWithoutABlankOfItsOwn) {
  const std::vector<shared_ptr<SQLColumnBase>> columns = {
      shared_ptr<SQLColumnBase>(new IntegerColumn(nullptr, "id", false, false, true, "")), support::MakeColumn("count"),
      support::MakeColumn("")};
  std::ostringstream text;
  std::for_each(columns.begin(), columns.end(), AddColumnDefToQuery(text));
  EXPECT_EQ(text.str(), " id INTEGER NOT NULL PRIMARY KEY, count INTEGER,  INTEGER");
}

TEST(AddColumnDefToQueryTest, WritesBehindWhatTheStreamHolds) {
  std::ostringstream text;
  text << "CREATE";
  AddColumnDefToQuery add(text);
  add(support::MakeColumn("a"));
  EXPECT_EQ(text.str(), "CREATE a INTEGER");
}

TEST(AddColumnDefToQueryTest, ClearedFlagWritesTheCommaAtOnce) {
  std::ostringstream text;
  AddColumnDefToQuery add(text);
  add.fFirst = false;
  add(support::MakeColumn("a"));
  EXPECT_EQ(text.str(), ", a INTEGER");
}

TEST(PushColumnTest, AppendsTheEntriesInMapOrderAndSharesThem) {
  std::map<std::string, shared_ptr<SQLColumnBase>> entries;
  // The key decides, not the column's own name.
  entries["b"] = support::MakeColumn("first");
  entries["a"] = support::MakeColumn("second");
  const auto before = support::MakeColumn("before");
  std::vector<shared_ptr<SQLColumnBase>> columns = {before};
  std::for_each(entries.begin(), entries.end(), PushColumn(columns));
  EXPECT_THAT(columns, ElementsAre(before, entries["a"], entries["b"]));
}

TEST(LessSerialTest, ComparesSerialsAsUnsignedNumbers) {
  EXPECT_TRUE(LessSerial(ColumnWithSerial(0), ColumnWithSerial(1)));
  EXPECT_FALSE(LessSerial(ColumnWithSerial(1), ColumnWithSerial(0)));
  EXPECT_TRUE(LessSerial(ColumnWithSerial(0x7FFF), ColumnWithSerial(0x8000)));
  EXPECT_FALSE(LessSerial(ColumnWithSerial(0xFFFF), ColumnWithSerial(0)));
}

TEST(LessSerialTest, EqualSerialsAreUnorderedWhateverTheNames) {
  const auto a = support::MakeColumn("a");
  const auto b = support::MakeColumn("b");
  EXPECT_FALSE(LessSerial(a, b));
  EXPECT_FALSE(LessSerial(b, a));
}

}  // namespace
