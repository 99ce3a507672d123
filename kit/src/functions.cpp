#include "sqldb/kit/functions.h"

#include <exception>
#include <memory>
#include <new>

#include <sqlite3.h>

#include "compile.h"
#include "sqldb/database.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit {

namespace {

using detail::AggregateFunction;
using detail::Comparison;
using detail::ScalarFunction;

// The result of a call, to which SQLite copies.
class ResultSink final : public detail::ValueSink {
 public:
  explicit ResultSink(sqlite3_context* context) : fContext(context) {}

  void TakeNull() override { sqlite3_result_null(fContext); }
  void TakeInteger(std::int64_t value) override { sqlite3_result_int64(fContext, value); }
  void TakeReal(double value) override { sqlite3_result_double(fContext, value); }
  void TakeText(std::string_view text) override {
    sqlite3_result_text64(fContext, BeginOf(text), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  void TakeBlob(std::string_view bytes) override {
    sqlite3_result_blob64(fContext, BeginOf(bytes), bytes.size(), SQLITE_TRANSIENT);
  }

 private:
  // A null pointer would be NULL.
  static const char* BeginOf(std::string_view bytes) { return bytes.data() != nullptr ? bytes.data() : ""; }

  sqlite3_context* fContext;
};

void TellError(sqlite3_context* context, std::string_view message) noexcept {
  sqlite3_result_error(context, message.data(), static_cast<int>(message.size()));
}

// No exception crosses SQLite's own functions.
template <typename Call>
void CallForSQLite(sqlite3_context* context, const Call& call) noexcept {
  try {
    call();
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  } catch (const ConstraintError& error) {
    TellError(context, error.Message());
    // Of other codes SQLite would take some for its own, and roll back.
    if (error.Code() == SQLITE_CONSTRAINT) sqlite3_result_error_code(context, error.ExtendedCode());
  } catch (const Error& error) {
    TellError(context, error.Message());
  } catch (const std::exception& error) {
    TellError(context, error.what());
  } catch (...) {
    TellError(context, "an exception that is no std::exception");
  }
}

void RunFunction(sqlite3_context* context, int count, sqlite3_value** values) {
  CallForSQLite(context, [&] {
    const auto& function = *static_cast<const ScalarFunction*>(sqlite3_user_data(context));
    ResultSink result(context);
    function.call(function.callable, FunctionArguments(values, count), result);
  });
}

void DestroyFunction(void* pointer) {
  const std::unique_ptr<ScalarFunction> function(static_cast<ScalarFunction*>(pointer));
  function->destroy(function->callable);
}

const AggregateFunction& AggregateOf(sqlite3_context* context) {
  return *static_cast<const AggregateFunction*>(sqlite3_user_data(context));
}

// Of a group, in memory of SQLite's, which is zero at first.
struct Group {
  void* aggregate;
  bool hasFailed;
};

void StepAggregate(sqlite3_context* context, int count, sqlite3_value** values) {
  CallForSQLite(context, [&] {
    const AggregateFunction& function = AggregateOf(context);
    auto* const group = static_cast<Group*>(sqlite3_aggregate_context(context, sizeof(Group)));
    if (group == nullptr) throw std::bad_alloc();
    group->hasFailed = true;
    if (group->aggregate == nullptr) group->aggregate = function.make();
    function.step(group->aggregate, FunctionArguments(values, count));
    group->hasFailed = false;
  });
}

// Called for each group, also after a failure, and for one without rows.
void FinishAggregate(sqlite3_context* context) {
  CallForSQLite(context, [&] {
    const AggregateFunction& function = AggregateOf(context);
    const auto* const group = static_cast<const Group*>(sqlite3_aggregate_context(context, 0));
    const bool isMade = group != nullptr && group->aggregate != nullptr;
    const bool hasFailed = group != nullptr && group->hasFailed;
    if (hasFailed && !isMade) return;
    const std::unique_ptr<void, void (*)(void*)> aggregate(isMade ? group->aggregate : function.make(),
                                                           function.destroy);
    ResultSink result(context);
    if (!hasFailed) function.finish(aggregate.get(), result);
  });
}

int CompareTexts(void* pointer, int sizeOfA, const void* a, int sizeOfB, const void* b) {
  const auto& comparison = *static_cast<const Comparison*>(pointer);
  return comparison.compare(comparison.callable,
                            std::string_view(static_cast<const char*>(a), static_cast<std::size_t>(sizeOfA)),
                            std::string_view(static_cast<const char*>(b), static_cast<std::size_t>(sizeOfB)));
}

void DestroyComparison(void* pointer) {
  const std::unique_ptr<Comparison> comparison(static_cast<Comparison*>(pointer));
  comparison->destroy(comparison->callable);
}

// What is wrong with one SQLite does not say.
void CheckName(const std::string& name) {
  constexpr std::size_t kMost = 255;
  if (!name.empty() && name.size() <= kMost && name.find('\0') == std::string::npos) return;
  throw Error("The name of a function or collation has 1 to 255 bytes, and no zero byte.", SQLITE_MISUSE);
}

void CheckDefined(sqlite3* connection, int result) {
  if (result != SQLITE_OK) detail::ThrowError(connection, result, {});
}

// A copy without its type, which owns the callable.
template <typename Callee>
std::unique_ptr<Callee, void (*)(void*)> Owned(const Callee& callee, void (*destroy)(void*)) {
  std::unique_ptr<void, void (*)(void*)> callable(callee.callable, callee.destroy);
  std::unique_ptr<Callee, void (*)(void*)> owned(new Callee(callee), destroy);
  static_cast<void>(callable.release());
  return owned;
}

}  // namespace

detail::Source FunctionArguments::SourceOf(int index) const {
  if (index < 0 || index >= fCount) {
    throw Error("The function has no argument " + std::to_string(index) + ", counted from 0.", SQLITE_MISUSE);
  }
  return detail::Source{static_cast<sqlite3_value**>(fValues)[index], nullptr, index};
}

namespace detail {

void AddFunction(Database& database, const std::string& name, int argumentCount, Purity purity,
                 const ScalarFunction& function) {
  auto owned = Owned(function, &DestroyFunction);
  CheckName(name);
  sqlite3* const connection = database.Core().fConnection;
  const int flags = SQLITE_UTF8 | (purity == Purity::kDeterministic ? SQLITE_DETERMINISTIC : 0);
  // From here on SQLite owns it, also if it fails.
  CheckDefined(connection, sqlite3_create_function_v2(connection, name.c_str(), argumentCount, flags, owned.release(),
                                                      &RunFunction, nullptr, nullptr, &DestroyFunction));
}

void AddAggregate(Database& database, const std::string& name, int argumentCount, const AggregateFunction& function) {
  CheckName(name);
  sqlite3* const connection = database.Core().fConnection;
  CheckDefined(connection, sqlite3_create_function_v2(connection, name.c_str(), argumentCount, SQLITE_UTF8,
                                                      const_cast<AggregateFunction*>(&function), nullptr,
                                                      &StepAggregate, &FinishAggregate, nullptr));
}

void AddCollation(Database& database, const std::string& name, const Comparison& comparison) {
  auto owned = Owned(comparison, &DestroyComparison);
  CheckName(name);
  sqlite3* const connection = database.Core().fConnection;
  CheckDefined(connection, sqlite3_create_collation_v2(connection, name.c_str(), SQLITE_UTF8, owned.get(),
                                                       &CompareTexts, &DestroyComparison));
  // Other than for a function, SQLite leaves it to the caller if it fails.
  static_cast<void>(owned.release());
}

}  // namespace detail

}  // namespace sqldb::kit
