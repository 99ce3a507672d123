#include "faults/ledger.h"

#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "sqldb/kit/kit.h"
#include "sqldb/sqldb.h"
#include "support/fixtures.h"

namespace faults {

namespace {

class CoreLedger : public Ledger {
 public:
  explicit CoreLedger(const std::string& path) : fDatabase(path, false) { fDatabase.Open(); }

  void Send(const std::string& sql) override { fDatabase.SendQuery(sql, nullptr, nullptr); }
  void Synchronize(bool isOn) override { fDatabase.SetSynchronizationLevel(isOn); }

  void Transact(int stamp) override {
    const std::string value = std::to_string(stamp);
    fDatabase.BeginTransaction();
    fDatabase.BeginTransaction();
    Send("UPDATE ledger SET stamp = " + value);
    fDatabase.EndTransaction(true, false);
    fDatabase.BeginTransaction();
    for (int i = 0; i < kRowsEach; ++i) Send("INSERT INTO ledger VALUES (" + value + ", hex(randomblob(100)))");
    fDatabase.EndTransaction(true, false);
    fDatabase.EndTransaction(true, false);
  }

  void RollBack(int stamp, const std::function<void()>& look) override {
    fDatabase.BeginTransaction();
    Transact(stamp);
    look();
    fDatabase.EndTransaction(false, true);
  }

  int Count() override { return static_cast<int>(fDatabase.NewTable("ledger")->CountRecords(nullptr)); }
  void PutInOrder() override { support::FinalizeLeftovers(fDatabase.fConnection); }

 private:
  sqldb::SQLDatabase fDatabase;
};

using namespace sqldb::kit;

struct Row {
  int stamp = 0;
  std::string filling;

  static constexpr auto Description() {
    return Describe("ledger", Field("stamp", &Row::stamp), Field("filling", &Row::filling));
  }
};

class KitLedger : public Ledger {
 public:
  KitLedger(const std::string& path, bool isInWalMode) : fDatabase(path, OptionsFor(isInWalMode)) {}

  void Send(const std::string& sql) override { fDatabase.Execute(sql); }
  void Synchronize(bool isOn) override { Send(isOn ? "PRAGMA synchronous = NORMAL" : "PRAGMA synchronous = OFF"); }

  void Transact(int stamp) override {
    constexpr int kHalf = kRowsEach / 2;
    Transaction transaction(fDatabase);
    InTransaction(fDatabase, [&] { fDatabase.Execute("UPDATE ledger SET stamp = ?", stamp); });
    Savepoint savepoint(fDatabase);
    for (int i = 0; i < kHalf; ++i) fDatabase.Execute("INSERT INTO ledger VALUES (?, hex(randomblob(100)))", stamp);
    Table<Row>(fDatabase).InsertMany(std::vector<Row>(kRowsEach - kHalf, Row{stamp, std::string(200, 'x')}));
    savepoint.Release();
    transaction.Commit();
  }

  void RollBack(int stamp, const std::function<void()>& look) override {
    const Transaction transaction(fDatabase);
    Transact(stamp);
    look();
  }

  int Count() override { return fDatabase.One<int>("SELECT COUNT(*) FROM ledger"); }
  void PutInOrder() override {}

 private:
  static Options OptionsFor(bool isInWalMode) {
    Options options;
    options.wal = isInWalMode;
    return options;
  }

  Database fDatabase;
};

}  // namespace

std::unique_ptr<Ledger> Ledger::Open(Layer layer, const std::string& path) {
  if (layer == Layer::kCore) return std::make_unique<CoreLedger>(path);
  return std::make_unique<KitLedger>(path, layer == Layer::kKitInWalMode);
}

void Ledger::Make() {
  Send("PRAGMA page_size = 512");
  ShrinkCache();
  Send("CREATE TABLE ledger (stamp INTEGER, filling TEXT)");
}

void Ledger::ShrinkCache() { Send("PRAGMA cache_size = 4"); }

bool HasHotJournal(const std::string& path) {
  // Until a journal is complete, zeros stand in the place of its header.
  return std::ifstream(path + "-journal", std::ios::binary).get() > 0 ||
         std::ifstream(path + "-wal", std::ios::binary).get() > 0;
}

Verdict Inspect(const std::string& path) {
  Verdict verdict;
  sqlite3* connection = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
  std::vector<std::string> found;
  const auto collect = [](void* list, int count, char** values, char**) {
    for (int i = 0; i < count; ++i) static_cast<std::vector<std::string>*>(list)->push_back(values[i]);
    return 0;
  };
  const int checked = sqlite3_exec(connection, "PRAGMA integrity_check", collect, &found, nullptr);
  verdict.isCorrupt = checked != SQLITE_OK || found != std::vector<std::string>{"ok"};
  found.clear();
  const char* const summary = "SELECT count(*), ifnull(min(stamp), 0), ifnull(max(stamp), 0) FROM ledger";
  if (!verdict.isCorrupt && sqlite3_exec(connection, summary, collect, &found, nullptr) == SQLITE_OK) {
    const int stamp = std::stoi(found[1]);
    const bool isWhole = found[1] == found[2] && std::stoi(found[0]) == stamp * kRowsEach;
    if (isWhole) verdict.committed = stamp;
  }
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  return verdict;
}

void Tally::Add(const Verdict& verdict, int acknowledged) {
  ++rounds;
  if (verdict.isCorrupt) {
    ++corrupt;
  } else if (verdict.committed < 0) {
    ++partial;
  } else if (verdict.committed < acknowledged) {
    ++lost;
    if (verdict.committed < acknowledged - 1) ++lostSeveral;
  }
}

std::string Tally::Text() const {
  return std::to_string(rounds) + " rounds, " + std::to_string(corrupt) + " corrupt, " + std::to_string(partial) +
         " partial, " + std::to_string(lost) + " acknowledged but lost";
}

}  // namespace faults
