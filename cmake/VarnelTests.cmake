# Test rooms. Each is one program and one line in ${CMAKE_BINARY_DIR}/tests.txt, which tools/run-tests.sh reads: name,
# kind, seconds allowed and command, parted by tabs. CTest knows the same rooms.

# varnel_compile_tests_quickly(): from here on in this folder and below everything is compiled with clang, by VARNEL_QUICK_TESTS.
macro(varnel_compile_tests_quickly)
  if(VARNEL_QUICK_TESTS)
    list(APPEND CMAKE_CXX_COMPILER_LAUNCHER ${PROJECT_SOURCE_DIR}/tools/compile-with-clang.sh)
  endif()
endmacro()

# Makes GTest::gmock_main available: the installed package, or its sources where there is none for the target platform.
function(varnel_find_googletest)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(GTest CONFIG QUIET GLOBAL)
    if(TARGET GTest::gmock_main)
      return()
    endif()
  endif()
  set(VARNEL_GOOGLETEST_SOURCE_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest")
  if(NOT EXISTS ${VARNEL_GOOGLETEST_SOURCE_DIR}/googlemock/CMakeLists.txt)
    message(FATAL_ERROR "No GoogleTest: neither a package nor sources in ${VARNEL_GOOGLETEST_SOURCE_DIR}")
  endif()
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  set(BUILD_GMOCK ON)
  set(INSTALL_GTEST OFF)
  set(gtest_force_shared_crt ON)
  add_subdirectory(${VARNEL_GOOGLETEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(target gtest gtest_main gmock gmock_main)
    target_compile_options(${target} PRIVATE $<IF:$<BOOL:${MSVC}>,/w,-w;-O0;-g0>)
    if(WIN32)
      target_compile_definitions(${target} PUBLIC _WIN32_WINNT=0x0603)
    endif()
  endforeach()
endfunction()

# release_rooms builds the rooms that an optimised build runs.
add_custom_target(release_rooms)

# varnel_add_room(NAME KIND SECONDS COMMAND...): one more line of tests.txt. A target NAME builds what the room needs.
function(varnel_add_room name kind seconds)
  list(JOIN ARGN "\t" command)
  set_property(GLOBAL APPEND PROPERTY VARNEL_ROOMS "${name}\t${kind}\t${seconds}\t${command}")
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds})
endfunction()

# Tests are compiled quickly rather than for speed.
add_library(varnel_test_options INTERFACE)
target_compile_options(varnel_test_options INTERFACE "$<$<NOT:$<BOOL:${MSVC}>>:-O0;-g0>")
if(MINGW AND CMAKE_CROSSCOMPILING)
  target_link_options(varnel_test_options INTERFACE "SHELL:-wrapper ${PROJECT_SOURCE_DIR}/tools/link-with-lld.sh")
endif()

# varnel_precompile_test_headers(TARGET LIBRARY): a program that does nothing but hold, compiled once, the headers that
# rooms include. Rooms that link LIBRARY reuse them.
function(varnel_precompile_test_headers target library)
  set(source ${CMAKE_BINARY_DIR}/test_headers.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "// Holds the precompiled headers of the test rooms.\n")
  add_executable(${target} EXCLUDE_FROM_ALL ${source})
  target_link_libraries(${target} PRIVATE varnel::simulator ${library} varnel_options varnel_test_options GTest::gmock_main)
  set_target_properties(${target} PROPERTIES VARNEL_UNSANITIZED ON)
  target_precompile_headers(${target} PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <filesystem> <fstream> <functional> <iostream> <map> <optional> <set>
    <sstream> [["core/varnel.h"]] [["tests/support/host_fixture.h"]] [["tests/support/snapshot_request.h"]])
endfunction()

# varnel_add_test(NAME [WINDOWS_ONLY] [PRODUCT] [SWEEP | LONG_SWEEP] [SECONDS N] SOURCES FILE... [LIBRARIES TARGET...]): a GoogleTest
# room. The sources belong to the folder of the calling CMakeLists.txt; SECONDS is the time allowed (600). A room of
# PRODUCT links the library as its users do, on Windows varnel.dll; the others have it in themselves, private parts
# included. A SWEEP makes so many runs that only an optimised build makes them all, a LONG_SWEEP so many that not even that
# one does unless it is asked to.
function(varnel_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 room "WINDOWS_ONLY;PRODUCT;SWEEP;LONG_SWEEP" "SECONDS" "SOURCES;LIBRARIES")
  if(room_UNPARSED_ARGUMENTS OR NOT room_SOURCES)
    message(FATAL_ERROR "varnel_add_test(${name}): SOURCES wanted, got ${ARGN}")
  endif()
  list(TRANSFORM room_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE sources)
  set_property(GLOBAL APPEND PROPERTY VARNEL_TEST_SOURCES ${sources})
  if(room_WINDOWS_ONLY AND NOT WIN32)
    return()
  endif()
  if(NOT room_SECONDS)
    set(room_SECONDS 600)
  endif()

  add_executable(${name} ${room_SOURCES})
  set(library varnel_static varnel_static_runtime)
  set(headers varnel_test_headers)
  if(room_PRODUCT)
    set(library varnel)
  endif()
  if(room_PRODUCT AND WIN32)
    set(headers varnel_product_test_headers)
  endif()
  target_link_libraries(${name} PRIVATE ${room_LIBRARIES} varnel::simulator ${library} varnel_options
    varnel_test_options GTest::gmock_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/tests
    UNITY_BUILD ${VARNEL_UNITY} UNITY_BUILD_BATCH_SIZE 0)
  target_precompile_headers(${name} REUSE_FROM ${headers})
  varnel_test_of_sanitized(${name} ${room_LIBRARIES})
  if(WIN32)
    target_link_libraries(${name} PRIVATE varnel::manifest)
  endif()

  set(kind gtest)
  if(room_LONG_SWEEP)
    set(kind long-sweep)
  elseif(room_SWEEP)
    set(kind sweep)
  endif()
  if(kind MATCHES sweep)
    add_dependencies(release_rooms ${name})
  endif()
  set_property(GLOBAL APPEND PROPERTY VARNEL_ROOMS "${name}\t${kind}\t${room_SECONDS}\t$<TARGET_FILE:${name}>")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${room_SECONDS})
