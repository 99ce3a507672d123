# Compiles SOURCE with COMPILER in the oldest and the newest language version. With MENDED it must compile, with MENDED
# defined; without, it must fail with an error that matches ERROR. OPTIONS come before
# the folders, which are searched after theirs, and after the language version, which they may change.
set(arguments ${OPTIONS} -c -o ${OBJECT} ${SOURCE})
foreach(folder IN LISTS INCLUDE_FOLDERS)
  if(folder)
    list(APPEND arguments -I ${folder})
  endif()
endforeach()
if(MENDED)
  list(APPEND arguments -DMENDED)
endif()

foreach(standard c++17 c++2b)
  execute_process(COMMAND ${COMPILER} -std=${standard} ${arguments}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  file(REMOVE ${OBJECT})
  if(MENDED AND NOT result EQUAL 0)
    message(FATAL_ERROR "${standard}: does not compile:\n${output}")
  elseif(NOT MENDED AND result EQUAL 0)
    message(FATAL_ERROR "${standard}: compiles")
  elseif(NOT MENDED AND NOT output MATCHES "${ERROR}")
    message(FATAL_ERROR "${standard}: fails, but not with '${ERROR}':\n${output}")
  endif()
endforeach()
