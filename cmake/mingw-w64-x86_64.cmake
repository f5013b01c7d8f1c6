# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 toolchain.
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
#         -DQM_DEPS_PREFIX=$PWD/build-windows/deps
# QM_DEPS_PREFIX is where scripts/build-windows-deps installed the libraries built for the target.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The posix-thread flavour: with the win32 one, libstdc++ has no std::thread or std::mutex.
set(QM_MINGW_TARGET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QM_MINGW_TARGET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QM_MINGW_TARGET}-g++-posix)
set(CMAKE_RC_COMPILER ${QM_MINGW_TARGET}-windres)
# MinGW's own C99 printf family (%zu, %lld, %ls as on Linux) instead of the old Windows runtime's;
# libstdc++ asks for it in C++ already, this makes it hold for C and for every file alike.
set(CMAKE_C_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")
set(CMAKE_CXX_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")

if(NOT QM_DEPS_PREFIX)
  set(QM_DEPS_PREFIX ${CMAKE_CURRENT_LIST_DIR}/../build-windows/deps)
endif()
get_filename_component(QM_DEPS_PREFIX "${QM_DEPS_PREFIX}" ABSOLUTE)
# The compiler checks CMake runs in scratch projects read this file again; they need the same
# prefix.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QM_DEPS_PREFIX)

# Headers, libraries and CMake packages come from the target's sysroot and our prefix only, never
# from the build machine's /usr (whose argtable2 and GoogleTest are Linux builds);
# programs, such as the code generators a build runs, come from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${QM_MINGW_TARGET} ${QM_DEPS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Everything linked in statically, libgcc, libstdc++ and winpthread included: the program then
# needs no DLL beyond those every Windows has, and runs from wherever it is unpacked.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Lets ctest and GoogleTest's test discovery start the test programs on this machine. Wine's
# debug channels would otherwise add their noise to every test's output; mscoree and mshtml are
# turned off so that a new Wine prefix does not offer to install .NET and a browser engine.
if(EXISTS /usr/lib/wine/wine64)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      /usr/bin/env WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml= /usr/lib/wine/wine64)
endif()
