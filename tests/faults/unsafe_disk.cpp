#include "faults/unsafe_disk.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <sqlite3.h>

namespace faults {

namespace {

UnsafeDisk* disk = nullptr;

struct Handle {
  sqlite3_file base;
  std::shared_ptr<UnsafeDisk::File>* file;
  bool syncsFolder;
};

UnsafeDisk::File& FileOf(sqlite3_file* handle) { return **reinterpret_cast<Handle*>(handle)->file; }

void Apply(std::vector<char>& contents, const UnsafeDisk::Change& change) {
  const std::size_t offset = static_cast<std::size_t>(change.offset);
  if (change.isTruncation) {
    contents.resize(offset);
    return;
  }
  if (contents.size() < offset + change.data.size()) contents.resize(offset + change.data.size());
  std::copy(change.data.begin(), change.data.end(), contents.data() + offset);
}

void Add(UnsafeDisk::File& file, UnsafeDisk::Change change) {
  Apply(file.current, change);
  file.pending.push_back(std::move(change));
}

struct Calls {
  static int Close(sqlite3_file* handle) {
    Handle* const own = reinterpret_cast<Handle*>(handle);
    delete own->file;
    return SQLITE_OK;
  }

  static int Read(sqlite3_file* handle, void* data, int size, sqlite3_int64 offset) {
    if (!disk->HasPower()) return SQLITE_IOERR_READ;
    const std::vector<char>& contents = FileOf(handle).current;
    const std::size_t wanted = static_cast<std::size_t>(size);
    const std::size_t begin = std::min(contents.size(), static_cast<std::size_t>(offset));
    const std::size_t found = std::min(wanted, contents.size() - begin);
    if (found != 0) std::memcpy(data, contents.data() + begin, found);
    if (found == wanted) return SQLITE_OK;
    std::memset(static_cast<char*>(data) + found, 0, wanted - found);
    return SQLITE_IOERR_SHORT_READ;
  }

  static int Write(sqlite3_file* handle, const void* data, int size, sqlite3_int64 offset) {
    const char* const bytes = static_cast<const char*>(data);
    // The write during which the power fails may reach the disk in part.
    if (disk->HasPower()) Add(FileOf(handle), {offset, std::vector<char>(bytes, bytes + size), false});
    return disk->Operate() ? SQLITE_OK : SQLITE_IOERR_WRITE;
  }

  static int Truncate(sqlite3_file* handle, sqlite3_int64 size) {
    if (disk->HasPower()) Add(FileOf(handle), {size, {}, true});
    return disk->Operate() ? SQLITE_OK : SQLITE_IOERR_TRUNCATE;
  }

  static int Sync(sqlite3_file* handle, int) {
    if (!disk->Operate()) return SQLITE_IOERR_FSYNC;
    UnsafeDisk::File& file = FileOf(handle);
    file.synced = file.current;
    file.pending.clear();
    // As SQLite's own file system does it: the first sync of a new journal is one of its folder too.
    bool& syncsFolder = reinterpret_cast<Handle*>(handle)->syncsFolder;
    if (syncsFolder) disk->SyncFolder();
    syncsFolder = false;
    return SQLITE_OK;
  }

  static int FileSize(sqlite3_file* handle, sqlite3_int64* size) {
    *size = static_cast<sqlite3_int64>(FileOf(handle).current.size());
    return SQLITE_OK;
  }

