#include "faults/unsafe_disk.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <sqlite3.h>

namespace faults {

namespace {

UnsafeDisk* disk = nullptr;
sqlite3_vfs* original = nullptr;
sqlite3_vfs vfs;

struct Handle {
  sqlite3_file base;
  std::shared_ptr<UnsafeDisk::File>* file;
  bool deleteOnClose;
};

UnsafeDisk::File& FileOf(sqlite3_file* handle) { return **reinterpret_cast<Handle*>(handle)->file; }

void Apply(std::vector<char>& contents, const UnsafeDisk::Change& change) {
  const std::size_t offset = static_cast<std::size_t>(change.offset);
  if (change.isTruncation) {
    contents.resize(offset);
    return;
  }
  if (contents.size() < offset + change.data.size()) contents.resize(offset + change.data.size());
  std::copy(change.data.begin(), change.data.end(), contents.begin() + change.offset);
}

void Add(UnsafeDisk::File& file, UnsafeDisk::Change change) {
  Apply(file.current, change);
  file.pending.push_back(std::move(change));
}

int Close(sqlite3_file* handle) {
  Handle* const own = reinterpret_cast<Handle*>(handle);
  delete own->file;
  return SQLITE_OK;
}

int Read(sqlite3_file* handle, void* data, int size, sqlite3_int64 offset) {
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

int Write(sqlite3_file* handle, const void* data, int size, sqlite3_int64 offset) {
  const char* const bytes = static_cast<const char*>(data);
  UnsafeDisk::Change change{offset, std::vector<char>(bytes, bytes + size), false};
  // The write during which the power fails may reach the disk in part.
  const bool done = disk->Operate();
  Add(FileOf(handle), std::move(change));
  return done ? SQLITE_OK : SQLITE_IOERR_WRITE;
}

int Truncate(sqlite3_file* handle, sqlite3_int64 size) {
  if (!disk->Operate()) return SQLITE_IOERR_TRUNCATE;
  Add(FileOf(handle), UnsafeDisk::Change{size, {}, true});
  return SQLITE_OK;
}

int Sync(sqlite3_file* handle, int) {
  if (!disk->Operate()) return SQLITE_IOERR_FSYNC;
  UnsafeDisk::File& file = FileOf(handle);
  file.synced = file.current;
  file.pending.clear();
  return SQLITE_OK;
}

int FileSize(sqlite3_file* handle, sqlite3_int64* size) {
  *size = static_cast<sqlite3_int64>(FileOf(handle).current.size());
  return SQLITE_OK;
}

int Lock(sqlite3_file*, int) { return disk->HasPower() ? SQLITE_OK : SQLITE_IOERR_LOCK; }
int Unlock(sqlite3_file*, int) { return SQLITE_OK; }
int CheckReservedLock(sqlite3_file*, int* result) {
  *result = 0;
  return SQLITE_OK;
}
int FileControl(sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; }
int SectorSize(sqlite3_file*) { return 512; }
// Nothing is promised, above all not that a write leaves its neighbours alone when the power fails.
int DeviceCharacteristics(sqlite3_file*) { return 0; }

constexpr sqlite3_io_methods kMethods = {1,
                                         Close,
                                         Read,
                                         Write,
                                         Truncate,
                                         Sync,
                                         FileSize,
                                         Lock,
                                         Unlock,
                                         CheckReservedLock,
                                         FileControl,
                                         SectorSize,
                                         DeviceCharacteristics,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr,
                                         nullptr};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* handle, int flags, int* outFlags) {
  handle->pMethods = nullptr;
  if (!disk->HasPower()) return SQLITE_CANTOPEN;
  const std::string path = name != nullptr ? name : "";
  std::shared_ptr<UnsafeDisk::File> file;
  const auto found = disk->fFiles.find(path);
  if (found != disk->fFiles.end() && !found->second->isDeleted) {
    file = found->second;
  } else {
    if ((flags & SQLITE_OPEN_CREATE) == 0) return SQLITE_CANTOPEN;
    file = std::make_shared<UnsafeDisk::File>();
    if (!path.empty()) disk->fFiles[path] = file;
  }
  Handle* const own = reinterpret_cast<Handle*>(handle);
  own->file = new std::shared_ptr<UnsafeDisk::File>(file);
  handle->pMethods = &kMethods;
  if (outFlags != nullptr) *outFlags = flags;
  return SQLITE_OK;
}

int Delete(sqlite3_vfs*, const char* name, int syncFolder) {
  const auto found = disk->fFiles.find(name);
  if (found == disk->fFiles.end() || found->second->isDeleted) return SQLITE_IOERR_DELETE_NOENT;
  const bool done = disk->Operate();
  // A deletion during which the power fails, or whose folder is not synced, may be undone.
  if (done && syncFolder != 0) {
    disk->fFiles.erase(found);
  } else {
    found->second->isDeleted = true;
  }
  return done ? SQLITE_OK : SQLITE_IOERR_DELETE;
}

int Access(sqlite3_vfs*, const char* name, int, int* result) {
  const auto found = disk->fFiles.find(name);
  *result = found != disk->fFiles.end() && !found->second->isDeleted;
  return SQLITE_OK;
}

int FullPathname(sqlite3_vfs*, const char* name, int size, char* out) {
  sqlite3_snprintf(size, out, "%s", name);
  return SQLITE_OK;
}

}  // namespace

UnsafeDisk::UnsafeDisk(unsigned seed) : fRandom(seed) {
  disk = this;
  original = sqlite3_vfs_find(nullptr);
  vfs = *original;
  vfs.iVersion = 1;
  vfs.szOsFile = sizeof(Handle);
  vfs.zName = "unsafe-disk";
  vfs.xOpen = Open;
  vfs.xDelete = Delete;
  vfs.xAccess = Access;
  vfs.xFullPathname = FullPathname;
  sqlite3_vfs_register(&vfs, 1);
}

UnsafeDisk::~UnsafeDisk() {
  sqlite3_vfs_unregister(&vfs);
  sqlite3_vfs_register(original, 1);
  disk = nullptr;
}

void UnsafeDisk::FailPowerAt(int n) {
  fCountdown = n;
  fOperations = 0;
}

bool UnsafeDisk::Operate() {
  ++fOperations;
  if (fCountdown != 0 && --fCountdown == 0) fHasPower = false;
  return fHasPower;
}

void UnsafeDisk::Recover() {
  for (auto entry = fFiles.begin(); entry != fFiles.end();) {
    File& file = *entry->second;
    if (file.isDeleted && fRandom() % 2 == 0) {
      entry = fFiles.erase(entry);
      continue;
    }
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
    file.isDeleted = false;
    ++entry;
  }
  fCountdown = 0;
  fHasPower = true;
}

}  // namespace faults
