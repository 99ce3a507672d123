// SQLite's own functions. With what all others are compared: parts with kept statements and bound values, as careful
// hands write it; items with statements that are compiled, executed and finalized as the core does it.

#include <cstdio>
#include <vector>

#include <sqlite3.h>

#include "layer.h"

namespace bench {

namespace {

constexpr char kFind[] = "SELECT id, name, price, note FROM parts WHERE id = ?";
constexpr char kScanItems[] = "SELECT id, quantity, price, stock FROM items";

void Check(int result, sqlite3_stmt* statement) {
  if (result != SQLITE_OK) Fail(sqlite3_errmsg(sqlite3_db_handle(statement)));
}

// Returns whether there is a row.
bool Step(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) Fail(sqlite3_errmsg(sqlite3_db_handle(statement)));
  return false;
}

// Executes a statement without rows.
void Finish(sqlite3_stmt* statement) {
  if (sqlite3_step(statement) != SQLITE_DONE) Fail(sqlite3_errmsg(sqlite3_db_handle(statement)));
  sqlite3_reset(statement);
}

void ReadText(sqlite3_stmt* statement, int column, std::string& text) {
  const auto* const characters = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (characters == nullptr) Fail("no text");
  text.assign(characters, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

// A null pointer alone may also mean that there was no memory for the text.
void ReadNote(sqlite3_stmt* statement, std::optional<std::string>& note) {
  if (sqlite3_column_type(statement, 3) == SQLITE_NULL) {
    note.reset();
  } else {
    ReadText(statement, 3, note ? *note : note.emplace());
  }
}

void Read(sqlite3_stmt* statement, Part& part) {
  part.id = sqlite3_column_int64(statement, 0);
  ReadText(statement, 1, part.name);
  part.price = sqlite3_column_double(statement, 2);
  ReadNote(statement, part.note);
}

void Read(sqlite3_stmt* statement, NamedPart& part) {
  ReadText(statement, 0, part.name);
  part.id = sqlite3_column_int64(statement, 1);
  part.price = sqlite3_column_double(statement, 2);
  ReadNote(statement, part.note);
}

// The texts stay where they are until the statement has been executed.
void BindText(sqlite3_stmt* statement, int parameter, const std::string& text) {
  Check(sqlite3_bind_text(statement, parameter, text.data(), static_cast<int>(text.size()), SQLITE_STATIC), statement);
}

// All columns, in their order.
void Bind(sqlite3_stmt* statement, const Part& part) {
  Check(sqlite3_bind_int64(statement, 1, part.id), statement);
  BindText(statement, 2, part.name);
  Check(sqlite3_bind_double(statement, 3, part.price), statement);
  if (part.note) {
    BindText(statement, 4, *part.note);
  } else {
    Check(sqlite3_bind_null(statement, 4), statement);
  }
}

template <typename Row>
std::int64_t SumOfRow(sqlite3_stmt* statement) {
  Row row;
  if (!Step(statement)) Fail("no row");
  Read(statement, row);
  sqlite3_reset(statement);
  return Sum(row);
}

// Reads all rows into the same object.
std::int64_t SumOfRows(sqlite3_stmt* statement) {
  std::int64_t sum = 0;
  Part part;
  while (Step(statement)) {
    Read(statement, part);
    sum += Sum(part);
  }
  sqlite3_reset(statement);
  return sum;
}

void Read(sqlite3_stmt* statement, Item& item) {
  item.id = static_cast<std::uint32_t>(sqlite3_column_int(statement, 0));
  item.quantity = static_cast<std::uint32_t>(sqlite3_column_int(statement, 1));
  item.price = static_cast<std::uint32_t>(sqlite3_column_int(statement, 2));
  item.stock = static_cast<std::uint32_t>(sqlite3_column_int(statement, 3));
}

// c1, c2 and so on, or other letters before the numbers.
std::string ListOf(int columns, const char* before) {
  std::string list;
  for (int i = 1; i <= columns; ++i) list += (i > 1 ? "," : "") + (before + std::to_string(i));
  return list;
}

class ByHand final : public Layer {
 public:
  explicit ByHand(const Place& place) {
    const int flags =
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | (place.hasMutexes ? SQLITE_OPEN_FULLMUTEX : SQLITE_OPEN_NOMUTEX);
    if (sqlite3_open_v2(place.path.c_str(), &fConnection, flags, nullptr) != SQLITE_OK) Fail("open");
  }
  ~ByHand() override {
    for (sqlite3_stmt* const statement : fKept) sqlite3_finalize(statement);
    sqlite3_close(fConnection);
  }

  void Send(const std::string& sql) override { FinishAndFinalize(Compile(sql.c_str())); }
  std::int64_t Ask(const std::string& sql) override {
    sqlite3_stmt* const statement = Compile(sql.c_str());
    if (!Step(statement)) Fail("no row");
    const std::int64_t value = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return value;
  }

  bool Add(Company company, std::int64_t count) override {
    if (company != Company::kIdleStatements && company != Company::kOpenRanges) return false;
    for (std::int64_t i = 0; i < count; ++i) {
      sqlite3_stmt* const statement = Keep("SELECT id FROM parts");
      if (company == Company::kOpenRanges) Step(statement);
    }
    return true;
  }

  Work FindByInteger() override {
    return [find = Keep(kFind)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(find, 1, id), find);
        sum += SumOfRow<Part>(find);
      }
      return sum;
    };
  }

  Work FindByText() override {
    return [find = Keep("SELECT name, id, price, note FROM named_parts WHERE name = ?")](std::int64_t times) {
      std::int64_t sum = 0;
      std::string name = "part ";
      for (std::int64_t id = 1; id <= times; ++id) {
        name.replace(5, std::string::npos, std::to_string(id));
        BindText(find, 1, name);
        sum += SumOfRow<NamedPart>(find);
      }
      return sum;
    };
  }

  Work Range() override {
    return [select = Keep("SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(select, 1, id), select);
        Check(sqlite3_bind_int64(select, 2, id + kRange), select);
        sum += SumOfRows(select);
      }
      return sum;
    };
  }

  Work Scan() override {
    return [select = Keep("SELECT id, name, price, note FROM parts")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOfRows(select);
      return sum;
    };
  }

  Work Insert() override { return Write("INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Update() override { return Write("UPDATE parts SET name = ?2, price = ?3, note = ?4 WHERE id = ?1"); }
  Work Replace() override { return Write("REPLACE INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)"); }
  Work Upsert() override {
    return Write(
        "INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?) ON CONFLICT (id) DO UPDATE SET name = "
        "excluded.name, price = excluded.price, note = excluded.note");
  }

  Work Delete() override {
    return [remove = Keep("DELETE FROM parts WHERE id = ?")](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(remove, 1, id), remove);
        Finish(remove);
      }
      return std::int64_t{0};
    };
  }

  Work InsertMany() override {
    const std::vector<Part> list = fNewParts.List();
    return [list, insert = Keep("INSERT INTO parts (id, name, price, note) VALUES (?, ?, ?, ?)")](std::int64_t) {
      for (const Part& part : list) {
        Bind(insert, part);
        Finish(insert);
      }
      return std::int64_t{0};
    };
  }

  Work Count() override {
    return [count = Keep("SELECT COUNT(*) FROM parts WHERE id = ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(count, 1, id), count);
        if (!Step(count)) Fail("no row");
        sum += sqlite3_column_int64(count, 0);
        sqlite3_reset(count);
      }
      return sum;
    };
  }

  Work Has() override {
    return [has = Keep("SELECT 1 FROM parts WHERE id = ? LIMIT 1")](std::int64_t times) {
      std::int64_t found = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(has, 1, id), has);
        if (Step(has)) ++found;
        sqlite3_reset(has);
      }
      return found;
    };
  }

  Work Held() override { return FindByInteger(); }

  // As a loop over the rows does, to the end.
  Work LookedUp() override {
    return [find = Keep(kFind)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(find, 1, id), find);
        sum += SumOfRows(find);
      }
      return sum;
    };
  }

  Work Filter() override {
    constexpr char kFilter[] = "SELECT id, name, price, note FROM parts WHERE id >= ? AND id < ? AND price < ?";
    return [select = Keep(kFilter)](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t id = 1; id <= times; ++id) {
        Check(sqlite3_bind_int64(select, 1, id), select);
        Check(sqlite3_bind_int64(select, 2, id + 2 * kFiltered), select);
        Check(sqlite3_bind_double(select, 3, static_cast<double>(id + kFiltered) / 2), select);
        sum += SumOfRows(select);
      }
      return sum;
    };
  }

  Work LikeEnd() override { return Like({"%", ""}); }
  Work LikeBeginning() override { return Like({"part ", "%"}); }

  Work Transaction() override {
    return [begin = Keep("BEGIN IMMEDIATE"), commit = Keep("COMMIT")](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        Finish(begin);
        Finish(commit);
      }
      return std::int64_t{0};
    };
  }

  // With a new name for each parameter, as values that are made anew for each row have it.
  Work InsertItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        WriteNamed("INSERT INTO items ( quantity, price, stock )", {i, i + 1, i + 2});
      }
      return std::int64_t{0};
    };
  }

  // With a text that stays the same.
  Work InsertItemReused() override {
    return [this](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        sqlite3_stmt* const statement = Compile("INSERT INTO items ( quantity, price, stock ) VALUES (:1,:2,:3 )");
        sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":1"), i);
        sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":2"), i + 1);
        sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, ":3"), i + 2);
        FinishAndFinalize(statement);
      }
      return std::int64_t{0};
    };
  }

  Work InsertItemsOnce() override {
    return [insert = Keep("INSERT INTO items ( quantity, price, stock ) VALUES (?,?,? )")](std::int64_t times) {
      for (std::uint32_t i = 1; i <= times; ++i) {
        sqlite3_bind_int64(insert, 1, i);
        sqlite3_bind_int64(insert, 2, i + 1);
        sqlite3_bind_int64(insert, 3, i + 2);
        Finish(insert);
      }
      return std::int64_t{0};
    };
  }

  Work ReplaceItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        WriteNamed("REPLACE INTO items ( id, quantity, price )", {id, id + 1, id + 2});
      }
      return std::int64_t{0};
    };
  }

  Work UpdateItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        char text[128];
        std::snprintf(text, sizeof text, "UPDATE items SET quantity =  %u WHERE id = %u", id % 100, id);
        FinishAndFinalize(Compile(text));
      }
      return std::int64_t{0};
    };
  }
  Work UpdateItemReused() override { return UpdateItem(); }

  Work DeleteItem() override {
    return [this](std::int64_t times) {
      for (std::uint32_t id = 1; id <= times; ++id) {
        char text[64];
        std::snprintf(text, sizeof text, "DELETE FROM items WHERE id = %u", id);
        FinishAndFinalize(Compile(text));
      }
      return std::int64_t{0};
    };
  }

  Work ScanItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) sum += SumOfItems(Compile(kScanItems));
      return sum;
    };
  }

  Work ScanItemsByCallback() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        sqlite3_stmt* const statement = Compile(kScanItems);
        while (sqlite3_step(statement) == SQLITE_ROW) {
          for (int column = 0; column < 4; ++column) sum += sqlite3_column_int(statement, column);
        }
        sqlite3_finalize(statement);
      }
      return sum;
    };
  }

  Work CountItem() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        char text[64];
        std::snprintf(text, sizeof text, "SELECT COUNT(ROWID) FROM items WHERE id = %u", id);
        sqlite3_stmt* const statement = Compile(text);
        if (sqlite3_step(statement) != SQLITE_ROW) Fail("step");
        sum += sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
      }
      return sum;
    };
  }

  Work HasItem() override {
    return [this](std::int64_t times) {
      std::int64_t found = 0;
      for (std::uint32_t id = 1; id <= times; ++id) {
        char text[64];
        std::snprintf(text, sizeof text, "SELECT ROWID FROM items WHERE id = %u LIMIT 1", id);
        sqlite3_stmt* const statement = Compile(text);
        if (sqlite3_step(statement) == SQLITE_ROW) ++found;
        sqlite3_finalize(statement);
      }
      return found;
    };
  }

  Work SelectItems() override {
    return [this](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::uint32_t id = 0; id < times; ++id) {
        char text[128];
        std::snprintf(text, sizeof text,
                      "SELECT id, quantity, price, stock FROM items WHERE id > %u ORDER BY id LIMIT %u OFFSET %u", id,
                      kLimit, kOffset);
        sum += SumOfItems(Compile(text));
      }
      return sum;
    };
  }

  Work InsertWide(int columns) override {
    std::vector<std::string> names;
    for (int i = 1; i <= columns; ++i) names.push_back(":" + std::to_string(i));
    const std::string text = "INSERT INTO wide (" + ListOf(columns, "c") + ") VALUES (" + ListOf(columns, ":") + ")";
    return [this, names, text](std::int64_t times) {
      for (std::int64_t i = 0; i < times; ++i) {
        sqlite3_stmt* const statement = Compile(text.c_str());
        for (const std::string& name : names) {
          sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, name.c_str()), 1);
        }
        FinishAndFinalize(statement);
      }
      return std::int64_t{0};
    };
  }

  Work ScanWide(int columns) override {
    return [this, columns, row = std::vector<std::uint32_t>(static_cast<std::size_t>(columns)),
            text = "SELECT " + ListOf(columns, "c") + " FROM wide"](std::int64_t times) mutable {
      std::int64_t sum = 0;
      for (std::int64_t i = 0; i < times; ++i) {
        sqlite3_stmt* const statement = Compile(text.c_str());
        while (sqlite3_step(statement) == SQLITE_ROW) {
          for (int column = 0; column < columns; ++column) {
            row[static_cast<std::size_t>(column)] = static_cast<std::uint32_t>(sqlite3_column_int(statement, column));
          }
          sum += row.back();
        }
        sqlite3_finalize(statement);
      }
      return sum;
    };
  }

 private:
  // Compiles as the core does.
  sqlite3_stmt* Compile(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare(fConnection, sql, -1, &statement, nullptr) != SQLITE_OK) Fail(sqlite3_errmsg(fConnection));
    return statement;
  }

  // Compiles for many executions. Finalized by the destructor.
  sqlite3_stmt* Keep(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(fConnection, sql.c_str(), static_cast<int>(sql.size() + 1), SQLITE_PREPARE_PERSISTENT,
                           &statement, nullptr) != SQLITE_OK) {
      Fail(sqlite3_errmsg(fConnection));
    }
    fKept.push_back(statement);
    return statement;
  }

  void FinishAndFinalize(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE || sqlite3_finalize(statement) != SQLITE_OK) {
      Fail(sqlite3_errmsg(fConnection));
    }
  }

  Work Write(const char* sql) {
    return [this, write = Keep(sql)](std::int64_t times) {
      for (std::int64_t id = 1; id <= times; ++id) {
        Bind(write, fNewParts(id));
        Finish(write);
      }
      return std::int64_t{0};
    };
  }

  struct Pattern {
    std::string before;
    std::string after;
  };
  Work Like(const Pattern& pattern) {
    return [pattern, select = Keep("SELECT id, name, price, note FROM parts WHERE name LIKE ?")](std::int64_t times) {
      std::int64_t sum = 0;
      for (std::int64_t i = 1; i <= times; ++i) {
        const std::string text = pattern.before + std::to_string(i % 10) + pattern.after;
        BindText(select, 1, text);
        sum += SumOfRows(select);
      }
      return sum;
    };
  }

  // Names each parameter anew. `into` is the text before the names.
  void WriteNamed(const char* into, const std::uint32_t (&numbers)[3]) {
    char names[3][16];
    for (char(&name)[16] : names) std::snprintf(name, sizeof name, ":%d", ++fLastName);
    char text[128];
    std::snprintf(text, sizeof text, "%s VALUES (%s,%s,%s )", into, names[0], names[1], names[2]);
    sqlite3_stmt* const statement = Compile(text);
    for (int column = 0; column < 3; ++column) {
      sqlite3_bind_int64(statement, sqlite3_bind_parameter_index(statement, names[column]), numbers[column]);
    }
    FinishAndFinalize(statement);
  }

  // Finalizes the statement.
  static std::int64_t SumOfItems(sqlite3_stmt* statement) {
    std::int64_t sum = 0;
    Item item{};
    while (sqlite3_step(statement) == SQLITE_ROW) {
      Read(statement, item);
      sum += Sum(item);
    }
    sqlite3_finalize(statement);
    return sum;
  }

  sqlite3* fConnection = nullptr;
  std::vector<sqlite3_stmt*> fKept;
  NewParts fNewParts;
  int fLastName = 0;
};

}  // namespace

std::unique_ptr<Layer> MakeByHand(const Place& place) { return std::make_unique<ByHand>(place); }

}  // namespace bench
