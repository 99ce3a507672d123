#ifndef SQLDB_TESTS_INTERPOSER_H
#define SQLDB_TESTS_INTERPOSER_H

// The way into the CallRecorder that lives, for the functions that are called in the place of SQLite's.

#include <string>

#include <sqlite3.h>

#include "support/call_recorder.h"

namespace support {

// While one lives nothing is noted or forced.
struct Silence {
  Silence();
  ~Silence();
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
};

class Interposer {
 public:
  // Whether calls are noted now; REQUIRES of all else, but for Simulated and Next.
  static bool Listening();
  // Whether a recorder lives.
  static bool Simulated();

  static sqlite3* ForcedConnection();
  static const unsigned char* ForcedText();

  static void Record(const Call& call);
  static void Sleep(unsigned microseconds);
  // True, and the result in `result`, if this call of `function` is to be forced.
  static bool TakeForced(const std::string& function, int& result);

#ifndef SQLDB_WRAPPED_CALLS
  // The function of this name that comes after the program's own.
  template <typename Function>
  static Function* Next(const char* name) {
    return reinterpret_cast<Function*>(NextSymbol(name));
  }

 private:
  static void* NextSymbol(const char* name);
#endif
};

}  // namespace support

#endif  // SQLDB_TESTS_INTERPOSER_H
