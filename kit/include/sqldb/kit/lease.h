#ifndef SQLDB_KIT_LEASE_H
#define SQLDB_KIT_LEASE_H

// What runs statements: the values for their parameters, and the lease of a compiled statement.
//
// A connection keeps the statements that it has compiled. A lease takes one out of what is kept and gives it back,
// reset, when it ends, by return or by exception: what is kept never stands on a row, and a second use of the same text
// while the first one runs gets a statement of its own.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

#include "sqldb/export.h"
#include "sqldb/kit/codec.h"
#include "sqldb/kit/transfer.h"

namespace sqldb::kit {

/// A value for a parameter with a name; see Named.
template <typename T>
struct NamedValue {
  /// As it stands in the SQL: ":kind", "@kind" or "$kind".
  const char* name;
  /// Lives as long as the call that it is an argument of.
  const T& value;
};

/// The value of the parameter `name`, written as in the SQL:
///
///     database.Execute("UPDATE parts SET price = :price WHERE id = :id", Named(":id", 7), Named(":price", 2.5));
///
/// All parameters of a call are named, in any order, or none is. The call throws Error with the code 21, and executes
/// nothing, if the statement has no parameter of this name, if one is given twice, or if one is left out.
/// REQUIRES: `name` and `value` outlive the call that takes them.
template <typename T>
NamedValue<T> Named(const char* name, const T& value) {
  return NamedValue<T>{name, value};
}

namespace detail {

class Connection;
struct KeptStatement;

/// Shares the ownership of a connection's state. Counted without atomic operations: a connection and all that was made
/// from it are used by one thread at a time.
class SQLDB_EXPORT ConnectionPointer {
 public:
  /// None.
  ConnectionPointer() = default;
  /// Adds a share.
  explicit ConnectionPointer(Connection* connection) noexcept;
  /// The same.
  ConnectionPointer(const ConnectionPointer& other) noexcept : ConnectionPointer(other.fConnection) {}
  /// The other one has none then.
  ConnectionPointer(ConnectionPointer&& other) noexcept : fConnection(other.fConnection) {
    other.fConnection = nullptr;
  }
  ConnectionPointer& operator=(ConnectionPointer other) noexcept {
    Connection* const mine = fConnection;
    fConnection = other.fConnection;
    other.fConnection = mine;
    return *this;
  }
  /// The last share ends the state, with the statements that are kept, and with it the core's database, unless others
  /// share that.
  ~ConnectionPointer();

  /// Null for none.
  Connection* Get() const noexcept { return fConnection; }
  Connection& operator*() const noexcept { return *fConnection; }
  Connection* operator->() const noexcept { return fConnection; }

 private:
  Connection* fConnection = nullptr;
};

/// A value for a parameter, without its type. It refers to the value, which outlives the call that it is an argument
/// of, and is bound before that returns.
struct Argument {
  /// As it stands in the SQL. Null: the parameters are given in order.
  const char* name;
  /// Of the type that `bind` is for.
  const void* value;
  Binder bind;
};

// Binders of what has no Transfer, since it is not stored in a record.

/// NULL, whatever `value` is.
SQLDB_EXPORT void BindNothing(const Target& target, const void* value);
/// `value` points to a std::string_view.
SQLDB_EXPORT void BindView(const Target& target, const void* value);
/// `value` is the text, up to its zero byte. Throws Error for a null one.
SQLDB_EXPORT void BindCharacters(const Target& target, const void* value);

template <typename T>
constexpr bool kIsCharacters = std::is_same_v<T, const char*> || std::is_same_v<T, char*>;

// An Argument of a value: it refers to that, so it is to be used before the end of the full expression.

/// Does not compile, and says so in one sentence, for a type that is not stored.
template <typename T, std::enable_if_t<!kIsCharacters<T>, int> = 0>
Argument ArgumentOf(const T& value) {
  return Argument{nullptr, &value, Transfer<T>::kBind};
}
inline Argument ArgumentOf(const std::nullopt_t& value) { return Argument{nullptr, &value, &BindNothing}; }
inline Argument ArgumentOf(const std::string_view& value) { return Argument{nullptr, &value, &BindView}; }
template <typename T, typename = std::enable_if_t<kIsCharacters<T>>>
Argument ArgumentOf(const T& value) {
  return Argument{nullptr, value, &BindCharacters};
}
template <typename T>
Argument ArgumentOf(const NamedValue<T>& named) {
  Argument argument = ArgumentOf(named.value);
  argument.name = named.name;
  return argument;
}

/// The type of the elements of a range, whose iterators give a `Given`: its value_type where it has one, since the
/// iterators of std::vector<bool> may give a stand-in for a bool.
template <typename Range, typename Given, typename = void>
struct ElementOf {
  using Type = std::decay_t<Given>;
};
template <typename Range, typename Given>
struct ElementOf<Range, Given, std::void_t<typename Range::value_type>> {
  using Type = typename Range::value_type;
};

template <typename T>
constexpr bool kIsNamed = false;
template <typename T>
inline constexpr bool kIsNamed<NamedValue<T>> = true;

/// The arguments of a call, as the array that compiled code takes.
template <typename... T>
struct Arguments {
  static_assert((kIsNamed<T> && ...) || !(kIsNamed<T> || ...),
                "Give all parameters in order, or all of them by name with Named.");

