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

using sqldb::SQLDatabase;
using sqldb::kit::Ascending;
using sqldb::kit::Between;
using sqldb::kit::Descending;
using sqldb::kit::Field;
using sqldb::kit::In;
using sqldb::kit::IsNull;
using sqldb::kit::Like;
using sqldb::kit::Table;

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
std::string Printed(std::optional<double> number) {
  if (!number) return "";
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", *number);
  return text;
}

// A code is an integer or a text, and compared as what it looks like.
struct Alias {
  std::string table, authority, name, code;
  std::optional<std::string> source;
};

struct Extent {
  std::string authority, name, code;
  std::optional<double> south, north;
  bool isDeprecated;
};

struct Total {
  std::int64_t count;
  std::optional<double> north;
};

// Works on a copy.
class ProjTest : public testing::Test {
 protected:
  ProjTest() : fPath(fFolder.Path("proj.db")), fDatabase(fPath, false) {
    std::filesystem::copy_file(PROJ_DATABASE, fPath);
    fDatabase.Open();
  }

  static std::string Rows(const sqldb::kit::Selection<Alias>& aliases) {
    std::string text;
    for (const Alias& alias : aliases) {
      text += alias.table + "|" + alias.authority + "|" + alias.code + "|" + alias.name + "|" +
              alias.source.value_or("") + "\n";
    }
    return text;
  }
  static std::string Rows(const sqldb::kit::Selection<Extent>& extents) {
    std::string text;
    for (const Extent& extent : extents) {
      text += extent.authority + "|" + extent.code + "|" + extent.name + "|" + Printed(extent.south) + "|" +
              Printed(extent.north) + "|" + (extent.isDeprecated ? "1" : "0") + "\n";
    }
    return text;
  }
  std::string AliasesOf(const std::string& rest) const {
    return Shell(fPath, "SELECT table_name, auth_name, code, alt_name, source FROM alias_name " + rest);
  }
  std::string ExtentsOf(const std::string& rest) const {
    return Shell(fPath,
                 "SELECT auth_name, code, name, CASE WHEN south_lat NOT NULL THEN printf('%.15g', south_lat) END, "
                 "CASE WHEN north_lat NOT NULL THEN printf('%.15g', north_lat) END, deprecated FROM extent " +
                     rest);
  }
  std::string Counted(const std::string& rest) const { return Shell(fPath, "SELECT count(*) FROM " + rest); }

  support::TemporaryFolder fFolder;
  std::string fPath;
  SQLDatabase fDatabase;

  const sqldb::kit::Field<Alias, std::string> fTableName = Field("table_name", &Alias::table);
  const sqldb::kit::Field<Alias, std::string> fAliasAuthority = Field("auth_name", &Alias::authority);
  const sqldb::kit::Field<Alias, std::string> fAliasName = Field("alt_name", &Alias::name);
  const sqldb::kit::Field<Alias, std::string> fAliasCode = Field("code", &Alias::code);
  const sqldb::kit::Field<Alias, std::optional<std::string>> fSource = Field("source", &Alias::source);
  Table<Alias> fAliases{fDatabase, "alias_name", fTableName, fAliasAuthority, fAliasName, fAliasCode, fSource};

  const sqldb::kit::Field<Extent, std::string> fExtentCode = Field("code", &Extent::code);
  const sqldb::kit::Field<Extent, std::string> fExtentName = Field("name", &Extent::name);
  const sqldb::kit::Field<Extent, std::optional<double>> fSouth = Field("south_lat", &Extent::south);
  const sqldb::kit::Field<Extent, std::optional<double>> fNorth = Field("north_lat", &Extent::north);
  const sqldb::kit::Field<Extent, bool> fIsDeprecated = Field("deprecated", &Extent::isDeprecated);
  Table<Extent> fExtents{fDatabase,   "extent",     Field("auth_name", &Extent::authority),
                         fExtentName, fExtentCode,  fSouth,
                         fNorth,      fIsDeprecated};
};

