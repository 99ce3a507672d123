// A database that others designed and filled: the geodetic registry of PROJ. SQLite's own shell is the judge of what is
// in it; the queries given to it are written by hand.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "sqldb/kit/kit.h"
#include "support/temporary_folder.h"

namespace {

using namespace sqldb::kit;

// What the shell prints for `sql`: a row a line, with bars between the columns.
std::string Shell(const std::string& path, const std::string& sql) {
  const std::string command = std::string(SQLITE3_SHELL) + " -batch -bail '" + path + "' \"" + sql + "\"";
  FILE* const output = popen(command.c_str(), "r");
  if (output == nullptr) throw std::runtime_error("cannot start the shell");
  std::string text;
  char buffer[4096];
  while (const std::size_t size = fread(buffer, 1, sizeof buffer, output)) text.append(buffer, size);
  if (pclose(output) != EXIT_SUCCESS) throw std::runtime_error("the shell failed: " + command);
  return text;
}

// As SQLite's printf('%.15g') prints it.
std::string PrintedNumber(std::optional<double> number) {
  if (!number) return "";
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", *number);
  return text;
}

// A code is stored as an integer if it looks like one, else as a text. What has both is read as one of them by a view.
struct Alias {
  std::string table, authority, name, code;
  std::optional<std::string> source;

  static constexpr auto Description() {
    return Describe("alias_name", Field("table_name", &Alias::table), Field("auth_name", &Alias::authority),
                    Field("code", &Alias::code), Field("alt_name", &Alias::name), Field("source", &Alias::source));
  }
};

constexpr Column kTableName(&Alias::table);
constexpr Column kAliasAuthority(&Alias::authority);
constexpr Column kAliasName(&Alias::name);
constexpr Column kAliasCode(&Alias::code);
constexpr Column kSource(&Alias::source);

struct Extent {
  std::string authority, name, code;
  std::optional<double> south, north;
  bool isDeprecated = false;

  static constexpr auto Description() {
    return Describe("extent", Key("auth_name", &Extent::authority), Key("code", &Extent::code),
                    Field("name", &Extent::name), Field("south_lat", &Extent::south),
                    Field("north_lat", &Extent::north), Field("deprecated", &Extent::isDeprecated));
  }
};

constexpr Column kExtentCode(&Extent::code);
constexpr Column kExtentName(&Extent::name);
constexpr Column kSouth(&Extent::south);
constexpr Column kNorth(&Extent::north);
constexpr Column kIsDeprecated(&Extent::isDeprecated);

// Of those whose code is an integer.
struct NumberedExtent {
  std::string authority;
  std::int64_t code = 0;
  std::string name;

  static constexpr auto Description() {
    return Describe("extent", Key("auth_name", &NumberedExtent::authority), Key("code", &NumberedExtent::code),
                    Field("name", &NumberedExtent::name));
  }
};

// Works on a copy.
class ProjTest : public testing::Test {
 protected:
  ProjTest() : fPath(fFolder.Path("proj.db")), fDatabase(Copied(fPath)) {
    fDatabase.ExecuteScript(
        "CREATE VIEW aliases AS SELECT table_name, auth_name, CAST(code AS TEXT) AS code, alt_name, source FROM "
        "alias_name; CREATE VIEW extents AS SELECT auth_name, CAST(code AS TEXT) AS code, name, south_lat, north_lat, "
        "deprecated FROM extent");
  }

  static const std::string& Copied(const std::string& path) {
    std::filesystem::copy_file(PROJ_DATABASE, path);
    return path;
  }

