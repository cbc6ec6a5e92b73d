# Read by ctest behind a file, DECLARATION, that sets NAME, PROGRAM and APART: makes a test of every suite of a GoogleTest
# program. Cases that a pattern of APART fits, such as "Scale.*:Merge.Every*", are tests of their own.

if(NOT EXISTS "${PROGRAM}")
  add_test("${NAME}_NOT_BUILT" "${NAME}_NOT_BUILT")
  return()
endif()

set(suites "${PROGRAM}.suites")
if("${PROGRAM}" IS_NEWER_THAN "${suites}" OR "${DECLARATION}" IS_NEWER_THAN "${suites}")
  execute_process(COMMAND "${PROGRAM}" --gtest_list_tests "--gtest_filter=*-${APART}" OUTPUT_VARIABLE listing
                  COMMAND_ERROR_IS_FATAL ANY)
  file(WRITE "${suites}" "${listing}")
endif()

# "Suite." or "Suite/0.  # TypeParam = ...", and its cases indented below.
file(STRINGS "${suites}" suites REGEX "^[^ ]+\\.( |$)")
foreach(suite IN LISTS suites)
  string(REGEX REPLACE "\\.( .*)?$" "" suite "${suite}")
  add_test("${NAME}/${suite}" "${PROGRAM}" "--gtest_filter=${suite}.*-${APART}")
endforeach()
