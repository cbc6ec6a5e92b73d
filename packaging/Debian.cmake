# The Debian packages: corvane-sync with the two commands, corvane-hub with the server. `scripts/package` makes them.

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
# With DESTDIR, so that what is written while installing names the place in the end.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL sync hub)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/packaging/FinishTrees.cmake")
set(CPACK_CORVANE_PACKAGING "${CMAKE_SOURCE_DIR}/packaging")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "CorvaneSyncClient developers <corvane-sync@example.org>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_SYNC_PACKAGE_NAME corvane-sync)
set(CPACK_DEBIAN_SYNC_PACKAGE_SECTION utils)
# Loaded at its first use, so that no program tells of it.
set(CPACK_DEBIAN_SYNC_PACKAGE_DEPENDS
  "libcurl4 | libcurl4t64 | libcurl3-gnutls | libcurl3t64-gnutls, libidn2-0, libsodium23, libsystemd0, libzstd1")
set(CPACK_DEBIAN_SYNC_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_SYNC_DESCRIPTION "keeps the Corvane browser's bookmarks in step
corvanetool merges the browser's bookmarks file with those of the user's
other files and computers, three ways and without a running program.
loomerctl shows what was synced, and undoes it.
.
Computers meet at a directory, a WebDAV folder, a bucket or a corvane-hub,
which get nothing to see but sealed objects. Chromium and Firefox are kept in
step, too, by an extension for all users.")
set(CPACK_DEBIAN_SYNC_PACKAGE_CONTROL_EXTRA "${CMAKE_SOURCE_DIR}/packaging/debian/sync/conffiles")

set(CPACK_DEBIAN_HUB_PACKAGE_NAME corvane-hub)
set(CPACK_DEBIAN_HUB_PACKAGE_SECTION net)
set(CPACK_DEBIAN_HUB_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers")
set(CPACK_DEBIAN_HUB_DESCRIPTION "server at which computers with the Corvane browser meet
It keeps the accounts of a family or a team for corvanetool: sealed objects,
of which it understands none. An account is a directory; there is no database.
.
The service is not started by the installation: give it a certificate or a
proxy first, as corvane-hub(7) tells.")
set(CPACK_DEBIAN_HUB_PACKAGE_CONTROL_EXTRA
  "${CMAKE_SOURCE_DIR}/packaging/debian/conffiles" "${CMAKE_SOURCE_DIR}/packaging/debian/postinst"
  "${CMAKE_SOURCE_DIR}/packaging/debian/prerm" "${CMAKE_SOURCE_DIR}/packaging/debian/postrm")

include(CPack)
