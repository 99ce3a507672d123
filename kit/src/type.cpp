#include "sqldb/kit/type.h"

#include "encoded_size.h"
#include "sqldb/encoding.h"

namespace sqldb::kit {

std::string Type<EncodedBytes>::Store(const EncodedBytes& value) {
  const int size = detail::CountForEncoding(value.bytes.size());
  std::string text(static_cast<std::size_t>(sqlite_encode_binary(value.bytes.data(), size, nullptr)) + 1, '\0');
  sqlite_encode_binary(value.bytes.data(), size, reinterpret_cast<unsigned char*>(text.data()));
  text.pop_back();
  return text;
}

EncodedBytes Type<EncodedBytes>::Load(const std::string& stored) {
  EncodedBytes value;
  value.bytes.resize(stored.size());
  const int size = sqlite_decode_binary(reinterpret_cast<const unsigned char*>(stored.c_str()), value.bytes.data());
  value.bytes.resize(static_cast<std::size_t>(size));
  return value;
}

}  // namespace sqldb::kit
