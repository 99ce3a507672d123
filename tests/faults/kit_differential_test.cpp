// The kit against SQL that is written here by itself and run through SQLite's own interface: random queries, and random
// sequences of operations. Prints how many it tried, and fails at the first difference.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "sqldb/database.h"
#include "sqldb/kit/kit.h"
#include "support/engine.h"

namespace {

using namespace sqldb::kit;
using Real = std::optional<double>;
using Integer = std::optional<std::int64_t>;
using Text = std::optional<std::string>;

constexpr int kQueries = 100000;
constexpr int kSequences = 20000;

// The same numbers in every run, so that a failure comes back.
std::mt19937_64 gGenerator(20240229);

std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(gGenerator() % limit); }
bool OneIn(std::size_t count) { return Below(count) == 0; }

template <typename T>
const T& AnyOf(const std::vector<T>& values) {
  return values[Below(values.size())];
}

// --- Values ----------------------------------------------------------------------------------------------------------

std::int64_t AnyInteger() {
  using Limits = std::numeric_limits<std::int64_t>;
  static const std::vector<std::int64_t> kValues = {0,
                                                    1,
                                                    2,
                                                    3,
                                                    5,
                                                    8,
                                                    -1,
                                                    -7,
                                                    1000,
                                                    Limits::min(),
                                                    Limits::max(),
                                                    Limits::min() + 1,
                                                    std::int64_t{1} << 53,
                                                    (std::int64_t{1} << 53) + 1,
                                                    4294967296,
                                                    -2147483648};
  return OneIn(4) ? static_cast<std::int64_t>(gGenerator()) >> Below(63) : AnyOf(kValues);
}

double AnyReal() {
  using Limits = std::numeric_limits<double>;
  static const std::vector<double> kValues = {0.0,
                                              -0.0,
                                              0.1,
                                              1.0,
                                              2.0,
                                              -7.0,
                                              0.5,
                                              1e300,
                                              -1e300,
                                              9007199254740992.0,
                                              3.25,
                                              1e-5,
                                              Limits::infinity(),
                                              -Limits::infinity(),
                                              Limits::max(),
                                              Limits::denorm_min(),
                                              Limits::min(),
                                              9223372036854775808.0};
  return OneIn(4) ? static_cast<double>(static_cast<std::int64_t>(gGenerator())) / static_cast<double>(1 + Below(1000))
                  : AnyOf(kValues);
}

std::string AnyText() {
  static const std::vector<std::string> kPieces = {
      "'", "''", "\"",   std::string(1, '\0'), "\\",   "%",  "_", ";",   "--", "/*", "?1", ":a",
      "a", "A",  "bolt", "\xC3\xA4",           "\xFF", "\n", " ", "NULL"};
  if (OneIn(400)) return std::string(1 + Below(100000), 'x') + AnyOf(kPieces);
  std::string text;
  for (std::size_t left = Below(5); left > 0; --left) text += AnyOf(kPieces);
  return text;
}

Blob AnyBlob() {
  const std::string text = AnyText();
  return Blob(text.begin(), text.end());
}

template <typename T>
std::optional<T> Maybe(T value) {
  return OneIn(5) ? std::nullopt : std::optional<T>(std::move(value));
}

// --- SQLite by itself ------------------------------------------------------------------------------------------------

using Value = std::variant<std::nullopt_t, std::int64_t, double, std::string, Blob>;

template <typename T>
Value ValueOf(const std::optional<T>& value) {
  return value ? Value(*value) : Value(std::nullopt);
}

// Rows, or how many were changed, or an error, as a text that tells no two of them together.
using Outcome = std::string;

void Show(Outcome& out, std::int64_t value) { out += "i" + std::to_string(value) + " "; }
void Show(Outcome& out, double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  out += "r" + std::to_string(bits) + " ";
}
void Show(Outcome& out, const std::string& value) { out += "t" + std::to_string(value.size()) + ":" + value + " "; }
void Show(Outcome& out, const Blob& value) {
  out += "b" + std::to_string(value.size()) + ":" + std::string(value.begin(), value.end()) + " ";
}
template <typename T>
void Show(Outcome& out, const std::optional<T>& value) {
  if (value) {
    Show(out, *value);
  } else {
    out += "n ";
  }
}

