# The libraries that platform/ stands on, one imported target each.

find_package(PkgConfig REQUIRED)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(IDN2 REQUIRED IMPORTED_TARGET libidn2)
pkg_check_modules(URIPARSER REQUIRED IMPORTED_TARGET liburiparser)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET libsodium)
pkg_check_modules(QRENCODE REQUIRED IMPORTED_TARGET libqrencode)
pkg_check_modules(ZSTD REQUIRED IMPORTED_TARGET libzstd)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET openssl)
find_package(Boost 1.74 REQUIRED)  # headers alone
find_package(Threads REQUIRED)
