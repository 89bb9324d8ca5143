# Runs vqsh on a scripted input and compares what it prints with the
# expected transcript kept beside the input. Invoked by ctest with
# -DVQSH=... -DINPUT=... -DEXPECTED=... -DDATA=... -DWORK=... and
# -DMODULES=<module file>:<module file>..., the modules a transcript may
# "load" by name (their directories go on the library search path).
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(ENV{VQHOME} ${DATA})
set(ENV{HOME} ${WORK})
set(ENV{VQDEBUGFILENAME} stderr)
unset(ENV{VQTIMESTAMPOUTPUT})
if(MODULES)
  string(REPLACE ":" ";" module_files "${MODULES}")
  set(search_path "")
  foreach(module IN LISTS module_files)
    # ctest does not build: a missing module would show up as a confusing
    # difference in the transcript instead.
    if(NOT EXISTS ${module})
      message(FATAL_ERROR "module ${module} is not built (build the default target first)")
    endif()
    get_filename_component(dir ${module} DIRECTORY)
    list(APPEND search_path ${dir})
  endforeach()
  list(REMOVE_DUPLICATES search_path)
  if(DEFINED ENV{LD_LIBRARY_PATH} AND NOT "$ENV{LD_LIBRARY_PATH}" STREQUAL "")
    list(APPEND search_path "$ENV{LD_LIBRARY_PATH}")
  endif()
  string(JOIN ":" unix_path ${search_path})
  set(ENV{LD_LIBRARY_PATH} "${unix_path}")
  # Windows finds modules on PATH; Wine takes its additions from WINEPATH.
  string(JOIN ";" windows_path ${search_path})
  set(ENV{WINEPATH} "${windows_path}")
endif()
# A cross build runs vqsh through its emulator (EMULATOR, "|"-separated).
string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND ${emulator} ${VQSH} -q
                INPUT_FILE ${INPUT}
                OUTPUT_VARIABLE actual
                ERROR_VARIABLE errors
                RESULT_VARIABLE status
                WORKING_DIRECTORY ${WORK})
# Windows' text mode ends lines with a carriage return too.
string(REPLACE "\r\n" "\n" actual "${actual}")
file(READ ${EXPECTED} expected)
string(REPLACE "%DEFAULT_EDITOR%" "${DEFAULT_EDITOR}" expected "${expected}")
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
