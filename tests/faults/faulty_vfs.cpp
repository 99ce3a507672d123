#include "faults/faulty_vfs.h"

#include <filesystem>

#include <sqlite3.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

struct Plan {
  int countdown = 0;  // 0: unarmed
  int code = 0;
  bool persistent = false;
  bool failed = false;
  int operations = 0;
};

Plan plan;
bool paused = false;
sqlite3_vfs* original = nullptr;

// SQLite's file object followed by the original VFS's.
struct File {
  sqlite3_file base;
  sqlite3_file* real;
};

sqlite3_file* RealOf(sqlite3_file* file) { return reinterpret_cast<File*>(file)->real; }

// Counts one operation and returns the code that it is to fail with, or 0. `extended` is what SQLITE_IOERR becomes.
int Strike(int extended, bool isWrite = false) {
  if (paused) return 0;
  if (plan.code != SQLITE_FULL || isWrite) ++plan.operations;
  if (plan.failed && plan.persistent) return plan.code == SQLITE_IOERR ? extended : (isWrite ? plan.code : 0);
  if (plan.countdown == 0 || plan.failed) return 0;
  if (plan.code == SQLITE_FULL && !isWrite) return 0;
  if (--plan.countdown > 0) return 0;
  plan.failed = true;
  return plan.code == SQLITE_IOERR ? extended : plan.code;
}

struct Calls {
  static int Close(sqlite3_file* file) { return RealOf(file)->pMethods->xClose(RealOf(file)); }

  static int Read(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
    if (const int code = Strike(SQLITE_IOERR_READ)) return code;
    return RealOf(file)->pMethods->xRead(RealOf(file), data, size, offset);
  }

  static int Write(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
    if (const int code = Strike(SQLITE_IOERR_WRITE, true)) return code;
    return RealOf(file)->pMethods->xWrite(RealOf(file), data, size, offset);
  }

  static int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    if (const int code = Strike(SQLITE_IOERR_TRUNCATE)) return code;
    return RealOf(file)->pMethods->xTruncate(RealOf(file), size);
  }

  // What matters here is that it was asked for: the power does not fail.
  static int Sync(sqlite3_file*, int) { return Strike(SQLITE_IOERR_FSYNC); }

  static int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    if (const int code = Strike(SQLITE_IOERR_FSTAT)) return code;
    return RealOf(file)->pMethods->xFileSize(RealOf(file), size);
  }

  static int Lock(sqlite3_file* file, int level) {
    if (const int code = Strike(SQLITE_IOERR_LOCK)) return code;
    return RealOf(file)->pMethods->xLock(RealOf(file), level);
  }

  static int Unlock(sqlite3_file* file, int level) { return RealOf(file)->pMethods->xUnlock(RealOf(file), level); }

  static int CheckReservedLock(sqlite3_file* file, int* result) {
    if (const int code = Strike(SQLITE_IOERR_CHECKRESERVEDLOCK)) return code;
    return RealOf(file)->pMethods->xCheckReservedLock(RealOf(file), result);
  }

  static int FileControl(sqlite3_file* file, int operation, void* argument) {
    return RealOf(file)->pMethods->xFileControl(RealOf(file), operation, argument);
  }

  static int SectorSize(sqlite3_file* file) { return RealOf(file)->pMethods->xSectorSize(RealOf(file)); }

  static int DeviceCharacteristics(sqlite3_file* file) {
    return RealOf(file)->pMethods->xDeviceCharacteristics(RealOf(file));
  }
};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  file->pMethods = nullptr;
  if (const int code = Strike(SQLITE_CANTOPEN)) return code;
  File* const wrapper = reinterpret_cast<File*>(file);
  wrapper->real = reinterpret_cast<sqlite3_file*>(wrapper + 1);
  const int result = original->xOpen(original, name, wrapper->real, flags, outFlags);
  if (wrapper->real->pMethods != nullptr) file->pMethods = &kMethodsOf<Calls>;
  return result;
}

int Delete(sqlite3_vfs*, const char* name, int syncFolder) {
  if (const int code = Strike(SQLITE_IOERR_DELETE)) return code;
  return original->xDelete(original, name, syncFolder);
}

int Access(sqlite3_vfs*, const char* name, int flags, int* result) {
  if (const int code = Strike(SQLITE_IOERR_ACCESS)) return code;
  return original->xAccess(original, name, flags, result);
}

}  // namespace

FaultyVfs::FaultyVfs()
    : fVfs("faulty", [](sqlite3_vfs& vfs) {
        original = sqlite3_vfs_find(nullptr);
        vfs.szOsFile += static_cast<int>(sizeof(File));
        vfs.xOpen = Open;
        vfs.xDelete = Delete;
        vfs.xAccess = Access;
      }) {}

void FaultyVfs::FailAt(int n, int code, bool persistent) { plan = Plan{n, code, persistent, false, 0}; }

void FaultyVfs::Disarm() {
  plan.countdown = 0;
  plan.persistent = false;
}

void FaultyVfs::Pause(bool isPaused) { paused = isPaused; }

bool FaultyVfs::HasFailed() const { return plan.failed; }

int FaultyVfs::Operations() const { return plan.operations; }

void CopyWithJournal(const std::string& from, const std::string& to) {
  RemoveDatabase(to);
  for (const char* suffix : {"", "-journal"}) {
    if (std::filesystem::exists(from + suffix)) std::filesystem::copy_file(from + suffix, to + suffix);
  }
}

}  // namespace faults
