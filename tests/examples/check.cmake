# Run with -P: installs the package into an empty folder, and there builds and tests an example that was installed with it.
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
set(source ${prefix}/share/varnel/examples/${EXAMPLE})
if(NOT EXISTS ${source}/CMakeLists.txt)
  message(FATAL_ERROR "The package lacks the example ${EXAMPLE}")
endif()

set(flags "")
if(TOOLCHAIN_FILE)
  # A cross build searches its own root only, and finds DLLs through Wine's path.
  list(APPEND flags -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE} -Dvarnel_DIR=${prefix}/lib/cmake/varnel)
  set(ENV{WINEPATH} "Z:${prefix}/lib/varnel/dropin;Z:${prefix}/bin")
else()
  list(APPEND flags -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix})
endif()
if(SANITIZE)
  # What is sanitized, which is built with clang, needs clang's run-time library in whatever links it, a program in C that
  # of C++ too.
  list(APPEND flags -DCMAKE_CXX_FLAGS=-fsanitize=address,undefined -DCMAKE_C_FLAGS=-fsanitize=address,undefined)
  if(EXAMPLE STREQUAL c)
    list(APPEND flags -DCMAKE_C_COMPILER=clang "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize-link-c++-runtime -lstdc++")
  endif()
endif()
run(${CMAKE_COMMAND} -S ${source} -B ${SCRATCH_DIR}/build -G ${GENERATOR} ${flags})
run(${CMAKE_COMMAND} --build ${SCRATCH_DIR}/build)
run(${CMAKE_CTEST_COMMAND} --test-dir ${SCRATCH_DIR}/build --output-on-failure --no-tests=error)
