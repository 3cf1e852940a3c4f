# Makes the jar that brings its libraries along: cmake -D JAR_TOOL=... -D CLASSES=... -D VERSION=... -D LICENSE=... -D WORK=...
# -D "LIBRARIES=linux-x86_64=<libtabulo.so>;..." -D OUTPUT=... -P jar.cmake
# native.properties is what the loader checks the libraries by; the manifest says the same to people.
set(package com/corvane/kestrova/engine/tabulo/jni)
set(record "version=${VERSION}\n")
set(manifest "Implementation-Title: Tabulo\nImplementation-Version: ${VERSION}\nBundle-License: Apache-2.0\n")

file(REMOVE_RECURSE ${WORK})
foreach(library IN LISTS LIBRARIES)
    string(REGEX MATCH "^([^=]+)=(.+)$" unused "${library}")
    set(platform ${CMAKE_MATCH_1})
    set(file ${CMAKE_MATCH_2})
    if(NOT EXISTS "${file}")
        message(FATAL_ERROR "The library for ${platform} is missing: ${file}")
    endif()
    configure_file(${file} ${WORK}/files/${package}/${platform}/libtabulo.so COPYONLY)
    file(SHA256 ${file} hash)
    string(APPEND record "sha256.${platform}=${hash}\n")
    string(APPEND manifest "SHA-256-${platform}: ${hash}\n")
endforeach()
file(WRITE ${WORK}/files/${package}/native.properties ${record})
configure_file(${LICENSE} ${WORK}/files/META-INF/LICENSE COPYONLY)
file(WRITE ${WORK}/manifest ${manifest})
execute_process(
    COMMAND ${JAR_TOOL} --create --file ${OUTPUT} --manifest ${WORK}/manifest --module-version ${VERSION}
            -C ${CLASSES} . -C ${WORK}/files .
    COMMAND_ERROR_IS_FATAL ANY)
