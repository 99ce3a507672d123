// Decodes any string, however malformed, from and to blocks of exactly the size needed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "support/naive_encoding.h"

namespace {

using support::Byte;
using support::Bytes;

// `text` carries its terminating zero.
Bytes ModelDecoding(const Bytes& text) {
  Bytes decoded;
  const std::size_t end = text.size() - 1;
  for (std::size_t i = 1; i < end; ++i) {
    const bool isEscape = text[i] == 0x01;
    // The terminator may be what is escaped, and is the end all the same.
    if (isEscape) ++i;
    decoded.push_back(static_cast<Byte>(text[i] - (isEscape ? 1 : 0) + text[0]));
  }
  return decoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes text(data, std::find(data, data + size, 0));
  text.push_back(0);
  const Bytes expected = ModelDecoding(text);
  if (support::Decode(text) != expected || support::DecodeInPlace(text) != expected) std::abort();
  return 0;
}
