# Settings that every target of ours shares, and the header-only packages that a cross build reaches through links.

# Warnings, sanitizers and the like: for targets of this build only, never for those who use the installed library.
add_library(varnel_options INTERFACE)
target_include_directories(varnel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(MSVC)
  target_compile_options(varnel_options INTERFACE /W4 /permissive- /utf-8 $<$<BOOL:${VARNEL_WARNINGS_AS_ERRORS}>:/WX>)
else()
  # GCC 12 warns of overlapping copies wherever it inlines "literal" + std::string, and of overruns in what it inlines from
  # precompiled headers of its own library.
  set(false_alarms -Wno-restrict)
  if(VARNEL_PRECOMPILE)
    list(APPEND false_alarms -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
  set(false_alarms "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:${false_alarms}>")
  target_compile_options(varnel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
      -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wextra-semi ${false_alarms}>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:${VARNEL_WARNINGS_AS_ERRORS}>>:-Werror>)
endif()
if(VARNEL_SYMBOLS)
  target_compile_options(varnel_options INTERFACE 
    "$<$<COMPILE_LANGUAGE:CXX>:-g;-ffile-prefix-map=${PROJECT_BINARY_DIR}=build;-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")
endif()
if(VARNEL_SANITIZE)
  # But for what varnel_test_of_sanitized() names.
  target_compile_options(varnel_options INTERFACE $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:$<BOOL:$<TARGET_PROPERTY:VARNEL_UNSANITIZED>>>>:
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer>)
  target_link_options(varnel_options INTERFACE -fsanitize=address,undefined)
endif()
if(VARNEL_FUZZ_ENGINE STREQUAL libfuzzer)
  target_compile_options(varnel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=fuzzer-no-link>)
endif()
if(WIN32)
  # Windows 8.1 is the oldest system that the provider supports.
  target_compile_definitions(varnel_options INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0603)
endif()

# varnel_test_of_sanitized(TARGET [LIBRARY...]): a program that tries the library and LIBRARY... and is not under test
# itself. In a sanitized build it is compiled without sanitizers, which halves its cost; the archives come first in the
# link, so that inline functions which both have come from them.
function(varnel_test_of_sanitized target)
  if(NOT VARNEL_SANITIZE OR VARNEL_FUZZ_ENGINE STREQUAL libfuzzer)
    return()
  endif()
  set_target_properties(${target} PROPERTIES VARNEL_UNSANITIZED ON)
  set(archives varnel varnel_simulator ${ARGN})
  list(TRANSFORM archives REPLACE ".+" "$<TARGET_FILE:\\0>")
  list(JOIN archives "," archives)
  target_link_options(${target} PRIVATE LINKER:--whole-archive,${archives},--no-whole-archive)
endfunction()

# varnel_precompile(TARGET PRIVATE HEADER...), varnel_precompile(TARGET REUSE_FROM OTHER): headers that nearly every unit of
# the target includes, compiled once. clang-tidy goes without and so finds includes that are missing.
function(varnel_precompile target)
  if(VARNEL_PRECOMPILE)
    target_precompile_headers(${target} ${ARGN})
  endif()
endfunction()

# Exceptions and standard types cross the boundary of varnel.dll, so the DLL and the programs that load it share one C++
# runtime, which lies beside them. Programs that link the library statically carry it in themselves.
add_library(varnel_static_runtime INTERFACE)
set(VARNEL_RUNTIME_DLLS "")
if(MINGW)
  target_link_options(varnel_static_runtime INTERFACE -static)
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
      OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${file}" OR NOT EXISTS "${file}")
      message(FATAL_ERROR "The compiler has no ${name}")
    endif()
    set(runtime_dll ${CMAKE_BINARY_DIR}/runtime/${name})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/runtime)
    # The compiler's own copies carry their debug information, ten times the code.
    execute_process(COMMAND ${CMAKE_STRIP} --strip-debug --preserve-dates -o ${runtime_dll} ${file} COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND VARNEL_RUNTIME_DLLS ${runtime_dll})
  endforeach()
endif()

# varnel_windows_version(TARGET FILE_NAME DESCRIPTION): the version resource that Explorer and support tools show.
function(varnel_windows_version target file_name description)
  if(NOT WIN32)
    return()
  endif()
  string(REPLACE "." "," VERSION_NUMBERS "${PROJECT_VERSION}.0")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL SHARED_LIBRARY)
    set(VERSION_FILE_TYPE 2)
  else()
    set(VERSION_FILE_TYPE 1)
  endif()
  set(VERSION_FILE_NAME ${file_name})
  set(VERSION_DESCRIPTION ${description})
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/resources/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# varnel_keep_symbols(TARGET): with VARNEL_SYMBOLS the debug information of a program or DLL lies beside it, and it names that
# file.
function(varnel_keep_symbols target)
  if(VARNEL_SYMBOLS)
    set(symbols $<TARGET_FILE:${target}>.debug)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
      COMMAND ${CMAKE_OBJCOPY} --preserve-dates --strip-debug --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>
      VERBATIM)
    set_property(GLOBAL APPEND PROPERTY VARNEL_SYMBOL_FILES ${symbols})
  endif()
endfunction()

# varnel::manifest: what a program of the library links to carry the manifest, our own programs included. Without it
# Windows tells the program version 6.2. windres finds agent.manifest by the include path only.
if(WIN32)
  include(GNUInstallDirs)
  set(VARNEL_MANIFEST_DIR ${CMAKE_INSTALL_DATADIR}/varnel/manifest)
  set(installed $<INSTALL_PREFIX>/${VARNEL_MANIFEST_DIR})
  add_library(varnel_manifest INTERFACE)
  set_target_properties(varnel_manifest PROPERTIES EXPORT_NAME manifest)
  target_sources(varnel_manifest INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/resources/agent.rc>
    $<INSTALL_INTERFACE:${installed}/agent.rc>)
  target_include_directories(varnel_manifest INTERFACE
    $<BUILD_INTERFACE:$<$<COMPILE_LANGUAGE:RC>:${PROJECT_SOURCE_DIR}/resources>>
    $<INSTALL_INTERFACE:$<$<COMPILE_LANGUAGE:RC>:${installed}>>)
  add_library(varnel::manifest ALIAS varnel_manifest)
endif()

# varnel_header_package(TARGET HEADER ENTRY...): an interface target for a header-only Debian package. A native build
# finds it on the system path. A cross build must not see that path, so ENTRY... (files or folders below the system's
# include folder) are linked into the build folder and only those are visible.
function(varnel_header_package target header)
  find_path(${target}_ROOT ${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  add_library(${target} INTERFACE)
  if(CMAKE_CROSSCOMPILING)
    set(links ${CMAKE_BINARY_DIR}/header-packages/${target})
    file(MAKE_DIRECTORY ${links})
    foreach(entry IN LISTS ARGN)
      file(CREATE_LINK ${${target}_ROOT}/${entry} ${links}/${entry} SYMBOLIC)
    endforeach()
    target_include_directories(${target} SYSTEM INTERFACE ${links})
  endif()
endfunction()
