#include "faults/kit_scenarios.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <tuple>

#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "faults/scenarios.h"
#include "sqldb/kit/functions.h"
#include "sqldb/kit/leftovers.h"
#include "sqldb/kit/list.h"
#include "sqldb/kit/migrations.h"
#include "sqldb/kit/transaction.h"
#include "sqldb/sqldb.h"
#include "support/fixtures.h"

namespace faults {

namespace {

using namespace sqldb::kit;

struct Item {
  std::int64_t id = 0;
  std::optional<std::int64_t> qty;

  static constexpr auto Description() { return Describe("items", Key("id", &Item::id), Field("qty", &Item::qty)); }
};

struct Note {
  int page = 0;
  int line = 0;
  std::string text;
  std::optional<std::string> more;
  double weight = 0;

  static constexpr auto Description() {
    return Describe("fresh", Key("page", &Note::page), Key("line", &Note::line), Field("text", &Note::text).Unique(),
                    Field("more", &Note::more), Field("weight", &Note::weight));
  }
};

constexpr Column id(&Item::id);
constexpr Column qty(&Item::qty);
constexpr Column text(&Note::text);
constexpr Column more(&Note::more);

constexpr int kItems = 300;

void Require(bool isRight) {
  if (!isRight) throw std::logic_error("a wrong answer");
}

std::int64_t QuantityOf(std::int64_t number) { return number * 7 % 11; }
bool HasQuantity(const std::optional<Item>& item, std::int64_t quantity) { return item && item->qty == quantity; }

Database& Of(KitWork& work) { return *work.database; }
Table<Item> Items(KitWork& work) { return Table<Item>(Of(work)); }
Table<Item> Log(KitWork& work) { return Table<Item>(Of(work), "log"); }

// What to read.

void FindRecords(KitWork& work) {
  const Table<Item> items = Items(work);
  for (const int number : {1, 7, 300}) Require(HasQuantity(items.Find(number), QuantityOf(number)));
  Require(!items.Find(1000));
  Require(items.Get(5).qty == QuantityOf(5));
}

void CountAndTest(KitWork& work) {
  const Table<Item> items = Items(work);
  Require(items.Count() == kItems);
  Require(items.Count(id <= 11 && qty > 2) == 8);
  Require(items.Has(id == 7));
  Require(!items.Has(id == 7000));
  Require(items.Select(qty == 3).Limit(4).Count() == 4);
}

Term LargeTerm() {
  Term term;
  for (int i = 0; i < 150; ++i) term = term || (id == 2 * i && !(qty == -1));
  return term;
}

void SelectByLargeTerm(KitWork& work) {
  Require(Items(work).Count(LargeTerm()) == kItems / 2 - 1);
  const std::vector<std::int64_t> numbers = {1, 2, 3, 1000};
  Require(Items(work).Select(In(id, numbers)).All().size() == 3);
}

void SelectRange(KitWork& work) {
  std::int64_t sum = 0;
  for (const Item& item :
       Items(work).Select(qty > 2 && Between(id, 1, 110)).OrderBy(Descending(qty)).OrderBy(id).Limit(20).Offset(3)) {
    sum += item.qty.value_or(0);
  }
  // Ten each of the quantities 10, 9, ... 3; three tens are passed over.
  Require(sum == 7 * 10 + 10 * 9 + 3 * 8);
}

void SelectDistinct(KitWork& work) {
  const Selection<Item> selection =
      Items(work).Select(RowOf(qty, id) > RowOf(9, 100)).OrderBy(qty).OrderBy(id).Distinct();
  Require(HasQuantity(selection.First(), 9));
  Require(selection.Limit(1).One().qty == 9);
  Require(static_cast<std::int64_t>(selection.All().size()) == selection.Count());
}

void LeaveRangeEarly(KitWork& work) {
  for (const Item& item : Items(work).Select().OrderBy(id)) {
    if (item.id == 3) break;
  }
  for (const Item& outer : Items(work).Select(id <= 3)) {
    for (const Item& inner : Items(work).Select(id <= 3)) Require(inner.id + outer.id <= 6);
  }
}

void QueryTuples(KitWork& work) {
  std::int64_t count = 0;
  for (const auto& [number, quantity, name] : Of(work).Query<int, std::optional<int>, std::string>(
           "SELECT id, qty, 'item number ' || id || ' of the stock' FROM items WHERE id < ? ORDER BY qty", 20)) {
    Require(quantity == QuantityOf(number) && name == "item number " + std::to_string(number) + " of the stock");
    ++count;
  }
  Require(count == 19);
}

void QueryStructs(KitWork& work) {
  std::int64_t count = 0;
  for (const auto& [item, entry] :
       Of(work).Query<Item, std::optional<Item>>("SELECT " + Columns<Item>("i") + ", " + Columns<Item>("l") +
                                                     " FROM items i LEFT JOIN log l ON l.id = i.id WHERE i.id <= ?",
                                                 10)) {
    Require(item.qty == QuantityOf(item.id) && !entry);
    ++count;
  }
  Require(count == 10);
  const std::vector<Item> turned = Of(work).All<Item>("SELECT qty, id FROM items WHERE id = ?", 4);
  Require(turned.size() == 1 && turned[0].qty == QuantityOf(4));
}

void AskQuestions(KitWork& work) {
  Require(Of(work).One<int>("SELECT COUNT(*) FROM items") == kItems);
  Require(!Of(work).First<int>("SELECT id FROM items WHERE id > ?", 1000));
  Require(Of(work).First<int>("SELECT id FROM items ORDER BY id DESC") == kItems);
  Require(Of(work).All<std::string>("SELECT 'a text that is longer than short' FROM items LIMIT 3").size() == 3);
  const std::vector<std::int64_t> numbers = {1, 2, 3, 1000};
  Require(Of(work).One<int>("SELECT COUNT(*) FROM items WHERE id IN (SELECT value FROM list(?))", List(numbers)) == 3);
}

void UsePreparedStatement(KitWork& work) {
  Statement find = Of(work).Prepare("SELECT qty FROM items WHERE id = :id");
  for (int number = 1; number < 5; ++number) Require(find.One<int>(Named(":id", number)) == QuantityOf(number));
  std::int64_t count = 0;
  for (const int quantity : find.Query<int>(Named(":id", 9))) {
    Require(quantity == QuantityOf(9));
    ++count;
  }
  Require(count == 1);
  Require(find.First<int>(Named(":id", 1000)) == std::nullopt);
}

// More than are kept.
void UseManyStatements(KitWork& work) {
  for (int i = 0; i < 110; ++i) {
    Require(Of(work).One<int>("SELECT " + std::to_string(i) + " + COUNT(*) FROM log") == i);
  }
}

// What to write.

void CreateTable(KitWork& work) {
  const Table<Note> notes(Of(work));
  notes.Create();
}

void CreateMissingTable(KitWork& work) {
  InTransaction(Of(work), [&] {
    const Table<Note> notes(Of(work));
    notes.CreateIfMissing();
    notes.CreateIfMissing();
    Items(work).CreateIfMissing();
  });
}

struct OwnSum {
  void Step(std::optional<std::int64_t> value) { sum += value.value_or(0); }
  std::int64_t Result() const { return sum; }
  std::int64_t sum = 0;
};

void UseOwnFunctions(KitWork& work) {
  Database& database = Of(work);
  Define(database, "own_text", [](std::int64_t value) { return std::string(100, 'x') + std::to_string(value); });
  Define(database, "own_next", [](const FunctionArguments& all) { return all.At<std::optional<std::int64_t>>(0); });
  DefineAggregate<OwnSum>(database, "own_sum");
  DefineCollation(database, "own", [](std::string_view a, std::string_view b) noexcept { return a.compare(b); });
  Require(database.One<bool>("SELECT own_sum(qty) = SUM(qty) FROM items"));
  Require(database.First<std::string>("SELECT own_text(id) AS t FROM items ORDER BY t COLLATE own") ==
          std::string(100, 'x') + "1");
  database.Execute("UPDATE items SET qty = own_next(id)");
}

void MigrateFile(KitWork& work) {
  const auto write = [](Database& database) {
    database.Execute("CREATE TABLE fresh (a)");
    database.Execute("UPDATE items SET qty = qty + 1");
  };
  std::optional<Migrations> steps;
  work.undisturbed([&] { steps.emplace().Add("fresh", write, ForeignKeys::kOff); });
  Require(steps->Run(Of(work)) == 1);
}

void DropTable(KitWork& work) { Items(work).Drop(); }

void InsertRecord(KitWork& work) { Require(Items(work).Insert({1000, 7}) == 1000); }
void InsertOrIgnoreRecord(KitWork& work) {
  InTransaction(Of(work), [&] {
    Require(Items(work).InsertOrIgnore({1000, 7}));
    Require(!Items(work).InsertOrIgnore({1000, 8}));
  });
}
void UpsertRecords(KitWork& work) {
  InTransaction(Of(work), [&] {
    Items(work).Upsert({5, 777});
    Items(work).Upsert({1000, 7});
  });
}
void ReplaceRecord(KitWork& work) { Items(work).Replace({5, 777}); }
void UpdateRecord(KitWork& work) { Require(Items(work).Update({5, std::nullopt})); }
void UpdateByTerm(KitWork& work) {
  const std::int64_t changed =
      Items(work).Update(Sql<int>("id % ?", 2) == 0, Set(qty, Sql<std::int64_t>("qty + ?", 100)));
  Require(changed == kItems / 2);
}
void DeleteRecord(KitWork& work) { Require(Items(work).Delete(5)); }
void DeleteByTerm(KitWork& work) { Require(Items(work).Delete(id > 20 && Where("qty > ?", 2)) > 0); }
void DeleteEveryRecord(KitWork& work) { Require(Items(work).Delete(EveryRow()) == kItems); }
void UpdateByLargeTerm(KitWork& work) { Require(Items(work).Update(LargeTerm(), Set(qty, std::nullopt)) > 0); }

// A table with two keys, texts, and values that are not there.
void WriteTexts(KitWork& work) {
  InTransaction(Of(work), [&] {
    const Table<Note> notes(Of(work));
    notes.Create();
    notes.Insert({1, 1, "a text that is longer than a short one", std::nullopt, 0.5});
    notes.Insert({1, 2, "another text that is longer than a short one", std::string(2000, 'x'), 1.5});
    notes.Upsert({1, 1, "a text that comes in the place of the first", "more", 0.25});
    const std::optional<Note> first = notes.Find(1, 1);
    Require(first && first->more == "more");
    Require(notes.Select(Like(text, "%longer%") && !IsNull(more)).One().line == 2);
    Require(notes.Update(Is(more, std::optional<std::string>("more")),
                         Set(text, std::string("the last one of all texts"))) == 1);
    Require(notes.Delete(1, 2));
  });
}

void ExecuteStatements(KitWork& work) {
  InTransaction(Of(work), [&] {
    Require(Of(work).Execute("INSERT INTO log SELECT id, qty FROM items WHERE id <= ?", 10) == 10);
    Require(Of(work).Execute("UPDATE log SET qty = :qty WHERE id = :id", Named(":id", 3), Named(":qty", 33)) == 1);
    Of(work).ExecuteScript("DELETE FROM log WHERE id = 1; DELETE FROM log WHERE id = 2;");
  });
}

void WriteAndReturn(KitWork& work) {
  const std::vector<int> numbers =
      Of(work).All<int>("INSERT INTO log SELECT id, qty FROM items WHERE id <= ? RETURNING id", 10);
  Require(numbers.size() == 10);
}

void WriteWithinRange(KitWork& work) {
  InTransaction(Of(work), [&] {
    for (const Item& item : Items(work).Select(id <= 5)) Log(work).Insert(item);
  });
}

void NestTransactions(KitWork& work) {
  InTransaction(Of(work), [&] {
    for (int i = 1; i <= 3; ++i) {
      Transaction inner(Of(work));
      Log(work).Insert({i, i * i});
      Items(work).Delete(i);
      inner.Commit();
    }
  });
}

void LongTransaction(KitWork& work) {
  InTransaction(Of(work), [&] {
    for (int i = 1; i <= 600; ++i) Log(work).Insert({i, i * i});
  });
}

std::vector<Item> Squares(int count) {
  std::vector<Item> squares;
  for (int i = 1; i <= count; ++i) squares.push_back({i, i * i});
  return squares;
}

void InsertManyRecords(KitWork& work) {
  const std::vector<Item> squares = Squares(300);
  Require(Log(work).InsertMany(squares, {0}) == squares.size());
}

// Each batch is a savepoint.
void WriteManyInTransaction(KitWork& work) {
  const std::vector<Item> squares = Squares(40);
  InTransaction(Of(work), [&] {
    Require(Log(work).InsertMany(squares, {15}) == squares.size());
    Require(Items(work).UpsertMany(squares, {15}) == squares.size());
  });
}

// Of what fails, the batches before stay, and a report has told of each.
void KeepBatches(KitWork& work) {
  std::vector<Item> squares;
  std::vector<std::int64_t> written;
  work.undisturbed([&] {
    squares = Squares(90);
    written.reserve(squares.size());
  });
  try {
    Log(work).InsertMany(squares, {20}, [&](std::size_t count) {
      while (written.size() < count) written.push_back(squares[written.size()].id);
      return Progress::kGoOn;
    });
  } catch (const Error& error) {
    Require(error.Written() == written.size());
  } catch (const std::bad_alloc&) {
  }
  work.written.swap(written);
}

void UseSavepoints(KitWork& work) {
  InTransaction(Of(work), [&] {
    {
      Savepoint kept(Of(work));
      Log(work).Insert({1, 1});
      kept.Release();
    }
    {
      const Savepoint undone(Of(work));
      Log(work).Insert({2, 4});
      Items(work).Delete(EveryRow());
    }
    Require(Items(work).Count() == kItems);
    Log(work).Insert({3, 9});
  });
}

void RollBack(KitWork& work) {
  const Transaction transaction(Of(work));
  Items(work).Delete(EveryRow());
}

void ThrowOutOfTransaction(KitWork& work) {
  struct Own {};
  try {
    InTransaction(Of(work), [&] {
      Items(work).Delete(EveryRow());
      throw Own();
    });
  } catch (const Own&) {
    Require(Items(work).Count() == kItems);
  }
}

void RollBackByLevel(KitWork& work) {
  Transaction outer(Of(work));
  {
    const Transaction inner(Of(work));
    Items(work).Delete(id > 20);
  }
  Log(work).Insert({1, 1});
  int code = 0;
  try {
    outer.Commit();
  } catch (const Error& error) {
    if (error.Code() != 4) throw;
    code = error.Code();
  }
  Require(code != 0);
}

void MixWithCore(KitWork& work) {
  InTransaction(Of(work), [&] {
    Log(work).Insert({1, 1});
    sqldb::SQLDatabase& core = Of(work).Core();
    core.BeginTransaction();
    Log(work).Insert({2, 4});
    core.EndTransaction(true, false);
  });
}

// What fails in it is skipped.
void SkipFailures(KitWork& work) {
  constexpr int kRows = 150;
  std::vector<std::int64_t> written;
  work.undisturbed([&] { written.reserve(kRows); });
  InTransaction(Of(work), [&] {
    for (int i = 1; i <= kRows; ++i) {
      try {
        Log(work).Insert({i, i * i});
        written.push_back(i);
      } catch (const std::exception&) {
      }
    }
  });
  work.written.swap(written);
}

// The same, each row on its own.
void SkipFailedSavepoints(KitWork& work) {
  constexpr int kRows = 20;
  std::vector<std::int64_t> written;
  work.undisturbed([&] { written.reserve(kRows); });
  InTransaction(Of(work), [&] {
    for (int i = 1; i <= kRows; ++i) {
      try {
        Savepoint savepoint(Of(work));
        Of(work).Execute("INSERT INTO log VALUES (?, ?)", i, i * i);
        savepoint.Release();
        written.push_back(i);
      } catch (const std::exception&) {
      }
    }
  });
  work.written.swap(written);
}

void RefusedWrites(KitWork& work) {
  int refused = 0;
  InTransaction(Of(work), [&] {
    refused = 0;
    try {
      Items(work).Insert({1, 1});
    } catch (const ConstraintError&) {
      ++refused;
    }
    try {
      Of(work).Execute("INSERT INTO a_table_that_is_not_there VALUES (?)", 1);
    } catch (const Error&) {
      ++refused;
    }
    try {
      Of(work).One<int>("SELECT 'no number at all'");
    } catch (const ConversionError&) {
      ++refused;
    }
    Log(work).Insert({1, 1});
  });
  Require(refused == 3);
}

// SQLite rolls back by itself: nothing is written any more then, by whichever way.
void GoOnAfterRollback(KitWork& work) {
  int refused = 0;
  try {
    InTransaction(Of(work), [&] {
      Log(work).Insert({1, 1});
      try {
        Of(work).Execute("INSERT OR ROLLBACK INTO items VALUES (?, ?)", 1, 1);
      } catch (const ConstraintError&) {
        ++refused;
      }
      try {
        Log(work).Insert({2, 4});
      } catch (const Error& error) {
        if (error.ExtendedCode() != SQLITE_ABORT_ROLLBACK) throw;
        ++refused;
      }
      sqldb::SQLDatabase& core = Of(work).Core();
      try {
        Run(core, [&] { core.SendQuery("INSERT INTO log VALUES (3, 9)", nullptr, nullptr); });
      } catch (const Error&) {
        ++refused;
      }
    });
  } catch (const Error& error) {
    if (error.ExtendedCode() != SQLITE_ABORT_ROLLBACK) throw;
    ++refused;
  }
  Require(refused == 4);
  Require(Log(work).Count() == 0);
}

// Another connection, which disturbs nothing but by what it does.
class Other {
 public:
  explicit Other(KitWork& work) : fWork(work) {
    fWork.undisturbed([&] { fConnection.emplace(fWork.path); });
  }
  ~Other() {
    fWork.undisturbed([&] { fConnection.reset(); });
  }
  Other(const Other&) = delete;
  Other& operator=(const Other&) = delete;

