// Eight processes write to one file, and two read it row by row, all at once.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/make_shared.hpp>

#include "support/fixtures.h"

namespace {

using boost::make_shared;
using sqldb::SQLCursorBase;
using sqldb::SQLDatabase;
using sqldb::SQLInsertClass;
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
  int retries;    // writes that found the file busy
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

Table DeclareItems(SQLDatabase& database) {
  const Table items = database.NewTable("items");
  items->AddColumn(make_shared<IntegerColumn>(items.get(), "id", false, true, true, ""));
  return items;
}

// ---------------------------------------------------------------------------------------------------------------------
// What an application does about a file that another process is writing to.

bool IsHeldBy(const std::vector<SQLCursorBase*>& cursors, const sqlite3_stmt* statement) {
  for (const SQLCursorBase* const cursor : cursors) {
    const auto* const stepCursor = dynamic_cast<const sqldb::SQLStepCursorBase*>(cursor);
    if (stepCursor != nullptr && stepCursor->fStatement == statement) return true;
  }
  return false;
}

// A query that failed leaves its statement behind, which would keep this connection from committing anything and other
// processes from writing.
void FinalizeFailedStatements(SQLDatabase& database) {
  sqlite3_stmt* statement = sqlite3_next_stmt(database.fConnection, nullptr);
  while (statement != nullptr) {
    sqlite3_stmt* const next = sqlite3_next_stmt(database.fConnection, statement);
    if (!IsHeldBy(database.fCursors, statement)) sqlite3_finalize(statement);
    statement = next;
  }
}

// Runs `action` until the file is not busy. `pause` is told how often it was, and waits.
template <typename Action, typename Pause>
void RetryWhileBusy(SQLDatabase& database, Action action, Pause pause) {
  for (int busy = 1;; ++busy) {
    try {
      action();
      return;
    } catch (const std::runtime_error&) {
      const bool isBusy = sqlite3_errcode(database.fConnection) == SQLITE_BUSY;
      FinalizeFailedStatements(database);
      if (!isBusy) throw;
    }
    pause(busy);
  }
}

// ---------------------------------------------------------------------------------------------------------------------

// Gives up rather than hang the test.
class RandomPause {
 public:
  RandomPause(unsigned seed, SharedFigures& figures) : fRandom(seed), fFigures(figures) {}

  void operator()(int busy) {
    if (busy > kPatience) throw std::runtime_error("the file was busy for too long");
    CountUp(fFigures->retries);
    usleep(fMicroseconds(fRandom));
  }

 private:
  static constexpr int kPatience = 20000;

  std::mt19937 fRandom;
  std::uniform_int_distribution<useconds_t> fMicroseconds{100, 3000};
  SharedFigures& fFigures;
};

void InsertAll(SQLDatabase& database, int writer, bool synchronized, SharedFigures& figures) {
  const Table items = DeclareItems(database);
  const boost::shared_ptr<SQLInsertClass> insert = items->NewInsert();
  insert->fColumns = {items->GetColumn("id")};
  RandomPause pause(static_cast<unsigned>(writer), figures);
  const auto choose = [&] { database.SetSynchronizationLevel(false); };
  if (!synchronized) RetryWhileBusy(database, choose, [&](int busy) { pause(busy); });
  for (int i = 0; i < kWritesEach; ++i) {
    insert->fValues = {make_shared<BoundInteger>(writer * kWritesEach + i)};
    const auto write = [&] {
      // What is left in it would be sent again, in front of this text.
      insert->fQuery.str("");
      insert->PerformInsert(true);
    };
    RetryWhileBusy(database, write, [&](int busy) { pause(busy); });
  }
}

// The number of rows that a step cursor delivers.
int CountByStepping(SQLDatabase& database, const Table& items, RandomPause& pause) {
  const auto select = database.NewSelect(items, 0);
  select->fColumns.push_back(items->GetColumn("id"));
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  const auto cursor = make_shared<sqldb::SQLStepCursor<std::uint32_t>>(&database, offsets);
  // Compiling reads the schema, and does not wait as stepping does. Not PrepareSelect: a select is set up once.
  select->SetupSelect(cursor);
  const auto prepare = [&] { cursor->PrepareToQuery(select->fQuery); };
  RetryWhileBusy(database, prepare, [&](int busy) { pause(busy); });
  std::uint32_t id = 0;
  while (cursor->Step(id) == 0) {
  }
  return static_cast<int>(cursor->fRowCount);
}

void CountUntilWritersEnd(SQLDatabase& database, int reader, SharedFigures& figures) {
  const Table items = DeclareItems(database);
  RandomPause pause(static_cast<unsigned>(kWriters + reader), figures);
  int seen = 0;
  bool isLast = false;
  while (!isLast) {
    isLast = Current(figures->finished) == kWriters;
    const int count = CountByStepping(database, items, pause);
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

TEST(Contention, EveryRowIsWrittenOnceAndReadersNeverSeeFewer) {
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
      const auto count = [&, i](SQLDatabase& database) { CountUntilWritersEnd(database, i, figures); };
      processes.push_back(Start(path, count));
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
        "contention, repeat %d: %d of %d processes closed in good order; rows, distinct, first and last %s; "
        "%d busy writes retried, %d reads, %d of them in between, %d saw fewer rows\n",
        repeat, succeeded, kWriters + kReaders, rows[0].c_str(), figures->retries, figures->reads, figures->overlaps,
        figures->decreases);
    EXPECT_EQ(succeeded, kWriters + kReaders);
    const std::string count = std::to_string(kWrites);
    EXPECT_EQ(rows[0], count + "|" + count + "|0|" + std::to_string(kWrites - 1));
    EXPECT_EQ(file.Run("PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    // Without these there was no contention to pass.
    EXPECT_GT(figures->retries, 0);
    EXPECT_GT(figures->overlaps, 0);
    EXPECT_EQ(figures->decreases, 0);
  }
}

}  // namespace
