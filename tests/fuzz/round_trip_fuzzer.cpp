// Encodes any bytes and decodes them again, from and to blocks of exactly the size needed.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/naive_encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string complaint = support::ComplaintAbout(support::Bytes(data, data + size));
  if (complaint.empty()) return 0;
  std::fprintf(stderr, "%s\n", complaint.c_str());
  std::abort();
}
