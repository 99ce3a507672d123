# How the project's own targets are compiled. Nothing of this reaches those who link the library.

# Warnings, and in Debug the standard library's own checks, which stop the program at a caller's mistake.
function(sqldb_be_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast)
  target_compile_definitions(${target} PRIVATE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
endfunction()

# A program of tests: strict, and quick to build, since what runs in the end is the library. So it is not optimised, and
# undefined behaviour is looked for in the library only.
function(sqldb_be_a_test target)
  sqldb_be_strict(${target})
  target_compile_options(${target} PRIVATE -O0 -fno-sanitize=undefined)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
endfunction()

# Calls within the library go straight to their target. SQLite's functions can still be replaced by a program's own.
function(sqldb_bind_own_calls target)
  target_compile_options(${target} PRIVATE -fno-semantic-interposition -fno-plt)
endfunction()

function(sqldb_harden target)
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
  # A sanitizer's own symbols come from the executable.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
