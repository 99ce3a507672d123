#ifndef SQLDB_KIT_RECORD_H
#define SQLDB_KIT_RECORD_H

// How a struct is stored, described once and by the struct itself:
//
//   struct Part {
//     std::int64_t id = 0;
//     std::string name;
//     std::optional<double> price;
//
//     static constexpr auto Description() {
//       return Describe("parts", Key("id", &Part::id), Field("name", &Part::name).Unique(),
//                       Field("price", &Part::price));
//     }
//   };
//
// A description is constant: it belongs to no database and to no thread. One without a table serves queries. A struct
// that is not yours is described by a specialisation of Described. A member may be one of a base class.
//
// A record is made first and read then, so the struct has a constructor without arguments; members that are not
// described keep what that gives them. It stays an aggregate, and may be local, a template, or movable only.
//
// What is described is what the kit reads and writes. A column that SQLite alone writes (GENERATED) is described in a
// second struct, for reading, and not in the one that is inserted. How a table is made that has more (references,
// checks, defaults, indexes) is said in SQL:
//
//   database.ExecuteScript(
//       "CREATE TABLE IF NOT EXISTS parts (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE,"
//       " price REAL CHECK (price >= 0)); CREATE INDEX IF NOT EXISTS parts_by_price ON parts (price)");

#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sqldb/kit/codec.h"
#include "sqldb/kit/transfer.h"

namespace sqldb::kit {

/// The member `member` of Record, stored in the column `name`. A constant: each of the calls below returns another one.
///
/// The member's type is one that type.h knows, or has a Type; a column that may be NULL has a std::optional. What
/// follows the name, by Unique, Collate and PrimaryKey, is what Table::Create writes beside the type and NOT NULL. For
/// a table that was made otherwise only PrimaryKey matters: it says which fields tell the rows apart.
template <typename Record, typename T>
class Field {
 public:
  /// Neither unique nor a key. The name is a literal, so that no input becomes one; it is written into SQL as it is, so
  /// that one that is no plain word has its quotes: "\"group\"". In a query the column is found by it without quotes,
  /// and without regard to the case of ASCII letters.
  template <std::size_t N>
  constexpr Field(const char (&columnName)[N], T Record::*memberOfRecord)
      : fName(columnName), fMember(memberOfRecord) {}

  /// The same field, as one that no two rows have in common. NULL may be there more than once. Several fields that are
  /// unique together are a matter of SQL.
  constexpr Field Unique() const {
    Field field = *this;
    field.fIsUnique = true;
    return field;
  }
  /// The same field, ordered and compared by a collation: "NOCASE", "RTRIM", or one that the program has registered
  /// with the connection. It is a literal, written into SQL as it is.
  template <std::size_t N>
  constexpr Field Collate(const char (&collation)[N]) const {
    Field field = *this;
    field.fCollation = collation;
    return field;
  }
  /// The same field, as the primary key or a part of it: several are it together, in the order of the fields. By the
  /// key Table finds, updates and deletes single records. An integer key that is std::optional is numbered by SQLite
  /// while it is empty; Table::Insert returns the number, and leaves the record as it is.
  constexpr Field PrimaryKey() const {
    Field field = *this;
    field.fIsKey = true;
    return field;
  }

  /// As it was given, with its quotes. Lives forever.
  constexpr const char* Name() const { return fName; }
  /// Where the value is.
  constexpr T Record::*Member() const { return fMember; }
  /// Whether no two rows have it in common.
  constexpr bool IsUnique() const { return fIsUnique; }
  /// Whether it is the primary key or a part of it.
  constexpr bool IsKey() const { return fIsKey; }
  /// Null for SQLite's own, which compares bytes.
  constexpr const char* Collation() const { return fCollation; }

