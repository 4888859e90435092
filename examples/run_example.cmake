# Runs COMMAND, a list, which must succeed and print what matches EXPECTED.
execute_process(COMMAND ${COMMAND} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
message("${output}${errors}")
if(NOT status EQUAL 0 OR NOT output MATCHES "${EXPECTED}")
  message(FATAL_ERROR "status ${status}; expected was: ${EXPECTED}")
endif()
