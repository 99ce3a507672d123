#ifndef CATALOG_FILES_H
#define CATALOG_FILES_H

// The file system, as far as the catalogue looks at it: folders, the first bytes of files, and whether two files are
// the same. Symbolic links are never followed, nothing but regular files is opened for reading, and what disappears
// while one looks is no failure.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace catalog {

enum class Outcome {
  kRead,
  kGone,        // not there, or no longer of the kind asked for
  kUnreadable,  // there, but we may not or cannot look
};

/// Device and inode: what tells a file from another name of the same one.
using FileIdentity = std::pair<std::uint64_t, std::uint64_t>;

struct Entry {
  enum class Kind { kFile, kFolder, kUnreadable };

  std::string fName;
  Kind fKind = Kind::kFile;
  /// In bytes. This and what follows is set for files only.
  std::int64_t fSize = 0;
  /// Nanoseconds since 1970-01-01 00:00 UTC, or the nearest number that 64 bits can hold.
  std::int64_t fModified = 0;
  FileIdentity fIdentity;
};

/// The files and folders in the folder at `path`, sorted by name. Other kinds of entries are left out.
Outcome ListFolder(const std::string& path, std::vector<Entry>& entries);

/// Size and time of the file at `path`, and its first bytes, 32 at most.
Outcome ReadFile(const std::string& path, Entry& file, std::vector<unsigned char>& head);

/// "FOLDER/NAME".
std::string Join(const std::string& folder, const std::string& name);

/// The first and the end (exclusive), in the order of their bytes, of what are paths below `folder`, an absolute path
/// without a "/" at its end unless it is "/" itself.
std::string FirstBelow(const std::string& folder);
std::string EndBelow(const std::string& folder);

/// The extension of the last part of `path`, without the dot, ASCII letters in lower case. A dot that begins the name
/// begins no extension.
std::string KindOf(const std::string& path);

/// One regular file, open for reading.
class OpenFile {
 public:
  /// `Result` says how that went; the rest is to be used after kRead only.
  explicit OpenFile(const std::string& path);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  Outcome Result() const { return fResult; }
  FileIdentity Identity() const { return fIdentity; }
  std::int64_t Size() const { return fSize; }
  std::int64_t Modified() const { return fModified; }

  /// Fills `buffer` with up to `length` bytes from `position`, fewer only at the end. Returns how many, -1 on failure.
  std::int64_t ReadAt(std::int64_t position, char* buffer, std::size_t length) const;

 private:
  int fDescriptor = -1;
  Outcome fResult = Outcome::kUnreadable;
  FileIdentity fIdentity;
  std::int64_t fSize = 0;
  std::int64_t fModified = 0;
};

}  // namespace catalog

#endif  // CATALOG_FILES_H
