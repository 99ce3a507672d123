// operator new fails at every single call in every public operation: what reaches SQLite is complete or absent, the
// lists stay in order, and the same objects do the same work a moment later.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "faults/scenarios.h"
#include "support/allocations.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"

namespace {

using faults::ContentsOf;
using faults::Outcome;
using faults::Scenario;
using sqldb::SQLDatabase;
using support::CallRecorder;

using Cursor = sqldb::SQLStepCursor<std::uint32_t>;

constexpr int kMostPoints = 750;

// Runs the action with its n-th allocation failing; 0 fails none.
Outcome RunFailing(const std::function<void()>& action, int n, bool& happened) {
  const support::AllocationFailure failure(static_cast<std::uint64_t>(n));
  const Outcome outcome = faults::OutcomeOf(action);
  happened = failure.Happened();
  return outcome;
}

int CountAllocations(const std::function<void()>& action) {
  const support::AllocationCount count;
  action();
  return static_cast<int>(count.Count());
}

// True when the texts sent are the first ones of those of the undisturbed run.
bool BeginsAlike(const std::vector<std::string>& sent, const std::vector<std::string>& undisturbed) {
  return sent.size() <= undisturbed.size() && std::equal(sent.begin(), sent.end(), undisturbed.begin());
}

// What stands in the lists before the work, and must stand there afterwards.
class Bystanders {
 public:
  explicit Bystanders(SQLDatabase& database)
      : fDatabase(database),
        fTable(database.NewTable("bystander")),
        fSelect(database.NewSelect(fTable, 0)),
        fCursor(&database) {}

  bool AreAlone() const {
    return fDatabase.fSelects == std::vector<sqldb::SQLSelectClass*>{fSelect.get()} &&
           fDatabase.fCursors == std::vector<sqldb::SQLCursorBase*>{const_cast<sqldb::SQLCursorBase*>(&fCursor)};
  }

  // Tables that were made stay with the database: each once, and after the bystander.
  bool TablesAreInOrder() const {
    std::set<const void*> seen;
    for (const auto& table : fDatabase.fTables) {
      if (!table || !seen.insert(table.get()).second || table.use_count() < 1) return false;
      if (fNames.count(table->fName) == 0) return false;
    }
    return !fDatabase.fTables.empty() && fDatabase.fTables.front() == fTable;
  }

 private:
  const std::set<std::string> fNames = {"bystander", "items", "log", "fresh"};
  SQLDatabase& fDatabase;
  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
  sqldb::SQLCursorBase fCursor;
};

// One of each object, and the text that its state is compared by.
struct Objects {
  explicit Objects(const std::string& path)
      : fDatabase(new SQLDatabase(path, false)), fBystanders((fDatabase->Open(), new Bystanders(*fDatabase))) {
    sqldb::SQLValueBase::gLastNamedParameterSequence = 1000;
    fItems = fDatabase->NewTable("items");
    for (const char* name : {"id", "qty"}) fItems->AddColumn(support::MakeColumn(name));
    fColumn = support::MakeColumn("a_column_with_a_rather_long_name");
    fSpelt = boost::make_shared<support::IntegerColumn>(nullptr, "spelt", false, true, true, "A_COLLATION_OF_SORTS");
    fInsert = fItems->NewInsert();
    fReplace = fItems->NewReplace();
    for (sqldb::SQLInsertClass* insert : {fInsert.get(), static_cast<sqldb::SQLInsertClass*>(fReplace.get())}) {
      insert->fColumns = {fItems->GetColumn("id"), fItems->GetColumn("qty")};
      insert->fValues = {support::MakeValue("1000"), boost::make_shared<support::BoundInteger>(7)};
    }
    // What a failed send leaves.
    fReplace->fQuery.str("REPLACE INTO items ( id ) VALUES (1 );");
    fUpdate = fItems->NewUpdate();
    fUpdate->fColumns = {fItems->GetColumn("qty")};
    fUpdate->fValues = {support::MakeValue("qty + 1")};
    fUpdate->fTerm = support::MakeTerm(" id = 3");
    fDelete = fItems->NewDelete(support::MakeTerm(" id = 4 AND qty > 0 AND qty < 100000"));
    fSelect = fDatabase->NewSelect(fItems, 7);
    fSelect << fItems->GetColumn("id") << fItems->GetColumn("qty");
    fSelect->fTerm = support::MakeTerm(" qty > 2");
    fSelect->fOrder = {{fItems->GetColumn("qty"), 0}, {fItems->GetColumn("id"), 1}};
    fSelect->fOffset = 2;
    fSelect->fDistinct = true;
    fOffsets.PushOffset(0, 0);
    fOffsets.PushOffset(4, 0);
    fCursor = boost::make_shared<Cursor>(fDatabase.get(), fOffsets);
    fValue = boost::make_shared<support::BoundInteger>(7);
    fValue->fParameterNumber = -2000000000;
  }

