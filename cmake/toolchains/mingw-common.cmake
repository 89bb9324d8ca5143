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

# Google Benchmark exists here only for the build machine, so the benchmarks
# stay off unless CMAKE_PREFIX_PATH names a cross-built benchmark package;
# such a prefix joins the find roots, which otherwise hold only the MinGW
# sysroot.
set(vqutil_bench_default OFF)
foreach(prefix IN LISTS CMAKE_PREFIX_PATH)
  if(EXISTS ${prefix}/lib/cmake/benchmark/benchmarkConfig.cmake)
    set(vqutil_bench_default ON)
    list(APPEND CMAKE_FIND_ROOT_PATH ${prefix})
  endif()
endforeach()
set(VQUTIL_BUILD_BENCH ${vqutil_bench_default} CACHE BOOL "Build the benchmarks")
