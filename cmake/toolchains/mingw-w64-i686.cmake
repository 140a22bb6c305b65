# Cross build for 32-bit Windows (x86), the main Windows target.
set(HDWLIB_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
