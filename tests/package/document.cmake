# Run with -P: PROGRAM takes the sample snapshot and must print the document EXPECTED, byte for byte. Identifiers and
# times come from the simulated host, so they are the same on every run. With -DUPDATE=ON the document is rewritten.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${SCRATCH_DIR})
file(MAKE_DIRECTORY ${SCRATCH_DIR})
# The host file lies beside the program's working directory, so its path is none of the checkout's.
file(COPY ${HOST} DESTINATION ${SCRATCH_DIR})
cmake_path(GET HOST FILENAME host_name)
execute_process(
  COMMAND ${EMULATOR} ${PROGRAM} --host ${host_name} --json snapshot --app sql --disk TSL0001 TSL0002 TSL0003
  WORKING_DIRECTORY ${SCRATCH_DIR} OUTPUT_FILE ${SCRATCH_DIR}/snapshot.json ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "exit status ${result}\n${errors}")
endif()
if(UPDATE)
  file(COPY_FILE ${SCRATCH_DIR}/snapshot.json ${EXPECTED})
  return()
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${SCRATCH_DIR}/snapshot.json ${EXPECTED}
  RESULT_VARIABLE differs OUTPUT_QUIET ERROR_QUIET)
if(differs)
  execute_process(COMMAND diff -u ${EXPECTED} ${SCRATCH_DIR}/snapshot.json)
  message(FATAL_ERROR "The document is not ${EXPECTED}")
endif()
