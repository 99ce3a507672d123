#ifndef SQLDB_TESTS_CALL_RECORDER_H
#define SQLDB_TESTS_CALL_RECORDER_H

// Sees every call that the library makes to SQLite and usleep. The test program defines these functions itself, so the
// library's calls arrive here; each is noted and forwarded to the real one, or answered with a forced result.
//
//   CallRecorder recorder;
//   database.BeginTransaction();
//   EXPECT_THAT(recorder.Lines(), ElementsAre("prepare 'BEGIN TRANSACTION' = 0", "step = 101", "finalize = 0"));
//
// usleep never sleeps while a recorder lives: simulated time is `SleptMicroseconds`. Calls that SQLite makes to itself
// are not noted, nor are those made while a CallRecorder::Pause lives.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sqlite3.h>

namespace support {

struct Call {
  // Without the prefix: "open", "close", "errmsg", "prepare", "step", "finalize", "column_int", "column_text",
  // "create_collation", "usleep"; or "note" for CallRecorder::Note.
  std::string function;
  // The path, SQL text, collation's name, column number, microseconds or note; empty for the others.
  std::string text;
  // The connection or statement given.
  const void* handle = nullptr;
  // The result code, or the value of column_int. 0 for errmsg, column_text and notes.
  int result = 0;
  // What came out: the connection of open, the statement of prepare, the text of errmsg and column_text.
  const void* out = nullptr;
  // prepare's length argument, create_collation's encoding.
  int number = 0;

  // "prepare 'SELECT 1' = 0", "step = 100", "errmsg", "usleep 100000", "column_int 0", "note text".
  std::string Line() const;
};

class CallRecorder {
 public:
  // At most one recorder lives at a time.
  CallRecorder();
  ~CallRecorder();
  CallRecorder(const CallRecorder&) = delete;
  CallRecorder& operator=(const CallRecorder&) = delete;

  const std::vector<Call>& Calls() const { return fCalls; }
  std::vector<std::string> Lines() const;
  // The calls of one function.
  std::vector<Call> CallsOf(const std::string& function) const;
  std::size_t Count(const std::string& function) const { return CallsOf(function).size(); }
  // The SQL texts compiled, in order.
  std::vector<std::string> Sql() const;
  std::uint64_t SleptMicroseconds() const { return fSlept; }
  void Clear();

  // Adds a line of the test's own to the record, to show what happened between two calls.
  void Note(const std::string& text);

  // Makes the next `times` calls of `function`, after `skip` untouched ones, return `result`. prepare, step, open,
  // close and create_collation are then not forwarded (a forced step moves nothing, a forced prepare delivers null, a
  // forced open `fForcedConnection`); a forced finalize is forwarded all the same, so that nothing leaks. A
  // forced column_text delivers null, whatever the result.
  void Force(const std::string& function, int result, int times = 1, int skip = 0);

  // What a forced open delivers: null, unless a test plays SQLite handing out a certain address.
  sqlite3* fForcedConnection = nullptr;

  // What column_text delivers, whatever SQLite does; null leaves that to SQLite.
  const char* fForcedText = nullptr;

  // Called after each noted call, with it; calls made inside are not noted.
  std::function<void(const Call&)> fAfterCall;

  // While one lives nothing is noted or forced.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

 private:
  friend class Interposer;

  struct Forced {
    std::string function;
    int result;
    int times;
    int skip;
  };

  std::vector<Call> fCalls;
  std::vector<Forced> fForced;
  std::uint64_t fSlept = 0;
};

}  // namespace support

#endif  // SQLDB_TESTS_CALL_RECORDER_H
