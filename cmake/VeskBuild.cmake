# Language level, warnings, sanitizers and the helpers that every target uses.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

option(VESK_WARNINGS_AS_ERRORS "Turn warnings into errors (the presets do)" OFF)
set(VESK_SANITIZER "" CACHE STRING "Sanitizers of the whole build, e.g. address,undefined or thread")

find_program(VESK_CCACHE ccache)
if(VESK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${VESK_CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${VESK_CCACHE}")
endif()

if(VESK_SANITIZER)
  # Unoptimised: compiling with sanitizers costs twice as much otherwise, and most of a run of the suites is compiling.
  # Line tables are all that a report needs.
  set(CMAKE_C_FLAGS_DEBUG "-O0 -g1")
  set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
  add_compile_options(-fsanitize=${VESK_SANITIZER} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VESK_SANITIZER})
  if(VESK_SANITIZER MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

find_package(Threads REQUIRED)

# vesk_target(<target>): warnings and the repository root as include folder.
function(vesk_target target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion)
  # GCC 12 sees an overlap in every optimised `"text" + std::string()` (its bug 105651).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
  endif()
  if(VESK_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vesk-monitor>)
endfunction()

# vesk_hot(<target>): optimised even in the sanitizer builds, because its tests run it millions of times.
function(vesk_hot target)
  if(VESK_SANITIZER)
    target_compile_options(${target} PRIVATE -O1)
    set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)  # those are of unoptimised sources
  endif()
endfunction()

# vesk_library(<target> SOURCES … [LIBRARIES …] [PRIVATE_LIBRARIES …]): a static library of the house.
function(vesk_library target)
  cmake_parse_arguments(A "" "" "SOURCES;LIBRARIES;PRIVATE_LIBRARIES" ${ARGN})
  add_library(${target} STATIC ${A_SOURCES})
  add_library(VeskMonitor::${target} ALIAS ${target})
  vesk_target(${target})
  target_link_libraries(${target} PUBLIC ${A_LIBRARIES} PRIVATE ${A_PRIVATE_LIBRARIES})
endfunction()
