# Run by CPack between installing and packing: what every Debian package has besides, and what it has compressed.
set(shares ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(doc ${shares}/doc/tabulo)

configure_file(${CPACK_TABULO_SOURCE}/packaging/debian_copyright ${doc}/copyright COPYONLY)
string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/changelog.Debian "tabulo (${CPACK_TABULO_VERSION}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}; changelog.gz tells what it changes.

 -- ${CPACK_PACKAGE_CONTACT}  ${today}
")
configure_file(${CPACK_TABULO_SOURCE}/CHANGELOG.md ${doc}/changelog COPYONLY)
execute_process(COMMAND gzip -9nf ${doc}/changelog.Debian ${doc}/changelog ${shares}/man/man1/tabulo.1
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND chmod 644 ${doc}/copyright ${doc}/changelog.Debian.gz ${doc}/changelog.gz
    ${shares}/man/man1/tabulo.1.gz COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND chmod 755 ${shares}/doc ${doc} COMMAND_ERROR_IS_FATAL ANY)
