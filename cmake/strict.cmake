# How the project's own targets are compiled. Nothing of this reaches those who link the library.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckLinkerFlag)

# Warnings, and in Debug the standard library's own checks, which stop the program at a caller's mistake.
function(sqldb_be_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast)
  target_compile_definitions(${target} PRIVATE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
endfunction()

# A program of tests: strict, and quick to build, since what runs in the end is the library. So it is not optimised, and
# undefined behaviour is looked for in the library only. Not for a unity build: each file has helpers of its own, and some
# take the place of functions that others call.
function(sqldb_be_a_test target)
  sqldb_be_strict(${target})
  target_compile_options(${target} PRIVATE -O0 -fno-sanitize=undefined)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF UNITY_BUILD OFF)
endfunction()

# sqldb_known_flags(RESULT FLAG...): those of the flags that the compiler knows for its target, all of which only Linux has.
function(sqldb_known_flags result)
  set(CMAKE_REQUIRED_QUIET ON)
  set(known)
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "SQLDB_KNOWS${flag}" knows)
    if(flag MATCHES "^-Wl,")
      check_linker_flag(CXX ${flag} ${knows})
    else()
      check_cxx_compiler_flag(${flag} ${knows})
    endif()
    if(${knows})
      list(APPEND known ${flag})
    endif()
  endforeach()
  set(${result} ${known} PARENT_SCOPE)
endfunction()

# Calls within the library go straight to their target. SQLite's functions can still be replaced by a program's own.
function(sqldb_bind_own_calls target)
  sqldb_known_flags(flags -fno-semantic-interposition -fno-plt)
  target_compile_options(${target} PRIVATE ${flags})
endfunction()

function(sqldb_harden target)
  # With the linker, which has to find what a protected function calls. Programs that link a static library do so without
  # the flag.
  get_target_property(type ${target} TYPE)
  set(CMAKE_REQUIRED_QUIET ON)
  if(type STREQUAL "STATIC_LIBRARY")
    set(CMAKE_REQUIRED_DEFINITIONS -fstack-protector-strong)
  else()
    set(CMAKE_REQUIRED_FLAGS -fstack-protector-strong)
  endif()
  check_cxx_source_compiles("
    void Fill(char* text) { *text = 0; }
    int main() { char text[64]; Fill(text); return *text; }" SQLDB_PROTECTS_STACK_OF_${type}
    FAIL_REGEX "[Ww]arning|unknown|unrecognized|unsupported")
  if(SQLDB_PROTECTS_STACK_OF_${type})
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    target_link_options(${target} PRIVATE -fstack-protector-strong)
  endif()

  set(flags -Wl,-z,relro -Wl,-z,now)
  # A sanitizer's own symbols come from the executable.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    list(APPEND flags -Wl,--no-undefined)
  endif()
  sqldb_known_flags(flags ${flags})
  target_link_options(${target} PRIVATE ${flags})
endfunction()
