# The Debian package of what cmake/install.cmake installs: cpack in the build's folder.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tabulo)
set(CPACK_PACKAGE_VENDOR Corvane)
set(CPACK_PACKAGE_CONTACT "Tabulo maintainers <tabulo@corvane.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "store for the messages of FIX engines")
set(CPACK_PACKAGE_DESCRIPTION
"Tabulo keeps the messages of a FIX engine in tables, each one plain file: it
gives them back after a restart, answers queries while the engine goes on
writing, and lets others follow what is stored.
.
This package holds the command tabulo, which shows, verifies and rescues
tables; the library for programs in C++20; an extension that shows tables in
SQLite (.load tabulo_sqlite); and the jar for programs in Java,
which brings its native library along.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The SQLite extension stands among the libraries that are found by their names.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "default-jre-headless | java17-runtime-headless, g++")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

# What only such a package has, and what it has compressed. Made when the package is, from what is there then.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian_files.cmake)
set(CPACK_TABULO_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_TABULO_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
include(CPack)
