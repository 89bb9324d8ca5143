# 64-bit Windows build with MinGW-w64; the programs run under Wine.
set(VQUTIL_MINGW_TRIPLE x86_64-w64-mingw32)
set(VQUTIL_MINGW_CPU x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)

# Tests and test discovery run through Wine, headless and in a prefix of
# the build folder's own, so that no user's Wine setup is read or changed.
find_program(VQUTIL_WINE NAMES wine wine64 PATHS /usr/lib/wine)
if(VQUTIL_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      ${CMAKE_COMMAND} -E env WINEDEBUG=-all WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix
      WINEDLLOVERRIDES=mscoree,mshtml= ${VQUTIL_WINE})
endif()
