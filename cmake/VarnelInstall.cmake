# The installed package: the library, its headers in the folders under which they include each other, and what
# find_package(varnel) reads. Users link varnel::varnel.

option(VARNEL_INSTALL "Install the library" ${PROJECT_IS_TOP_LEVEL})
if(NOT VARNEL_INSTALL)
  return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(varnel_headers ${CMAKE_INSTALL_INCLUDEDIR}/varnel)
set(varnel_package ${CMAKE_INSTALL_LIBDIR}/cmake/varnel)

target_include_directories(varnel PUBLIC $<INSTALL_INTERFACE:${varnel_headers}>)
install(TARGETS varnel EXPORT varnelTargets)
if(VARNEL_RUNTIME_DLLS)
  install(FILES ${VARNEL_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
foreach(folder text core platform platform/portable platform/tessel requestors)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  install(FILES ${headers} DESTINATION ${varnel_headers}/${folder})
endforeach()

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
