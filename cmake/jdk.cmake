# Which Java development kit is used: TABULO_JDK when it is given, else Debian's OpenJDK 17, else JAVA_HOME, else the one
# on the path. The binding needs its headers only: the library is loaded by a virtual machine and never links one.
set(TABULO_JDK "" CACHE PATH "Java development kit (17 or later) to build and test with")

if(NOT TABULO_JDK)
    file(GLOB jdk_candidates /usr/lib/jvm/java-17-openjdk-*)
    find_path(jdk_home include/jni.h HINTS ${jdk_candidates} ENV JAVA_HOME NO_CACHE)
    if(NOT jdk_home)
        find_program(jdk_javac javac NO_CACHE)
        if(jdk_javac)
            file(REAL_PATH ${jdk_javac} jdk_javac)
            cmake_path(GET jdk_javac PARENT_PATH jdk_bin)
            cmake_path(GET jdk_bin PARENT_PATH jdk_home)
        endif()
    endif()
    cmake_path(SET jdk_home NORMALIZE "${jdk_home}")
    string(REGEX REPLACE "/$" "" jdk_home "${jdk_home}")
    set_property(CACHE TABULO_JDK PROPERTY VALUE "${jdk_home}")
endif()
if(NOT EXISTS ${TABULO_JDK}/include/jni.h)
    message(FATAL_ERROR "No Java development kit with include/jni.h found: install openjdk-17-jdk-headless or set TABULO_JDK")
endif()

set(TABULO_JNI_INCLUDES ${TABULO_JDK}/include ${TABULO_JDK}/include/linux)
