#ifndef SQLDB_KIT_TABLE_H
#define SQLDB_KIT_TABLE_H

// The rows of a table as records: found, inserted, updated and deleted by their key.
//
//   Records<Part> parts(database);
//   parts.CreateIfMissing();
//   parts.Insert({1, "bolt", 0.25});
//   if (std::optional<Part> part = parts.Find(1)) ...
//
// A handle that costs little and can be copied. Its statements are the connection's, so that any number of handles of
// one table share them. What outlives the database can be destroyed; every use throws Error.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include "sqldb/export.h"
#include "sqldb/kit/database.h"
#include "sqldb/kit/lease.h"
#include "sqldb/kit/record.h"

namespace sqldb::kit {

namespace detail {

struct TableState;

/// The table of a layout in a connection, and what is done with it, without the record's type.
class SQLDB_EXPORT TableHandle {
 public:
  /// Throws Error if neither the description nor `name` has a table's name.
  TableHandle(const Database& database, const RecordLayout& layout, std::string_view name);

  void Create(bool onlyIfMissing) const;
  void Drop() const;

  /// A statement that stands on the row with the key, if `found` is true.
  Lease Find(const Argument* key, std::size_t count, bool& found) const;
  std::int64_t Insert(const void* record) const;
  bool InsertOrIgnore(const void* record) const;
  void Upsert(const void* record) const;
  void Replace(const void* record) const;
  bool Update(const void* record) const;
  bool Delete(const Argument* key, std::size_t count) const;
  [[noreturn]] void ThrowNotFound() const;

  const RecordLayout& Layout() const;

 private:
  ConnectionPointer fConnection;
  TableState* fState;
};

template <typename Record, typename Fields, std::size_t... I>
constexpr auto KeysOf(const Fields& fields, std::index_sequence<I...>) {
  return (0 + ... + (std::get<I>(fields).IsKey() ? 1 : 0));
}

/// How many values make the key of a record.
template <typename Record>
constexpr int kKeyCount = [] {
  constexpr auto description = Described<Record>::Description();
  return KeysOf<Record>(description.fields,
                        std::make_index_sequence<std::tuple_size_v<decltype(description.fields)>>());
}();

}  // namespace detail

/// The records of one table.
template <typename Record>
class Records {
 public:
  /// Those of the table that the description names.
  explicit Records(const Database& database) : Records(database, {}) {}
  /// Those of another table with the same columns.
  /// REQUIRES: `name` is SQL, never input.
  Records(const Database& database, std::string_view name) : fTable(database, detail::LayoutOf<Record>(), name) {}

  /// Creates the table; fails if it is there.
  void Create() const { fTable.Create(false); }
  /// Creates the table, unless there is one of this name, whatever that looks like.
  void CreateIfMissing() const { fTable.Create(true); }
  /// Drops the table.
  void Drop() const { fTable.Drop(); }

  /// The record with this key, whose values are given in the order of the fields; none if there is no such row.
  template <typename... K>
  std::optional<Record> Find(const K&... key) const {
    const auto arguments = KeyOf(key...);
    std::optional<Record> record;
    bool found = false;
    const detail::Lease lease = fTable.Find(arguments.all, arguments.kCount, found);
    if (found) detail::LoadRecord(lease.Statement(), 0, fTable.Layout(), &record.emplace());
    return record;
  }
  /// The same; throws Error if there is no such row.
  template <typename... K>
  Record Get(const K&... key) const {
    std::optional<Record> record = Find(key...);
    if (!record) fTable.ThrowNotFound();
    return *std::move(record);
  }

  /// Inserts a row and returns its rowid, which is the key if that is one integer. Throws ConstraintError if the key,
  /// or the value of a unique field, is there already.
  std::int64_t Insert(const Record& record) const { return fTable.Insert(&record); }
  /// Inserts a row unless a constraint is against it, and returns whether it did.
  bool InsertOrIgnore(const Record& record) const { return fTable.InsertOrIgnore(&record); }
  /// Inserts a row, or gives the row with the same key the record's values. Needs SQLite 3.24.
  void Upsert(const Record& record) const { fTable.Upsert(&record); }
  /// Inserts a row in the place of those with the same key or the same value of a unique field, which are deleted: and
  /// with them the rows that refer to them, where a reference cascades. Upsert deletes nothing.
  void Replace(const Record& record) const { fTable.Replace(&record); }
  /// Gives the row with the record's key the record's values. Returns false if there is no such row.
  bool Update(const Record& record) const { return fTable.Update(&record); }
  /// Deletes the row with this key. Returns false if there is none.
  template <typename... K>
  bool Delete(const K&... key) const {
    const auto arguments = KeyOf(key...);
    return fTable.Delete(arguments.all, arguments.kCount);
  }

 private:
  template <typename... K>
  static detail::Arguments<K...> KeyOf(const K&... key) {
    static_assert(detail::kKeyCount<Record> > 0, "The struct has no key: describe one with Key(\"id\", &Part::id).");
    static_assert(sizeof...(K) == detail::kKeyCount<Record>, "Give a value for each field of the key.");
    return detail::Arguments<K...>(key...);
  }

  detail::TableHandle fTable;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_TABLE_H