struct Raw {
  std::string sql;
  std::vector<Value> values;
};

void BindRaw(sqlite3_stmt* statement, int index, const Value& value) {
  switch (value.index()) {
    case 0:
      sqlite3_bind_null(statement, index);
      break;
    case 1:
      sqlite3_bind_int64(statement, index, std::get<1>(value));
      break;
    case 2:
      sqlite3_bind_double(statement, index, std::get<2>(value));
      break;
    case 3:
      sqlite3_bind_text(statement, index, std::get<3>(value).c_str(), static_cast<int>(std::get<3>(value).size()),
                        SQLITE_TRANSIENT);
      break;
    default:
      // An empty vector may have no address, which would bind NULL.
      sqlite3_bind_blob(
          statement, index,
          std::get<4>(value).empty() ? reinterpret_cast<const unsigned char*>("") : std::get<4>(value).data(),
          static_cast<int>(std::get<4>(value).size()), SQLITE_TRANSIENT);
  }
}

void ShowColumn(Outcome& out, sqlite3_stmt* statement, int column) {
  const auto size = [&] { return static_cast<std::size_t>(sqlite3_column_bytes(statement, column)); };
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return Show(out, std::int64_t{sqlite3_column_int64(statement, column)});
    case SQLITE_FLOAT:
      return Show(out, sqlite3_column_double(statement, column));
    case SQLITE_TEXT:
      return Show(out, std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)), size()));
    case SQLITE_BLOB: {
      const auto* const bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
      return Show(out, Blob(bytes, bytes + size()));
    }
    default:
      out += "n ";
  }
}

// Runs one statement; each row it yields is one text.
struct RawResult {
  std::vector<Outcome> rows;
  int changes = 0;
  int error = SQLITE_OK;
};
RawResult RunRaw(sqlite3* connection, const Raw& raw) {
  RawResult result;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(connection, raw.sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << sqlite3_errmsg(connection) << ": " << raw.sql;
    return result;
  }
  EXPECT_EQ(static_cast<std::size_t>(sqlite3_bind_parameter_count(statement)), raw.values.size()) << raw.sql;
  for (std::size_t i = 0; i < raw.values.size(); ++i) BindRaw(statement, static_cast<int>(i) + 1, raw.values[i]);
  int step = sqlite3_step(statement);
  for (; step == SQLITE_ROW; step = sqlite3_step(statement)) {
    Outcome& row = result.rows.emplace_back();
    for (int i = 0; i < sqlite3_column_count(statement); ++i) ShowColumn(row, statement, i);
  }
  if (step != SQLITE_DONE) result.error = sqlite3_extended_errcode(connection);
  result.changes = sqlite3_changes(connection);
  sqlite3_finalize(statement);
  return result;
}

// --- Random queries --------------------------------------------------------------------------------------------------

struct Thing {
  std::int64_t id = 0;
  Integer number;
  Real real;
  Text text;
  std::optional<Blob> blob;

  static constexpr auto Description() {
    return Describe("things", Key("id", &Thing::id), Field("number", &Thing::number), Field("real", &Thing::real),
                    Field("text", &Thing::text), Field("blob", &Thing::blob));
  }
};

// Some of the columns, of which several rows are the same.
struct Loose {
  Integer number;
  Text text;

  static constexpr auto Description() {
    return Describe("things", Field("number", &Loose::number), Field("text", &Loose::text));
  }
};

constexpr Column id(&Thing::id);
constexpr Column number(&Thing::number);
constexpr Column real(&Thing::real);
constexpr Column text(&Thing::text);
constexpr Column blob(&Thing::blob);

Outcome Shown(const Thing& thing) {
  Outcome out;
  Show(out, thing.id);
  Show(out, thing.number);
  Show(out, thing.real);
  Show(out, thing.text);
  Show(out, thing.blob);
  return out;
}
Outcome Shown(const Loose& loose) {
  Outcome out;
  Show(out, loose.number);
  Show(out, loose.text);
  return out;
}

