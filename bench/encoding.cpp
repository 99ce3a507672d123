// Bytes to text and back: random, text or zeros. Compared with what an encoder cannot do without: it has to know how
// often each byte value occurs, and to write all bytes.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <glib.h>
#include <openssl/evp.h>
#include <sodium.h>

#include "layer.h"
#include "sqldb/encoding.h"
#include "task.h"

namespace bench {

namespace {

using Bytes = std::vector<unsigned char>;

// What a Run handles, in pieces: a small one alone is not measured exactly.
constexpr std::size_t kBytes = std::size_t{1} << 20;

struct Random {
  static constexpr std::size_t kPiece = kBytes;
  static Bytes Make() {
    std::mt19937 random(1);
    Bytes bytes(kBytes);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8);
    return bytes;
  }
};

struct RandomPieces : Random {
  static constexpr std::size_t kPiece = 4096;
};

struct Zeros {
  static constexpr std::size_t kPiece = kBytes;
  static Bytes Make() { return Bytes(kBytes); }
};

// Words and blanks, as in a log or a document.
struct Text {
  static constexpr std::size_t kPiece = kBytes;
  static Bytes Make() {
    static constexpr char kLetters[] = "etaoin shrdlu cmfwyp vbgkqj xz";
    std::mt19937 random(1);
    std::geometric_distribution<std::size_t> letter(0.12);
    Bytes bytes(kBytes);
    for (unsigned char& byte : bytes)
      byte = static_cast<unsigned char>(kLetters[letter(random) % (sizeof kLetters - 1)]);
    return bytes;
  }
};

// Eight bytes at a time, into tables that take turns: to count the same value twice running takes longer, and four
// tables are as fast as eight.
void Count(const unsigned char* bytes, std::size_t size, std::uint32_t (&counts)[256]) {
  std::uint32_t tables[4][256] = {};
  std::size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t eight;
    std::memcpy(&eight, bytes + i, 8);
    ++tables[0][eight & 0xFF];
    ++tables[1][eight >> 8 & 0xFF];
    ++tables[2][eight >> 16 & 0xFF];
    ++tables[3][eight >> 24 & 0xFF];
    ++tables[0][eight >> 32 & 0xFF];
    ++tables[1][eight >> 40 & 0xFF];
    ++tables[2][eight >> 48 & 0xFF];
    ++tables[3][eight >> 56];
  }
  for (; i < size; ++i) ++tables[0][bytes[i]];
  for (std::size_t value = 0; value < 256; ++value) {
    counts[value] += tables[0][value] + tables[1][value] + tables[2][value] + tables[3][value];
  }
}

// What is decoded is compared with this for the decoded bytes.
template <typename Input>
class HistogramAndCopy : public Task {
 public:
  std::int64_t Run() override {
    std::uint32_t counts[256] = {};
    for (std::size_t begin = 0; begin < kBytes; begin += Input::kPiece) {
      Count(&fInput[begin], Input::kPiece, counts);
      std::memcpy(fOutput.data(), &fInput[begin], Input::kPiece);
    }
    return std::accumulate(std::begin(counts), std::end(counts), std::int64_t{0});
  }

 private:
  const Bytes fInput = Input::Make();
  Bytes fOutput = Bytes(Input::kPiece);
};

// Stores the worst case, twice the input.
Bytes Encoded(const Bytes& input) {
  Bytes output(2 * input.size() + 2);
  const int length = sqlite_encode_binary(input.data(), static_cast<int>(input.size()), output.data());
  output.resize(static_cast<std::size_t>(length) + 1);
  return output;
}

template <typename Input>
class SqldbEncode : public Task {
 public:
  std::int64_t Run() override {
    std::int64_t length = 0;
    for (std::size_t begin = 0; begin < kBytes; begin += Input::kPiece) {
      length += sqlite_encode_binary(&fInput[begin], Input::kPiece, fOutput.data());
    }
    return length;
  }

 private:
  const Bytes fInput = Input::Make();
  Bytes fOutput = Bytes(2 * Input::kPiece + 2);
};

template <typename Input>
class SqldbDecode : public Task {
 public:
  std::int64_t Run() override { return sqlite_decode_binary(fInput.data(), fOutput.data()); }

 private:
  const Bytes fInput = Encoded(Input::Make());
  Bytes fOutput = Bytes(kBytes);
};

template <typename Input>
class SqldbDecodeInPlace : public Task {
 public:
  std::int64_t Run() override { return sqlite_decode_binary(fBytes.data(), fBytes.data()); }
  void Reset() override { fBytes = fInput; }

 private:
  const Bytes fInput = Encoded(Input::Make());
  Bytes fBytes = fInput;
};

char* Characters(Bytes& bytes) { return reinterpret_cast<char*>(bytes.data()); }
const char* Characters(const Bytes& bytes) { return reinterpret_cast<const char*>(bytes.data()); }

// The peers encode to longer or shorter texts than sqldb. Each writes into a buffer that is large enough and returns
// how much it wrote.
struct GlibBase64 {
  static std::size_t Encode(const Bytes& bytes, Bytes& text) {
    int state = 0;
    int save = 0;
    const std::size_t length = g_base64_encode_step(bytes.data(), bytes.size(), FALSE, Characters(text), &state, &save);
    return length + g_base64_encode_close(FALSE, Characters(text) + length, &state, &save);
  }
  static std::size_t Decode(const Bytes& text, Bytes& bytes) {
    int state = 0;
    unsigned int save = 0;
    return g_base64_decode_step(Characters(text), text.size(), bytes.data(), &state, &save);
  }
};

struct SodiumBase64 {
  static constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;

