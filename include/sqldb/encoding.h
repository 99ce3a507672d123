#ifndef SQLDB_ENCODING_H
#define SQLDB_ENCODING_H

// Stores arbitrary bytes as text without zero bytes and single quotes: safe as a zero-terminated string and between
// the quotes of an SQL literal. The format is this library's own:
//
//   byte 0       the offset e, in 1..255 and never 0x27; for an empty input the single byte "x"
//   then         for every input byte b, with x = (b - e) mod 256:
//                  0x01 0x01 for x = 0x00, 0x01 0x02 for x = 0x01, 0x01 0x28 for x = 0x27, otherwise x
//   at the end   0x00
//
// The encoder takes the offset that needs the fewest escapes, the smallest such one.

#include "sqldb/export.h"

/// Encodes the `n` bytes at `in` into `out` and returns the length of the result, its terminating zero not counted.
/// With a null `out` only computes that length. `n` of 0 or less stands for an empty input.
/// REQUIRES: `out` holds one byte more than the length returned; n + 2 + 3n/254 bytes are always enough. `in` and
/// `out` do not overlap. The length fits an int: an `n` above 2,122,000,000 may not.
SQLDB_EXPORT int sqlite_encode_binary(const unsigned char* in, int n, unsigned char* out);

/// Decodes the zero-terminated string at `in` into `out` and returns the number of bytes written; writes no
/// terminator. `out` may be `in`. Nothing is checked, since every string decodes to something; an escape right before
/// the terminator gives one last byte, and an empty string none.
/// REQUIRES: `out` holds strlen(in) - 1 bytes.
SQLDB_EXPORT int sqlite_decode_binary(const unsigned char* in, unsigned char* out);

#endif  // SQLDB_ENCODING_H