// A condition in both forms.
struct Condition {
  Term term;
  Raw raw;
};

template <typename A, typename B>
Term Compared(std::size_t operation, const A& a, const B& b) {
  switch (operation) {
    case 0:
      return a == b;
    case 1:
      return a != b;
    case 2:
      return a < b;
    case 3:
      return a <= b;
    case 4:
      return a > b;
    default:
      return a >= b;
  }
}
constexpr const char* kOperations[] = {"==", "!=", "<", "<=", ">", ">="};

// `column` with a value that `make` yields, in one of many ways.
template <typename C, typename Make>
Condition AnyWith(const C& column, const std::string& name, Make make) {
  const auto value = make();
  using V = std::decay_t<decltype(value)>;
  const std::size_t operation = Below(6);
  switch (Below(7)) {
    case 0:
      return {Compared(operation, value, column), {"? " + std::string(kOperations[operation]) + " " + name, {value}}};
    case 1:
      return {IsNull(column), {name + " ISNULL", {}}};
    case 2: {
      const std::optional<V> maybe = Maybe(value);
      return {Is(column, maybe), {name + " IS ?", {ValueOf(maybe)}}};
    }
    case 3: {
      const auto high = make();
      return {Between(column, value, high), {"(" + name + " >= ? AND " + name + " <= ?)", {value, high}}};
    }
    case 4: {
      std::vector<V> values;
      Raw raw{name + " IN (", {}};
      for (std::size_t left = OneIn(50) ? 300 : Below(5); left > 0; --left) {
        values.push_back(make());
        raw.sql += raw.values.empty() ? "?" : ",?";
        raw.values.emplace_back(values.back());
      }
      raw.sql += ")";
      return {In(column, values), raw};
    }
    default:
      return {Compared(operation, column, value), {name + " " + kOperations[operation] + " ?", {value}}};
  }
}

Condition AnyLike() {
  static const std::vector<std::string> kPatterns = {"%", "_%", "%'%", "a%", "A_", "", "\\%%", "bolt", "%\\_%", "?%"};
  const std::string& pattern = AnyOf(kPatterns);
  if (OneIn(2)) return {Like(text, pattern, '\\'), {"text LIKE ? ESCAPE '\\'", {pattern}}};
  return {Like(text, pattern), {"text LIKE ?", {pattern}}};
}

Condition AnyOfRows() {
  const std::int64_t a = AnyInteger();
  const double b = AnyReal();
  const std::size_t operation = Below(6);
  const std::string sign = kOperations[operation];
  if (OneIn(2)) {
    return {Compared(operation, RowOf(number, real), RowOf(a, b)), {"(number, real) " + sign + " (?, ?)", {a, b}}};
  }
  const std::string c = AnyText();
  return {Compared(operation, RowOf(text, number, id), RowOf(c, a, real)),
          {"(text, number, id) " + sign + " (?, ?, real)", {c, a}}};
}

Condition AnyOfExpressions() {
  const std::int64_t a = AnyInteger();
  const std::string b = AnyText();
  const std::size_t operation = Below(6);
  const std::string sign = kOperations[operation];
  switch (Below(5)) {
    case 0:
      return {Compared(operation, Sql<double>("real-? -- '", a), number), {"(real - ?) " + sign + " number", {a}}};
    case 1:
      return {Where("number IS?OR text IS?", a, b), {"(number IS ? OR text IS ?)", {a, b}}};
    case 2:
      return {Where("length(text) > 3 OR '?' = ? /* ? */", b), {"(length(text) > 3 OR '?' = ?)", {b}}};
    case 3:
      return {Compared(operation, id, number), {"id " + sign + " number", {}}};
    default:
      return {EveryRow(), {"1", {}}};
  }
}