endfunction()

# varnel_add_compile_fail_test(NAME SOURCE FILE EXPECT REGEX): FILE compiles, and with VARNEL_WRONG defined it does not,
# with a message that matches REGEX.
function(varnel_add_compile_fail_test name)
  cmake_parse_arguments(PARSE_ARGV 1 room "" "SOURCE;EXPECT" "")
  if(room_UNPARSED_ARGUMENTS OR NOT room_SOURCE OR NOT room_EXPECT)
    message(FATAL_ERROR "varnel_add_compile_fail_test(${name}): SOURCE and EXPECT wanted, got ${ARGN}")
  endif()
  add_library(${name}_source OBJECT EXCLUDE_FROM_ALL ${room_SOURCE})
  target_link_libraries(${name}_source PRIVATE varnel_options varnel_static)
  # What a user's compiler says is wanted.
  set_target_properties(${name}_source PROPERTIES EXPORT_COMPILE_COMMANDS ON CXX_COMPILER_LAUNCHER "")
  add_custom_target(${name})
  varnel_add_room(${name} run 600 ${CMAKE_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR} -DTARGET=${name}_source
    -DEXPECT=${room_EXPECT} -P ${PROJECT_SOURCE_DIR}/tests/compile_fail/check.cmake)
endfunction()

# Called once, when every room is known: writes tests.txt, and refuses a *_test.cpp below tests/ that is in no room.
function(varnel_finish_tests)
  get_property(rooms GLOBAL PROPERTY VARNEL_ROOMS)
  list(JOIN rooms "\n" rooms)
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/tests.txt CONTENT "${rooms}\n")

  file(GLOB_RECURSE unlisted CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*_test.cpp)
  get_property(listed GLOBAL PROPERTY VARNEL_TEST_SOURCES)
  list(REMOVE_ITEM unlisted ${listed})
  if(unlisted)
    message(FATAL_ERROR "No varnel_add_test lists: ${unlisted}")
  endif()
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL varnel_finish_tests)