  explicit Arguments(const T&... values) : all{ArgumentOf(values)...} {}

  static constexpr std::size_t kCount = sizeof...(T);
  // One at least: there are no empty arrays.
  Argument all[sizeof...(T) > 0 ? sizeof...(T) : 1];
};

/// What SQLite is told about the values that are bound.
enum class Values {
  /// They end before the statement is stepped for the last time, so it copies them.
  kTemporary,
  /// They outlive the execution.
  kLasting,
};

/// The use of a compiled statement, shared by copies: the end of the last one gives it back, reset. Until then the
/// state of its connection lives. Moved from, or made without a statement, it is only to be destroyed or assigned to.
class SQLDB_EXPORT Lease {
 public:
  /// Of no statement.
  Lease() = default;
  /// Of one that has been lent to the caller, who need not give it back then.
  explicit Lease(KeptStatement& lent) noexcept : fKept(&lent) {}
  Lease(Lease&& other) noexcept : fKept(other.fKept) { other.fKept = nullptr; }
  /// Shares it.
  Lease(const Lease& other) noexcept;
  /// Gives back what it had.
  Lease& operator=(Lease other) noexcept {
    KeptStatement* const mine = fKept;
    fKept = other.fKept;
    other.fKept = mine;
    return *this;
  }
  ~Lease() {
    if (fKept != nullptr) GiveBack();
  }

  /// Runs to the next row. Returns false if there is none left. Waits for a busy file as long as the database was told
  /// to. Throws Error; the statement is then reset.
  bool Step();

  /// Runs to the end, from the beginning; rows are passed over. Returns the number of rows that were inserted, updated
  /// or deleted.
  std::int64_t Finish();

  /// The compiled statement, to bind values to or to look at. Throws Error if the database has been closed meanwhile.
  sqlite3_stmt* Statement() const;
  /// Whether running it may change the file.
  bool IsWriting() const noexcept;
  /// Whether it has a statement.
  bool IsThere() const noexcept { return fKept != nullptr; }
  /// What is kept of it, also once it has been let go. REQUIRES: it has a statement.
  KeptStatement& Kept() const noexcept { return *fKept; }

 private:
  void GiveBack() const noexcept;

  KeptStatement* fKept = nullptr;
};

/// Says of a lease that it only holds its statement, while copies run it: when none is left but leases that hold it,
/// the statement is reset. Moved from, or made of nothing, it says nothing. REQUIRES: the lease outlives it.
class SQLDB_EXPORT Hold {
 public:
  /// Of nothing.
  Hold() = default;
  /// REQUIRES: the lease has a statement.
  explicit Hold(const Lease& lease) noexcept;
  Hold(Hold&& other) noexcept : fKept(other.fKept) { other.fKept = nullptr; }
  Hold& operator=(Hold&& other) noexcept {
    KeptStatement* const mine = fKept;
    fKept = other.fKept;
    other.fKept = mine;
    return *this;
  }
  ~Hold() {
    if (fKept != nullptr) End();
  }

 private:
  void End() const noexcept;

  KeptStatement* fKept = nullptr;
};

}  // namespace detail

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_LEASE_H
