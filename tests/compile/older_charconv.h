// Before the first standard library that prints doubles. Both headers define the macro.
#include <charconv>
#include <version>

#undef __cpp_lib_to_chars
#ifdef _LIBCPP_VERSION
#undef _LIBCPP_VERSION
#define _LIBCPP_VERSION 13000
#endif
