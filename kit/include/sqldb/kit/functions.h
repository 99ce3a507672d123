#ifndef SQLDB_KIT_FUNCTIONS_H
#define SQLDB_KIT_FUNCTIONS_H

// Functions, aggregates and collations of the program's own, for the SQL of one connection:
//
//   Define(database, "first_line", [](std::string_view text) { return text.substr(0, text.find('\n')); });
//   DefineAggregate<Longest>(database, "longest");
//   DefineCollation(database, "by_length", [](std::string_view a, std::string_view b) noexcept {
//     return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
//   });
//   database.All<std::string>("SELECT first_line(name) FROM parts ORDER BY name COLLATE by_length");
//
// Each belongs to the connection and ends with it; another connection to the same file does not know it. Not included
// by kit.h.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sqldb/export.h"
#include "sqldb/kit/codec.h"
#include "sqldb/kit/database.h"
#include "sqldb/kit/lease.h"

namespace sqldb::kit {

/// What SQLite may assume of a function.
enum class Purity {
  /// Nothing: it may yield something else for the same arguments, such as a time or what it reads elsewhere.
  kVarying,
  /// It always yields the same for the same arguments. SQLite may then call it less often, and takes it in indexes,
  /// checks and generated columns, which every program that writes the file has then to define.
  kDeterministic,
};

/// The arguments of a function that takes any number of them. Valid during the call.
class SQLDB_EXPORT FunctionArguments {
 public:
  /// For the kit.
  FunctionArguments(void* argumentValues, int argumentCount) noexcept
      : fValues(argumentValues), fCount(argumentCount) {}

  /// How many there are.
  int Count() const noexcept { return fCount; }
  /// The argument with this number, from 0, as a T: what can be read from a column, std::optional<T> for one that may
  /// be NULL, and std::string_view, valid during the call. Throws ConversionError for what does not fit, and Error with
  /// the code 21 if there is no such argument.
  template <typename T>
  T At(int index) const;

  /// For the kit.
  detail::Source SourceOf(int index) const;

 private:
  void* fValues;
  int fCount;
};

namespace detail {

/// Reads an argument.
template <typename T>
struct ArgumentReader {
  static T Read(const Source& source) {
    T value{};
    Codec<T>::Load(source, value);
    return value;
  }
};
template <>
struct ArgumentReader<std::string_view> {
  static std::string_view Read(const Source& source) { return ReadText(source); }
};
template <>
struct ArgumentReader<std::optional<std::string_view>> {
  static std::optional<std::string_view> Read(const Source& source) {
    if (IsNull(source)) return std::nullopt;
    return ReadText(source);
  }
};

/// The types of the arguments of a call.
template <typename... A>
struct ArgumentTypes {
  static constexpr int kCount = static_cast<int>(sizeof...(A));

  template <typename Call>
  static void Read(const FunctionArguments& arguments, const Call& call) {
    Read(arguments, call, std::index_sequence_for<A...>());
  }

 private:
  template <typename Call, std::size_t... I>
  static void Read([[maybe_unused]] const FunctionArguments& arguments, const Call& call, std::index_sequence<I...>) {
    // In their order, so that the first one that does not fit is told.
    std::tuple<std::decay_t<A>...> values{
        ArgumentReader<std::decay_t<A>>::Read(arguments.SourceOf(static_cast<int>(I)))...};
    std::apply(call, std::move(values));
  }
};
/// Any number of any types.
template <>
struct ArgumentTypes<const FunctionArguments&> {
  static constexpr int kCount = -1;

