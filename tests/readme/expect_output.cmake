# Runs PROGRAM, which may follow an emulator, and fails unless it succeeds and prints exactly EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE output RESULT_VARIABLE result)
# As Windows ends lines.
string(REPLACE "\r\n" "\n" output "${output}")
if(NOT result EQUAL 0 OR NOT output STREQUAL EXPECTED)
  message(FATAL_ERROR "${PROGRAM} ended with ${result} and printed\n${output}instead of\n${EXPECTED}")
endif()