Condition AnyLeaf() {
  switch (Below(8)) {
    case 0:
      return AnyWith(id, "id", [] { return static_cast<std::int64_t>(Below(60)); });
    case 1:
      return AnyWith(number, "number", AnyInteger);
    case 2:
      return AnyWith(real, "real", AnyReal);
    case 3:
      return OneIn(2) ? AnyWith(number, "number", AnyReal) : AnyWith(real, "real", AnyInteger);
    case 4:
      return OneIn(3) ? AnyLike() : AnyWith(text, "text", AnyText);
    case 5:
      return AnyWith(blob, "blob", AnyBlob);
    case 6:
      return AnyOfRows();
    default:
      return AnyOfExpressions();
  }
}

Condition Combined(const Condition& a, const Condition& b, bool isAnd) {
  Condition both{isAnd ? a.term && b.term : a.term || b.term, a.raw};
  if (b.raw.sql.empty()) return both;
  both.raw.sql = a.raw.sql.empty() ? b.raw.sql : "(" + a.raw.sql + (isAnd ? " AND " : " OR ") + b.raw.sql + ")";
  both.raw.values.insert(both.raw.values.end(), b.raw.values.begin(), b.raw.values.end());
  return both;
}

// So many that they do not stand in one row.
Condition AnyRow() {
  const bool isAnd = OneIn(2);
  Condition row;
  std::string separator = "(";
  for (std::size_t left = 50 + Below(250); left > 0; --left) {
    const auto value = static_cast<std::int64_t>(Below(1000)) - 5;
    const Term one = isAnd ? id != value : id == value;
    row.term = isAnd ? row.term && one : row.term || one;
    row.raw.sql += separator + (isAnd ? "id <> ?" : "id = ?");
    separator = isAnd ? " AND " : " OR ";
    row.raw.values.emplace_back(value);
  }
  row.raw.sql += ")";
  return row;
}

Condition AnyCondition(int depth) {
  if (OneIn(20)) return {};
  if (OneIn(500)) return AnyRow();
  if (depth == 0 || OneIn(4)) return AnyLeaf();
  if (OneIn(4)) {
    const Condition inner = AnyCondition(depth - 1);
    if (inner.raw.sql.empty()) return {!inner.term, {}};
    return {!inner.term, {"(NOT (" + inner.raw.sql + "))", inner.raw.values}};
  }
  const bool isAnd = OneIn(2);
  Condition all = AnyCondition(depth - 1);
  for (std::size_t more = Below(3); more > 0; --more) all = Combined(all, AnyCondition(depth - 1), isAnd);
  return all;
}

// Which rows, and in which order, in both forms. The last order leaves nothing open.
template <typename Record>
void OrderAndLimit(Selection<Record>& selection, Raw& raw, bool isDistinct) {
  const auto add = [&](const auto& expression, const char* sql) {
    const bool isDescending = OneIn(2);
    selection = selection.OrderBy(isDescending ? Descending(expression) : Ascending(expression));
    raw.sql += std::string(raw.sql.find(" ORDER BY ") == std::string::npos ? " ORDER BY " : ", ") + sql +
               (isDescending ? " DESC" : "");
  };
  if (!isDistinct && OneIn(3)) add(real, "real");
  if (!isDistinct && OneIn(3)) {
    const std::int64_t value = AnyInteger();
    add(Sql<bool>("id < ?", value), "(id < ?)");
    raw.values.emplace_back(value);
  }
  if (isDistinct || OneIn(2)) add(number, "number");
  if (isDistinct || OneIn(2)) add(text, "text");
  if (!isDistinct) add(id, "id");
  const auto limit = static_cast<std::int64_t>(Below(12)) - 2;
  const auto offset = static_cast<std::int64_t>(Below(6));
  if (OneIn(2)) return;
  selection = selection.Limit(limit).Offset(offset);
  raw.sql += " LIMIT ? OFFSET ?";
  raw.values.emplace_back(limit);
  raw.values.emplace_back(offset);
}

template <typename Record>
std::vector<Outcome> RowsOf(const Selection<Record>& selection) {
  std::vector<Outcome> rows;
  if (OneIn(2)) {
    for (const Record& record : selection) rows.push_back(Shown(record));
  } else {
    for (const Record& record : selection.All()) rows.push_back(Shown(record));
  }
  return rows;
}