TEST_F(ProjTest, CountsAsTheShellDoes) {
  EXPECT_EQ(std::to_string(fAliases.Count()) + "\n", Counted("alias_name"));
  EXPECT_EQ(std::to_string(fAliases.Count(fTableName == "ellipsoid")) + "\n",
            Counted("alias_name WHERE table_name = 'ellipsoid'"));
  EXPECT_EQ(std::to_string(fAliases.Count(IsNull(fSource) || fAliasAuthority != "EPSG")) + "\n",
            Counted("alias_name WHERE source IS NULL OR auth_name <> 'EPSG'"));
  EXPECT_TRUE(fAliases.Has(Like(fAliasName, "%1984%")));
  EXPECT_FALSE(fAliases.Has(fAliasName == "no such alias"));
}

TEST_F(ProjTest, SelectsEveryRowAsTheShellDoes) {
  EXPECT_EQ(Rows(fAliases.Select().OrderBy(fAliasName).OrderBy(fTableName).OrderBy(fAliasCode).OrderBy(fSource)),
            AliasesOf("ORDER BY alt_name, table_name, code, source"));
  EXPECT_EQ(Rows(fExtents.Select().OrderBy(fExtentCode).OrderBy(fExtentName)), ExtentsOf("ORDER BY code, name"));
}

TEST_F(ProjTest, SelectsWithTermsAsTheShellDoes) {
  EXPECT_EQ(
      Rows(fAliases.Select(Like(fAliasName, "%degree%") && !IsNull(fSource)).OrderBy(fAliasName).OrderBy(fAliasCode)),
      AliasesOf("WHERE alt_name LIKE '%degree%' AND source IS NOT NULL "
                "ORDER BY alt_name, code"));
  EXPECT_EQ(Rows(fExtents.Select(fNorth > 66.5 || fSouth < -66.5).OrderBy(fExtentCode).OrderBy(fExtentName)),
            ExtentsOf("WHERE north_lat > 66.5 OR south_lat < -66.5 ORDER BY code, name"));
  EXPECT_EQ(
      Rows(fExtents.Select(Between(fExtentCode, "1100", "1200") && In(fExtentName, {"Iceland", "Ireland", "Israel"}))
               .OrderBy(fExtentCode)),
      ExtentsOf("WHERE code BETWEEN 1100 AND 1200 AND name IN ('Iceland', 'Ireland', 'Israel') ORDER BY code"));
  EXPECT_EQ(Rows(fExtents.Select(IsNull(fSouth) && fIsDeprecated == false).OrderBy(fExtentCode).OrderBy(fExtentName)),
            ExtentsOf("WHERE south_lat IS NULL AND deprecated = 0 ORDER BY code, name"));
}

TEST_F(ProjTest, OrdersAndPagesAsTheShellDoes) {
  for (std::uint32_t offset = 0; offset < 100; offset += 25) {
    EXPECT_EQ(Rows(fExtents.Select()
                       .OrderBy(Descending(fNorth))
                       .OrderBy(Ascending(fExtentCode))
                       .OrderBy(fExtentName)
                       .Limit(25)
                       .Offset(offset)),
              ExtentsOf("ORDER BY north_lat DESC, code, name LIMIT 25 OFFSET " + std::to_string(offset)));
  }
}

// A table without a rowid has no COUNT(ROWID), which is what the core counts by.
TEST_F(ProjTest, ATableWithoutRowidsIsCountedByAnExpression) {
  EXPECT_THROW(fExtents.Count(), sqldb::kit::Error);
  Table<Total> totals(fDatabase, "extent", Field("count(*)", &Total::count), Field("max(north_lat)", &Total::north));
  const std::optional<Total> total = totals.Select(fSouth >= 0.0).First();
  ASSERT_TRUE(total);
  EXPECT_EQ(std::to_string(total->count) + "|" + Printed(total->north) + "\n",
            Shell(fPath, "SELECT count(*), printf('%.15g', max(north_lat)) FROM extent WHERE south_lat >= 0"));
}

TEST_F(ProjTest, DeletesAndUpdatesAsTheShellDoes) {
  const std::string other = fFolder.Path("other.db");
  std::filesystem::copy_file(PROJ_DATABASE, other);
  const std::int64_t deleted = fAliases.Delete(Like(fAliasName, "%/%") && fAliasAuthority == "EPSG");
  const std::int64_t updated = fAliases.Update(fTableName == "ellipsoid", {Set(fSource, std::string("it's here"))});
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
