// Files damaged in every way, through every operation of the library. Meant to run under a sanitizer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/make_shared.hpp>

#include "faults/faulty_vfs.h"
#include "faults/kit_scenarios.h"
#include "faults/scenarios.h"
#include "support/fixtures.h"

namespace {

using faults::Outcome;

constexpr std::size_t kPageSize = 512;
constexpr int kFiles = 3000;

// Always the same numbers, with every standard library.
class Dice {
 public:
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(fEngine() % limit); }

 private:
  std::mt19937_64 fEngine{20240229};
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void FlipBits(std::string& bytes, Dice& dice) {
  for (std::size_t left = 1 + dice.Below(20); left != 0; --left) {
    char& byte = bytes[dice.Below(bytes.size())];
    byte = static_cast<char>(byte ^ (1 << dice.Below(8)));
  }
}

// Where the schema and the root pages are, every bit matters.
void FlipBitsInFront(std::string& bytes, Dice& dice) {
  for (std::size_t left = 1 + dice.Below(4); left != 0; --left) {
    char& byte = bytes[16 + dice.Below(4 * kPageSize - 16)];
    byte = static_cast<char>(byte ^ (1 << dice.Below(8)));
  }
}

void ZeroRange(std::string& bytes, Dice& dice) {
  const std::size_t start = dice.Below(bytes.size());
  const std::size_t length = std::min(1 + dice.Below(1500), bytes.size() - start);
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(start), length, '\0');
}

void Truncate(std::string& bytes, Dice& dice) { bytes.resize(dice.Below(bytes.size())); }

void OverwriteWithNoise(std::string& bytes, Dice& dice) {
  const std::size_t start = dice.Below(bytes.size());
  const std::size_t length = std::min(1 + dice.Below(600), bytes.size() - start);
  for (std::size_t i = 0; i < length; ++i) bytes[start + i] = static_cast<char>(dice.Below(256));
}

void SwapPages(std::string& bytes, Dice& dice) {
  const std::size_t pages = bytes.size() / kPageSize;
  const auto page = [&](std::size_t number) { return bytes.begin() + static_cast<std::ptrdiff_t>(number * kPageSize); };
  const std::size_t one = dice.Below(pages);
  const std::size_t other = (one + 1 + dice.Below(pages - 1)) % pages;
  std::swap_ranges(page(one), page(one) + kPageSize, page(other));
}

class DamagedFiles : public ::testing::Test {
 protected:
  DamagedFiles() {
    faults::MakeStock(fPath);
    {
      support::OtherConnection file(fPath);
      file.Run(
          "CREATE INDEX items_by_qty ON items (qty);"
          "CREATE TABLE names (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE COLLATE NOCASE);"
          "CREATE VIEW cheap AS SELECT * FROM items WHERE qty < 3;"
          "CREATE TRIGGER logged AFTER DELETE ON items BEGIN INSERT OR REPLACE INTO log VALUES (old.id + 5000, "
          "old.qty); END;"
          // The last ones need overflow pages.
          "INSERT INTO names SELECT id, 'name ' || id || hex(zeroblob(id * 3)) FROM items WHERE id % 7 = 0;");
    }
    fSound = ReadFile(fPath);
  }

  // Any exception but a runtime_error ends the test.
  void Try(const std::function<void()>& action) {
    const Outcome outcome = faults::OutcomeOf(action);
    ++fOperations;
    if (outcome == Outcome::kRuntimeError) ++fRefused;
    if (outcome == Outcome::kBadAlloc || outcome == Outcome::kOther) ++fStrangers;
  }