class Queries {
 public:
  Queries() {
    fThings.Create();
    for (int i = 0; i < 50; ++i) {
      fThings.Insert(
          {i, OneIn(2) ? Integer(i % 3) : Maybe(AnyInteger()), Maybe(AnyReal()), Maybe(AnyText()), Maybe(AnyBlob())});
    }
  }

  void TryOne() {
    const Condition condition = AnyCondition(4);
    switch (Below(6)) {
      case 0:
        return TryCounting(condition);
      case 1:
        return TryRows(fLoose.Select(condition.term).Distinct(), "SELECT DISTINCT number, text FROM things", condition,
                       true);
      default:
        return TryRows(fThings.Select(condition.term), "SELECT id, number, real, text, blob FROM things", condition,
                       false);
    }
  }

 private:
  static void Append(Raw& raw, const Condition& condition) {
    if (!condition.raw.sql.empty()) raw.sql += " WHERE " + condition.raw.sql;
    raw.values = condition.raw.values;
  }

  void TryCounting(const Condition& condition) {
    Raw raw{"SELECT id FROM things", {}};
    Append(raw, condition);
    const std::size_t expected = RunRaw(Handle(), raw).rows.size();
    ASSERT_EQ(fThings.Count(condition.term), static_cast<std::int64_t>(expected)) << raw.sql;
    ASSERT_EQ(fThings.Has(condition.term), expected > 0) << raw.sql;
    ASSERT_EQ(fThings.Select(condition.term).First().has_value(), expected > 0) << raw.sql;
  }

  template <typename Record>
  void TryRows(Selection<Record> selection, const char* sql, const Condition& condition, bool isDistinct) {
    Raw raw{sql, {}};
    Append(raw, condition);
    OrderAndLimit(selection, raw, isDistinct);
    const std::vector<Outcome> expected = RunRaw(Handle(), raw).rows;
    ASSERT_EQ(RowsOf(selection), expected) << raw.sql;
    if (!OneIn(4)) return;
    ASSERT_EQ(selection.Count(), static_cast<std::int64_t>(expected.size())) << raw.sql;
    const std::optional<Record> first = selection.First();
    ASSERT_EQ(first.has_value(), !expected.empty()) << raw.sql;
    if (first) {
      ASSERT_EQ(Shown(*first), expected.front()) << raw.sql;
    }
  }

  sqlite3* Handle() const { return fDatabase.Core().fConnection; }

  Database fDatabase{":memory:"};
  Table<Thing> fThings{fDatabase};
  Table<Loose> fLoose{fDatabase};
};

TEST(Differential, RandomQueriesYieldTheSame) {
  Queries queries;
  int tried = 0;
  for (; tried < kQueries && !testing::Test::HasFailure(); ++tried) queries.TryOne();
  std::printf("queries: %d, differences: %d\n", tried, testing::Test::HasFailure() ? 1 : 0);
}

// --- Random sequences of operations ----------------------------------------------------------------------------------

struct Item {
  std::int64_t id = 0;
  Text name;
  double price = 0;

  static constexpr auto Description() {
    return Describe("items", Key("id", &Item::id), Field("name", &Item::name).Unique(), Field("price", &Item::price));
  }
};

struct Line {
  std::string order;
  std::int64_t line = 0;
  std::optional<Blob> bytes;
  Integer number;

  static constexpr auto Description() {
    return Describe("lines", Field("number", &Line::number), Key("order_id", &Line::order),
                    Field("bytes", &Line::bytes), Key("line", &Line::line));
  }
};

Outcome Shown(const Item& item) {
  Outcome out;
  Show(out, item.id);
  Show(out, item.name);
  Show(out, item.price);
  return out;
}
Outcome Shown(const Line& line) {
  Outcome out;
  Show(out, line.order);
  Show(out, line.line);
  Show(out, line.bytes);
  Show(out, line.number);
  return out;
}

// How the plain SQL of a record is written: its key comes first.
struct Plain {
  std::vector<const char*> columns;
  std::size_t keys;
  // What another row must not have in common, but for NULL.
  const char* conflict;
  std::vector<std::size_t> conflictColumns;
};

