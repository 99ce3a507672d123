// The program as its users see it: what it prints, how it exits, and what is in its file afterwards.

#include "tests/program.h"

#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files.h"
#include "sqldb/encoding.h"

namespace catalog_tests {

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// What a name may hold on this system: everything but "/" and a zero byte.
const std::vector<std::string> kNastyNames = {
    "it's",  "line\nfeed", "100%.txt",      "tab\t",      "back\\slash", "\xFF\xFE.bin",        " blank ",
    "-dash", "semi;colon", "\x1B[2Jescape", "\"quoted\"", "_under",      "a\xE2\x80\xAEgpj.exe"};

}  // namespace

class IndexTest : public ProgramTest {};
class FailingIndexTest : public ProgramTest {};
class UnreadableTest : public ProgramTest {};
class QuestionTest : public ProgramTest {};
class DuplicatesTest : public ProgramTest {};
class LockTest : public ProgramTest {};
class UsageTest : public ProgramTest {};

TEST_F(IndexTest, FirstRunAddsEveryFile) {
  for (const std::string& name : kNastyNames) WriteFile("tree/" + name, "content of " + name);
  MakeFolder("tree/deep/er\n/folder");
  WriteFile("tree/deep/er\n/folder/last", "");
  EXPECT_EQ(Index(), "14 added, 0 changed, 0 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Shell("SELECT count(*) FROM files; PRAGMA integrity_check"), "14\nok\n");
}

TEST_F(IndexTest, NamesAreStoredByteForByte) {
  for (const std::string& name : kNastyNames) WriteFile("tree/" + name, "");
  Index();
  for (const std::string& name : kNastyNames) {
    std::string hex;
    for (const char c : Path("tree/") + name) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
      hex += digits;
    }
    EXPECT_EQ(Shell("SELECT count(*) FROM files WHERE hex(path) = '" + hex + "'"), "1\n") << name;
  }
}

TEST_F(IndexTest, RowSaysSizeTimeKindAndFirstBytes) {
  WriteFile("tree/a.TXT", "hello");
  SetTime("tree/a.TXT", 1234567890, 987654321);
  Index();
  EXPECT_EQ(Shell("SELECT size, modified, kind FROM files"), "5|1234567890987654321|txt\n");
}

TEST_F(IndexTest, FirstThirtyTwoBytesAreKeptEncoded) {
  std::string content;
  for (int i = 0; i < 40; ++i) content += static_cast<char>(i * 7);
  WriteFile("tree/a", content);
  Index();
  std::string encoded = Shell("SELECT head FROM files");
  encoded.pop_back();  // the shell's line feed
  std::string decoded(encoded.size(), '\0');
  const int length = sqlite_decode_binary(reinterpret_cast<const unsigned char*>(encoded.c_str()),
                                          reinterpret_cast<unsigned char*>(decoded.data()));
  decoded.resize(static_cast<std::size_t>(length));
  EXPECT_EQ(decoded, content.substr(0, 32));
}

TEST_F(IndexTest, TimesBeforeAndFarBeyondTheEpochAreKept) {
  WriteFile("tree/old", "");
  SetTime("tree/old", -2, 500000000);
  Index();
  EXPECT_EQ(Shell("SELECT modified FROM files"), "-1500000000\n");
  EXPECT_EQ(Index(), "0 added, 0 changed, 0 removed, 1 unchanged, 0 unreadable");
}

TEST_F(IndexTest, SizesBeyondFourGigabytesAreKept) {
  WriteFile("tree/large", "x");
  const std::int64_t size = 5368709123;
  ASSERT_EQ(truncate(Path("tree/large").c_str(), size), 0);
  Index();
  EXPECT_EQ(Shell("SELECT size FROM files"), "5368709123\n");
  EXPECT_EQ(Ask({"largest", "1"}), "     5368709123  " + Path("tree/large") + "\n");
  EXPECT_EQ(Ask({"count", "--larger", "5368709122"}), "1 file\n");
  EXPECT_EQ(Ask({"count", "--larger", "5368709123"}), "0 files\n");
}

TEST_F(IndexTest, SecondRunFindsNothingToDo) {
  for (const std::string& name : kNastyNames) WriteFile("tree/" + name, name);
  Index();
  const std::string before = Dump();
  EXPECT_EQ(Index(), "0 added, 0 changed, 0 removed, 13 unchanged, 0 unreadable");
  EXPECT_EQ(Dump(), before);
}

