# Compiles tests/java against JUnit 5 from Debian's packages; every *Test.java becomes one test. Its folders are by subject, its
# packages by what a class must see of the library's: the class comes from the package's line. A library that is built with
# sanitizers is tested with them inside the virtual machine.
set(TABULO_JAVA_TESTS "." CACHE STRING "Which Java tests to run: a regular expression for the names of their classes")
set(usual_timeout 300)  # seconds

set(junit_directory /usr/share/java)

# What the tests are compiled against, and what the launcher needs besides at run time. Debian's jars name others that they
# could do without in their manifests, and -Xlint:all would complain about the missing ones.
set(junit_api junit-jupiter-api junit-jupiter-params junit-platform-commons opentest4j apiguardian-api)
set(junit_launcher junit-jupiter-engine junit-platform-engine junit-platform-launcher junit-platform-console
    junit-platform-reporting opentest4j-reporting-events opentest4j-reporting-schema picocli univocity-parsers)

function(tabulo_junit_jars result)
    set(jars "")
    foreach(name IN LISTS ARGN)
        set(jar ${junit_directory}/${name}.jar)
        if(NOT EXISTS ${jar})
            message(FATAL_ERROR "${jar} is missing: install the package junit5, or turn TABULO_JAVA off")
        endif()
        list(APPEND jars ${jar})
    endforeach()
    set(${result} ${jars} PARENT_SCOPE)
endfunction()

tabulo_junit_jars(api_jars ${junit_api})
tabulo_junit_jars(launcher_jars ${junit_launcher})

# What has to be loaded before everything else for a sanitized library, which the java program knows nothing of. With
# libstdc++ AddressSanitizer finds the functions that throw, which it wraps.
set(preload_options "")
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[^ ]*address")
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        message(FATAL_ERROR "Java tests of a library with AddressSanitizer need g++: turn TABULO_JAVA off")
    endif()
    foreach(name asan ubsan stdc++)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=lib${name}.so
            OUTPUT_VARIABLE library OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        if(NOT IS_ABSOLUTE ${library})
            message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no lib${name}.so")
        endif()
        list(APPEND preload_options --preload ${library})
    endforeach()
endif()

# The native tests of the binding have classes of their own.
tabulo_java(tests ${PROJECT_SOURCE_DIR}/tests/java WITHOUT ${PROJECT_SOURCE_DIR}/tests/java/jni
    OUTPUT ${TABULO_JAVA_DIRECTORY}/tests.stamp CLASSPATH ${TABULO_JAR} ${api_jars} DEPENDS ${TABULO_JAR})

if(TARGET java_tests AND TARGET tabulo)
    add_dependencies(java_tests java_tabulo)
    list(JOIN api_jars ":" api_path)
    list(JOIN launcher_jars ":" launcher_path)
    set(run_path ${TABULO_JAR}:${TABULO_JAVA_DIRECTORY}/tests-classes:${api_path}:${launcher_path})

    file(GLOB_RECURSE test_files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/java/*Test.java)
    foreach(test_file IN LISTS test_files)
        cmake_path(GET test_file STEM short_name)
        file(STRINGS ${test_file} package_line REGEX "^package ")
        if(NOT package_line MATCHES "^package ([A-Za-z0-9_.]+)")
            message(FATAL_ERROR "${test_file} has no package")
        endif()
        set(test_class ${CMAKE_MATCH_1}.${short_name})
        if(NOT short_name MATCHES "${TABULO_JAVA_TESTS}")
            continue()
        endif()
        # Slow: a virtual machine starts for each.
        tabulo_script_test(java/${short_name} SLOW ${scripts}/java_tests.py
            --java ${TABULO_JAVA_RUNTIME}
            --classpath ${run_path}
            --library $<TARGET_FILE:tabulo>
            --source-directory ${PROJECT_SOURCE_DIR}
            --work-directory ${TABULO_TEST_WORK}/java/${test_class}
            ${preload_options}
            ${test_class})
        if(TABULO_TEST_TIMEOUT GREATER usual_timeout)
            set_tests_properties(${TABULO_TEST_PREFIX}java/${short_name} PROPERTIES TIMEOUT ${TABULO_TEST_TIMEOUT})
        endif()
    endforeach()
endif()
