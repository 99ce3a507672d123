// sqldb_threads_test ROWS: writes and checks ROWS rows with eight threads at once, each of which has databases of its
// own, and between them goes through every operation of the core, of the kit and of the catalogue's store. Prints its
// figures, and fails if a row is wrong or an operation does not do what it is to do.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <streambuf>
#include <string>

#include <sqlite3.h>

#include "support/crowd.h"
#include "support/temporary_folder.h"
#include "threads/work.h"

namespace {

constexpr int kThreads = 8;
constexpr std::uint32_t kRowsAtOnce = 1000;
constexpr std::uint32_t kRowsBetweenTours = 50000;
constexpr std::uint32_t kRowsInOneFile = 20;

// What std::clog writes to, so that what several threads write to it can be looked at.
class Log : public std::streambuf {
 public:
  Log() : fOriginal(std::clog.rdbuf(this)) {}
  ~Log() override { std::clog.rdbuf(fOriginal); }

  int fPieces = 0;
  int fTorn = 0;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    const std::string piece(text, static_cast<std::size_t>(size));
    ++fPieces;
    if (piece.compare(0, 3, "- (") != 0 || piece.back() != '\n') ++fTorn;
    return size;
  }
  int_type overflow(int_type character) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    ++fTorn;
    return character;
  }

 private:
  std::mutex fMutex;
  std::streambuf* fOriginal;
};

struct Figures {
  std::atomic<std::uint64_t> fRows{0};
  std::atomic<std::uint64_t> fWrong{0};
  std::atomic<int> fTours{0};
  std::atomic<int> fFailed{0};
};

class Test {
 public:
  Test() { threads::CreateOneFile(fFolder.Path("one")); }

  // All that thread `thread` does.
  void Work(std::uint32_t thread, std::uint32_t rows) {
    threads::Rows inFile(fFolder.Path("rows" + std::to_string(thread)), 2 * thread);
    threads::Rows inMemory(":memory:", 2 * thread + 1);
    std::uint32_t untilTour = 0;
    for (std::uint32_t written = 0; written < rows; written += kRowsAtOnce) {
      if (untilTour == 0) {
        Tour(thread);
        untilTour = kRowsBetweenTours / kRowsAtOnce;
      }
      --untilTour;
      fFigures.fWrong += (untilTour % 2 == 0 ? inFile : inMemory).WriteAndCheck(kRowsAtOnce);
      fFigures.fRows += kRowsAtOnce;
    }
    threads::WriteToOneFile(fFolder.Path("one"), thread, kRowsInOneFile);
  }

  // Returns false unless everything is as it should be.
  bool Finish() {
    threads::CheckOneFile(fFolder.Path("one"), kThreads, kRowsInOneFile);
    // Three for each tour of the core.
    threads::Expect(fLog.fPieces == fFigures.fTours, "the log has every explanation");
    threads::Expect(fLog.fTorn == 0, "and each in one piece");
    return fFigures.fWrong == 0 && fFigures.fFailed == 0;
  }

  Figures fFigures;

 private:
  void Tour(std::uint32_t thread) {
    const std::string path = fFolder.Path(std::to_string(thread) + "-" + std::to_string(++fFolders));
    threads::TourCore(path + "core", fShared);
    threads::TourKit(path + "kit", fShared);
    threads::TourCatalogue(path + "catalogue", fShared);
    threads::HandOver(path + "handed");
    fFigures.fTours += 3;
  }

  support::TemporaryFolder fFolder;
  threads::Shared fShared;
  Log fLog;
  std::atomic<int> fFolders{0};
};

bool Run(std::uint32_t rows) {
  const auto start = std::chrono::steady_clock::now();
  Test test;
  // Each begins at the same moment, and they are as far as that together.
  support::InCrowd(kThreads, 1, [&](int thread) {
    try {
      test.Work(static_cast<std::uint32_t>(thread), rows / kThreads);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "thread %d: %s\n", thread, error.what());
      ++test.fFigures.fFailed;
    }
  });
  const bool isRight = test.Finish();
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%d threads: %llu rows, %llu of them wrong, %d tours, %d threads failed; %.1f s\n", kThreads,
              static_cast<unsigned long long>(test.fFigures.fRows.load()),
              static_cast<unsigned long long>(test.fFigures.fWrong.load()), test.fFigures.fTours.load(),
              test.fFigures.fFailed.load(), elapsed.count());
  return isRight;
}

}  // namespace

int main(int count, char** values) {
  // Without figures about its memory, for which SQLite lets one thread at a time allocate: what that keeps apart would
  // not be seen.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  try {
    threads::Expect(sqlite3_threadsafe() != 0, "SQLite is built for several threads");
    return count == 2 && Run(static_cast<std::uint32_t>(std::strtoul(values[1], nullptr, 10))) ? EXIT_SUCCESS
                                                                                               : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
  }
}
