#include "sqldb/kit/list.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <sqlite3.h>

#include "compile.h"
#include "list_module.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

class ListValues final : public ValueSink {
 public:
  struct BlobBytes {
    std::string bytes;
  };
  using Value = std::variant<std::monostate, std::int64_t, double, std::string, BlobBytes>;

  void TakeNull() override { fAll.emplace_back(); }
  void TakeInteger(std::int64_t value) override { fAll.emplace_back(value); }
  void TakeReal(double value) override { fAll.emplace_back(value); }
  void TakeText(std::string_view text) override { fAll.emplace_back(std::string(text)); }
  void TakeBlob(std::string_view bytes) override { fAll.emplace_back(BlobBytes{std::string(bytes)}); }

  std::size_t Count() const { return fAll.size(); }
  const Value& At(std::size_t index) const { return fAll[index]; }

 private:
  std::vector<Value> fAll;
};

ListBuilder::~ListBuilder() { delete fValues; }

void ListBuilder::Add(const Argument& value) { value.bind(Target{nullptr, 0, false, fValues}, value.value); }

#if SQLITE_VERSION_NUMBER >= 3020000

namespace {

// Whether it has the word, without which nothing takes a list, and with which no statement begins. REQUIRES: a zero
// byte follows.
bool MentionsList(std::string_view sql) {
  constexpr std::string_view kList = "list";
  const auto isSame = [](char a, char b) { return (a | 0x20) == b; };
  const char* const end = sql.data() + sql.size();
  for (const char* found = sql.data() + 1;; ++found) {
    found = std::search(found, end, kList.begin(), kList.end(), isSame);
    if (found == end) return false;
    if (!IsOfName(found[-1]) && !IsOfName(found[kList.size()])) return true;
  }
}

// By which SQLite tells that a pointer is of the right type.
constexpr char kPointerType[] = "sqldb::kit::List";

void Delete(void* values) { delete static_cast<ListValues*>(values); }

struct Cursor {
  sqlite3_vtab_cursor base;
  const ListValues* values;
  std::size_t next;
};

Cursor& CursorOf(sqlite3_vtab_cursor* cursor) { return *reinterpret_cast<Cursor*>(cursor); }

int Connect(sqlite3* connection, void*, int, const char* const*, sqlite3_vtab** table, char**) {
  const int result = sqlite3_declare_vtab(connection, "CREATE TABLE list (value, list HIDDEN)");
  if (result != SQLITE_OK) return result;
  *table = new (std::nothrow) sqlite3_vtab{};
  return *table != nullptr ? SQLITE_OK : SQLITE_NOMEM;
}

int Disconnect(sqlite3_vtab* table) {
  delete table;
  return SQLITE_OK;
}

// The only plan: through all values of the list that is given.
int Plan(sqlite3_vtab*, sqlite3_index_info* info) {
  info->estimatedCost = 1e99;
  for (int i = 0; i < info->nConstraint; ++i) {
    const auto& constraint = info->aConstraint[i];
    if (constraint.iColumn != 1 || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ || constraint.usable == 0) continue;
    info->aConstraintUsage[i].argvIndex = 1;
    info->aConstraintUsage[i].omit = 1;
    info->estimatedCost = 100;
    info->estimatedRows = 100;
  }
  return SQLITE_OK;
}

int Open(sqlite3_vtab*, sqlite3_vtab_cursor** cursor) {
  auto* const opened = new (std::nothrow) Cursor{};
  if (opened == nullptr) return SQLITE_NOMEM;
  *cursor = &opened->base;
  return SQLITE_OK;
}

int Close(sqlite3_vtab_cursor* cursor) {
  delete &CursorOf(cursor);
  return SQLITE_OK;
}

int Filter(sqlite3_vtab_cursor* base, int, const char*, int count, sqlite3_value** arguments) {
  Cursor& cursor = CursorOf(base);
  void* const values = count == 1 ? sqlite3_value_pointer(arguments[0], kPointerType) : nullptr;
  if (values == nullptr) {
    sqlite3_free(base->pVtab->zErrMsg);
    base->pVtab->zErrMsg = sqlite3_mprintf("list(?) takes what sqldb::kit::List makes, and nothing else");
    return SQLITE_ERROR;
  }
  cursor.values = static_cast<const ListValues*>(values);
  cursor.next = 0;
  return SQLITE_OK;
}

int Advance(sqlite3_vtab_cursor* cursor) {
  ++CursorOf(cursor).next;
  return SQLITE_OK;
}

int IsAtEnd(sqlite3_vtab_cursor* base) {
  const Cursor& cursor = CursorOf(base);
  return cursor.next >= cursor.values->Count() ? 1 : 0;
}

// Hands a value to SQLite. The list lives as long as it is bound, hence longer than the row.
class Result {
 public:
  explicit Result(sqlite3_context* context) : fContext(context) {}
  void operator()(std::monostate) const { sqlite3_result_null(fContext); }
  void operator()(std::int64_t value) const { sqlite3_result_int64(fContext, value); }
  void operator()(double value) const { sqlite3_result_double(fContext, value); }
  void operator()(const std::string& text) const {
    sqlite3_result_text64(fContext, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  void operator()(const ListValues::BlobBytes& blob) const {
    sqlite3_result_blob64(fContext, blob.bytes.data(), blob.bytes.size(), SQLITE_STATIC);
  }

 private:
  sqlite3_context* fContext;
};

int Column(sqlite3_vtab_cursor* base, sqlite3_context* context, int column) {
  const Cursor& cursor = CursorOf(base);
  if (column == 0) std::visit(Result(context), cursor.values->At(cursor.next));
  return SQLITE_OK;
}

int RowId(sqlite3_vtab_cursor* cursor, sqlite3_int64* id) {
  *id = static_cast<sqlite3_int64>(CursorOf(cursor).next);
  return SQLITE_OK;
}

// Without a way to be created, it is there in every database.
sqlite3_module MakeModule() {
  sqlite3_module module{};
  module.xConnect = &Connect;
  module.xBestIndex = &Plan;
  module.xDisconnect = &Disconnect;
  module.xOpen = &Open;
  module.xClose = &Close;
  module.xFilter = &Filter;
  module.xNext = &Advance;
  module.xEof = &IsAtEnd;
  module.xColumn = &Column;
  module.xRowid = &RowId;
  return module;
}

}  // namespace

ListBuilder::ListBuilder() : fValues(new ListValues) {}

void ListBuilder::Bind(const Target& target) {
  if (target.statement == nullptr) {
    throw Error("A list cannot be a value of a term: use In, or a query of your own.", SQLITE_MISUSE);
  }
  // Anywhere else it would be NULL, and IN (?) false for every row.
  const std::string_view sql = sqlite3_sql(target.statement);
  if (!MentionsList(sql)) {
    throw Error("A list stands in list(?), as in: IN (SELECT value FROM list(?)).", SQLITE_MISUSE, sql);
  }
  // SQLite deletes them also if it fails.
  const int result =
      sqlite3_bind_pointer(target.statement, target.parameter, std::exchange(fValues, nullptr), kPointerType, &Delete);
  if (result != SQLITE_OK) ThrowError(sqlite3_db_handle(target.statement), result, {});
}

void OfferLists(sqlite3* connection) {
  static const sqlite3_module module = MakeModule();
  const int result = sqlite3_create_module_v2(connection, "list", &module, nullptr, nullptr);
  if (result != SQLITE_OK) ThrowError(connection, result, {});
}

#else

ListBuilder::ListBuilder() : fValues(nullptr) {
  throw Error(std::string("List needs SQLite 3.20 or newer; this is ") + sqlite3_libversion() + ".", SQLITE_MISUSE);
}

void ListBuilder::Bind(const Target&) {}

void OfferLists(sqlite3*) {}

#endif

}  // namespace sqldb::kit::detail
