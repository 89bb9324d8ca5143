# Writes the Windows export list (.def) of the library from the same rule
# the Linux version script states: the `global:` patterns of vqutild.map
# (Dut*, Dpt*), matched against the global functions the objects define.
# Run with -DMAP=... -DNM=... -DOBJECT_DIR=... -DOUTPUT=... -DLIBRARY=...
file(READ ${MAP} map)
string(REGEX MATCH "global:([^}]*)local:" section "${map}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z_0-9]*\\*?" patterns "${CMAKE_MATCH_1}")
list(REMOVE_ITEM patterns global)
set(alternatives "")
foreach(p IN LISTS patterns)
  string(REPLACE "*" "[A-Za-z_0-9]*" p "${p}")
  list(APPEND alternatives "${p}")
endforeach()
list(JOIN alternatives "|" alternatives)

file(GLOB_RECURSE objects ${OBJECT_DIR}/*.obj)
execute_process(COMMAND ${NM} --defined-only --extern-only ${objects}
                OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on the library's objects")
endif()
# i686 decorates C names with a leading underscore.
string(REGEX MATCHALL "[ \t][TD][ \t]_?(${alternatives})\n" found "${symbols}")
set(names "")
foreach(line IN LISTS found)
  string(REGEX REPLACE "^[ \t][TD][ \t]_?" "" name "${line}")
  string(STRIP "${name}" name)
  list(APPEND names "${name}")
endforeach()
list(REMOVE_DUPLICATES names)
list(SORT names)
list(JOIN names "\n  " body)
set(text "LIBRARY ${LIBRARY}\nEXPORTS\n  ${body}\n")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} old)
endif()
if(NOT "${old}" STREQUAL "${text}")
  file(WRITE ${OUTPUT} "${text}")
endif()
