# corvane_install(... DESTINATION directory ...)
# As install(). The directories that it makes are for others to read, too: CMake gives files such modes whatever the umask
# of who installs, and leaves new directories to the umask.
function(corvane_install)
  list(FIND ARGN DESTINATION at)
  math(EXPR at "${at} + 1")
  list(GET ARGN ${at} directory)
  install(CODE "set(CORVANE_DIRECTORY \"${directory}\")")
  install(SCRIPT "${CMAKE_SOURCE_DIR}/cmake/MakeDirectories.cmake")
  install(${ARGN})
endfunction()