template <typename Record>
struct Model;

template <>
struct Model<Item> {
  static inline const Plain kPlain{{"id", "name", "price"}, 1, "id = ? OR name = ?", {0, 1}};
  static Item Any() {
    static const std::vector<std::string> kNames = {"", "a", "A", "it's", std::string("a\0b", 3)};
    return Item{static_cast<std::int64_t>(Below(5)), Maybe(AnyOf(kNames)), AnyReal()};
  }
  static std::vector<Value> ValuesOf(const Item& item) { return {item.id, ValueOf(item.name), item.price}; }
  static std::optional<Item> Find(const Table<Item>& table, const Item& item) { return table.Find(item.id); }
  static bool Delete(const Table<Item>& table, const Item& item) { return table.Delete(item.id); }
  static Condition AnyCondition() {
    constexpr Column price(&Item::price);
    constexpr Column name(&Item::name);
    const double value = AnyReal();
    if (OneIn(3)) return {IsNull(name) || price > value, {"name IS NULL OR price > ?", {value}}};
    return {price < value, {"price < ?", {value}}};
  }
  static std::int64_t Update(const Table<Item>& table, const Term& term, const Item& item) {
    return table.Update(term, Set(Column(&Item::price), Sql<double>("price / 2 + ?", 1)),
                        Set(Column(&Item::name), item.name));
  }
  static Raw UpdateRaw(const Item& item) {
    return {"UPDATE items SET price = price / 2 + 1, name = ?", {ValueOf(item.name)}};
  }
};

template <>
struct Model<Line> {
  static inline const Plain kPlain{{"order_id", "line", "bytes", "number"}, 2, "order_id = ? AND line = ?", {0, 1}};
  static Line Any() {
    static const std::vector<std::string> kOrders = {"", "x", "X", "'", std::string(1, '\0')};
    return Line{AnyOf(kOrders), static_cast<std::int64_t>(Below(2)), Maybe(AnyBlob()), Maybe(AnyInteger())};
  }
  static std::vector<Value> ValuesOf(const Line& line) {
    return {line.order, line.line, ValueOf(line.bytes), ValueOf(line.number)};
  }
  static std::optional<Line> Find(const Table<Line>& table, const Line& line) {
    return table.Find(line.order, line.line);
  }
  static bool Delete(const Table<Line>& table, const Line& line) { return table.Delete(line.order, line.line); }
  static Condition AnyCondition() {
    constexpr Column order(&Line::order);
    constexpr Column line(&Line::line);
    const Line any = Any();
    return {RowOf(order, line) > RowOf(any.order, any.line),
            {"order_id > ? OR (order_id = ? AND line > ?)", {any.order, any.order, any.line}}};
  }
  static std::int64_t Update(const Table<Line>& table, const Term& term, const Line& line) {
    return table.Update(term, Set(Column(&Line::bytes), line.bytes), Set(Column(&Line::number), std::nullopt));
  }
  static Raw UpdateRaw(const Line& line) {
    return {"UPDATE lines SET number = NULL, bytes = ?", {ValueOf(line.bytes)}};
  }
};

// A table of the kit, and the same rows in a database of their own.
template <typename Record>
class Twins {
 public:
  explicit Twins(const std::string& create) {
    sqlite3_open(":memory:", &fOther);
    fDatabase.Execute(create);
    RunRaw(fOther, {create, {}});
  }
  ~Twins() { sqlite3_close(fOther); }
  Twins(const Twins&) = delete;
  Twins& operator=(const Twins&) = delete;

  // One sequence; false if there was a difference.
  bool TryOne() {
    for (std::size_t left = 5 + Below(15); left > 0; --left) {
      const Record record = Model<Record>::Any();
      const auto operation = static_cast<int>(Below(11));
      const Outcome mine = ByKit(operation, record);
      const Outcome other = fAnswer;
      EXPECT_EQ(mine, other) << "operation " << operation;
      if (mine != other) return false;
    }
    const bool isSame = Content() == RunRaw(fOther, {Select("") + OrderByKey(), {}}).rows;
    EXPECT_TRUE(isSame) << "the contents differ";
    fTable.Delete(EveryRow());
    RunRaw(fOther, {"DELETE FROM " + fName, {}});
    return isSame;
  }

