#ifndef SQLDB_TESTS_TEMPORARY_FOLDER_H
#define SQLDB_TESTS_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support {

// A folder of its own, removed with all it holds.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "sqldb-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a folder like " + pattern);
    fPath = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(const std::string& name) const { return fPath + "/" + name; }

 private:
  std::string fPath;
};

}  // namespace support

#endif  // SQLDB_TESTS_TEMPORARY_FOLDER_H
