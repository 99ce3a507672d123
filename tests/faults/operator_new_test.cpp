// operator new fails at every single call in every public operation: what reaches SQLite is complete or absent, the
// lists stay in order, what failed was not done, and the same objects do the same work a moment later. In the scenario
// that does the same 600 times over, it fails at some 60 calls.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/core/null_deleter.hpp>
#include <boost/make_shared.hpp>

#include "faults/faulty_vfs.h"
#include "faults/kit_faults.h"
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
using Record = std::array<std::uint32_t, 9>;

constexpr int kMostPoints = 60;

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

// A statement that was sent earlier and is kept. It changes nothing: the row is there.
constexpr const char* kEarlierText = "REPLACE INTO items ( id, qty ) VALUES (1, 7 );";

class SumCursor : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;
  bool ProcessRow(sqlite3_stmt* statement) override {
    fSum += sqlite3_column_int64(statement, 0);
    return true;
  }

  std::int64_t fSum = 0;
};

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

// One of each object, and the text that its state is compared by. All are new: the table has not built a text yet, and
// so the stream that it keeps for its texts grows in the operation.
struct Objects {
  explicit Objects(const std::string& path)
      : fDatabase(new SQLDatabase(path, false)), fBystanders((fDatabase->Open(), new Bystanders(*fDatabase))) {
    sqldb::SQLValueBase::gLastNamedParameterSequence = 1000;
    fItems = fDatabase->NewTable("items");
    for (const char* name : {"id", "qty"}) fItems->AddColumn(support::MakeColumn(name));
    fItems->Initialize();
    fColumn = support::MakeColumn("a_column_with_a_rather_long_name");
    fSpelt = boost::make_shared<support::IntegerColumn>(nullptr, "spelt", false, true, true, "A_COLLATION_OF_SORTS");
    fInsert = fItems->NewInsert();
    fReplace = fItems->NewReplace();
    for (sqldb::SQLInsertClass* insert : {fInsert.get(), static_cast<sqldb::SQLInsertClass*>(fReplace.get())}) {
      insert->fColumns = {fItems->GetColumn("id"), fItems->GetColumn("qty")};
      insert->fValues = {support::MakeValue("1000"), boost::make_shared<support::BoundInteger>(7)};
    }
    fReplace->fQuery.str(kEarlierText);
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
    for (const auto& table : fDatabase->fTables) {
      std::string columns = table->fCreated ? " created," : " declared,";
      for (const auto& entry : table->fColumns) columns += " " + entry.first + (entry.second ? "" : " (null)");
      add("table", table->fName + columns + ", next rank " + std::to_string(table->fNextSerial));
    }
    add("selects", std::to_string(fDatabase->fSelects.size()));
    add("cursors", std::to_string(fDatabase->fCursors.size()));
    add("depth", std::to_string(fDatabase->fTransactionDepth));
    add("insert", fInsert->fQuery.str() + " of " + std::to_string(fInsert->fValues.size()));
    add("replace", fReplace->fQuery.str() + " of " + std::to_string(fReplace->fValues.size()));
    add("update", std::to_string(fUpdate->fValues.size()));
    add("delete", fDelete->fQuery);
    add("select", fSelect->fQuery + " of " + std::to_string(fSelect->fColumns.size()));
    add("offsets", std::to_string(fOffsets.fItems.size()));
    return state;
  }

  // What the headers tell the application to do once a statement that was sent has failed.
  void GiveUpWhatWasSent() {
    const CallRecorder::Pause pause;
    support::FinalizeLeftovers(fDatabase->fConnection);
    fInsert->fQuery.str("");
    // All but what was there before.
    fReplace->fQuery.str(kEarlierText);
  }

  // That of a select which failed or is to be set up again. No query runs on it.
  void DropCallback() {
    delete fSelect->fCallback;
    fSelect->fCallback = nullptr;
  }

