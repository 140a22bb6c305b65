# Cross builds: the Linux helper that runs a Windows test program under wine
# with real serial lines (pseudo-terminals mapped to COM ports). It is built
# with the build machine's own compiler, since everything else here is
# cross-compiled. Sets HDWLIB_WINE_RUNNER_links, the command put before
# wine when ctest runs hdwlib_links_tests.
set(HDWLIB_HOST_CXX c++ CACHE STRING "Compiler for programs that run on the build machine")
set(peer ${PROJECT_BINARY_DIR}/wine_serial_peer)
set(peer_sources ${CMAKE_CURRENT_LIST_DIR}/wine_serial_peer.cpp ${PROJECT_SOURCE_DIR}/tests/links/posix/LineSpeed.cpp)
add_custom_command(OUTPUT ${peer}
  COMMAND ${HDWLIB_HOST_CXX} -std=c++17 -O2 -Wall -Wextra -Wshadow -o ${peer} ${peer_sources} -lutil
  DEPENDS ${peer_sources}
  COMMENT "Building the wine serial peer (host)"
  VERBATIM)
add_custom_target(hdwlib_wine_serial_peer ALL DEPENDS ${peer})
set(HDWLIB_WINE_RUNNER_links ${peer} --lines 2 --)
