# GoogleTest for the test programs: the system package on a native build; on
# a cross build (mingw-w64) the sources that libgtest-dev ships are compiled
# with the cross compiler, since no Windows build of the library is installed.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
  return()
endif()

set(HDWLIB_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources for cross builds")
if(NOT EXISTS ${HDWLIB_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${HDWLIB_GTEST_SOURCE_DIR} (Debian package libgtest-dev)")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
# Static GoogleTest libraries, whatever the rest of the build does.
set(BUILD_SHARED_LIBS OFF)
add_subdirectory(${HDWLIB_GTEST_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
