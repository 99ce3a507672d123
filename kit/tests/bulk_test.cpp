#include "sqldb/kit/bulk.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "kit_test.h"
#include "sqldb/kit/table.h"
#include "support/engine.h"

namespace {

// A word that is not to be stored if it is empty.
struct Marked {
  std::string text;
};

}  // namespace

template <>
struct sqldb::kit::Type<Marked> {
  static std::string Store(const Marked& value) {
    if (value.text.empty()) throw std::domain_error("no mark");
    return value.text;
  }
  static Marked Load(const std::string& stored) { return {stored}; }
};

namespace {

using namespace sqldb::kit;
using kit_test::Part;
using kit_test::StatementsOf;
using kit_test::ThrownBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

struct Label {
  std::int64_t id = 0;
  Marked mark;

  static constexpr auto Description() { return Describe("labels", Key("id", &Label::id), Field("mark", &Label::mark)); }
};

// The parts from `first` to `last`, made while they are read.
class Numbers {
 public:
  class iterator {
   public:
    explicit iterator(std::int64_t number) : fPart{number, "part", 1, {}} {}

    const Part& operator*() const { return fPart; }
    iterator& operator++() {
      ++fPart.id;
      return *this;
    }
    bool operator!=(const iterator& other) const { return fPart.id != other.fPart.id; }

   private:
    Part fPart;
  };

  Numbers(std::int64_t first, std::int64_t last) : fFirst(first), fLast(last) {}
  iterator begin() const { return iterator(fFirst); }
  iterator end() const { return iterator(fLast + 1); }

 private:
  std::int64_t fFirst;
  std::int64_t fLast;
};

class BulkTest : public testing::Test {
 protected:
  BulkTest() { fParts.Create(); }
  ~BulkTest() override { EXPECT_EQ(StatementsOf(fDatabase).running, 0); }

  std::vector<std::int64_t> Ids() { return fDatabase.All<std::int64_t>("SELECT id FROM parts ORDER BY id"); }
  bool IsTransactionOpen() const { return sqlite3_get_autocommit(fDatabase.Core().fConnection) == 0; }

  // What one report after the other is told, and whether a transaction is open then.
  struct Report {
    std::size_t written;
    bool isOpen;
    friend bool operator==(const Report& a, const Report& b) { return a.written == b.written && a.isOpen == b.isOpen; }
  };
  auto Noting(std::vector<Report>& reports, std::size_t stopAt = 0) {
    return [this, &reports, stopAt](std::size_t written) {
      reports.push_back({written, IsTransactionOpen()});
      return written == stopAt ? Progress::kStop : Progress::kGoOn;
    };
  }

  Database fDatabase{":memory:"};
  Table<Part> fParts{fDatabase};
};

TEST_F(BulkTest, RecordsOfAnyRangeAreInserted) {
  EXPECT_EQ(fParts.InsertMany(std::vector<Part>{{1, "nut", 0.5, "round"}, {2, "bolt", 0.25, {}}}), 2U);
  EXPECT_EQ(fParts.InsertMany(std::list<Part>{{3, "saw", 9, {}}}), 1U);
  struct Dear : Part {
    double discount = 0.5;
  };
  std::vector<Dear> dear(2);
  dear[0].id = 10;
  dear[1].id = 11;
  EXPECT_EQ(fParts.InsertMany(dear), 2U);
  EXPECT_EQ(fParts.InsertMany(Numbers(4, 6)), 3U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 5, 6, 10, 11));
  EXPECT_EQ(fParts.Get(1), (Part{1, "nut", 0.5, "round"}));
  EXPECT_EQ(fParts.Get(5), (Part{5, "part", 1, {}}));
}

TEST_F(BulkTest, ARangeIsWhatItsIteratorsSay) {
  // The records that it goes through are others than those that lie one behind the other.
  struct Hiding : std::vector<Part> {
    using std::vector<Part>::vector;
    const_reverse_iterator begin() const { return rbegin(); }
    const_reverse_iterator end() const { return rend() - 1; }
  };
  const Hiding hiding{{1, "hidden", 1, {}}, {2, "b", 1, {}}, {3, "a", 1, {}}};
  EXPECT_EQ(fParts.InsertMany(hiding), 2U);
  EXPECT_THAT(Ids(), ElementsAre(2, 3));
  struct WithoutSize {
    const Part* begin() const { return records.data(); }
    const Part* end() const { return records.data() + 1; }
    const Part* data() const { return nullptr; }
    std::vector<Part> records;
  };
  EXPECT_EQ(fParts.InsertMany(WithoutSize{{{4, "c", 1, {}}, {5, "d", 1, {}}}}), 1U);
  const Part array[] = {{6, "e", 1, {}}, {7, "f", 1, {}}};
  EXPECT_EQ(fParts.InsertMany(array), 2U);
  EXPECT_THAT(Ids(), ElementsAre(2, 3, 4, 6, 7));
}

