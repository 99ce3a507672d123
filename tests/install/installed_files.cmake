# Installs BUILD into PREFIX: every public header must be there, and nothing that is not listed here; what CMake and
# pkg-config read must not say where it was made.
cmake_minimum_required(VERSION 3.22)
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} --config "${CONFIG}"
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${output}")
endif()

file(GLOB_RECURSE core RELATIVE ${SOURCE} ${SOURCE}/include/*)
file(GLOB_RECURSE kit RELATIVE ${SOURCE}/kit ${SOURCE}/kit/include/*)
string(TOLOWER "${CONFIG}" config)
if(NOT config)
  set(config noconfig)
endif()
set(expected ${core} ${kit}
  ${LIBDIR}/cmake/sqldb/sqldbConfig.cmake
  ${LIBDIR}/cmake/sqldb/sqldbConfigVersion.cmake
  ${LIBDIR}/cmake/sqldb/sqldbTargets-${config}.cmake
  ${LIBDIR}/cmake/sqldb/sqldbTargets.cmake
  ${LIBDIR}/pkgconfig/sqldb.pc)
if(TYPE STREQUAL "SHARED_LIBRARY")
  string(REGEX MATCH "^[0-9]+" major ${VERSION})
  set(soname libsqldb.so.${major})
  list(APPEND expected ${LIBDIR}/libsqldb.so ${LIBDIR}/${soname} ${LIBDIR}/libsqldb.so.${VERSION})
else()
  list(APPEND expected ${LIBDIR}/libsqldb.a)
endif()

file(GLOB_RECURSE installed RELATIVE ${PREFIX} ${PREFIX}/*)
set(unexpected ${installed})
list(REMOVE_ITEM unexpected ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${installed})
if(unexpected OR missing)
  message(FATAL_ERROR "installed though not expected: ${unexpected}\nexpected but not installed: ${missing}")
endif()

foreach(file IN LISTS installed)
  if(NOT file MATCHES "\\.(cmake|pc)$")
    continue()
  endif()
  file(READ ${PREFIX}/${file} text)
  foreach(place IN ITEMS ${SOURCE} ${BUILD} ${PREFIX})
    string(FIND "${text}" ${place} at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "${file} knows ${place}:\n${text}")
    endif()
  endforeach()
endforeach()

if(TYPE STREQUAL "SHARED_LIBRARY")
  execute_process(COMMAND ${READELF} --dynamic ${PREFIX}/${LIBDIR}/libsqldb.so OUTPUT_VARIABLE dynamic)
  string(FIND "${dynamic}" "Library soname: [${soname}]" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the library is not called ${soname}:\n${dynamic}")
  endif()
  if(dynamic MATCHES "R(UN)?PATH[^\n]*")
    message(FATAL_ERROR "the library looks for others in a fixed place: ${CMAKE_MATCH_0}")
  endif()
endif()
file(REMOVE_RECURSE ${PREFIX})
