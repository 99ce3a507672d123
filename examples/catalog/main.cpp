// catalog: keeps a catalogue of directory trees in one SQLite file. This file is the command line; see catalog.h,
// indexer.h and duplicates.h for what it does.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

#include "catalog.h"
#include "duplicates.h"
#include "indexer.h"
#include "module.h"
#include "printable.h"
#include "store.h"

namespace catalog {

namespace {

constexpr int kFailed = 1;
constexpr int kMisused = 2;

constexpr char kUsage[] =
    R"(usage: catalog [--load MODULE] [--key KEY] DB COMMAND ...

Keeps a catalogue of the regular files of directory trees in the SQLite file DB. If it begins with
"file:", it is a URI of SQLite's and may name a VFS, as in "file:/data/c.db?vfs=unix".

  catalog DB index DIR         bring the catalogue up to date with DIR and all below it;
                               DB is made if it does not exist
  catalog DB count [--kind EXT] [--larger BYTES]
                               how many files there are, of a kind, of more than BYTES bytes
  catalog DB largest N         the N largest files, with their sizes in bytes
  catalog DB duplicates [--all]
                               files with the same contents, the 10 most wasteful groups or all:
                               files of one size that begin with the same 32 bytes are read and
                               compared to the end; empty files and hard links are no duplicates
  catalog DB find TEXT         the files with TEXT in their path, byte for byte
  catalog DB tag EXT NEWKIND   give all files of kind EXT the kind NEWKIND; lasts until a file changes
  catalog DB forget PATH       take a file, or a folder with all below it, out of the catalogue
  catalog DB plan              show how SQLite would answer "largest", without an index and with it
  catalog --help               this text

  --load MODULE                load an SQLite extension library first, one with a VFS for instance
  --key KEY                    the contents of DB are encrypted with KEY, which needs an SQLite that
                               encrypts; others on the machine can see KEY while the program runs

The kind of a file is its name's extension in lower case, without the dot, or nothing. Symbolic links
are not followed. "index" takes a file as changed when its size or modification time is another. What
cannot be read is counted and skipped, and stays in the catalogue if it was there.

Paths are shown on one line each: a backslash as \\, a line feed, tab or carriage return as \n, \t or
\r, and other control characters and bytes that are not UTF-8 as \xHH, byte by byte.

Exit status: 0 success, 1 failure, the catalogue is as it was, 2 wrong usage.
)";

class Misuse : public Failure {
 public:
  using Failure::Failure;
};

using Arguments = std::vector<std::string>;

std::string InQuotes(const std::string& text) { return "'" + Printable(text) + "'"; }

// "1 file", "2 files".
std::string Counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Files(std::uint64_t count) { return Counted(count, "file"); }

std::string Bytes(std::int64_t count) { return Counted(static_cast<std::uint64_t>(count), "byte"); }

// Digits only, at most `largest`.
std::int64_t Number(const std::string& what, const std::string& text, std::int64_t smallest, std::int64_t largest) {
  std::int64_t number = 0;
  bool isValid = !text.empty();
  for (const char c : text) {
    if (c < '0' || c > '9' || number > (largest - (c - '0')) / 10) {
      isValid = false;
      break;
    }
    number = number * 10 + (c - '0');
  }
  if (!isValid || number < smallest) {
    throw Misuse(what + " must be a number from " + std::to_string(smallest) + " to " + std::to_string(largest) +
                 ", not " + InQuotes(text));
  }
  return number;
}

void ExpectArguments(const Arguments& arguments, const Arguments& names) {
  if (arguments.size() < names.size()) throw Misuse(names[arguments.size()] + " is missing");
  if (arguments.size() > names.size()) throw Misuse("superfluous argument " + InQuotes(arguments[names.size()]));
}

// Shows on a terminal that work goes on, and cleans up after itself.
class Progress {
 public:
  ~Progress() {
    if (fIsTerminal) std::cerr << "\r\x1B[K" << std::flush;
  }

  void Show(std::uint64_t files) const {
    if (fIsTerminal) std::cerr << "\r" << Files(files) << std::flush;
  }