TEST_F(BulkTest, AnUpsertOfManyReplacesWhatIsThere) {
  if (support::IsOlderThan(3024000)) GTEST_SKIP() << "Upsert needs SQLite 3.24";
  fParts.Insert({2, "nut", 0.5, "round"});
  EXPECT_EQ(fParts.UpsertMany(Numbers(1, 3)), 3U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3));
  EXPECT_EQ(fParts.Get(2), (Part{2, "part", 1, {}}));
}

TEST_F(BulkTest, ASecondKeyOfZeroIsToldAboutNumbering) {
  const Error error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(std::vector<Part>(2)); });
  EXPECT_EQ(error.Message(),
            "UNIQUE constraint failed: parts.id (the key is 0: SQLite numbers rows whose key is an empty"
            " std::optional)");
  EXPECT_EQ(error.Record(), 1U);
  EXPECT_THAT(Ids(), IsEmpty());
}

TEST_F(BulkTest, AfterARollbackOfSQLiteNothingIsSaidToStay) {
  fDatabase.Execute(
      "CREATE TEMP TRIGGER no BEFORE INSERT ON parts WHEN NEW.id = 6 BEGIN SELECT RAISE(ROLLBACK, 'no'); END");
  const auto written = [&] {
    return ThrownBy<ConstraintError>([&] { fParts.InsertMany(Numbers(1, 9), {2}); }).Written();
  };
  EXPECT_EQ(written(), 4U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4));
  fDatabase.Execute("DELETE FROM parts");
  {
    const sqldb::kit::Transaction transaction(fDatabase);
    EXPECT_EQ(written(), 0U);
  }
  fDatabase.Execute("BEGIN");
  EXPECT_EQ(written(), 0U);
  EXPECT_THAT(Ids(), IsEmpty());
}

TEST_F(BulkTest, NorIsItOfThoseBeforeABatchThatCannotBeginAfterOne) {
  fParts.Insert({50, "there", 1, {}});
  const sqldb::kit::Transaction transaction(fDatabase);
  const auto error = ThrownBy([&] {
    fParts.InsertMany(Numbers(1, 9), {2}, [&](std::size_t) {
      EXPECT_THROW(fDatabase.Execute("INSERT OR ROLLBACK INTO parts VALUES (50, 'again', 1, NULL)"), ConstraintError);
      return Progress::kGoOn;
    });
  });
  EXPECT_EQ(error.ExtendedCode(), SQLITE_ABORT_ROLLBACK);
  EXPECT_EQ(error.Record(), 2U);
  EXPECT_EQ(error.Written(), 0U);
}

TEST_F(BulkTest, BatchesBeforeOneThatCannotBeginStay) {
  const auto error = ThrownBy([&] {
    fParts.InsertMany(Numbers(1, 9), {2}, [&](std::size_t) {
      sqlite3_commit_hook(
          fDatabase.Core().fConnection, [](void*) { return 0; }, this);
      return Progress::kGoOn;
    });
  });
  EXPECT_EQ(error.Record(), 2U);
  EXPECT_EQ(error.Written(), 2U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2));
}

TEST_F(BulkTest, NothingStaysOfATransactionWhoseDatabaseIsClosed) {
  Database closed(":memory:");
  const Table<Part> parts(closed);
  parts.Create();
  const sqldb::kit::Transaction transaction(closed);
  const auto error = ThrownBy([&] {
    parts.InsertMany(Numbers(1, 9), {2}, [&](std::size_t) {
      closed.Close();
      return Progress::kGoOn;
    });
  });
  EXPECT_EQ(error.Record(), 2U);
  EXPECT_EQ(error.Written(), 0U);
}

TEST_F(BulkTest, ARangeThatClosesTheDatabaseEndsTheWork) {
  Database closed(":memory:");
  const Table<Part> parts(closed);
  parts.Create();
  struct Closing {
    const Numbers numbers{1, 2};
    Database& database;
    class iterator {
     public:
      iterator(Numbers::iterator number, Database& closedNext) : fNumber(number), fDatabase(&closedNext) {}
      const Part& operator*() const { return *fNumber; }
      iterator& operator++() {
        fDatabase->Close();
        ++fNumber;
        return *this;
      }
      bool operator!=(const iterator& other) const { return fNumber != other.fNumber; }

     private:
      Numbers::iterator fNumber;
      Database* fDatabase;
    };
    iterator begin() const { return iterator(numbers.begin(), database); }
    iterator end() const { return iterator(numbers.end(), database); }
  };
  const auto error = ThrownBy([&] { parts.InsertMany(Closing{{1, 2}, closed}); });
  EXPECT_EQ(error.Message(), "The database has been closed.");
  EXPECT_EQ(error.Record(), 1U);
  EXPECT_EQ(error.Written(), 0U);
}

