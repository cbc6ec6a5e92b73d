# Flags that hold for every target: warnings, sanitizers where asked for, ccache where there is one.

# Warnings are errors where the project is worked on. Who builds a release must not be stopped by those of a newer library
# or compiler.
if(CMAKE_BUILD_TYPE STREQUAL "Debug" OR CORVANE_FUZZ)
  set(CORVANE_STRICT -Werror)
endif()

add_compile_options(-Wall -Wextra -Wpedantic ${CORVANE_STRICT} -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
                    -Wunused -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  # GCC 12 reports false positives of these in inlined standard-library code when it optimises.
  add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized -Wno-restrict)
endif()

if(CORVANE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
                      -Wno-null-dereference -Wno-maybe-uninitialized)
  add_link_options(-fsanitize=address,undefined)
endif()

if(CORVANE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()
