# Cross build for 64-bit Windows (x86-64); its tests run under wine64.
set(HDWLIB_MINGW_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
