#include "sqldb/encoding.h"

#include "terms/block_encoding.h"

int sqlite_encode_binary(const unsigned char* in, int n, unsigned char* out) {
  return sqldb::EncodeBinary<sqldb::NativeBlock>(in, n, out);
}

int sqlite_decode_binary(const unsigned char* in, unsigned char* out) {
  return sqldb::DecodeBinary<sqldb::NativeBlock>(in, out);
}
