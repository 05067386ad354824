# Runs COMMAND (a list) and checks its exit code against EXIT, and, if given, that its standard
# error contains STDERR.
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL EXIT)
  message(FATAL_ERROR "exit code ${rc}, expected ${EXIT}\nstdout:\n${out}\nstderr:\n${err}")
endif()
if(DEFINED STDERR)
  string(FIND "${err}" "${STDERR}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "standard error lacks '${STDERR}':\n${err}")
  endif()
endif()
