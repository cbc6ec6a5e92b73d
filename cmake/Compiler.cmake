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

# What is installed reads what others wrote: a browser's file, a server's objects. Where a fault is left in that, these end the
# program, or make the fault harder to use for something else.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  include(CheckCXXCompilerFlag)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)  # not for every processor
    string(MAKE_C_IDENTIFIER "CORVANE_HAS${flag}" has_flag)
    check_cxx_compiler_flag("${flag}" "${has_flag}")
    if(${has_flag})
      add_compile_options("${flag}")
    endif()
  endforeach()
  # Defined anew, since some compilers define it on their own.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  set(type "$<TARGET_PROPERTY:TYPE>")
  add_compile_options("$<$<NOT:$<IN_LIST:${type},SHARED_LIBRARY$<SEMICOLON>MODULE_LIBRARY>>:-fPIE>")
  add_link_options("$<$<STREQUAL:${type},EXECUTABLE>:-pie>" LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

if(CORVANE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized)
  endif()
  # A place of its own would have each start of a program, of which tests make thousands, relocate all that tells
  # AddressSanitizer of variables.
  add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>")
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