  // Goes through every operation, each on what the earlier ones left of the file. Returns false if nothing failed.
  bool Work() {
    const int refusedBefore = fRefused;
    sqldb::SQLDatabase database(fPath, false);
    Try([&] { database.Open(); });
    // Spares the waits for a real disk.
    Try([&] { database.SetSynchronizationLevel(false); });
    const std::vector<std::string> atTheEnd = {"delete every record", "synchronization", "drop table"};
    for (const faults::Scenario& scenario : faults::Scenarios()) {
      // The long one does what the nested one does, many times.
      if (scenario.name == "long transaction" || std::count(atTheEnd.begin(), atTheEnd.end(), scenario.name) != 0) {
        continue;
      }
      TryOn(database, scenario);
    }
    const auto names = database.NewTable("names");
    names->AddColumn(support::MakeColumn("name"));
    Try([&] { names->CountRecords(support::MakeTerm(" name LIKE 'name 1%'")); });
    Try([&] { names->HasTerm(support::MakeTerm(" id = 14")); });
    Try([&] {
      auto select = database.NewSelect(names, 0);
      select << names->GetColumn("name");
      select->fOrder = {{names->GetColumn("name"), 1}};
      sqldb::OffsetSpec offsets;
      offsets.PushOffset(0, 0);
      const auto cursor = boost::make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&database, offsets);
      select->PrepareSelect(cursor);
      std::uint32_t value = 0;
      while (cursor->Step(value) == 0) {
      }
    });
    Try([&] { database.SendQuery("REINDEX", nullptr, nullptr); });
    Try([&] { database.SendQuery("VACUUM", nullptr, nullptr); });
    Try([&] { names->Drop(); });
    for (const std::string& name : atTheEnd) {
      for (const faults::Scenario& scenario : faults::Scenarios()) {
        if (scenario.name == name) TryOn(database, scenario);
      }
    }
    support::FinalizeLeftovers(database.fConnection);
    Try([&] { database.Close(); });
    // A refused close leaves a connection that still answers; an accepted one gives the "out of memory" of none.
    if (support::MessageOf([&] { database.SendQuery("SELECT 1", nullptr, nullptr); }) != "out of memory") {
      ++fUnclosed;
      sqlite3_close_v2(database.fConnection);
    }
    return fRefused != refusedBefore;
  }

  // The same through the kit, which is to leave nothing that would have to be put in order.
  bool WorkThroughKit() {
    const int refusedBefore = fRefused;
    const int misreadBefore = fMisread;
    faults::KitWork work;
    work.path = fPath;
    Try([&] { faults::OpenDatabase(work); });
    const std::vector<std::string> others = {"drop table", "long transaction", "many statements",
                                             "select by a large term", "update by a large term"};
    // What takes rows away comes at the end.
    for (const bool deletes : {false, true}) {
      for (const faults::KitScenario& scenario : faults::KitScenarios()) {
        const bool isOther = std::count(others.begin(), others.end(), scenario.name) != 0;
        if (isOther || scenario.opens || scenario.hasOther) continue;
        if (deletes == (scenario.name.rfind("delete", 0) == 0)) TryThroughKit(work, scenario.run);
      }
    }
    for (const char* sql : {"SELECT name FROM names ORDER BY name", "SELECT id FROM cheap"}) {
      TryThroughKit(work, [&](faults::KitWork&) { work.database->All<std::optional<std::string>>(sql); });
    }
    for (const char* sql : {"REINDEX", "VACUUM"}) {
      TryThroughKit(work, [&](faults::KitWork&) { work.database->Execute(sql); });
    }
    Try([&] {
      if (work.database) work.database->Execute("DROP TABLE names");
    });
    if (!faults::CloseDatabase(work)) ++fUnclosed;
    return fRefused != refusedBefore || fMisread != misreadBefore;
  }

  void TryThroughKit(faults::KitWork& work, const std::function<void(faults::KitWork&)>& run) {
    if (!work.database) return;
    Try([&] {
      try {
        run(work);
      } catch (const std::logic_error&) {
        // The answers of a damaged file are none of the kit's.
        ++fMisread;
      }
    });
    if (!faults::LeftBehind(work).empty()) ++fLeftBehind;
    // What it added would be in the way of the next one.
    const char* const addition = "DROP TABLE IF EXISTS fresh; DELETE FROM items WHERE id > 300; DELETE FROM log";
    Try([&] { work.database->ExecuteScript(addition); });
  }

  void TryOn(sqldb::SQLDatabase& database, const faults::Scenario& scenario) {
    Try([&] { scenario.run(database); });
    // What a failure left is put in order, so that the next one is not merely a failure of this one.
    support::FinalizeLeftovers(database.fConnection);
    if (sqlite3_get_autocommit(database.fConnection) == 0) Try([&] { database.EndTransaction(false, true); });
    database.fTransactionDepth = 0;
    database.fTransactionOK = true;
  }

  // Never told to fail: it spares the waits for a real disk.
  faults::FaultyVfs fVfs;
  support::TemporaryFolder fFolder;
  const std::string fPath = fFolder.Path("damaged.db");
  std::string fSound;
  int fOperations = 0;
  int fRefused = 0;
  int fStrangers = 0;
  int fMisread = 0;
  int fLeftBehind = 0;
  int fUnclosed = 0;
};

TEST_F(DamagedFiles, OnlyRuntimeErrorsLeaveAnyOperation) {
  EXPECT_FALSE(Work()) << "the undamaged file does not pass";
  std::ofstream(fPath, std::ios::binary) << fSound;
  WorkThroughKit();
  EXPECT_EQ(fRefused, 0) << "the undamaged file does not pass";
  fMisread = 0;

  using Damage = std::pair<const char*, void (*)(std::string&, Dice&)>;
  const std::vector<Damage> damages = {
      {"bits", FlipBits},      {"front bits", FlipBitsInFront}, {"zeroes", ZeroRange},
      {"truncated", Truncate}, {"noise", OverwriteWithNoise},   {"swapped pages", SwapPages}};
  Dice dice;
  int harmless = 0;
  int files = 0;
  int filesOfKit = 0;
  for (; files < kFiles; ++files) {
    std::string bytes = fSound;
    damages[static_cast<std::size_t>(files) % damages.size()].second(bytes, dice);
    faults::RemoveDatabase(fPath);
    std::ofstream(fPath, std::ios::binary) << bytes;
    // All kinds of damage come to both.
    const bool isOfKit = static_cast<std::size_t>(files) / damages.size() % 2 != 0;
    if (isOfKit) ++filesOfKit;
    if (!(isOfKit ? WorkThroughKit() : Work())) ++harmless;
  }
  std::printf(
      "damaged files: %d, %d of them through the kit, %d without effect, %d operations, %d refused, %d foreign "
      "exceptions, %d left behind, %d closes refused\n",
      files, filesOfKit, harmless, fOperations, fRefused, fStrangers, fLeftBehind, fUnclosed);
  EXPECT_GE(files, 3000);
  // The damage must be felt.
  EXPECT_LT(harmless, files / 2);
  EXPECT_EQ(fStrangers, 0);
  EXPECT_EQ(fLeftBehind, 0);
  EXPECT_EQ(fUnclosed, 0);
}

}  // namespace
