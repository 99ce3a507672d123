# What the tests need beyond the library. Tests whose tools are missing are left out, in one line that says so; with
# SQLDB_REQUIRE_ALL_TESTS that is an error.

# sqldb_leave_out(TESTS TOOL PACKAGE): the package is Debian's.
function(sqldb_leave_out tests tool package)
  if(SQLDB_REQUIRE_ALL_TESTS)
    message(FATAL_ERROR "All tests are required, and ${tests} need ${tool}: install ${package}.")
  endif()
  message(STATUS "Tests left out: ${tests}, for want of ${tool}: install ${package}.")
endfunction()

# Debian packages GoogleMock by itself.
find_package(GTest QUIET)
set(SQLDB_HAS_GOOGLETEST FALSE)
if(TARGET GTest::gmock AND TARGET GTest::gtest_main)
  set(SQLDB_HAS_GOOGLETEST TRUE)
elseif(TARGET GTest::gtest)
  sqldb_leave_out("sqldb_tests, sqldb_kit_tests, sqldb_client_tests, foreign.*, catalog.*" GoogleMock libgmock-dev)
else()
  sqldb_leave_out("sqldb_tests, sqldb_kit_tests, sqldb_client_tests, foreign.*, catalog.*" "GoogleTest with GoogleMock"
    "libgtest-dev and libgmock-dev")
endif()

# SQLite's own shell judges what the library and the examples write.
find_program(SQLITE3_SHELL sqlite3)
if(NOT SQLITE3_SHELL)
  sqldb_leave_out("foreign.*, catalog.*" "SQLite's shell" sqlite3)
endif()

# A database that another program brings.
find_file(PROJ_DATABASE proj.db PATHS /usr/share/proj NO_DEFAULT_PATH)
if(NOT PROJ_DATABASE)
  sqldb_leave_out("foreign.*" "proj.db" proj-data)
endif()
mark_as_advanced(SQLITE3_SHELL PROJ_DATABASE)
