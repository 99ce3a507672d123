// What must not compile, and the one sentence that says why: each case alone, when its name is defined. Without any,
// all of this compiles. See refused.cmake.

#include <string>
#include <string_view>
#include <tuple>

#include "sqldb/kit/functions.h"
#include "sqldb/kit/kit.h"

using namespace sqldb::kit;

struct Opaque {};

struct Holder {
  Opaque opaque;
  char character = 'a';
  std::string_view view;
  std::optional<std::optional<int>> twice;
  int number = 0;
};

struct Unmade {
  explicit Unmade(int);
  int number = 0;
  static constexpr auto Description() { return Describe(Field("number", &Unmade::number)); }
};

// A struct with one field, which is the one that `Make` makes.
template <typename Fields>
void ReadFields(const Fields& fields) {
  detail::EntryOf<Holder>(std::get<0>(fields.fields));
}

void Compiles(Database& database) {
  for (const auto& [a, b] : database.Query<int, std::string>("SELECT 1, ''", Named(":a", 1), Named(":b", 2))) {
    static_cast<void>(a + static_cast<int>(b.size()));
  }
  ReadFields(Describe(Field("number", &Holder::number)));
}

void IsRefused(Database& database, Opaque& opaque, int* pointer) {
  static_cast<void>(database);
  static_cast<void>(opaque);
  static_cast<void>(pointer);
#if defined(A_MEMBER_WITHOUT_TYPE)  // This type is not stored: specialise sqldb::kit::Type for it
  ReadFields(Describe(Field("opaque", &Holder::opaque)));
#elif defined(A_CHARACTER)                // A character is not stored: use std::string or char.N. for texts
  ReadFields(Describe(Field("character", &Holder::character)));
#elif defined(A_VIEW_AS_MEMBER)           // Views and pointers are not stored: use what owns its value
  ReadFields(Describe(Field("view", &Holder::view)));
#elif defined(AN_OPTIONAL_TWICE)          // NULL says once that there is no value: use one std::optional
  ReadFields(Describe(Field("twice", &Holder::twice)));
#elif defined(A_NAME_THAT_IS_NO_LITERAL)  // no matching function|no viable|cannot deduce|deduction
                                          // failed|deduction/substitution failed
  ReadFields(Describe(Field(std::string("number"), &Holder::number)));
#elif defined( \
    A_ROW_WITHOUT_TYPE)  // This type is not stored: .* A struct is a row if it has a static constexpr Description
  database.All<Opaque>("SELECT 1");
#elif defined(A_GENERIC_FUNCTION)          // A function of the program's own takes arguments of fixed types
  Define(database, "f", [](auto a) { return a; });
#elif defined(A_FUNCTION_WITHOUT_TYPE)     // This type is not stored
  Define(database, "f", [](const Opaque&) { return 1; });
#elif defined(A_RESULT_WITHOUT_TYPE)       // This type is not stored
  Define(database, "f", [] { return Opaque(); });
#elif defined(A_COLLATION_THAT_MAY_THROW)  // A collation is given two std::string_view, returns an int, and is noexcept
  DefineCollation(database, "c", [](std::string_view, std::string_view) { return 0; });
#elif defined(A_COLLATION_WITHOUT_AN_INT)  // A collation is given two std::string_view, returns an int, and is noexcept
  DefineCollation(database, "c", [](std::string_view, std::string_view) noexcept { return 0LL; });
#elif defined(A_PARAMETER_WITHOUT_TYPE)    // This type is not stored
  database.Execute("SELECT ?", opaque);
#elif defined(A_POINTER_AS_PARAMETER)      // Views and pointers are not stored
  database.Execute("SELECT ?", pointer);
#elif defined(AN_ELEMENT_WITHOUT_TYPE)     // This type is not stored
  database.Execute("SELECT value FROM list(?)", List(std::vector<Opaque>{opaque}));
#elif defined(A_VIEW_AS_ROW)               // Views and pointers are not stored: use what owns its value
  database.All<std::string_view>("SELECT ''");
#elif defined(CHARACTERS_AS_ROW)           // Views and pointers are not stored: use what owns its value
  database.All<const char*, int>("SELECT '', 1");
#elif defined(A_REFERENCE_AS_ROW)          // A row has values of its own: neither references nor arrays
  database.All<int&>("SELECT 1");
#elif defined(AN_ARRAY_AS_ROW)             // A row has values of its own: neither references nor arrays
  database.All<char[4]>("SELECT ''");
#elif defined(NO_ROW)                      // Say what a row is made of
  database.All<>("SELECT 1");
#elif defined(A_STRUCT_THAT_CANNOT_BE_MADE)      // it needs a constructor without arguments
  database.All<Unmade>("SELECT 1 AS number");
#elif defined(PARAMETERS_MIXED)                  // Give all parameters in order, or all of them by name with Named
  database.Execute("SELECT ?, :b", 1, Named(":b", 2));
#elif defined(A_QUERY_OF_A_TEMPORARY)            // deleted
  for (const int a : Database(":memory:").Query<int>("SELECT 1")) static_cast<void>(a);
#elif defined(AN_ELEMENT_THAT_IS_CHANGED)        // discards qualifiers|drops 'const' qualifier
  for (int& a : database.Query<int>("SELECT 1")) a = 2;
#elif defined(A_RANGE_THAT_IS_COPIED)            // deleted
  auto rows = database.Query<int>("SELECT 1");
  auto copy = rows;
#elif defined(COLUMNS_OF_WHAT_IS_NOT_DESCRIBED)  // Describe the struct: give it a static constexpr Description
  Columns<Opaque>("o");
#elif defined(TWO_FIELDS_OF_ONE_NAME)            // Two fields of the struct have the same name
  struct Twice {
    int a = 0;
    int b = 0;
    static constexpr auto Description() { return Describe(Field("a", &Twice::a), Field("a", &Twice::b)); }
  };
  database.All<Twice>("SELECT 1 AS a");
#endif
}
