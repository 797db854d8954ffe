# Writes the message table of varnelctl.exe, a source of the message compiler, from the lists that the program has:
# -DEXIT_STATUSES=exit_status.h -DALERT_RECORDS=alert_records.inc -DOUTPUT=messages.mc
# event_ids.h says how the numbers are made. In a message %1 is the verdict or the alert record, %2 the command line.
set(text "MessageIdTypedef=DWORD\nFacilityNames=(None=0x0:FACILITY_NONE)\nLanguageNames=(English=0x409:messages_en)\n")

function(add_message id message)
  set(text "${text}\nMessageId=${id}\nSeverity=Success\nFacility=None\nLanguage=English\n${message}%nCommand: %2\n.\n"
      PARENT_SCOPE)
endfunction()

file(STRINGS ${EXIT_STATUSES} values REGEX "^  [A-Z][A-Za-z]+ = [0-9]+,$")
# An entry may stand in two lines, and a semicolon would part it in a list.
file(READ ${EXIT_STATUSES} statuses)
string(REPLACE ";" "<semicolon>" statuses "${statuses}")
string(REGEX MATCHALL "ExitStatusText{ExitStatus::[A-Za-z]+,[ \n]*\"[^\"]*\"" entries "${statuses}")
foreach(command snapshot=100 plan=200 sets=300)
  string(REGEX MATCH "^(.*)=(.*)$" ignored ${command})
  set(name ${CMAKE_MATCH_1})
  set(base ${CMAKE_MATCH_2})
  foreach(entry IN LISTS entries)
    string(REGEX MATCH "ExitStatus::([A-Za-z]+),[ \n]*\"(.*)\"" ignored "${entry}")
    set(status ${CMAKE_MATCH_1})
    string(REPLACE "<semicolon>" ";" meaning "${CMAKE_MATCH_2}")
    string(REGEX MATCH "  ${status} = ([0-9]+)," ignored "${values}")
    set(number ${CMAKE_MATCH_1})
    math(EXPR id "${base} + ${number}")
    add_message(${id} "%1%n%nvarnelctl ${name} ended with exit status ${number}: ${meaning}. varnelctl explain ${number} says more.")
  endforeach()
endforeach()

file(STRINGS ${ALERT_RECORDS} records REGEX "^VARNEL_ALERT\\(k")
set(number 0)
foreach(record IN LISTS records)
  string(REGEX MATCH "\\(k([A-Za-z]+)," ignored "${record}")
  math(EXPR number "${number} + 1")
  math(EXPR id "1000 + ${number}")
  add_message(${id} "%1%n%nThis is the alert record ${CMAKE_MATCH_1}. varnelctl explain with the record in quotation marks says what to do.")
endforeach()

file(WRITE ${OUTPUT} "${text}")
