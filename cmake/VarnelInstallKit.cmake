# What an agent is built and tested with beside the library: the C interface, and the simulator as a component of the
# package (find_package(varnel COMPONENTS simulator)). Its libraries that take the place of others lie in a folder of
# their own.
set(varnel_dropin ${CMAKE_INSTALL_LIBDIR}/varnel/dropin)

set_target_properties(varnel_c PROPERTIES EXPORT_NAME c)
target_include_directories(varnel_c INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS varnel_c EXPORT varnel_cTargets)
install(FILES c/varnel-c.h simulator/dropin/varnel-c-simulator.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(WIN32)
  install(FILES c/varnel-c.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(EXPORT varnel_cTargets NAMESPACE varnel:: DESTINATION ${varnel_package})

set_target_properties(varnel_simulator PROPERTIES EXPORT_NAME simulator)
set_target_properties(varnel_text PROPERTIES EXPORT_NAME text)
set_target_properties(varnel_c_simulator PROPERTIES EXPORT_NAME c_simulator)
target_include_directories(varnel_c_simulator INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(varnel_simulator INTERFACE $<INSTALL_INTERFACE:varnel::varnel>)
install(TARGETS varnel_simulator varnel_text EXPORT varnel_simulatorTargets)
install(TARGETS varnel_c_simulator EXPORT varnel_simulatorTargets
  RUNTIME DESTINATION ${varnel_dropin} LIBRARY DESTINATION ${varnel_dropin} ARCHIVE DESTINATION ${varnel_dropin})
if(WIN32)
  install(TARGETS varnel_vssapi varnel_iscsidsc RUNTIME DESTINATION ${varnel_dropin})
endif()
varnel_interface_headers(simulator_headers simulator/simulated_host.h)
list(REMOVE_ITEM simulator_headers ${headers})
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${simulator_headers})
foreach(header IN LISTS simulator_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${varnel_headers}/${folder})
endforeach()
install(EXPORT varnel_simulatorTargets NAMESPACE varnel:: DESTINATION ${varnel_package})
install(DIRECTORY examples/agent examples/c examples/csharp DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel/examples)
