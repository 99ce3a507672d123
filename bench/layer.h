#ifndef SQLDB_BENCH_LAYER_H
#define SQLDB_BENCH_LAYER_H

// What is measured: pieces of work over SQLite, and the layers that do them. A layer's ways are all in one file, named
// after it, in layers/. Each layer does the same on the same rows; what it returns and what it leaves is compared.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Stops the program: what is measured must not fail.
[[noreturn]] void Fail(const std::string& what);

// ---------------------------------------------------------------------------------------------------------------------
// The rows

// What a program keeps: a row of the table parts, whose key is an integer.
struct Part {
  std::int64_t id = 0;
  std::string name;
  double price = 0;
  std::optional<std::string> note;
};
// The same in the table named_parts, whose key is the name.
struct NamedPart {
  std::string name;
  std::int64_t id = 0;
  double price = 0;
  std::optional<std::string> note;
};

// Ids from 1 to kRows, unless a work says otherwise; named "part 1" and so on. Every third has a note.
constexpr std::int64_t kRows = 1000;
// What a work that reads several rows reads at a time.
constexpr std::int64_t kRange = 100;
constexpr std::int64_t kFiltered = 10;

// All that was read of a row.
template <typename Row>
std::int64_t Sum(const Row& row) {
  return row.id + static_cast<std::int64_t>(row.name.size()) + static_cast<std::int64_t>(row.price) +
         (row.note ? static_cast<std::int64_t>(row.note->size()) : 0);
}

// What is written: every other part has a note. The same object again for each, as in a program that works through a
// list, so that nothing is made but by the layer.
class NewParts {
 public:
  Part& operator()(std::int64_t id) {
    Part& part = fParts[id % 2];
    part.id = id;
    return part;
  }
  // The first kRows.
  std::vector<Part> List() {
    std::vector<Part> list;
    for (std::int64_t id = 1; id <= kRows; ++id) list.push_back((*this)(id));
    return list;
  }

 private:
  Part fParts[2] = {{0, "wrench", 8.5, std::nullopt}, {0, "bolt", 0.25, "galvanised, and sold by weight"}};
};

// A row of the table items, four integers, for what is compiled at each execution. Also from 1 to kRows.
struct Item {
  std::uint32_t id;
  std::uint32_t quantity;
  std::uint32_t price;
  std::uint32_t stock;
};
inline std::int64_t Sum(const Item& item) { return std::int64_t{item.id} + item.quantity + item.price + item.stock; }

// What a select of items is limited to.
constexpr std::uint32_t kLimit = 10;
constexpr std::uint32_t kOffset = 5;

// ---------------------------------------------------------------------------------------------------------------------
// The layers

// Does what was prepared so many times. Returns the sum of all that was read.
using Work = std::function<std::int64_t(std::int64_t times)>;

// Where a layer finds its database.
struct Place {
  std::string path;
  // Whether SQLite locks the connection at each call. SQLite is told before; a layer that can asks for it as well.
  bool hasMutexes;
};

// What else there is on the connection.
enum class Company {
  kNone,
  // Compiled and kept.
  kIdleStatements,
  // Each on its first row.
  kOpenRanges,
  // Objects to read with, not used.
  kCursors,
  // Table objects, before that of the work.
  kTables,
};

// One connection of one layer. The works live no longer than it does.
//
// Each work is prepared by a function of its own. Those that a layer does not have are empty. "?" stands for a bound
// value.
class Layer {
 public:
  Layer() = default;
  virtual ~Layer() = default;
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;

  // Executes one statement.
  virtual void Send(const std::string& sql) = 0;
  // The only value of a query, an integer.
  virtual std::int64_t Ask(const std::string& sql) = 0;
  // Adds so many others of a kind. Returns false if the layer has none such.
  virtual bool Add(Company, std::int64_t) { return false; }

  // Parts, by statements that are compiled once and kept. The i-th time deals with the part i.
  //
  // One part by its key, absent or a row of its own.
  virtual Work FindByInteger() { return {}; }
  virtual Work FindByText() { return {}; }
  // Parts with id >= ? and id < ?: kRange of them.
  virtual Work Range() { return {}; }
  // All parts.
  virtual Work Scan() { return {}; }
  // One part with all its columns.
  virtual Work Insert() { return {}; }
  virtual Work Update() { return {}; }
  virtual Work Replace() { return {}; }
  virtual Work Upsert() { return {}; }
  virtual Work Delete() { return {}; }
  // The list of NewParts, once for all times.
  virtual Work InsertMany() { return {}; }
  // How many, and whether there is one, with a condition that is put together for each.
  virtual Work Count() { return {}; }
  virtual Work Has() { return {}; }
  // As FindByInteger, with the SQL of the program: kept in an object by the program; looked up by its text, and read to
  // the end.
  virtual Work Held() { return {}; }
  virtual Work LookedUp() { return {}; }
  // Conditions that are put together for each: id >= ? AND id < ? AND price < ?, kFiltered rows; name LIKE ?.
  virtual Work Filter() { return {}; }
  // Names that end with a digit, and those that begin with "part " and a digit.
  virtual Work LikeEnd() { return {}; }
  virtual Work LikeBeginning() { return {}; }
  // BEGIN IMMEDIATE and COMMIT.
  virtual Work Transaction() { return {}; }

  // Items, by statements that are compiled at each execution, if the layer can. Values are bound or written into the
  // text, as the layer has it.
  //
  // quantity, price, stock. Values made anew for each row, or kept and set anew; the last by one compilation.
  virtual Work InsertItem() { return {}; }
  virtual Work InsertItemReused() { return {}; }
  virtual Work InsertItemsOnce() { return {}; }
  // id, quantity, price.
  virtual Work ReplaceItem() { return {}; }
  // One column by key.
  virtual Work UpdateItem() { return {}; }
  virtual Work UpdateItemReused() { return {}; }
  virtual Work DeleteItem() { return {}; }
  // All items, into a struct, or given to a function.
  virtual Work ScanItems() { return {}; }
  virtual Work ScanItemsByCallback() { return {}; }
  // By key.
  virtual Work CountItem() { return {}; }
  virtual Work HasItem() { return {}; }
  // id > i - 1 in the order of the ids, kLimit items after kOffset others.
  virtual Work SelectItems() { return {}; }

  // The table wide, of so many integer columns c1, c2 and so on: one row of ones, and a scan.
  virtual Work InsertWide(int) { return {}; }
  virtual Work ScanWide(int) { return {}; }
};

std::unique_ptr<Layer> MakeByHand(const Place& place);
std::unique_ptr<Layer> MakeCore(const Place& place);
std::unique_ptr<Layer> MakeKit(const Place& place);
std::unique_ptr<Layer> MakeSqliteCpp(const Place& place);
std::unique_ptr<Layer> MakeSoci(const Place& place);
std::unique_ptr<Layer> MakeQt(const Place& place);
std::unique_ptr<Layer> MakePoco(const Place& place);

}  // namespace bench

#endif  // SQLDB_BENCH_LAYER_H