  template <typename Call>
  static void Read(const FunctionArguments& arguments, const Call& call) {
    call(arguments);
  }
};

/// Of a function, or of an object that can be called in one way only: the types of its arguments.
template <typename F, typename = void>
struct SignatureOf {
  static_assert(!std::is_same_v<F, F>,
                "A function of the program's own takes arguments of fixed types: no generic lambda, and no overloads.");
  using Arguments = ArgumentTypes<>;
};
template <typename F>
struct SignatureOf<F, std::void_t<decltype(&F::operator())>> : SignatureOf<decltype(&F::operator())> {};
template <typename R, typename... A>
struct SignatureOf<R (*)(A...)> {
  using Arguments = ArgumentTypes<A...>;
};
template <typename R, typename... A>
struct SignatureOf<R (*)(A...) noexcept> : SignatureOf<R (*)(A...)> {};
template <typename C, typename R, typename... A>
struct SignatureOf<R (C::*)(A...)> : SignatureOf<R (*)(A...)> {};
template <typename C, typename R, typename... A>
struct SignatureOf<R (C::*)(A...) noexcept> : SignatureOf<R (*)(A...)> {};
template <typename C, typename R, typename... A>
struct SignatureOf<R (C::*)(A...) const> : SignatureOf<R (*)(A...)> {};
template <typename C, typename R, typename... A>
struct SignatureOf<R (C::*)(A...) const noexcept> : SignatureOf<R (*)(A...)> {};

/// Hands over what a function yields: what may be a parameter, and a view that may be missing.
template <typename T>
void Yield(ValueSink& sink, const T& value) {
  const Argument result = ArgumentOf(value);
  result.bind(Target{nullptr, 0, false, &sink}, result.value);
}
inline void Yield(ValueSink& sink, const std::optional<std::string_view>& value) {
  value ? Yield(sink, *value) : sink.TakeNull();
}

/// A callable without its type.
struct ScalarFunction {
  void* callable;
  void (*call)(void* callable, const FunctionArguments& arguments, ValueSink& result);
  void (*destroy)(void* callable);
};

template <typename F>
void CallFunction(void* callable, const FunctionArguments& arguments, ValueSink& result) {
  SignatureOf<F>::Arguments::Read(arguments, [&](auto&&... values) {
    F& function = *static_cast<F*>(callable);
    if constexpr (std::is_void_v<decltype(function(std::forward<decltype(values)>(values)...))>) {
      function(std::forward<decltype(values)>(values)...);
      result.TakeNull();
    } else {
      Yield(result, function(std::forward<decltype(values)>(values)...));
    }
  });
}

/// An aggregate without its type.
struct AggregateFunction {
  void* (*make)();
  void (*step)(void* aggregate, const FunctionArguments& arguments);
  void (*finish)(void* aggregate, ValueSink& result);
  void (*destroy)(void* aggregate);
};

template <typename A>
void* MakeNew() {
  return new A();
}
template <typename T>
void Destroy(void* object) {
  delete static_cast<T*>(object);
}
template <typename A>
void CallStep(void* aggregate, const FunctionArguments& arguments) {
  SignatureOf<decltype(&A::Step)>::Arguments::Read(arguments, [&](auto&&... values) {
    static_cast<A*>(aggregate)->Step(std::forward<decltype(values)>(values)...);
  });
}
template <typename A>
void CallResult(void* aggregate, ValueSink& result) {
  if constexpr (std::is_void_v<decltype(static_cast<A*>(aggregate)->Result())>) {
    static_cast<A*>(aggregate)->Result();
    result.TakeNull();
  } else {
    Yield(result, static_cast<A*>(aggregate)->Result());
  }
}

/// A comparison without its type.
struct Comparison {
  void* callable;
  int (*compare)(void* callable, std::string_view a, std::string_view b) noexcept;
  void (*destroy)(void* callable);
};

template <typename F>
int CallComparison(void* callable, std::string_view a, std::string_view b) noexcept {
  return (*static_cast<F*>(callable))(a, b);
}

/// These own the callable from then on, whatever they throw.
SQLDB_EXPORT void AddFunction(Database& database, const std::string& name, int argumentCount, Purity purity,
                              const ScalarFunction& function);
SQLDB_EXPORT void AddCollation(Database& database, const std::string& name, const Comparison& comparison);
/// REQUIRES: `function` lives forever.
SQLDB_EXPORT void AddAggregate(Database& database, const std::string& name, int argumentCount,
                               const AggregateFunction& function);

}  // namespace detail

template <typename T>
T FunctionArguments::At(int index) const {
  return detail::ArgumentReader<T>::Read(SourceOf(index));
}

/// Defines the function `name` for the SQL of this connection: a function, or an object that can be called in one way,
/// such as a lambda, of which a copy is kept as long as the connection is open. Its arguments are of types that a
/// column can be read into, and its result of one that may be a parameter: numbers, texts, Blob, a Type; std::optional
/// for what may be NULL; std::string_view, which is valid during the call. One that takes `const FunctionArguments&`
/// takes any number of them. Functions with the same name and other numbers of arguments stand beside each other; one
/// with the same number is replaced.
///
///     const auto withTax = [rate](double price) { return price * (1 + rate); };
///     Define(database, "price_with_tax", withTax, Purity::kDeterministic);
///
/// What it throws becomes the Error of the statement that called it, with its message; the class and the codes are
/// those of a ConstraintError if it is one, otherwise the code is 1. std::bad_alloc stays one, and as everywhere SQLite
/// may then roll back the whole transaction. It may use the database to read, and to write where the statement that
/// calls it only reads; it must not close it. Views and triggers of the file may call it, too: what only this program
/// should call is no function.
///
/// Throws Error with the code 21 for a name that SQLite does not take, and BusyError while a statement runs if one is
/// to be replaced. Define functions before they are used: a statement that is kept goes on with the one that it was
/// compiled with, unless that was replaced by one with as many arguments.
template <typename F>
void Define(Database& database, const std::string& name, F&& function, Purity purity = Purity::kVarying) {
  using Callable = std::decay_t<F>;
  constexpr int count = detail::SignatureOf<Callable>::Arguments::kCount;
  detail::AddFunction(database, name, count, purity,
                      detail::ScalarFunction{new Callable(std::forward<F>(function)), &detail::CallFunction<Callable>,
                                             &detail::Destroy<Callable>});
}

/// Defines the aggregate `name`. For each group an Aggregate is made: Step gets the arguments of each row, and Result
/// is called once at the end, also for a group that is given up because another function fails; what it yields is then
/// not used. A group without rows has no Step; one whose Step throws has no Result. It is no window function.
///
///     struct Longest {
///       void Step(std::string_view text) { if (text.size() > longest.size()) longest = text; }
///       std::string Result() const { return longest; }
///       std::string longest;
///     };
///     DefineAggregate<Longest>(database, "longest");
///
/// All else is as for Define.
template <typename Aggregate>
void DefineAggregate(Database& database, const std::string& name) {
  static constexpr detail::AggregateFunction kFunction{&detail::MakeNew<Aggregate>, &detail::CallStep<Aggregate>,
                                                       &detail::CallResult<Aggregate>, &detail::Destroy<Aggregate>};
  detail::AddAggregate(database, name, detail::SignatureOf<decltype(&Aggregate::Step)>::Arguments::kCount, kFunction);
}

/// Defines the collation `name`: a callable that is given two texts, whose bytes are UTF-8 if the program stores such,
/// and returns a number below, equal to or above 0 as the first one comes before the second, is the same, or comes
/// behind it. It cannot fail, and is noexcept. Two texts that are the same for it are so for UNIQUE and keys, too; an
/// index is right only as long as every program that writes the file orders in the same way.
///
/// A copy of it is kept as long as the connection is open. Throws Error as Define does.
template <typename F>
void DefineCollation(Database& database, const std::string& name, F&& compare) {
  using Callable = std::decay_t<F>;
  constexpr bool isNothrow = std::is_nothrow_invocable_r_v<int, Callable&, std::string_view, std::string_view>;
  static_assert(isNothrow && std::is_same_v<decltype(compare(std::string_view(), std::string_view())), int>,
                "A collation is given two std::string_view, returns an int, and is noexcept: SQLite has no way to fail"
                " there.");
  detail::AddCollation(database, name,
                       detail::Comparison{new Callable(std::forward<F>(compare)), &detail::CallComparison<Callable>,
                                          &detail::Destroy<Callable>});
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_FUNCTIONS_H
