#ifndef SQLDB_KIT_KEY_H
#define SQLDB_KIT_KEY_H

// What the key of a described struct is, and what can be given for it. All of it is known when the program is compiled,
// so that a wrong key does not compile, and says why in one sentence.

#include <cstddef>
#include <tuple>
#include <utility>

#include "sqldb/kit/lease.h"
#include "sqldb/kit/operand.h"
#include "sqldb/kit/record.h"

namespace sqldb::kit::detail {

/// How many fields make the key.
template <typename Record>
constexpr std::size_t KeyCount() {
  return std::apply([](const auto&... allFields) { return (std::size_t{0} + ... + (allFields.IsKey() ? 1U : 0U)); },
                    Described<Record>::Description().fields);
}

/// Whether the field can have a value of type K, as Set has it.
template <typename K, typename Record, typename T>
constexpr bool CanBeValueOf(const Field<Record, T>&) {
  return kCanHold<T, K>;
}

/// Whether K can be part number `index` of the key, from 0.
template <typename Record, typename K>
constexpr bool CanBeKey(std::size_t index) {
  std::size_t number = 0;
  bool can = false;
  std::apply(
      [&](const auto&... allFields) {
        ((can = can || (allFields.IsKey() && number == index && CanBeValueOf<K>(allFields)),
          number += allFields.IsKey() ? 1U : 0U),
         ...);
      },
      Described<Record>::Description().fields);
  return can;
}

/// Whether all K, in this order, can be the parts of the key.
template <typename Record, typename... K, std::size_t... I>
constexpr bool CanBeKeys(std::index_sequence<I...>) {
  return (CanBeKey<Record, K>(I) && ...);
}

/// Refuses a struct without a key.
template <typename Record>
constexpr void RequireKey() {
  static_assert(KeyCount<Record>() > 0, R"(The struct has no key: describe one with Key("id", &Part::id).)");
}

/// The parts of a key as the arguments of a call: they refer to the values. Refuses what cannot be the key.
template <typename Record, typename... K>
Arguments<K...> KeyOf(const K&... key) {
  RequireKey<Record>();
  constexpr bool isComplete = sizeof...(K) == KeyCount<Record>();
  static_assert(isComplete, "Give one value for each part of the key.");
  if constexpr (isComplete) {
    static_assert(CanBeKeys<Record, K...>(std::index_sequence_for<K...>()),
                  "Give the parts of the key in the order of the fields: numbers for numbers, texts for texts.");
  }
  return Arguments<K...>(key...);
}

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_KEY_H
