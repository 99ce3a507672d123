// Where a catalogue may be other than in a plain file: at a URI, in a VFS that a module brings, and behind a key.

#include "tests/program.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sqlite3.h>

#include "store.h"

namespace catalog_tests {

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Arguments = std::vector<std::string>;

// Whether the SQLite that the program is built with encrypts.
bool CanEncrypt() {
  sqlite3* connection = nullptr;
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_open(":memory:", &connection), SQLITE_OK);
  EXPECT_EQ(sqlite3_prepare_v2(connection, "PRAGMA cipher_version", -1, &statement, nullptr), SQLITE_OK);
  const bool isRow = sqlite3_step(statement) == SQLITE_ROW;
  EXPECT_EQ(sqlite3_finalize(statement), SQLITE_OK);
  EXPECT_EQ(sqlite3_close(connection), SQLITE_OK);
  return isRow;
}

}  // namespace

class LocationTest : public ProgramTest {
 protected:
  LocationTest() {
    MakeFolder("tree/b");
    for (const char* name : {"tree/a.so", "tree/b/1.so", "tree/b/2"}) WriteFile(name, "same contents");
  }

  // catalog LOCATION... ARGUMENTS..., as ProgramTest::Ask.
  std::string AskAt(const Arguments& location, const Arguments& arguments) const {
    const Finished run = Run(location, arguments);
    EXPECT_EQ(run.fErr, "");
    EXPECT_EQ(run.fStatus, 0);
    return run.fOut;
  }

  // The same, which must fail and print nothing; returns the complaint.
  std::string FailureAt(const Arguments& location, const Arguments& arguments) const {
    const Finished run = Run(location, arguments);
    EXPECT_EQ(run.fOut, "");
    EXPECT_EQ(run.fStatus, 1);
    return run.fErr;
  }

  // What all commands say of one catalogue, from its first index on.
  std::string Session(const Arguments& location) const {
    std::string all;
    for (const Arguments& command : {Arguments{"index", "tree"},
                                     {"count"},
                                     {"count", "--kind", "so"},
                                     {"largest", "2"},
                                     {"duplicates"},
                                     {"find", "tree/b"},
                                     {"tag", "so", "library"},
                                     {"count", "--kind", "library"},
                                     {"forget", "tree/b"},
                                     {"count"},
                                     {"plan"},
                                     {"index", "tree"}}) {
      const std::string answer = AskAt(location, command);
      // The time that it took is not the same twice.
      all += command[0] == "index" ? answer.substr(0, answer.rfind(", ")) + "\n" : answer;
    }
    return all;
  }

  std::string Uri(const std::string& name, const std::string& vfs) const {
    return "file:" + Path(name) + "?vfs=" + vfs;
  }

 private:
  Finished Run(Arguments location, const Arguments& arguments) const {
    location.insert(location.end(), arguments.begin(), arguments.end());
    return Catalog(location);
  }
};

class UriTest : public LocationTest {};
class ModuleTest : public LocationTest {};
class KeyTest : public LocationTest {};

TEST_F(UriTest, EveryCommandAnswersAsWithAPath) {
  const std::string answers = Session({"c.db"});
  EXPECT_THAT(answers, HasSubstr(": 2 added, 0 changed, 0 removed, 1 unchanged, 0 unreadable\n"));
  EXPECT_EQ(Session({Uri("u.db", "unix")}), answers);
  EXPECT_EQ(Shell(".dump", "u.db"), Shell(".dump"));
}

TEST_F(UriTest, OnlyIndexMakesAFile) {
  for (const Arguments& command : {Arguments{"count"}, {"tag", "a", "b"}, {"forget", "tree"}, {"plan"}}) {
    EXPECT_EQ(FailureAt({Uri("u.db", "unix")}, command),
              "catalog: '" + Uri("u.db", "unix") +
                  "' cannot be opened: unable to open database file: No such file or directory\n");
  }
  EXPECT_FALSE(std::filesystem::exists(Path("u.db")));
}

TEST_F(UriTest, EmptyFileIsNoCatalogueUntilItIsIndexed) {
  WriteFile("u.db", "");
  EXPECT_EQ(FailureAt({Uri("u.db", "unix")}, {"tag", "a", "b"}),
            "catalog: '" + Uri("u.db", "unix") + "' is not a catalogue\n");
  AskAt({Uri("u.db", "unix")}, {"index", "tree"});
  EXPECT_EQ(AskAt({Uri("u.db", "unix")}, {"count"}), "3 files\n");
}

TEST_F(UriTest, OtherDatabasesAreNotTouched) {
  Shell("CREATE TABLE files (path)", "u.db");
  const std::string before = Shell(".dump", "u.db");
  EXPECT_EQ(FailureAt({Uri("u.db", "unix")}, {"index", "tree"}),
            "catalog: '" + Uri("u.db", "unix") + "' is not a catalogue\n");
  EXPECT_EQ(Shell(".dump", "u.db"), before);
}

// To read it would cost the process its locks on it, besides.
TEST_F(UriTest, CatalogueItselfIsLeftOut) {
  std::filesystem::create_directories(Path("tree/c"));
  for (int i = 0; i < 2; ++i) AskAt({Uri("tree/c/u.db", "unix")}, {"index", "tree/c"});
  EXPECT_EQ(AskAt({Uri("tree/c/u.db", "unix")}, {"count"}), "0 files\n");
}

