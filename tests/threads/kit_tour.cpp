#include <array>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sqlite3.h>

#include "sqldb/kit/leftovers.h"
#include "threads/work.h"

namespace threads {

namespace {

using namespace sqldb::kit;

// A member of every type, each of which says which record it belongs to.
struct Everything {
  std::int64_t fId = 0;
  bool fIsOdd = false;
  std::uint16_t fShort = 0;
  double fReal = 0;
  float fSmall = 0;
  std::string fText;
  char fCharacters[12] = {};
  std::array<char, 12> fArray = {};
  Blob fBlob;
  EncodedBytes fEncoded;
  std::optional<std::string> fMaybe;

  static constexpr auto Description() {
    return Describe("everything", Key("id", &Everything::fId), Field("odd", &Everything::fIsOdd),
                    Field("short", &Everything::fShort), Field("real", &Everything::fReal),
                    Field("small", &Everything::fSmall), Field("text", &Everything::fText),
                    Field("characters", &Everything::fCharacters), Field("array", &Everything::fArray),
                    Field("blob", &Everything::fBlob), Field("encoded", &Everything::fEncoded),
                    Field("maybe", &Everything::fMaybe));
  }
};

constexpr Column kId(&Everything::fId);
constexpr Column kShort(&Everything::fShort);
constexpr Column kReal(&Everything::fReal);
constexpr Column kText(&Everything::fText);
constexpr Column kMaybe(&Everything::fMaybe);

// A key of two parts.
struct Mark {
  std::int64_t fId = 0;
  std::string fName;
  int fValue = 0;

  static constexpr auto Description() {
    return Describe("marks", Key("id", &Mark::fId), Key("name", &Mark::fName).Collate("NOCASE"),
                    Field("value", &Mark::fValue));
  }
};

constexpr Column kMarkId(&Mark::fId);

Everything EverythingOf(std::int64_t id) {
  Everything record;
  record.fId = id;
  record.fIsOdd = id % 2 != 0;
  record.fShort = static_cast<std::uint16_t>(id);
  record.fReal = static_cast<double>(id) / 8;
  record.fSmall = static_cast<float>(id) / 4;
  record.fText = "it's " + std::to_string(id);
  record.fText.copy(record.fCharacters, sizeof record.fCharacters);
  record.fText.copy(record.fArray.data(), record.fArray.size());
  for (int shift = 0; shift < 64; shift += 8) record.fBlob.push_back(static_cast<unsigned char>(id >> shift));
  record.fEncoded.bytes = record.fBlob;
  if (record.fIsOdd) record.fMaybe = record.fText;
  return record;
}

bool IsIntact(const Everything& record) {
  const Everything right = EverythingOf(record.fId);
  return record.fIsOdd == right.fIsOdd && record.fShort == right.fShort && !(record.fReal < right.fReal) &&
         !(record.fReal > right.fReal) && !(record.fSmall < right.fSmall) && !(record.fSmall > right.fSmall) &&
         record.fText == right.fText && std::string(record.fCharacters, 12) == std::string(right.fCharacters, 12) &&
         record.fArray == right.fArray && record.fBlob == right.fBlob && record.fEncoded == right.fEncoded &&
         record.fMaybe == right.fMaybe;
}

template <typename Failure, typename Action>
bool Throws(Action action) {
  try {
    action();
  } catch (const Failure&) {
    return true;
  }
  return false;
}

bool IsEngine(int atLeast) { return sqlite3_libversion_number() >= atLeast; }

// Nobody needs the file after a crash.
Options Careless() {
  Options options;
  options.synchronous = Synchronous::kOff;
  return options;
}

class KitTour {
 public:
  KitTour(const std::string& path, const Shared& shared) : fDatabase(path, Careless()), fShared(shared) {}

  void Create() {
    fTable.CreateIfMissing();
    fTable.CreateIfMissing();
    fDatabase.ExecuteScript("CREATE INDEX everything_text ON everything (text); ANALYZE");
    fMarks.Create();
    const Table<Mark> other(fDatabase, "other");
    other.Create();
    other.Drop();
  }