  ~Objects() {
    const CallRecorder::Pause pause;
    fCursor.reset();
    fOwnCursor.reset();
    delete fSelect->fCallback;
    fSelect->fCallback = nullptr;
    fSelect.reset();
    fBystanders.reset();
    support::FinalizeLeftovers(fDatabase->fConnection);
    EXPECT_EQ(sqlite3_close(fDatabase->fConnection), SQLITE_OK);
    fDatabase->fIsOpen = false;
  }
  Objects(const Objects&) = delete;
  Objects& operator=(const Objects&) = delete;

  std::string State() const {
    std::string state;
    const auto add = [&](const char* name, const std::string& value) {
      state += std::string(name) + " " + value + "\n";
    };
    for (const auto& table : fDatabase->fTables) add("table", table ? table->fName : "(null)");
    add("selects", std::to_string(fDatabase->fSelects.size()));
    add("cursors", std::to_string(fDatabase->fCursors.size()));
    add("depth", std::to_string(fDatabase->fTransactionDepth));
    for (const auto& entry : fItems->fColumns) add(entry.first.c_str(), entry.second ? "filed" : "(null)");
    add("next rank", std::to_string(fItems->fNextSerial));
    add("created", std::to_string(fItems->fCreated));
    add("insert", fInsert->fQuery.str() + " of " + std::to_string(fInsert->fValues.size()));
    add("replace", fReplace->fQuery.str() + " of " + std::to_string(fReplace->fValues.size()));
    add("update", std::to_string(fUpdate->fValues.size()));
    add("delete", fDelete->fQuery);
    add("select", fSelect->fQuery + " of " + std::to_string(fSelect->fColumns.size()));
    add("offsets", std::to_string(fOffsets.fItems.size()));
    add("rows", std::to_string(fCursor->fRowCount));
    return state;
  }

