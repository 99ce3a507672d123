// Eight processes write to one file, and two read it row by row, all at once, with the kit's functions and no further
// care.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/make_shared.hpp>

#include "sqldb/kit/bulk.h"
#include "sqldb/kit/retry.h"
#include "support/fixtures.h"

namespace {

using boost::make_shared;
using sqldb::SQLDatabase;
using sqldb::kit::InTransaction;
using sqldb::kit::Patience;
using sqldb::kit::RetryWhileBusy;
using support::BoundInteger;
using support::IntegerColumn;

using Table = boost::shared_ptr<sqldb::SQLTableClass>;

constexpr int kRepeats = 5;
constexpr int kWriters = 8;
constexpr int kReaders = 2;
constexpr int kWritesEach = 500;
constexpr int kWrites = kWriters * kWritesEach;

// What the processes tell each other.
struct Figures {
  int pauses;     // how often a process found the file busy and paused
  int reads;      // whole passes over the table
  int overlaps;   // passes that saw some but not all rows
  int decreases;  // passes that saw fewer rows than the one before
  int finished;   // writers that have ended, well or not
};

// Lies in memory that all the processes share, and is counted up with atomic operations.
class SharedFigures {
 public:
  SharedFigures()
      : fFigures(static_cast<Figures*>(
            mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedFigures() { munmap(fFigures, sizeof(Figures)); }
  SharedFigures(const SharedFigures&) = delete;
  SharedFigures& operator=(const SharedFigures&) = delete;

  Figures* operator->() { return fFigures; }

 private:
  Figures* fFigures;
};

void CountUp(int& figure) { __atomic_add_fetch(&figure, 1, __ATOMIC_SEQ_CST); }
int Current(const int& figure) { return __atomic_load_n(&figure, __ATOMIC_SEQ_CST); }

// Counts up at the end of its scope, so that others do not wait for a process that failed.
class Notice {
 public:
  explicit Notice(int& figure) : fFigure(figure) {}
  ~Notice() { CountUp(fFigure); }
  Notice(const Notice&) = delete;
  Notice& operator=(const Notice&) = delete;

 private:
  int& fFigure;
};

// The kit's own, with its pauses counted.
Patience Counting(SharedFigures& figures) {
  Patience patience;
  patience.pause = [&figures](std::chrono::microseconds pause) {
    CountUp(figures->pauses);
    std::this_thread::sleep_for(pause);
  };
  return patience;
}

Table DeclareItems(SQLDatabase& database) {
  const Table items = database.NewTable("items");
  items->AddColumn(make_shared<IntegerColumn>(items.get(), "id", false, true, true, ""));
  return items;
}

void Insert(const Table& items, int id) {
  const auto insert = items->NewInsert();
  insert->fColumns = {items->GetColumn("id")};
  insert->fValues = {make_shared<BoundInteger>(id)};
  insert->PerformInsert(true);
}

// In turn single writes, transactions that read before they write, and such as write several rows at once.
void InsertAll(SQLDatabase& database, int writer, bool synchronized, SharedFigures& figures) {
  const Table items = DeclareItems(database);
  const Patience patience = Counting(figures);
  if (!synchronized)
    RetryWhileBusy(
        database, [&] { database.SetSynchronizationLevel(false); }, patience);
  const int end = (writer + 1) * kWritesEach;
  int id = writer * kWritesEach;
  while (id < end) {
    RetryWhileBusy(
        database, [&] { Insert(items, id); }, patience);
    ++id;
    const auto readAndWrite = [&] {
      const std::uint32_t count = items->CountRecords(nullptr);
      Insert(items, id);
      if (items->CountRecords(nullptr) != count + 1) throw std::runtime_error("another wrote in between");
    };
    InTransaction(database, readAndWrite, patience);
    ++id;
    const std::vector<int> several{id, id + 1, id + 2};
    sqldb::kit::BulkOptions options;
    options.batch = 2;
    options.patience = patience;
    const auto bind = [](sqlite3_stmt* statement, int value) { sqlite3_bind_int(statement, 1, value); };
    sqldb::kit::InsertMany(database, "INSERT INTO items (id) VALUES (?)", several, bind, options);
    id += static_cast<int>(several.size());
  }
}

// The number of rows that a step cursor delivers.
int CountByStepping(SQLDatabase& database, const Table& items) {
  const auto select = database.NewSelect(items, 0);
  select->fColumns.push_back(items->GetColumn("id"));
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  const auto cursor = make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&database, offsets);
  select->PrepareSelect(cursor);
  std::uint32_t id = 0;
  while (cursor->Step(id) == 0) {
  }
  return static_cast<int>(cursor->fRowCount);
}

void CountUntilWritersEnd(SQLDatabase& database, SharedFigures& figures) {
  const Table items = DeclareItems(database);
  const Patience patience = Counting(figures);
  int seen = 0;
  bool isLast = false;
  while (!isLast) {
    isLast = Current(figures->finished) == kWriters;
    const int count = RetryWhileBusy(
        database, [&] { return CountByStepping(database, items); }, patience);
    CountUp(figures->reads);
    if (count < seen) CountUp(figures->decreases);
    if (count > 0 && count < kWrites) CountUp(figures->overlaps);
    seen = count;
  }
  if (seen != kWrites) throw std::runtime_error("the last count is " + std::to_string(seen));
}

// Starts a process that does its work on a connection of its own, and succeeds if nothing is thrown and SQLite accepts
// the close.
pid_t Start(const std::string& path, const std::function<void(SQLDatabase&)>& work) {
  const pid_t process = fork();
  if (process != 0) return process;
  int status = EXIT_FAILURE;
  try {
    SQLDatabase database(path, false);
    database.Open();
    work(database);
    const int closed = sqlite3_close(database.fConnection);
    database.fIsOpen = false;
    if (closed == SQLITE_OK) status = EXIT_SUCCESS;
    if (closed != SQLITE_OK) std::fprintf(stderr, "the close was refused with %d\n", closed);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "a process failed: %s\n", error.what());
  }
  // The test's own objects belong to its first process.
  std::_Exit(status);
}

TEST(KitContention, EveryRowIsWrittenOnceAndReadersNeverSeeFewer) {
  for (int repeat = 1; repeat <= kRepeats; ++repeat) {
    // Once as files are written by default; then without waiting for the disk, so that locks are all that slows down.
    const bool synchronized = repeat == 1;
    support::TemporaryFolder folder;
    const std::string path = folder.Path("work.db");
    {
      SQLDatabase database(path, false);
      database.Open();
      DeclareItems(database)->Create();
    }
    SharedFigures figures;
    std::vector<pid_t> processes;
    for (int i = 0; i < kWriters; ++i) {
      const auto insert = [&, i](SQLDatabase& database) {
        const Notice finished(figures->finished);
        InsertAll(database, i, synchronized, figures);
      };
      processes.push_back(Start(path, insert));
    }
    for (int i = 0; i < kReaders; ++i) {
      processes.push_back(Start(path, [&](SQLDatabase& database) { CountUntilWritersEnd(database, figures); }));
    }
    int succeeded = 0;
    for (const pid_t process : processes) {
      int status = 0;
      ASSERT_EQ(waitpid(process, &status, 0), process);
      if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) ++succeeded;
    }

    support::OtherConnection file(path);
    const std::vector<std::string> rows = file.Run("SELECT count(*), count(DISTINCT id), min(id), max(id) FROM items");
    std::printf(
        "contention with the kit, repeat %d: %d of %d processes closed in good order; rows, distinct, first and last "
        "%s; %d pauses, %d reads, %d of them in between, %d saw fewer rows\n",
        repeat, succeeded, kWriters + kReaders, rows[0].c_str(), figures->pauses, figures->reads, figures->overlaps,
        figures->decreases);
    EXPECT_EQ(succeeded, kWriters + kReaders);
    const std::string count = std::to_string(kWrites);
    EXPECT_EQ(rows[0], count + "|" + count + "|0|" + std::to_string(kWrites - 1));
    EXPECT_EQ(file.Run("PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    // Without these there was no contention to pass.
    EXPECT_GT(figures->pauses, 0);
    EXPECT_GT(figures->overlaps, 0);
    EXPECT_EQ(figures->decreases, 0);
  }
}

}  // namespace