  void Write() {
    for (std::int64_t id = 1; id <= 20; ++id) {
      Expect(fTable.Insert(EverythingOf(id)) == id, "an insert returns its key");
    }
    std::vector<Everything> records;
    for (std::int64_t id = 21; id <= 120; ++id) records.push_back(EverythingOf(id));
    std::size_t reported = 0;
    const auto report = [&reported](std::size_t written) {
      reported = written;
      return Progress::kGoOn;
    };
    Expect(fTable.InsertMany(records, {30}, report) == 100 && reported == 100, "many are inserted in batches");
    fTable.Replace(EverythingOf(20));
    Expect(!fTable.InsertOrIgnore(EverythingOf(20)), "a row that is there is not inserted");
    if (IsEngine(3024000)) {
      fTable.Upsert(EverythingOf(20));
      Expect(fTable.UpsertMany(records) == 100, "many are written again");
    }
    ExpectIntact(120);
  }

  void WriteToTwoKeys() {
    fMarks.Insert({1, "a", 1});
    fMarks.Insert({1, "b", 2});
    fMarks.Insert({2, "a", 3});
    Expect(fMarks.Find(1, "B")->fValue == 2, "a row is found by both keys");
    Expect(fMarks.Update({1, "a", 4}) && fMarks.Get(1, "a").fValue == 4, "and is the one that is changed");
    Expect(fMarks.Count(sqldb::kit::RowOf(kMarkId, Column(&Mark::fName)) > sqldb::kit::RowOf(1, "a")) == 2,
           "rows are compared as a whole");
    Expect(fMarks.Delete(2, "a") && !fMarks.Delete(2, "a"), "a row is deleted once");
  }

  void Ask() {
    Expect(fDatabase.One<std::int64_t>("SELECT COUNT(*) FROM everything") == 120, "a scalar is asked for");
    std::int64_t sum = 0;
    for (const auto& [id, maybe] : fDatabase.Query<std::int64_t, std::optional<std::string>>(
             "SELECT id, maybe FROM everything WHERE id < ?", 5)) {
      sum += maybe ? id : 0;
    }
    Expect(sum == 4, "so are rows");
    sum = 0;
    for (const auto& [record, mark] : fDatabase.Query<Everything, std::optional<Mark>>(
             "SELECT " + Columns<Everything>("e") + ", " + Columns<Mark>("m") +
                 " FROM everything e LEFT JOIN marks m ON m.id = e.id WHERE e.id <= :most",
             Named(":most", 2))) {
      Expect(IsIntact(record) && mark.has_value() == (record.fId == 1), "a joined row is intact");
      ++sum;
    }
    Expect(sum == 3, "and is there");
    Statement find = fDatabase.Prepare("SELECT text FROM everything WHERE id = ?");
    for (int id = 1; id < 10; ++id) {
      Expect(find.One<std::string>(id) == EverythingOf(id).fText, "a held statement finds");
    }
    if (!IsEngine(3020000)) return;
    const std::vector<int> ids{3, 4, 500};
    Expect(
        fDatabase.All<int>("SELECT id FROM everything WHERE id IN (SELECT value FROM list(?))", List(ids)).size() == 2,
        "a list is bound");
  }

  void Change() {
    Everything record = EverythingOf(7);
    record.fText = "changed";
    Expect(fTable.Update(record), "an update finds its record");
    Expect(fTable.Has(kText == "changed") && fTable.Update(EverythingOf(7)), "and changes it");
    Expect(fTable.Update(kId == 7, Set(kText, "set"), Set(kShort, Sql<int>("short + ?", 1))) == 1, "fields are set");
    Expect(fTable.Has(kText == "set" && kShort == 8) && fTable.Update(EverythingOf(7)), "to what they are set to");
    ExpectIntact(120);
  }

