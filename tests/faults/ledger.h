#ifndef SQLDB_TESTS_LEDGER_H
#define SQLDB_TESTS_LEDGER_H

// A table that shows whether transactions came through whole: transaction number n stamps every row with n and adds
// rows stamped n, so that a file holds n times kRowsEach rows, all with the stamp n, for the last one committed.

#include <functional>
#include <memory>
#include <string>

namespace faults {

constexpr int kRowsEach = 20;

// What the file is reached through.
enum class Layer { kCore, kKit, kKitInWalMode };

// A connection to a file with the table, or one to be made.
class Ledger {
 public:
  static std::unique_ptr<Ledger> Open(Layer layer, const std::string& path);

  Ledger() = default;
  virtual ~Ledger() = default;
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  // Makes the table, with small pages and a cache so small that transactions reach the file before they are committed.
  void Make();
  // Reopened connections start with SQLite's usual cache: makes it small again.
  void ShrinkCache();

  virtual void Send(const std::string& sql) = 0;
  // The setting NORMAL, or OFF.
  virtual void Synchronize(bool isOn) = 0;
  // Runs transaction number `stamp`, with a part of its own for each half of it.
  virtual void Transact(int stamp) = 0;
  // Runs it, calls `look` before its end, and rolls it back.
  virtual void RollBack(int stamp, const std::function<void()>& look) = 0;
  virtual int Count() = 0;
  // What is left to the application after a failure.
  virtual void PutInOrder() = 0;
};

// Tells whether the next to open the file will roll a transaction back or, in WAL mode, take over what is committed.
bool HasHotJournal(const std::string& path);

struct Verdict {
  bool isCorrupt = false;
  // The last transaction that is there as a whole; -1 if one is there in part.
  int committed = -1;
};

// Looks at a file with the default VFS; recovers it first if it has a hot journal.
Verdict Inspect(const std::string& path);

// What many rounds found.
struct Tally {
  void Add(const Verdict& verdict, int acknowledged);
  std::string Text() const;

  int rounds = 0;
  int corrupt = 0;
  int partial = 0;
  int lost = 0;
  // Of the lost ones, those that lost more than the transaction acknowledged last.
  int lostSeveral = 0;
};

}  // namespace faults

#endif  // SQLDB_TESTS_LEDGER_H
