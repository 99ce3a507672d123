#include "tests/program.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace catalog_tests {

namespace {

constexpr uid_t kOrdinaryUser = 65534;
constexpr gid_t kOrdinaryGroup = 65534;
constexpr int kCannotRun = 126;

// Catches what a program writes.
class Output {
 public:
  Output() : fFile(std::tmpfile(), &std::fclose) {
    if (!fFile) throw std::runtime_error("cannot make a temporary file");
  }

  int Descriptor() const { return fileno(fFile.get()); }

  std::string Text() const {
    std::string text;
    std::array<char, 4096> buffer;
    std::rewind(fFile.get());
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), fFile.get())) {
      text.append(buffer.data(), count);
    }
    return text;
  }

 private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> fFile;
};

bool GiveUpRoot() { return setgroups(0, nullptr) == 0 && setgid(kOrdinaryGroup) == 0 && setuid(kOrdinaryUser) == 0; }

}  // namespace

ProgramTest::ProgramTest() {
  std::string pattern = std::filesystem::temp_directory_path() / "catalog-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a folder like " + pattern);
  fFolder = std::filesystem::canonical(pattern).string();
  MakeFolder("tree");
}

ProgramTest::~ProgramTest() {
  std::error_code ignored;
  // What was made unreadable could not be removed either.
  for (const auto& entry : std::filesystem::directory_iterator(Path("tree"), ignored)) {
    if (entry.symlink_status().type() == std::filesystem::file_type::directory) chmod(entry.path().c_str(), 0700);
  }
  std::filesystem::remove_all(fFolder, ignored);
}

void ProgramTest::WriteFile(const std::string& name, const std::string& content) const {
  std::ofstream file(Path(name), std::ios::binary);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + name);
}

void ProgramTest::MakeFolder(const std::string& name) const { std::filesystem::create_directories(Path(name)); }

void ProgramTest::SetTime(const std::string& name, std::int64_t seconds, long nanoseconds) const {
  const timespec time{static_cast<std::time_t>(seconds), nanoseconds};
  const std::array<timespec, 2> times{time, time};
  if (utimensat(AT_FDCWD, Path(name).c_str(), times.data(), 0) != 0) throw std::runtime_error("cannot set a time");
}

std::string ProgramTest::Ask(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "c.db");
  const Finished run = Catalog(arguments);
  EXPECT_EQ(run.fErr, "");
  EXPECT_EQ(run.fStatus, 0);
  return run.fOut;
}

std::string ProgramTest::Index(const std::string& folder) const {
  const std::string line = Ask({"index", folder});
  std::smatch parts;
  const std::regex form(
      ".*: (\\d+ added, \\d+ changed, \\d+ removed, \\d+ unchanged, \\d+ unreadable), "
      "\\d+\\.\\d\\d seconds\n");
  EXPECT_TRUE(std::regex_match(line, parts, form)) << line;
  return parts[1];
}

std::string ProgramTest::Shell(const std::string& sql, const std::string& database) const {
  const Finished run = Execute(SQLITE3_SHELL, {"-batch", "-init", "/dev/null", database, sql});
  EXPECT_EQ(run.fStatus, 0) << run.fErr;
  return run.fOut;
}

std::string ProgramTest::Paths() const {
  const std::string start = std::to_string(Path("tree/").size() + 1);
  return Shell("SELECT group_concat(substr(path, " + start + "), '|') FROM (SELECT path FROM files ORDER BY path)");
}

bool ProgramTest::BecomeOrdinary() {
  if (geteuid() != 0) return true;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(fFolder)) {
    if (lchown(entry.path().c_str(), kOrdinaryUser, kOrdinaryGroup) != 0) return false;
  }
  if (chown(fFolder.c_str(), kOrdinaryUser, kOrdinaryGroup) != 0) return false;
  fIsOrdinary = true;
  // The build may be in a folder that is closed to others.
  return Catalog({"--help"}).fStatus == 0;
}

Finished ProgramTest::Execute(const std::string& program, const std::vector<std::string>& arguments) const {
  std::vector<std::string> words = arguments;
  words.insert(words.begin(), program);
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);

  const Output out;
  const Output err;
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    const bool isReady = dup2(out.Descriptor(), STDOUT_FILENO) >= 0 && dup2(err.Descriptor(), STDERR_FILENO) >= 0 &&
                         chdir(fFolder.c_str()) == 0 && (!fIsOrdinary || GiveUpRoot());
    if (isReady) execv(program.c_str(), pointers.data());
    _exit(kCannotRun);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return Finished{WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), out.Text(), err.Text()};
}

LockHolder::LockHolder(const std::string& path, const std::string& sql) {
  EXPECT_EQ(sqlite3_open(path.c_str(), &fConnection), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(fConnection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
}

LockHolder::~LockHolder() { EXPECT_EQ(sqlite3_close(fConnection), SQLITE_OK); }

}  // namespace catalog_tests
