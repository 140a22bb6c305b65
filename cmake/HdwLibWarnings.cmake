# Warning flags applied to every target of the project (not to consumers).
function(hdwlib_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
  if(HDWLIB_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