  void Select() {
    std::int64_t sum = 0;
    for (const Everything& row : fTable.Select(fShared.fKitTerm).OrderBy(Descending(kId)).Limit(3).Offset(1)) {
      Expect(IsIntact(row), "a selected row is intact");
      sum = sum * 1000 + row.fId;
    }
    Expect(sum == 119118117, "rows come in their order");
    Expect(fTable.Select(kText == "it's 9").First()->fId == 9, "a text is found");
    const Term term = (Like(kText, "it's 1_") || In(kId, {1, 2, 3}) || Between(kReal, 1.0, 1.25)) && !(kId == 2) &&
                      0.0 <= kReal && kId != 1 && kId <= 200 && kId < 200;
    // 10 to 19, 3, 8 and 9.
    Expect(fTable.Count(term) == 13, "conditions are put together");
    Expect(fTable.Count() == 120 && fTable.Count(IsNull(kMaybe)) == 60, "rows are counted");
    Expect(fTable.Select(kReal < 1.0 || kReal > 14.75).All().size() == 9, "rows are taken at once");
    Expect(Columns<Mark>() == "id, name, value", "a struct names its columns");
  }

  void Transact() {
    {
      Transaction transaction(fDatabase);
      fTable.Delete(EveryRow());
      const Transaction inner(fDatabase, Begin::kExclusive);
    }
    ExpectIntact(120);
    const auto move = [this] {
      fTable.Delete(120);
      return fTable.Insert(EverythingOf(120));
    };
    Expect(InTransaction(fDatabase, move) == 120, "a transaction returns what its work returns");
    Transaction transaction(fDatabase, Begin::kDeferred);
    move();
    {
      const Savepoint savepoint(fDatabase);
      fTable.Delete(EveryRow());
    }
    transaction.Commit();
    ExpectIntact(120);
  }

  void Fail() {
    const auto insert = [this] { fTable.Insert(EverythingOf(1)); };
    try {
      insert();
      Expect(false, "a key is not inserted twice");
    } catch (const ConstraintError& error) {
      Expect(error.ExtendedCode() == SQLITE_CONSTRAINT_PRIMARYKEY, "an error has its extended code");
      Expect(error.Message() == "UNIQUE constraint failed: everything.id", "and its message");
    }
    Expect(Throws<Error>([this] { fTable.Delete(Term()); }), "a delete needs a condition");
    Expect(Throws<ConversionError>([this] { fDatabase.One<int>("SELECT 'a'"); }), "a text is no integer");
  }

  void FailInTheCore() {
    sqldb::SQLDatabase& core = fDatabase.Core();
    const auto insert = [&core] { core.SendQuery("INSERT INTO everything (id) VALUES (1)", nullptr, nullptr); };
    Expect(Throws<ConstraintError>([&] { Run(core, insert); }), "a run tells what it is");
    Expect(!ReleaseLeftovers(core), "and leaves nothing");
    Expect(Throws<std::runtime_error>(insert), "the core throws");
    Expect(ReleaseLeftovers(core).has_value(), "what it left behind is released");
  }

  void Wait(const std::string& path) {
    Database other(path, Careless());
    std::optional<Transaction> theirs(std::in_place, other);
    std::thread holder([&theirs] {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      theirs.reset();
    });
    fTable.Replace(EverythingOf(1));
    holder.join();
    ExpectIntact(120);
  }

 private:
  void ExpectIntact(std::int64_t count) {
    std::int64_t id = 0;
    for (const Everything& row : fTable.Select().OrderBy(kId)) {
      Expect(row.fId == ++id && IsIntact(row), "a row is intact");
    }
    Expect(id == count, "every row is there");
  }

  Database fDatabase;
  const Shared& fShared;
  const Table<Everything> fTable{fDatabase};
  const Table<Mark> fMarks{fDatabase};
};

}  // namespace

void TourKit(const std::string& path, const Shared& shared) {
  KitTour tour(path, shared);
  tour.Create();
  tour.Write();
  tour.WriteToTwoKeys();
  tour.Ask();
  tour.Change();
  tour.Select();
  tour.Transact();
  tour.Fail();
  tour.FailInTheCore();
  tour.Wait(path);
}

}  // namespace threads