  void Run(const char* sql) {
    fWork.undisturbed([&] { fConnection->Run(sql); });
  }

 private:
  KitWork& fWork;
  std::optional<support::OtherConnection> fConnection;
};

void WriteToBusyFile(KitWork& work) {
  bool wasBusy = false;
  {
    Other other(work);
    other.Run("BEGIN IMMEDIATE");
    try {
      Log(work).Insert({1, 1});
    } catch (const BusyError&) {
      wasBusy = true;
    }
    Require(wasBusy);
    wasBusy = false;
    try {
      InTransaction(Of(work), [&] { Log(work).Insert({1, 1}); });
    } catch (const BusyError&) {
      wasBusy = true;
    }
    Require(wasBusy);
  }
  Log(work).Insert({2, 4});
}

// The first commit finds another one reading.
void CommitAgain(KitWork& work) {
  bool wasBusy = false;
  std::optional<Transaction> transaction;
  {
    Other other(work);
    other.Run("BEGIN; SELECT * FROM items LIMIT 1");
    transaction.emplace(Of(work));
    Log(work).Insert({1, 1});
    Items(work).Delete(1);
    try {
      transaction->Commit();
    } catch (const BusyError&) {
      wasBusy = true;
    }
  }
  Require(wasBusy);
  transaction->Commit();
}

// The schema changes under kept statements.
void ReadChangedSchema(KitWork& work) {
  Require(HasQuantity(Items(work).Find(1), QuantityOf(1)));
  Require(Of(work).One<Item>("SELECT * FROM items WHERE id = ?", 1).qty == QuantityOf(1));
  {
    Other other(work);
    other.Run("CREATE INDEX passing ON items (qty); DROP INDEX passing");
  }
  Require(HasQuantity(Items(work).Find(1), QuantityOf(1)));
  Require(Of(work).One<Item>("SELECT * FROM items WHERE id = ?", 1).qty == QuantityOf(1));
}

// Opening.

void Open(KitWork& work) {
  Options options;
  options.synchronous = Synchronous::kExtra;
  options.setUp = "PRAGMA cache_size = 5";
  options.isUri = true;
  options.keptStatements = 3;
  work.database.emplace(work.path, options);
  Require(Of(work).One<int>("SELECT COUNT(*) FROM items") == kItems);
}

void OpenToRead(KitWork& work) {
  Options options;
  options.access = Access::kReadOnly;
  {
    const Database database(work.path, options);
    Require(Table<Item>(database).Count() == kItems);
  }
  work.database.emplace(work.path);
}

void MakeFile(KitWork& work) {
  const std::string path = work.path + ".new";
  work.undisturbed([&] { RemoveDatabase(path); });
  {
    Options options;
    options.access = Access::kCreate;
    Database made(path, options);
    const Table<Note> notes(made);
    notes.Create();
    notes.Insert({1, 1, "a text that is longer than a short one", std::nullopt, 0.5});
    Require(notes.Count() == 1);
  }
  work.database.emplace(work.path);
}

void ShareCore(KitWork& work) {
  const auto core = boost::make_shared<sqldb::SQLDatabase>(work.path, false);
  work.database.emplace(work.path);
  {
    const auto inMemory = boost::make_shared<sqldb::SQLDatabase>(":memory:", false);
    inMemory->Open();
    Database shared(inMemory);
    shared.Execute("CREATE TABLE t (a)");
    Require(shared.One<int>("SELECT COUNT(*) FROM t") == 0);
  }
}

void OpenAndMove(KitWork& work) {
  Database database(work.path);
  Table<Item> items(database);
  Database moved(std::move(database));
  Require(items.Count() == kItems);
  work.database.emplace(std::move(moved));
}

}  // namespace

const std::vector<KitScenario>& KitScenarios() {
  static const std::vector<KitScenario> scenarios = {
      {"open", Open, true},
      {"open to read", OpenToRead, true},
      {"make a file", MakeFile, true},
      {"open beside the core", ShareCore, true},
      {"open and move", OpenAndMove, true},
      {"find", FindRecords},
      {"count and test", CountAndTest},
      {"select by a large term", SelectByLargeTerm},
      {"select a range", SelectRange},
      {"select distinct rows", SelectDistinct},
      {"leave a range early", LeaveRangeEarly},
      {"query tuples", QueryTuples},
      {"query structs", QueryStructs},
      {"ask questions", AskQuestions},
      {"prepared statement", UsePreparedStatement},
      {"many statements", UseManyStatements},
      {"create table", CreateTable},
      {"create missing table", CreateMissingTable},
      {"drop table", DropTable},
      {"functions of the program's own", UseOwnFunctions},
      {"migration", MigrateFile},
      {"insert", InsertRecord},
      {"insert or ignore", InsertOrIgnoreRecord},
      {"upsert", UpsertRecords},
      {"replace", ReplaceRecord},
      {"update", UpdateRecord},
      {"update by a term", UpdateByTerm},
      {"update by a large term", UpdateByLargeTerm},
      {"delete", DeleteRecord},
      {"delete by a term", DeleteByTerm},
      {"delete every record", DeleteEveryRecord},
      {"write texts", WriteTexts},
      {"execute", ExecuteStatements},
      {"write and return", WriteAndReturn},
      {"write within a range", WriteWithinRange},
      {"nested transactions", NestTransactions},
      {"long transaction", LongTransaction},
      {"many records", InsertManyRecords},
      {"many records in a transaction", WriteManyInTransaction},
      {"batches that stay", KeepBatches, false, true},
      {"savepoints", UseSavepoints},
      {"rolled back transaction", RollBack},
      {"exception out of a transaction", ThrowOutOfTransaction},
      {"rolled back level", RollBackByLevel},
      {"levels of the core", MixWithCore},
      {"skipped failures", SkipFailures, false, true},
      {"skipped savepoints", SkipFailedSavepoints, false, true},
      {"refused writes", RefusedWrites},
      {"rollback by SQLite", GoOnAfterRollback},
      {"busy file", WriteToBusyFile, false, false, true},
      {"repeated commit", CommitAgain, false, false, true},
      {"changed schema", ReadChangedSchema, false, false, true},
  };
  return scenarios;
}

bool CloseDatabase(KitWork& work) {
  const support::CallRecorder recorder;
  work.database.reset();
  const std::vector<support::Call> closes = recorder.CallsOf("close");
  return std::all_of(closes.begin(), closes.end(), [](const support::Call& call) { return call.result == SQLITE_OK; });
}

std::string LeftBehind(const KitWork& work) {
  if (!work.database) return "";
  const sqldb::SQLDatabase& core = work.database->Core();
  std::string found;
  sqlite3_stmt* statement = nullptr;
  while ((statement = sqlite3_next_stmt(core.fConnection, statement)) != nullptr) {
    if (sqlite3_stmt_busy(statement) != 0) found += std::string(" ") + sqlite3_sql(statement);
  }
  if (sqlite3_get_autocommit(core.fConnection) == 0) found += " an open transaction";
  if (core.fTransactionDepth != 0) found += " a level";
  return found;
}

void OpenDatabase(KitWork& work) {
  Options options;
  options.busyTimeout = 2;
  work.database.emplace(work.path, options);
}

}  // namespace faults
