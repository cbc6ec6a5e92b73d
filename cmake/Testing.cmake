# corvane_plain_test(NAME target...)
# Marks a test as one that the sanitizers cannot run, and the targets that it needs.

add_custom_target(plain_tests)

function(corvane_plain_test name)
  corvane_slow_test("${name}")
  set_property(TEST "${name}" APPEND PROPERTY LABELS plain)
  add_dependencies(plain_tests ${ARGN})
endfunction()

# corvane_slow_test(NAME...)
# Marks tests that take longer than a moment: `scripts/test quick` leaves them out, and other runs start with them.
function(corvane_slow_test)
  set_tests_properties(${ARGN} PROPERTIES LABELS slow COST 1000)
endfunction()

# corvane_add_test(NAME SOURCES file... [LIBRARIES target...] [DEFINITIONS definition...] [SLOW pattern...])
# One GoogleTest program; every test case in it becomes a test of its own, with a name prefix NAME. Those that a pattern of
# SLOW fits, such as "Scale.*", are slow tests.

find_package(GTest REQUIRED)
include(GoogleTest)

function(corvane_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;DEFINITIONS;SLOW" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINITIONS})
  if(CORVANE_SANITIZE)
    # Compiling test cases under the sanitizers takes longer than running them. What they test keeps its optimisation, and
    # so do the libraries that they share, in which properties spend their time.
    target_compile_options(${name} PRIVATE -O0)
  endif()
  set(discovery DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300 TEST_PREFIX "${name}/")
  list(JOIN ARG_SLOW ":" slow)
  if(slow)
    gtest_discover_tests(${name} ${discovery} TEST_LIST ${name}_slow TEST_FILTER "${slow}"
                         PROPERTIES LABELS slow COST 1000)
  endif()
  if(NOT slow STREQUAL "*")
    gtest_discover_tests(${name} ${discovery} TEST_FILTER "*-${slow}")
  endif()
endfunction()
