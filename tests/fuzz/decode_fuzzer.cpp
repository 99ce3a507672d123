// Decodes any string, however malformed, from and to blocks of exactly the size needed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/naive_encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  support::Bytes text(data, std::find(data, data + size, 0));
  text.push_back(0);
  const std::string complaint = support::ComplaintAboutDecoding(text);
  if (!complaint.empty()) {
    std::fprintf(stderr, "%s\n", complaint.c_str());
    std::abort();
  }
  return 0;
}
