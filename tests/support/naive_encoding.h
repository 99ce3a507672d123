#ifndef SQLDB_TESTS_NAIVE_ENCODING_H
#define SQLDB_TESTS_NAIVE_ENCODING_H

// The encoded form of binary data, told the slow way, and what the library makes of it compared with that.

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sqldb/encoding.h"
#include "terms/block_encoding.h"

namespace support {

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

inline int Minus(int byte, int offset) { return (byte - offset + 256) % 256; }

constexpr std::array<int, 3> kForbidden = {0x00, 0x01, 0x27};

inline bool NeedsEscape(int shifted) {
  return std::find(kForbidden.begin(), kForbidden.end(), shifted) != kForbidden.end();
}

// How many escapes `input` needs with each offset.
inline std::array<int, 256> EscapesByOffset(const Bytes& input) {
  std::array<int, 256> escapes{};
  for (const Byte byte : input) {
    for (const int forbidden : kForbidden) ++escapes[static_cast<std::size_t>(Minus(byte, forbidden))];
  }
  return escapes;
}

inline int BestOffset(const Bytes& input) {
  std::array<int, 256> escapes = EscapesByOffset(input);
  // These are no offsets.
  escapes[0x00] = INT_MAX;
  escapes[0x27] = INT_MAX;
  return static_cast<int>(std::min_element(escapes.begin(), escapes.end()) - escapes.begin());
}

// With the terminating zero.
inline Bytes ModelEncoding(const Bytes& input) {
  if (input.empty()) return {0x78, 0x00};
  const int offset = BestOffset(input);
  Bytes encoded;
  encoded.reserve(2 + 2 * input.size());
  encoded.push_back(static_cast<Byte>(offset));
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

// `text` carries its terminating zero.
inline Bytes ModelDecoding(const Bytes& text) {
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

// ---------------------------------------------------------------------------------------------------------------------

constexpr Byte kUntouched = 0xA5;

// A block of exactly the size asked for, so that a sanitizer sees the first byte read or written beyond it.
class ExactBlock {
 public:
  explicit ExactBlock(std::size_t size) : fSize(size), fBytes(new Byte[size]) {
    std::fill_n(fBytes.get(), size, kUntouched);
  }
  explicit ExactBlock(const Bytes& bytes) : ExactBlock(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), fBytes.get());
  }

  Byte* Get() const { return fBytes.get(); }
  Bytes First(std::size_t count) const { return Bytes(Get(), Get() + std::min(count, fSize)); }
  Bytes All() const { return First(fSize); }

 private:
  std::size_t fSize;
  std::unique_ptr<Byte[]> fBytes;
};

// The library as applications call it, which takes the blocks that suit the processor, and what it does where none of
// the others suit.
struct Coder {
  const char* name;
  int (*encode)(const Byte* in, int n, Byte* out);
  int (*decode)(const Byte* in, Byte* out);
};

inline constexpr Coder kLibrary{"the library", sqlite_encode_binary, sqlite_decode_binary};
inline constexpr Coder kPortable{"portable blocks", sqldb::EncodeBinary<sqldb::PortableBlock>,
                                 sqldb::DecodeBinary<sqldb::PortableBlock>};
inline constexpr Coder kCoders[] = {kLibrary, kPortable};

// `encoded` carries its terminating zero, and the result its full number of bytes.
inline Bytes Decode(const Bytes& encoded, const Coder& coder = kLibrary) {
  const ExactBlock in(encoded);
  const ExactBlock out(encoded.size() < 2 ? 0 : encoded.size() - 2);
  return out.First(static_cast<std::size_t>(coder.decode(in.Get(), out.Get())));
}

inline Bytes DecodeInPlace(const Bytes& encoded, const Coder& coder = kLibrary) {
  const ExactBlock block(encoded);
  return block.First(static_cast<std::size_t>(coder.decode(block.Get(), block.Get())));
}

// Empty when encoding and decoding `input` does all it should.
inline std::string ComplaintAbout(const Bytes& input, const Bytes& expected, const Coder& coder) {
  const ExactBlock in(input);
  const int n = static_cast<int>(input.size());
  const int length = coder.encode(in.Get(), n, nullptr);
  if (length != static_cast<int>(expected.size()) - 1)
    return "the length without a buffer is " + std::to_string(length);
  if (length + 1 > n + 2 + 3 * n / 254) return "the result is longer than the bound";

  const ExactBlock out(expected.size());
  const int written = coder.encode(in.Get(), n, out.Get());
  if (written != length) return "the length with a buffer is " + std::to_string(written);
  const Bytes encoded = out.All();
  if (encoded != expected) return "the encoded form is not the expected one";
  if (in.All() != input) return "the input was written to";
  if (std::count(encoded.begin(), encoded.end(), 0x00) != 1) return "a zero byte is inside";
  if (std::count(encoded.begin(), encoded.end(), 0x27) != 0) return "a quote is inside";

  if (Decode(encoded, coder) != input) return "decoding does not give the input back";
  if (DecodeInPlace(encoded, coder) != input) return "decoding in place does not give the input back";
  return "";
}

inline std::string ComplaintAbout(const Bytes& input) {
  const Bytes expected = ModelEncoding(input);
  for (const Coder& coder : kCoders) {
    const std::string complaint = ComplaintAbout(input, expected, coder);
    if (!complaint.empty()) return std::string(coder.name) + ": " + complaint;
  }
  return "";
}

// The same of decoding any string, which carries its terminating zero.
inline std::string ComplaintAboutDecoding(const Bytes& text) {
  const Bytes expected = ModelDecoding(text);
  for (const Coder& coder : kCoders) {
    if (Decode(text, coder) != expected) return std::string(coder.name) + ": the decoded form is not the expected one";
    if (DecodeInPlace(text, coder) != expected) return std::string(coder.name) + ": decoding in place differs";
  }
  return "";
}

}  // namespace support

#endif  // SQLDB_TESTS_NAIVE_ENCODING_H
