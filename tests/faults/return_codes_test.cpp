// Every call of SQLite that the library makes returns every code that SQLite has for a failure, and each time the
// exact text, the statements, the members and the waits are looked at.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "sqldb/sqldb.h"
#include "support/call_recorder.h"
#include "support/fixtures.h"

namespace {

using sqldb::SQLDatabase;
using support::Call;
using support::CallRecorder;

constexpr int kCodes = 26;
constexpr int kCallSites = 131;
constexpr int kRetries = 600;
constexpr int kLongestWait = 1 + kRetries;  // steps, and sleeps
constexpr std::uint64_t kSleep = 100000;
constexpr std::uint32_t kUntouched = 4711;

using Cursor = sqldb::SQLStepCursor<std::uint32_t>;
using Members = std::map<std::string, std::string>;

class EveryRow : public sqldb::QueryCallback {
 public:
  bool ProcessRow(sqlite3_stmt*) override { return true; }
};

class EveryRowCursor : public sqldb::SQLCursorBase {
 public:
  using SQLCursorBase::SQLCursorBase;
  bool ProcessRow(sqlite3_stmt*) override { return true; }
};

template <typename Pointer>
std::string Address(const Pointer& pointer) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(&*pointer));
}

template <typename List>
std::string Addresses(const List& list) {
  std::string text;
  for (const auto& entry : list) text += Address(entry) + " ";
  return text;
}

sqldb::OffsetSpec OneOffset() {
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  return offsets;
}

// A database in memory, one table with three rows, and one of each object that works on it.
struct World {
  World() : fDatabase(new SQLDatabase(":memory:", false)) {
    fDatabase->Open();
    fTable = fDatabase->NewTable("t");
    fTable->AddColumn(support::MakeColumn("a"));
    fTable->Create();
    support::RowsOf(fDatabase->fConnection, "INSERT INTO t VALUES (1), (2), (3)");
    fOther = fDatabase->NewTable("u");
    fOther->AddColumn(support::MakeColumn("b"));
    fInsert = fTable->NewInsert();
    fReplace = fTable->NewReplace();
    for (sqldb::SQLInsertClass* insert : {fInsert.get(), static_cast<sqldb::SQLInsertClass*>(fReplace.get())}) {
      insert->fColumns = {fTable->GetColumn("a")};
      insert->fValues = {support::MakeValue("7")};
    }
    fUpdate = fTable->NewUpdate();
    fUpdate->fColumns = {fTable->GetColumn("a")};
    fUpdate->fValues = {support::MakeValue("8")};
    fUpdate->fTerm = support::MakeTerm(" a = 3");
    fDelete = fTable->NewDelete(support::MakeTerm(" a = 2"));
    fSelect = fDatabase->NewSelect(fTable, 0);
    fSelect << fTable->GetColumn("a");
    fCursor = new Cursor(fDatabase.get(), OneOffset());
  }

