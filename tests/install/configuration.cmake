# What the build says and leaves out where something is missing, switched off or too old. Only configures.
cmake_minimum_required(VERSION 3.22)

# configure(OPTION...): sets "result" and "output".
function(configure)
  file(REMOVE_RECURSE ${FOLDER})
  execute_process(COMMAND ${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${FOLDER} -D CMAKE_CXX_COMPILER=${COMPILER} ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  # CMake breaks the lines of an error.
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  set(result ${result} PARENT_SCOPE)
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect text)
  string(FIND "${output}" "${text}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "not said: ${text}\n${output}")
  endif()
endfunction()

function(expect_success)
  if(NOT result EQUAL 0)
    message(SEND_ERROR "${output}")
  endif()
endfunction()

function(expect_failure)
  if(result EQUAL 0)
    message(SEND_ERROR "does not fail: ${output}")
  endif()
endfunction()

function(expect_tests wanted)
  file(GLOB tests ${FOLDER}/CTestTestfile.cmake)
  if(wanted AND NOT tests)
    message(SEND_ERROR "there are no tests")
  elseif(tests AND NOT wanted)
    message(SEND_ERROR "there are tests")
  endif()
endfunction()

# Nothing is called OFF, so each of these is missing.
set(no_tools -D CMAKE_DISABLE_FIND_PACKAGE_GTest=ON -D SQLITE3_SHELL=OFF -D PROJ_DATABASE=OFF)
configure(${no_tools})
expect_success()
expect_tests(ON)
expect("want of GoogleTest with GoogleMock: install libgtest-dev and libgmock-dev.")
expect("want of SQLite's shell: install sqlite3.")
expect("want of proj.db: install proj-data.")
foreach(tool IN ITEMS CMAKE_DISABLE_FIND_PACKAGE_GTest=ON SQLITE3_SHELL=OFF PROJ_DATABASE=OFF)
  configure(-D ${tool} -D SQLDB_REQUIRE_ALL_TESTS=ON)
  expect_failure()
  expect("All tests are required, and ")
endforeach()

configure(-D BUILD_TESTING=OFF ${no_tools} -D SQLDB_REQUIRE_ALL_TESTS=ON)
expect_success()
expect_tests(OFF)

# Versions as they stand in headers that have nothing else.
foreach(version 3.7.16 3.14.2)
  file(WRITE ${FOLDER}-sqlite-${version}/sqlite3.h "#define SQLITE_VERSION \"${version}\"\n")
endforeach()
configure(-D SQLite3_INCLUDE_DIR=${FOLDER}-sqlite-3.7.16)
expect_failure()
expect("sqldb needs SQLite 3.7.17 or newer. This is 3.7.16.")
configure(-D SQLite3_INCLUDE_DIR=${FOLDER}-sqlite-3.14.2)
expect_success()
expect("sqldb::kit needs SQLite 3.15 or newer. This is 3.14.2.")
file(REMOVE_RECURSE ${FOLDER} ${FOLDER}-sqlite-3.7.16 ${FOLDER}-sqlite-3.14.2)
