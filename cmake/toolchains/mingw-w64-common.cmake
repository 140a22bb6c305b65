# Shared part of the mingw-w64 toolchain files: set HDWLIB_MINGW_ARCH (i686 or
# x86_64) before including it. The -posix compilers are used because the
# default (win32 thread model) ones lack std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${HDWLIB_MINGW_ARCH})

set(HDWLIB_MINGW_TRIPLE ${HDWLIB_MINGW_ARCH}-w64-mingw32)
set(CMAKE_C_COMPILER ${HDWLIB_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${HDWLIB_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${HDWLIB_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${HDWLIB_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs run under wine (ctest uses this for every test).
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
