# Installs the built project into a scratch prefix, then builds and runs the consumer against it.
# Expects BUILD_DIR, SOURCE_DIR, WORK_DIR and CXX.
file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/build" -G Ninja
                        -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build "${WORK_DIR}/build" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed: ${rc}")
endif()
# Its ring file goes to the scratch directory, not to the default one.
execute_process(COMMAND ${CMAKE_COMMAND} -E env RINGLOGDIR=${WORK_DIR} "${WORK_DIR}/build/consumer" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the consumer failed: ${rc}")
endif()
if(EXISTS "${WORK_DIR}/build/transport_consumer")
  execute_process(COMMAND "${WORK_DIR}/build/transport_consumer" RESULT_VARIABLE rc)
  if(rc)
    message(FATAL_ERROR "the transport's consumer failed: ${rc}")
  endif()
endif()
