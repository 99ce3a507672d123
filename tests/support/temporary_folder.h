#ifndef SQLDB_TESTS_TEMPORARY_FOLDER_H
#define SQLDB_TESTS_TEMPORARY_FOLDER_H

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace support {

// A folder of its own, removed with all it holds.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::random_device random;
    do {
      const auto folder = std::filesystem::temp_directory_path() / ("sqldb-test-" + std::to_string(random()));
      fPath = folder.generic_string();
    } while (!std::filesystem::create_directory(fPath));
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