TEST_F(IndexTest, FileOfAnotherSizeIsReplaced) {
  WriteFile("tree/a", "short");
  SetTime("tree/a", 1000);
  Index();
  WriteFile("tree/a", "longer now");
  SetTime("tree/a", 1000);
  EXPECT_EQ(Index(), "0 added, 1 changed, 0 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Shell("SELECT size FROM files"), "10\n");
}

TEST_F(IndexTest, FileOfAnotherTimeIsReplaced) {
  WriteFile("tree/a", "x");
  SetTime("tree/a", 1000, 1);
  Index();
  SetTime("tree/a", 1000, 2);
  EXPECT_EQ(Index(), "0 added, 1 changed, 0 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Shell("SELECT modified FROM files"), "1000000000002\n");
}

TEST_F(IndexTest, VanishedFilesAndFoldersAreRemoved) {
  MakeFolder("tree/gone/too");
  for (const char* name : {"tree/stays", "tree/it's gone", "tree/gone/a", "tree/gone/too/b"}) WriteFile(name, "");
  Index();
  std::filesystem::remove_all(Path("tree/gone"));
  std::filesystem::remove(Path("tree/it's gone"));
  EXPECT_EQ(Index(), "0 added, 0 changed, 3 removed, 1 unchanged, 0 unreadable");
  EXPECT_EQ(Paths(), "stays\n");
}

TEST_F(IndexTest, FolderInThePlaceOfAFile) {
  WriteFile("tree/a", "");
  Index();
  std::filesystem::remove(Path("tree/a"));
  MakeFolder("tree/a");
  WriteFile("tree/a/b", "");
  EXPECT_EQ(Index(), "1 added, 0 changed, 1 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Paths(), "a/b\n");
}

TEST_F(IndexTest, OtherFoldersKeepTheirEntries) {
  for (const char* folder : {"tree/a/b", "tree/a/bc", "tree/a/b0"}) MakeFolder(folder);
  for (const char* name : {"tree/a/b/1", "tree/a/bc/2", "tree/a/b0/3", "tree/a/4"}) WriteFile(name, "");
  Index();
  std::filesystem::remove_all(Path("tree/a"));
  MakeFolder("tree/a/b");
  EXPECT_EQ(Index("tree/a/b"), "0 added, 0 changed, 1 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Paths(), "a/4|a/b0/3|a/bc/2\n");
}

TEST_F(IndexTest, OneFolderUnderSeveralNamesIsIndexedOnce) {
  WriteFile("tree/a", "");
  std::filesystem::create_symlink("tree", Path("link"));
  Index();
  for (const std::string& name :
       {std::string("tree/"), std::string("./tree/../tree/."), std::string("link"), Path("tree")}) {
    EXPECT_EQ(Index(name), "0 added, 0 changed, 0 removed, 1 unchanged, 0 unreadable") << name;
  }
}

TEST_F(IndexTest, LinksPipesAndOtherKindsAreLeftOut) {
  MakeFolder("outside");
  WriteFile("outside/a", "");
  std::filesystem::create_symlink("../outside", Path("tree/folder link"));
  std::filesystem::create_symlink("../outside/a", Path("tree/file link"));
  std::filesystem::create_symlink("nowhere", Path("tree/dangling"));
  std::filesystem::create_symlink(".", Path("tree/loop"));
  ASSERT_EQ(mkfifo(Path("tree/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Index(), "0 added, 0 changed, 0 removed, 0 unchanged, 0 unreadable");
}

// Either alone would keep links out of a catalogue; the second is for what becomes a link in between.
TEST_F(IndexTest, LinksAreNeitherListedNorOpened) {
  WriteFile("file", "");
  std::filesystem::create_symlink("../file", Path("tree/link"));
  std::vector<catalog::Entry> entries;
  EXPECT_EQ(catalog::ListFolder(Path("tree"), entries), catalog::Outcome::kRead);
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(catalog::OpenFile(Path("tree/link")).Result(), catalog::Outcome::kGone);
}

TEST_F(IndexTest, CatalogueItselfIsLeftOut) {
  WriteFile("tree/a", "");
  WriteFile("c.db", "");
  std::filesystem::create_hard_link(Path("c.db"), Path("tree/same"));
  EXPECT_EQ(Index("."), "1 added, 0 changed, 0 removed, 0 unchanged, 0 unreadable");
  EXPECT_EQ(Index("."), "0 added, 0 changed, 0 removed, 1 unchanged, 0 unreadable");
  EXPECT_EQ(Shell("PRAGMA integrity_check"), "ok\n");
}

TEST_F(IndexTest, FilesNamedAlmostAsTheCatalogueAreIndexed) {
  WriteFile("c.db2", "");
  EXPECT_EQ(Index("."), "1 added, 0 changed, 0 removed, 0 unchanged, 0 unreadable");
}

TEST_F(IndexTest, SummaryNamesTheFolderOnOneLine) {
  MakeFolder("tree/a\nb");
  EXPECT_THAT(Ask({"index", "tree/a\nb"}), StartsWith(Path("tree/a\\nb: 0 added, ")));
}

TEST_F(IndexTest, NoNameOfTheDatabaseIsSpecialButAUri) {
  WriteFile("tree/a", "");
  for (const std::string& name : {std::string(":memory:"), std::string("x?mode=memory"), std::string("-x")}) {
    EXPECT_EQ(Catalog({name, "index", "tree"}).fStatus, 0) << name;
    EXPECT_EQ(Catalog({name, "count"}).fOut, "1 file\n") << name;
    EXPECT_TRUE(std::filesystem::exists(Path(name))) << name;
  }
}

// The table is made by the first that has the lock; the others find it.
TEST_F(IndexTest, ProgramsThatBeginACatalogueAtTheSameTimeAllSucceed) {
  WriteFile("tree/a", "");
  for (int round = 0; round < 12; ++round) {
    const std::string database = "c" + std::to_string(round) + ".db";
    std::array<Finished, 3> runs;
    std::vector<std::thread> programs;
    for (Finished& run : runs) {
      programs.emplace_back([&] { run = Catalog({database, "index", "tree"}); });
    }
    for (std::thread& program : programs) program.join();
    for (const Finished& run : runs) {
      EXPECT_EQ(run.fErr, "");
      EXPECT_EQ(run.fStatus, 0);
    }
    EXPECT_EQ(Shell("SELECT count(*) FROM files; PRAGMA integrity_check", database), "1\nok\n");
    EXPECT_EQ(Catalog({database, "count"}).fOut, "1 file\n");
  }
}

TEST_F(FailingIndexTest, OldCatalogueStays) {
  for (const char* name : {"a", "b", "c"}) WriteFile("tree/" + std::string(name), "");
  Index();
  Shell(
      "CREATE TRIGGER refuse BEFORE INSERT ON files WHEN new.path LIKE '%/z' "
      "BEGIN SELECT RAISE(ABORT, 'no room for z'); END");
  const std::string before = Dump();
  std::filesystem::remove(Path("tree/b"));
  WriteFile("tree/c", "changed");
  MakeFolder("tree/folder");
  for (const char* name : {"d", "z", "folder/e"}) WriteFile("tree/" + std::string(name), "");

  const Finished run = Catalog({"c.db", "index", "tree"});
  EXPECT_EQ(run.fErr, "catalog: 'c.db': no room for z\n");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(run.fOut, "");
  EXPECT_EQ(Dump(), before);

  Shell("DROP TRIGGER refuse");
  EXPECT_EQ(Index(), "3 added, 1 changed, 1 removed, 1 unchanged, 0 unreadable");
}

TEST_F(FailingIndexTest, FailureWhileRemovingRollsBackToo) {
  WriteFile("tree/a", "");
  Index();
  Shell("CREATE TRIGGER refuse BEFORE DELETE ON files BEGIN SELECT RAISE(ABORT, 'keep it'); END");
  const std::string before = Dump();
  std::filesystem::remove(Path("tree/a"));
  WriteFile("tree/b", "");
  EXPECT_EQ(Catalog({"c.db", "index", "tree"}).fErr, "catalog: 'c.db': keep it\n");
  EXPECT_EQ(Dump(), before);
}

TEST_F(FailingIndexTest, WrongFolderMakesNoDatabase) {
  WriteFile("file", "");
  const Finished missing = Catalog({"c.db", "index", "nosuch"});
  EXPECT_EQ(missing.fErr, "catalog: cannot index 'nosuch': No such file or directory\n");
  EXPECT_EQ(missing.fStatus, 1);
  const Finished file = Catalog({"c.db", "index", "file"});
  EXPECT_EQ(file.fErr, "catalog: cannot index 'file': Not a directory\n");
  EXPECT_EQ(file.fStatus, 1);
  EXPECT_FALSE(std::filesystem::exists(Path("c.db")));
}

TEST_F(FailingIndexTest, DatabaseOfAnotherProgramIsNotTouched) {
  Shell("CREATE TABLE files (path); INSERT INTO files VALUES ('theirs')");
  const std::string before = Dump();
  const std::vector<std::vector<std::string>> commands = {
      {"index", "tree"}, {"count"}, {"tag", "a", "b"}, {"forget", "tree"}, {"plan"}};
  for (std::vector<std::string> command : commands) {
    command.insert(command.begin(), "c.db");
    const Finished run = Catalog(command);
    EXPECT_EQ(run.fErr, "catalog: '" + Path("c.db") + "' is not a catalogue\n");
    EXPECT_EQ(run.fStatus, 1);
  }
  EXPECT_EQ(Dump(), before);
}

TEST_F(FailingIndexTest, CatalogueOfAnotherVersionIsNotTouched) {
  Index();
  Shell("PRAGMA user_version = 2");
  EXPECT_EQ(Catalog({"c.db", "index", "tree"}).fErr,
            "catalog: '" + Path("c.db") + "' is a catalogue of another version of this program\n");
}

TEST_F(UnreadableTest, NewFileIsCountedAndSkipped) {
  WriteFile("tree/closed", "");
  WriteFile("tree/open", "");
  chmod(Path("tree/closed").c_str(), 0);
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  EXPECT_EQ(Index(), "1 added, 0 changed, 0 removed, 0 unchanged, 1 unreadable");
  EXPECT_EQ(Paths(), "open\n");
}

TEST_F(UnreadableTest, ChangedFileKeepsItsOldEntry) {
  WriteFile("tree/a", "old");
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  Index();
  WriteFile("tree/a", "new and longer");
  chmod(Path("tree/a").c_str(), 0);
  EXPECT_EQ(Index(), "0 added, 0 changed, 0 removed, 0 unchanged, 1 unreadable");
  EXPECT_EQ(Shell("SELECT size FROM files"), "3\n");
}

TEST_F(UnreadableTest, FolderKeepsItsEntries) {
  MakeFolder("tree/closed/below");
  for (const char* name : {"tree/closed/a", "tree/closed/below/b", "tree/closed0", "tree/z"}) WriteFile(name, "");
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  Index();
  chmod(Path("tree/closed").c_str(), 0);
  std::filesystem::remove(Path("tree/closed0"));
  EXPECT_EQ(Index(), "0 added, 0 changed, 1 removed, 1 unchanged, 1 unreadable");
  EXPECT_EQ(Paths(), "closed/a|closed/below/b|z\n");
}

TEST_F(UnreadableTest, FolderThatOnlyListsItsNamesKeepsItsEntries) {
  MakeFolder("tree/half/below");
  for (const char* name : {"tree/half/a", "tree/half/below/b"}) WriteFile(name, "");
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  Index();
  chmod(Path("tree/half").c_str(), 0400);
  EXPECT_EQ(Index(), "0 added, 0 changed, 0 removed, 0 unchanged, 2 unreadable");
  EXPECT_EQ(Paths(), "half/a|half/below/b\n");
}

TEST_F(UnreadableTest, FolderToBeIndexedIsAFailure) {
  MakeFolder("tree/closed");
  chmod(Path("tree/closed").c_str(), 0);
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  const Finished run = Catalog({"c.db", "index", "tree/closed"});
  EXPECT_EQ(run.fErr, "catalog: cannot index 'tree/closed': Permission denied\n");
  EXPECT_EQ(run.fStatus, 1);
}

TEST_F(UnreadableTest, DatabaseIsAFailure) {
  Index();
  chmod(Path("c.db").c_str(), 0);
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  EXPECT_EQ(Catalog({"c.db", "count"}).fErr, "catalog: " + CannotOpen("c.db", "Permission denied") + "\n");
}

TEST_F(UnreadableTest, ReadOnlyDatabaseCanBeAskedOnly) {
  WriteFile("tree/a", "");
  Index();
  chmod(Path("c.db").c_str(), 0444);
  if (!BecomeOrdinary()) GTEST_SKIP() << "cannot run the program as an ordinary user";
  EXPECT_EQ(Ask({"count"}), "1 file\n");
  EXPECT_EQ(Catalog({"c.db", "index", "tree"}).fErr, "catalog: '" + Path("c.db") + "' cannot be written to\n");
}

TEST_F(QuestionTest, CountsAgreeWithSqlitesShell) {
  for (const char* name : {"a.so", "b.SO", "c.txt", "d"}) WriteFile("tree/" + std::string(name), name);
  WriteFile("tree/long.so", std::string(1000, 'x'));
  Index();
  const auto files = [this](const std::string& condition) {
    std::string count = Shell("SELECT count(*) FROM files WHERE " + condition);
    count.pop_back();
    return count + (count == "1" ? " file\n" : " files\n");
  };
  EXPECT_EQ(Ask({"count"}), files("true"));
  EXPECT_EQ(Ask({"count"}), "5 files\n");
  EXPECT_EQ(Ask({"count", "--kind", "so"}), files("kind = 'so'"));
  EXPECT_EQ(Ask({"count", "--kind", "so"}), "3 files\n");
  EXPECT_EQ(Ask({"count", "--kind", ""}), files("kind = ''"));
  EXPECT_EQ(Ask({"count", "--larger", "4"}), files("size > 4"));
  EXPECT_EQ(Ask({"count", "--larger", "4", "--kind", "so"}), files("size > 4 AND kind = 'so'"));
  EXPECT_EQ(Ask({"count", "--larger", "4", "--kind", "so"}), "1 file\n");
  EXPECT_EQ(Ask({"count", "--kind", "it's"}), "0 files\n");
}

TEST_F(QuestionTest, LargestComeFirst) {
  WriteFile("tree/a", "1");
  WriteFile("tree/b\n", "333");
  WriteFile("tree/c", "22");
  Index();
  EXPECT_EQ(Ask({"largest", "2"}),
            "              3  " + Path("tree/b\\n") + "\n              2  " + Path("tree/c") + "\n");
  EXPECT_THAT(Ask({"largest", "100"}), EndsWith("  " + Path("tree/a") + "\n"));
}

TEST_F(QuestionTest, FoundByAnyBytesOfThePath) {
  for (const std::string& name : kNastyNames) WriteFile("tree/" + name, "");
  Index();
  const auto found = [this](const std::string& name) { return Path("tree/" + name) + "\n"; };
  EXPECT_EQ(Ask({"find", "it's"}), found("it's"));
  EXPECT_EQ(Ask({"find", "ne\nfe"}), found("line\\nfeed"));
  EXPECT_EQ(Ask({"find", "0%"}), found("100%.txt"));
  EXPECT_EQ(Ask({"find", "tree/_"}), found("_under"));
  EXPECT_EQ(Ask({"find", "\xFE"}), found("\\xFF\\xFE.bin"));
  EXPECT_EQ(Ask({"find", "\\s"}), found("back\\\\slash"));
  EXPECT_EQ(Ask({"find", "\x1B"}), found("\\x1B[2Jescape"));
  EXPECT_EQ(Ask({"find", "gpj"}), found("a\\xE2\\x80\\xAEgpj.exe"));
  EXPECT_EQ(Ask({"find", "IT'S"}), "");
  EXPECT_EQ(Ask({"find", "%'"}), "");
}

TEST_F(QuestionTest, FoundFilesComeInOrderOfTheirPaths) {
  for (const char* name : {"x2", "x10", "x1"}) WriteFile("tree/" + std::string(name), "");
  Index();
  EXPECT_EQ(Ask({"find", "tree/x"}), Path("tree/x1\n") + Path("tree/x10\n") + Path("tree/x2\n"));
}

TEST_F(QuestionTest, TagGivesOneKindAnotherName) {
  for (const char* name : {"a.so", "b.so", "c.a"}) WriteFile("tree/" + std::string(name), "");
  Index();
  EXPECT_EQ(Ask({"tag", "so", "it's\n%"}), "2 files of kind 'so' now of kind 'it's\\n%'\n");
  EXPECT_EQ(Shell("SELECT count(*) FROM files WHERE kind = 'it''s' || char(10) || '%'"), "2\n");
  EXPECT_EQ(Ask({"count", "--kind", "a"}), "1 file\n");
  EXPECT_EQ(Ask({"tag", "it's\n%", ""}), "2 files of kind 'it's\\n%' now of kind ''\n");
  EXPECT_EQ(Ask({"tag", "so", "x"}), "0 files of kind 'so' now of kind 'x'\n");
}

TEST_F(QuestionTest, TagLastsUntilTheFileChanges) {
  WriteFile("tree/a.so", "");
  Index();
  Ask({"tag", "so", "library"});
  Index();
  EXPECT_EQ(Ask({"count", "--kind", "library"}), "1 file\n");
  WriteFile("tree/a.so", "changed");
  Index();
  EXPECT_EQ(Ask({"count", "--kind", "library"}), "0 files\n");
}

TEST_F(QuestionTest, ForgetsAFile) {
  for (const char* name : {"a", "a b", "it's"}) WriteFile("tree/" + std::string(name), "");
  Index();
  EXPECT_EQ(Ask({"forget", "tree/a"}), "1 file forgotten\n");
  EXPECT_EQ(Ask({"forget", Path("tree/it's")}), "1 file forgotten\n");
  EXPECT_EQ(Paths(), "a b\n");
}

TEST_F(QuestionTest, ForgetsAFolderButNotOnesOfLongerNames) {
  for (const char* folder : {"tree/b/c", "tree/bc"}) MakeFolder(folder);
  for (const char* name : {"tree/b/1", "tree/b/c/2", "tree/bc/3", "tree/b0"}) WriteFile(name, "");
  Index();
  EXPECT_EQ(Ask({"forget", "tree/b/"}), "2 files forgotten\n");
  EXPECT_EQ(Paths(), "b0|bc/3\n");
}

TEST_F(QuestionTest, ForgetsWhatIsGoneFromTheDisk) {
  MakeFolder("tree/b");
  WriteFile("tree/b/1", "");
  Index();
  std::filesystem::remove_all(Path("tree"));
  EXPECT_EQ(Ask({"forget", "tree"}), "1 file forgotten\n");
}

TEST_F(QuestionTest, ForgetsThroughALinkToAFolder) {
  WriteFile("tree/a", "");
  std::filesystem::create_symlink("tree", Path("link"));
  Index();
  EXPECT_EQ(Ask({"forget", "link"}), "1 file forgotten\n");
}

TEST_F(QuestionTest, ForgetsAFileThatIsALinkByNow) {
  for (const char* name : {"a", "b"}) WriteFile("tree/" + std::string(name), "");
  Index();
  std::filesystem::remove(Path("tree/a"));
  std::filesystem::create_symlink("b", Path("tree/a"));
  Ask({"forget", "tree/a"});
  EXPECT_EQ(Paths(), "b\n");
}

TEST_F(QuestionTest, ForgettingWhatIsNotThereIsAFailure) {
  WriteFile("tree/a", "");
  Index();
  const Finished run = Catalog({"c.db", "forget", "tree/no\nsuch"});
  EXPECT_EQ(run.fErr, "catalog: nothing is catalogued at 'tree/no\\nsuch'\n");
  EXPECT_EQ(run.fStatus, 1);
  EXPECT_EQ(Paths(), "a\n");
}

TEST_F(QuestionTest, PlanSortsWithoutTheIndexOnly) {
  WriteFile("tree/a", "");
  Index();
  const std::string before = Dump();
  const std::string plan = Ask({"plan"});
  const std::string query =
      "- (SQLDatabase::ExplainQuery) EXPLAIN Query: "
      "'SELECT path, size FROM files ORDER BY size DESC LIMIT 10'.\n";
  const std::size_t second = plan.find("With the index on the size, SQLite does not sort:\n" + query);
  EXPECT_THAT(plan, StartsWith("Without an index on the size, SQLite sorts:\n" + query));
  ASSERT_NE(second, std::string::npos) << plan;
  EXPECT_THAT(plan.substr(0, second), HasSubstr(", Sort, "));
  EXPECT_THAT(plan.substr(second), Not(HasSubstr("Sort,")));
  EXPECT_EQ(Dump(), before);
  EXPECT_EQ(Shell("PRAGMA integrity_check"), "ok\n");
}

TEST_F(DuplicatesTest, OnlyFilesOfTheSameContentsAreShown) {
  const std::string start(32, 's');
  for (const char* name : {"same1", "same2", "same\n3"}) WriteFile("tree/" + std::string(name), start + "same");
  WriteFile("tree/other", start + "else");
  WriteFile("tree/different start", "x" + start + "ame");
  WriteFile("tree/empty1", "");
  WriteFile("tree/empty2", "");
  Index();
  EXPECT_EQ(Ask({"duplicates"}),
            "1 group of identical files, compared byte for byte; one file each would save 72 bytes\n"
            "\n3 files of 36 bytes:\n  " +
                Path("tree/same\\n3") + "\n  " + Path("tree/same1") + "\n  " + Path("tree/same2") + "\n");
}

TEST_F(DuplicatesTest, DifferenceBeyondTheFirstBlockIsSeen) {
  std::string content(200000, 'x');
  WriteFile("tree/a", content);
  content.back() = 'y';
  WriteFile("tree/b", content);
  Index();
  EXPECT_THAT(Ask({"duplicates"}), StartsWith("0 groups"));
}

TEST_F(DuplicatesTest, TwoGroupsAmongFilesThatBeginAlike) {
  const std::string start(32, 's');
  for (const char* name : {"a1", "a2", "b1", "b2"}) WriteFile("tree/" + std::string(name), start + name[0]);
  Index();
  EXPECT_THAT(Ask({"duplicates"}), StartsWith("2 groups"));
}

TEST_F(DuplicatesTest, HardLinksAreOneFile) {
  WriteFile("tree/a", "contents");
  std::filesystem::create_hard_link(Path("tree/a"), Path("tree/b"));
  Index();
  EXPECT_THAT(Ask({"duplicates"}), StartsWith("0 groups"));
  WriteFile("tree/c", "contents");
  Index();
  EXPECT_THAT(Ask({"duplicates"}), HasSubstr("would save 8 bytes\n\n2 files of 8 bytes:\n"));
}

TEST_F(DuplicatesTest, FilesThatChangedSinceAreNotCompared) {
  for (const char* name : {"a", "b", "c"}) WriteFile("tree/" + std::string(name), "contents");
  Index();
  std::filesystem::remove(Path("tree/a"));
  WriteFile("tree/b", "grown contents");
  EXPECT_EQ(Ask({"duplicates"}),
            "0 groups of identical files, compared byte for byte; one file each would save 0 bytes\n"
            "2 files not compared: gone, unreadable or of another size by now\n");
}

TEST_F(DuplicatesTest, MostWastefulGroupsComeFirstAndTheOthersOnRequest) {
  for (int group = 1; group <= 12; ++group) {
    const std::string content(static_cast<std::size_t>(group), 'x');
    for (int copy = 0; copy < (group == 1 ? 30 : 2); ++copy) {
      WriteFile("tree/" + std::to_string(group) + "-" + std::to_string(copy), content);
    }
  }
  Index();
  const std::string some = Ask({"duplicates"});
  EXPECT_THAT(some, HasSubstr("bytes\n\n30 files of 1 byte:\n"));
  EXPECT_THAT(some, HasSubstr("  and 25 more\n"));
  EXPECT_THAT(some, EndsWith("\nand 2 more groups; --all shows all\n"));
  const std::string all = Ask({"duplicates", "--all"});
  EXPECT_THAT(all, HasSubstr("\n2 files of 2 bytes:\n"));
  EXPECT_THAT(all, Not(HasSubstr("more")));
}

TEST_F(LockTest, NothingGetsPastAnExclusiveLock) {
  WriteFile("tree/a", "");
  Index();
  const std::string before = Dump();
  const auto start = std::chrono::steady_clock::now();
  {
    const LockHolder holder(Path("c.db"), "BEGIN EXCLUSIVE");
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"c.db", "count"}, {"c.db", "index", "tree"}}) {
      const Finished run = Catalog(command);
      EXPECT_EQ(run.fErr, "catalog: '" + Path("c.db") + "' cannot be opened: database is locked\n");
      EXPECT_EQ(run.fStatus, 1);
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_EQ(Dump(), before);
}

TEST_F(LockTest, QuestionsGetPastAWriterButChangesDoNot) {
  WriteFile("tree/a", "");
  Index();
  const std::string before = Dump();
  WriteFile("tree/b", "");
  MakeFolder("nothing");
  {
    const LockHolder holder(Path("c.db"), "BEGIN IMMEDIATE");
    EXPECT_EQ(Ask({"count"}), "1 file\n");
    EXPECT_EQ(Catalog({"c.db", "index", "tree"}).fErr, "catalog: 'c.db': database is locked\n");
    EXPECT_EQ(Catalog({"c.db", "forget", "tree/a"}).fErr, "catalog: 'c.db': database is locked\n");
    for (const char* command : {"forget", "index"}) {
      EXPECT_EQ(Catalog({"c.db", command, "nothing"}).fErr, "catalog: 'c.db': database is locked\n")
          << "the lock comes first";
    }
  }
  EXPECT_EQ(Dump(), before);
}

TEST_F(LockTest, ReaderThatStaysKeepsTheOldCatalogue) {
  WriteFile("tree/a", "");
  Index();
  const std::string before = Dump();
  WriteFile("tree/b", "");
  {
    const LockHolder holder(Path("c.db"), "BEGIN; SELECT count(*) FROM files");
    const Finished run = Catalog({"c.db", "index", "tree"});
    EXPECT_EQ(run.fErr, "catalog: 'c.db': database is locked\n");
    EXPECT_EQ(run.fStatus, 1);
  }
  EXPECT_EQ(Dump(), before);
  EXPECT_EQ(Index(), "1 added, 0 changed, 0 removed, 1 unchanged, 0 unreadable");
}

TEST_F(UsageTest, HelpGoesToStandardOutput) {
  const Finished run = Catalog({"--help"});
  EXPECT_EQ(run.fStatus, 0);
  EXPECT_EQ(run.fErr, "");
  for (const char* command : {"index", "count", "largest", "duplicates", "find", "tag", "forget", "plan"}) {
    EXPECT_THAT(run.fOut, HasSubstr(std::string("\n  catalog DB ") + command));
  }
}

TEST_F(UsageTest, NothingToDoIsAMisuse) {
  const Finished run = Catalog({});
  EXPECT_EQ(run.fStatus, 2);
  EXPECT_EQ(run.fOut, "");
  EXPECT_EQ(run.fErr, Catalog({"--help"}).fOut);
}

TEST_F(UsageTest, EveryMisuseIsOneLine) {
  const struct {
    std::vector<std::string> fArguments;
    std::string fReason;
  } misuses[] = {
      {{""}, "DB is empty"},
      {{"--key"}, "the value of --key is missing"},
      {{"--key", "", "c.db", "index", "tree"}, "the value of --key is empty"},
      {{"--load", ""}, "the value of --load is empty"},
      {{"--load", "x"}, "DB is missing"},
      {{"--load", "x", "--key", "y", "--load", "z"}, "superfluous argument '--load'"},
      {{"c.db"}, "COMMAND is missing"},
      {{"c.db", "list\n"}, "unknown command 'list\\n'"},
      {{"--help", "x"}, "superfluous argument 'x'"},
      {{"c.db", "index"}, "DIR is missing"},
      {{"c.db", "index", "tree", "x"}, "superfluous argument 'x'"},
      {{"c.db", "count", "x"}, "superfluous argument 'x'"},
      {{"c.db", "count", "--kind"}, "the value of --kind is missing"},
      {{"c.db", "count", "--kind", "a", "--kind", "b"}, "superfluous argument '--kind'"},
      {{"c.db", "count", "--larger"}, "the value of --larger is missing"},
      {{"c.db", "count", "--larger", "1k"}, "BYTES must be a number from 0 to 9223372036854775807, not '1k'"},
      {{"c.db", "count", "--larger", "-1"}, "BYTES must be a number from 0 to 9223372036854775807, not '-1'"},
      {{"c.db", "count", "--larger", "9223372036854775808"},
       "BYTES must be a number from 0 to 9223372036854775807, not '9223372036854775808'"},
      {{"c.db", "largest"}, "N is missing"},
      {{"c.db", "largest", "0"}, "N must be a number from 1 to 4294967295, not '0'"},
      {{"c.db", "largest", ""}, "N must be a number from 1 to 4294967295, not ''"},
      {{"c.db", "largest", "4294967296"}, "N must be a number from 1 to 4294967295, not '4294967296'"},
      {{"c.db", "largest", "1", "2"}, "superfluous argument '2'"},
      {{"c.db", "duplicates", "some"}, "superfluous argument 'some'"},
      {{"c.db", "duplicates", "--all", "x"}, "superfluous argument 'x'"},
      {{"c.db", "find"}, "TEXT is missing"},
      {{"c.db", "find", "a", "b"}, "superfluous argument 'b'"},
      {{"c.db", "tag", "so"}, "NEWKIND is missing"},
      {{"c.db", "tag", "so", "b", "c"}, "superfluous argument 'c'"},
      {{"c.db", "forget"}, "PATH is missing"},
      {{"c.db", "forget", ""}, "PATH is empty"},
      {{"c.db", "plan", "x"}, "superfluous argument 'x'"},
  };
  for (const auto& misuse : misuses) {
    const Finished run = Catalog(misuse.fArguments);
    EXPECT_EQ(run.fErr, "catalog: " + misuse.fReason + "; see catalog --help\n");
    EXPECT_EQ(run.fStatus, 2) << misuse.fReason;
    EXPECT_EQ(run.fOut, "") << misuse.fReason;
  }
  EXPECT_FALSE(std::filesystem::exists(Path("c.db")));
}

TEST_F(UsageTest, LargestNumbersAreAccepted) {
  WriteFile("tree/a", "");
  Index();
  EXPECT_EQ(Ask({"count", "--larger", "9223372036854775807"}), "0 files\n");
  EXPECT_THAT(Ask({"largest", "4294967295"}), EndsWith("tree/a\n"));
}

TEST_F(UsageTest, EveryBadDatabaseIsOneLine) {
  WriteFile("text", "this is no database\n");
  std::string noise;
  for (int i = 0; i < 10000; ++i) noise += static_cast<char>(i * 37 % 251);
  WriteFile("noise", noise);
  WriteFile("empty", "");
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  const struct {
    std::string fDatabase;
    std::string fReason;
  } cases[] = {
      {"no\nsuch", CannotOpen("no\\nsuch", "No such file or directory")},
      {"missing/c.db", CannotOpen("missing/c.db", "No such file or directory")},
      {"tree", "'" + Path("tree") + "' cannot be opened: not a regular file"},
      {"pipe", "'" + Path("pipe") + "' cannot be opened: not a regular file"},
      {"text", NotADatabase("text") + ", or has a key"},
      {"noise", NotADatabase("noise") + ", or has a key"},
      {"empty", "'" + Path("empty") + "' is not a catalogue"},
  };
  for (const auto& each : cases) {
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"count"}, {"largest", "1"}, {"duplicates"}, {"find", "a"}, {"tag", "a", "b"}}) {
      std::vector<std::string> arguments = command;
      arguments.insert(arguments.begin(), each.fDatabase);
      const Finished run = Catalog(arguments);
      EXPECT_EQ(run.fErr, "catalog: " + each.fReason + "\n");
      EXPECT_EQ(run.fStatus, 1) << each.fReason;
      EXPECT_EQ(run.fOut, "") << each.fReason;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(Path("no\nsuch")));
  EXPECT_EQ(std::filesystem::file_size(Path("empty")), 0u);
}

TEST_F(UsageTest, EmptyFileBecomesACatalogue) {
  WriteFile("c.db", "");
  WriteFile("tree/a", "");
  EXPECT_EQ(Index(), "1 added, 0 changed, 0 removed, 0 unchanged, 0 unreadable");
}

TEST_F(UsageTest, IndexNeedsTheFolderOfTheDatabase) {
  const Finished run = Catalog({"missing/c.db", "index", "tree"});
  EXPECT_EQ(run.fErr, "catalog: " + CannotOpen("missing/c.db", "No such file or directory") + "\n");
  EXPECT_EQ(run.fStatus, 1);
}

}  // namespace catalog_tests
