// Bytes to text and back: 16 MiB, random or text.

#include <cstring>
#include <random>
#include <vector>

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

template <typename Input>
void AddEncodingOf(std::vector<Entry>& entries, const std::string& input) {
  const auto add = [&](const std::string& work, Entry entry) {
    entry.work = work + input;
    entries.push_back(entry);
  };
  add("encode ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("encode ", MakeEntry<SqldbEncode<Input>>("", "sqldb", kBytes));
  add("decode ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("decode ", MakeEntry<SqldbDecode<Input>>("", "sqldb", kBytes));
  add("decode in place ", MakeEntry<Memcpy<Input>>("", "memcpy", kBytes));
  add("decode in place ", MakeEntry<SqldbDecodeInPlace<Input>>("", "sqldb", kBytes));
}

}  // namespace

void AddEncoding(std::vector<Entry>& entries) {
  AddEncodingOf<Text>(entries, "text");
  AddEncodingOf<Random>(entries, "random bytes");
}

}  // namespace bench