  static std::string Printed(const Selection<Alias>& aliases) {
    std::string text;
    for (const Alias& alias : aliases) {
      text += alias.table + "|" + alias.authority + "|" + alias.code + "|" + alias.name + "|" +
              alias.source.value_or("") + "\n";
    }
    return text;
  }
  static std::string Printed(const Extent& extent) {
    return extent.authority + "|" + extent.code + "|" + extent.name + "|" + PrintedNumber(extent.south) + "|" +
           PrintedNumber(extent.north) + "|" + (extent.isDeprecated ? "1" : "0") + "\n";
  }
  static std::string Printed(const Selection<Extent>& extents) {
    std::string text;
    for (const Extent& extent : extents) text += Printed(extent);
    return text;
  }
  std::string AliasesOf(const std::string& rest) const {
    return Shell(fPath, "SELECT table_name, auth_name, code, alt_name, source FROM aliases " + rest);
  }
  std::string ExtentsOf(const std::string& rest) const {
    return Shell(fPath,
                 "SELECT auth_name, code, name, CASE WHEN south_lat NOT NULL THEN printf('%.15g', south_lat) END, "
                 "CASE WHEN north_lat NOT NULL THEN printf('%.15g', north_lat) END, deprecated FROM extents " +
                     rest);
  }
  std::string Counted(const std::string& rest) const { return Shell(fPath, "SELECT count(*) FROM " + rest); }