 private:
  bool fIsTerminal = isatty(STDERR_FILENO) != 0;
};

void Index(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {"DIR"});
  const auto start = std::chrono::steady_clock::now();
  // Before the database is opened: a wrong DIR makes no file.
  const std::string folder = IndexableFolder(arguments[0]);
  Store store(location, Access::kCreate);
  Summary summary;
  {
    const Progress progress;
    summary = IndexFolder(store, folder, [&progress](std::uint64_t files) { progress.Show(files); });
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::cout << Printable(folder) << ": " << summary.fAdded << " added, " << summary.fChanged << " changed, "
            << summary.fRemoved << " removed, " << summary.fUnchanged << " unchanged, " << summary.fUnreadable
            << " unreadable, " << std::fixed << std::setprecision(2) << elapsed.count() << " seconds\n";
}

void Count(const Location& location, const Arguments& arguments) {
  Filter filter;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    const std::string& option = arguments[i];
    const bool isKind = option == "--kind" && !filter.fKind;
    const bool isLarger = option == "--larger" && !filter.fLargerThan;
    if (!isKind && !isLarger) throw Misuse("superfluous argument " + InQuotes(option));
    if (i + 1 == arguments.size()) throw Misuse("the value of " + option + " is missing");
    const std::string& value = arguments[i + 1];
    if (isKind) filter.fKind = value;
    if (isLarger) filter.fLargerThan = Number("BYTES", value, 0, std::numeric_limits<std::int64_t>::max());
  }
  Store store(location, Access::kAsk);
  std::cout << Files(CountFiles(store, filter)) << "\n";
}

void Largest(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {"N"});
  const std::int64_t count = Number("N", arguments[0], 1, std::numeric_limits<std::uint32_t>::max());
  Store store(location, Access::kAsk);
  for (const SizedFile& file : LargestFiles(store, static_cast<std::uint32_t>(count))) {
    std::cout << std::setw(15) << file.fSize << "  " << Printable(file.fPath) << "\n";
  }
}

void ShowCopies(const Copies& copies, std::size_t shownPaths) {
  std::cout << "\n" << Files(copies.fFiles) << " of " << Bytes(copies.fSize) << ":\n";
  for (std::size_t i = 0; i < copies.fPaths.size(); ++i) {
    if (i == shownPaths) {
      std::cout << "  and " << copies.fPaths.size() - i << " more\n";
      break;
    }
    std::cout << "  " << Printable(copies.fPaths[i]) << "\n";
  }
}

void ShowDuplicates(const Location& location, const Arguments& arguments) {
  constexpr std::size_t kShownGroups = 10;
  constexpr std::size_t kShownPaths = 5;
  const bool showAll = !arguments.empty() && arguments[0] == "--all";
  if (!showAll || arguments.size() > 1) ExpectArguments(arguments, showAll ? Arguments{"--all"} : Arguments{});

  Store store(location, Access::kAsk);
  const Duplicates duplicates = Compare(FindCandidates(store));
  std::int64_t waste = 0;
  for (const Copies& copies : duplicates.fGroups) waste += copies.Waste();
  std::cout << Counted(duplicates.fGroups.size(), "group")
            << " of identical files, compared byte for byte; one file each would save " << Bytes(waste) << "\n";
  if (duplicates.fNotCompared != 0) {
    std::cout << Files(duplicates.fNotCompared) << " not compared: gone, unreadable or of another size by now\n";
  }
  std::size_t shown = 0;
  for (const Copies& copies : duplicates.fGroups) {
    if (!showAll && shown == kShownGroups) {
      std::cout << "\nand " << Counted(duplicates.fGroups.size() - shown, "more group") << "; --all shows all\n";
      break;
    }
    ShowCopies(copies, showAll ? copies.fPaths.size() : kShownPaths);
    ++shown;
  }
}

void Find(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {"TEXT"});
  Store store(location, Access::kAsk);
  FindFiles(store, arguments[0], [](const std::string& path) { std::cout << Printable(path) << "\n"; });
}

void Tag(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {"EXT", "NEWKIND"});
  Store store(location, Access::kChange);
  const std::uint64_t count = TagFiles(store, arguments[0], arguments[1]);
  std::cout << Files(count) << " of kind " << InQuotes(arguments[0]) << " now of kind " << InQuotes(arguments[1])
            << "\n";
}

