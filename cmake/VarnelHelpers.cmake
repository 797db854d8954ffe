# Settings that every target of ours shares, and the header-only packages that a cross build reaches through links.

# Warnings, sanitizers and the like: for targets of this build only, never for those who use the installed library.
add_library(varnel_options INTERFACE)
target_include_directories(varnel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(MSVC)
  target_compile_options(varnel_options INTERFACE /W4 /permissive- /utf-8 $<$<BOOL:${VARNEL_WARNINGS_AS_ERRORS}>:/WX>)
else()
  # GCC 12 warns of overlapping copies wherever it inlines "literal" + std::string.
  set(false_alarms $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
  target_compile_options(varnel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
      -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wextra-semi ${false_alarms}>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:${VARNEL_WARNINGS_AS_ERRORS}>>:-Werror>)
endif()
if(VARNEL_SANITIZE)
  target_compile_options(varnel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer>)
  target_link_options(varnel_options INTERFACE -fsanitize=address,undefined)
endif()
if(VARNEL_FUZZ_ENGINE STREQUAL libfuzzer)
  target_compile_options(varnel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=fuzzer-no-link>)
endif()
if(WIN32)
  # Windows 8.1 is the oldest system that the provider supports.
  target_compile_definitions(varnel_options INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0603)
endif()
if(MINGW)
  target_link_options(varnel_options INTERFACE -static)
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
