# Sanitizer builds: one of ASan+UBSan or TSan, for the whole tree.
if(HDWLIB_ASAN)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(HDWLIB_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
# Fuzz builds (clang): the whole library carries the fuzzer's coverage
# instrumentation and the sanitizers, so the fuzzer sees the parsers' branches.
if(HDWLIB_BUILD_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
