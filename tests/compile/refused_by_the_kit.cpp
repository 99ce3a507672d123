// What the kit refuses while it is compiled, and in which words. Compiled once as it stands, which must succeed, and
// once for each mistake, which must not: refusals.cmake reads their names, and the beginning of what is said, from
// here.
#include "sqldb/kit/kit.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace sqldb::kit;

struct Part {
  std::int64_t id = 0;
  std::string name;
  std::optional<double> price;

  static constexpr auto Description() {
    return Describe("parts", Key("id", &Part::id), Field("name", &Part::name), Field("price", &Part::price));
  }
};

struct Line {
#ifdef MISTAKE_member_that_is_a_view  // What is read has values of its own:
  std::string_view text;
#else
  std::string text;
#endif

  static constexpr auto Description() {
#ifdef MISTAKE_table_without_name  // The description names no table:
    return Describe(Key("text", &Line::text));
#elif defined(MISTAKE_without_key)
    return Describe("lines", Field("text", &Line::text));
#else
    return Describe("lines", Key("text", &Line::text));
#endif
  }
};

struct Pair {
  int a = 0;
  int b = 0;

  static constexpr auto Description() {
#ifdef MISTAKE_same_name_twice  // Two fields of the struct have the same name.
    return Describe("pairs", Field("a", &Pair::a), Field("a", &Pair::b));
#else
    return Describe("pairs", Field("a", &Pair::a), Field("b", &Pair::b));
#endif
  }
};

struct Plain {
  int a = 0;
#ifdef MISTAKE_table_of_what_is_not_described           // Describe the struct: give it a static constexpr Description,
#elif defined(MISTAKE_column_of_what_is_not_described)  // Describe the struct: give it a static constexpr Description,
#else
  static constexpr auto Description() { return Describe("plain", Field("a", &Plain::a)); }
#endif
};

// Called as the kit calls its own: a warning that one hides the other would come from its headers.
constexpr Column id(&Part::id);
constexpr Column name(&Part::name);
constexpr Column price(&Part::price);
constexpr Column text(&Line::text);

#ifndef MISTAKE_table_of_what_is_not_described
constexpr Column value(&Plain::a);
Term AboutPlain() { return value == 1; }
#endif
#ifndef MISTAKE_column_of_what_is_not_described
void MakePlain(const Database& database) { Table<Plain>(database).Create(); }
#endif
void MakePair(const Database& database) { Table<Pair>(database).Create(); }

Term Comparison() {
#ifdef MISTAKE_comparison_with_null  // Nothing compares with NULL: use IsNull(column),
  return price == std::nullopt;
#elif defined(MISTAKE_comparison_of_text_and_number)  // Compare numbers with numbers, texts with texts,
  return name == 5;
#else
  return name == "bolt";
#endif
}

Term ComparisonOfRows() {
#ifdef MISTAKE_row_of_one  // A row has two parts at least.
  return RowOf(id) > RowOf(1);
#elif defined(MISTAKE_row_with_null)  // Nothing compares with NULL.
  return RowOf(id, std::nullopt) > RowOf(1, "bolt");
#else
  return RowOf(id, name) > RowOf(1, "bolt");
#endif
}

Term Identity() {
#ifdef MISTAKE_identity_of_text_and_number  // Compare numbers with numbers, texts with texts,
  return Is(name, std::optional<int>(5));
#else
  return Is(name, std::optional<std::string>("bolt"));
#endif
}

Term Bounds() {
#ifdef MISTAKE_bound_of_another_type  // Compare numbers with numbers, texts with texts,
  return Between(id, 1, "bolt");
#else
  return Between(id, 1, 2);
#endif
}

Term OneOf() {
#ifdef MISTAKE_values_of_another_type  // Compare numbers with numbers, texts with texts,
  return In(name, std::vector<int>{5});
#else
  return In(name, std::vector<std::string>{"bolt"});
#endif
}

Term Pattern() {
#ifdef MISTAKE_pattern_for_numbers  // LIKE is for texts.
  return Like(price, "1%");
#else
  return Like(name, "b%");
#endif
}

Assignment Value() {
#ifdef MISTAKE_assignment_of_another_type  // The member of this column cannot have such a value.
  return Set(name, 5);
#elif defined(MISTAKE_assignment_of_null)  // The member of this column cannot have such a value.
  return Set(name, std::nullopt);
#else
  return Set(price, std::nullopt);
#endif
}

void Write(const Table<Part>& parts) {
#ifdef MISTAKE_assignment_that_is_none  // After the term: Set(column, value),
  parts.Update(id == 1, Value(), 5);
#else
  parts.Update(id == 1, Value(), Set(name, "nut"));
#endif
}

void Find(const Table<Part>& parts, const Table<Line>& lines) {
#ifdef MISTAKE_key_of_two_parts  // Give one value for each part of the key.
  parts.Find(1, 2);
#elif defined(MISTAKE_key_of_another_type)  // Give the parts of the key in the order of the fields:
  parts.Find("bolt");
#else
  parts.Find(1);
#endif
#ifdef MISTAKE_without_key  // The struct has no key: describe one with Key(
#endif
  lines.Find("a line");
}

void Run(Database& database) {
#ifdef MISTAKE_parameters_in_order_and_by_name  // Give all parameters in order, or all of them by name with Named.
  database.Execute("DELETE FROM parts WHERE id IN (?, :other)", 1, Named(":other", 2));
#else
  database.Execute("DELETE FROM parts WHERE id IN (:one, :other)", Named(":one", 1), Named(":other", 2));
#endif
#ifdef MISTAKE_rows_of_nothing  // Say what a row is:
  database.Query<>("SELECT name FROM parts");
#elif defined(MISTAKE_rows_of_views)         // A row has values of its own:
  database.Query<std::string_view>("SELECT name FROM parts");
#elif defined(MISTAKE_query_of_a_temporary)  // deleted
  Database("parts.db").Query<std::string>("SELECT name FROM parts");
#else
  for (const std::string& each : database.Query<std::string>("SELECT name FROM parts")) database.Execute(each);
#endif
#ifdef MISTAKE_character  // A character is not stored:
  database.One<char>("SELECT 1");
#elif defined(MISTAKE_type_that_is_not_stored)  // This type is not stored: specialise sqldb::kit::Type for it,
  database.One<std::vector<std::string> >("SELECT 1");
#elif defined(MISTAKE_optional_twice)           // NULL says once that there is no value:
  database.One<std::optional<std::optional<int> > >("SELECT 1");
#else
  database.One<std::optional<int> >("SELECT 1");
#endif
}

}  // namespace

void DoAll(Database& database) {
  const Table<Part> parts(database);
  Write(parts);
  Find(parts, Table<Line>(database));
  Run(database);
#ifndef MISTAKE_table_of_what_is_not_described
  parts.Delete(AboutPlain());
#endif
#ifndef MISTAKE_column_of_what_is_not_described
  MakePlain(database);
#endif
  MakePair(database);
  parts.Delete(Comparison() && ComparisonOfRows() && Identity() && !IsNull(text) && Bounds() && OneOf() && Pattern());
}