TEST_F(BulkTest, RecordsOfAnArrayAreWrittenInBatchesToo) {
  std::vector<Part> records;
  for (std::int64_t id = 1; id <= 7; ++id) records.push_back({id, "part", 1, {}});
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(records, {3}, Noting(reports)), 7U);
  EXPECT_THAT(reports, ElementsAre(Report{3, false}, Report{6, false}, Report{7, false}));
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
  fParts.Delete(EveryRow());
  reports.clear();
  EXPECT_EQ(fParts.InsertMany(records, {2}, Noting(reports, 4)), 4U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4));
  fParts.Delete(EveryRow());
  fParts.Insert(records[5]);
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(records, {2}); });
  EXPECT_EQ(error.Record(), 5U);
  EXPECT_EQ(error.Written(), 4U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 6));
}

TEST_F(BulkTest, EachBatchIsATransactionAndIsReported) {
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(Numbers(1, 7), {3}, Noting(reports)), 7U);
  EXPECT_THAT(reports, ElementsAre(Report{3, false}, Report{6, false}, Report{7, false}));
  reports.clear();
  if (support::IsOlderThan(3024000)) return;
  EXPECT_EQ(fParts.UpsertMany(Numbers(1, 6), {3}, Noting(reports)), 6U);
  EXPECT_THAT(reports, ElementsAre(Report{3, false}, Report{6, false}));
}

TEST_F(BulkTest, ABatchOfNoneIsAllOfThem) {
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(Numbers(1, 2500), {0}, Noting(reports)), 2500U);
  EXPECT_THAT(reports, ElementsAre(Report{2500, false}));
}

TEST_F(BulkTest, WithoutOptionsAllAreWrittenOrNone) {
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(Numbers(1, 2500), BulkOptions(), Noting(reports)), 2500U);
  EXPECT_THAT(reports, ElementsAre(Report{2500, false}));
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(Numbers(-2500, 1)); });
  EXPECT_EQ(error.Record(), 2501U);
  EXPECT_EQ(error.Written(), 0U);
  EXPECT_THAT(Ids(), SizeIs(2500));
}

TEST_F(BulkTest, RecordsMayBeWrittenDownInTheCall) {
  EXPECT_EQ(fParts.InsertMany({{1, "nut", 0.5, "round"}, {2, "bolt", 0.25, {}}}), 2U);
  EXPECT_EQ(fParts.Get(1), (Part{1, "nut", 0.5, "round"}));
  if (support::IsOlderThan(3024000)) return;
  EXPECT_EQ(fParts.UpsertMany({{2, "screw", 0.25, {}}, {3, "saw", 9, {}}}), 2U);
  EXPECT_EQ(fParts.Get(2).name, "screw");
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3));
}

TEST_F(BulkTest, NoRecordsAreNoBatch) {
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(std::vector<Part>(), {3}, Noting(reports)), 0U);
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(BulkTest, AReportEndsTheWorkAndWhatIsWrittenStays) {
  std::vector<Report> reports;
  EXPECT_EQ(fParts.InsertMany(Numbers(1, 7), {2}, Noting(reports, 4)), 4U);
  EXPECT_THAT(reports, SizeIs(2));
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4));
  if (support::IsOlderThan(3024000)) return;
  EXPECT_EQ(fParts.UpsertMany(Numbers(4, 7), {4}, Noting(reports, 4)), 4U);
  EXPECT_THAT(Ids(), SizeIs(7));
}

TEST_F(BulkTest, WhatAReportThrowsEndsTheWorkBetweenTwoBatches) {
  const auto fail = [](std::size_t) -> Progress { throw std::domain_error("enough"); };
  EXPECT_THROW(fParts.InsertMany(Numbers(1, 7), {2}, fail), std::domain_error);
  EXPECT_THAT(Ids(), ElementsAre(1, 2));
  EXPECT_FALSE(IsTransactionOpen());
}

TEST_F(BulkTest, AFailureTellsTheRecordAndLeavesNoPartOfItsBatch) {
  fParts.Insert({6, "nut", 0.5, {}});
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(Numbers(1, 9), {2}); });
  EXPECT_EQ(error.Message(), "UNIQUE constraint failed: parts.id");
  EXPECT_EQ(error.Record(), 5U);
  EXPECT_EQ(error.Written(), 4U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 6));
  EXPECT_FALSE(IsTransactionOpen());
}

