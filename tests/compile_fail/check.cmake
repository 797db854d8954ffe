# Run by the rooms of varnel_add_compile_fail_test() with -P: the source compiles, and with VARNEL_WRONG defined it does
# not, for the reason that EXPECT describes.
cmake_minimum_required(VERSION 3.25)

file(STRINGS ${BUILD_DIR}/compile_commands.json entry REGEX "\"command\": .*/${TARGET}\\.dir/")
if(NOT entry)
  message(FATAL_ERROR "compile_commands.json has no unit of ${TARGET}")
endif()
string(REGEX REPLACE ",$" "" entry "${entry}")
string(JSON command GET "{${entry}}" command)
separate_arguments(command UNIX_COMMAND "${command}")
list(FIND command -o output)
list(REMOVE_AT command ${output})
list(REMOVE_AT command ${output})

function(compile)
  execute_process(COMMAND ${command} -fsyntax-only ${ARGN} WORKING_DIRECTORY ${BUILD_DIR} RESULT_VARIABLE result
    OUTPUT_VARIABLE output ERROR_VARIABLE output)
  set(result ${result} PARENT_SCOPE)
  set(output "${output}" PARENT_SCOPE)
endfunction()

compile()
if(NOT result EQUAL 0)
  message(FATAL_ERROR "Even without its wrong line it does not compile:\n${output}")
endif()
compile(-DVARNEL_WRONG)
if(result EQUAL 0)
  message(FATAL_ERROR "The wrong line compiles")
endif()
if(NOT output MATCHES "${EXPECT}")
  message(FATAL_ERROR "The wrong line does not compile, but not for this reason: ${EXPECT}\n${output}")
endif()
