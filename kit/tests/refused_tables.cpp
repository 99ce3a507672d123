// What must not compile with tables and terms, and the one sentence that says why: each case alone, when its name is
// defined; see refused.cmake. Without any, all of this compiles, without a warning and as C++20 as well, although the
// columns have names that members and parameters have, too.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sqldb/kit/kit.h"

using namespace sqldb::kit;

struct Part {
  std::int64_t id = 0;
  std::string name;
  double price = 0;
  std::optional<std::string> note;
  std::optional<double> weight;
  int undescribed = 0;

  static constexpr auto Description() {
    return Describe("parts", Key("id", &Part::id), Field("name", &Part::name), Field("price", &Part::price),
                    Field("note", &Part::note), Field("weight", &Part::weight));
  }
};

struct Line {
  int order = 0;
  std::string line;
  static constexpr auto Description() {
    return Describe("lines", Key("order_id", &Line::order), Key("line", &Line::line));
  }
};

struct Keyless {
  int number = 0;
  static constexpr auto Description() { return Describe(Field("number", &Keyless::number)); }
};

struct Bare {
  int number = 0;
};

constexpr Column id(&Part::id);
constexpr Column name(&Part::name);
constexpr Column price(&Part::price);
constexpr Column note(&Part::note);
constexpr Column weight(&Part::weight);
constexpr Column line(&Line::line);
// Names that are used inside the kit.
constexpr Column text(&Part::name);
constexpr Column value(&Part::price);
constexpr Column term(&Part::id);
constexpr Column column(&Part::id);
constexpr Column key(&Part::id);
constexpr Column order(&Line::order);
constexpr Column count(&Part::id);
constexpr Column record(&Part::id);
constexpr Column table(&Part::name);
constexpr Column sql(&Part::name);
constexpr Column piece(&Part::name);
constexpr Column row(&Part::id);
constexpr Column statement(&Part::id);
constexpr Column arguments(&Part::id);
constexpr Column limit(&Part::id);
constexpr Column pattern(&Part::name);
constexpr Column values(&Part::name);
constexpr Column fields(&Part::name);
constexpr Column member(&Part::name);
constexpr Column expression(&Part::name);

void Compiles(Database& database) {
  const Table<Part> parts(database);
  const Table<Line> lines(database, "lines");
  const Table<Keyless> keyless(database, "keyless");
  parts.CreateIfMissing();
  parts.Insert({1, "bolt", 0.25, std::nullopt, 1.0, 0});
  static_cast<void>(parts.Find(1));
  static_cast<void>(lines.Find(1, "a"));
  lines.Delete(1, std::string("a"));
  keyless.Insert({1});
  for (const Part& part : parts.Select(1.0 < price && "x" == name && name != "y" && 1 >= id && price == weight)
                              .OrderBy(price)
                              .OrderBy(Descending(name))
                              .Limit(1)) {
    parts.Update(part);
  }
  parts.Update(RowOf(price, id) > RowOf(1.0, 7) || !In(name, {"a", "b"}) || Between(price, 1, weight),
               Set(price, Sql<double>("price * ?", 1.1)), Set(note, std::nullopt),
               Set(weight, std::optional<double>()));
  parts.Delete(Is(note, std::optional<std::string>("a")) || Like(text, "a%") || IsNull(weight));
  parts.Delete(EveryRow());
  for (const char* const each :
       {text.Name(),   value.Name(),   term.Name(),   column.Name(), key.Name(),    order.Name(),      count.Name(),
        record.Name(), table.Name(),   sql.Name(),    piece.Name(),  row.Name(),    statement.Name(),  arguments.Name(),
        limit.Name(),  pattern.Name(), values.Name(), fields.Name(), member.Name(), expression.Name(), line.Name()})
    database.Execute(each);
}

