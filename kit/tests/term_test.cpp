#include "sqldb/kit/term.h"

#include <sstream>

#include <boost/shared_ptr.hpp>

#include "kit_test.h"
#include "sqldb/term.h"

namespace {

using namespace sqldb::kit;
using kit_test::Part;

constexpr Column id(&Part::id);
constexpr Column name(&Part::name);
constexpr Column price(&Part::price);
constexpr Column note(&Part::note);

std::string TextOf(const Term& term) {
  std::ostringstream text;
  term.Core()->Print(text);
  return text.str();
}

TEST(Term, PrintsItsValuesAsLiteralsForTheCore) {
  EXPECT_EQ(TextOf(price < 1.5), " price < 1.5");
  EXPECT_EQ(TextOf(1.5 < price), " 1.5 < price");
  EXPECT_EQ(TextOf(name == "it's" && !(id >= 3 || IsNull(note))), " name = 'it''s' AND NOT (id >= 3 OR note IS NULL)");
  EXPECT_EQ(TextOf(RowOf(price, id) > RowOf(1.0, 7)), " (price, id) > (1.0, 7)");
  EXPECT_EQ(TextOf(In(name, {"a", "b"})), " name IN ('a', 'b')");
  EXPECT_EQ(TextOf(Between(id, 1, 2)), " id BETWEEN 1 AND 2");
  EXPECT_EQ(TextOf(Where("a = ? OR b = '?'", 1) && id == 1), " (a = 1 OR b = '?') AND id = 1");
}

}  // namespace