  std::string SumOfSteps() {
    sqldb::OffsetSpec offsets;
    for (std::uint32_t i = 0; i < fSelect->fColumns.size(); ++i) offsets.PushOffset(i * 4, 0);
    const auto cursor = boost::make_shared<sqldb::SQLStepCursor<Record>>(fDatabase.get(), offsets);
    fSelect->PrepareSelect(cursor);
    Record record{};
    std::int64_t sum = 0;
    while (cursor->Step(record) == 0) sum = std::accumulate(record.begin(), record.end(), sum);
    DropCallback();
    return std::to_string(sum);
  }

  std::string SumOfRows() {
    const auto cursor = boost::make_shared<SumCursor>(fDatabase.get());
    fSelect->PerformSelect(cursor);
    DropCallback();
    return std::to_string(cursor->fSum);
  }

  // Ends the transaction. All of its levels, if a failed end has ended them in the database object.
  std::string EndTransaction(bool commit, bool endAll) {
    fDatabase->EndTransaction(commit, endAll || fDatabase->fTransactionDepth == 0);
    return std::string(sqlite3_get_autocommit(fDatabase->fConnection) != 0 ? "ended" : "open") +
           (fDatabase->fTransactionOK ? "" : ", with a veto");
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
  sqldb::OffsetSpec fOffsets;
  boost::shared_ptr<support::BoundInteger> fValue;
};

// One public operation on objects that are there already. What it returns must be the same after a failure.
struct Operation {
  std::string name;
  std::function<std::string(Objects&)> run;
  // What comes before it, and does not fail.
  std::function<void(Objects&)> prepare = [](Objects&) {};
};

std::function<std::string(Objects&)> Done(const std::function<void(Objects&)>& run) {
  return [run](Objects& o) {
    run(o);
    return std::string("done");
  };
}

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
      {"GetTableFromTableClass of one that is not registered",
       [](Objects& o) {
         sqldb::SQLTableClass table(*o.fDatabase, "unregistered");
         return support::MessageOf([&] { o.fDatabase->GetTableFromTableClass(&table); });
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
      {"the first column of a select",
       [](Objects& o) {
         o.fSelect << o.fColumn;
         return std::to_string(o.fSelect->fColumns.size());
       },
       [](Objects& o) { std::vector<boost::shared_ptr<sqldb::SQLColumnBase>>().swap(o.fSelect->fColumns); }},
      {"the ninth column of a select",
       [](Objects& o) {
         o.fSelect << o.fColumn;
         return std::to_string(o.fSelect->fColumns.size());
       },
       [](Objects& o) {
         while (o.fSelect->fColumns.size() < 8) o.fSelect << o.fColumn;
       }},
  };
}

std::vector<Operation> TextsAndStatements() {
  return {
      {"SetupSelect",
       [](Objects& o) {
         o.fSelect->SetupSelect(o.fCursor);
         o.DropCallback();
         return o.fSelect->fQuery;
       }},
      {"SetupInsert", Done([](Objects& o) { o.fInsert->SetupInsert(); })},
      {"SetupInsert behind another text", Done([](Objects& o) { o.fReplace->SetupInsert(); })},
      {"SetUpDelete",
       [](Objects& o) {
         o.fDelete->SetUpDelete();
         return o.fDelete->fQuery;
       }},
      {"PerformInsert", Done([](Objects& o) { o.fInsert->PerformInsert(false); })},
      {"PerformInsert that clears its values", Done([](Objects& o) { o.fInsert->PerformInsert(true); })},
      {"PerformReplace", Done([](Objects& o) { o.fReplace->PerformReplace(false); })},
      {"PerformUpdate", Done([](Objects& o) { o.fUpdate->PerformUpdate(false); })},
      {"PerformDelete", Done([](Objects& o) { o.fDelete->PerformDelete(); })},
      {"DeleteRecords", Done([](Objects& o) { o.fItems->DeleteRecords(o.fUpdate->fTerm); })},
      {"BeginTransaction", Done([](Objects& o) { o.fDatabase->BeginTransaction(); })},
      {"SetSynchronizationLevel", Done([](Objects& o) { o.fDatabase->SetSynchronizationLevel(false); })},
      {"CreateIndexForColumn", Done([](Objects& o) { o.fItems->CreateIndexForColumn("qty"); })},
      {"Drop", Done([](Objects& o) { o.fItems->Drop(); })},
      {"DropTable", Done([](Objects& o) { o.fDatabase->DropTable(o.fItems); })},
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

// Every form that a select can have, stepped through and performed.
std::vector<Operation> Selects() {
  const auto plain = [](Objects& o) {
    o.fSelect->fColumns = {o.fItems->GetColumn("qty")};
    o.fSelect->fTerm.reset();
    o.fSelect->fOrder.clear();
    o.fSelect->fLimit = 0;
    o.fSelect->fOffset = 0;
    o.fSelect->fDistinct = false;
  };
  const std::vector<std::pair<std::string, std::function<void(Objects&)>>> forms = {
      {"every row", [](Objects&) {}},
      {"distinct rows", [](Objects& o) { o.fSelect->fDistinct = true; }},
      {"a term", [](Objects& o) { o.fSelect->fTerm = support::MakeTerm(" qty > 2"); }},
      {"a long term",
       [](Objects& o) {
         std::string text = " qty > 2";
         for (int i = 0; i < 40; ++i) text += " AND id <> " + std::to_string(i);
         o.fSelect->fTerm = support::MakeTerm(text);
       }},
      {"an empty term", [](Objects& o) { o.fSelect->fTerm = sqldb::SQLEmptyTerm::EmptyTerm; }},
      {"an order",
       [](Objects& o) {
         o.fSelect->fOrder = {{o.fItems->GetColumn("qty"), 0}};
       }},
      {"an order of three",
       [](Objects& o) {
         o.fSelect->fOrder = {
             {o.fItems->GetColumn("qty"), 1}, {support::MakeColumn("id % 7"), 0}, {o.fItems->GetColumn("id"), 1}};
       }},
      {"a limit", [](Objects& o) { o.fSelect->fLimit = 11; }},
      {"an offset", [](Objects& o) { o.fSelect->fOffset = 290; }},
      {"a limit and an offset",
       [](Objects& o) {
         o.fSelect->fLimit = 11;
         o.fSelect->fOffset = 290;
       }},
      {"nine columns",
       [](Objects& o) {
         while (o.fSelect->fColumns.size() < 9) o.fSelect << o.fItems->GetColumn("id");
       }},
      {"a long expression",
       [](Objects& o) {
         o.fSelect->fColumns = {support::MakeColumn("CASE WHEN qty > 2 THEN id + qty ELSE id - 3 END")};
       }},
  };
  std::vector<Operation> operations = {
      {"PrepareSelect of all of it", [](Objects& o) { return o.SumOfSteps(); }},
      {"PerformSelect of all of it", [](Objects& o) { return o.SumOfRows(); }},
      {"PrepareSelect that is refused",
       [](Objects& o) {
         const std::string message = support::MessageOf([&] { o.SumOfSteps(); });
         o.DropCallback();
         return message;
       },
       [](Objects& o) { o.fSelect->fTerm = support::MakeTerm(" no_such_column = 1"); }},
      {"PerformSelect that is refused",
       [](Objects& o) {
         const std::string message = support::MessageOf([&] { o.SumOfRows(); });
         o.DropCallback();
         return message;
       },
       [](Objects& o) { o.fSelect->fTerm = support::MakeTerm(" no_such_column = 1"); }},
  };
  for (const auto& [name, form] : forms) {
    const auto prepare = [plain, form = form](Objects& o) {
      plain(o);
      form(o);
    };
    operations.push_back({"PrepareSelect of " + name, [](Objects& o) { return o.SumOfSteps(); }, prepare});
    operations.push_back({"PerformSelect of " + name, [](Objects& o) { return o.SumOfRows(); }, prepare});
  }
  return operations;
}

std::vector<Operation> Rows() {
  return {
      {"Step into four buffers",
       [](Objects& o) {
         sqldb::OffsetSpec offsets;
         for (std::uint16_t buffer = 0; buffer < 4; ++buffer) offsets.PushOffset(0, buffer);
         const auto cursor = boost::make_shared<Cursor>(o.fDatabase.get(), offsets);
         o.fSelect->PrepareSelect(cursor);
         std::uint32_t values[4] = {};
         cursor->Step(values[0], &values[1], &values[2], &values[3]);
         o.DropCallback();
         std::string answer;
         for (const std::uint32_t value : values) answer += std::to_string(value) + " ";
         return answer;
       },
       [](Objects& o) {
         o.fSelect << support::MakeColumn("id + 1") << support::MakeColumn("qty + 2");
         o.fSelect->fDistinct = false;
       }},
      {"StepIt with a list",
       [](Objects& o) {
         Cursor cursor(o.fDatabase.get(), o.fOffsets);
         cursor.fColumns = o.fSelect->fColumns;
         cursor.PrepareToQuery("SELECT id, qty FROM items WHERE id = 3");
         std::uint32_t values[2] = {};
         const int result = cursor.StepIt({reinterpret_cast<char*>(values)});
         return std::to_string(result) + " " + std::to_string(values[0]) + " " + std::to_string(values[1]);
       }},
      {"AddCollation and a select that uses it",
       [](Objects& o) {
         const auto reversed = [](void*, int, const void* left, int, const void* right) {
           return *static_cast<const char*>(right) - *static_cast<const char*>(left);
         };
         o.fDatabase->AddCollation("backwards_by_the_first_character", reversed);
         return o.SumOfSteps();
       },
       [](Objects& o) {
         o.fSelect->fOrder = {{support::MakeColumn("CAST(qty AS TEXT) COLLATE backwards_by_the_first_character"), 1}};
       }},
      {"a cursor's SendQuery",
       [](Objects& o) {
         SumCursor cursor(o.fDatabase.get());
         SelectCallback callback(boost::shared_ptr<sqldb::SQLCursorBase>(&cursor, boost::null_deleter()));
         cursor.SendQuery("SELECT qty FROM items;SELECT id FROM items", &callback, nullptr);
         return std::to_string(cursor.fSum);
       }},
      {"Step that fails",
       [](Objects& o) {
         Cursor cursor(o.fDatabase.get(), o.fOffsets);
         cursor.PrepareToQuery("SELECT abs(-9223372036854775807 - 1)");
         std::uint32_t record = 0;
         const std::string message = support::MessageOf([&] { cursor.Step(record); });
         // Given up, so that its end is quiet.
         cursor.fFinalized = true;
         return message;
       }},
  };
}

std::vector<Operation> Tables() {
  const auto add = [](Objects& o, const std::string& name, bool canBeNull, bool isKey, const std::string& collation) {
    const auto& table = o.fDatabase->fTables.back();
    table->AddColumn(boost::make_shared<support::IntegerColumn>(table.get(), name, canBeNull, isKey, isKey, collation));
  };
  const auto create = Done([](Objects& o) { o.fDatabase->fTables.back()->Create(); });
  const auto fresh = [](Objects& o) { o.fDatabase->NewTable("fresh"); };
  return {
      {"Create of one column", create,
       [=](Objects& o) {
         fresh(o);
         add(o, "id", true, false, "");
       }},
      {"Create of columns with every property", create,
       [=](Objects& o) {
         fresh(o);
         add(o, "id", false, true, "");
         add(o, "spelt", true, false, "NOCASE");
         add(o, "trimmed", false, false, "RTRIM");
         add(o, "plain", true, false, "");
       }},
      {"Create of twenty columns", create,
       [=](Objects& o) {
         fresh(o);
         for (int i = 0; i < 20; ++i) add(o, "column_number_" + std::to_string(i), i % 2 == 0, false, "");
       }},
      {"Create that is refused", [](Objects& o) { return support::MessageOf([&] { o.fItems->Create(); }); }},
      {"CreateIndexForColumn of a long name",
       Done([](Objects& o) { o.fItems->CreateIndexForColumn("a_column_with_a_rather_long_name"); }),
       [](Objects& o) {
         support::RowsOf(o.fDatabase->fConnection,
                         "ALTER TABLE items ADD COLUMN a_column_with_a_rather_long_name INTEGER");
       }},
      {"CreateIndexForColumn that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fItems->CreateIndexForColumn("no_such_column"); }); }},
      {"DropTable that is refused",
       [](Objects& o) {
         const auto bystander = o.fDatabase->GetTable("bystander");
         return support::MessageOf([&] { o.fDatabase->DropTable(bystander); });
       }},
      {"CountRecords of every row", [](Objects& o) { return std::to_string(o.fItems->CountRecords(nullptr)); }},
      {"CountRecords of a long term",
       [](Objects& o) { return std::to_string(o.fItems->CountRecords(o.fDelete->fTerm)); }},
      {"CountRecords that is refused",
       [](Objects& o) {
         return support::MessageOf([&] { o.fItems->CountRecords(support::MakeTerm(" no_such_column = 1")); });
       }},
      {"HasTerm of a long term", [](Objects& o) { return std::to_string(o.fItems->HasTerm(o.fDelete->fTerm)); }},
      {"HasTerm that is refused",
       [](Objects& o) {
         return support::MessageOf([&] { o.fItems->HasTerm(support::MakeTerm(" no_such_column = 1")); });
       }},
  };
}

std::vector<Operation> Changes() {
  const auto bind = [](Objects& o) {
    o.fUpdate->fColumns = {o.fItems->GetColumn("qty"), o.fItems->GetColumn("id")};
    o.fUpdate->fValues = {boost::make_shared<support::BoundInteger>(70), support::MakeValue("id + 1000")};
  };
  return {
      // Nothing offers an update's values their binding, so what is bound to a name is NULL.
      {"PerformUpdate with a bound value", Done([](Objects& o) { o.fUpdate->PerformUpdate(false); }), bind},
      {"PerformUpdate that clears its values", Done([](Objects& o) { o.fUpdate->PerformUpdate(true); }), bind},
      {"PerformUpdate of a long text", Done([](Objects& o) { o.fUpdate->PerformUpdate(false); }),
       [](Objects& o) {
         o.fUpdate->fValues = {support::MakeValue("CASE WHEN qty > 3 AND qty < 9 THEN qty * 2 ELSE qty + 17 END")};
         o.fUpdate->fTerm = support::MakeTerm(" id IN (SELECT max(id) FROM items GROUP BY qty) AND qty IS NOT NULL");
       }},
      {"PerformUpdate that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fUpdate->PerformUpdate(true); }); },
       [](Objects& o) { o.fUpdate->fValues = {support::MakeValue("no_such_column")}; }},
      {"PerformInsert of bound values", Done([](Objects& o) { o.fInsert->PerformInsert(true); }),
       [](Objects& o) {
         o.fInsert->fValues = {boost::make_shared<support::BoundInteger>(2000),
                               boost::make_shared<support::BoundInteger>(2)};
       }},
      {"PerformInsert that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fInsert->PerformInsert(true); }); },
       [](Objects& o) {
         o.fInsert->fValues = {support::MakeValue("no_such_column"), support::MakeValue("1")};
       }},
      {"NewDelete with a term, performed",
       Done([](Objects& o) { o.fItems->NewDelete(o.fSelect->fTerm)->PerformDelete(); })},
      {"NewDelete with a long term, performed",
       Done([](Objects& o) { o.fItems->NewDelete(o.fDelete->fTerm)->PerformDelete(); })},
      {"NewDelete without a term, performed", Done([](Objects& o) { o.fItems->NewDelete(nullptr)->PerformDelete(); })},
      {"NewInsert, filled and performed", Done([](Objects& o) {
         const auto insert = o.fItems->NewInsert();
         insert->fColumns = o.fInsert->fColumns;
         insert->fValues = o.fInsert->fValues;
         insert->PerformInsert(true);
       })},
      {"NewReplace, filled and performed", Done([](Objects& o) {
         const auto replace = o.fItems->NewReplace();
         replace->fColumns = o.fInsert->fColumns;
         replace->fValues = o.fInsert->fValues;
         replace->PerformReplace(true);
       })},
      {"NewUpdate, filled and performed", Done([](Objects& o) {
         const auto update = o.fItems->NewUpdate();
         update->fColumns = o.fUpdate->fColumns;
         update->fValues = o.fUpdate->fValues;
         update->fTerm = o.fUpdate->fTerm;
         update->PerformUpdate(true);
       })},
      {"PerformDelete that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fDelete->PerformDelete(); }); },
       [](Objects& o) { o.fDelete->fTerm = support::MakeTerm(" no_such_column = 1"); }},
  };
}

std::vector<Operation> Transactions() {
  const auto inside = [](int levels, bool veto) {
    return [levels, veto](Objects& o) {
      for (int i = 0; i < levels; ++i) o.fDatabase->BeginTransaction();
      o.fDatabase->SendQuery("DELETE FROM items WHERE id > 20", nullptr, nullptr);
      if (!veto) return;
      o.fDatabase->BeginTransaction();
      o.fDatabase->EndTransaction(false, false);
    };
  };
  const auto end = [](bool commit, bool endAll) {
    return [commit, endAll](Objects& o) { return o.EndTransaction(commit, endAll); };
  };
  return {
      {"EndTransaction, commit", end(true, false), inside(1, false)},
      {"EndTransaction, roll back", end(false, false), inside(1, false)},
      {"EndTransaction, commit all", end(true, true), inside(2, false)},
      {"EndTransaction, roll all back", end(false, true), inside(2, false)},
      {"EndTransaction, commit with a veto", end(true, false), inside(1, true)},
      {"EndTransaction, commit all with a veto", end(true, true), inside(2, true)},
      {"EndTransaction without one",
       [](Objects& o) { return support::MessageOf([&] { o.fDatabase->EndTransaction(true, true); }); }},
      {"BeginTransaction in SQLite's own",
       [](Objects& o) { return support::MessageOf([&] { o.fDatabase->BeginTransaction(); }); },
       [](Objects& o) { o.fDatabase->SendQuery("BEGIN", nullptr, nullptr); }},
      {"SetSynchronizationLevel that is refused",
       [](Objects& o) { return support::MessageOf([&] { o.fDatabase->SetSynchronizationLevel(true); }); },
       inside(1, false)},
  };
}

class OperatorNew : public ::testing::Test {
 protected:
  OperatorNew() : fSequence(sqldb::SQLValueBase::gLastNamedParameterSequence) {
    faults::MakeStock(fStock);
    fBefore = ContentsOf(fStock);
    // A log that swallows a failure of its memory is cut short, of which the library cannot know.
    std::clog.exceptions(std::ios::badbit);
  }
  ~OperatorNew() override {
    std::clog.exceptions(std::ios::goodbit);
    sqldb::SQLValueBase::gLastNamedParameterSequence = fSequence;
  }

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
    const std::vector<int> points = faults::Points(count, kMostPoints);
    Report(scenario.name, static_cast<int>(points.size()));
    for (const int n : points) {
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

  // What an operation left, of the objects and of the file.
  struct Result {
    std::string answer;
    std::string state;
    std::string contents;
  };

  void FailEverywhere(const Operation& operation) {
    int count = 0;
    Result before;
    Result after;
    std::vector<std::string> texts;
    {
      faults::CopyDatabase(fStock, fPath);
      Objects objects(fPath);
      operation.prepare(objects);
      before = {"", objects.State(), ContentsOf(fPath)};
      CallRecorder recorder;
      count = CountAllocations([&] { after.answer = operation.run(objects); });
      texts = recorder.Sql();
      after.state = objects.State();
      after.contents = ContentsOf(fPath);
    }
    for (int n = 1; n <= count; ++n) {
      SCOPED_TRACE(operation.name + ", allocation " + std::to_string(n));
      faults::CopyDatabase(fStock, fPath);
      Objects objects(fPath);
      operation.prepare(objects);
      CallRecorder recorder;
      bool happened = false;
      std::string answer;
      const Outcome outcome = RunFailing([&] { answer = operation.run(objects); }, n, happened);
      JudgeTexts(outcome, happened, recorder.Sql(), texts);
      const bool wasSent = !recorder.Sql().empty();
      const CallRecorder::Pause pause;
      if (!objects.fBystanders->TablesAreInOrder()) ++fDisorder;
      if (outcome == Outcome::kDone) {
        JudgeDone(Result{answer, objects.State(), ContentsOf(fPath)}, after);
      } else {
        objects.DropCallback();
        if (wasSent) objects.GiveUpWhatWasSent();
        JudgeFailed(Result{"", objects.State(), ContentsOf(fPath)}, before, after);
        JudgeRepeated(operation, objects, after);
      }
    }
    Report(operation.name, count);
  }

  // It survived the failure, and so has done all that it does.
  void JudgeDone(const Result& found, const Result& after) {
    EXPECT_EQ(found.answer, after.answer);
    EXPECT_EQ(found.state, after.state);
    EXPECT_EQ(found.contents, after.contents);
  }

  void JudgeFailed(const Result& found, const Result& before, const Result& after) {
    if (found.contents != before.contents) {
      ++fHalfDone;
      ADD_FAILURE() << "it failed, and did this all the same:\n" << found.contents;
    }
    if (found.state == before.state || found.state == after.state) return;
    ++fDisorder;
    ADD_FAILURE() << "neither absent nor complete:\n" << found.state << "instead of\n" << before.state;
  }

  void JudgeRepeated(const Operation& operation, Objects& objects, const Result& after) {
    std::string answer;
    const Outcome outcome = faults::OutcomeOf([&] { answer = operation.run(objects); });
    if (outcome == Outcome::kDone && answer == after.answer && objects.State() == after.state &&
        ContentsOf(fPath) == after.contents) {
      return;
    }
    ++fUnusable;
    ADD_FAILURE() << "the second time: " << answer << "\ninstead of: " << after.answer << "\nand\n"
                  << objects.State() << "instead of\n"
                  << after.state;
  }

  static void Report(const std::string& name, int points) {
    EXPECT_GT(points, 0) << name << " allocates nothing and need not be here";
    std::printf("%s: %d points\n", name.c_str(), points);
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

  // Never told to fail: it spares the waits for a real disk.
  faults::FaultyVfs fVfs;
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
  int fHalfDone = 0;
  int fUnusable = 0;
};

TEST_F(OperatorNew, EveryAllocationOfEveryOperationFailsWithoutHarm) {
  for (const Scenario& scenario : faults::Scenarios()) FailEverywhere(scenario);
  for (const auto& operations :
       {ConstructionsAndLists(), TextsAndStatements(), Selects(), Rows(), Tables(), Changes(), Transactions()}) {
    for (const Operation& operation : operations) FailEverywhere(operation);
  }
  std::printf(
      "operator new: %d points (%d without effect), %d texts incomplete, %d lists in disorder, %d half done, "
      "%d objects unusable, %d foreign exceptions\n",
      fPoints, fSurvived, fIncomplete, fDisorder, fHalfDone, fUnusable, fStrangers);
  EXPECT_GE(fPoints, 1000);
  EXPECT_EQ(fIncomplete, 0);
  EXPECT_EQ(fDisorder, 0);
  EXPECT_EQ(fHalfDone, 0);
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

class NewFaults : public faults::Faults {
 public:
  void Arm(int n, bool) override {
    fFailure.emplace(static_cast<std::uint64_t>(n));
    fAllocations.emplace();
  }
  void Disarm() override {
    fCount = static_cast<int>(fAllocations->Count());
    fHasFailed = fFailure->Happened();
    fFailure.reset();
  }
  void Pause(bool isPaused) override {
    if (isPaused) {
      fPause.emplace();
    } else {
      fPause.reset();
    }
  }
  int Count() const override { return fCount; }
  bool HasFailed() const override { return fHasFailed; }

 private:
  std::optional<support::AllocationFailure> fFailure;
  std::optional<support::AllocationCount> fAllocations;
  std::optional<support::AllocationPause> fPause;
  int fCount = 0;
  bool fHasFailed = false;
};

TEST(KitOperatorNew, EveryAllocationOfEveryScenarioFailsWithoutHarm) {
  NewFaults failures;
  // Once is what operator new can be made to fail.
  const faults::FaultyVfs quickDisk;
  faults::KitFaults kit(failures, 200, 0);
  kit.FailEverywhere();
  kit.ExpectHarmless("operator new", 1000, 50);
}

}  // namespace
