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
//       return Describe("parts", Key("id", &Part::id), Field("name", &Part::name).Unique(), Field("price",
//       &Part::price));
//     }
//   };
//
// A description is constant: it belongs to no database and to no thread. One without a table serves queries. A struct
// that is not yours is described by a specialisation of Described. A member may be one of a base class.

#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sqldb/kit/codec.h"
#include "sqldb/kit/transfer.h"

namespace sqldb::kit {

/// The member `member` of Record, stored in the column `name`.
template <typename Record, typename T>
class Field {
 public:
  /// Neither unique nor a key. The name is a literal, so that no input becomes one.
  template <std::size_t N>
  constexpr Field(const char (&columnName)[N], T Record::*memberOfRecord)
      : fName(columnName), fMember(memberOfRecord) {}

  /// The same field, as one that no two rows have in common.
  constexpr Field Unique() const {
    Field field = *this;
    field.fIsUnique = true;
    return field;
  }
  /// The same field, ordered and compared by a collation: "NOCASE".
  template <std::size_t N>
  constexpr Field Collate(const char (&collation)[N]) const {
    Field field = *this;
    field.fCollation = collation;
    return field;
  }
  /// The same field, as the primary key or a part of it. An integer key that is std::optional is numbered by SQLite
  /// while it is empty.
  constexpr Field PrimaryKey() const {
    Field field = *this;
    field.fIsKey = true;
    return field;
  }

  /// As it was given.
  constexpr const char* Name() const { return fName; }
  /// Where the value is.
  constexpr T Record::*Member() const { return fMember; }
  /// Whether no two rows have it in common.
  constexpr bool IsUnique() const { return fIsUnique; }
  /// Whether it is the primary key or a part of it.
  constexpr bool IsKey() const { return fIsKey; }
  /// Null for SQLite's own.
  constexpr const char* Collation() const { return fCollation; }

 private:
  const char* fName;
  T Record::*fMember;
  const char* fCollation = nullptr;
  bool fIsUnique = false;
  bool fIsKey = false;
};

/// A field that is the primary key or a part of it.
template <typename Record, typename T, std::size_t N>
constexpr Field<Record, T> Key(const char (&name)[N], T Record::*member) {
  return Field<Record, T>(name, member).PrimaryKey();
}

/// What Describe returns.
template <typename... Fields>
struct RecordDescription {
  /// Null for none.
  const char* table;
  /// In the order of the columns.
  std::tuple<Fields...> fields;
};

/// A struct whose rows are in `table`, unless a Table says otherwise.
template <std::size_t N, typename... Record, typename... T>
constexpr RecordDescription<Field<Record, T>...> Describe(const char (&table)[N], const Field<Record, T>&... fields) {
  return {table, {fields...}};
}
/// A struct without a table of its own.
template <typename... Record, typename... T>
constexpr RecordDescription<Field<Record, T>...> Describe(const Field<Record, T>&... fields) {
  return {nullptr, {fields...}};
}

/// Describes T: by its own Description, or by a specialisation with such a function.
template <typename T, typename = void>
struct Described {};

/// By its own.
template <typename T>
struct Described<T, std::void_t<decltype(T::Description())>> {
  /// What T says of itself.
  static constexpr auto Description() { return T::Description(); }
};

namespace detail {

template <typename T, typename = void>
constexpr bool kIsDescribed = false;
template <typename T>
inline constexpr bool kIsDescribed<T, std::void_t<decltype(Described<T>::Description())>> = true;

/// A field without its types.
struct FieldEntry {
  const char* name;
  const char* collation;
  const char* sql;
  Loader load;
  Binder bind;
  /// Bytes from the beginning of the record.
  std::size_t offset;
  Shortcut shortcut;
  bool canBeNull;
  bool isUnique;
  bool isKey;
};

/// A description without its types.
struct RecordLayout {
  const char* table;
  const FieldEntry* fields;
  int count;
  int keyCount;
};

// Found with a record that never lives: no member of it is looked at.
template <typename Record, typename T>
std::size_t OffsetOf(T Record::*member) {
  alignas(Record) static char storage[sizeof(Record)];
  const auto* const record = reinterpret_cast<const Record*>(storage);
  return static_cast<std::size_t>(reinterpret_cast<const char*>(&(record->*member)) - storage);
}

template <typename Record, typename Owner, typename T>
FieldEntry EntryOf(const Field<Owner, T>& field) {
  return FieldEntry{field.Name(),           field.Collation(),
                    Codec<T>::kSql,         Transfer<T>::kLoad,
                    Transfer<T>::kBind,     OffsetOf<Record, T>(static_cast<T Record::*>(field.Member())),
                    Transfer<T>::kShortcut, Codec<T>::kCanBeNull,
                    field.IsUnique(),       field.IsKey()};
}

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
