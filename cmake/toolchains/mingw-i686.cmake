# 32-bit Windows build with MinGW-w64, the original target. Wine's 32-bit
# half is not assumed, so nothing here runs the programs.
set(VQUTIL_MINGW_TRIPLE i686-w64-mingw32)
set(VQUTIL_MINGW_CPU x86)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