  support::TemporaryFolder fFolder;
  std::string fPath;
  Database fDatabase;
  Table<Alias> fAliases{fDatabase, "aliases"};
  Table<Extent> fExtents{fDatabase, "extents"};
};

TEST_F(ProjTest, CountsAsTheShellDoes) {
  EXPECT_EQ(std::to_string(fAliases.Count()) + "\n", Counted("alias_name"));
  EXPECT_EQ(std::to_string(fAliases.Count(kTableName == "ellipsoid")) + "\n",
            Counted("alias_name WHERE table_name = 'ellipsoid'"));
  EXPECT_EQ(std::to_string(fAliases.Count(IsNull(kSource) || kAliasAuthority != "EPSG")) + "\n",
            Counted("alias_name WHERE source IS NULL OR auth_name <> 'EPSG'"));
  EXPECT_TRUE(fAliases.Has(Like(kAliasName, "%1984%")));
  EXPECT_FALSE(fAliases.Has(kAliasName == "no such alias"));
}

TEST_F(ProjTest, SelectsEveryRowAsTheShellDoes) {
  EXPECT_EQ(Printed(fAliases.Select().OrderBy(kAliasName).OrderBy(kTableName).OrderBy(kAliasCode).OrderBy(kSource)),
            AliasesOf("ORDER BY alt_name, table_name, code, source"));
  EXPECT_EQ(Printed(fExtents.Select().OrderBy(kExtentCode).OrderBy(kExtentName)), ExtentsOf("ORDER BY code, name"));
}

TEST_F(ProjTest, SelectsWithTermsAsTheShellDoes) {
  EXPECT_EQ(
      Printed(
          fAliases.Select(Like(kAliasName, "%degree%") && !IsNull(kSource)).OrderBy(kAliasName).OrderBy(kAliasCode)),
      AliasesOf("WHERE alt_name LIKE '%degree%' AND source IS NOT NULL "
                "ORDER BY alt_name, code"));
  EXPECT_EQ(Printed(fExtents.Select(kNorth > 66.5 || kSouth < -66.5).OrderBy(kExtentCode).OrderBy(kExtentName)),
            ExtentsOf("WHERE north_lat > 66.5 OR south_lat < -66.5 ORDER BY code, name"));
  EXPECT_EQ(
      Printed(fExtents.Select(Between(kExtentCode, "1100", "1200") && In(kExtentName, {"Iceland", "Ireland", "Israel"}))
                  .OrderBy(kExtentCode)),
      ExtentsOf("WHERE code BETWEEN '1100' AND '1200' AND name IN ('Iceland', 'Ireland', 'Israel') ORDER BY code"));
  EXPECT_EQ(
      Printed(fExtents.Select(IsNull(kSouth) && kIsDeprecated == false).OrderBy(kExtentCode).OrderBy(kExtentName)),
      ExtentsOf("WHERE south_lat IS NULL AND deprecated = 0 ORDER BY code, name"));
}

TEST_F(ProjTest, OrdersAndPagesAsTheShellDoes) {
  for (std::uint32_t offset = 0; offset < 100; offset += 25) {
    EXPECT_EQ(Printed(fExtents.Select()
                          .OrderBy(Descending(kNorth))
                          .OrderBy(Ascending(kExtentCode))
                          .OrderBy(kExtentName)
                          .Limit(25)
                          .Offset(offset)),
              ExtentsOf("ORDER BY north_lat DESC, code, name LIMIT 25 OFFSET " + std::to_string(offset)));
  }
}

// Which COUNT(ROWID) could not count.
TEST_F(ProjTest, CountsATableWithoutRowids) {
  const Table<Extent> extents(fDatabase);
  EXPECT_EQ(std::to_string(extents.Count()) + "\n", Counted("extent"));
  EXPECT_EQ(std::to_string(extents.Count(kSouth >= 0.0)) + "\n", Counted("extent WHERE south_lat >= 0"));
  EXPECT_TRUE(extents.Has(kSouth >= 0.0));
}

TEST_F(ProjTest, FindsEveryRowByItsKeyOfTwoParts) {
  const Table<NumberedExtent> extents(fDatabase);
  std::string found;
  for (const auto& [authority, code] : fDatabase.Query<std::string, std::int64_t>(
           "SELECT auth_name, code FROM extent WHERE typeof(code) = 'integer' ORDER BY code, auth_name")) {
    found += std::to_string(code) + "|" + extents.Get(authority, code).name + "\n";
  }
  EXPECT_EQ(found,
            Shell(fPath, "SELECT code, name FROM extent WHERE typeof(code) = 'integer' ORDER BY code, auth_name"));
  EXPECT_FALSE(extents.Find("no such authority", 1262));
}

TEST_F(ProjTest, AsksInSqlAsTheShellDoes) {
  const auto [count, north] = fDatabase.One<std::int64_t, std::optional<double>>(
      "SELECT COUNT(*), MAX(north_lat) FROM extent WHERE south_lat >= ?", 0);
  EXPECT_EQ(std::to_string(count) + "|" + PrintedNumber(north) + "\n",
            Shell(fPath, "SELECT count(*), printf('%.15g', max(north_lat)) FROM extent WHERE south_lat >= 0"));
}

TEST_F(ProjTest, JoinsAsTheShellDoes) {
  struct Ellipsoid {
    std::string name;
    static constexpr auto Description() { return Describe(Field("name", &Ellipsoid::name)); }
  };
  std::string joined;
  for (const auto& [ellipsoid, alias] : fDatabase.Query<Ellipsoid, std::optional<Alias>>(
           "SELECT e.name, " + Columns<Alias>("a") +
           " FROM ellipsoid e LEFT JOIN aliases a ON a.table_name = 'ellipsoid' AND a.auth_name = e.auth_name"
           " AND a.code = CAST(e.code AS TEXT) ORDER BY e.auth_name, e.code, a.alt_name")) {
    joined += ellipsoid.name + "|" + (alias ? alias->name + "|" + alias->source.value_or("") : "|") + "\n";
  }
  EXPECT_EQ(joined,
            Shell(fPath,
                  "SELECT e.name, a.alt_name, a.source FROM ellipsoid e LEFT JOIN alias_name a ON a.table_name = "
                  "'ellipsoid' AND a.auth_name = e.auth_name AND a.code = e.code ORDER BY e.auth_name, e.code, "
                  "a.alt_name"));
}

TEST_F(ProjTest, DeletesAndUpdatesAsTheShellDoes) {
  const std::string other = fFolder.Path("other.db");
  std::filesystem::copy_file(PROJ_DATABASE, other);
  const Table<Alias> names(fDatabase);
  const std::int64_t deleted = names.Delete(Like(kAliasName, "%/%") && kAliasAuthority == "EPSG");
  const std::int64_t updated = names.Update(kTableName == "ellipsoid", Set(kSource, "it's here"));
  EXPECT_EQ(std::to_string(deleted) + "\n" + std::to_string(updated) + "\n",
            Shell(other,
                  "DELETE FROM alias_name WHERE alt_name LIKE '%/%' AND auth_name = 'EPSG'; SELECT changes(); "
                  "UPDATE alias_name SET source = 'it''s here' WHERE table_name = 'ellipsoid'; SELECT changes();"));
  EXPECT_GT(deleted, 0);
  EXPECT_GT(updated, 0);
  fDatabase.Close();
  const std::string everything = "SELECT * FROM alias_name ORDER BY 1, 2, 3, 4, 5; PRAGMA integrity_check";
  EXPECT_EQ(Shell(fPath, everything), Shell(other, everything));
}

}  // namespace
