#ifndef SQLDB_EXPORT_H
#define SQLDB_EXPORT_H

/// Marks what the library offers. Everything else is compiled with hidden visibility and stays inside libsqldb.so.
/// Harmless in a static build.
#define SQLDB_EXPORT __attribute__((visibility("default")))

#endif  // SQLDB_EXPORT_H
