#include "sqldb/kit/statement.h"

#include <utility>

#include "binding.h"
#include "connection.h"
#include "step.h"

namespace sqldb::kit {

namespace {

// Takes it for one use, and binds the values. Throws Error; it is then free again.
inline detail::Lease Begin(const detail::Lease& held, const detail::Argument* arguments, std::size_t count,
                           detail::Values values) {
  if (!held.IsThere()) throw Error("The statement has been moved.", SQLITE_MISUSE);
  detail::KeptStatement& kept = held.Kept();
  if (kept.statement == nullptr) detail::ThrowLetGo(kept);
  if (kept.users > 1) {
    throw Error("The statement is in use: end the range that Query has made, or take its rows with All.", SQLITE_MISUSE,
                kept.Sql());
  }
  ++kept.users;
  detail::Lease use(kept);
  detail::BindAll(kept, arguments, count, values);
  return use;
}

}  // namespace

std::int64_t Statement::Run(const detail::Argument* arguments, std::size_t count) const {
  return Begin(fLease, arguments, count, detail::Values::kLasting).Finish();
}

detail::RowReader Statement::Reader(const detail::Argument* arguments, std::size_t count, const detail::RowShape& shape,
                                    detail::Values values) const {
  return detail::RowReader(Begin(fLease, arguments, count, values), shape);
}

}  // namespace sqldb::kit
