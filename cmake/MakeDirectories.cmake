# Run while installing: makes CORVANE_DIRECTORY under the prefix, with the directories above it that are missing.

set(path "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
string(REPLACE "/" ";" names "./${CORVANE_DIRECTORY}")
foreach(name IN LISTS names)
  cmake_path(APPEND path "${name}")
  if(NOT EXISTS "${path}")
    file(MAKE_DIRECTORY "${path}")
    file(CHMOD "${path}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
         WORLD_EXECUTE)
  endif()
endforeach()
