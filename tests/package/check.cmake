# Run with -P: packs the build, unpacks the archive into an empty folder, looks for everything that belongs into it and
# takes a snapshot with the program in it, which finds its DLLs there and nowhere else.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${SCRATCH_DIR})
file(MAKE_DIRECTORY ${SCRATCH_DIR}/unpacked)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: ${result}\n${output}")
  endif()
endfunction()

run(${CMAKE_CPACK_COMMAND} -G ZIP --config ${BUILD_DIR}/CPackConfig.cmake -B ${SCRATCH_DIR}/packed)
file(GLOB archives ${SCRATCH_DIR}/packed/varnel-${VERSION}-*.zip)
list(LENGTH archives count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "Not one archive of version ${VERSION}: ${archives}")
endif()
file(ARCHIVE_EXTRACT INPUT ${archives} DESTINATION ${SCRATCH_DIR}/unpacked)

file(GLOB root ${SCRATCH_DIR}/unpacked/*)
if(NOT root MATCHES "/varnel-${VERSION}-Windows-x64$")
  message(FATAL_ERROR "The archive unpacks into ${root}")
endif()
foreach(path bin/varnel.dll bin/varnelctl.exe bin/libstdc++-6.dll bin/libgcc_s_seh-1.dll bin/libwinpthread-1.dll
        share/varnel/varnel.spdx.json share/varnel/NOTICES.txt share/varnel/powershell/varnel/varnel.psd1
        share/varnel/powershell/varnel/varnel.psm1 share/varnel/mingw-w64.cmake lib/pkgconfig/varnel.pc
        lib/libvarnel.dll.a lib/cmake/varnel/varnelConfig.cmake include/varnel/core/varnel.h
        include/varnel/requestors/SqlReq.h include/varnel/platform/vss.h share/varnel/README.md
        share/varnel/manifest/agent.rc share/varnel/manifest/agent.manifest share/varnel/docs/host-file.md share/varnel/hosts/sql-server.json
        bin/varnel-c.dll lib/libvarnel-c.dll.a lib/varnel-c.def include/varnel-c.h include/varnel-c-simulator.h
        lib/libvarnel_simulator.a include/varnel/simulator/simulated_host.h lib/varnel/dropin/varnel-c.dll
        lib/varnel/dropin/vssapi.dll lib/varnel/dropin/iscsidsc.dll share/varnel/examples/agent/agent_test.cpp)
  if(NOT EXISTS ${root}/${path})
    message(FATAL_ERROR "The package lacks ${path}")
  endif()
endforeach()
# A program with this manifest is told the true version, takes long paths and keeps the system's code page.
file(READ ${root}/share/varnel/manifest/agent.manifest manifest)
foreach(wanted 1f676c76-80e1-4239-95bb-83d0f6d0da78 8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a
        "SMI/2016/WindowsSettings\">" "longPathAware>true<")
  if(NOT manifest MATCHES "${wanted}")
    message(FATAL_ERROR "The manifest lacks ${wanted}")
  endif()
endforeach()
if(manifest MATCHES "activeCodePage")
  message(FATAL_ERROR "The manifest changes the code page")
endif()
file(GLOB_RECURSE sources ${root}/*.cpp)
list(FILTER sources EXCLUDE REGEX "/share/varnel/examples/")
if(sources)
  message(FATAL_ERROR "The package holds sources: ${sources}")
endif()

run(${CMAKE_COMMAND} -DPROGRAM=${root}/bin/varnelctl.exe -DHOST=${root}/share/varnel/hosts/sql-server.json
  -DEXPECTED=${CMAKE_CURRENT_LIST_DIR}/snapshot.json -DEMULATOR=${EMULATOR} -DSCRATCH_DIR=${SCRATCH_DIR}/run
  -P ${CMAKE_CURRENT_LIST_DIR}/document.cmake)
