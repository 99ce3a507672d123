#ifndef SQLDB_KIT_FIELD_H
#define SQLDB_KIT_FIELD_H

// Describes a struct, one field for each member that is stored:
//
//   struct Part {
//     std::int64_t id;
//     std::string name;
//     std::optional<double> price;
//   };
//   const auto id = Key("id", &Part::id);
//   const auto name = Field("name", &Part::name).Unique().Collate("NOCASE");
//   const auto price = Field("price", &Part::price);
//
// A field is also the column's name in terms: `price < 1.0`.

#include <array>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "sqldb/kit/column.h"
#include "sqldb/kit/terms.h"

namespace sqldb::kit {

/// The member `member` of Record, stored in the column `name`.
template <typename Record, typename T>
class Field : public ColumnName<T> {
 public:
  /// Neither unique nor a key.
  Field(std::string name, T Record::*member) : ColumnName<T>(std::move(name)), fMember(member) {}

  /// The same field, as one that no two rows have in common.
  Field Unique() const {
    Field field = *this;
    field.fOptions.isUnique = true;
    return field;
  }

  /// The same field, ordered and compared by `collation`.
  Field Collate(std::string collation) const {
    Field field = *this;
    field.fOptions.collation = std::move(collation);
    return field;
  }

  /// The same field, as the primary key. An integer key that is std::optional is numbered by SQLite while it is empty.
  Field PrimaryKey() const {
    Field field = *this;
    field.fOptions.isPrimaryKey = true;
    return field;
  }

  /// Where the value is.
  T Record::*Member() const { return fMember; }
  /// What the column is besides its type.
  const ColumnOptions& Options() const { return fOptions; }

 private:
  T Record::*fMember;
  ColumnOptions fOptions;
};

/// The field that is the primary key.
template <typename Record, typename T>
Field<Record, T> Key(std::string name, T Record::*member) {
  return Field<Record, T>(std::move(name), member).PrimaryKey();
}

/// An entry of the SET list of an update.
struct Assignment {
  /// The column.
  std::string name;
  /// SQL that evaluates to the new value.
  std::string sql;
};

namespace detail {

template <typename T>
struct Itself {
  using type = T;
};

inline std::string FittingLiteral(const std::string& text, std::size_t size) {
  if (text.size() > size) throw std::length_error("A text is longer than the characters that it is assigned to.");
  return TextLiteral(text);
}

}  // namespace detail

/// Sets a field to a value, as an assignment to the member would: std::nullopt is NULL.
template <typename Record, typename T>
Assignment Set(const Field<Record, T>& field, const typename detail::Itself<T>::type& value) {
  return Assignment{field.Name(), Type<T>::Literal(value)};
}

/// The same for characters. Throws std::length_error for a text that is longer.
template <typename Record, std::size_t N>
Assignment Set(const Field<Record, char[N]>& field, const Characters& value) {
  return Assignment{field.Name(), detail::FittingLiteral(value, N)};
}
/// The same.
template <typename Record, std::size_t N>
Assignment Set(const Field<Record, std::array<char, N>>& field, const Characters& value) {
  return Assignment{field.Name(), detail::FittingLiteral(value, N)};
}

/// Sets a field to what an expression yields, `Set(price, TrustedSql{"price * 1.1"})`.
template <typename Record, typename T>
Assignment Set(const Field<Record, T>& field, const TrustedSql& expression) {
  return Assignment{field.Name(), "(" + expression.text + ")"};
}

namespace detail {

// A field without its type T, so that a table needs only one kind of them.
template <typename Record>
class Slot {
 public:
  virtual ~Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  // Where the member lies in a record, in bytes.
  virtual std::size_t Offset(const Record& record) const = 0;
  virtual int Bind(sqlite3_stmt* statement, int parameter, const Record& record) const = 0;
  virtual std::string Literal(const Record& record) const = 0;

  const boost::shared_ptr<SQLColumnBase>& Column() const { return fColumn; }

 protected:
  explicit Slot(boost::shared_ptr<SQLColumnBase> column) : fColumn(std::move(column)) {}

 private:
  const boost::shared_ptr<SQLColumnBase> fColumn;
};

template <typename Record, typename T>
class SlotOf : public Slot<Record> {
 public:
  explicit SlotOf(const Field<Record, T>& field)
      : Slot<Record>(boost::make_shared<kit::Column<T>>(field.Name(), field.Options())), fMember(field.Member()) {}

  std::size_t Offset(const Record& record) const override {
    const auto* const begin = reinterpret_cast<const char*>(std::addressof(record));
    return static_cast<std::size_t>(reinterpret_cast<const char*>(std::addressof(record.*fMember)) - begin);
  }
  int Bind(sqlite3_stmt* statement, int parameter, const Record& record) const override {
    return Type<T>::Bind(statement, parameter, record.*fMember);
  }
  std::string Literal(const Record& record) const override { return Type<T>::Literal(record.*fMember); }

 private:
  T Record::*fMember;
};

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_FIELD_H
