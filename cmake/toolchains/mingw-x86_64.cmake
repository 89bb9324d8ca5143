# 64-bit Windows build with MinGW-w64; the programs run under Wine.
set(VQUTIL_MINGW_TRIPLE x86_64-w64-mingw32)
set(VQUTIL_MINGW_CPU x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

# Tests and test discovery run through Wine (wine-run.sh: headless, in a
# prefix under the build folder that holds the installation's registry
# settings).
find_program(VQUTIL_WINE NAMES wine wine64 PATHS /usr/lib/wine)
get_filename_component(VQUTIL_DATA_DIR ${CMAKE_CURRENT_LIST_DIR}/../../data ABSOLUTE)
if(VQUTIL_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_COMMAND} -E env VQUTIL_WINE=${VQUTIL_WINE}
      ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/wineprefix ${VQUTIL_DATA_DIR})
endif()