TEST_F(UriTest, TemporaryFilesAreInMemory) {
  catalog::Store store({Uri("u.db", "unix"), std::nullopt}, catalog::Access::kCreate);
  EXPECT_EQ(store.fDatabase.One<int>("PRAGMA temp_store"), 2);
}

TEST_F(UriTest, LockedFileIsNamedByItsUri) {
  AskAt({Uri("u.db", "unix")}, {"index", "tree"});
  const LockHolder holder(Path("u.db"), "BEGIN EXCLUSIVE");
  EXPECT_EQ(FailureAt({Uri("u.db", "unix")}, {"count"}),
            "catalog: '" + Uri("u.db", "unix") + "' cannot be opened: database is locked\n");
}

TEST_F(ModuleTest, BringsAVfs) {
  EXPECT_EQ(FailureAt({Uri("u.db", "other")}, {"index", "tree"}),
            "catalog: '" + Uri("u.db", "other") + "' cannot be opened: no such vfs: other\n");
  const std::string answers = Session({"c.db"});
  EXPECT_EQ(Session({"--load", CATALOG_TEST_MODULE, Uri("u.db", "other")}), answers);
  EXPECT_EQ(Shell(".dump", "u.db"), Shell(".dump"));
}

TEST_F(ModuleTest, DoesNotDisturbAPlainFile) {
  AskAt({"--load", CATALOG_TEST_MODULE, "c.db"}, {"index", "tree"});
  EXPECT_EQ(Ask({"count"}), "3 files\n");
}

TEST_F(ModuleTest, ThatCannotBeLoadedIsNamedWithTheReason) {
  WriteFile("text\n.so", "no library");
  EXPECT_THAT(FailureAt({"--load", Path("text\n.so"), "c.db"}, {"index", "tree"}),
              StartsWith("catalog: cannot load '" + Path("text\\n.so") + "': " + Path("text\\n.so")));
  EXPECT_THAT(FailureAt({"--load", "./nosuch", "c.db"}, {"index", "tree"}),
              EndsWith(": cannot open shared object file: No such file or directory\n"));
  EXPECT_FALSE(std::filesystem::exists(Path("c.db")));
}

TEST_F(KeyTest, IsRefusedByAnSqliteThatDoesNotEncrypt) {
  if (CanEncrypt()) GTEST_SKIP() << "this SQLite encrypts";
  for (const std::string& database : {Path("c.db"), Uri("u.db", "unix")}) {
    EXPECT_EQ(FailureAt({"--key", "secret", database}, {"index", "tree"}),
              "catalog: '" + database + "' cannot be opened: it has a key, and SQLite is built without encryption\n");
  }
  for (const char* name : {"c.db", "u.db"}) EXPECT_FALSE(std::filesystem::exists(Path(name))) << name;
}

TEST_F(KeyTest, EveryCommandAnswersAsWithoutAKey) {
  if (!CanEncrypt()) GTEST_SKIP() << "this SQLite does not encrypt";
  const std::string answers = Session({"c.db"});
  EXPECT_EQ(Session({"--key", "it's secret", "k.db"}), answers);
  EXPECT_EQ(Session({"--key", "it's secret", Uri("u.db", "unix")}), answers);
  EXPECT_EQ(Session({"--key", "it's secret", "--load", CATALOG_TEST_MODULE, Uri("m.db", "other")}), answers);
}

TEST_F(KeyTest, NothingInTheFileCanBeReadWithoutIt) {
  if (!CanEncrypt()) GTEST_SKIP() << "this SQLite does not encrypt";
  AskAt({"--key", "it's secret", "k.db"}, {"index", "tree"});
  std::ifstream file(Path("k.db"), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_FALSE(bytes.empty());
  for (const char* text : {"SQLite format 3", "CREATE TABLE", "a.so", "same contents"}) {
    EXPECT_EQ(bytes.find(text), std::string::npos) << text;
  }
}

TEST_F(KeyTest, AWrongOneAndNoneAreAFailureThatNamesTheFile) {
  if (!CanEncrypt()) GTEST_SKIP() << "this SQLite does not encrypt";
  AskAt({"--key", "it's secret", "k.db"}, {"index", "tree"});
  const std::string reason = "catalog: " + NotADatabase("k.db") + ", or has ";
  for (const Arguments& command : {Arguments{"count"}, {"index", "tree"}, {"tag", "a", "b"}}) {
    EXPECT_EQ(FailureAt({"--key", "secret", "k.db"}, command), reason + "another key\n");
    EXPECT_EQ(FailureAt({"k.db"}, command), reason + "a key\n");
  }
  EXPECT_EQ(AskAt({"--key", "it's secret", "k.db"}, {"count"}), "3 files\n");
}

TEST_F(KeyTest, IsNoKeyToAFileThatIsNotEncrypted) {
  if (!CanEncrypt()) GTEST_SKIP() << "this SQLite does not encrypt";
  Index();
  EXPECT_EQ(FailureAt({"--key", "secret", "c.db"}, {"count"}),
            "catalog: " + NotADatabase("c.db") + ", or has another key\n");
}

}  // namespace catalog_tests
