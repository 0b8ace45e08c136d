# QV_SANITIZE: a list for -fsanitize=, for example "address,undefined" or "thread".
set(QV_SANITIZE "" CACHE STRING "Sanitizers to build with, separated by commas")

if(QV_SANITIZE)
  add_compile_options(-fsanitize=${QV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # Reports name functions and lines; more than that makes every file larger for nothing.
  add_compile_options(-g1)
  add_link_options(-fsanitize=${QV_SANITIZE})
endif()

# A fuzz target sees only the paths of code that tells where it has been.
if(QV_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
