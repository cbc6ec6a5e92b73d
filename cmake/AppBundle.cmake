# The build tree and the installed tree have one shape:
#   lib/corvane/Corvane.app/Contents/CorvaneSyncClient.app/Contents/Linux/corvanetool
#   lib/corvane/Corvane.app/Contents/CorvaneSyncClient.app/Contents/Resources/...
#   lib/corvane/System/Library/...
#   bin/corvanetool -> ../lib/corvane/Corvane.app/... (a relative link)
# The tool finds everything from its own place, without the link: both trees can be moved.

set(CORVANE_LIBRARY "lib/corvane")
set(CORVANE_CLIENT_CONTENTS "${CORVANE_LIBRARY}/Corvane.app/Contents/CorvaneSyncClient.app/Contents")
set(CORVANE_SYSTEM_RESOURCES "${CORVANE_LIBRARY}/System/Library/PrivateFrameworks/Quillet.framework/Resources")

# corvane_place_tool(target)
# Puts the tool's executable into the client's bundle, with "bin/corvanetool" as a link to it.
function(corvane_place_tool target)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${CORVANE_CLIENT_CONTENTS}/Linux")
  file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
  file(CREATE_LINK "../${CORVANE_CLIENT_CONTENTS}/Linux/${target}" "${CMAKE_BINARY_DIR}/bin/${target}" SYMBOLIC)
  corvane_install(TARGETS ${target} RUNTIME DESTINATION "${CORVANE_CLIENT_CONTENTS}/Linux")
  corvane_install(PROGRAMS "${CMAKE_BINARY_DIR}/bin/${target}" DESTINATION bin)
endfunction()

# corvane_add_resource(file directory)
# Puts a file of resources/ into a directory of both trees.
function(corvane_add_resource file directory)
  get_filename_component(name "${file}" NAME)
  configure_file("${CMAKE_SOURCE_DIR}/resources/${file}" "${CMAKE_BINARY_DIR}/${directory}/${name}" COPYONLY)
  corvane_install(FILES "${CMAKE_SOURCE_DIR}/resources/${file}" DESTINATION "${directory}")
endfunction()

# Whatever resources/ holds: localised string tables and the client description with its image for the client's bundle,
# the schema for the place where a session looks for it.
file(GLOB resources RELATIVE "${CMAKE_SOURCE_DIR}/resources" CONFIGURE_DEPENDS
  "${CMAKE_SOURCE_DIR}/resources/*.plist" "${CMAKE_SOURCE_DIR}/resources/*.png"
  "${CMAKE_SOURCE_DIR}/resources/*.lproj/*.strings")
foreach(resource IN LISTS resources)
  get_filename_component(directory "${resource}" DIRECTORY)
  string(REGEX REPLACE "/$" "" destination "${CORVANE_CLIENT_CONTENTS}/Resources/${directory}")
  corvane_add_resource("${resource}" "${destination}")
endforeach()
file(GLOB schemas RELATIVE "${CMAKE_SOURCE_DIR}/resources" CONFIGURE_DEPENDS
  "${CMAKE_SOURCE_DIR}/resources/*.syncschema")
foreach(schema IN LISTS schemas)
  corvane_add_resource("${schema}" "${CORVANE_SYSTEM_RESOURCES}")
endforeach()
