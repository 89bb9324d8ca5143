# Runs vqsh on a scripted input and compares what it prints with the
# expected transcript kept beside the input. Invoked by ctest with
# -DVQSH=... -DINPUT=... -DEXPECTED=... -DDATA=... -DWORK=...
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(ENV{VQHOME} ${DATA})
set(ENV{HOME} ${WORK})
set(ENV{VQDEBUGFILENAME} stderr)
unset(ENV{VQTIMESTAMPOUTPUT})
execute_process(COMMAND ${VQSH} -q
                INPUT_FILE ${INPUT}
                OUTPUT_VARIABLE actual
                ERROR_VARIABLE errors
                RESULT_VARIABLE status
                WORKING_DIRECTORY ${WORK})
file(READ ${EXPECTED} expected)
get_filename_component(name ${INPUT} NAME_WE)
set(status_file ${CMAKE_CURRENT_LIST_DIR}/${name}.status)
set(expected_status 0)
if(EXISTS ${status_file})
  file(STRINGS ${status_file} expected_status LIMIT_COUNT 1)
endif()
file(REMOVE_RECURSE ${WORK})
if(NOT status STREQUAL expected_status)
  message(FATAL_ERROR "exit status ${status}, expected ${expected_status}\nstderr:\n${errors}\nstdout:\n${actual}")
endif()
if(NOT actual STREQUAL expected)
  file(WRITE ${WORK}.actual "${actual}")
  message(FATAL_ERROR "transcript differs from ${EXPECTED}; got (also in ${WORK}.actual):\n${actual}")
endif()