  std::unique_ptr<SQLDatabase> fDatabase;
  std::unique_ptr<Bystanders> fBystanders;
  boost::shared_ptr<sqldb::SQLTableClass> fItems;
  boost::shared_ptr<sqldb::SQLColumnBase> fColumn;
  boost::shared_ptr<sqldb::SQLColumnBase> fSpelt;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  boost::shared_ptr<sqldb::SQLReplaceClass> fReplace;
  boost::shared_ptr<sqldb::SQLUpdateClass> fUpdate;
  boost::shared_ptr<sqldb::SQLDeleteClass> fDelete;
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
  boost::shared_ptr<Cursor> fCursor;
  std::unique_ptr<Cursor> fOwnCursor;
  sqldb::OffsetSpec fOffsets;
  boost::shared_ptr<support::BoundInteger> fValue;
  std::uint64_t fRecord = 0;
};

// One public operation on objects that are there already. What it returns must be the same after a failure.
struct Operation {
  std::string name;
  std::function<std::string(Objects&)> run;
};

std::vector<Operation> ConstructionsAndLists() {
  const auto made = [](const void* object) { return std::string(object != nullptr ? "made" : "null"); };
  return {
      {"SQLDatabase", [](Objects&) { return SQLDatabase("a path that is longer than a short string", true).fPath; }},
      {"NewTable", [](Objects& o) { return o.fDatabase->NewTable("log")->fName; }},
      {"SQLTableClass",
       [](Objects& o) {
         return sqldb::SQLTableClass(*o.fDatabase, "a name that is longer than a short string").fName;
       }},
      {"GetTable of a long name",
       [](Objects& o) { return support::MessageOf([&] { o.fDatabase->GetTable("a name that no table has"); }); }},
      {"AddColumn",
       [](Objects& o) {
         o.fItems->AddColumn(o.fColumn);
         return std::to_string(o.fColumn->fSerial);
       }},
      {"GetColumn of a long name",
       [](Objects& o) { return support::MessageOf([&] { o.fItems->GetColumn("a name that no column has"); }); }},
      {"HasColumn", [](Objects& o) { return std::to_string(o.fItems->HasColumn("a name that no column has")); }},
      {"NewSelect", [made](Objects& o) { return made(o.fDatabase->NewSelect(o.fItems, 0).get()); }},
      {"NewInsert", [made](Objects& o) { return made(o.fItems->NewInsert().get()); }},
      {"NewReplace", [made](Objects& o) { return made(o.fItems->NewReplace().get()); }},
      {"NewUpdate", [made](Objects& o) { return made(o.fItems->NewUpdate().get()); }},
      {"NewDelete", [made](Objects& o) { return made(o.fItems->NewDelete(nullptr).get()); }},
      {"SQLCursorBase",
       [](Objects& o) {
         const sqldb::SQLCursorBase cursor(o.fDatabase.get());
         return std::to_string(cursor.fColumns.size());
       }},
      {"SQLStepCursor",
       [](Objects& o) {
         const Cursor cursor(o.fDatabase.get(), o.fOffsets);
         return std::to_string(cursor.fOffsets.fItems.size());
       }},
      {"SQLStepCursor under a shared pointer",
       [](Objects& o) {
         const boost::shared_ptr<sqldb::SQLCursorBase> cursor(new Cursor(o.fDatabase.get(), o.fOffsets));
         return std::to_string(cursor->fColumns.size());
       }},
      {"PushOffset",
       [](Objects& o) {
         o.fOffsets.PushOffset(8, 0);
         return std::to_string(o.fOffsets.fItems.size());
       }},
      {"a copy of an OffsetSpec",
       [](Objects& o) { return std::to_string(sqldb::OffsetSpec(o.fOffsets).fItems.size()); }},
      {"assignment of an OffsetSpec",
       [](Objects& o) {
         sqldb::OffsetSpec copy;
         copy = o.fOffsets;
         return std::to_string(copy.fItems.size());
       }},
      {"a column",
       [](Objects&) {
         return support::IntegerColumn(nullptr, "a name that is longer than short", true, true, true,
                                       "a collation that is longer than short")
             .GetSpecAsString();
       }},
      {"GetSpecAsString", [](Objects& o) { return o.fSpelt->GetSpecAsString(); }},
      {"GetParameterName", [](Objects& o) { return o.fValue->GetParameterName() + o.fValue->GetParameterName(); }},
      {"TableNameIs", [](Objects&) { return TableNameIs("a name that is longer than short").fName; }},
      {"ThrowIf", [](Objects&) { return support::MessageOf([] { ThrowIf(true); }); }},
      {"ThrowError", [](Objects&) { return support::MessageOf([] { ThrowError(-123456789); }); }},
      {"a column added to a select",
       [](Objects& o) {
         o.fSelect << o.fColumn;
         return std::to_string(o.fSelect->fColumns.size());
       }},
  };
}

std::vector<Operation> TextsAndStatements() {
  const auto done = [](const std::function<void(Objects&)>& run) {
    return [run](Objects& o) {
      run(o);
      return std::string("done");
    };
  };
  return {
      {"SetupSelect",
       [](Objects& o) {
         // That of a failed call before.
         delete o.fSelect->fCallback;
         o.fSelect->fCallback = nullptr;
         o.fSelect->SetupSelect(o.fCursor);
         delete o.fSelect->fCallback;
         o.fSelect->fCallback = nullptr;
         return o.fSelect->fQuery;
       }},
      {"SetupInsert",
       [](Objects& o) {
         o.fInsert->SetupInsert();
         return o.fInsert->fQuery.str();
       }},
      {"SetupInsert behind another text",
       [](Objects& o) {
         o.fReplace->SetupInsert();
         return o.fReplace->fQuery.str();
       }},
      {"SetUpDelete",
       [](Objects& o) {
         o.fDelete->SetUpDelete();
         return o.fDelete->fQuery;
       }},
      {"PerformInsert", done([](Objects& o) { o.fInsert->PerformInsert(false); })},
      {"PerformReplace", done([](Objects& o) { o.fReplace->PerformReplace(false); })},
      {"PerformUpdate", done([](Objects& o) { o.fUpdate->PerformUpdate(false); })},
      {"PerformDelete", done([](Objects& o) { o.fDelete->PerformDelete(); })},
      {"DeleteRecords", done([](Objects& o) { o.fItems->DeleteRecords(o.fUpdate->fTerm); })},
      {"BeginTransaction", done([](Objects& o) { o.fDatabase->BeginTransaction(); })},
      {"SetSynchronizationLevel", done([](Objects& o) { o.fDatabase->SetSynchronizationLevel(false); })},
      {"CreateIndexForColumn", done([](Objects& o) { o.fItems->CreateIndexForColumn("qty"); })},
      {"Drop", done([](Objects& o) { o.fItems->Drop(); })},
      {"DropTable", done([](Objects& o) { o.fDatabase->DropTable(o.fItems); })},
      {"CountRecords", [](Objects& o) { return std::to_string(o.fItems->CountRecords(o.fSelect->fTerm)); }},
      {"HasTerm", [](Objects& o) { return std::to_string(o.fItems->HasTerm(o.fSelect->fTerm)); }},
      {"SendQuery that is refused",
       [](Objects& o) {
         return support::MessageOf(
             [&] { o.fDatabase->SendQuery("SELECT no_such_column FROM items", nullptr, nullptr); });
       }},
      {"PrepareToQuery that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fCursor->PrepareToQuery("SELECT no_such_column"); }); }},
      {"ExplainQuery",
       [](Objects& o) {
         o.fDatabase->fExplainLevel = 1;
         support::ClogCapture log;
         o.fDatabase->ExplainQuery("SELECT id FROM items WHERE qty = 3;SELECT id FROM log");
         return log.Text();
       }},
      {"ExplainQuery that is refused",
       [](Objects& o) {
         o.fDatabase->fExplainLevel = 1;
         o.fDatabase->fLogErrors = 1;
         support::ClogCapture log;
         return support::MessageOf([&] { o.fDatabase->ExplainQuery("SELECT no_such_column FROM items"); }) + log.Text();
       }},
      {"Step of a row",
       [](Objects& o) {
         auto cursor = std::make_unique<Cursor>(o.fDatabase.get(), o.fOffsets);
         cursor->fColumns = o.fSelect->fColumns;
         cursor->PrepareToQuery("SELECT id, qty FROM items WHERE id = 3");
         std::uint64_t record = 0;
         std::uint32_t* const first = reinterpret_cast<std::uint32_t*>(&record);
         const int result = cursor->Step(*first);
         return std::to_string(result) + " " + std::to_string(*first);
       }},
      {"the end of a cursor that failed",
       [](Objects& o) {
         return support::MessageOf([&] {
           Cursor cursor(o.fDatabase.get(), o.fOffsets);
           cursor.PrepareToQuery("SELECT abs(-9223372036854775807 - 1)");
           std::uint32_t record = 0;
           support::MessageOf([&] { cursor.Step(record); });
         });
       }},
  };
}

class OperatorNew : public ::testing::Test {
 protected:
  OperatorNew() : fSequence(sqldb::SQLValueBase::gLastNamedParameterSequence) {
    faults::MakeStock(fStock);
    fBefore = ContentsOf(fStock);
  }
  ~OperatorNew() override { sqldb::SQLValueBase::gLastNamedParameterSequence = fSequence; }

  // The scenario on a fresh copy of the stock; returns what it sent.
  std::vector<std::string> RunUndisturbed(const Scenario& scenario, int& count, std::string& after) {
    faults::CopyDatabase(fStock, fPath);
    std::vector<std::string> sent;
    {
      CallRecorder recorder;
      SQLDatabase database(fPath, false);
      database.Open();
      sqldb::SQLValueBase::gLastNamedParameterSequence = 1000;
      count = CountAllocations([&] { scenario.run(database); });
      sent = recorder.Sql();
    }
    after = ContentsOf(fPath);
    return sent;
  }

  void FailEverywhere(const Scenario& scenario) {
    int count = 0;
    std::string after;
    const std::vector<std::string> texts = RunUndisturbed(scenario, count, after);
    for (const int n : faults::Points(count, kMostPoints)) {
      SCOPED_TRACE(scenario.name + ", allocation " + std::to_string(n));
      faults::CopyDatabase(fStock, fPath);
      CallRecorder recorder;
      SQLDatabase database(fPath, false);
      database.Open();
      {
        const Bystanders bystanders(database);
        sqldb::SQLValueBase::gLastNamedParameterSequence = 1000;
        bool happened = false;
        const Outcome outcome = RunFailing([&] { scenario.run(database); }, n, happened);
        Judge(outcome, happened, recorder.Sql(), texts, bystanders);
        recorder.Clear();
        PutInOrder(database);
        const CallRecorder::Pause pause;
        const std::string contents = ContentsOf(fPath);
        EXPECT_TRUE(contents == fBefore || contents == after) << "a part of it was done";
        if (contents == fBefore) {
          const Outcome again = faults::OutcomeOf([&] { scenario.run(database); });
          if (again != Outcome::kDone) ++fUnusable;
          if (ContentsOf(fPath) != after) ++fUnusable;
          if (!bystanders.AreAlone()) ++fDisorder;
        }
      }
      const CallRecorder::Pause pause;
      support::FinalizeLeftovers(database.fConnection);
      EXPECT_EQ(sqlite3_close(database.fConnection), SQLITE_OK);
      database.fIsOpen = false;
    }
  }

  // What the application would do after a failure within a transaction.
  static void PutInOrder(SQLDatabase& database) {
    const CallRecorder::Pause pause;
    support::FinalizeLeftovers(database.fConnection);
    if (sqlite3_get_autocommit(database.fConnection) == 0) database.EndTransaction(false, true);
    database.fTransactionDepth = 0;
    database.fTransactionOK = true;
  }

  void FailEverywhere(const Operation& operation) {
    int count = 0;
    std::string answer;
    std::string before;
    std::string after;
    std::vector<std::string> texts;
    {
      faults::CopyDatabase(fStock, fPath);
      Objects objects(fPath);
      before = objects.State();
      CallRecorder recorder;
      count = CountAllocations([&] { answer = operation.run(objects); });
      texts = recorder.Sql();
      after = objects.State();
    }
    EXPECT_GT(count, 0) << operation.name << " allocates nothing and need not be here";
    for (int n = 1; n <= count; ++n) {
      SCOPED_TRACE(operation.name + ", allocation " + std::to_string(n));
      faults::CopyDatabase(fStock, fPath);
      Objects objects(fPath);
      CallRecorder recorder;
      bool happened = false;
      std::string found;
      const Outcome outcome = RunFailing([&] { found = operation.run(objects); }, n, happened);
      JudgeTexts(outcome, happened, recorder.Sql(), texts);
      const CallRecorder::Pause pause;
      // What was sent and done before the failure stays done, texts of an insert included.
      const std::string state = objects.State();
      const bool isAbsent = state == before;
      if (!isAbsent && state != after && recorder.Sql().empty()) {
        ++fDisorder;
        ADD_FAILURE() << "neither absent nor complete:\n" << state << "instead of\n" << before;
      }
      if (!objects.fBystanders->TablesAreInOrder()) ++fDisorder;
      if (outcome != Outcome::kDone && isAbsent && recorder.Sql().empty()) {
        std::string again;
        const Outcome second = faults::OutcomeOf([&] { again = operation.run(objects); });
        if (second != Outcome::kDone || again != answer || objects.State() != after) {
          ++fUnusable;
          ADD_FAILURE() << "the second time: " << again << "\ninstead of: " << answer;
        }
      }
    }
  }

  void Judge(Outcome outcome, bool happened, const std::vector<std::string>& sent,
             const std::vector<std::string>& texts, const Bystanders& bystanders) {
    JudgeTexts(outcome, happened, sent, texts);
    if (bystanders.AreAlone() && bystanders.TablesAreInOrder()) return;
    ++fDisorder;
    ADD_FAILURE() << "the lists are not in order";
  }

  void JudgeTexts(Outcome outcome, bool happened, const std::vector<std::string>& sent,
                  const std::vector<std::string>& texts) {
    EXPECT_TRUE(happened);
    ++fPoints;
    if (outcome == Outcome::kOther) ++fStrangers;
    if (outcome == Outcome::kDone) ++fSurvived;
    if (!BeginsAlike(sent, texts) || (outcome == Outcome::kDone && sent != texts)) {
      ++fIncomplete;
      ADD_FAILURE() << "sent " << (sent.empty() ? "nothing" : sent.back());
    }
  }

  support::TemporaryFolder fFolder;
  const std::string fStock = fFolder.Path("stock.db");
  const std::string fPath = fFolder.Path("work.db");
  std::string fBefore;
  const std::int32_t fSequence;
  int fPoints = 0;
  int fSurvived = 0;
  int fStrangers = 0;
  int fIncomplete = 0;
  int fDisorder = 0;
  int fUnusable = 0;
};

TEST_F(OperatorNew, EveryAllocationOfEveryOperationFailsWithoutHarm) {
  for (const Scenario& scenario : faults::Scenarios()) FailEverywhere(scenario);
  for (const Operation& operation : ConstructionsAndLists()) FailEverywhere(operation);
  for (const Operation& operation : TextsAndStatements()) FailEverywhere(operation);
  std::printf(
      "operator new: %d points (%d without effect), %d texts incomplete, %d lists in disorder, %d objects unusable, "
      "%d foreign exceptions\n",
      fPoints, fSurvived, fIncomplete, fDisorder, fUnusable, fStrangers);
  EXPECT_GE(fPoints, 1000);
  EXPECT_EQ(fIncomplete, 0);
  EXPECT_EQ(fDisorder, 0);
  EXPECT_EQ(fUnusable, 0);
  EXPECT_EQ(fStrangers, 0);
}

// Destroying allocates nothing, and so cannot fail where nobody could be told.
TEST_F(OperatorNew, NoDestructorAllocates) {
  faults::CopyDatabase(fStock, fPath);
  auto database = std::make_unique<SQLDatabase>(fPath, false);
  database->Open();
  auto table = database->NewTable("items");
  table->AddColumn(support::MakeColumn("id"));
  auto insert = table->NewInsert();
  auto replace = table->NewReplace();
  auto update = table->NewUpdate();
  auto removal = table->NewDelete(support::MakeTerm(" id = 3"));
  auto select = database->NewSelect(table, 0);
  select << table->GetColumn("id");
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  auto cursor = boost::make_shared<Cursor>(database.get(), offsets);
  select->PrepareSelect(cursor);
  table->fInserts = {table->NewInsert()};
  table->fUpdates = {table->NewUpdate()};
  EXPECT_EQ(CountAllocations([&] {
              cursor.reset();
              select.reset();
              insert.reset();
              replace.reset();
              update.reset();
              removal.reset();
              table.reset();
              database.reset();
            }),
            0);
}

}  // namespace
