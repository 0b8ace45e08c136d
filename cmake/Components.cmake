# The helpers by which every folder adds its targets. A source is found by its place and name, so a
# new class, test, benchmark or fuzz target is a new file and nothing else.

# The folder of the operating system that is built for: platform/<QV_PLATFORM> behind the seam.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(QV_PLATFORM linux)
else()
  message(FATAL_ERROR "There is no platform/ folder for ${CMAKE_SYSTEM_NAME} yet")
endif()

# The headers of the language that most sources include, compiled once for each larger library. Every
# file includes what it uses all the same; the shipped build, which does without, sees to that.
option(QV_PRECOMPILE "Precompile the language's headers for libraries" OFF)
function(qv_precompile_headers name sources)
  list(LENGTH sources count)
  if(QV_PRECOMPILE AND count GREATER 10)
    target_precompile_headers(${name} PRIVATE <algorithm> <atomic> <chrono> <condition_variable>
      <filesystem> <functional> <memory> <mutex> <optional> <string> <string_view> <thread> <vector>)
  endif()
endfunction()

# qv_add_library(<name> <folder> [LINK <target>...]): a static library of the folder's own sources.
function(qv_add_library name folder)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  if(sources)
    add_library(${name} STATIC ${sources})
    set(scope PUBLIC)
    qv_precompile_headers(${name} "${sources}")
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${name} ${scope} ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} ${scope} ${ARG_LINK})
endfunction()
