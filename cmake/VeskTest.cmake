# vesk_test(<name> SOURCES … [LIBRARIES …] [LABELS …] [FIXTURES …] [TIMEOUT s] [MAIN]): one GoogleTest program, one CTest case.
# A test labelled `threads` is also built and run by the tsan preset. MAIN: the sources bring their own main.
# FIXTURES: the sources that are told the folder of the fixtures; no other, so that compiler caches serve every checkout.
find_package(GTest REQUIRED)
add_custom_target(threads_tests)

# What nearly every test reads, read once: a third of the time that compiling the tests takes. Sources that include too
# little are found all the same, by Clang's look at them.
add_library(test_prefix OBJECT "${CMAKE_CURRENT_LIST_DIR}/TestPrefix.cpp")
vesk_target(test_prefix)
# Compiled as the programs are that use it.
set_target_properties(test_prefix PROPERTIES POSITION_INDEPENDENT_CODE OFF)
target_compile_options(test_prefix PRIVATE -fPIE)
target_link_libraries(test_prefix PRIVATE GTest::gmock_main)
target_precompile_headers(test_prefix PRIVATE
  <gmock/gmock.h> <gtest/gtest.h>
  <algorithm> <array> <atomic> <chrono> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <random>
  <set> <span> <string> <string_view> <thread> <variant> <vector>)

function(vesk_test name)
  cmake_parse_arguments(A "MAIN" "TIMEOUT" "SOURCES;LIBRARIES;LABELS;FIXTURES" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  vesk_target(${name})
  # GCC 12 sees texts that are put together or assigned in optimised code overflow, as it sees them overlap.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${name} PRIVATE
      $<$<COMPILE_LANG_AND_ID:CXX,GNU>:$<$<CONFIG:Release>:-Wno-array-bounds;-Wno-stringop-overflow>>)
  endif()
  if(A_MAIN)
    target_link_libraries(${name} PRIVATE ${A_LIBRARIES} GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${A_LIBRARIES} GTest::gmock_main)
  endif()
  if(A_FIXTURES)
    set_property(SOURCE ${A_FIXTURES} APPEND PROPERTY
      COMPILE_DEFINITIONS VESK_FIXTURES="${PROJECT_SOURCE_DIR}/Tests/Fixtures")
  endif()
  target_precompile_headers(${name} REUSE_FROM test_prefix)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  add_test(NAME ${name} COMMAND ${name})
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${A_LABELS}" TIMEOUT ${A_TIMEOUT}
    ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
  if("threads" IN_LIST A_LABELS)
    add_dependencies(threads_tests ${name})
  endif()
endfunction()