TEST_F(BulkTest, AFailureOfTheFirstRecordLeavesNone) {
  fDatabase.Execute("DROP TABLE parts");
  const Error error = ThrownBy([&] { fParts.InsertMany(Numbers(1, 9)); });
  EXPECT_EQ(error.Message(), "no such table: parts");
  EXPECT_EQ(error.Record(), 0U);
  EXPECT_EQ(error.Written(), 0U);
  EXPECT_FALSE(IsTransactionOpen());
}

// The end of a batch, too, may fail: here a reference to a row that is not there, which is looked at only then.
class BulkReferenceTest : public BulkTest {
 protected:
  BulkReferenceTest() {
    fDatabase.ExecuteScript(
        "PRAGMA foreign_keys = ON; DROP TABLE parts; CREATE TABLE kinds (name TEXT PRIMARY KEY);"
        " INSERT INTO kinds VALUES ('part');"
        " CREATE TABLE parts (id INTEGER PRIMARY KEY, name TEXT REFERENCES kinds DEFERRABLE INITIALLY DEFERRED,"
        " price, note)");
  }
  const std::vector<Part> fFive = {
      {1, "part", 1, {}}, {2, "part", 1, {}}, {3, "part", 1, {}}, {4, "other", 1, {}}, {5, "part", 1, {}}};
};

TEST_F(BulkReferenceTest, AFailureOfTheEndOfABatchUndoesTheBatch) {
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(fFive, {2}); });
  EXPECT_EQ(error.Message(), "FOREIGN KEY constraint failed");
  EXPECT_EQ(error.Record(), 4U);
  EXPECT_EQ(error.Written(), 2U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2));
  EXPECT_FALSE(IsTransactionOpen());
}

TEST_F(BulkReferenceTest, AFailureOfTheEndOfTheLastBatchTellsTheNumberOfAll) {
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(fFive, {3}); });
  EXPECT_EQ(error.Record(), 5U);
  EXPECT_EQ(error.Written(), 3U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3));
  EXPECT_FALSE(IsTransactionOpen());
}

TEST_F(BulkTest, WhatATypeThrowsPassesThroughAndUndoesItsBatch) {
  const Table<Label> labels(fDatabase);
  labels.Create();
  const std::vector<Label> four = {{1, {"a"}}, {2, {"b"}}, {3, {"c"}}, {4, {}}};
  EXPECT_THROW(labels.InsertMany(four, {2}), std::domain_error);
  EXPECT_THAT(fDatabase.All<std::string>("SELECT mark FROM labels"), ElementsAre("a", "b"));
  EXPECT_FALSE(IsTransactionOpen());
}

TEST_F(BulkTest, InsideATransactionABatchIsAPartOfIt) {
  fParts.Insert({6, "nut", 0.5, {}});
  std::vector<Report> reports;
  {
    Transaction transaction(fDatabase);
    fParts.InsertMany(Numbers(11, 13), {2}, Noting(reports));
    EXPECT_THAT(reports, ElementsAre(Report{2, true}, Report{3, true}));
    const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(Numbers(1, 9), {4}); });
    EXPECT_EQ(error.Record(), 5U);
    EXPECT_EQ(error.Written(), 4U);
    EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 6, 11, 12, 13));
    transaction.Commit();
  }
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 6, 11, 12, 13));
  {
    const Transaction undone(fDatabase);
    fParts.InsertMany(Numbers(21, 29), {2});
  }
  EXPECT_THAT(Ids(), SizeIs(8));
}

TEST_F(BulkTest, InsideATransactionOfTheProgramsOwnABatchIsNothing) {
  fParts.Insert({6, "nut", 0.5, {}});
  std::vector<Report> reports;
  fDatabase.Execute("BEGIN");
  EXPECT_EQ(fParts.InsertMany(Numbers(11, 13), {2}, Noting(reports)), 3U);
  EXPECT_THAT(reports, ElementsAre(Report{2, true}, Report{3, true}));
  const auto error = ThrownBy<ConstraintError>([&] { fParts.InsertMany(Numbers(1, 9), {4}); });
  EXPECT_EQ(error.Record(), 5U);
  EXPECT_EQ(error.Written(), 5U);
  EXPECT_THAT(Ids(), ElementsAre(1, 2, 3, 4, 5, 6, 11, 12, 13));
  EXPECT_TRUE(IsTransactionOpen());
  fDatabase.Execute("ROLLBACK");
  EXPECT_THAT(Ids(), ElementsAre(6));
}

}  // namespace
