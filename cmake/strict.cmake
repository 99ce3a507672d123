# How the project's own targets are compiled. Nothing of this reaches those who link the library.

# Warnings, and in Debug the standard library's own checks, which stop the program at a caller's mistake.
function(sqldb_be_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast)
  target_compile_definitions(${target} PRIVATE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
endfunction()

function(sqldb_harden target)
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
  # A sanitizer's own symbols come from the executable.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
