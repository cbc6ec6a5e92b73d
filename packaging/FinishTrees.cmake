# Run by CPack between installing and packing: gives each package's tree what Debian's policy asks for.

# run(COMMAND...)
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component sync hub)
  set(package "corvane-${component}")
  set(tree "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr")
  set(documents "${tree}/share/doc/${package}")
  file(GLOB pages "${tree}/share/man/man*/*")
  run(gzip -9n ${pages})
  file(COPY "${CPACK_CORVANE_PACKAGING}/debian/copyright" DESTINATION "${documents}")
  execute_process(COMMAND python3 "${CPACK_CORVANE_PACKAGING}/debian-changelog" "${package}"
                          "${CPACK_DEBIAN_PACKAGE_MAINTAINER}" "${CPACK_CORVANE_PACKAGING}/../CHANGELOG.md"
                  OUTPUT_FILE "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)
  run(gzip -9n "${documents}/changelog")
endforeach()

# The copyright file and Debian's changelog stand for them.
set(share "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/sync/usr/share")
file(REMOVE "${share}/doc/corvane-sync/CHANGELOG.md" "${share}/doc/corvane-sync/LICENSE")

# Debian's zsh looks for what packages bring in a folder of its own.
file(RENAME "${share}/zsh/site-functions" "${share}/zsh/vendor-completions")

# The configuration is dpkg's, which asks before it replaces what was changed.
set(hub "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/hub")
file(COPY "${hub}/usr/share/corvane/hub/corvane-hub.conf" DESTINATION "${hub}/etc")
file(REMOVE_RECURSE "${hub}/usr/share/corvane")

# Whatever the umask of who packs.
run(chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