  // What failed on purpose is finalized; then SQLite must accept the close.
  ~World() {
    if (fShared) fShared.reset();
    DeleteCursor();
    if (fDatabase) {
      Forget(fDatabase->fConnection);
      fDatabase->fIsOpen = false;
    }
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  static void Forget(sqlite3* connection) {
    support::FinalizeLeftovers(connection);
    EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  }

  void DeleteCursor() {
    delete fCursor;
    fCursor = nullptr;
  }

  void PrepareCursor() {
    fCursor->fColumns = {fTable->GetColumn("a")};
    fCursor->PrepareToQuery("SELECT a FROM t");
  }

  int CountStatements() const {
    int count = 0;
    sqlite3_stmt* statement = nullptr;
    while ((statement = sqlite3_next_stmt(fConnection, statement)) != nullptr) ++count;
    return count;
  }

  Members Look() const {
    Members members;
    if (!fDatabase) return members;
    members["connection"] = fDatabase->fConnection != nullptr ? "set" : "null";
    members["path"] = fDatabase->fPath;
    members["tables"] = Addresses(fDatabase->fTables);
    members["selects"] = Addresses(fDatabase->fSelects);
    members["cursors"] = Addresses(fDatabase->fCursors);
    members["depth"] = std::to_string(fDatabase->fTransactionDepth);
    members["transaction ok"] = std::to_string(fDatabase->fTransactionOK);
    members["open"] = std::to_string(fDatabase->fIsOpen);
    members["destroying"] = std::to_string(fDatabase->fDestroying);
    members["read only"] = std::to_string(fDatabase->fReadOnly);
    members["log errors"] = std::to_string(fDatabase->fLogErrors);
    members["explain level"] = std::to_string(fDatabase->fExplainLevel);
    members["t created"] = std::to_string(fTable->fCreated);
    members["u created"] = std::to_string(fOther->fCreated);
    members["insert values"] = std::to_string(fInsert->fValues.size());
    members["insert text"] = fInsert->fQuery.str();
    members["replace values"] = std::to_string(fReplace->fValues.size());
    members["replace text"] = fReplace->fQuery.str();
    members["update values"] = std::to_string(fUpdate->fValues.size());
    members["delete text"] = fDelete->fQuery;
    members["select text"] = fSelect->fQuery;
    members["record"] = std::to_string(fRecord);
    members["log"] = fLog;
    members["answer"] = fAnswer;
    members["cursor"] = Describe(fCursor);
    members["shared cursor"] = Describe(fShared.get());
    return members;
  }

  static std::string Describe(const Cursor* cursor) {
    if (cursor == nullptr) return "gone";
    return "columns " + Addresses(cursor->fColumns) + "offsets " + std::to_string(cursor->fOffsets.fItems.size()) +
           " statement " + (cursor->fStatement != nullptr ? "set" : "null") + " finalized " +
           std::to_string(cursor->fFinalized) + " rows " + std::to_string(cursor->fRowCount);
  }

  std::unique_ptr<SQLDatabase> fDatabase;
  sqlite3* fConnection = nullptr;
  boost::shared_ptr<sqldb::SQLTableClass> fTable;
  boost::shared_ptr<sqldb::SQLTableClass> fOther;
  boost::shared_ptr<sqldb::SQLInsertClass> fInsert;
  boost::shared_ptr<sqldb::SQLReplaceClass> fReplace;
  boost::shared_ptr<sqldb::SQLUpdateClass> fUpdate;
  boost::shared_ptr<sqldb::SQLDeleteClass> fDelete;
  boost::shared_ptr<sqldb::SQLSelectClass> fSelect;
  // Deleted by hand.
  Cursor* fCursor = nullptr;
  boost::shared_ptr<Cursor> fShared;
  boost::shared_ptr<sqldb::SQLCursorBase> fPerformer;
  std::uint32_t fRecord = kUntouched;
  std::string fLog;
  std::string fAnswer;
};

using Act = std::function<void(World&)>;

enum class Thrown { kNothing, kMessage, kOpenError };

// One call of SQLite in one operation of the library.
struct Site {
  std::string name;
  std::string function;
  // How many calls of the function come before it.
  int skip = 0;
  Act prepare;
  Act act;
  Thrown thrown = Thrown::kMessage;
  // Statements on the connection afterwards.
  int statements = 0;
  // The members that are not as before, and what they are.
  std::function<Members(int code)> changed = [](int) { return Members(); };
  bool waits = false;
  // How many calls before it return SQLITE_BUSY.
  int busyBefore = 0;
};

void Nothing(World&) {}

std::string MessageFor(int code) { return "no such table: of_code_" + std::to_string(code); }

// An operation that sends one statement through SQLDatabase::SendQuery.
struct Sender {
  std::string name;
  Act prepare;
  Act act;
  Members changed;
};

std::vector<Sender> Senders() {
  return {
      {"SendQuery", Nothing, [](World& w) { w.fDatabase->SendQuery("SELECT a FROM t", nullptr, nullptr); }, {}},
      {"SendQuery with a row callback",
       Nothing,
       [](World& w) {
         EveryRow rows;
         w.fDatabase->SendQuery("SELECT a FROM t", &rows, nullptr);
       },
       {}},
      {"a table's SendQuery", Nothing, [](World& w) { w.fTable->SendQuery("SELECT 1", nullptr, nullptr); }, {}},
      {"a cursor's SendQuery", Nothing, [](World& w) { w.fCursor->SendQuery("SELECT 1", nullptr, nullptr); }, {}},
      {"PerformSelect",
       [](World& w) { w.fPerformer = boost::make_shared<EveryRowCursor>(w.fDatabase.get()); },
       [](World& w) { w.fSelect->PerformSelect(w.fPerformer); },
       {{"select text", "SELECT a FROM t"}}},
      {"BeginTransaction", Nothing, [](World& w) { w.fDatabase->BeginTransaction(); }, {}},
      {"EndTransaction, commit",
       [](World& w) { w.fDatabase->BeginTransaction(); },
       [](World& w) { w.fDatabase->EndTransaction(true, false); },
       {{"depth", "0"}}},
      {"EndTransaction, roll back",
       [](World& w) { w.fDatabase->BeginTransaction(); },
       [](World& w) { w.fDatabase->EndTransaction(false, false); },
       {{"depth", "0"}, {"transaction ok", "0"}}},
      {"EndTransaction, all",
       [](World& w) {
         w.fDatabase->BeginTransaction();
         w.fDatabase->BeginTransaction();
       },
       [](World& w) { w.fDatabase->EndTransaction(true, true); },
       {{"depth", "0"}}},
      {"SetSynchronizationLevel", Nothing, [](World& w) { w.fDatabase->SetSynchronizationLevel(true); }, {}},
      {"Create", Nothing, [](World& w) { w.fOther->Create(); }, {}},
      {"Drop", Nothing, [](World& w) { w.fTable->Drop(); }, {}},
      {"DropTable", Nothing, [](World& w) { w.fDatabase->DropTable(w.fTable); }, {}},
      {"CreateIndexForColumn", Nothing, [](World& w) { w.fTable->CreateIndexForColumn("a"); }, {}},
      {"PerformInsert",
       Nothing,
       [](World& w) { w.fInsert->PerformInsert(true); },
       {{"insert text", "INSERT INTO t ( a ) VALUES (7 )"}}},
      {"PerformReplace",
       Nothing,
       [](World& w) { w.fReplace->PerformReplace(true); },
       {{"replace text", "REPLACE INTO t ( a ) VALUES (7 )"}}},
      {"PerformUpdate", Nothing, [](World& w) { w.fUpdate->PerformUpdate(true); }, {}},
      {"PerformDelete",
       Nothing,
       [](World& w) { w.fDelete->PerformDelete(); },
       {{"delete text", "DELETE FROM t WHERE a = 2"}}},
      {"DeleteRecords", Nothing, [](World& w) { w.fTable->DeleteRecords(nullptr); }, {}},
  };
}

void AddSenders(std::vector<Site>& sites) {
  for (const Sender& sender : Senders()) {
    const auto changed = [members = sender.changed](int) { return members; };
    for (const char* function : {"prepare", "step", "finalize"}) {
      const int left = std::string(function) == "step" ? 1 : 0;
      sites.push_back({sender.name, function, 0, sender.prepare, sender.act, Thrown::kMessage, left, changed});
    }
  }
  const auto twoStatements = [](World& w) {
    EveryRow rows;
    w.fDatabase->SendQuery("SELECT a FROM t;SELECT 1", &rows, nullptr);
  };
  for (const int skip : {1, 2, 3, 4, 5}) {
    sites.push_back({"SendQuery, later row or statement", "step", skip, Nothing, twoStatements, Thrown::kMessage, 1});
  }
  sites.push_back({"SendQuery, second statement", "prepare", 1, Nothing, twoStatements, Thrown::kMessage, 0});
  sites.push_back({"SendQuery, second statement", "finalize", 1, Nothing, twoStatements, Thrown::kMessage, 0});
}

void AddConnection(std::vector<Site>& sites) {
  const auto unopened = [](World& w) {
    World::Forget(w.fDatabase->fConnection);
    w.fDatabase->fConnection = nullptr;
    w.fDatabase->fIsOpen = false;
  };
  const std::vector<std::pair<const char*, Act>> openings = {
      {"Open", [](World& w) { w.fDatabase->Open(); }},
      {"Create", [](World& w) { w.fDatabase->Create(); }},
      {"CommonOpen", [](World& w) { w.fDatabase->CommonOpen(); }},
  };
  for (const auto& [name, act] : openings) {
    sites.push_back({name, "open", 0, unopened, act, Thrown::kOpenError, 0});
    sites.push_back({std::string(name) + " of an open database", "open", 0, Nothing, act, Thrown::kOpenError, 0});
  }
  sites.push_back({"Close", "close", 0, Nothing, [](World& w) { w.fDatabase->Close(); }, Thrown::kNothing, 0,
                   [](int) {
                     return Members{{"open", "0"}};
                   }});
  sites.push_back({"Close, then a query", "close", 0, Nothing,
                   [](World& w) {
                     w.fDatabase->Close();
                     w.fDatabase->SendQuery("SELECT 1", nullptr, nullptr);
                   },
                   Thrown::kNothing, 0,
                   [](int) {
                     return Members{{"open", "0"}};
                   }});
  sites.push_back({"the destructor", "close", 0, Nothing,
                   [](World& w) {
                     w.DeleteCursor();
                     w.fSelect.reset();
                     w.fDatabase.reset();
                   },
                   Thrown::kNothing, 0});
  sites.push_back({"AddCollation", "create_collation", 0, Nothing,
                   [](World& w) {
                     const auto compare = [](void*, int, const void*, int, const void*) { return 0; };
                     w.fAnswer = std::to_string(w.fDatabase->AddCollation("c", compare));
                   },
                   Thrown::kNothing, 0,
                   [](int code) {
                     return Members{{"answer", std::to_string(code)}};
                   }});
}

void AddExplanation(std::vector<Site>& sites) {
  const auto explain = [](World& w) {
    support::ClogCapture log;
    try {
      w.fDatabase->ExplainQuery("SELECT a FROM t;SELECT 1");
    } catch (...) {
      w.fLog = log.Text();
      throw;
    }
    w.fLog = log.Text();
  };
  struct Place {
    const char* function;
    int skip;
    const char* ending;
    int statements;
  };
  const std::vector<Place> places = {{"prepare", 0, "(C)", 0}, {"prepare", 1, "(C)", 0}, {"step", 0, "(A)", 1},
                                     {"step", 1, "(A)", 1},    {"step", 5, "(A)", 1},    {"finalize", 0, "(B)", 0},
                                     {"finalize", 1, "(B)", 0}};
  for (const Place& place : places) {
    for (const int level : {1, 2}) {
      for (const bool logs : {false, true}) {
        const auto prepare = [level, logs](World& w) {
          w.fDatabase->fExplainLevel = static_cast<std::uint8_t>(level);
          w.fDatabase->fLogErrors = logs;
        };
        const auto changed = [logs, ending = std::string(place.ending)](int code) {
          const std::string line =
              "- (SQLDatabase::SendQuery) Explain error: '" + MessageFor(code) + "' " + ending + ".\n";
          return logs ? Members{{"log", line}} : Members();
        };
        sites.push_back({"ExplainQuery", place.function, place.skip, prepare, explain, Thrown::kMessage,
                         place.statements, changed});
      }
    }
  }
}

void AddCursors(std::vector<Site>& sites) {
  sites.push_back({"PrepareToQuery", "prepare", 0, Nothing,
                   [](World& w) { w.fCursor->PrepareToQuery("SELECT a FROM t"); }, Thrown::kMessage, 0});
  const auto share = [](World& w) {
    w.fShared = boost::make_shared<Cursor>(w.fDatabase.get(), OneOffset());
    w.fShared->fColumns = {w.fTable->GetColumn("a")};
  };
  sites.push_back({"PrepareSelect", "prepare", 0, share, [](World& w) { w.fSelect->PrepareSelect(w.fShared); },
                   Thrown::kMessage, 0,
                   [](int) {
                     return Members{{"select text", "SELECT a FROM t"}};
                   }});
  const auto prepareCursor = [](World& w) { w.PrepareCursor(); };
  const auto step = [](World& w) { w.fCursor->Step(w.fRecord); };
  sites.push_back(
      {"Step, first row", "step", 0, prepareCursor, step, Thrown::kMessage, 1, [](int) { return Members(); }, true});
  const auto oneRow = [](World& w) {
    w.PrepareCursor();
    std::uint32_t ignored = 0;
    w.fCursor->Step(ignored);
  };
  sites.push_back(
      {"Step, second row", "step", 0, oneRow, step, Thrown::kMessage, 1, [](int) { return Members(); }, true});
  sites.push_back({"Step, the end", "step", 0,
                   [oneRow](World& w) {
                     oneRow(w);
                     w.fCursor->Step(w.fRecord);
                     w.fCursor->Step(w.fRecord);
                   },
                   step, Thrown::kMessage, 1, [](int) { return Members(); }, true});
  const auto prepareShared = [share](World& w) {
    share(w);
    w.fShared->PrepareToQuery("SELECT a FROM t");
  };
  sites.push_back({"Step of a shared cursor", "step", 0, prepareShared, [](World& w) { w.fShared->Step(w.fRecord); },
                   Thrown::kMessage, 1, [](int) { return Members(); }, true});
  sites.push_back({"the end of a shared cursor", "finalize", 0, Nothing,
                   [](World& w) {
                     const auto cursor = boost::make_shared<Cursor>(w.fDatabase.get(), OneOffset());
                     cursor->PrepareToQuery("SELECT a FROM t");
                   },
                   Thrown::kNothing, 0});
  sites.push_back({"the end of a selected cursor", "finalize", 0, Nothing,
                   [](World& w) {
                     // The base's pointer does not tell the cursor that it is shared; the select does.
                     const boost::shared_ptr<sqldb::SQLCursorBase> cursor(
                         static_cast<sqldb::SQLCursorBase*>(new Cursor(w.fDatabase.get(), OneOffset())));
                     auto select = w.fDatabase->NewSelect(w.fTable, 0);
                     select << w.fTable->GetColumn("a");
                     select->PrepareSelect(cursor);
                   },
                   Thrown::kNothing, 0});
  sites.push_back({"the end of an automatic cursor", "finalize", 0, Nothing,
                   [](World& w) {
                     Cursor cursor(w.fDatabase.get(), OneOffset());
                     cursor.PrepareToQuery("SELECT a FROM t");
                   },
                   Thrown::kMessage, 0});
  sites.push_back({"the end of an automatic cursor on a row", "finalize", 0, Nothing,
                   [](World& w) {
                     Cursor cursor(w.fDatabase.get(), OneOffset());
                     cursor.PrepareToQuery("SELECT a FROM t");
                     std::uint32_t ignored = 0;
                     cursor.Step(ignored);
                   },
                   Thrown::kMessage, 0});
  sites.push_back({"the end of a cursor deleted by hand", "finalize", 0, [](World& w) { w.PrepareCursor(); },
                   [](World& w) {
                     Cursor* const cursor = w.fCursor;
                     w.fCursor = nullptr;
                     delete cursor;
                   },
                   Thrown::kMessage, 0,
                   [](int) {
                     return Members{{"cursors", ""}, {"cursor", "gone"}};
                   }});
  const auto count = [](World& w) { w.fAnswer = std::to_string(w.fTable->CountRecords(nullptr)); };
  const auto test = [](World& w) { w.fAnswer = w.fTable->HasTerm(nullptr) ? "yes" : "no"; };
  const std::vector<std::tuple<const char*, Act, const char*>> questions = {{"CountRecords", count, "3"},
                                                                            {"HasTerm", test, "yes"}};
  for (const auto& [name, act, answer] : questions) {
    sites.push_back({name, "prepare", 0, Nothing, act, Thrown::kMessage, 0});
    sites.push_back({name, "step", 0, Nothing, act, Thrown::kMessage, 0, [](int) { return Members(); }, true});
    // The answer is known by then.
    sites.push_back({name, "finalize", 0, Nothing, act, Thrown::kNothing, 0, [text = std::string(answer)](int) {
                       return Members{{"answer", text}};
                     }});
  }
}

// Each call that waits, in its first and its last retry.
void AddRetries(std::vector<Site>& sites) {
  std::vector<Site> retries;
  for (const Site& site : sites) {
    if (!site.waits) continue;
    for (const int retry : {1, kRetries}) {
      Site again = site;
      again.name += ", retry " + std::to_string(retry);
      again.busyBefore = retry;
      retries.push_back(again);
    }
  }
  sites.insert(sites.end(), retries.begin(), retries.end());
}

std::vector<Site> Sites() {
  std::vector<Site> sites;
  AddConnection(sites);
  AddSenders(sites);
  AddExplanation(sites);
  AddCursors(sites);
  AddRetries(sites);
  return sites;
}

class ReturnCodes : public ::testing::Test {
 protected:
  void Return(const Site& site, int code) {
    World world;
    site.prepare(world);
    world.fConnection = world.fDatabase->fConnection;
    const Members before = world.Look();

    const bool givesUp = site.waits && code == SQLITE_BUSY;
    const int times = givesUp ? kLongestWait - site.busyBefore : 1;
    CallRecorder recorder;
    recorder.Force(site.function, SQLITE_BUSY, site.busyBefore);
    recorder.Force(site.function, code, times, site.skip);
    int forced = 0;
    std::size_t last = 0;
    recorder.fAfterCall = [&](const Call& call) {
      if (call.function != site.function || call.result != code) return;
      ++forced;
      last = recorder.Calls().size();
      // A text of its own for the failure, which only the very moment has.
      if (world.fConnection != nullptr) Complain(world.fConnection, code);
    };
    const std::string message = support::MessageOf([&] { site.act(world); });
    recorder.fAfterCall = nullptr;
    const CallRecorder::Pause pause;

    EXPECT_EQ(forced, times + (code == SQLITE_BUSY ? site.busyBefore : 0));
    if (site.waits) {
      EXPECT_EQ(recorder.Count("step"), static_cast<std::size_t>(site.busyBefore + times));
    }
    const std::string openError = "Error encountered: " + std::to_string(code) + ".\n";
    if (site.thrown == Thrown::kMessage) {
      EXPECT_EQ(message, MessageFor(code));
      ASSERT_LT(last + (givesUp ? 1 : 0), recorder.Calls().size());
      // The text is asked for at once, after the last sleep of a wait in vain.
      const Call& next = recorder.Calls()[last + (givesUp ? 1 : 0)];
      EXPECT_EQ(next.function, "errmsg");
      EXPECT_EQ(next.handle, world.fConnection);
    } else {
      EXPECT_EQ(message, site.thrown == Thrown::kNothing ? "(nothing thrown)" : openError);
      EXPECT_EQ(recorder.Count("errmsg"), 0U);
    }
    const int sleeps = givesUp ? kLongestWait : site.busyBefore;
    EXPECT_EQ(recorder.SleptMicroseconds(), static_cast<std::uint64_t>(sleeps) * kSleep);
    EXPECT_EQ(world.fConnection != nullptr ? world.CountStatements() : 0, site.statements);

    if (world.fDatabase) {
      Members expected = before;
      const Members found = world.Look();
      for (const auto& [name, value] : site.changed(code)) {
        expected[name] = value;
      }
      EXPECT_EQ(found, expected);
    } else {
      // Nobody else has the connection now.
      World::Forget(world.fConnection);
    }
    // An unopened database has none to close.
    if (world.fDatabase && world.fDatabase->fConnection == nullptr) {
      delete world.fCursor;
      world.fCursor = nullptr;
      world.fDatabase->Open();
    }
    ++fCases;
  }

  static void Complain(sqlite3* connection, int code) {
    sqlite3_stmt* none = nullptr;
    const std::string sql = "SELECT * FROM of_code_" + std::to_string(code);
    sqlite3_prepare(connection, sql.c_str(), -1, &none, nullptr);
  }

  int fCases = 0;
};

TEST_F(ReturnCodes, EveryCallSiteTreatsEveryCodeAsDescribed) {
  const std::vector<Site> sites = Sites();
  for (const Site& site : sites) {
    for (int code = 1; code <= kCodes; ++code) {
      SCOPED_TRACE(site.name + ", " + site.function + " after " + std::to_string(site.skip) + ", code " +
                   std::to_string(code));
      Return(site, code);
    }
  }
  const int count = static_cast<int>(sites.size());
  std::printf("return codes: %d call sites, %d codes, %d cases\n", count, kCodes, fCases);
  EXPECT_EQ(count, kCallSites);
  EXPECT_EQ(fCases, kCallSites * kCodes);
}

}  // namespace
