# What the libraries are compiled with and linked to. Below a minimum it stops with the sentence of README.md; without what
# only the kit needs, the sentence says why the kit is left out.

# Apple counts the versions of its Clang in another way.
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "^(GNU|Clang|AppleClang)$"
    OR CMAKE_CXX_COMPILER_FRONTEND_VARIANT STREQUAL "MSVC"
    OR (NOT CMAKE_CXX_COMPILER_ID STREQUAL "AppleClang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 9))
  message(FATAL_ERROR "sqldb needs GCC 9 or newer, or Clang 9 or newer. "
    "This is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}.")
endif()

# SQLDB_ENGINE_TARGET is what to link, SQLDB_USES_KIT whether the kit and what uses it are built.
set(SQLDB_USES_KIT TRUE)
if(SQLDB_ENGINE STREQUAL "sqlite3")
  find_package(SQLite3 REQUIRED)
  if(SQLite3_VERSION AND SQLite3_VERSION VERSION_LESS 3.7.17)
    message(FATAL_ERROR "sqldb needs SQLite 3.7.17 or newer. This is ${SQLite3_VERSION}.")
  endif()
  if(SQLite3_VERSION AND SQLite3_VERSION VERSION_LESS 3.15)
    set(SQLDB_USES_KIT FALSE)
    message(STATUS "The kit is left out: sqldb::kit needs SQLite 3.15 or newer. This is ${SQLite3_VERSION}.")
  endif()
  # CMake has called it so since 4.3.
  if(NOT TARGET SQLite3::SQLite3)
    add_library(SQLite3::SQLite3 INTERFACE IMPORTED)
    target_link_libraries(SQLite3::SQLite3 INTERFACE SQLite::SQLite3)
  endif()
  set(SQLDB_ENGINE_TARGET SQLite3::SQLite3)
else()
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SQLDB_ENGINE_${SQLDB_ENGINE} REQUIRED IMPORTED_TARGET ${SQLDB_ENGINE})
  set(SQLDB_ENGINE_TARGET PkgConfig::SQLDB_ENGINE_${SQLDB_ENGINE})
endif()

set(CMAKE_REQUIRED_QUIET ON)
set(CMAKE_REQUIRED_FLAGS ${CMAKE_CXX17_STANDARD_COMPILE_OPTION})
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
  #include <charconv>
  int main() { char text[32]; return std::to_chars(text, text + sizeof text, 0.5).ptr == text; }" SQLDB_PRINTS_REALS)
unset(CMAKE_REQUIRED_FLAGS)
if(NOT SQLDB_PRINTS_REALS)
  set(SQLDB_USES_KIT FALSE)
  message(STATUS "The kit is left out: "
    "sqldb::kit needs std::to_chars for double: libstdc++ 11 or newer, or libc++ 14 or newer.")
endif()

find_package(Boost QUIET CONFIG)
if(NOT Boost_FOUND)
  # For headers that came without Boost's own files for CMake. Newer versions of CMake look for those only, unless asked.
  if(POLICY CMP0167)
    cmake_policy(SET CMP0167 OLD)
  endif()
  find_package(Boost REQUIRED MODULE)
endif()
if(Boost_VERSION VERSION_LESS 1.74)
  message(FATAL_ERROR "sqldb needs Boost 1.74 or newer. This is ${Boost_VERSION}.")
endif()
