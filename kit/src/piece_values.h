#ifndef SQLDB_KIT_SRC_PIECE_VALUES_H
#define SQLDB_KIT_SRC_PIECE_VALUES_H

// How values are kept in words: one with the kind, and with the size of a text or blob above it, and then the value.

#include <cstdint>
#include <cstring>
#include <string_view>

#include <sqlite3.h>

#include "sqldb/kit/codec.h"
#include "sqldb/kit/piece.h"

namespace sqldb::kit::detail {

constexpr int kKindBits = 8;
constexpr std::uint64_t kKindMask = 0xFF;

enum class Kind : std::uint64_t { kNull, kInteger, kReal, kText, kBlob };

// The kind with the number of bytes, and the bytes, of which the last word has less if need be.
void AddBytes(Words& words, std::uint64_t kind, std::string_view bytes);

// Appends values.
class ValueWriter final : public ValueSink {
 public:
  // REQUIRES: `values` outlives the object.
  explicit ValueWriter(Words& values) : fValues(values) {}

  void TakeNull() override { fValues.Add(static_cast<std::uint64_t>(Kind::kNull)); }
  void TakeInteger(std::int64_t value) override {
    fValues.Add(static_cast<std::uint64_t>(Kind::kInteger));
    fValues.Add(static_cast<std::uint64_t>(value));
  }
  void TakeReal(double value) override {
    std::uint64_t word;
    std::memcpy(&word, &value, sizeof word);
    fValues.Add(static_cast<std::uint64_t>(Kind::kReal));
    fValues.Add(word);
  }
  void TakeText(std::string_view text) override { AddBytes(fValues, static_cast<std::uint64_t>(Kind::kText), text); }
  void TakeBlob(std::string_view bytes) override { AddBytes(fValues, static_cast<std::uint64_t>(Kind::kBlob), bytes); }

 private:
  Words& fValues;
};

// Hands values out again, in their order.
class ValueReader {
 public:
  // REQUIRES: `next` points to a value, or is not read from.
  explicit ValueReader(const std::uint64_t* next) : fNext(next) {}

  // Behind what has been read.
  const std::uint64_t* Position() const { return fNext; }

  void Next(const Target& target) {
    const std::uint64_t header = *fNext++;
    switch (static_cast<Kind>(header & kKindMask)) {
      case Kind::kNull:
        return BindNull(target);
      case Kind::kInteger:
        return BindInteger(target, static_cast<std::int64_t>(*fNext++));
      case Kind::kReal:
        return BindReal(target, Real());
      case Kind::kText:
        return BindText(target, Bytes(header));
      default:
        return BindBlob(target, Bytes(header));
    }
  }

 private:
  double Real() {
    double value;
    std::memcpy(&value, fNext++, sizeof value);
    return value;
  }
  std::string_view Bytes(std::uint64_t header) {
    const auto size = static_cast<std::size_t>(header >> kKindBits);
    const std::string_view bytes(reinterpret_cast<const char*>(fNext), size);
    fNext += (size + sizeof *fNext - 1) / sizeof *fNext;
    return bytes;
  }

  const std::uint64_t* fNext;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_PIECE_VALUES_H
