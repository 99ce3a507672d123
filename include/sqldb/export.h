#ifndef SQLDB_EXPORT_H
#define SQLDB_EXPORT_H

#if __cplusplus < 201703L
#error "sqldb needs C++17."
#endif

/// Marks what a library of this project offers, the core and the kit alike. Everything else is compiled with hidden
/// visibility and stays inside the library; in a DLL, which has no visibility, it is just not exported. Harmless in a
/// static build.
#ifndef _WIN32
#define SQLDB_EXPORT __attribute__((visibility("default")))
#elif defined(sqldb_EXPORTS) || defined(sqldb_kit_EXPORTS)
// Defined while the DLLs are built. Those who use them import by themselves, data too.
#define SQLDB_EXPORT __declspec(dllexport)
#else
#define SQLDB_EXPORT
#endif

#endif  // SQLDB_EXPORT_H
