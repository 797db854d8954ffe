# The installed package: the library, its headers in the folders under which they include each other, and what
# find_package(varnel) reads. Users link varnel::varnel.

option(VARNEL_INSTALL "Install the library" ${PROJECT_IS_TOP_LEVEL})
if(NOT VARNEL_INSTALL OR VARNEL_LIBRARIES_BESIDE_PROGRAM)
  return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

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

# What a host administrator gets beside the library: the host agent, hosts to try it on, and the documents.
install(TARGETS varnelctl)
install(DIRECTORY examples/hosts DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR TGZ)
endif()
set(CPACK_PACKAGE_VENDOR "Tessel Storage")
set(CPACK_PACKAGE_FILE_NAME varnel-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-x64)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
