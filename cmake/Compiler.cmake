# Flags that hold for every target: warnings, sanitizers where asked for, ccache where there is one.

# Warnings are errors where the project is worked on. Who builds a release must not be stopped by those of a newer library
# or compiler.
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(CORVANE_STRICT -Werror)
endif()

add_compile_options(-Wall -Wextra -Wpedantic ${CORVANE_STRICT} -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
                    -Wunused -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  # GCC 12 reports false positives of these in inlined standard-library code when it optimises.
  add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized -Wno-restrict)
endif()

if(CORVANE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized)
  endif()
  # Forty programs with all that the sanitizers add: GNU's linker takes a second and more for each.
  find_program(CORVANE_LLD ld.lld)
  if(CORVANE_LLD)
    add_link_options(-fuse-ld=lld)
  endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Precompiled headers are cached, too: they are written without a time of day.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${CCACHE_PROGRAM}")
endif()
