#ifndef SQLDB_TESTS_NAIVE_ENCODING_H
#define SQLDB_TESTS_NAIVE_ENCODING_H

// The encoded form of binary data, told the slow way, for the tests to compare with.

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

namespace support {

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

inline int Minus(int byte, int offset) { return (byte - offset + 256) % 256; }

inline bool NeedsEscape(int shifted) { return shifted == 0x00 || shifted == 0x01 || shifted == 0x27; }

struct Histogram {
  explicit Histogram(Bytes input) {
    std::sort(input.begin(), input.end());
    for (const Byte byte : input) {
      if (fEntries.empty() || fEntries.back().first != byte) fEntries.emplace_back(byte, 0);
      ++fEntries.back().second;
    }
  }

  int EscapesWith(int offset) const {
    int escapes = 0;
    for (const auto& [byte, count] : fEntries) {
      if (NeedsEscape(Minus(byte, offset))) escapes += count;
    }
    return escapes;
  }

  std::vector<std::pair<int, int>> fEntries;
};

inline int BestOffset(const Bytes& input) {
  const Histogram histogram(input);
  int best = 0;
  int fewest = INT_MAX;
  for (int offset = 1; offset <= 255; ++offset) {
    if (offset == 0x27) continue;
    const int escapes = histogram.EscapesWith(offset);
    if (escapes < fewest) {
      best = offset;
      fewest = escapes;
    }
  }
  return best;
}

// With the terminating zero.
inline Bytes ModelEncoding(const Bytes& input) {
  if (input.empty()) return {0x78, 0x00};
  const int offset = BestOffset(input);
  Bytes encoded{static_cast<Byte>(offset)};
  for (const Byte byte : input) {
    const int shifted = Minus(byte, offset);
    if (shifted == 0x00) {
      encoded.insert(encoded.end(), {0x01, 0x01});
    } else if (shifted == 0x01) {
      encoded.insert(encoded.end(), {0x01, 0x02});
    } else if (shifted == 0x27) {
      encoded.insert(encoded.end(), {0x01, 0x28});
    } else {
      encoded.push_back(static_cast<Byte>(shifted));
    }
  }
  encoded.push_back(0x00);
  return encoded;
}

}  // namespace support

#endif  // SQLDB_TESTS_NAIVE_ENCODING_H
