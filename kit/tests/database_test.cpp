#include "sqldb/kit/database.h"

#include "kit_test.h"

namespace {

using sqldb::kit::Database;

TEST(Database, RunsAnySql) {
  Database database(":memory:");
  database.Execute("CREATE TABLE t (a, b)");
  EXPECT_EQ(database.Execute("INSERT INTO t VALUES (?, ?)", 1, "one"), 1);
  EXPECT_EQ(database.One<std::string>("SELECT b FROM t WHERE a = ?", 1), "one");
}

}  // namespace
