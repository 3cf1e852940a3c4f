# What cmake --install puts where, and the Debian package of the same: the library for C++ with what finds it, the command with
# its page and completions, the SQLite extension, the store for QuickFIX, the jar. Parts that are not built are left out.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tabulo)

install(TARGETS tabulo_api EXPORT tabulo ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tabulo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT tabulo NAMESPACE tabulo:: FILE tabuloTargets.cmake DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tabuloConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${packaging}/tabuloConfig.cmake ${PROJECT_BINARY_DIR}/tabuloConfigVersion.cmake
    DESTINATION ${package_directory})

# The folders are relative to where the file lies, so that an installed tree may be moved.
set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_directory} /prefix)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
configure_file(${packaging}/tabulo.pc.in ${PROJECT_BINARY_DIR}/tabulo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tabulo.pc DESTINATION ${pkgconfig_directory})

if(TARGET tabulo_command)
    install(TARGETS tabulo_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${PROJECT_BINARY_DIR}/tabulo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    set(shares ${CMAKE_INSTALL_DATADIR})
    install(FILES ${PROJECT_BINARY_DIR}/completion/bash DESTINATION ${shares}/bash-completion/completions RENAME tabulo)
    install(FILES ${PROJECT_BINARY_DIR}/completion/zsh DESTINATION ${shares}/zsh/vendor-completions RENAME _tabulo)
    install(FILES ${PROJECT_BINARY_DIR}/completion/fish
        DESTINATION ${shares}/fish/vendor_completions.d RENAME tabulo.fish)
endif()

# Where SQLite finds it by its name alone: ".load tabulo_sqlite".
if(TARGET tabulo_sqlite)
    install(TARGETS tabulo_sqlite LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()

# A component of its own: find_package(tabulo COMPONENTS quickfix).
if(TARGET tabulo_quickfix)
    install(TARGETS tabulo_quickfix EXPORT tabuloQuickfix ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/adapters/quickfix/include/tabulo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
    install(EXPORT tabuloQuickfix NAMESPACE tabulo:: FILE tabuloQuickfixTargets.cmake DESTINATION ${package_directory})
endif()

if(TARGET tabulo_packaged_jar)
    install(FILES ${TABULO_PACKAGED_JAR} DESTINATION ${CMAKE_INSTALL_DATADIR}/java)
    install(CODE "
        set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/java/tabulo.jar\")
        file(CREATE_LINK tabulo-${PROJECT_VERSION}.jar \"\${link}\" SYMBOLIC)")
endif()

# All of that without the tests, for who builds it to install or to pack it.
add_custom_target(tabulo_installed DEPENDS tabulo_api)
foreach(part tabulo_manual tabulo_sqlite tabulo_quickfix tabulo_packaged_jar)
    if(TARGET ${part})
        add_dependencies(tabulo_installed ${part})
    endif()
endforeach()

include(deb)
