// Encodes any bytes and decodes them again, from and to blocks of exactly the size needed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>

#include "support/naive_encoding.h"

namespace {

using support::Byte;
using support::Bytes;

// Says at the end of the run how many inputs needed escapes, and fails the run if those were fewer than one in twenty.
class EscapeCount {
 public:
  ~EscapeCount() {
    std::fprintf(stderr, "encoded with escapes: %ld of %ld inputs\n", fWithEscapes, fInputs);
    if (fWithEscapes < fInputs / 20) std::_Exit(1);
  }

  void Look(const Bytes& input) {
    ++fInputs;
    const int n = static_cast<int>(input.size());
    // One more, for the offset, is what takes the least.
    if (sqlite_encode_binary(input.data(), n, nullptr) > n + 1) ++fWithEscapes;
  }

 private:
  long fInputs = 0;
  long fWithEscapes = 0;
};

void RoundTrip(const Bytes& input) {
  static EscapeCount count;
  count.Look(input);
  const std::string complaint = support::ComplaintAbout(input);
  if (complaint.empty()) return;
  std::fprintf(stderr, "%s\n", complaint.c_str());
  std::abort();
}

// All byte values but one, in an order that the given bytes decide, and these once more: too many values for an offset
// without escapes.
Bytes WithMostValues(const Bytes& bytes) {
  std::array<Byte, 256> values{};
  std::iota(values.begin(), values.end(), Byte{0});
  for (std::size_t i = 0; i < bytes.size(); ++i) std::swap(values[i % values.size()], values[bytes[i]]);
  Bytes all(values.begin() + 1, values.end());
  all.insert(all.end(), bytes.begin(), bytes.end());
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes input(data, data + size);
  RoundTrip(input);
  // One in twelve, since it takes longer; picked so that the search does not come to prefer a few of them.
  const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  if (std::hash<std::string_view>()(text) % 12 == 0) RoundTrip(WithMostValues(input));
  return 0;
}