// The paths by which the catalogue may know what the user calls `path`. A catalogued path has no links in it, but what
// is there by now may be a link, which then stands for the entry of its own name, or be gone.
std::vector<std::string> CataloguedPaths(const std::string& path) {
  std::filesystem::path whole = std::filesystem::absolute(path);
  if (!whole.has_filename() && whole.has_relative_path()) whole = whole.parent_path();  // a slash at the end
  std::vector<std::string> paths;
  std::error_code error;
  if (whole.filename() != "." && whole.filename() != "..") {
    const std::filesystem::path folder = std::filesystem::weakly_canonical(whole.parent_path(), error);
    if (!error) paths.push_back((folder / whole.filename()).string());
  }
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(whole, error);
  if (!error) paths.push_back(resolved.string());
  return paths;
}

void Forget(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {"PATH"});
  if (arguments[0].empty()) throw Misuse("PATH is empty");
  Store store(location, Access::kChange);
  for (const std::string& path : CataloguedPaths(arguments[0])) {
    const std::uint64_t count = ForgetFiles(store, path);
    if (count == 0) continue;
    std::cout << Files(count) << " forgotten\n";
    return;
  }
  throw Failure("nothing is catalogued at " + InQuotes(arguments[0]));
}

void Plan(const Location& location, const Arguments& arguments) {
  ExpectArguments(arguments, {});
  Store store(location, Access::kChange);
  ExplainLargest(store, std::cout);
}

using Command = void (*)(const Location& location, const Arguments& arguments);

const std::map<std::string, Command> kCommands = {
    {"index", Index}, {"count", Count}, {"largest", Largest}, {"duplicates", ShowDuplicates},
    {"find", Find},   {"tag", Tag},     {"forget", Forget},   {"plan", Plan},
};

using Options = std::map<std::string, std::optional<std::string>>;

// Moves what stands before DB from the arguments to the options.
void TakeOptions(Arguments& arguments, Options& options) {
  while (!arguments.empty()) {
    const auto option = options.find(arguments[0]);
    if (option == options.end()) return;
    const auto& [name, value] = *option;
    if (value) throw Misuse("superfluous argument " + InQuotes(name));
    if (arguments.size() < 2) throw Misuse("the value of " + name + " is missing");
    if (arguments[1].empty()) throw Misuse("the value of " + name + " is empty");
    option->second = arguments[1];
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
}

void RunCommand(Arguments arguments) {
  Options options = {{"--load", std::nullopt}, {"--key", std::nullopt}};
  TakeOptions(arguments, options);
  if (arguments.empty()) throw Misuse("DB is missing");
  if (arguments[0].empty()) throw Misuse("DB is empty");
  if (arguments.size() < 2) throw Misuse("COMMAND is missing");
  const auto command = kCommands.find(arguments[1]);
  if (command == kCommands.end()) throw Misuse("unknown command " + InQuotes(arguments[1]));

  std::optional<Module> module;
  if (options["--load"]) module.emplace(*options["--load"]);
  try {
    command->second(Location{arguments[0], options["--key"]}, Arguments(arguments.begin() + 2, arguments.end()));
  } catch (const Failure&) {
    throw;
  } catch (const kit::Error& error) {
    // Without the SQL.
    throw Failure(InQuotes(arguments[0]) + ": " + Printable(std::string(error.Message())));
  } catch (const std::exception& error) {
    throw Failure(InQuotes(arguments[0]) + ": " + Printable(error.what()));
  }
}

int Run(const Arguments& arguments) {
  if (arguments.empty()) {
    std::cerr << kUsage;
    return kMisused;
  }
  if (arguments[0] == "--help") {
    ExpectArguments(arguments, {"--help"});
    std::cout << kUsage;
  } else {
    RunCommand(arguments);
  }
  if (!std::cout.flush()) throw Failure("cannot write the output");
  return 0;
}

int Complain(const std::string& reason, int status) {
  std::cerr << "catalog: " << reason << "\n";
  return status;
}

}  // namespace

}  // namespace catalog

int main(int count, char** values) {
  using namespace catalog;
  const Arguments arguments(values + (count > 0 ? 1 : 0), values + count);
  try {
    return Run(arguments);
  } catch (const Misuse& misuse) {
    return Complain(std::string(misuse.what()) + "; see catalog --help", kMisused);
  } catch (const std::exception& error) {
    return Complain(error.what(), kFailed);
  }
}
