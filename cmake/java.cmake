# The Java side, built with plain javac: tabulo.jar from java/classes, tabulo-examples.jar from examples/java, and the test classes
# from tests/java. A class directory is made anew each time, so that no class outlives its source.
set(TABULO_JAVAC ${TABULO_JDK}/bin/javac)
set(TABULO_JAVA_RUNTIME ${TABULO_JDK}/bin/java)
set(TABULO_JAVA_DIRECTORY ${PROJECT_BINARY_DIR}/java)
set(TABULO_JAVAC_OPTIONS -encoding UTF-8 --release 17 -proc:none -Xlint:all -Werror)

# tabulo_java(<name> <source directory> OUTPUT <file> [JAR] [NATIVE_HEADERS <directory>]
#             [CLASSPATH ...] [OPTIONS ...] [DEPENDS ...] [WITHOUT <directory>])
# compiles every source below the directory, but for those below the one of WITHOUT, to java/<name>-classes; OUTPUT is the
# jar, or a stamp without JAR. The headers of native methods, where they are asked for, are for a test to compare with what
# the library exports.
function(tabulo_java name source_directory)
    cmake_parse_arguments(arg "JAR" "OUTPUT;NATIVE_HEADERS;WITHOUT" "CLASSPATH;OPTIONS;DEPENDS" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${source_directory}/*.java)
    if(arg_WITHOUT)
        file(GLOB_RECURSE others CONFIGURE_DEPENDS ${arg_WITHOUT}/*.java)
        list(REMOVE_ITEM sources ${others})
    endif()
    if(NOT sources)
        message(STATUS "No Java source in ${source_directory}: ${name} is not built")
        return()
    endif()
    set(classes ${TABULO_JAVA_DIRECTORY}/${name}-classes)
    set(arguments_file ${TABULO_JAVA_DIRECTORY}/${name}.sources)
    list(JOIN sources "\"\n\"" quoted_sources)
    file(CONFIGURE OUTPUT ${arguments_file} CONTENT "\"${quoted_sources}\"\n")

    set(classpath_option "")
    if(arg_CLASSPATH)
        list(JOIN arg_CLASSPATH ":" classpath)
        set(classpath_option -cp "${classpath}")
    endif()
    set(headers_option "")
    if(arg_NATIVE_HEADERS)
        set(headers_option -h ${arg_NATIVE_HEADERS})
    endif()
    if(arg_JAR)
        set(finish ${TABULO_JDK}/bin/jar --create --file ${arg_OUTPUT} -C ${classes} .)
    else()
        set(finish ${CMAKE_COMMAND} -E touch ${arg_OUTPUT})
    endif()
    add_custom_command(
        OUTPUT ${arg_OUTPUT}
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${classes} ${arg_NATIVE_HEADERS}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${classes}
        COMMAND ${TABULO_JAVAC} ${TABULO_JAVAC_OPTIONS} ${arg_OPTIONS} ${classpath_option} ${headers_option}
                -d ${classes} @${arguments_file}
        COMMAND ${finish}
        DEPENDS ${sources} ${arguments_file} ${arg_DEPENDS}
        COMMENT "Compiling Java: ${name}"
        VERBATIM)
    add_custom_target(java_${name} ALL DEPENDS ${arg_OUTPUT})
endfunction()

set(TABULO_JAR ${TABULO_JAVA_DIRECTORY}/tabulo.jar)
set(TABULO_EXAMPLES_JAR ${TABULO_JAVA_DIRECTORY}/tabulo-examples.jar)
set(TABULO_NATIVE_HEADERS ${TABULO_JAVA_DIRECTORY}/native-headers)

tabulo_java(tabulo ${PROJECT_SOURCE_DIR}/java/classes OUTPUT ${TABULO_JAR} JAR NATIVE_HEADERS ${TABULO_NATIVE_HEADERS}
    OPTIONS -Xdoclint:all,-missing)
tabulo_java(examples ${PROJECT_SOURCE_DIR}/examples/java OUTPUT ${TABULO_EXAMPLES_JAR} JAR
    CLASSPATH ${TABULO_JAR} DEPENDS ${TABULO_JAR})
if(TARGET java_examples)
    add_dependencies(java_examples java_tabulo)
endif()

# The jar that is for others: the classes, libtabulo.so of this build, and those that were built for other processors.
if(TARGET java_tabulo AND TARGET tabulo)
    set(TABULO_OTHER_LIBRARIES "" CACHE STRING "Libraries of other builds for the jar: linux-aarch_64=<file>;...")
    set(TABULO_PACKAGED_JAR ${TABULO_JAVA_DIRECTORY}/tabulo-${PROJECT_VERSION}.jar)
    set(processor ${CMAKE_SYSTEM_PROCESSOR})
    if(processor STREQUAL "aarch64")
        set(processor aarch_64)
    endif()
    set(libraries linux-${processor}=$<TARGET_FILE:tabulo>)
    set(other_files "")
    foreach(library IN LISTS TABULO_OTHER_LIBRARIES)
        string(REGEX REPLACE "^[^=]+=" "" file "${library}")
        if(EXISTS "${file}")  # its build may have been removed since it was named
            list(APPEND libraries ${library})
            list(APPEND other_files ${file})
        endif()
    endforeach()
    add_custom_command(
        OUTPUT ${TABULO_PACKAGED_JAR}
        COMMAND ${CMAKE_COMMAND} -D JAR_TOOL=${TABULO_JDK}/bin/jar -D CLASSES=${TABULO_JAVA_DIRECTORY}/tabulo-classes
                -D VERSION=${PROJECT_VERSION} -D LICENSE=${PROJECT_SOURCE_DIR}/LICENSE
                -D WORK=${TABULO_JAVA_DIRECTORY}/packaged -D "LIBRARIES=${libraries}" -D OUTPUT=${TABULO_PACKAGED_JAR}
                -P ${PROJECT_SOURCE_DIR}/packaging/jar.cmake
        DEPENDS ${TABULO_JAR} tabulo ${other_files} ${PROJECT_SOURCE_DIR}/packaging/jar.cmake
        COMMENT "Packing tabulo-${PROJECT_VERSION}.jar"
        VERBATIM)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/pom.xml.in ${TABULO_JAVA_DIRECTORY}/pom.xml @ONLY)
    add_custom_target(tabulo_packaged_jar ALL DEPENDS ${TABULO_PACKAGED_JAR})
    add_dependencies(tabulo_packaged_jar java_tabulo)
endif()
