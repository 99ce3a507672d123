// Columns whose names are those of many a local one in a library. A compiler tells of a local name in a template where
// that is used, which is in the program, so that the kit's must be others. Compiled, and never run.
#include "sqldb/kit/kit.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using namespace sqldb::kit;

struct Part {
  std::int64_t id = 0;
  std::string name;
  std::optional<double> price;

  static constexpr auto Description() {
    return Describe("parts", Key("id", &Part::id), Field("name", &Part::name).Collate("NOCASE").Unique(),
                    Field("price", &Part::price));
  }
};
constexpr Column id(&Part::id);
constexpr Column name(&Part::name);
constexpr Column price(&Part::price);

// Not those of functions of C that a standard library may declare as well, such as index.
#define COLUMN(local) [[maybe_unused]] constexpr Column local(&Part::name);
COLUMN(a)
COLUMN(action)
COLUMN(all)
COLUMN(argument)
COLUMN(arguments)
COLUMN(assignments)
COLUMN(b)
COLUMN(before)
COLUMN(begin)
COLUMN(between)
COLUMN(builder)
COLUMN(bytes)
COLUMN(can)
COLUMN(characters)
COLUMN(code)
COLUMN(column)
COLUMN(columns)
COLUMN(count)
COLUMN(data)
COLUMN(database)
COLUMN(description)
COLUMN(end)
COLUMN(entries)
COLUMN(entry)
COLUMN(escape)
COLUMN(expression)
COLUMN(field)
COLUMN(fields)
COLUMN(first)
COLUMN(high)
COLUMN(indexes)
COLUMN(key)
COLUMN(kind)
COLUMN(kinds)
COLUMN(last)
COLUMN(later)
COLUMN(layout)
COLUMN(lease)
COLUMN(limit)
COLUMN(limited)
COLUMN(list)
COLUMN(low)
COLUMN(member)
COLUMN(message)
COLUMN(names)
COLUMN(next)
COLUMN(number)
COLUMN(offset)
COLUMN(operation)
COLUMN(options)
COLUMN(order)
COLUMN(ordered)
COLUMN(other)
COLUMN(others)
COLUMN(part)
COLUMN(parts)
COLUMN(path)
COLUMN(pattern)
COLUMN(piece)
COLUMN(pieces)
COLUMN(place)
COLUMN(places)
COLUMN(previous)
COLUMN(range)
COLUMN(reader)
COLUMN(record)
COLUMN(result)
COLUMN(row)
COLUMN(rows)
COLUMN(selection)
COLUMN(shape)
COLUMN(size)
COLUMN(source)
COLUMN(sql)
COLUMN(state)
COLUMN(statement)
COLUMN(stored)
COLUMN(string)
COLUMN(table)
COLUMN(target)
COLUMN(term)
COLUMN(text)
COLUMN(transaction)
COLUMN(type)
COLUMN(value)
COLUMN(values)

void UseEverything(Database& file);

void UseEverything(Database& file) {
  Table<Part> of(file);
  of.Create();
  of.CreateIfMissing();
  of.Insert({});
  of.InsertOrIgnore({});
  of.Upsert({});
  of.Replace({});
  of.Update({});
  of.Update(name == "x" && 1 < id, Set(name, "y"), Set(price, std::nullopt), Set(price, Sql<double>("price * ?", 2)));
  of.Delete(1);
  of.Delete(In(name, {"x"}) || Between(id, 1, 2) || Like(name, "x") || IsNull(price) || In(id, std::vector<int>()));
  of.Delete(Is(price, std::optional<double>()) || RowOf(id, name) > RowOf(1, "x") || Where("a = ?", 1));
  of.Find(1);
  of.Get(1);
  of.Has();
  for (const Part& found : of.Select(id == 1).OrderBy(name).OrderBy(Descending(id)).Limit(1).Offset(2).Distinct()) {
    of.Delete(found.id);
  }
  of.Select().First();
  of.Select().One();
  of.Select().All();
  of.Select().Count();
  auto iterator = of.Select().begin();
  *iterator++;

  for (const auto& [x, y, z] : file.Query<int, Part, std::optional<Part>>("" + Columns<Part>("p"), 1, std::string())) {
    if (z) of.Delete(x + y.id);
  }
  file.First<int>("", Named(":a", 1), Named(":b", std::optional<int>()));
  file.One<Part>("", std::nullopt, true, Blob());
  file.All<bool>("", List(std::vector<int>()));
  Statement held = file.Prepare("");
  held.Execute(1);
  held.First<int>();
  held.One<int>();
  held.All<int>();
  for (const int found : held.Query<int>()) of.Delete(found);
  InTransaction(file, [] {});
  InTransaction(file, [] { return 1; });
  of.Delete(ColumnOf<Part>(&Part::id).Of("p") == 1);
}
