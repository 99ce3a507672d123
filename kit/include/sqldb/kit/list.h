#ifndef SQLDB_KIT_LIST_H
#define SQLDB_KIT_LIST_H

// A list of any length as the value of one parameter, so that one text serves all lengths:
//
//   std::vector<std::int64_t> ids = ...;
//   database.All<Part>("SELECT * FROM parts WHERE id IN (SELECT value FROM list(?))", List(ids));
//
// list(?) is a table with the one column `value`, in the order of the list. It can be joined and counted like any
// other:
//
//   database.All<std::string>("SELECT name FROM list(?) JOIN parts ON parts.id = value", List(ids));
//
// The kit gives it to every connection; a table of the database with this name hides it. There is no limit to the
// number of values but memory.

#include "sqldb/export.h"
#include "sqldb/kit/codec.h"
#include "sqldb/kit/lease.h"

namespace sqldb::kit {

namespace detail {

/// What List returns: the range by reference, whose values are read when the call binds them.
template <typename Range>
struct ListValue {
  const Range& range;
};

class ListValues;

/// Collects the values of a list, and hands them to a parameter as one value that list(?) knows. What it has collected
/// ends with it, unless a parameter has it by then: SQLite ends that when the parameter is bound anew.
class SQLDB_EXPORT ListBuilder {
 public:
  /// Throws Error if SQLite is older than 3.20.
  ListBuilder();
  ~ListBuilder();
  ListBuilder(const ListBuilder&) = delete;
  ListBuilder& operator=(const ListBuilder&) = delete;

  /// Keeps a copy. Throws what the Type of the value throws, std::bad_alloc, and Error for a list in a list.
  void Add(const Argument& value);
  /// Once, after the last one. REQUIRES: the target is a parameter. Throws Error.
  void Bind(const Target& target);

 private:
  ListValues* fValues;
};

/// `list` points to a ListValue.
template <typename Range>
void BindList(const Target& target, const void* list) {
  ListBuilder builder;
  for (const auto& given : static_cast<const ListValue<Range>*>(list)->range) {
    const typename ElementOf<Range, decltype(given)>::Type& value = given;
    builder.Add(ArgumentOf(value));
  }
  builder.Bind(target);
}

template <typename Range>
Argument ArgumentOf(const ListValue<Range>& list) {
  return Argument{nullptr, &list, &BindList<Range>};
}

}  // namespace detail

/// The values of `range` for one parameter, which stands in list(?). Each is stored as its Type says. They are copied
/// when the call binds them. Needs SQLite 3.20. REQUIRES: `range` outlives the call that takes the list.
template <typename Range>
detail::ListValue<Range> List(const Range& range) {
  return detail::ListValue<Range>{range};
}

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_LIST_H