 private:
  static constexpr const Plain& kPlain = Model<Record>::kPlain;

  // --- By SQLite ---
  std::string Select(const std::string& where) const {
    std::string sql = "SELECT ";
    for (const char* const column : kPlain.columns) sql += sql.size() > 7 ? std::string(", ") + column : column;
    return sql + " FROM " + fName + where;
  }
  std::string OrderByKey() const { return kPlain.keys == 1 ? " ORDER BY 1" : " ORDER BY 1, 2"; }
  std::string WhereKey() const {
    std::string sql = std::string(" WHERE ") + kPlain.columns[0] + " = ?";
    return kPlain.keys == 1 ? sql : sql + " AND " + kPlain.columns[1] + " = ?";
  }
  static std::vector<Value> KeyOf(const Record& record) {
    std::vector<Value> values = Model<Record>::ValuesOf(record);
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(kPlain.keys), values.end());
    return values;
  }
  static Outcome Changed(const RawResult& result, bool isCount) {
    if (result.error != SQLITE_OK) return "error " + std::to_string(result.error);
    return std::to_string(isCount ? result.changes : (result.changes > 0 ? 1 : 0));
  }
  RawResult InsertRaw(const Record& record) {
    std::string sql = "INSERT INTO " + fName + " (";
    std::string marks;
    for (const char* const column : kPlain.columns) {
      sql += marks.empty() ? column : std::string(", ") + column;
      marks += marks.empty() ? "?" : ", ?";
    }
    return RunRaw(fOther, {sql + ") VALUES (" + marks + ")", Model<Record>::ValuesOf(record)});
  }
  RawResult UpdateRaw(const Record& record) {
    std::string sql = "UPDATE " + fName + " SET ";
    std::vector<Value> values = Model<Record>::ValuesOf(record);
    for (std::size_t i = kPlain.keys; i < kPlain.columns.size(); ++i) {
      sql += std::string(i > kPlain.keys ? ", " : "") + kPlain.columns[i] + " = ?";
    }
    std::rotate(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(kPlain.keys), values.end());
    return RunRaw(fOther, {sql + WhereKey(), values});
  }
  Raw Conflicting(const std::string& sql, const Record& record) const {
    const std::vector<Value> values = Model<Record>::ValuesOf(record);
    Raw raw{sql + " WHERE " + kPlain.conflict, {}};
    for (const std::size_t column : kPlain.conflictColumns) raw.values.push_back(values[column]);
    return raw;
  }

  // --- Both: what the kit does is returned, what SQLite does is in fAnswer ---
  template <typename Action>
  static Outcome Guarded(Action action) {
    try {
      return action();
    } catch (const Error& error) {
      return "error " + std::to_string(error.ExtendedCode());
    }
  }
  Outcome ByKit(int operation, const Record& record) {
    switch (operation) {
      case 0:
      case 1:
        fAnswer = Changed(InsertRaw(record), false);
        return Guarded([&] {
          const std::int64_t rowid = fTable.Insert(record);
          // Another rowid than the key is numbered by what was there before.
          if (kPlain.keys == 1) {
            EXPECT_EQ(rowid, sqlite3_last_insert_rowid(fOther));
          }
          return Outcome("1");
        });
      case 2: {
        const bool isFree = RunRaw(fOther, Conflicting(Select(""), record)).rows.empty();
        fAnswer = isFree ? Changed(InsertRaw(record), false) : "0";
        return Guarded([&] { return std::to_string(fTable.InsertOrIgnore(record) ? 1 : 0); });
      }
      case 3: {
        if (support::IsOlderThan(3024000)) return fAnswer = "";
        const RawResult updated = UpdateRaw(record);
        fAnswer = Changed(updated.error != SQLITE_OK || updated.changes > 0 ? updated : InsertRaw(record), false);
        return Guarded([&] { return fTable.Upsert(record), Outcome("1"); });
      }
      case 4:
        RunRaw(fOther, Conflicting("DELETE FROM " + fName, record));
        fAnswer = Changed(InsertRaw(record), false);
        return Guarded([&] { return fTable.Replace(record), Outcome("1"); });
      case 5:
        fAnswer = Changed(UpdateRaw(record), false);
        return Guarded([&] { return std::to_string(fTable.Update(record) ? 1 : 0); });
      case 6:
        fAnswer = Changed(RunRaw(fOther, {"DELETE FROM " + fName + WhereKey(), KeyOf(record)}), false);
        return Guarded([&] { return std::to_string(Model<Record>::Delete(fTable, record) ? 1 : 0); });
      case 7:
        return Found(record);
      default:
        return ByTerm(operation, record);
    }
  }
  Outcome Found(const Record& record) {
    const std::vector<Outcome> rows = RunRaw(fOther, {Select(WhereKey()), KeyOf(record)}).rows;
    fAnswer = rows.empty() ? "none" : rows.front();
    return Guarded([&] {
      const std::optional<Record> found = Model<Record>::Find(fTable, record);
      return found ? Shown(*found) : Outcome("none");
    });
  }
  Outcome ByTerm(int operation, const Record& record) {
    const Condition condition = Model<Record>::AnyCondition();
    const auto where = [&](Raw raw) {
      raw.sql += " WHERE " + condition.raw.sql;
      raw.values.insert(raw.values.end(), condition.raw.values.begin(), condition.raw.values.end());
      return raw;
    };
    if (operation == 8) {
      fAnswer = Changed(RunRaw(fOther, where({"DELETE FROM " + fName, {}})), true);
      return Guarded([&] { return std::to_string(fTable.Delete(condition.term)); });
    }
    if (operation == 9) {
      fAnswer = Changed(RunRaw(fOther, where(Model<Record>::UpdateRaw(record))), true);
      return Guarded([&] { return std::to_string(Model<Record>::Update(fTable, condition.term, record)); });
    }
    fAnswer = std::to_string(RunRaw(fOther, where({Select(""), {}})).rows.size());
    return Guarded([&] { return std::to_string(fTable.Count(condition.term)); });
  }
  std::vector<Outcome> Content() {
    std::vector<Outcome> rows;
    for (const Record& record : fTable.Select()
                                    .OrderBy(Sql<int>(kPlain.columns[0]))
                                    .OrderBy(Sql<int>(kPlain.keys == 1 ? "1" : kPlain.columns[1]))) {
      rows.push_back(Shown(record));
    }
    return rows;
  }

  const std::string fName = Described<Record>::Description().table;
  Database fDatabase{":memory:"};
  Table<Record> fTable{fDatabase};
  sqlite3* fOther = nullptr;
  Outcome fAnswer;
};

