# Shared part of the MinGW-w64 cross toolchains; the per-target files set
# VQUTIL_MINGW_TRIPLE first. The "-posix" compilers give std::thread and
# std::mutex; the runtime libraries are linked in statically, so that the
# DLL and the programs run from the build folder without a copied runtime.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${VQUTIL_MINGW_CPU})

set(CMAKE_C_COMPILER ${VQUTIL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VQUTIL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VQUTIL_MINGW_TRIPLE}-windres)
set(CMAKE_NM ${VQUTIL_MINGW_TRIPLE}-nm)

set(CMAKE_FIND_ROOT_PATH /usr/${VQUTIL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Google Benchmark exists here only for the build machine.
set(VQUTIL_BUILD_BENCH OFF CACHE BOOL "Build the benchmarks")
