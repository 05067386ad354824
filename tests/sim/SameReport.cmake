# Runs SIM on SCENARIO in one process and again with --split, and checks that the two reports are
# the same, and the exit codes too.
execute_process(COMMAND ${SIM} ${SCENARIO} RESULT_VARIABLE rc1 OUTPUT_VARIABLE one ERROR_QUIET)
execute_process(COMMAND ${SIM} --split ${SCENARIO} RESULT_VARIABLE rc2 OUTPUT_VARIABLE two ERROR_VARIABLE err)
if(NOT rc1 EQUAL rc2)
  message(FATAL_ERROR "exit code ${rc2} split, ${rc1} in one process\n${err}")
endif()
if(NOT one STREQUAL two)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/one.txt "${one}")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/split.txt "${two}")
  message(FATAL_ERROR "the split run's report differs; both are in ${CMAKE_CURRENT_BINARY_DIR}\n${err}")
endif()
