// Bytes to text and back: 16 MiB, random or text.

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include <glib.h>
#include <openssl/evp.h>
#include <sodium.h>

#include "items.h"
#include "sqldb/encoding.h"
#include "task.h"

namespace bench {

namespace {

constexpr std::size_t kBytes = std::size_t{16} << 20;

using Bytes = std::vector<unsigned char>;

struct Random {
  static Bytes Make() {
    std::mt19937 random(1);
    Bytes bytes(kBytes);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8);
    return bytes;
  }
};

// Words and blanks, as in a log or a document.
struct Text {
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

template <typename Input>
class Memcpy : public Task {
 public:
  std::int64_t Run() override {
    std::memcpy(fOutput.data(), fInput.data(), kBytes);
    return kBytes;
  }

 private:
  const Bytes fInput = Input::Make();
  Bytes fOutput = Bytes(kBytes);
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
  std::int64_t Run() override { return sqlite_encode_binary(fInput.data(), kBytes, fOutput.data()); }

 private:
  const Bytes fInput = Input::Make();
  Bytes fOutput = Bytes(2 * kBytes + 2);
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

template <typename Input>
void AddEncodingOf(std::vector<Entry>& entries, const std::string& input) {
  const auto add = [&](const std::string& work, Entry entry) {
    entry.work = work + input;
    entry.sameOutcome = work != "encode ";
    entries.push_back(entry);
  };
  add("encode ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("encode ", MakeEntry<SqldbEncode<Input>>("", "sqldb", kBytes));
  add("encode ", MakeEntry<PeerEncode<GlibBase64, Input>>("", "GLib base64", kBytes));
  add("encode ", MakeEntry<PeerEncode<SodiumBase64, Input>>("", "libsodium base64", kBytes));
  add("encode ", MakeEntry<PeerEncode<SodiumHex, Input>>("", "libsodium hex", kBytes));
  add("encode ", MakeEntry<PeerEncode<OpensslBase64, Input>>("", "OpenSSL base64", kBytes));
  add("decode ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("decode ", MakeEntry<SqldbDecode<Input>>("", "sqldb", kBytes));
  add("decode ", MakeEntry<PeerDecode<GlibBase64, Input>>("", "GLib base64", kBytes));
  add("decode ", MakeEntry<PeerDecode<SodiumBase64, Input>>("", "libsodium base64", kBytes));
  add("decode ", MakeEntry<PeerDecode<SodiumHex, Input>>("", "libsodium hex", kBytes));
  add("decode ", MakeEntry<PeerDecode<OpensslBase64, Input>>("", "OpenSSL base64", kBytes));
  add("decode in place ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("decode in place ", MakeEntry<SqldbDecodeInPlace<Input>>("", "sqldb", kBytes));
  add("decode in place ", MakeEntry<GlibDecodeInPlace<Input>>("", "GLib base64", kBytes));
}

}  // namespace

void AddEncoding(std::vector<Entry>& entries) {
  if (sodium_init() < 0) Fail("sodium_init");
  AddEncodingOf<Text>(entries, "text");
  AddEncodingOf<Random>(entries, "random bytes");
}

}  // namespace bench