  static int Lock(sqlite3_file*, int) { return disk->HasPower() ? SQLITE_OK : SQLITE_IOERR_LOCK; }
  static int Unlock(sqlite3_file*, int) { return SQLITE_OK; }
  static int CheckReservedLock(sqlite3_file*, int* result) {
    *result = 0;
    return SQLITE_OK;
  }
  static int FileControl(sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; }
  static int SectorSize(sqlite3_file*) { return 512; }
  // Nothing is promised, above all not that a write leaves its neighbours alone when the power fails.
  static int DeviceCharacteristics(sqlite3_file*) { return 0; }
};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* handle, int flags, int* outFlags) {
  handle->pMethods = nullptr;
  if (!disk->HasPower()) return SQLITE_CANTOPEN;
  const std::string path = name != nullptr ? name : "";
  std::shared_ptr<UnsafeDisk::File> file = disk->Find(path);
  if (file == nullptr) {
    if ((flags & SQLITE_OPEN_CREATE) == 0) return SQLITE_CANTOPEN;
    file = std::make_shared<UnsafeDisk::File>();
    // Temporary files have no name, and nobody looks for them after a loss of power.
    if (!path.empty()) {
      disk->Link(path, file);
      if (!disk->Operate()) return SQLITE_CANTOPEN;
    }
  }
  Handle* const own = reinterpret_cast<Handle*>(handle);
  own->file = new std::shared_ptr<UnsafeDisk::File>(file);
  own->syncsFolder = (flags & SQLITE_OPEN_CREATE) != 0 && (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
  handle->pMethods = &kMethodsOf<Calls>;
  if (outFlags != nullptr) *outFlags = flags;
  return SQLITE_OK;
}

int Delete(sqlite3_vfs*, const char* name, int syncFolder) {
  if (!disk->HasPower()) return SQLITE_IOERR_DELETE;
  if (disk->Find(name) == nullptr) return SQLITE_IOERR_DELETE_NOENT;
  disk->Link(name, nullptr);
  if (!disk->Operate()) return SQLITE_IOERR_DELETE;
  if (syncFolder != 0) disk->SyncFolder();
  return SQLITE_OK;
}

int Access(sqlite3_vfs*, const char* name, int, int* result) {
  *result = disk->Find(name) != nullptr;
  return SQLITE_OK;
}

int FullPathname(sqlite3_vfs*, const char* name, int size, char* out) {
  sqlite3_snprintf(size, out, "%s", name);
  return SQLITE_OK;
}

int Randomness(sqlite3_vfs*, int size, char* out) {
  for (int i = 0; i < size; ++i) out[i] = static_cast<char>(disk->Random());
  return size;
}

}  // namespace

UnsafeDisk::UnsafeDisk(unsigned seed)
    : fVfs("unsafe-disk",
           [](sqlite3_vfs& vfs) {
             vfs.szOsFile = sizeof(Handle);
             vfs.xOpen = Open;
             vfs.xDelete = Delete;
             vfs.xAccess = Access;
             vfs.xFullPathname = FullPathname;
             vfs.xRandomness = Randomness;
           }),
      fRandom(seed) {
  disk = this;
  // SQLite asks for a new seed.
  sqlite3_randomness(0, nullptr);
}

UnsafeDisk::~UnsafeDisk() { disk = nullptr; }

void UnsafeDisk::FailPowerAt(int n) {
  fCountdown = n;
  fOperations = 0;
}

bool UnsafeDisk::Operate() {
  ++fOperations;
  if (fCountdown != 0 && --fCountdown == 0) fHasPower = false;
  return fHasPower;
}

std::shared_ptr<UnsafeDisk::File> UnsafeDisk::Find(const std::string& name) const {
  const auto found = fFolder.find(name);
  return found != fFolder.end() ? found->second.back() : nullptr;
}

void UnsafeDisk::Link(const std::string& name, std::shared_ptr<File> file) {
  auto& past = fFolder[name];
  if (past.empty()) past.push_back(nullptr);
  past.push_back(std::move(file));
}

void UnsafeDisk::SyncFolder() {
  for (auto& [name, past] : fFolder) past.erase(past.begin(), past.end() - 1);
}

void UnsafeDisk::Recover() {
  for (auto& [name, past] : fFolder) {
    past = {past[fRandom() % past.size()]};
    if (past.back() != nullptr) RecoverFile(*past.back());
  }
  fCountdown = 0;
  fHasPower = true;
}

void UnsafeDisk::RecoverFile(File& file) {
  for (Change& change : file.pending) {
    switch (fRandom() % 3) {
      case 0:
        continue;
      case 1:
        if (!change.data.empty()) change.data.resize(fRandom() % change.data.size());
        break;
      default:
        break;
    }
    Apply(file.synced, change);
  }
  file.pending.clear();
  file.current = file.synced;
}

}  // namespace faults
