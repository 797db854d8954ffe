# Run by the varnelctl_program room with -P: what only the real program shows, its command line outside ASCII, the bytes
# that it prints and its exit status.
cmake_minimum_required(VERSION 3.25)

# Wine reads the command line in the locale's encoding.
set(ENV{LC_ALL} C.UTF-8)
set(out ${SCRATCH_DIR}/out.txt)
set(err ${SCRATCH_DIR}/err.txt)
file(REMOVE_RECURSE ${SCRATCH_DIR})
file(MAKE_DIRECTORY ${SCRATCH_DIR})
file(COPY_FILE ${DATA_DIR}/host.json "${SCRATCH_DIR}/höst €.json")

# The program ends with this status after it printed exactly these files' bytes.
function(expect status expected_out expected_err)
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${ARGN} WORKING_DIRECTORY ${SCRATCH_DIR}
    RESULT_VARIABLE result OUTPUT_FILE ${out} ERROR_FILE ${err})
  list(JOIN ARGN " " arguments)
  if(NOT result STREQUAL status)
    file(READ ${err} text)
    message(FATAL_ERROR "varnelctl ${arguments}: exit status ${result}, not ${status}\n${text}")
  endif()
  foreach(stream out err)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${${stream}} ${expected_${stream}}
      RESULT_VARIABLE differs OUTPUT_QUIET ERROR_QUIET)
    if(differs)
      file(READ ${${stream}} text)
      message(FATAL_ERROR "varnelctl ${arguments}: std${stream} differs from ${expected_${stream}}:\n${text}")
    endif()
  endforeach()
endfunction()

file(WRITE ${SCRATCH_DIR}/empty.txt "")
file(WRITE ${SCRATCH_DIR}/missing.txt "varnelctl: nöwhere.json: /: cannot read the file: there is no such file\n  next: varnelctl explain exit:2\n")
file(WRITE ${SCRATCH_DIR}/version.txt "varnelctl ${VERSION}\n")
configure_file(${DATA_DIR}/disks.json ${SCRATCH_DIR}/disks.json @ONLY NEWLINE_STYLE LF)
expect(0 ${SCRATCH_DIR}/disks.json ${SCRATCH_DIR}/empty.txt disks --json --host "höst €.json")
expect(2 ${SCRATCH_DIR}/empty.txt ${SCRATCH_DIR}/missing.txt disks --host "nöwhere.json")
expect(0 ${SCRATCH_DIR}/version.txt ${SCRATCH_DIR}/empty.txt --version)

# Wine has the service's entry points and answers each with a failure: the request ends where it would on such a host.
if(WINDOWS)
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} writers
    RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE errors)
  if(NOT result EQUAL 15 OR NOT errors MATCHES "CreateVssBackupComponents\\(\\)=Failed, error=.*rc=COMMError")
    message(FATAL_ERROR "varnelctl writers without the service: exit status ${result}\n${text}\n${errors}")
  endif()
  # Nor does it tell which disk holds the system: nothing may be taken of any.
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} snapshot --app none --disk TSL0001
    RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE errors)
  if(NOT result EQUAL 1 OR NOT errors MATCHES "The disk of the system volume .* cannot be told"
     OR NOT text MATCHES "completing the backup: done")
    message(FATAL_ERROR "varnelctl snapshot without disks: exit status ${result}\n${text}\n${errors}")
  endif()
  # The doctor tells what is wrong with this machine, and goes on after each question that is not answered.
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} doctor
    RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE errors)
  if(NOT result EQUAL 12 OR NOT text MATCHES "could not be asked" OR NOT text MATCHES "\n[0-9]+ checks: [0-9]+ error")
    message(FATAL_ERROR "varnelctl doctor without the service: exit status ${result}\n${text}\n${errors}")
  endif()
endif()
