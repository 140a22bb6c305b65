# Cross builds: the Linux peer (built with the build machine's compiler) that
# runs hdwlib_links_tests under wine with real serial lines.
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
