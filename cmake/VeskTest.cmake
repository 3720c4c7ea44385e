# vesk_test(<name> SOURCES … [LIBRARIES …] [LABELS …] [FIXTURES …] [TIMEOUT s] [MAIN]): one GoogleTest program, one CTest case.
# A test labelled `threads` is also built and run by the tsan preset. MAIN: the sources bring their own main.
# FIXTURES: the sources that are told the folder of the fixtures; no other, so that compiler caches serve every checkout.
find_package(GTest REQUIRED)
add_custom_target(threads_tests)

function(vesk_test name)
  cmake_parse_arguments(A "MAIN" "TIMEOUT" "SOURCES;LIBRARIES;LABELS;FIXTURES" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  vesk_target(${name})
  if(A_MAIN)
    target_link_libraries(${name} PRIVATE ${A_LIBRARIES} GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${A_LIBRARIES} GTest::gmock_main)
  endif()
  if(A_FIXTURES)
    set_property(SOURCE ${A_FIXTURES} APPEND PROPERTY
      COMPILE_DEFINITIONS VESK_FIXTURES="${PROJECT_SOURCE_DIR}/Tests/Fixtures")
  endif()
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