void IsRefused(Database& database) {
  const Table<Part> parts(database);
  const Table<Line> lines(database);
#if defined(A_TEXT_WITH_A_NUMBER)  // Compare numbers with numbers, texts with texts
  static_cast<void>(name == 5);
#elif defined(A_NUMBER_WITH_A_TEXT)         // Compare numbers with numbers, texts with texts
  static_cast<void>("5" < price);
#elif defined(COLUMNS_OF_OTHER_TYPES)       // Compare numbers with numbers, texts with texts
  static_cast<void>(name == price);
#elif defined(ROWS_OF_OTHER_TYPES)          // Compare numbers with numbers, texts with texts
  static_cast<void>(RowOf(name, id) > RowOf(1, "a"));
#elif defined(ROWS_OF_OTHER_SIZES)          // Compare numbers with numbers, texts with texts
  static_cast<void>(RowOf(id, price) == RowOf(id, price, weight));
#elif defined(NULL_IN_A_COMPARISON)         // Nothing compares with NULL: use IsNull
  static_cast<void>(note == std::nullopt);
#elif defined(NULL_ON_THE_LEFT)             // Nothing compares with NULL: use IsNull
  static_cast<void>(std::nullopt != note);
#elif defined(AN_OPTIONAL_IN_A_COMPARISON)  // Nothing compares with NULL: use IsNull
  static_cast<void>(weight < std::optional<double>(1));
#elif defined(AN_OPTIONAL_LOW)              // Nothing compares with NULL
  static_cast<void>(Between(price, std::optional<double>(1), 2));
#elif defined(AN_OPTIONAL_HIGH)             // Nothing compares with NULL
  static_cast<void>(Between(price, 1, std::optional<double>(2)));
#elif defined(OPTIONALS_IN_A_LIST)          // Nothing compares with NULL
  static_cast<void>(In(price, std::vector<std::optional<double> >()));
#elif defined(AN_OPTIONAL_IN_A_ROW)         // Nothing compares with NULL
  static_cast<void>(RowOf(price, std::optional<int>(1)));
#elif defined(A_ROW_OF_ONE)                 // A row has two parts at least
  static_cast<void>(RowOf(price) < 1);
#elif defined(NUMBERS_IN_A_LIST_OF_TEXTS)   // Compare numbers with numbers, texts with texts
  static_cast<void>(In(name, {1, 2}));
#elif defined(A_TEXT_BETWEEN_NUMBERS)       // Compare numbers with numbers, texts with texts
  static_cast<void>(Between(name, "a", 2));
#elif defined(A_NUMBER_THAT_IS_LIKE)        // LIKE is for texts
  static_cast<void>(Like(price, "1%"));
#elif defined(A_NUMBER_THAT_IS_A_TEXT)      // Compare numbers with numbers, texts with texts
  static_cast<void>(Is(price, std::optional<std::string>()));
#elif defined(AN_ORDER_BY_A_TEXT)           // This is of a column or an Sql
  static_cast<void>(parts.Select().OrderBy("name"));
#elif defined(A_DESCENDING_TEXT)            // This is of a column or an Sql
  static_cast<void>(Descending("name"));
#elif defined(A_VALUE_THAT_IS_NULL)         // This is of a column or an Sql
  static_cast<void>(IsNull("name"));
#elif defined(A_TEXT_THAT_IS_LIKE)          // This is of a column or an Sql
  static_cast<void>(Like("name", "a%"));
#elif defined(A_VALUE_IN_A_LIST)            // This is of a column or an Sql
  static_cast<void>(In("name", {"a"}));
#elif defined(A_CHAIN_OF_COMPARISONS)       // no match for|invalid operands
  static_cast<void>(0.5 < price < 1);
#elif defined(A_TEXT_AS_A_CONDITION)        // no match for|invalid operands
  static_cast<void>(price < 1 && "name = 5");
#elif defined(A_CONDITION_AS_BOOL)          // could not convert|cannot convert|contextually convertible|no viable conv
  if (price < 1) parts.Create();
#elif defined(NULL_FOR_A_MEMBER)            // The member of this column cannot have such a value
  static_cast<void>(Set(price, std::nullopt));
#elif defined(AN_OPTIONAL_FOR_A_MEMBER)     // The member of this column cannot have such a value
  static_cast<void>(Set(price, std::optional<double>(1)));
#elif defined(A_TEXT_FOR_A_NUMBER)          // The member of this column cannot have such a value
  static_cast<void>(Set(price, "1"));
#elif defined(A_NUMBER_FOR_AN_OPTIONAL_TEXT)   // The member of this column cannot have such a value
  static_cast<void>(Set(note, 1));
#elif defined(AN_UPDATE_OF_NOTHING)            // no matching function|no matching member function
  parts.Update(price < 1);
#elif defined(AN_UPDATE_BY_TERMS)              // After the term: Set.column, value
  parts.Update(price < 1, Set(price, 1), price < 2);
#elif defined(TOO_FEW_KEYS)                    // Give one value for each part of the key
  static_cast<void>(lines.Find(1));
#elif defined(TOO_MANY_KEYS)                   // Give one value for each part of the key
  parts.Delete(1, 2);
#elif defined(NO_KEY_AT_ALL)                   // Give one value for each part of the key
  parts.Delete();
#elif defined(A_TEXT_AS_A_KEY)                 // Give the parts of the key in the order of the fields
  static_cast<void>(parts.Get("1"));
#elif defined(KEYS_IN_ANOTHER_ORDER)           // Give the parts of the key in the order of the fields
  static_cast<void>(lines.Find("a", 1));
#elif defined(NULL_AS_A_KEY)                   // Give the parts of the key in the order of the fields
  static_cast<void>(parts.Find(std::nullopt));
#elif defined(A_KEY_WHERE_THERE_IS_NONE)       // The struct has no key: describe one with Key
  static_cast<void>(Table<Keyless>(database, "keyless").Find(1));
#elif defined(AN_UPDATE_WITHOUT_A_KEY)         // The struct has no key: describe one with Key
  Table<Keyless>(database, "keyless").Update(Keyless());
#elif defined(AN_UPSERT_WITHOUT_A_KEY)         // The struct has no key: describe one with Key
  Table<Keyless>(database, "keyless").Upsert(Keyless());
#elif defined(A_TABLE_WITHOUT_A_NAME)          // The description names no table
  const Table<Keyless> keyless(database);
#elif defined(A_STRUCT_WITHOUT_A_DESCRIPTION)  // Describe the struct: give it a static constexpr Description
  const Table<Bare> bare(database, "bare");
#elif defined(A_COLUMN_WITHOUT_A_DESCRIPTION)  // Describe the struct: give it a static constexpr Description
  constexpr Column number(&Bare::number);
#elif defined(A_MEMBER_THAT_IS_NOT_DESCRIBED)  // ThisMemberIsNotDescribed|must be initialized by a constant expression
  constexpr Column undescribed(&Part::undescribed);
#elif defined(A_COLUMN_OF_ANY_TEXT)            // no matching|deduction failed|could not convert|no viable
  const Column any("name");
#elif defined(A_QUALIFIER_THAT_DOES_NOT_STAY)  // deleted
  char alias[] = "p";
  static_cast<void>(id.Of(alias));
#elif defined(AN_ELEMENT_THAT_IS_CHANGED)      // discards qualifiers|drops 'const' qualifier
  for (Part& part : parts.Select()) part.id = 1;
#else
  static_cast<void>(parts);
#endif
}
