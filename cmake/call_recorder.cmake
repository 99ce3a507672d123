# sqldb_record_calls(TARGET): the library's calls of SQLite come to tests/support/call_recorder.cpp, which is part of TARGET.
function(sqldb_record_calls target)
  if(NOT (WIN32 OR EMSCRIPTEN))
    # The library finds the program's functions before SQLite's. The symbol that comes with it would keep other programs
    # from the precompiled headers.
    set_target_properties(${target} PROPERTIES ENABLE_EXPORTS ON DEFINE_SYMBOL "")
    target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
    return()
  endif()
  # Each library keeps to what it was linked to there, but the linker can lead the calls aside in a static one.
  target_compile_definitions(${target} PRIVATE SQLDB_WRAPPED_CALLS)
  foreach(function IN ITEMS sqlite3_open sqlite3_close sqlite3_errmsg sqlite3_prepare sqlite3_step sqlite3_finalize
      sqlite3_column_int sqlite3_column_text sqlite3_create_collation usleep)
    target_link_options(${target} PRIVATE -Wl,--wrap=${function})
  endforeach()
endfunction()
