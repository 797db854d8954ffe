# Run by the consumer room with -P. The package must hand on neither our warnings nor our sanitizers.
cmake_minimum_required(VERSION 3.25)

set(prefix ${SCRATCH_DIR}/prefix)
file(REMOVE_RECURSE ${SCRATCH_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: ${result}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

file(GLOB_RECURSE package ${prefix}/*/varnelTargets*.cmake)
if(NOT package)
  message(FATAL_ERROR "No package below ${prefix}")
endif()
foreach(file IN LISTS package)
  file(READ ${file} text)
  if(text MATCHES "-W[a-z]|-fsanitize|varnel_options")
    message(FATAL_ERROR "${file} hands the flag ${CMAKE_MATCH_0} to users of the library")
  endif()
endforeach()

# A sanitized archive needs the sanitizers' run-time library in whatever links it.
set(flags "")
if(SANITIZE)
  list(APPEND flags -DCMAKE_CXX_FLAGS=-fsanitize=address,undefined)
endif()
if(TOOLCHAIN_FILE)
  # A cross build searches its own root only, and finds varnel.dll through Wine's path.
  list(GET package 0 package_folder)
  cmake_path(GET package_folder PARENT_PATH package_folder)
  list(APPEND flags -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}
    -Dvarnel_DIR=${package_folder})
  set(ENV{WINEPATH} "Z:${prefix}/bin")
else()
  list(APPEND flags -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix})
endif()
run(${CMAKE_COMMAND} -S ${PROJECT_DIR} -B ${SCRATCH_DIR}/build -G ${GENERATOR} ${flags})
run(${CMAKE_COMMAND} --build ${SCRATCH_DIR}/build)
run(${CMAKE_COMMAND} --build ${SCRATCH_DIR}/build --target run)
