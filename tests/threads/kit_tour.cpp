#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "threads/work.h"

namespace threads {

namespace {

using namespace sqldb::kit;
using sqldb::SQLDatabase;

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
};

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

class KitTour {
 public:
  KitTour(const std::string& path, const Shared& shared) : fDatabase(path, false), fShared(shared) {
    fDatabase.Open();
    fDatabase.SetSynchronizationLevel(false);
  }

  void Create() {
    fTable.CreateIfMissing();
    fTable.CreateIfMissing();
    fTable.CreateIndex(fText);
    fFew.Create();
    Table<Everything> other(fDatabase, "other", fId, fText.Unique().Collate("NOCASE"));
    other.Create();
    other.Drop();
  }

  void Write() {
    for (std::int64_t id = 1; id <= 20; ++id)
      Expect(fTable.Insert(EverythingOf(id)) == id, "an insert returns its key");
    Expect(fTable.Replace(EverythingOf(20)) == 20, "a replace returns its key");
    std::vector<Everything> records;
    for (std::int64_t id = 21; id <= 120; ++id) records.push_back(EverythingOf(id));
    BulkOptions options;
    options.batch = 30;
    std::size_t reported = 0;
    options.progress = [&reported](std::size_t written) { return reported = written, true; };
    Expect(fTable.InsertMany(records, options) == 100 && reported == 100, "many are inserted in batches");
    Expect(fTable.ReplaceMany(records) == 100, "many are replaced");
    const std::vector<int> ids{1001, 1002};
    const auto bind = [](sqlite3_stmt* statement, int id) { sqlite3_bind_int(statement, 1, id); };
    Expect(sqldb::kit::InsertMany(fDatabase, "INSERT INTO few VALUES (?, 1, '', NULL)", ids, bind) == 2,
           "so is any SQL");
    Expect(fFew.Delete(fId > 1000) == 2, "a delete tells how many it deletes");
    ExpectIntact(120);
  }

  void WriteByCore() {
    const auto insert = fFew.Core().NewInsert();
    insert->fColumns = {fFew.Core().GetColumn("id"), fFew.Core().GetColumn("text"), fFew.Core().GetColumn("maybe"),
                        fFew.Core().GetColumn("short")};
    const auto text = Bound("a");
    insert->fValues = {Bound(std::int64_t{2000}), text, Null(), Expression({"1 + 1"})};
    insert->PerformInsert(false);
    text->fValue = "b";
    insert->fValues[0] = Literal(std::int64_t{2001});
    insert->PerformInsert(true);
    Expect(fFew.Count(fText == "a" && fShort == 2 && IsNull(fMaybe)) == 1, "values of all kinds are written");
    Expect(fFew.Count(fText == "b") == 1, "a bound value may be set anew");
  }

  void Change() {
    Everything record = EverythingOf(7);
    record.fText = "changed";
    Expect(fTable.Update(record), "an update finds its record");
    Expect(fTable.Has(fText == "changed") && fTable.Update(EverythingOf(7)), "and changes it");
    Expect(fTable.Update(fId == 7, {Set(fText, "set"), Set(fShort, TrustedSql{"short + 1"})}) == 1, "fields are set");
    Expect(fTable.Has(fText == "set" && fShort == 8) && fTable.Update(EverythingOf(7)), "to what they are set to");
    ExpectIntact(120);
  }

  void Select() {
    std::int64_t sum = 0;
    for (const Everything& row : fTable.Select(fShared.fKitTerm).OrderBy(Descending(fId)).Limit(3).Offset(1)) {
      Expect(IsIntact(row), "a selected row is intact");
      sum = sum * 1000 + row.fId;
    }
    Expect(sum == 119118117, "rows come in their order");
    Expect(fTable.Select(fText == "it's 9").First()->fId == 9, "a text is found");
    const Term term = (Like(fText, "it's 1_") || In(fId, {1, 2, 3}) || Between(fReal, 1.0, 1.25)) && !(fId == 2) &&
                      fReal >= 0.0 && fId != 1 && fId <= 200 && fId < 200;
    // 10 to 19, 3, 8 and 9.
    Expect(fTable.Count(Where(term)) == 13, "conditions are put together");
    Expect(fTable.Count() == 120, "all rows are counted");
    Expect(fTable.Select(fReal < 1.0 || fReal > 14.75).Rows().size() == 9, "rows are taken at once");
  }

