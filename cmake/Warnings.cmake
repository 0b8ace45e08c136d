# The presets and .ci/run have every warning be an error, and code that needs one silenced says so at
# the line. Who only wants the program built is not stopped by what a later compiler warns of.
option(QV_WARNINGS_AS_ERRORS "Fail on warnings" OFF)

add_compile_options(
  -Wall
  -Wextra
  -Wpedantic
  -Wshadow
  -Wconversion
  -Wsign-conversion
  -Wformat=2
  $<$<BOOL:${QV_WARNINGS_AS_ERRORS}>:-Werror>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)

# GCC 12 raises these two falsely inside its own optimised std::string (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>
                      $<$<COMPILE_LANGUAGE:CXX>:-Wno-maybe-uninitialized>)
endif()
