#include "files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace catalog {

namespace {

constexpr std::size_t kHeadSize = 32;

// What a failed call says about a file that was there a moment ago. ELOOP: a symbolic link now.
Outcome OutcomeOf(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP ? Outcome::kGone : Outcome::kUnreadable;
}

std::int64_t Nanoseconds(const timespec& time) {
  constexpr std::int64_t kPerSecond = 1000000000;
  using Limits = std::numeric_limits<std::int64_t>;
  if (time.tv_sec >= Limits::max() / kPerSecond) return Limits::max();
  if (time.tv_sec <= Limits::min() / kPerSecond) return Limits::min();
  return time.tv_sec * kPerSecond + time.tv_nsec;
}

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

// Not followed, not waited for: a pipe or a device may have taken the place of what was listed.
int OpenQuietly(const std::string& path, int flags) {
  return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags);
}

// Adds the entry `name`, unless it is gone or of no interest.
void AddEntry(int folder, const char* name, std::vector<Entry>& entries) {
  Entry entry;
  entry.fName = name;
  struct stat facts {};
  if (fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
    if (OutcomeOf(errno) == Outcome::kGone) return;
    entry.fKind = Entry::Kind::kUnreadable;
  } else if (S_ISDIR(facts.st_mode)) {
    entry.fKind = Entry::Kind::kFolder;
  } else if (S_ISREG(facts.st_mode)) {
    entry.fSize = facts.st_size;
    entry.fModified = Nanoseconds(facts.st_mtim);
    entry.fIdentity = {facts.st_dev, facts.st_ino};
  } else {
    return;
  }
  entries.push_back(std::move(entry));
}

}  // namespace

Outcome ListFolder(const std::string& path, std::vector<Entry>& entries) {
  const int descriptor = OpenQuietly(path, O_DIRECTORY);
  if (descriptor < 0) return OutcomeOf(errno);
  const Folder folder(fdopendir(descriptor));
  if (!folder) {
    close(descriptor);
    return Outcome::kUnreadable;
  }
  while (true) {
    errno = 0;
    const dirent* const next = readdir(folder.get());
    if (next == nullptr) break;
    const std::string name = next->d_name;
    if (name != "." && name != "..") AddEntry(descriptor, next->d_name, entries);
  }
  if (errno != 0) return OutcomeOf(errno);
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.fName < b.fName; });
  return Outcome::kRead;
}

Outcome ReadFile(const std::string& path, Entry& file, std::vector<unsigned char>& head) {
  const OpenFile opened(path);
  if (opened.Result() != Outcome::kRead) return opened.Result();
  std::array<char, kHeadSize> buffer;
  const std::int64_t length = opened.ReadAt(0, buffer.data(), buffer.size());
  if (length < 0) return Outcome::kUnreadable;
  file.fSize = opened.Size();
  file.fModified = opened.Modified();
  head.assign(buffer.data(), buffer.data() + length);
  return Outcome::kRead;
}

std::string Join(const std::string& folder, const std::string& name) {
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

std::string FirstBelow(const std::string& folder) { return Join(folder, ""); }

std::string EndBelow(const std::string& folder) {
  std::string end = FirstBelow(folder);
  end.back() = '/' + 1;
  return end;
}

std::string KindOf(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  std::string kind = name.substr(dot + 1);
  // By hand: what tolower does to other bytes depends on the locale.
  for (char& c : kind) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return kind;
}

OpenFile::OpenFile(const std::string& path) : fDescriptor(OpenQuietly(path, 0)) {
  if (fDescriptor < 0) {
    // ENXIO: a pipe or a socket.
    fResult = errno == ENXIO ? Outcome::kGone : OutcomeOf(errno);
    return;
  }
  struct stat facts {};
  if (fstat(fDescriptor, &facts) != 0) return;
  fResult = S_ISREG(facts.st_mode) ? Outcome::kRead : Outcome::kGone;
  fIdentity = {facts.st_dev, facts.st_ino};
  fSize = facts.st_size;
  fModified = Nanoseconds(facts.st_mtim);
}

OpenFile::~OpenFile() {
  if (fDescriptor >= 0) close(fDescriptor);
}

std::int64_t OpenFile::ReadAt(std::int64_t position, char* buffer, std::size_t length) const {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t count = pread(fDescriptor, buffer + done, length - done, position + static_cast<off_t>(done));
    if (count == 0) break;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::int64_t>(done);
}

}  // namespace catalog