  void Transact() {
    {
      Transaction transaction(fDatabase);
      fTable.DeleteAll();
      const Transaction inner(fDatabase, WriteLock::kAtOnce);
    }
    ExpectIntact(120);
    const auto move = [this] {
      fTable.Delete(fId == 120);
      return fTable.Insert(EverythingOf(120));
    };
    Expect(InTransaction(fDatabase, move) == 120, "a transaction returns what its work returns");
    Expect(RetryWhileBusy(fDatabase, move) == 120, "so does what is repeated");
    Transaction transaction(fDatabase, WriteLock::kAtOnce);
    fTable.Delete(fId == 120);
    fTable.Insert(EverythingOf(120));
    transaction.Commit();
    ExpectIntact(120);
  }

  void Fail() {
    const auto insert = [this] { fTable.Insert(EverythingOf(1)); };
    try {
      insert();
      Expect(false, "a key is not inserted twice");
    } catch (const Error& error) {
      Expect(error.ExtendedCode() == SQLITE_CONSTRAINT_PRIMARYKEY, "an error has its extended code");
      Expect(error.what() == std::string("UNIQUE constraint failed: everything.id"), "and its message");
    }
    Expect(Throws<Error>([&] { Run(fDatabase, insert); }), "a run passes it on");
    Expect(Throws<std::invalid_argument>([this] { fTable.Delete(Term()); }), "a delete needs a condition");
    Expect(Throws<std::runtime_error>(
               [this] { fDatabase.SendQuery("INSERT INTO everything (id) VALUES (1)", nullptr, nullptr); }),
           "the core throws");
    Expect(ReleaseLeftovers(fDatabase).has_value(), "what it left behind is released");
  }

  void Wait(const std::string& path) {
    SQLDatabase other(path, false);
    other.Open();
    std::optional<Transaction> theirs(std::in_place, other, WriteLock::kAtOnce);
    Patience patience;
    int pauses = 0;
    patience.pause = [&](std::chrono::microseconds) {
      if (++pauses == 3) theirs.reset();
    };
    RetryWhileBusy(
        fDatabase, [this] { fTable.Replace(EverythingOf(1)); }, patience);
    Expect(pauses == 3, "a busy file is tried again");
    ExpectIntact(120);
  }

 private:
  void ExpectIntact(std::int64_t count) {
    std::int64_t id = 0;
    for (const Everything& row : fTable.Select().OrderBy(fId))
      Expect(row.fId == ++id && IsIntact(row), "a row is intact");
    Expect(id == count, "every row is there");
  }

  SQLDatabase fDatabase;
  const Shared& fShared;
  const Field<Everything, std::int64_t> fId = Key("id", &Everything::fId);
  const Field<Everything, std::uint16_t> fShort{"short", &Everything::fShort};
  const Field<Everything, double> fReal{"real", &Everything::fReal};
  const Field<Everything, std::string> fText{"text", &Everything::fText};
  const Field<Everything, std::optional<std::string>> fMaybe{"maybe", &Everything::fMaybe};
  Table<Everything> fTable{fDatabase,
                           "everything",
                           fId,
                           Field("odd", &Everything::fIsOdd),
                           fShort,
                           fReal,
                           Field("small", &Everything::fSmall),
                           fText,
                           Field("characters", &Everything::fCharacters),
                           Field("array", &Everything::fArray),
                           Field("blob", &Everything::fBlob),
                           Field("encoded", &Everything::fEncoded),
                           fMaybe};
  Table<Everything> fFew{fDatabase, "few", fId, fShort, fText, fMaybe};
};

}  // namespace

void TourKit(const std::string& path, const Shared& shared) {
  KitTour tour(path, shared);
  tour.Create();
  tour.Write();
  tour.WriteByCore();
  tour.Change();
  tour.Select();
  tour.Transact();
  tour.Fail();
  tour.Wait(path);
}

}  // namespace threads
