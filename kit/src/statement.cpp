#include "sqldb/kit/statement.h"

#include "binding.h"
#include "connection.h"
#include "step.h"

namespace sqldb::kit {

detail::Lease Statement::Begin(const detail::Argument* arguments, std::size_t count, detail::Values values) const {
  if (!fLease.IsThere()) throw Error("The statement has been moved.", SQLITE_MISUSE);
  const detail::KeptStatement& kept = fLease.Kept();
  if (kept.statement == nullptr) detail::ThrowLetGo(kept);
  if (kept.users > 1) {
    throw Error("The statement is in use: end the range that Query has made, or take its rows with All.", SQLITE_MISUSE,
                kept.Sql());
  }
  detail::Lease use = fLease;
  detail::BindAll(kept, arguments, count, values);
  return use;
}

detail::RowReader Statement::Reader(const detail::Argument* arguments, std::size_t count,
                                    const detail::RowShape& shape) const {
  return detail::RowReader(Begin(arguments, count, detail::Values::kLasting), shape, detail::ColumnOrder::kByName);
}

}  // namespace sqldb::kit
