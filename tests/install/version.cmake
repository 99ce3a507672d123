# The version of the project is that of the newest entry of the changelog, and of the ports that cannot read it.
cmake_minimum_required(VERSION 3.22)
file(STRINGS ${SOURCE}/CHANGELOG.md entries REGEX "^## ")
list(GET entries 0 entry)
if(NOT entry MATCHES "^## \\[([0-9]+\\.[0-9]+\\.[0-9]+)\\]")
  message(FATAL_ERROR "CHANGELOG.md begins with '${entry}'")
endif()
set(found_in_CHANGELOG.md ${CMAKE_MATCH_1})

file(READ ${SOURCE}/packaging/vcpkg/vcpkg.json port)
string(JSON found_in_vcpkg.json GET "${port}" version)

# As packaging/conan/conanfile.py reads it.
file(READ ${SOURCE}/CMakeLists.txt lists)
if(lists MATCHES "project\\(sqldb VERSION ([0-9.]+)")
  set(found_in_conanfile.py ${CMAKE_MATCH_1})
endif()

foreach(file IN ITEMS CHANGELOG.md vcpkg.json conanfile.py)
  if(NOT found_in_${file} STREQUAL VERSION)
    message(SEND_ERROR "${file} says ${found_in_${file}}, CMakeLists.txt says ${VERSION}")
  endif()
endforeach()
