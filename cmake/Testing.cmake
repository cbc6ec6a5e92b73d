# Two labels: "slow" tests take longer than a moment, and "plain" ones are as slow and have to run without the sanitizers:
# those cannot run them at all, or only at a smaller size (tests/kit/TestSize.h). `scripts/test quick` leaves both out, and
# other runs start with them.

# corvane_plain_test(NAME target...)
# Labels a test as plain, and names the targets that it needs.

add_custom_target(plain_tests)

function(corvane_plain_test name)
  set_tests_properties("${name}" PROPERTIES LABELS plain COST 1000)
  add_dependencies(plain_tests ${ARGN})
endfunction()

# corvane_slow_test(NAME...)
function(corvane_slow_test)
  set_tests_properties(${ARGN} PROPERTIES LABELS slow COST 1000)
endfunction()

# Under the sanitizers compiling tests takes longer than running them. A report's stack names lines of what they test; what
# is undefined in a test itself ends it without words, and is not looked for where the processor ends it all the same, or
# does what is meant.
if(CORVANE_SANITIZE)
  add_compile_options(-g0)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-fsanitize-trap=undefined -fno-sanitize=null,alignment,vptr)
  endif()
  add_compile_definitions(CORVANE_SANITIZED)
endif()

find_package(GTest REQUIRED)
find_package(rapidcheck REQUIRED)
include(GoogleTest)

# The headers of GoogleTest, of RapidCheck and of the fakes take longer to read than most tests. A build with clang, which the
# sanitizers' is, reads them once.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  file(CONFIGURE OUTPUT test_headers.cpp CONTENT "")
  add_library(corvane_test_headers OBJECT "${CMAKE_CURRENT_BINARY_DIR}/test_headers.cpp")
  target_include_directories(corvane_test_headers PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(corvane_test_headers PRIVATE GTest::gmock)
  target_compile_options(corvane_test_headers PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
  target_precompile_headers(corvane_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h> <rapidcheck.h>
                            "${CMAKE_SOURCE_DIR}/tests/fakes/FakePlatform.h")
endif()

# corvane_use_test_headers(target)
# Has a program or a library of tests read them so.
function(corvane_use_test_headers target)
  if(TARGET corvane_test_headers)
    # GoogleTest's headers are read with these, also where they are not needed.
    target_compile_definitions(${target} PRIVATE $<TARGET_PROPERTY:GTest::gtest,INTERFACE_COMPILE_DEFINITIONS>)
    target_precompile_headers(${target} REUSE_FROM corvane_test_headers)
  endif()
endfunction()

# corvane_add_test_program(NAME SOURCES file... [LIBRARIES target...] [DEFINITIONS definition...])
# A GoogleTest program that no test runs yet.
function(corvane_add_test_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;DEFINITIONS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINITIONS})
  corvane_use_test_headers(${name})
endfunction()

# corvane_add_test(NAME SOURCES file... [LIBRARIES target...] [DEFINITIONS definition...] [SLOW pattern...] [PLAIN pattern...])
# One GoogleTest program. Each of its suites becomes a test, with a name prefix NAME: to start a program takes longer than
# most cases. Those cases that a pattern of SLOW or PLAIN fits, such as "Scale.*", are tests of their own, with that label.
function(corvane_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;DEFINITIONS;SLOW;PLAIN" ${ARGN})
  corvane_add_test_program(${name} SOURCES ${ARG_SOURCES} LIBRARIES ${ARG_LIBRARIES} DEFINITIONS ${ARG_DEFINITIONS})
  foreach(label slow plain)
    string(TOUPPER ARG_${label} patterns)
    if(${patterns})
      list(JOIN ${patterns} ":" filter)
      gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300 TEST_PREFIX "${name}/"
                           TEST_LIST ${name}_${label} TEST_FILTER "${filter}" PROPERTIES LABELS ${label} COST 1000)
    endif()
  endforeach()
  if(ARG_PLAIN)
    add_dependencies(plain_tests ${name})
  endif()
  set(apart ${ARG_SLOW} ${ARG_PLAIN})
  list(JOIN apart ":" apart)
  set(declaration "${CMAKE_CURRENT_BINARY_DIR}/${name}_suites.cmake")
  file(GENERATE OUTPUT "${declaration}" CONTENT "\
set(DECLARATION \"${declaration}\")
set(NAME \"${name}\")
set(PROGRAM \"$<TARGET_FILE:${name}>\")
set(APART \"${apart}\")
include(\"${CMAKE_SOURCE_DIR}/cmake/TestSuites.cmake\")
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${declaration}")
endfunction()
