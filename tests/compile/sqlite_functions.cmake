# The library may call nine functions of SQLite, and must need them all.
set(expected
  sqlite3_close
  sqlite3_column_int
  sqlite3_column_text
  sqlite3_create_collation
  sqlite3_errmsg
  sqlite3_finalize
  sqlite3_open
  sqlite3_prepare
  sqlite3_step)

set(dynamic)
if(TYPE STREQUAL "SHARED_LIBRARY")
  set(dynamic --dynamic)
endif()
execute_process(COMMAND ${NM} ${dynamic} --undefined-only ${LIBRARY}
  RESULT_VARIABLE result OUTPUT_VARIABLE symbols ERROR_VARIABLE problem)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} ${LIBRARY}: ${result}\n${problem}")
endif()

string(REGEX MATCHALL "U sqlite3_[A-Za-z0-9_]+" called "${symbols}")
list(TRANSFORM called REPLACE "^U " "")
list(REMOVE_DUPLICATES called)

set(unexpected ${called})
list(REMOVE_ITEM unexpected ${expected})
set(missing ${expected})
if(called)
  list(REMOVE_ITEM missing ${called})
endif()
if(unexpected OR missing)
  message(FATAL_ERROR "called though not expected: ${unexpected}\nexpected but not called: ${missing}")
endif()