template <typename Record>
void TrySequences(Twins<Record>& twins, const char* what, int count) {
  int tried = 0;
  while (tried < count && twins.TryOne()) ++tried;
  std::printf("sequences, %s: %d, differences: %d\n", what, tried, tried == count ? 0 : 1);
}

TEST(Differential, SequencesWithAnIntegerKeyDoTheSame) {
  Twins<Item> items("CREATE TABLE items (id INTEGER PRIMARY KEY, name TEXT UNIQUE, price REAL NOT NULL)");
  TrySequences(items, "integer key", kSequences / 2);
}

TEST(Differential, SequencesWithACompositeKeyDoTheSame) {
  Twins<Line> lines(
      "CREATE TABLE lines (order_id TEXT, bytes BLOB, line INTEGER, number INTEGER,"
      " PRIMARY KEY (line, order_id))");
  TrySequences(lines, "composite key", kSequences / 4);
}

TEST(Differential, SequencesWithoutRowidDoTheSame) {
  Twins<Line> lines(
      "CREATE TABLE lines (order_id TEXT, bytes BLOB, line INTEGER, number INTEGER,"
      " PRIMARY KEY (order_id, line)) WITHOUT ROWID");
  TrySequences(lines, "without rowid", kSequences / 4);
}

}  // namespace
