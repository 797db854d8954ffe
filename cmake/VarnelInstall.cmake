# The installed package: the library, its headers in the folders under which they include each other, and what
# find_package(varnel) reads. Users link varnel::varnel.

option(VARNEL_INSTALL "Install the library" ${PROJECT_IS_TOP_LEVEL})
if(NOT VARNEL_INSTALL OR VARNEL_LIBRARIES_BESIDE_PROGRAM)
  return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# What nothing else is said of is for those who link the library.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

set(varnel_headers ${CMAKE_INSTALL_INCLUDEDIR}/varnel)
set(varnel_package ${CMAKE_INSTALL_LIBDIR}/cmake/varnel)

target_include_directories(varnel PUBLIC $<INSTALL_INTERFACE:${varnel_headers}>)
install(TARGETS varnel EXPORT varnelTargets)
if(WIN32)
  install(TARGETS varnel_manifest EXPORT varnelTargets)
  install(FILES resources/agent.rc resources/agent.manifest DESTINATION ${VARNEL_MANIFEST_DIR})
endif()
if(VARNEL_RUNTIME_DLLS)
  install(FILES ${VARNEL_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
set(VARNEL_RUNTIME_DLL_NAMES ${VARNEL_RUNTIME_DLLS})
list(TRANSFORM VARNEL_RUNTIME_DLL_NAMES REPLACE ".*/" "")
list(JOIN VARNEL_RUNTIME_DLL_NAMES " " VARNEL_RUNTIME_DLL_NAMES)
if(MINGW AND CMAKE_CROSSCOMPILING)
  install(FILES ${CMAKE_TOOLCHAIN_FILE} DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
endif()
# varnel_interface_headers(RESULT HEADER...): these headers and all that they include, by their paths in the source tree.
function(varnel_interface_headers result)
  set(waiting ${ARGN})
  set(found "")
  while(waiting)
    list(POP_FRONT waiting header)
    if(header IN_LIST found)
      continue()
    endif()
    list(APPEND found ${header})
    file(STRINGS ${PROJECT_SOURCE_DIR}/${header} includes REGEX "^#include \"")
    list(TRANSFORM includes REPLACE "^#include \"(.*)\"$" "\\1")
    list(APPEND waiting ${includes})
  endwhile()
  if(WIN32) # there the system's own declarations are taken
    list(FILTER found EXCLUDE REGEX "^platform/portable/")
  endif()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

varnel_interface_headers(headers core/provider.h core/varnel.h requestors/ExchReq.h requestors/HyperVReq.h requestors/SqlReq.h
  platform/ansi.h platform/tessel/FileLog.h platform/tessel/log_sink.h platform/tessel/MetadataWrapper.h
  platform/tessel/TesselCommonClasses.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers})
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${varnel_headers}/${folder})
endforeach()

include(VarnelInstallKit)
install(EXPORT varnelTargets NAMESPACE varnel:: DESTINATION ${varnel_package})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/varnelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/varnelConfig.cmake INSTALL_DESTINATION ${varnel_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/varnelConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/varnelConfig.cmake ${PROJECT_BINARY_DIR}/varnelConfigVersion.cmake
  DESTINATION ${varnel_package})
configure_file(${CMAKE_CURRENT_LIST_DIR}/varnel.pc.in ${PROJECT_BINARY_DIR}/varnel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/varnel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What a host administrator gets beside the library: the host agent, hosts to try it on, and the documents.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME varnelctl)
install(TARGETS varnelctl)
install(DIRECTORY examples/hosts DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
configure_file(varnelctl/shells/module/varnel.psd1.in ${PROJECT_BINARY_DIR}/module/varnel.psd1 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/module/varnel.psd1 varnelctl/shells/module/varnel.psm1
  DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel/powershell/varnel)
if(NOT CMAKE_CROSSCOMPILING)
  install(FILES ${PROJECT_BINARY_DIR}/varnelctl/generated/varnelctl.bash RENAME varnelctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${PROJECT_BINARY_DIR}/varnelctl/generated/varnelctl.man RENAME varnelctl.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
get_property(symbol_files GLOBAL PROPERTY VARNEL_SYMBOL_FILES)
if(symbol_files)
  install(FILES ${symbol_files} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT symbols)
endif()
include(VarnelBillOfMaterials)

include(VarnelDocs)

include(VarnelPackages)
