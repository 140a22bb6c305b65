# The tool tests call the tool's core directly and run the built programs.
if(NOT TARGET hdwtool OR NOT TARGET hdwsim)
  message(FATAL_ERROR "tests/tool needs the programs hdwtool and hdwsim (HDWLIB_BUILD_TOOLS=ON)")
endif()
target_link_libraries(${target} PRIVATE hdwtool_core)
target_compile_definitions(${target} PRIVATE HDWTOOL_PROGRAM="$<TARGET_FILE:hdwtool>"
                                             HDWSIM_PROGRAM="$<TARGET_FILE:hdwsim>")
add_dependencies(${target} hdwtool hdwsim)