 private:
  const char* fName;
  T Record::*fMember;
  const char* fCollation = nullptr;
  bool fIsUnique = false;
  bool fIsKey = false;
};

/// A field that is the primary key or a part of it: `Key("id", &Part::id)` is
/// `Field("id", &Part::id).PrimaryKey()`.
template <typename Record, typename T, std::size_t N>
constexpr Field<Record, T> Key(const char (&name)[N], T Record::*member) {
  return Field<Record, T>(name, member).PrimaryKey();
}

/// What Describe returns. Made by nothing else, and looked at by the kit.
template <typename... Fields>
struct RecordDescription {
  /// Null for none.
  const char* table;
  /// In the order in which they were given, which is that of the columns that Create makes.
  std::tuple<Fields...> fields;
};

/// A struct whose rows are in `table`, unless a Table says otherwise. The name is a literal and written into SQL as it
/// is: "parts", "main.parts", "\"old parts\"". Two fields with the same name do not compile where the struct is used.
///
///     struct Line {
///       std::int64_t order = 0;
///       std::int64_t number = 0;
///       std::string what;
///
///       static constexpr auto Description() {
///         return Describe("lines", Key("order_id", &Line::order), Key("number", &Line::number),
///                         Field("what", &Line::what));
///       }
///     };
///     std::optional<Line> line = Table<Line>(database).Find(7, 1);  // the parts of the key in the order of the fields
template <std::size_t N, typename... Record, typename... T>
constexpr RecordDescription<Field<Record, T>...> Describe(const char (&table)[N], const Field<Record, T>&... fields) {
  return {table, {fields...}};
}
/// A struct without a table of its own: for the rows of queries, and for a Table that is given a name.
template <typename... Record, typename... T>
constexpr RecordDescription<Field<Record, T>...> Describe(const Field<Record, T>&... fields) {
  return {nullptr, {fields...}};
}

/// Describes T: by its own Description, or by a specialisation with such a function, for a struct that is not yours:
///
///     template <>
///     struct sqldb::kit::Described<library::Point> {
///       static constexpr auto Description() {
///         return Describe("points", Key("id", &library::Point::id), Field("x", &library::Point::x));
///       }
///     };
///
/// It comes before the first use of T as a record.
template <typename T, typename = void>
struct Described {};

/// By its own, which is public.
template <typename T>
struct Described<T, std::void_t<decltype(T::Description())>> {
  /// What T says of itself.
  static constexpr auto Description() { return T::Description(); }
};

namespace detail {

/// Whether T has a description.
template <typename T, typename = void>
constexpr bool kIsDescribed = false;
template <typename T>
inline constexpr bool kIsDescribed<T, std::void_t<decltype(Described<T>::Description())>> = true;

/// A field without its types: what compiled operations walk, whatever the struct.
struct FieldEntry {
  /// As it stands in SQL.
  const char* name;
  /// Null for none.
  const char* collation;
  /// The type of the column: "INTEGER".
  const char* sql;
  Loader load;
  Binder bind;
  /// Bytes from the beginning of the record.
  std::size_t offset;
  /// How it is read and bound without a call by `load` and `bind`, if so.
  Shortcut shortcut;
  bool canBeNull;
  bool isUnique;
  bool isKey;
};

/// A description without its types. There is one for each struct, so that its address stands for it.
struct RecordLayout {
  /// Null for none.
  const char* table;
  /// As many as `count`, in the order of the description.
  const FieldEntry* fields;
  int count;
  /// How many of them are keys.
  int keyCount;
};

// Found with a record that never lives: no member of it is looked at.
template <typename Record, typename T>
std::size_t OffsetOf(T Record::*member) {
  alignas(Record) static char storage[sizeof(Record)];
  const auto* const record = reinterpret_cast<const Record*>(storage);
  return static_cast<std::size_t>(reinterpret_cast<const char*>(&(record->*member)) - storage);
}

/// `Owner` is Record, or the base class that has the member.
template <typename Record, typename Owner, typename T>
FieldEntry EntryOf(const Field<Owner, T>& field) {
  return FieldEntry{field.Name(),           field.Collation(),
                    Codec<T>::kSql,         Transfer<T>::kLoad,
                    Transfer<T>::kBind,     OffsetOf<Record, T>(static_cast<T Record::*>(field.Member())),
                    Transfer<T>::kShortcut, Codec<T>::kCanBeNull,
                    field.IsUnique(),       field.IsKey()};
}

/// Letters of another case count as different here, other than in SQLite, which then refuses to create the table.
template <typename Fields, std::size_t... I>
constexpr bool AreNamesDifferent(const Fields& fields, std::index_sequence<I...>) {
  const std::string_view names[] = {std::get<I>(fields).Name()...};
  for (std::size_t a = 0; a < sizeof...(I); ++a) {
    for (std::size_t b = 0; b < a; ++b) {
      if (names[a] == names[b]) return false;
    }
  }
  return true;
}

// By its number rather than by its type, which would make long names of each.
template <typename Record, std::size_t I>
FieldEntry EntryAt() {
  constexpr auto description = Described<Record>::Description();
  return EntryOf<Record>(std::get<I>(description.fields));
}

template <typename Record, typename Indexes>
struct LayoutStorage;
template <typename Record, std::size_t... I>
struct LayoutStorage<Record, std::index_sequence<I...>> {
  static constexpr int CountKeys() {
    constexpr auto description = Described<Record>::Description();
    return (0 + ... + (std::get<I>(description.fields).IsKey() ? 1 : 0));
  }

  const FieldEntry entries[sizeof...(I)] = {EntryAt<Record, I>()...};
  const RecordLayout layout{Described<Record>::Description().table, entries, static_cast<int>(sizeof...(I)),
                            CountKeys()};
};

/// The layout of a described struct. It is made at its first use, by whatever thread, and lives forever. A struct
/// without a description, or with one that is wrong, does not compile, and says why in one sentence.
template <typename Record>
const RecordLayout& LayoutOf() {
  static_assert(kIsDescribed<Record>,
                "Describe the struct: give it a static constexpr Description, or specialise sqldb::kit::Described.");
  constexpr auto description = Described<Record>::Description();
  using Indexes = std::make_index_sequence<std::tuple_size_v<decltype(description.fields)>>;
  static_assert(AreNamesDifferent(description.fields, Indexes()), "Two fields of the struct have the same name.");
  static const LayoutStorage<Record, Indexes> storage;
  return storage.layout;
}

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_RECORD_H
