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

# Where Debian's browsers look for what all users have: Chromium for a folder, Firefox for one file, and each for a
# manifest of the program that the extension speaks to.
set(firefox_application "{ec8030f7-c20a-464f-9b0e-13a3a9e97384}")
file(MAKE_DIRECTORY "${share}/chromium/extensions" "${share}/mozilla/extensions/${firefox_application}")
file(RENAME "${share}/corvane/browser/extension" "${share}/chromium/extensions/corvane-bookmarks")
set(extension "bookmarks@corvane.keldra.com")
file(RENAME "${share}/corvane/browser/${extension}.xpi" "${share}/mozilla/extensions/${firefox_application}/${extension}.xpi")
file(REMOVE_RECURSE "${share}/corvane")

# write_host_manifest(DIRECTORY ALLOWED)
function(write_host_manifest directory allowed)
  set(name "com.keldra.corvane.bookmarks")
  file(WRITE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/sync/${directory}/${name}.json" "\
{
  \"name\": \"${name}\",
  \"description\": \"Corvane Bookmarks\",
  \"path\": \"/usr/bin/corvane-browser-host\",
  \"type\": \"stdio\",
  ${allowed}
}
")
endfunction()
write_host_manifest(etc/chromium/native-messaging-hosts
  "\"allowed_origins\": [\"chrome-extension://jkhpgakcmhjkmpknlofaaacbbofenkdk/\"]")
write_host_manifest(usr/lib/mozilla/native-messaging-hosts "\"allowed_extensions\": [\"${extension}\"]")

# The configuration is dpkg's, which asks before it replaces what was changed.
set(hub "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/hub")
file(COPY "${hub}/usr/share/corvane/hub/corvane-hub.conf" DESTINATION "${hub}/etc")
file(REMOVE_RECURSE "${hub}/usr/share/corvane")

# Whatever the umask of who packs.
run(chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