  static std::size_t Encode(const Bytes& bytes, Bytes& text) {
    sodium_bin2base64(Characters(text), text.size(), bytes.data(), bytes.size(), kVariant);
    return sodium_base64_encoded_len(bytes.size(), kVariant) - 1;
  }
  static std::size_t Decode(const Bytes& text, Bytes& bytes) {
    std::size_t length = 0;
    if (sodium_base642bin(bytes.data(), bytes.size(), Characters(text), text.size(), nullptr, &length, nullptr,
                          kVariant) != 0) {
      Fail("sodium_base642bin");
    }
    return length;
  }
};

struct SodiumHex {
  static std::size_t Encode(const Bytes& bytes, Bytes& text) {
    sodium_bin2hex(Characters(text), text.size(), bytes.data(), bytes.size());
    return 2 * bytes.size();
  }
  static std::size_t Decode(const Bytes& text, Bytes& bytes) {
    std::size_t length = 0;
    if (sodium_hex2bin(bytes.data(), bytes.size(), Characters(text), text.size(), nullptr, &length, nullptr) != 0) {
      Fail("sodium_hex2bin");
    }
    return length;
  }
};

struct OpensslBase64 {
  static std::size_t Encode(const Bytes& bytes, Bytes& text) {
    return static_cast<std::size_t>(EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size())));
  }
  static std::size_t Decode(const Bytes& text, Bytes& bytes) {
    const int length = EVP_DecodeBlock(bytes.data(), text.data(), static_cast<int>(text.size()));
    if (length < 0) Fail("EVP_DecodeBlock");
    // It counts what the padding stands for as decoded bytes.
    return static_cast<std::size_t>(length - std::count(text.end() - 2, text.end(), '='));
  }
};

// What the longest text, in hexadecimal digits, takes with its end.
constexpr std::size_t kLongestText = 2 * kBytes + 1;

// Returns the length of the text, for the sizes to be compared.
template <typename Encoding, typename Input>
class PeerEncode : public Task {
 public:
  std::int64_t Run() override { return static_cast<std::int64_t>(Encoding::Encode(fInput, fOutput)); }

 private:
  const Bytes fInput = Input::Make();
  Bytes fOutput = Bytes(kLongestText);
};

template <typename Encoding>
Bytes EncodedBy(const Bytes& bytes) {
  Bytes text(kLongestText);
  text.resize(Encoding::Encode(bytes, text));
  return text;
}

template <typename Encoding, typename Input>
class PeerDecode : public Task {
 public:
  std::int64_t Run() override { return static_cast<std::int64_t>(Encoding::Decode(fInput, fOutput)); }

 private:
  const Bytes fInput = EncodedBy<Encoding>(Input::Make());
  Bytes fOutput = Bytes(fInput.size());
};

// Of the peers only GLib has a function for this.
template <typename Input>
class GlibDecodeInPlace : public Task {
 public:
  std::int64_t Run() override {
    std::size_t length = 0;
    g_base64_decode_inplace(Characters(fBytes), &length);
    return static_cast<std::int64_t>(length);
  }
  void Reset() override { fBytes = fInput; }

 private:
  static Bytes EndedText() {
    Bytes text = EncodedBy<GlibBase64>(Input::Make());
    text.push_back('\0');
    return text;
  }

  const Bytes fInput = EndedText();
  Bytes fBytes = fInput;
};

class Works {
 public:
  explicit Works(std::vector<Entry>& entries) : fEntries(entries) {}

  // Each after the floor of the same bytes.
  template <typename Input>
  void Begin(const std::string& work) {
    fWork = work;
    fIsEncoding = work.rfind("encode ", 0) == 0;
    Add<HistogramAndCopy<Input>>("histogram and copy");
  }

  template <typename T>
  void Add(const char* layer) {
    Entry entry = MakeEntry<T>("", layer, kBytes);
    entry.work = fWork;
    entry.sameOutcome = !fIsEncoding;
    fEntries.push_back(entry);
  }

 private:
  std::vector<Entry>& fEntries;
  std::string fWork;
  bool fIsEncoding = false;
};

template <typename Input>
void AddEncodingOf(Works& works, const std::string& input) {
  works.Begin<Input>("encode " + input);
  works.Add<SqldbEncode<Input>>("sqldb");
  works.Add<PeerEncode<GlibBase64, Input>>("GLib base64");
  works.Add<PeerEncode<SodiumBase64, Input>>("libsodium base64");
  works.Add<PeerEncode<SodiumHex, Input>>("libsodium hex");
  works.Add<PeerEncode<OpensslBase64, Input>>("OpenSSL base64");
  works.Begin<Input>("decode " + input);
  works.Add<SqldbDecode<Input>>("sqldb");
  works.Add<PeerDecode<GlibBase64, Input>>("GLib base64");
  works.Add<PeerDecode<SodiumBase64, Input>>("libsodium base64");
  works.Add<PeerDecode<SodiumHex, Input>>("libsodium hex");
  works.Add<PeerDecode<OpensslBase64, Input>>("OpenSSL base64");
  works.Begin<Input>("decode in place " + input);
  works.Add<SqldbDecodeInPlace<Input>>("sqldb");
  works.Add<GlibDecodeInPlace<Input>>("GLib base64");
}

}  // namespace

void AddEncoding(std::vector<Entry>& entries) {
  if (sodium_init() < 0) Fail("sodium_init");
  Works works(entries);
  AddEncodingOf<Text>(works, "text");
  AddEncodingOf<Random>(works, "random bytes");
  works.Begin<RandomPieces>("encode random bytes, 4 KiB each");
  works.Add<SqldbEncode<RandomPieces>>("sqldb");
  works.Begin<Zeros>("encode zeros");
  works.Add<SqldbEncode<Zeros>>("sqldb");
}

}  // namespace bench
